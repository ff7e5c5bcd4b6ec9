#include "diag/log_backend.h"

#include "general/message_log.h"

#include "tests/support/fresh_library.h"
#include "tests/support/import_hook.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <io.h>
#include <latch>
#include <sstream>
#include <string>
#include <thread>
#include <vector>
#include <windows.h>

#include <shlwapi.h>

namespace {

using test_support::FreshLibrary;
using test_support::ImportHook;
using testing::ElementsAre;

/// A registry of the test's own in place of the machine's.
class Registry {
public:
    Registry()
    {
        RegCreateKeyA(HKEY_CURRENT_USER, place.c_str(), &root_);
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, root_);
    }
    ~Registry()
    {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegCloseKey(root_);
        SHDeleteKeyA(HKEY_CURRENT_USER, place.c_str());
    }
    static void set(const std::string &key, const char *value, const std::string &text)
    {
        SHSetValueA(HKEY_LOCAL_MACHINE, key.c_str(), value, REG_SZ, text.data(), static_cast<DWORD>(text.size()));
    }
    /// The type in one digit, then the bytes.
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

private:
    std::string place = "Software\\general_tests_" + std::to_string(GetCurrentProcessId());
    HKEY root_ = nullptr;
};

std::vector<std::string> events; // what the library asked of the system
HANDLE const givenSource = reinterpret_cast<HANDLE>(0x1234);
ImportHook *createKey;

LSTATUS WINAPI recordCreate(HKEY root, LPCSTR path, DWORD a, LPSTR b, DWORD c, REGSAM d, SECURITY_ATTRIBUTES *e,
                            HKEY *f, DWORD *g)
{
    EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
    events.push_back(std::string("key ") + path);
    return createKey->original<decltype(RegCreateKeyExA)>()(root, path, a, b, c, d, e, f, g);
}
HANDLE WINAPI recordRegister(LPCSTR server, LPCSTR name)
{
    EXPECT_EQ(server, nullptr);
    events.push_back(std::string("register ") + name);
    return givenSource;
}
BOOL WINAPI recordDeregister(HANDLE source)
{
    EXPECT_EQ(source, givenSource);
    events.emplace_back("deregister");
    return TRUE;
}
BOOL WINAPI recordReport(HANDLE source, WORD type, WORD category, DWORD id, PSID user, WORD count, DWORD size,
                         LPCSTR *strings, LPVOID data)
{
    EXPECT_EQ(source, givenSource);
    EXPECT_TRUE(type == 4 && category == 0 && user == nullptr && count == 2 && size == 0 && data == nullptr);
    events.push_back("event " + std::to_string(id) + " <" + strings[0] + "> <" + strings[1] + ">");
    return TRUE;
}
void *noMemory(size_t)
{
    return nullptr;
}

class EventLog : public testing::Test {
protected:
    EventLog()
    {
        createKey = &create;
        events.clear();
    }
    Registry registry;
    FreshLibrary library;
    ImportHook create{"RegCreateKeyExA", recordCreate, library.module()};
    ImportHook open{"RegisterEventSourceA", recordRegister, library.module()};
    ImportHook close{"DeregisterEventSource", recordDeregister, library.module()};
    ImportHook report{"ReportEventA", recordReport, library.module()};
    decltype(LogName) *logName = library.function<decltype(LogName)>("LogName");
    decltype(LogMessage) *logMessage = library.function<decltype(LogMessage)>("LogMessage");
    decltype(LogPrintf) *logPrintf = library.function<decltype(LogPrintf)>("LogPrintf");
    const std::string sources = R"(SYSTEM\CurrentControlSet\Services\EventLog\Application\)";
};

TEST_F(EventLog, ReportsUnderTheSource)
{
    logMessage(nullptr, nullptr);
    logName("other");
    logMessage("who", "what");
    logPrintf("me", "%d of %s", 1, "two");
    logPrintf("me", nullptr);
    const std::string path = R"(key SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\)";
    EXPECT_THAT(events,
                ElementsAre(path + "QVS", "register QVS", "event 1 <> <>", "deregister", path + "other",
                            "register other", "event 2 <who> <what>", "event 3 <me> <1 of two>", "event 4 <me> <>"));
}

TEST_F(EventLog, DescribesTheSource)
{
    const std::string four("4\4\0\0\0", 5), terminator(1, '\0'), longest(300, 'x');
    Registry::set(sources + "kept", "EventMessageFile", "its.dll");
    Registry::set(sources + "long", "EventMessageFile", longest);
    Registry::set(sources + "empty", "EventMessageFile", terminator);
    for (const char *name : {"new", "kept", "long", "empty"}) {
        logName(name);
        EXPECT_EQ(Registry::get(sources + name, "TypesSupported"), four);
    }
    EXPECT_EQ(Registry::get(sources + "new", "EventMessageFile"), "2new.message.dll" + terminator);
    EXPECT_EQ(Registry::get(sources + "empty", "EventMessageFile"), "2empty.message.dll" + terminator);
    EXPECT_EQ(Registry::get(sources + "kept", "EventMessageFile"), "1its.dll" + terminator);
    EXPECT_EQ(Registry::get(sources + "long", "EventMessageFile"), "1" + longest + terminator);
}

TEST_F(EventLog, TakesTextOfAnyLength)
{
    logName("n");
    for (size_t length : {511U, 512U, 1023U, 1024U, 100000U}) {
        std::string text(length, 'x');
        logPrintf("me", "%s", text.c_str());
        EXPECT_NE(events.back().find(" <me> <" + text + ">"), std::string::npos) << length;
    }
    ImportHook exhausted("malloc", noMemory, library.module());
    logPrintf("me", "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(events.back().size(), std::string("event 6 <me> <>").size() + 1023);
    logName(std::string(5000, 'n').c_str());
}

BOOL WINAPI tellWindows95(OSVERSIONINFOA *version)
{
    version->dwPlatformId = VER_PLATFORM_WIN32_WINDOWS;
    return TRUE;
}

std::string openedFile; // path, mode and the creation mask at that time

FILE *recordOpen(const char *path, const char *mode)
{
    int mask = _umask(0);
    openedFile = std::string(path) + " " + mode + " " + std::to_string(mask);
    _umask(mask);
    return nullptr;
}

class FileLog : public testing::Test {
protected:
    FileLog()
    {
        Registry::set(key, value, path);
        std::remove(path.c_str());
    }
    ~FileLog() override
    {
        _fcloseall(); // the library leaves its file open
        std::remove(path.c_str());
    }
    std::vector<std::string> lines() const
    {
        std::ifstream file(path, std::ios::binary);
        std::vector<std::string> found;
        for (std::string line; std::getline(file, line);)
            found.push_back(line);
        return found;
    }

    static constexpr const char *key = R"(SOFTWARE\KLT\QVS)", *value = "LogFileName";
    const std::string path = std::string(std::getenv("TEMP")) + "\\log_test" + std::to_string(GetCurrentProcessId());
    Registry registry;
    FreshLibrary library;
    ImportHook version{"GetVersionExA", tellWindows95, library.module()};
    decltype(LogName) *logName = library.function<decltype(LogName)>("LogName");
    decltype(LogMessage) *logMessage = library.function<decltype(LogMessage)>("LogMessage");
};

/// Month, day and time of this moment, as the runtime writes them.
std::string timeText()
{
    std::time_t now = std::time(nullptr);
    return std::string(std::ctime(&now)).substr(4, 15);
}

TEST_F(FileLog, WritesALineToTheByte)
{
    const std::string name(40, 'n'), logged = name.substr(0, 31);
    logName(name.c_str());
    const std::string start = timeText(); // the library may be late by a tick of the system's
    // 31 of the name, 8 of the format and 15 of the time are 54: at 74 more the pieces begin.
    for (size_t length : {0U, 70U, 71U, 72U, 5000U}) {
        const std::string text(length, 'x'), before = timeText();
        logMessage("who", text.c_str());
        const std::string after = timeText(), rest = " " + logged + ": who: <" + text + ">\r";
        EXPECT_THAT(lines().back(),
                    testing::AnyOf(start + rest, before + rest, after + rest)); // at once: it was flushed
    }
    std::ofstream(path, std::ios::app) << "another's line\n";
    logMessage(nullptr, "last");
    ASSERT_EQ(lines().size(), 7U);
    EXPECT_EQ(lines()[5], "another's line\r");
    EXPECT_EQ(lines()[6].substr(15), " " + logged + ": : <last>\r");
}

TEST_F(FileLog, GoesWhereTheRegistrySays)
{
    constexpr int ownMask = _S_IWRITE;
    ImportHook hook("fopen", recordOpen, library.module());
    const int previousMask = _umask(ownMask);
    const std::string defaultFile = "c:\\tmp\\local7.info a 0";
    auto openedWith = [this](const std::string &text) {
        Registry::set(key, value, text);
        logName("n");
        logMessage("a", "b"); // there is no stream: dropped
        return openedFile;
    };
    EXPECT_EQ(openedWith("d:\\x"), "d:\\x a 0");
    EXPECT_EQ(openedWith(std::string(255, 'x')), std::string(255, 'x') + " a 0");
    EXPECT_EQ(openedWith(std::string(1, '\0')), defaultFile);
    EXPECT_EQ(openedWith(std::string(300, 'x')), defaultFile);
    EXPECT_EQ(_umask(previousMask), ownMask);
}

TEST_F(FileLog, ANewNameClosesTheFile)
{
    logName("first");
    logMessage("a", "1");
    Registry::set(key, value, "c:\\no such folder\\x");
    logName("second");
    EXPECT_TRUE(DeleteFileA(path.c_str())) << "still open";
    logMessage("a", "2");
    Registry::set(key, value, path);
    logName("third");
    logMessage("a", "3");
    ASSERT_EQ(lines().size(), 1U);
    EXPECT_EQ(lines()[0].substr(15), " third: a: <3>\r");
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
    std::vector<std::string> expected, found;
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
    for (const std::string &line : lines())
        found.push_back(line.size() > 15 ? line.substr(15) : line);
    std::sort(expected.begin(), expected.end());
    std::sort(found.begin(), found.end());
    EXPECT_TRUE(found == expected);
}

TEST_F(FileLog, DegenerateForms)
{
    const general::LogBackend &file = general::fileLogBackend;
    file.write(0, "%s%s", "nothing", "is open");
    file.open("n");
    file.write(0, nullptr, "a", "b");
    file.write(0, "%s|%s", "a", nullptr);
    file.write(0, "%300s|%s", "a", "b"); // more than its parts promise
    file.close();
    std::vector<std::string> rests;
    for (const std::string &line : lines())
        rests.push_back(line.substr(15));
    EXPECT_THAT(rests, ElementsAre(" n:\r", " n: a|\r", " n: " + std::string(299, ' ') + "a|b\r"));
}

} // namespace
