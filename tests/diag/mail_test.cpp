#include "general/errortext.h"
#include "general/mail.h"
#include "general/queue.h"

#include "tests/diag/captured_events.h"
#include "tests/support/heap_watch.h"

#include <gmock/gmock.h>

#include <cstring>
#include <fstream>
#include <functional>

namespace {

using namespace test_support;
using testing::ElementsAre;

std::string startedLine; ///< what CreateProcessA was handed

/// A folder of its own for temporary files, and stand-ins in front of what they stand for.
struct Mail : testing::Test {
    Mail()
    {
        SetDllDirectoryA((home + "\\standins").c_str());
        _putenv_s("PATH", (home + "\\standins;" + std::getenv("PATH")).c_str());
        _putenv_s("QVSMAIL_RECORD", record.c_str());
        _putenv_s("TMP", folder.c_str());
        CreateDirectoryA(folder.c_str(), nullptr);
    }
    ~Mail() override
    {
        std::remove(record.c_str());
        EXPECT_TRUE(RemoveDirectoryA(folder.c_str())) << "temporary files are left";
    }
    /// What was logged while a message was composed by default or otherwise, and closed.
    std::vector<std::string> closed(
        int viaCommand, const std::function<void()> &compose = [] {})
    {
        QVSMailTo("a@x,b@y,c@z");
        QVSMailPrint("body %d", 1);
        compose();
        result = QVSMailClose(viaCommand);
        return CapturedEvents::take();
    }
    std::string recorded() const
    {
        std::ifstream file(record, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static auto logs(const std::string &text) { return ElementsAre("QVSMail: " + text); }
    static auto logs(const char *before, DWORD error) { return logs(std::string(before) + GetErrorText(error) + ">"); }

    static std::string programFolder()
    {
        char program[MAX_PATH];
        GetModuleFileNameA(nullptr, program, sizeof program);
        return {program, std::strrchr(program, '\\')};
    }
    const std::string home = programFolder(), folder = home + "\\mail tests " + std::to_string(GetTickCount()),
                      record = folder + ".record";
    CapturedEvents events;
    int result = -1;
};

TEST_F(Mail, WithoutABodyNothingIsSentAndNothingKept)
{
    HeapWatch watch;
    QVSMailTo("x");
    QVSMailSubject("y");
    QVSMailAttachment("z");
    EXPECT_TRUE(QVSMailClose(1) == 1 && QVSMailClose(0) == 1 && recorded().empty());
    EXPECT_EQ(watch.liveBlocks(), 0);
    EXPECT_EQ(QVSMailPrint(nullptr) + QVSMailAttachment(nullptr), 0);
    EXPECT_EQ(QVSMailPrint("%s", ""), 1);
    EXPECT_EQ(QVSMailClose(0), 0) << "the recipients are gone";
    EXPECT_THAT(events.take(), logs("QVSMailClose: there are no recipients"));
}

TEST_F(Mail, CommandLineCannotBeBrokenOutOf)
{
    auto refuse = winapi([](LPCSTR, LPSTR line, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL inherit, DWORD flags,
                            LPVOID, LPCSTR, LPSTARTUPINFOA startup, LPPROCESS_INFORMATION) -> BOOL {
        startedLine = line;
        EXPECT_TRUE(inherit && flags == (CREATE_NEW_CONSOLE | CREATE_DEFAULT_ERROR_MODE));
        EXPECT_TRUE((startup->dwFlags & STARTF_USESHOWWINDOW) != 0 && startup->wShowWindow == SW_HIDE);
        return SetLastError(ERROR_FILE_NOT_FOUND), FALSE;
    });
    ImportHook hook("CreateProcessA", refuse);
    const std::string any = "95% full: 3 > 2 & 'so' | (on) ^ \\ !", longText(3000, 'x');
    const struct {
        std::string to, subject, quoted;
    } cases[] = {{"a@x", any, any},
                 {"a+b@x,o'c@y", "say \"hi\"\r\n& del \t x", "say 'hi'  & del   x"},
                 {"a@x", "%PATH% 5%", " PATH  5 "},
                 {"a@x", "C:\\tmp\\", "C:\\tmp/"},
                 {longText, longText, longText},
                 {"a,b", "", "QVSMail (no subject)"}};
    for (const auto &c : cases) {
        auto compose = [&] {
            QVSMailTo(c.to.c_str());
            QVSMailSubject(c.subject.empty() ? nullptr : c.subject.c_str());
        };
        EXPECT_THAT(closed(1, compose), logs("CreateProcess for qvsmail failed with error <", ERROR_FILE_NOT_FOUND));
        std::string expected = "cmd /c qvsmail -t " + c.to + " -s \"" + c.quoted + "\" -b \"" + folder + "\\QVS";
        EXPECT_EQ(startedLine.substr(0, expected.size()), expected);
        EXPECT_EQ(startedLine.find("\"\n", expected.size()), startedLine.size() - 2);
    }
    startedLine.clear();
    for (const char *to : {"a b", "a\n", "\"a", "%a", "a&b", "a|b", "<a", "a>b", "^a", "(a", "a)"})
        EXPECT_THAT(closed(1, [&] { QVSMailTo(to); }),
                    logs(std::string("qvsmail cannot be given the recipients <") + to + ">"));
    std::string tooLong(8192 - std::strlen("cmd /c qvsmail -t a@x,b@y,c@z -s \"\" -b \"\"\n") - folder.size(), 'x');
    EXPECT_THAT(closed(1, [&] { QVSMailSubject(tooLong.c_str()); }), testing::SizeIs(1));
    EXPECT_EQ(startedLine, "");
}

TEST_F(Mail, CommandGetsTheWholeMessage)
{
    std::string longText(20000, 'b'), everyByte(256, 0), subject(4000, 's'), file = folder + "\\part";
    for (size_t i = 0; i < 256; ++i)
        everyByte[i] = static_cast<char>(i);
    std::ofstream(file, std::ios::binary) << everyByte;
    auto compose = [&] {
        QVSMailSubject(subject.c_str());
        EXPECT_EQ(QVSMailPrint("%s", longText.c_str()) + QVSMailBody(file.c_str()), 2);
    };
    for (int attempt = 0; attempt < 5 && result != 1; ++attempt) // a busy machine may need more than 5 s
        closed(1, compose);
    EXPECT_EQ(result, 1);
    std::remove(file.c_str());
    std::string seen = recorded(), expected = "-t\na@x,b@y,c@z\n-s\n" + subject + "\n-b\n" + folder + "\\QVS";
    EXPECT_EQ(seen.substr(0, expected.size()), expected);
    EXPECT_EQ(seen.substr(seen.find('\n', expected.size()) + 1), "body 1" + longText + everyByte);
}

TEST_F(Mail, CommandThatTakesTooLongLosesTheMessage)
{
    _putenv_s("QVSMAIL_SLEEP", "6000");
    EXPECT_THAT(closed(1), logs("WaitForSingleObject failed with error <", WAIT_TIMEOUT));
    EXPECT_EQ(result, 0);
    _putenv_s("QVSMAIL_SLEEP", "1");
    FailingImport<decltype(WaitForSingleObject)> wait("WaitForSingleObject", WAIT_FAILED, 1, ERROR_ACCESS_DENIED);
    FailingImport<decltype(CloseHandle)> close("CloseHandle", FALSE, 0);
    EXPECT_THAT(closed(1), logs("WaitForSingleObject failed with error <", ERROR_ACCESS_DENIED));
    EXPECT_EQ(close.calls(), 2);
    _putenv_s("QVSMAIL_SLEEP", "");
}

TEST_F(Mail, SimpleMapi)
{
    {
        FailingImport<decltype(LoadLibraryA)> missing("LoadLibraryA", nullptr, 1);
        EXPECT_THAT(closed(0), logs("MAPI GetProcAddress failed"));
        FoundFunctions lacking({{"MAPISendMail", nullptr}});
        FailingImport<decltype(FreeLibrary)> unload("FreeLibrary", FALSE, 0);
        EXPECT_THAT(closed(0), logs("MAPI GetProcAddress failed"));
        EXPECT_EQ(unload.calls(), 1);
    }
    UINT errorMode = SetErrorMode(0);
    EXPECT_THAT(closed(0), ElementsAre());
    EXPECT_EQ(SetErrorMode(errorMode), 0u);
    HMODULE library = GetModuleHandleA("MAPI32.DLL");
    auto *seen = reinterpret_cast<char *>(reinterpret_cast<void *>(GetProcAddress(library, "mapiRecord")));
    auto *answer = reinterpret_cast<ULONG *>(reinterpret_cast<void *>(GetProcAddress(library, "mapiAnswer")));
    ASSERT_NE(seen, nullptr) << "another mail library was found first";
    EXPECT_STREQ(seen, "0 0 1 0|0 0 0|1:a@x=a@x;1:b@y=b@y;1:c@z=c@z;|QVSMail (no subject)|body 1");

    std::string files, head = "0 0 1 0|0 0 0|1:one=one;1: \"two\" <2@x>= \"two\" <2@x>;1:=;1:=;";
    auto compose = [&] {
        QVSMailTo("one, \"two\" <2@x>,,");
        QVSMailSubject("%s & \"more\"\n");
        for (int i = 0; i < 21; ++i) { // the queue grows after 20
            std::string path = "C:\\file " + std::to_string(i);
            EXPECT_EQ(QVSMailAttachment(path.c_str()), 1);
            files += "|-1:" + path;
        }
    };
    *answer = 26;
    EXPECT_THAT(closed(0, compose), logs("MAPISendMail failed with code 26"));
    EXPECT_EQ(seen, head + files + "|%s & \"more\"\n|body 1");
    *answer = 0;

    const char *const refused[] = {"message of 4", "recipient list of 72", "files of 24"};
    std::strcpy(seen, "nothing");
    for (int i = 0; i < 3; ++i) {
        constexpr int allocationsToCompose = 4; // recipients, attachment, queue and its storage
        HeapWatch watch(allocationsToCompose + i + 1);
        EXPECT_THAT(closed(0, [] { QVSMailAttachment("f"); }),
                    logs("malloc() for " + std::string(refused[i]) + " bytes failed"));
        EXPECT_TRUE(watch.liveBlocks() == 0 && result == 0 && std::string(seen) == "nothing");
    }
}

TEST_F(Mail, BodyFilesAreCopiedWholeOrReported)
{
    const std::string file = record;
    std::ofstream(file) << "12345";
    auto body = [&](const char *path) {
        EXPECT_EQ(QVSMailBody(path), 0);
        return events.take();
    };
    for (const std::string &path : {folder, std::string("no such file"), std::string(), std::string(600, 'x')})
        EXPECT_THAT(body(path.c_str()), logs("copy_body_from_file(): can't open file " + path));
    EXPECT_THAT(body(nullptr), logs("copy_body_from_file(): can't open file (null)"));
    auto fails = [&](const char *import, auto *replacement, const std::string &text) {
        ImportHook hook(import, replacement);
        EXPECT_THAT(body(file.c_str()), logs("copy_body_from_file(): " + text));
    };
    auto shortRead = +[](void *buffer, size_t size, size_t n, FILE *f) { return fread(buffer, size, n - 1, f); };
    auto shortWrite = +[](const void *, size_t, size_t count, FILE *) { return count - 1; };
    fails(
        "_fstati64", +[](int, void *) { return -1; }, "fstat() on file " + file + " failed");
    fails(
        "_fdopen", +[](int, const char *) -> FILE * { return nullptr; }, "QVSMailPrint failed");
    fails("fread", shortRead, "read/write of file " + file + " failed (4 bytes read)");
    fails("fwrite", shortWrite, "read/write of file " + file + " failed (5 bytes read)");
    fails(
        "malloc", +[](size_t) -> void * { return nullptr; }, "malloc() of 6 bytes failed");
    for (int64_t gigabytes : {3, 5}) {
        LARGE_INTEGER size;
        size.QuadPart = gigabytes << 30;
        HANDLE huge = CreateFileA(file.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        SetFilePointerEx(huge, size, nullptr, FILE_BEGIN);
        SetEndOfFile(huge);
        CloseHandle(huge);
        std::string bytes = std::to_string(size.QuadPart + 1);
        EXPECT_THAT(body(file.c_str()), logs("copy_body_from_file(): malloc() of " + bytes + " bytes failed"));
    }
    ImportHook hook(
        "fflush", +[](FILE *) { return -1; });
    EXPECT_THAT(closed(1), logs("fflush() of message failed"));
}

TEST_F(Mail, ExhaustedMemoryLosesTheMessageOnly)
{
    failEachAllocation([&](const HeapWatch &watch) {
        int succeeded = QVSMailTo("a@x") + QVSMailSubject("s") + QVSMailAttachment("f") + QVSMailPrint("x");
        succeeded += QVSMailClose(0);
        EXPECT_EQ(succeeded == 5, !watch.failed());
    });
    events.take();
    HeapWatch watch(24); // 21 copies, the queue and its storage; then it grows
    int queued = 0;
    for (int i = 0; i < 21; ++i)
        queued += QVSMailAttachment("f");
    EXPECT_EQ(queued, 20);
    EXPECT_THAT(events.take(), logs("QVSMailAttachment: QueAdd failed with code 3"));
    EXPECT_EQ(QVSMailClose(0), 1);
    EXPECT_EQ(watch.liveBlocks(), 0);
}

} // namespace
