#include "general/validators.h"

#include "tests/support/fresh_library.h"
#include "tests/support/import_hook.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include <winsock.h>

namespace {

using namespace test_support;
constexpr const char *null = nullptr;

TEST(Paths, FilesDirectoriesAndLoadables)
{
    char own[MAX_PATH], system[MAX_PATH], found[ISLOADABLE_DIR_SIZE];
    GetModuleFileNameA(nullptr, own, sizeof own);
    const std::string folder(system, GetSystemDirectoryA(system, sizeof system));
    for (const char *path : std::initializer_list<const char *>{system, own, "c:\\no\\such", "", "a*b", null}) {
        EXPECT_EQ(isdirectory(path, 0), path == system) << path;
        EXPECT_EQ(isfile(path, 0), path == own) << path;
    }
    for (const std::string &file : {std::string("kernel32.dll"), folder + "\\kernel32.dll"}) {
        std::memset(found, 'x', sizeof found);
        EXPECT_EQ(isloadable(file.c_str(), found), 1);
        EXPECT_STRCASEEQ(found, system);
        EXPECT_EQ(std::count(found, std::end(found), 0), ISLOADABLE_DIR_SIZE - std::ssize(folder));
    }
    for (const char *file : {"kernel32", "no such file", "", null})
        EXPECT_EQ(isloadable(file, found), 0) << file;
    EXPECT_EQ(isloadable("kernel32.dll", nullptr), 0);
    // A folder, which has no name behind it, loses its last character; a path that is too long is none.
    static DWORD length;
    auto search = winapi(
        [](LPCSTR, LPCSTR, LPCSTR, DWORD, char *path, char **) { return std::strcpy(path, "c:\\ab\\"), length; });
    ImportHook hook("SearchPathA", search);
    EXPECT_EQ((length = ISLOADABLE_DIR_SIZE, isloadable("ab", found)), 0);
    EXPECT_EQ((length = ISLOADABLE_DIR_SIZE - 1, isloadable("ab", found)), 1);
    EXPECT_EQ((length = 6, isloadable("ab", found)), 1);
    EXPECT_STREQ(found, "c:\\ab");
}

/// The official names on a network, by name or an address's last number. Without any, Winsock does not start.
std::map<std::string, std::string> network;
int started;

hostent *lookUp(const char *host)
{
    static char name[301]; // every look-up's, as Winsock's is
    static hostent found{name, nullptr, AF_INET, 4, nullptr};
    *name = '\0';
    auto entry = network.find(host);
    return entry == network.end() ? nullptr : (std::strcpy(name, entry->second.c_str()), &found);
}

TEST(Local, ComparesTheOfficialName)
{
    EXPECT_EQ(islocal("no.such.host.invalid"), 0); // by the real Winsock
    auto start = winapi([](WORD, WSADATA *) { return network.empty() ? 1 : (++started, 0); });
    auto finish = winapi([] { return --started; });
    auto localName = winapi([](char *name, int size) { return std::memcpy(name, "Box", 4), size == 128 ? 0 : -1; });
    auto byName = winapi([](const char *name) { return lookUp(name); });
    auto byAddress = winapi([](const char *address, int size, int family) {
        return size == 4 && family == AF_INET ? lookUp(std::to_string(address[3]).c_str()) : nullptr;
    });
    FoundFunctions hook({{"WSAStartup", start},
                         {"WSACleanup", finish},
                         {"gethostname", localName},
                         {"gethostbyname", byName},
                         {"gethostbyaddr", byAddress}});
    EXPECT_EQ(islocal("box"), 0); // Winsock does not start
    const std::string longName(300, 'x');
    network = {{"box", "Box"},     {"alias.org", "Box.example.org"},
               {"other", "Boxer"}, {"lower", "box.org"},
               {"short", "Bo"},    {"1", "box"},
               {"2", "nowhere"},   {"3", longName},
               {longName, "Box"},  {"258", "Box"},
               {"3com.org", "Box"}};
    for (const char *host : {"box", "alias.org", "10.0.0.1", "258"}) // the last has no point: a name
        EXPECT_EQ(islocal(host), 1) << host;
    for (const char *host : {"other", "lower", "short", "none", "10.0.0.2", "10.0.0.3", "10.0.0.9", "3com.org", null})
        EXPECT_EQ(islocal(host), 0) << host;
    EXPECT_EQ(started, 0);
}

OSVERSIONINFOA played;
int questions;

TEST(Version, EachSystemIsKnownAndKept)
{
    auto tell = winapi(
        [](OSVERSIONINFOA *version) -> BOOL { return ++questions, *version = played, played.dwMajorVersion != 0; });
    struct {
        DWORD platform, major, minor;
        std::vector<int> answers; // NT, 95, 2K, XP
    } const cases[] = {
        {1, 4, 0, {-1, 1, 0, 0}}, {1, 4, 10, {-1, 1, 0, 0}}, {2, 3, 51, {0, 0, 0, 0}},
        {2, 4, 0, {1, 0, 0, 0}},  {2, 5, 0, {0, 0, 1, 0}},   {2, 5, 1, {0, 0, 0, 1}},
        {2, 5, 2, {0, 0, 0, 0}},  {2, 6, 1, {0, 0, 0, 0}},   {1, 0, 0, {0, 0, 0, 0}}}; // the last: not told
    for (const auto &c : cases) {
        FreshLibrary library;
        ImportHook hook("GetVersionExA", tell, library.module());
        played = {sizeof played, c.major, c.minor, 0, c.platform, ""};
        for (int asked : {c.answers[0] < 0 ? 3 : 4, 0}) { // on the 95 family NT is not asked for
            std::vector<int> answers;
            for (const char *name : {"iswinNT", "iswin95", "iswin2K", "iswinXP"})
                answers.push_back(library.function<int()>(name)());
            EXPECT_EQ(answers, c.answers) << c.platform << ": " << c.major << "." << c.minor;
            EXPECT_EQ(std::exchange(questions, 0), asked);
        }
    }
}

} // namespace
