#include "base/library_function.h"
#include "base/module_id.h"

#include "general/validators.h"

#include <ctype.h>
#include <string.h>
#include <windows.h>

#include <winsock.h>

GENERAL_MODULE_ID("$Id$");

namespace {

/// What islocal needs of Winsock 1.1, the version that every Windows has.
struct Winsock {
    decltype(&WSAStartup) startup;
    decltype(&WSACleanup) cleanup;
    decltype(&gethostname) hostName;
    decltype(&gethostbyname) lookUpName;
    decltype(&gethostbyaddr) lookUpAddress;
    decltype(&inet_addr) address;
};

/// Loads Winsock when first asked for.
/// @return false where there is none, or an incomplete one
bool findWinsock(Winsock &winsock)
{
    static HMODULE library;
    if (library == nullptr)
        library = general::loadSystemLibrary("wsock32.dll");
    return general::findFunction(library, "WSAStartup", winsock.startup) &&
           general::findFunction(library, "WSACleanup", winsock.cleanup) &&
           general::findFunction(library, "gethostname", winsock.hostName) &&
           general::findFunction(library, "gethostbyname", winsock.lookUpName) &&
           general::findFunction(library, "gethostbyaddr", winsock.lookUpAddress) &&
           general::findFunction(library, "inet_addr", winsock.address);
}

constexpr size_t localNameSize = 128;
constexpr size_t longestHostName = 255; // of a DNS name

/// The official name of a host given by name or address; null when a look-up fails.
const char *officialName(const Winsock &winsock, const char *host)
{
    char nameOfAddress[longestHostName + 1];
    bool isAddress = strchr(host, '.') != nullptr && isdigit(static_cast<unsigned char>(host[0])) != 0;
    if (isAddress) {
        unsigned long address = winsock.address(host);
        const hostent *found = winsock.lookUpAddress(reinterpret_cast<const char *>(&address), 4, AF_INET);
        if (found == nullptr || found->h_name == nullptr || strlen(found->h_name) > longestHostName)
            return nullptr;
        host = strcpy(nameOfAddress, found->h_name); // the next look-up reuses Winsock's own record
    }
    const hostent *found = winsock.lookUpName(host);
    return found == nullptr ? nullptr : found->h_name;
}

bool isThisMachine(const Winsock &winsock, const char *host)
{
    char localName[localNameSize] = "";
    if (winsock.hostName(localName, sizeof localName) != 0)
        return false;
    localName[sizeof localName - 1] = '\0';
    const char *name = officialName(winsock, host);
    if (name == nullptr)
        return false;
    size_t length = strcspn(name, ".");
    return strlen(localName) == length && memcmp(name, localName, length) == 0;
}

} // namespace

int islocal(const char *host)
{
    Winsock winsock{};
    WSADATA data;
    if (host == nullptr || !findWinsock(winsock) || winsock.startup(MAKEWORD(1, 1), &data) != 0)
        return 0;
    int answer = isThisMachine(winsock, host) ? 1 : 0;
    winsock.cleanup();
    return answer;
}
