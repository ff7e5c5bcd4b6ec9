#include "general/validators.h"

#include "tests/support/fresh_library.h"
#include "tests/support/import_hook.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>
#include <windows.h>

#include <winsock.h>

namespace {

using test_support::FreshLibrary;
using test_support::ImportHook;
constexpr const char *null = nullptr;

TEST(Paths, FilesAndDirectories)
{
    char file[MAX_PATH], folder[MAX_PATH];
    GetModuleFileNameA(nullptr, file, sizeof file);
    GetSystemDirectoryA(folder, sizeof folder);
    for (int ignored : {0, 1}) {
        EXPECT_TRUE(isdirectory(folder, ignored) == 1 && isfile(folder, ignored) == 0);
        EXPECT_TRUE(isdirectory(file, ignored) == 0 && isfile(file, ignored) == 1);
        for (const char *path : {"c:\\no\\such", "", "a*b", null})
            EXPECT_TRUE(isdirectory(path, ignored) == 0 && isfile(path, ignored) == 0) << path;
    }
}

TEST(Paths, LoadableGivesTheDirectoryAndZeros)
{
    char system[MAX_PATH], directory[ISLOADABLE_DIR_SIZE];
    const std::string expected(system, GetSystemDirectoryA(system, sizeof system));
    for (const std::string &file : {std::string("kernel32.dll"), expected + "\\kernel32.dll"}) {
        std::memset(directory, 'x', sizeof directory);
        EXPECT_EQ(isloadable(file.c_str(), directory), 1);
        EXPECT_STRCASEEQ(directory, expected.c_str());
        EXPECT_EQ(std::count(directory, std::end(directory), 0), ISLOADABLE_DIR_SIZE - std::ssize(expected));
    }
    for (const char *file : {"kernel32", "no such file", "", null})
        EXPECT_EQ(isloadable(file, directory), 0) << file;
    EXPECT_EQ(isloadable("kernel32.dll", nullptr), 0);
}

/// A network that the library asks in place of Winsock's.
struct Network {
    static inline std::map<std::string, std::string> names; // official ones, by name or an address's last number
    static inline int started;
    static inline bool works;

    static hostent *lookUp(const std::string &host)
    {
        static hostent found;
        found.h_name = names.count(host) != 0 ? names[host].data() : nullptr;
        return found.h_name == nullptr ? nullptr : &found;
    }
    static int WINAPI start(WORD, WSADATA *) { return (started += works ? 1 : 0) > 0 ? 0 : WSASYSNOTREADY; }
    static int WINAPI finish() { return --started; }
    static int WINAPI localName(char *name, int size) { return std::memcpy(name, "Box", 4), size == 128 ? 0 : -1; }
    static hostent *WINAPI byName(const char *name) { return lookUp(name); }
    static hostent *WINAPI byAddress(const char *address, int size, int family)
    {
        return size == 4 && family == AF_INET ? lookUp(std::to_string(address[3])) : nullptr;
    }
    static FARPROC WINAPI find(HMODULE library, LPCSTR name)
    {
        const std::map<std::string, void *> functions = {{"WSAStartup", reinterpret_cast<void *>(start)},
                                                         {"WSACleanup", reinterpret_cast<void *>(finish)},
                                                         {"gethostname", reinterpret_cast<void *>(localName)},
                                                         {"gethostbyname", reinterpret_cast<void *>(byName)},
                                                         {"gethostbyaddr", reinterpret_cast<void *>(byAddress)}};
        auto found = functions.find(name);
        return found == functions.end() ? GetProcAddress(library, name) : reinterpret_cast<FARPROC>(found->second);
    }
};

TEST(Local, ComparesTheOfficialName)
{
    EXPECT_EQ(islocal("no.such.host.invalid"), 0); // by the real Winsock
    EXPECT_EQ(islocal(""), 1);                     // which takes it for this machine
    ImportHook hook("GetProcAddress", Network::find);
    Network::names = {{"box", "Box"},     {"alias.org", "Box.example.org"},
                      {"other", "Boxer"}, {"lower", "box.org"},
                      {"short", "Bo"},    {"1", "box"},
                      {"2", "nowhere"},   {"3", std::string(300, 'x')},
                      {"258", "Box"},     {"3com.org", "Box"}};
    EXPECT_EQ(islocal("box"), 0); // Winsock does not start
    Network::works = true;
    for (const char *host : {"box", "alias.org", "10.0.0.1", "258"}) // the last has no point: a name
        EXPECT_EQ(islocal(host), 1) << host;
    for (const char *host : {"other", "lower", "short", "none", "10.0.0.2", "10.0.0.3", "10.0.0.9", "3com.org", null})
        EXPECT_EQ(islocal(host), 0) << host;
    EXPECT_EQ(Network::started, 0);
}

OSVERSIONINFOA played;
int questions;

BOOL WINAPI tellVersion(OSVERSIONINFOA *version)
{
    ++questions;
    *version = played;
    return played.dwMajorVersion != 0;
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
        FreshLibrary library;
        ImportHook hook("GetVersionExA", tellVersion, library.module());
        played = {sizeof played, c.major, c.minor, 0, c.platform, ""};
        for (int asked : {c.answers[0] < 0 ? 3 : 4, 0}) { // on the 95 family NT is not asked for
            std::vector<int> answers;
            questions = 0;
            for (const char *name : {"iswinNT", "iswin95", "iswin2K", "iswinXP"})
                answers.push_back(library.function<int()>(name)());
            EXPECT_EQ(answers, c.answers) << c.platform << ": " << c.major << "." << c.minor;
            EXPECT_EQ(questions, asked);
        }
    }
}

} // namespace
