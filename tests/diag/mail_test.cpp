#include "general/errortext.h"
#include "general/mail.h"
#include "general/queue.h"

#include "tests/diag/captured_events.h"
#include "tests/support/heap_watch.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>
#include <windows.h>

namespace {

using test_support::FailingImport;
using test_support::HeapWatch;
using test_support::ImportHook;
using testing::ElementsAre;
using testing::IsEmpty;

/// Wine prefers its own mail library to any other, unless told otherwise before the program starts.
const bool standinsPreferred = [] {
    HKEY key;
    DWORD disposition = 0;
    RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\Wine\\AppDefaults\\mail_tests.exe\\DllOverrides", 0, nullptr, 0,
                    KEY_ALL_ACCESS, nullptr, &key, &disposition);
    RegSetValueExA(key, "mapi32", 0, REG_SZ, reinterpret_cast<const BYTE *>("native"), sizeof "native");
    RegCloseKey(key);
    if (disposition == REG_CREATED_NEW_KEY) {
        STARTUPINFOA startup = {};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION again;
        DWORD status = 1;
        CreateProcessA(nullptr, GetCommandLineA(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &again);
        WaitForSingleObject(again.hProcess, INFINITE);
        GetExitCodeProcess(again.hProcess, &status);
        ExitProcess(status);
    }
    return true;
}();

std::string startedLine; ///< what CreateProcessA was handed

BOOL WINAPI refuseProcess(LPCSTR, LPSTR line, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL inherit, DWORD flags,
                          LPVOID, LPCSTR, LPSTARTUPINFOA startup, LPPROCESS_INFORMATION)
{
    startedLine = line;
    EXPECT_TRUE(inherit && flags == (CREATE_NEW_CONSOLE | CREATE_DEFAULT_ERROR_MODE));
    EXPECT_TRUE((startup->dwFlags & STARTF_USESHOWWINDOW) != 0 && startup->wShowWindow == SW_HIDE);
    SetLastError(ERROR_FILE_NOT_FOUND);
    return FALSE;
}

class Mail : public testing::Test {
protected:
    /// A folder of its own for temporary files, and stand-ins in front of what they stand for.
    void SetUp() override
    {
        char system[MAX_PATH];
        GetTempPathA(sizeof system, system);
        outside_ = system;
        folder_ = outside_ + "mail tests " + std::to_string(GetCurrentProcessId());
        record_ = folder_ + ".record";
        CreateDirectoryA(folder_.c_str(), nullptr);
        _putenv_s("TMP", folder_.c_str());
        _putenv_s("QVSMAIL_RECORD", record_.c_str());
        char program[MAX_PATH];
        GetModuleFileNameA(nullptr, program, sizeof program);
        std::string standins = program;
        standins.replace(standins.rfind('\\') + 1, std::string::npos, "standins");
        if (std::string(std::getenv("PATH")).find(standins) == std::string::npos)
            _putenv_s("PATH", (standins + ";" + std::getenv("PATH")).c_str());
        SetDllDirectoryA(standins.c_str());
    }
    /// Nothing of the last message is left.
    void TearDown() override
    {
        EXPECT_TRUE(RemoveDirectoryA(folder_.c_str())) << "temporary files are left";
        EXPECT_EQ(QVSMailClose(1), 1);
        _putenv_s("TMP", outside_.c_str());
        std::remove(record_.c_str());
    }

    /// What was logged while a message was composed by default or otherwise, and closed.
    std::vector<std::string> closed(
        int viaCommand, const std::function<void()> &compose = [] {})
    {
        events_.take();
        QVSMailTo("a@x,b@y,c@z");
        QVSMailPrint("body %d", 1);
        compose();
        result_ = QVSMailClose(viaCommand);
        return events_.take();
    }
    std::string recorded() const
    {
        std::ostringstream text;
        text << std::ifstream(record_, std::ios::binary).rdbuf();
        return text.str();
    }
    static std::string logged(std::string text) { return "QVSMail: " + text; }
    static std::string logged(const char *before, DWORD error) { return logged(before) + GetErrorText(error) + ">"; }

    std::string outside_, folder_, record_;
    CapturedEvents events_;
    int result_ = -1;
};

TEST_F(Mail, WithoutABodyNothingIsSentAndNothingKept)
{
    ImportHook hook("CreateProcessA", refuseProcess);
    HeapWatch watch;
    QVSMailTo("x");
    QVSMailSubject("y");
    QVSMailAttachment("z");
    startedLine.clear();
    EXPECT_EQ(QVSMailClose(1) + QVSMailClose(0), 2);
    EXPECT_EQ(startedLine, "");
    EXPECT_EQ(watch.liveBlocks(), 0);
    EXPECT_THAT(events_.take(), IsEmpty());
    EXPECT_EQ(QVSMailPrint("%s", ""), 1);
    EXPECT_EQ(QVSMailClose(0), 0) << "the recipients are gone";
    EXPECT_THAT(events_.take(), ElementsAre(logged("QVSMailClose: there are no recipients")));
    EXPECT_EQ(QVSMailPrint(nullptr) + QVSMailAttachment(nullptr), 0);
}

TEST_F(Mail, CommandLineCannotBeBrokenOutOf)
{
    ImportHook hook("CreateProcessA", refuseProcess);
    const std::string longText(3000, 'x');
    const struct {
        std::string to, subject, quoted;
    } cases[] = {
        {"a@x", "95% full: 3 > 2 & 'so' | (on) ^ \\ !", "95% full: 3 > 2 & 'so' | (on) ^ \\ !"},
        {"a+b@x,o'c@y", "say \"hi\"\r\n& del \t x", "say 'hi'  & del   x"},
        {"a@x", "%PATH% 5%", " PATH  5 "},
        {"a@x", "C:\\tmp\\", "C:\\tmp/"},
        {longText, longText, longText},
    };
    for (const auto &c : cases) {
        EXPECT_THAT(closed(1, [&] { QVSMailTo(c.to.c_str()), QVSMailSubject(c.subject.c_str()); }),
                    ElementsAre(logged("CreateProcess for qvsmail failed with error <", ERROR_FILE_NOT_FOUND)));
        std::string expected = "cmd /c qvsmail -t " + c.to + " -s \"" + c.quoted + "\" -b \"" + folder_ + "\\QVS";
        EXPECT_EQ(startedLine.substr(0, expected.size()), expected);
        EXPECT_EQ(startedLine.find('"', expected.size()), startedLine.size() - 2);
        EXPECT_EQ(startedLine.back(), '\n');
    }
    EXPECT_THAT(closed(1), testing::SizeIs(1));
    EXPECT_NE(startedLine.find(" -t a@x,b@y,c@z -s \"QVSMail (no subject)\" -b "), std::string::npos);

    startedLine.clear();
    for (const char *to : {"a b", "a\n", "\"a", "%a", "a&b", "a|b", "<a", "a>b", "^a", "(a", "a)", "a\x7F\t"})
        EXPECT_THAT(closed(1, [&] { QVSMailTo(to); }),
                    ElementsAre(logged("qvsmail cannot be given the recipients <" + std::string(to) + ">")));
    EXPECT_THAT(closed(1, [&] { QVSMailSubject(std::string(8192, 'x').c_str()); }),
                ElementsAre(testing::ContainsRegex("a command line of 8... characters is too long for qvsmail")));
    EXPECT_EQ(startedLine, "");
}

TEST_F(Mail, CommandGetsTheWholeMessage)
{
    std::string longText(20000, 'b'), everyByte(256, 0), subject(4000, 's');
    for (size_t i = 0; i < 256; ++i)
        everyByte[i] = static_cast<char>(i);
    std::string file = folder_ + "\\part";
    std::ofstream(file, std::ios::binary) << everyByte;
    EXPECT_THAT(closed(1,
                       [&] {
                           QVSMailSubject(subject.c_str());
                           EXPECT_EQ(QVSMailPrint("%s", longText.c_str()) + QVSMailBody(file.c_str()), 2);
                       }),
                IsEmpty());
    std::remove(file.c_str());
    EXPECT_EQ(result_, 1);
    std::string seen = recorded(), expected = "-t\na@x,b@y,c@z\n-s\n" + subject + "\n-b\n" + folder_ + "\\QVS";
    EXPECT_EQ(seen.substr(0, expected.size()), expected);
    EXPECT_EQ(seen.substr(seen.find('\n', expected.size()) + 1), "body 1" + longText + everyByte);
}

TEST_F(Mail, CommandThatTakesTooLongLosesTheMessage)
{
    _putenv_s("QVSMAIL_SLEEP", "7000");
    EXPECT_THAT(closed(1), ElementsAre(logged("WaitForSingleObject failed with error <", WAIT_TIMEOUT)));
    EXPECT_EQ(result_, 0);
    EXPECT_EQ(recorded(), "");
    _putenv_s("QVSMAIL_SLEEP", "1");
    FailingImport<DWORD WINAPI(HANDLE, DWORD)> wait("WaitForSingleObject", WAIT_FAILED, 1, ERROR_ACCESS_DENIED);
    FailingImport<BOOL WINAPI(HANDLE)> close("CloseHandle", FALSE, 0);
    EXPECT_THAT(closed(1), ElementsAre(logged("WaitForSingleObject failed with error <", ERROR_ACCESS_DENIED)));
    EXPECT_EQ(close.calls(), 2);
    _putenv_s("QVSMAIL_SLEEP", "");
}

TEST_F(Mail, SimpleMapi)
{
    {
        FailingImport<HMODULE WINAPI(LPCSTR)> missing("LoadLibraryA", nullptr, 1);
        EXPECT_THAT(closed(0), ElementsAre(logged("MAPI GetProcAddress failed")));
    }
    {
        FailingImport<FARPROC WINAPI(HMODULE, LPCSTR)> missing("GetProcAddress", nullptr, 1);
        FailingImport<BOOL WINAPI(HMODULE)> unload("FreeLibrary", FALSE, 0);
        EXPECT_THAT(closed(0), ElementsAre(logged("MAPI GetProcAddress failed")));
        EXPECT_EQ(unload.calls(), 1);
    }
    UINT errorMode = SetErrorMode(0);
    EXPECT_THAT(closed(0), IsEmpty());
    EXPECT_EQ(SetErrorMode(errorMode), 0u);
    HMODULE library = GetModuleHandleA("MAPI32.DLL");
    auto *record = reinterpret_cast<char *>(reinterpret_cast<void *>(GetProcAddress(library, "mapiRecord")));
    auto *answer = reinterpret_cast<ULONG *>(reinterpret_cast<void *>(GetProcAddress(library, "mapiAnswer")));
    ASSERT_NE(record, nullptr) << "another mail library was found first";
    EXPECT_STREQ(record, "0 0 1 0|0 0 0|1:a@x=a@x;1:b@y=b@y;1:c@z=c@z;|QVSMail (no subject)|body 1");

    *answer = 26;
    std::string files;
    EXPECT_THAT(closed(0,
                       [&] {
                           QVSMailTo("one, \"two\" <2@x>,,");
                           QVSMailSubject("%s & \"more\"\n");
                           for (int i = 0; i < 21; ++i) { // the queue grows after 20
                               std::string path = "C:\\file " + std::to_string(i);
                               EXPECT_EQ(QVSMailAttachment(path.c_str()), 1);
                               files += "|-1:" + path;
                           }
                       }),
                ElementsAre(logged("MAPISendMail failed with code 26")));
    *answer = 0;
    EXPECT_EQ(std::string("0 0 1 0|0 0 0|1:one=one;1: \"two\" <2@x>= \"two\" <2@x>;1:=;1:=;") + files +
                  "|%s & \"more\"\n|body 1",
              record);

    // The note, the recipients, the files: each refused in its turn.
    const char *const messages[] = {"malloc() for message of 4 bytes failed",
                                    "malloc() for recipient list of 72 bytes failed",
                                    "malloc() for files of 24 bytes failed"};
    std::strcpy(record, "nothing");
    for (int i = 0; i < 3; ++i) {
        constexpr int allocationsToCompose = 4; // recipients, attachment, queue and its storage
        HeapWatch watch(allocationsToCompose + i + 1);
        EXPECT_THAT(closed(0, [] { QVSMailAttachment("f"); }), ElementsAre(logged(messages[i])));
        EXPECT_EQ(watch.liveBlocks() + result_, 0);
        EXPECT_STREQ(record, "nothing");
    }
}

size_t shortRead(void *buffer, size_t size, size_t count, FILE *file)
{
    return fread(buffer, size, count - 1, file);
}

size_t shortWrite(const void *, size_t, size_t count, FILE *)
{
    return count - 1;
}

FILE *refuseStream(int, const char *)
{
    return nullptr;
}

int refuseStatus(int, void *)
{
    return -1;
}

int refuseFlush(FILE *)
{
    return EOF;
}

TEST_F(Mail, BodyFilesAreCopiedWholeOrReported)
{
    std::string file = outside_ + "mail tests body", prefix = "copy_body_from_file(): ";
    std::ofstream(file) << "12345";
    auto body = [&](const std::string &path) {
        EXPECT_EQ(QVSMailBody(path.c_str()), 0);
        return events_.take();
    };
    for (const std::string &path : {folder_, std::string("no such file"), std::string(), std::string(600, 'x')})
        EXPECT_THAT(body(path), ElementsAre(logged(prefix + "can't open file " + path)));
    EXPECT_EQ(QVSMailBody(nullptr), 0);
    EXPECT_THAT(events_.take(), ElementsAre(logged(prefix + "can't open file (null)")));
    {
        ImportHook hook("_fstati64", refuseStatus);
        EXPECT_THAT(body(file), ElementsAre(logged(prefix + "fstat() on file " + file + " failed")));
    }
    {
        HeapWatch watch(1);
        EXPECT_THAT(body(file), ElementsAre(logged(prefix + "malloc() of 6 bytes failed")));
    }
    {
        ImportHook hook("_fdopen", refuseStream);
        EXPECT_THAT(body(file), ElementsAre(logged(prefix + "QVSMailPrint failed")));
        EXPECT_EQ(QVSMailPrint("x"), 0);
    }
    {
        ImportHook hook("fread", shortRead);
        EXPECT_THAT(body(file), ElementsAre(logged(prefix + "read/write of file " + file + " failed (4 bytes read)")));
    }
    {
        ImportHook hook("fwrite", shortWrite);
        EXPECT_THAT(body(file), ElementsAre(logged(prefix + "read/write of file " + file + " failed (5 bytes read)")));
    }
    for (int64_t gigabytes : {3, 5}) {
        LARGE_INTEGER size;
        size.QuadPart = gigabytes << 30;
        HANDLE huge = CreateFileA(file.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        SetFilePointerEx(huge, size, nullptr, FILE_BEGIN);
        SetEndOfFile(huge);
        CloseHandle(huge);
        std::string bytes = std::to_string(size.QuadPart + 1);
        EXPECT_THAT(body(file), ElementsAre(logged(prefix + "malloc() of " + bytes + " bytes failed")));
    }
    ImportHook hook("fflush", refuseFlush);
    EXPECT_THAT(closed(1), ElementsAre(logged("fflush() of message failed")));
    std::remove(file.c_str());
}

TEST_F(Mail, ExhaustedMemoryLosesTheMessageOnly)
{
    int failures = test_support::failEachAllocation([&](const HeapWatch &watch) {
        int succeeded = QVSMailTo("a@x") + QVSMailSubject("s") + QVSMailAttachment("f") + QVSMailPrint("x");
        succeeded += QVSMailClose(0);
        EXPECT_EQ(succeeded == 5, !watch.failed());
    });
    EXPECT_GT(failures, 4);
    HeapWatch watch(24); // 21 copies, the queue and its storage; then it grows
    int queued = 0;
    for (int i = 0; i < 21; ++i)
        queued += QVSMailAttachment("f");
    EXPECT_EQ(queued, 20);
    EXPECT_THAT(events_.take(), testing::Contains(logged("QVSMailAttachment: QueAdd failed with code 3")));
    EXPECT_EQ(QVSMailClose(0), 1);
    EXPECT_EQ(watch.liveBlocks(), 0);
}

} // namespace
