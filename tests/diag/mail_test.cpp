#include "general/errortext.h"
#include "general/mail.h"
#include "general/queue.h"

#include "tests/diag/captured_events.h"
#include "tests/support/heap_watch.h"

#include <gmock/gmock.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <sys/stat.h>

namespace {

using namespace test_support;
using testing::ElementsAre;

/// A folder of its own for temporary files, and a stand-in in front of the mail library.
struct Mail : testing::Test {
    Mail()
    {
        SetDllDirectoryA((home + "\\standins").c_str());
        _putenv_s("TMP", folder.c_str());
        CreateDirectoryA(folder.c_str(), nullptr);
    }
    ~Mail() override
    {
        std::remove(file.c_str());
        EXPECT_TRUE(RemoveDirectoryA(folder.c_str())) << "temporary files are left";
    }
    /// What was logged while a message was composed by default or otherwise, and closed.
    std::vector<std::string> closed(int viaCommand, const std::function<void()> &compose = [] {})
    {
        QVSMailTo("a@x,b@y,c@z");
        QVSMailPrint("body %d", 1);
        compose();
        result = QVSMailClose(viaCommand);
        return CapturedEvents::take();
    }
    static auto logs(const std::string &text) { return ElementsAre("QVSMail: " + text); }
    static auto logs(const char *before, DWORD error) { return logs(std::string(before) + GetErrorText(error) + ">"); }

    const std::string program = testing::internal::GetArgvs()[0], home = program.substr(0, program.find_last_of("\\/")),
                      folder = home + "\\mail tests " + std::to_string(GetTickCount()), file = folder + ".part";
    CapturedEvents events;
    int result = -1;
};

TEST_F(Mail, WithoutABodyNothingIsSentAndNothingKept)
{
    HeapWatch watch;
    QVSMailTo("x");
    QVSMailSubject("y");
    QVSMailAttachment("z");
    EXPECT_EQ(QVSMailClose(1) + QVSMailClose(0), 2);
    EXPECT_EQ(watch.liveBlocks(), 0);
    EXPECT_EQ(QVSMailPrint(nullptr) + QVSMailAttachment(nullptr), 0);
    for (const char *none : {static_cast<const char *>(nullptr), "  "}) { // the command would take its -s for them
        EXPECT_EQ(QVSMailTo(none) + QVSMailPrint("%s", ""), 2);
        EXPECT_EQ(QVSMailClose(none != nullptr), 0);
        EXPECT_THAT(events.take(), logs("QVSMailClose: there are no recipients"));
    }
}

std::string startedLine; ///< what CreateProcessA was handed

TEST_F(Mail, CommandLineCannotBeBrokenOutOf)
{
    auto refuse = winapi([](LPCSTR, LPSTR line, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL inherit, DWORD flags,
                            LPVOID, LPCSTR, LPSTARTUPINFOA startup, LPPROCESS_INFORMATION) -> BOOL {
        EXPECT_EQ(inherit, TRUE);
        EXPECT_EQ(flags, DWORD{CREATE_NEW_CONSOLE | CREATE_DEFAULT_ERROR_MODE});
        EXPECT_EQ(startup->cb, sizeof *startup);
        EXPECT_EQ(startup->dwFlags, DWORD{STARTF_USESHOWWINDOW});
        EXPECT_EQ(startup->wShowWindow, SW_HIDE);
        return SetLastError(ERROR_FILE_NOT_FOUND), startedLine = line, FALSE;
    });
    ImportHook hook("CreateProcessA", refuse);
    const std::string any = "95% full: 3 > 2 & 'so' | (on) ^ \\ !", longText(3000, 'x');
    const struct {
        std::string to, subject, quoted;
    } cases[] = {{"a@x", any, any},
                 {"a+b@x,o'c@y", "say \"hi\"\r\n& del \t x", "say 'hi'  & del   x"},
                 {"a@x, b@y", "%PATH% 5%", " PATH  5 "},
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
    for (const char *to : {"a\n", "a\t", "\"a", "%a", "a&b", "a|b", "<a", "a>b", "^a", "(a", "a)"})
        EXPECT_THAT(closed(1, [&] { QVSMailTo(to); }),
                    logs(std::string("qvsmail cannot be given the recipients <") + to + ">"));
    EXPECT_EQ(startedLine, "");
    closed(1, [] { QVSMailSubject("s"); });
    const std::string longest(8191 - startedLine.size() + 1, 'x'); // that the interpreter takes
    for (const std::string &subject : {longest, longest + 'x'}) {
        EXPECT_THAT(closed(1, [&] { QVSMailSubject(subject.c_str()); }), testing::SizeIs(1));
        EXPECT_EQ(startedLine.size(), 8191u);
    }
}

DWORD waitResult;

TEST_F(Mail, CommandIsWaitedForFiveSeconds)
{
    auto start = winapi([](LPCSTR, LPSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID, LPCSTR,
                           LPSTARTUPINFOA, LPPROCESS_INFORMATION started) -> BOOL {
        for (HANDLE *handle : {&started->hProcess, &started->hThread})
            *handle = CreateEventA(nullptr, FALSE, FALSE, nullptr);
        return TRUE;
    });
    auto wait = winapi([](HANDLE, DWORD milliseconds) {
        EXPECT_EQ(milliseconds, 5000u);
        return SetLastError(ERROR_ACCESS_DENIED), waitResult;
    });
    ImportHook starting("CreateProcessA", start), waiting("WaitForSingleObject", wait);
    FailingImport<decltype(CloseHandle)> close("CloseHandle", FALSE, 0);
    EXPECT_THAT(closed(1), ElementsAre());
    EXPECT_EQ(result, 1);
    waitResult = WAIT_TIMEOUT;
    EXPECT_THAT(closed(1), logs("WaitForSingleObject failed with error <", WAIT_TIMEOUT));
    EXPECT_EQ(result, 0);
    waitResult = WAIT_FAILED;
    EXPECT_THAT(closed(1), logs("WaitForSingleObject failed with error <", ERROR_ACCESS_DENIED));
    EXPECT_EQ(close.calls(), 6);
}

std::vector<std::string> temporaryNames; ///< that the runtime hands out, and the last again and again
size_t namesAsked;

TEST_F(Mail, BodyTakesNoFileThatIsThere)
{
    auto handOut = +[](const char *, const char *) {
        return _strdup(temporaryNames[std::min(namesAsked++, temporaryNames.size() - 1)].c_str());
    };
    ImportHook names("_tempnam", handOut);
    std::ofstream(file) << "another's";
    const struct {
        std::vector<std::string> names;
        int result;
        size_t asked;
    } rows[] = {{{file, file, folder + "\\new"}, 1, 3}, {{file}, 0, 100}, {{folder + "\\nowhere\\new"}, 0, 1}};
    for (const auto &row : rows) {
        temporaryNames = row.names, namesAsked = 0;
        EXPECT_EQ(QVSMailPrint("x"), row.result);
        EXPECT_EQ(namesAsked, row.asked);
        QVSMailClose(0);
    }
    std::string text;
    std::getline(std::ifstream(file), text);
    EXPECT_EQ(text, "another's");
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

    std::string files, head = "0 0 1 0|0 0 0|1:one=one;1: \"two\" <2@x>= \"two\" <2@x>;1:=;1:=;", note(20255, 'x');
    for (size_t i = 1; i < 256; ++i)
        note[20000 + i - 1] = static_cast<char>(i); // every byte but zero, which would end the record's text
    std::ofstream(file, std::ios::binary) << note;
    auto compose = [&] {
        QVSMailTo("one, \"two\" <2@x>,,");
        QVSMailSubject("%s & \"more\"\n");
        EXPECT_EQ(QVSMailPrint("%s", note.c_str()) + QVSMailBody(file.c_str()), 2);
        for (int i = 0; i < 21; ++i) { // the queue grows after 20
            files += "|-1:C:\\" + std::to_string(i);
            EXPECT_EQ(QVSMailAttachment(files.c_str() + files.rfind("C:")), 1);
        }
    };
    *answer = 26;
    EXPECT_THAT(closed(0, compose), logs("MAPISendMail failed with code 26"));
    EXPECT_EQ(seen, head + files + "|%s & \"more\"\n|body 1" + note + note);
    *answer = 0;

    std::strcpy(seen, "nothing");
    int allocation = 4; // recipients, attachment, queue and its storage come first
    for (const std::string what : {"message of 4", "recipient list of 72", "files of 24"}) {
        HeapWatch watch(++allocation);
        EXPECT_THAT(closed(0, [] { QVSMailAttachment("f"); }), logs("malloc() for " + what + " bytes failed"));
        EXPECT_EQ(watch.liveBlocks(), 0);
        EXPECT_EQ(result, 0);
        EXPECT_STREQ(seen, "nothing");
    }
}

TEST_F(Mail, BodyFilesAreCopiedWholeOrReported)
{
    std::ofstream(file) << "12345";
    auto body = [&](const char *path) {
        EXPECT_EQ(QVSMailBody(path), 0);
        return events.take();
    };
    for (const std::string &path : {folder, std::string(), std::string(600, 'x')})
        EXPECT_THAT(body(path.c_str()), logs("copy_body_from_file(): can't open file " + path));
    EXPECT_THAT(body(nullptr), logs("copy_body_from_file(): can't open file (null)"));
    auto fails = [&](const char *import, auto *replacement, const std::string &text) {
        ImportHook hook(import, replacement);
        EXPECT_THAT(body(file.c_str()), logs("copy_body_from_file(): " + text));
    };
    auto shortRead = +[](void *buffer, size_t size, size_t n, FILE *f) { return fread(buffer, size, n - 1, f); };
    auto shortWrite = +[](const void *data, size_t size, size_t n, FILE *f) { return fwrite(data, size, n, f) - 1; };
    auto noStatus = +[](int, void *) { return -1; }, fourGigabytes = +[](int, void *status) {
        return static_cast<struct _stati64 *>(status)->st_size = 0xFFFFFFFF, 0;
    };
    auto noStream = +[](int, const char *) -> FILE * { return nullptr; };
    auto noFlush = +[](FILE *) { return -1; };
    fails("_fstati64", noStatus, "fstat() on file " + file + " failed");
    fails("_fstati64", fourGigabytes, "malloc() of 4294967296 bytes failed");
    fails("_fdopen", noStream, "QVSMailPrint failed");
    fails("fread", shortRead, "read/write of file " + file + " failed (4 bytes read)");
    fails("fwrite", shortWrite, "read/write of file " + file + " failed (5 bytes read)");
    auto sendingFails = [&](const char *import, auto *replacement, int viaCommand, const std::string &text) {
        ImportHook hook(import, replacement);
        EXPECT_THAT(closed(viaCommand), logs(text));
        EXPECT_EQ(result, 0);
    };
    sendingFails("_fstati64", noStatus, 0, "fstat() of message failed");
    sendingFails("_fstati64", fourGigabytes, 0, "a message of 4294967295 bytes is too long for Simple MAPI");
    sendingFails("fread", shortRead, 0, "fread() of message failed after 5 bytes");
    sendingFails("fflush", noFlush, 0, "fflush() of message failed");
    sendingFails("fflush", noFlush, 1, "fflush() of message failed");
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
