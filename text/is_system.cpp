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
    bool isComplete;
};

template<typename Function>
bool find(HMODULE library, const char *name, Function *&function)
{
    function = reinterpret_cast<Function *>(reinterpret_cast<void *>(GetProcAddress(library, name)));
    return function != nullptr;
}

Winsock loadWinsock()
{
    Winsock winsock{};
    HMODULE library = LoadLibraryA("wsock32.dll");
    winsock.isComplete =
        library != nullptr && find(library, "WSAStartup", winsock.startup) &&
        find(library, "WSACleanup", winsock.cleanup) && find(library, "gethostname", winsock.hostName) &&
        find(library, "gethostbyname", winsock.lookUpName) && find(library, "gethostbyaddr", winsock.lookUpAddress) &&
        find(library, "inet_addr", winsock.address);
    return winsock;
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

bool hasAttributes(const char *path, DWORD &attributes)
{
    attributes = path == nullptr ? INVALID_FILE_ATTRIBUTES : GetFileAttributesA(path);
    return attributes != INVALID_FILE_ATTRIBUTES;
}

} // namespace

int isdirectory(const char *path, int)
{
    DWORD attributes = 0;
    return hasAttributes(path, attributes) && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? 1 : 0;
}

int isfile(const char *path, int)
{
    DWORD attributes = 0;
    return hasAttributes(path, attributes) && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 ? 1 : 0;
}

int islocal(const char *host)
{
    static Winsock winsock; // filled again by every call until it is complete
    if (host == nullptr)
        return 0;
    if (!winsock.isComplete)
        winsock = loadWinsock();
    WSADATA data;
    if (!winsock.isComplete || winsock.startup(MAKEWORD(1, 1), &data) != 0)
        return 0;
    int answer = isThisMachine(winsock, host) ? 1 : 0;
    winsock.cleanup();
    return answer;
}

int isloadable(const char *file, char *dir_out)
{
    if (file == nullptr || dir_out == nullptr)
        return 0;
    char *name = nullptr;
    DWORD length = SearchPathA(nullptr, file, nullptr, ISLOADABLE_DIR_SIZE, dir_out, &name);
    if (length == 0 || length >= ISLOADABLE_DIR_SIZE)
        return 0;
    size_t directoryLength = (name == nullptr ? length : static_cast<size_t>(name - dir_out)) - 1;
    memset(dir_out + directoryLength, 0, ISLOADABLE_DIR_SIZE - directoryLength);
    return 1;
}
