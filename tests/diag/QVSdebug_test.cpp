#include "general/debug_output.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <windows.h>

namespace {

std::string readMemory(HANDLE process, const OUTPUT_DEBUG_STRING_INFO &text)
{
    std::string bytes(text.nDebugStringLength, '?');
    ReadProcessMemory(process, text.lpDebugStringData, bytes.data(), bytes.size(), nullptr);
    bytes.pop_back(); // the terminating zero
    return bytes;
}

/// Everything up to the end, without carriage returns and the spaces that a console fills its rows with.
std::string readAll(HANDLE handle)
{
    std::string all;
    char part[4096];
    for (DWORD length = 0; ReadFile(handle, part, sizeof part, &length, nullptr) && length > 0;)
        all.append(part, length);
    return std::regex_replace(all, std::regex(" *\r\n"), "\n");
}

/// Runs debug_writer as its debugger, with a console of its own.
/// @return what it sends to the debugger
std::string runDebugged(const std::string &mode, HANDLE output, HANDLE error)
{
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, sizeof path);
    std::string command(path);
    command = "\"" + command.substr(0, command.rfind('\\')) + "\\debug_writer.exe\" " + mode;
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output;
    startup.hStdError = error;
    PROCESS_INFORMATION child{};
    if (!CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, DEBUG_ONLY_THIS_PROCESS | CREATE_NO_WINDOW,
                        nullptr, nullptr, &startup, &child))
        return "cannot start " + command;
    std::string sent;
    DEBUG_EVENT event{};
    while (event.dwDebugEventCode != EXIT_PROCESS_DEBUG_EVENT && WaitForDebugEvent(&event, 60000)) {
        bool isFault = event.dwDebugEventCode == EXCEPTION_DEBUG_EVENT &&
                       event.u.Exception.ExceptionRecord.ExceptionCode != EXCEPTION_BREAKPOINT;
        if (event.dwDebugEventCode == OUTPUT_DEBUG_STRING_EVENT)
            sent += readMemory(child.hProcess, event.u.DebugString);
        ContinueDebugEvent(event.dwProcessId, event.dwThreadId, isFault ? DBG_EXCEPTION_NOT_HANDLED : DBG_CONTINUE);
    }
    TerminateProcess(child.hProcess, 1);
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
    return sent;
}

const std::string text(5000, 'x');
const std::string first = "q: 1 and two\n", log = "Log: q: 3\n",
                  assertion = "queue: QVS assertion failed: (p != 0) at line 42\n", longLine = "q: " + text + "\n",
                  nulls = "(null): ";

TEST(DebugOutput, GoesToTheDebuggerAndStandardError)
{
    const std::string path = std::string(std::getenv("TEMP")) + "\\debug_test" + std::to_string(GetCurrentProcessId());
    const std::string redirected = first + assertion + longLine + nulls; // no "Log:" lines
    struct {
        const char *mode;
        bool toFile;
        std::string received;
    } const cases[] = {{"redirected", true, redirected},
                       {"redirected", false, redirected},
                       {"none", false, ""},
                       {"console", false, first + log + assertion}};
    for (const auto &c : cases) {
        SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
        HANDLE reading = nullptr, writing = nullptr;
        if (c.toFile) {
            writing = CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, CREATE_ALWAYS, 0, nullptr);
            reading = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
        } else {
            CreatePipe(&reading, &writing, &inherited, 65536); // holds all of it
        }
        EXPECT_EQ(runDebugged(c.mode, writing, writing),
                  first + log + assertion + longLine + "Log: " + longLine + nulls);
        CloseHandle(writing);
        EXPECT_EQ(readAll(reading), c.received) << c.mode << (c.toFile ? " to a file" : "");
        CloseHandle(reading);
    }
    std::remove(path.c_str());
}

} // namespace
