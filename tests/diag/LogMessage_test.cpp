#include "diag/log_backend.h"

#include "general/message_log.h"

#include "tests/support/fresh_library.h"
#include "tests/support/import_hook.h"

#include <gmock/gmock.h>

#include <ctime>
#include <fstream>
#include <io.h>
#include <latch>
#include <string>
#include <thread>
#include <vector>
#include <windows.h>

#include <shlwapi.h>

namespace {

using test_support::FreshLibrary;
using test_support::ImportHook;
using testing::ElementsAre;

/// A registry of the test's own in place of the machine's, and a library that has logged nothing yet.
struct Log : testing::Test {
    Log()
    {
        HKEY own = nullptr;
        RegCreateKeyA(HKEY_CURRENT_USER, place.c_str(), &own);
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, own);
        RegCloseKey(own);
    }
    ~Log() override
    {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        SHDeleteKeyA(HKEY_CURRENT_USER, place.c_str());
    }
    static void set(const std::string &key, const char *value, const std::string &text)
    {
        SHSetValueA(HKEY_LOCAL_MACHINE, key.c_str(), value, REG_SZ, text.data(), static_cast<DWORD>(text.size()));
    }
    /// A value's type in one digit, then its bytes.
    static std::string get(const std::string &key, const char *value)
    {
        BYTE data[1000];
        DWORD type = 0, size = sizeof data;
        HKEY opened = nullptr;
        RegOpenKeyA(HKEY_LOCAL_MACHINE, key.c_str(), &opened);
        RegQueryValueExA(opened, value, nullptr, &type, data, &size);
        RegCloseKey(opened);
        return std::to_string(type) + std::string(data, data + size);
    }

    const std::string place = "Software\\general_tests_" + std::to_string(GetCurrentProcessId());
    FreshLibrary library;
    decltype(LogName) *logName = library.function<decltype(LogName)>("LogName");
    decltype(LogMessage) *logMessage = library.function<decltype(LogMessage)>("LogMessage");
};

/// The system's event log, which writes down what it is asked for.
struct EventLog : Log {
    static inline std::vector<std::string> asked;
    static inline HANDLE const handle = reinterpret_cast<HANDLE>(0x1234);
    static void note(const std::string &text) { asked.push_back(text); }

    static LSTATUS WINAPI create(HKEY root, LPCSTR path, DWORD a, LPSTR b, DWORD c, REGSAM d, SECURITY_ATTRIBUTES *e,
                                 HKEY *key, DWORD *f)
    {
        note(std::string("key ") + path);
        return RegCreateKeyExA(root, path, a, b, c, d, e, key, f);
    }
    static HANDLE WINAPI open(LPCSTR server, LPCSTR name)
    {
        note((server == nullptr ? "register " : "register elsewhere ") + std::string(name));
        return handle;
    }
    static BOOL WINAPI close(HANDLE source) { return note(source == handle ? "deregister" : "wrong handle"), TRUE; }
    static BOOL WINAPI report(HANDLE source, WORD type, WORD category, DWORD id, PSID user, WORD count, DWORD size,
                              LPCSTR *strings, LPVOID)
    {
        EXPECT_TRUE(source == handle && type == 4 && category == 0 && user == nullptr && count == 2 && size == 0);
        note(std::to_string(id) + " <" + strings[0] + "> <" + strings[1] + ">");
        return TRUE;
    }
    EventLog() { asked.clear(); }
    ImportHook hooks[4] = {{"RegCreateKeyExA", create, library.module()},
                           {"RegisterEventSourceA", open, library.module()},
                           {"DeregisterEventSource", close, library.module()},
                           {"ReportEventA", report, library.module()}};
    decltype(LogPrintf) *logPrintf = library.function<decltype(LogPrintf)>("LogPrintf");
};

TEST_F(EventLog, ReportsUnderTheSource)
{
    logMessage(nullptr, nullptr);
    logName("other");
    logMessage("who", "what");
    logPrintf("me", "%d of %s", 1, "two");
    logPrintf("me", nullptr);
    const std::string key = R"(key SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\)";
    EXPECT_THAT(asked, ElementsAre(key + "QVS", "register QVS", "1 <> <>", "deregister", key + "other",
                                   "register other", "2 <who> <what>", "3 <me> <1 of two>", "4 <me> <>"));
}

TEST_F(EventLog, DescribesTheSource)
{
    const std::string sources = R"(SYSTEM\CurrentControlSet\Services\EventLog\Application\)", zero(1, '\0');
    const std::vector<std::pair<std::string, std::string>> before = {
        {"kept", "x.dll"}, {"long", std::string(300, 'x')}, {"empty", zero}};
    for (const auto &[name, file] : before)
        set(sources + name, "EventMessageFile", file);
    for (const char *name : {"new", "kept", "long", "empty"}) {
        logName(name);
        EXPECT_EQ(get(sources + name, "TypesSupported"), std::string("4\4\0\0\0", 5));
    }
    auto file = [&](const char *name) { return get(sources + name, "EventMessageFile"); };
    EXPECT_THAT((std::vector{file("new"), file("empty"), file("kept"), file("long")}),
                ElementsAre("2new.message.dll" + zero, "2empty.message.dll" + zero, "1x.dll" + zero,
                            "1" + std::string(300, 'x') + zero));
}

void *noMemory(size_t)
{
    return nullptr;
}

TEST_F(EventLog, TakesTextOfAnyLength)
{
    logName("n");
    for (size_t length : {511U, 512U, 1023U, 1024U, 100000U}) {
        const std::string text(length, 'x');
        logPrintf("me", "%s", text.c_str());
        EXPECT_NE(asked.back().find(" <me> <" + text + ">"), std::string::npos) << length;
    }
    ImportHook exhausted("malloc", noMemory, library.module());
    logPrintf("me", "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(asked.back(), "6 <me> <" + std::string(1023, 'x') + ">");
}

/// Windows 95, with a file that the registry names.
struct FileLog : Log {
    static constexpr const char *key = R"(SOFTWARE\KLT\QVS)", *value = "LogFileName";
    static BOOL WINAPI tellVersion(OSVERSIONINFOA *version) { return (version->dwPlatformId = 1) != 0; }
    ImportHook version{"GetVersionExA", tellVersion, library.module()};
    const std::string path = std::string(std::getenv("TEMP")) + "\\log_test" + std::to_string(GetCurrentProcessId());

    FileLog() { set(key, value, path); }
    ~FileLog() override
    {
        _fcloseall(); // the library leaves its file open
        std::remove(path.c_str());
    }
    /// The file's lines from a column on.
    std::vector<std::string> lines(size_t from = 15) const
    {
        std::ifstream file(path, std::ios::binary);
        std::vector<std::string> found;
        for (std::string line; std::getline(file, line);)
            found.push_back(line.substr(std::min(from, line.size())));
        return found;
    }
};

/// Month, day and time of this moment, as the runtime writes them.
std::string timeText()
{
    std::time_t now = std::time(nullptr);
    return std::string(std::ctime(&now)).substr(4, 15);
}

TEST_F(FileLog, WritesALineToTheByte)
{
    const std::string name(40, 'n'), logged = name.substr(0, 31), start = timeText();
    logName(name.c_str());
    // 31 of the name, 8 of the format, 3 of the party and 15 of the time: with 71 more it is 128.
    for (size_t length : {0U, 70U, 71U, 72U, 5000U}) {
        const std::string text(length, 'x'), before = timeText();
        logMessage("who", text.c_str());
        const std::string rest = " " + logged + ": who: <" + text + ">\r";
        EXPECT_THAT(lines(0).back(), testing::AnyOf(start + rest, before + rest, timeText() + rest)); // flushed
    }
    std::ofstream(path, std::ios::app) << "another's line\n";
    logMessage(nullptr, "last");
    EXPECT_EQ(lines(0)[5], "another's line\r");
    EXPECT_EQ(lines()[6], " " + logged + ": : <last>\r");
}

std::string opened; // path, mode, and the creation mask at that time

FILE *recordOpen(const char *path, const char *mode)
{
    const int mask = _umask(0);
    _umask(mask);
    opened = std::string(path) + " " + mode + " " + std::to_string(mask);
    return nullptr;
}

TEST_F(FileLog, OpensWhatTheRegistryNames)
{
    logMessage("a", "1");
    const int ownMask = _S_IWRITE, previousMask = _umask(ownMask);
    {
        ImportHook hook("fopen", recordOpen, library.module());
        const std::string defaultFile = "c:\\tmp\\local7.info", longest(255, 'x'), tooLong(300, 'x'), zero(1, '\0');
        const std::vector<std::pair<std::string, std::string>> cases = {
            {"d:\\x", "d:\\x"}, {longest, longest}, {"", defaultFile}, {zero, defaultFile}, {tooLong, defaultFile}};
        for (const auto &[text, file] : cases) {
            set(key, value, text);
            logName("n");
            logMessage("a", "dropped");
            EXPECT_EQ(opened, file + " a 0");
        }
        SHDeleteKeyA(HKEY_LOCAL_MACHINE, key);
        logName("n");
        EXPECT_EQ(opened, defaultFile + " a 0");
    }
    EXPECT_EQ(_umask(previousMask), ownMask);
    EXPECT_TRUE(DeleteFileA(path.c_str())) << "the first file is still open";
    set(key, value, path);
    logName("last");
    logMessage("a", "2");
    EXPECT_THAT(lines(), ElementsAre(" last: a: <2>\r"));
}

TEST_F(FileLog, LinesOfThreadsStayWhole)
{
    constexpr size_t threads = 4, rounds = 300;
    logName("n");
    auto text = [](size_t thread, size_t round) {
        return std::string(round % 3 == 0 ? 9000 : 30 + round % 200, static_cast<char>('a' + thread));
    };
    std::latch together(threads);
    std::vector<std::thread> running;
    std::vector<std::string> expected;
    for (size_t thread = 0; thread < threads; ++thread) {
        for (size_t round = 0; round < rounds; ++round)
            expected.push_back(" n: t: <" + text(thread, round) + ">\r");
        running.emplace_back([&, thread] {
            together.arrive_and_wait();
            for (size_t round = 0; round < rounds; ++round)
                logMessage("t", text(thread, round).c_str());
        });
    }
    for (std::thread &thread : running)
        thread.join();
    const std::vector<std::string> found = lines();
    EXPECT_TRUE(std::is_permutation(found.begin(), found.end(), expected.begin(), expected.end()));
}

TEST_F(FileLog, DegenerateForms)
{
    const general::LogBackend &file = general::fileLogBackend;
    file.write(0, "%s%s", "nothing", "is open");
    file.open("n");
    file.write(0, nullptr, "a", "b");
    file.write(0, "%s|%s", "a", nullptr);
    file.write(0, "%200s|%s", "a", "b"); // more than its parts promise
    file.close();
    EXPECT_THAT(lines(), ElementsAre(" n:\r", " n: a|\r", " n: " + std::string(199, ' ') + "a|b\r"));
}

} // namespace
