#include "diag/log_backend.h"

#include "general/message_log.h"
#include "general/validators.h"

#include "tests/support/fresh_library.h"
#include "tests/support/import_hook.h"

#include <gmock/gmock.h>

#include <ctime>
#include <fstream>
#include <io.h>
#include <thread>

#include <shlwapi.h>

namespace {

using namespace test_support;
using testing::ElementsAre;
using Texts = std::vector<std::string>;

const std::string zero(1, '\0');
Texts noted; ///< what was asked of the system
BOOL note(const std::string &text)
{
    return noted.push_back(text), TRUE;
}

/// A registry of the test's own in place of the machine's, and a library that has logged nothing yet.
struct Log : testing::Test {
    Log()
    {
        HKEY own = nullptr;
        RegCreateKeyA(HKEY_CURRENT_USER, place.c_str(), &own);
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, own);
        RegCloseKey(own);
        noted.clear();
    }
    ~Log() override
    {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        SHDeleteKeyA(HKEY_CURRENT_USER, place.c_str());
    }
    static void set(const std::string &key, const char *value, const std::string &text)
    {
        SHSetValueA(HKEY_LOCAL_MACHINE, key.c_str(), value, REG_SZ, text.data(), text.size());
    }
    const std::string place = "Software\\general_tests_" + std::to_string(GetCurrentProcessId());
    FreshLibrary library;
    decltype(LogName) *logName = library.function<decltype(LogName)>("LogName");
    decltype(LogMessage) *logMessage = library.function<decltype(LogMessage)>("LogMessage");
    decltype(LogPrintf) *logPrintf = library.function<decltype(LogPrintf)>("LogPrintf");
};

/// The system's event log, which writes down what it is asked for.
struct EventLog : Log {
    void SetUp() override
    {
        if (iswin95() != 0)
            GTEST_SKIP() << "this system has no event log";
    }
    static inline HANDLE handle = reinterpret_cast<HANDLE>(0x1234);
    static LSTATUS WINAPI create(HKEY root, LPCSTR path, DWORD a, LPSTR b, DWORD c, REGSAM d, SECURITY_ATTRIBUTES *e,
                                 HKEY *key, DWORD *f)
    {
        note(std::string("key ") + path);
        return RegCreateKeyExA(root, path, a, b, c, d, e, key, f);
    }
    static HANDLE WINAPI open(LPCSTR server, LPCSTR name)
    {
        return note((server == nullptr ? "register " : "elsewhere ") + std::string(name)), handle;
    }
    static BOOL WINAPI close(HANDLE source) { return note(source == handle ? "deregister" : "wrong handle"); }
    static BOOL WINAPI report(HANDLE source, WORD type, WORD category, DWORD id, PSID user, WORD count, DWORD size,
                              LPCSTR *strings, LPVOID)
    {
        EXPECT_EQ(std::tuple(source, type, category, user, count, size), std::tuple(handle, 4, 0, nullptr, 2U, 0U));
        return note(std::to_string(id) + " <" + strings[0] + "> <" + strings[1] + ">");
    }
    ImportHook hooks[4] = {{"RegCreateKeyExA", create, library.module()},
                           {"RegisterEventSourceA", open, library.module()},
                           {"DeregisterEventSource", close, library.module()},
                           {"ReportEventA", report, library.module()}};
};

TEST_F(EventLog, ReportsTextOfAnyLengthUnderTheSource)
{
    logMessage(nullptr, nullptr);
    logName("other");
    logMessage("who", "what");
    logPrintf("me", "%d of %s", 1, "two");
    logPrintf("me", nullptr);
    const std::string key = R"(key SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\)";
    EXPECT_THAT(noted, ElementsAre(key + "QVS", "register QVS", "1 <> <>", "deregister", key + "other",
                                   "register other", "2 <who> <what>", "3 <me> <1 of two>", "4 <me> <>"));
    for (size_t length : {511U, 512U, 1023U, 1024U, 100000U}) {
        const std::string text(length, 'x');
        logPrintf("me", "%s", text.c_str());
        EXPECT_THAT(noted.back(), testing::EndsWith(" <me> <" + text + ">"));
    }
    ImportHook exhausted("malloc", +[](size_t) -> void * { return nullptr; }, library.module());
    logPrintf("me", "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(noted.back(), "10 <me> <" + std::string(1023, 'x') + ">");
}

TEST_F(EventLog, DescribesTheSource)
{
    const std::string sources = R"(SYSTEM\CurrentControlSet\Services\EventLog\Application\)", longFile(300, 'x');
    set(sources + "kept", "EventMessageFile", "x.dll");
    set(sources + "long", "EventMessageFile", longFile);
    set(sources + "empty", "EventMessageFile", zero);
    Texts values; // each one's type in one digit, then its bytes
    for (const std::string name : {"new", "kept", "long", "empty"}) {
        logName(name.c_str());
        HKEY key = nullptr;
        RegOpenKeyA(HKEY_LOCAL_MACHINE, (sources + name).c_str(), &key);
        for (const char *value : {"TypesSupported", "EventMessageFile"}) {
            BYTE data[1000];
            DWORD type = 0, size = sizeof data;
            RegQueryValueExA(key, value, nullptr, &type, data, &size);
            values.push_back(std::to_string(type) + std::string(data, data + size));
        }
        RegCloseKey(key);
    }
    const std::string types("4\4\0\0\0", 5);
    EXPECT_THAT(values, ElementsAre(types, "2new.message.dll" + zero, types, "1x.dll" + zero, types,
                                    "1" + longFile + zero, types, "2empty.message.dll" + zero));
}

TEST(MessageFile, HasATextForEachEvent)
{
    const HMODULE file = LoadLibraryExA("QVS.message.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    const char *strings[] = {"who", "what %1"};
    for (DWORD id : {0, 1, 2, 255, 256, 257, 65534, 65535, 65536}) {
        char text[100] = "";
        FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, file, id, 0, text, sizeof text,
                       reinterpret_cast<va_list *>(const_cast<char **>(strings)));
        EXPECT_STREQ(text, id == 0 || id == 65536 ? "" : "who: <what %1>\r\n") << id;
    }
    FreeLibrary(file);
}

/// Windows 95, with a file that the registry names.
struct FileLog : Log {
    static constexpr const char *key = R"(SOFTWARE\KLT\QVS)", *value = "LogFileName";
    ImportHook version{"GetVersionExA", winapi([](OSVERSIONINFOA *v) -> BOOL { return v->dwPlatformId = 1, TRUE; }),
                       library.module()};
    static inline __time64_t second = 5'000'000'000; ///< what the clock shows: in 2128, for which 32 bits are too few
    FoundFunctions clock{{{"_time64", +[](__time64_t *) { return second; }}}, library.module()};
    const std::string path = std::string(std::getenv("TEMP")) + "\\log_test" + std::to_string(GetCurrentProcessId());

    FileLog() { set(key, value, path); }
    ~FileLog() override
    {
        _fcloseall(); // the library leaves its file open
        std::remove(path.c_str());
    }
    /// The file's lines from a column on.
    Texts lines(size_t from = 15) const
    {
        std::ifstream file(path, std::ios::binary);
        Texts found;
        for (std::string line; std::getline(file, line);)
            found.push_back(line.substr(std::min(from, line.size())));
        return found;
    }
};

TEST_F(FileLog, WritesALineToTheByte)
{
    const std::string name(40, 'n'), logged = " " + name.substr(0, 31);
    logName(name.c_str());
    // 31 of the name, 8 of the format, 3 of the party and 15 of the time: with 967 more it is 1024.
    for (size_t length : {0U, 966U, 967U, 968U, 5000U}) {
        const std::string text(length, 'x'), now = std::string(_ctime64(&++second)).substr(4, 15);
        logMessage("who", text.c_str());
        EXPECT_EQ(lines(0).back(), now + logged + ": who: <" + text + ">\r"); // flushed
    }
    std::ofstream(path, std::ios::app) << "another's line\n";
    logMessage(nullptr, "last");
    EXPECT_EQ(lines(0)[5] + lines()[6], "another's line\r" + logged + ": : <last>\r");

    const general::LogBackend &file = general::fileLogBackend; // a second one, by its own interface
    file.write(0, "%s%s", "nothing", "is open");
    file.open("n");
    file.write(0, nullptr, "a", "b");
    file.write(0, "%s|%s", "a", nullptr);
    file.write(0, "%2000s|%s", "a", "b"); // more than its parts promise
    file.close();
    const Texts all = lines();
    EXPECT_THAT(Texts(all.begin() + 7, all.end()),
                ElementsAre(" n:\r", " n: a|\r", " n: " + std::string(1999, ' ') + "a|b\r"));
}

FILE *noteOpening(const char *path, const char *mode)
{
    const int mask = _umask(0);
    _umask(mask);
    return note(std::string(path) + " " + mode + " " + std::to_string(mask)), nullptr;
}

TEST_F(FileLog, OpensWhatTheRegistryNames)
{
    logMessage("a", "1");
    const int ownMask = _S_IWRITE, previousMask = _umask(ownMask);
    {
        ImportHook hook("fopen", noteOpening, library.module());
        const std::string longest(255, 'x');
        for (const std::string &text : {std::string("d:\\x"), longest, std::string(), zero, std::string(300, 'x')}) {
            set(key, value, text);
            logName("n");
            logMessage("a", "dropped");
        }
        SHDeleteKeyA(HKEY_LOCAL_MACHINE, key);
        logName("n");
        const std::string byDefault = "c:\\tmp\\local7.info a 0";
        EXPECT_THAT(noted, ElementsAre("d:\\x a 0", longest + " a 0", byDefault, byDefault, byDefault, byDefault));
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
    logName("n");
    std::vector<std::thread> threads;
    for (char letter : {'a', 'b', 'c', 'd'})
        threads.emplace_back([=, this] {
            for (size_t i = 0; i < 300; ++i)
                logMessage("t", std::string(i % 3 == 0 ? 9000 : 30 + i % 200, letter).c_str());
        });
    for (std::thread &thread : threads)
        thread.join();
    const Texts found = lines();
    EXPECT_EQ(found.size(), 1200u);
    for (const std::string &line : found)
        EXPECT_EQ(line, " n: t: <" + std::string(std::max<size_t>(line.size(), 10) - 10, line[8]) + ">\r");
}

} // namespace
