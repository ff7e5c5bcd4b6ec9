#include "general/validators.h"

#include "tests/support/fresh_library.h"
#include "tests/support/import_hook.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>
#include <windows.h>

#include <winsock.h>

namespace {

using test_support::FreshLibrary;
using test_support::ImportHook;

TEST(Paths, DirectoriesAndFiles)
{
    char folder[MAX_PATH];
    GetTempPathA(sizeof folder, folder);
    std::string file = std::string(folder) + "is_system_test " + std::to_string(GetCurrentProcessId());
    std::ofstream(file) << "x";
    for (int ignored : {0, 1}) {
        EXPECT_EQ(isdirectory(folder, ignored), 1);
        EXPECT_EQ(isfile(folder, ignored), 0);
        EXPECT_EQ(isdirectory(file.c_str(), ignored), 0);
        EXPECT_EQ(isfile(file.c_str(), ignored), 1);
    }
    std::remove(file.c_str());
    for (const char *path : {file.c_str(), "", "a*b", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(isdirectory(path, 0), 0);
        EXPECT_EQ(isfile(path, 0), 0);
    }
}

DWORD WINAPI foundTooDeep(LPCSTR, LPCSTR, LPCSTR, DWORD size, LPSTR, LPSTR *)
{
    return size;
}

TEST(Loadable, GivesTheDirectoryAndZeros)
{
    char system[MAX_PATH], directory[ISLOADABLE_DIR_SIZE];
    std::string expected(system, GetSystemDirectoryA(system, sizeof system));
    for (const std::string &file : {std::string("kernel32.dll"), expected + "\\kernel32.dll"}) {
        std::memset(directory, 'x', sizeof directory);
        EXPECT_EQ(isloadable(file.c_str(), directory), 1);
        EXPECT_STRCASEEQ(directory, expected.c_str());
        EXPECT_TRUE(std::all_of(directory + expected.size(), std::end(directory), [](char c) { return c == 0; }));
    }
    for (const char *file : {"kernel32", "no such file", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(isloadable(file, directory), 0);
    EXPECT_EQ(isloadable("kernel32.dll", nullptr), 0);
    ImportHook hook("SearchPathA", foundTooDeep);
    EXPECT_EQ(isloadable("kernel32.dll", directory), 0);
}

// A small network that the library asks in place of Winsock's.
int started;
bool refusesToStart, hasNoName;
std::map<std::string, std::string> officialNames; // by name, or by the address's number

hostent *lookUp(const std::string &host)
{
    static std::string name;
    static hostent found;
    auto entry = officialNames.find(host);
    name = entry == officialNames.end() ? "" : entry->second;
    found.h_name = name.data();
    return entry == officialNames.end() ? nullptr : &found;
}
int WINAPI start(WORD version, WSADATA *)
{
    EXPECT_EQ(version, 0x0101);
    started += refusesToStart ? 0 : 1;
    return refusesToStart ? WSASYSNOTREADY : 0;
}
int WINAPI finish()
{
    return --started;
}
int WINAPI localName(char *name, int size)
{
    EXPECT_EQ(size, 128);
    std::strcpy(name, "Box");
    return hasNoName ? SOCKET_ERROR : 0;
}
hostent *WINAPI lookUpName(const char *name)
{
    return lookUp(name);
}
hostent *WINAPI lookUpAddress(const char *address, int size, int family)
{
    EXPECT_EQ(size, 4);
    EXPECT_EQ(family, AF_INET);
    return lookUp(std::to_string(static_cast<unsigned char>(address[3])));
}
FARPROC WINAPI findInNetwork(HMODULE library, LPCSTR name)
{
    const std::map<std::string, void *> network = {{"WSAStartup", reinterpret_cast<void *>(start)},
                                                   {"WSACleanup", reinterpret_cast<void *>(finish)},
                                                   {"gethostname", reinterpret_cast<void *>(localName)},
                                                   {"gethostbyname", reinterpret_cast<void *>(lookUpName)},
                                                   {"gethostbyaddr", reinterpret_cast<void *>(lookUpAddress)}};
    auto found = network.find(name);
    return found == network.end() ? GetProcAddress(library, name) : reinterpret_cast<FARPROC>(found->second);
}
HMODULE WINAPI noLibrary(LPCSTR)
{
    return nullptr;
}

TEST(Local, ComparesTheOfficialName)
{
    FreshLibrary library;
    auto *isLocal = library.function<decltype(islocal)>("islocal");
    {
        ImportHook missing("LoadLibraryA", noLibrary, library.module());
        EXPECT_EQ(isLocal("box"), 0);
    }
    ImportHook hook("GetProcAddress", findInNetwork, library.module());
    officialNames = {{"box", "Box"},      {"alias.org", "Box.example.org"},
                     {"other", "Boxer"},  {"lower", "box.org"},
                     {"short", "Bo.x"},   {"1", "box"},
                     {"2", "nowhere"},    {"3", std::string(300, 'x')},
                     {"3com.org", "Box"}, {"258", "Box"}};
    // 258 has no point: a name, not an address.
    for (const char *host : {"box", "alias.org", "10.0.0.1", "258"})
        EXPECT_EQ(isLocal(host), 1) << host;
    for (const char *host : {"other", "lower", "short", "unknown", "10.0.0.2", "10.0.0.3", "10.0.0.9", "3com.org"})
        EXPECT_EQ(isLocal(host), 0) << host;
    EXPECT_EQ(isLocal(nullptr), 0);
    hasNoName = true;
    EXPECT_EQ(isLocal("box"), 0);
    refusesToStart = true;
    EXPECT_EQ(isLocal("box"), 0);
    EXPECT_EQ(started, 0);
}

TEST(Local, ThisMachineIs)
{
    WSADATA data;
    WSAStartup(MAKEWORD(1, 1), &data);
    char name[128];
    ASSERT_EQ(gethostname(name, sizeof name), 0);
    WSACleanup();
    EXPECT_EQ(islocal(name), 1);
    EXPECT_EQ(islocal("no.such.host.invalid"), 0);
}

OSVERSIONINFOA playedVersion;
int questions;

BOOL WINAPI tellVersion(OSVERSIONINFOA *version)
{
    ++questions;
    EXPECT_GE(version->dwOSVersionInfoSize, sizeof *version);
    *version = playedVersion;
    return playedVersion.dwMajorVersion != 0;
}

TEST(Version, EachSystemIsKnownAndKept)
{
    struct {
        DWORD platform, major, minor;
        std::vector<int> answers; // NT, 95, 2K, XP
    } const cases[] = {
        {1, 4, 0, {-1, 1, 0, 0}}, {1, 4, 10, {-1, 1, 0, 0}}, {2, 3, 51, {0, 0, 0, 0}},
        {2, 4, 0, {1, 0, 0, 0}},  {2, 5, 0, {0, 0, 1, 0}},   {2, 5, 1, {0, 0, 0, 1}},
        {2, 5, 2, {0, 0, 0, 0}},  {2, 6, 1, {0, 0, 0, 0}},   {1, 0, 0, {0, 0, 0, 0}}}; // the last: not told
    for (const auto &c : cases) {
        SCOPED_TRACE(std::to_string(c.platform) + ": " + std::to_string(c.major) + "." + std::to_string(c.minor));
        FreshLibrary library;
        playedVersion = {sizeof playedVersion, c.major, c.minor, 0, c.platform, ""};
        ImportHook hook("GetVersionExA", tellVersion, library.module());
        for (int asked : {c.answers[0] < 0 ? 3 : 4, 0}) { // on the 95 family NT is not asked for
            std::vector<int> answers;
            questions = 0;
            for (const char *name : {"iswinNT", "iswin95", "iswin2K", "iswinXP"})
                answers.push_back(library.function<int()>(name)());
            EXPECT_EQ(answers, c.answers);
            EXPECT_EQ(questions, asked);
        }
    }
}

} // namespace
