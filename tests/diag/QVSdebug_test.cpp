#include "general/debug_output.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <windows.h>

namespace {

/// Everything up to the end, with one newline for what a console fills a row of 80 with.
std::string readAll(HANDLE handle)
{
    std::string all;
    char part[4096];
    for (DWORD length = 0; ReadFile(handle, part, sizeof part, &length, nullptr) && length > 0;)
        all.append(part, length);
    return std::regex_replace(all, std::regex(" {20,}"), "\n");
}

/// Runs debug_writer as its debugger, with a console of its own.
/// @return what it sends to the debugger
std::string runDebugged(const std::string &mode, HANDLE output)
{
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, sizeof path);
    std::string command(path), sent;
    command = "\"" + command.substr(0, command.rfind('\\')) + "\\debug_writer.exe\" " + mode;
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = output;
    PROCESS_INFORMATION child{};
    if (!CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, DEBUG_ONLY_THIS_PROCESS | CREATE_NO_WINDOW,
                        nullptr, nullptr, &startup, &child))
        return "cannot start " + command;
    DEBUG_EVENT event{};
    while (event.dwDebugEventCode != EXIT_PROCESS_DEBUG_EVENT && WaitForDebugEvent(&event, 60000)) {
        if (event.dwDebugEventCode == OUTPUT_DEBUG_STRING_EVENT) {
            std::string text(event.u.DebugString.nDebugStringLength, '?');
            ReadProcessMemory(child.hProcess, event.u.DebugString.lpDebugStringData, text.data(), text.size(), nullptr);
            sent += text.c_str();
        }
        const bool isFault = event.dwDebugEventCode == EXCEPTION_DEBUG_EVENT &&
                             event.u.Exception.ExceptionRecord.ExceptionCode != EXCEPTION_BREAKPOINT;
        ContinueDebugEvent(event.dwProcessId, event.dwThreadId, isFault ? DBG_EXCEPTION_NOT_HANDLED : DBG_CONTINUE);
    }
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
    return sent;
}

TEST(DebugOutput, GoesToTheDebuggerAndStandardError)
{
    const std::string path = std::string(std::getenv("TEMP")) + "\\debug_test" + std::to_string(GetCurrentProcessId());
    const std::string first = "q: 1 and two\n", log = "Log: q: 3\n", line = "q: " + std::string(5000, 'x') + "\n",
                      assertion = "queue: QVS assertion failed: (p != 0) at line 42\n", nulls = "(null): ";
    const std::string redirected = first + assertion + line + nulls; // no "Log:" lines
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
            writing = CreateFileA(path.c_str(), GENERIC_WRITE, 7, &inherited, CREATE_ALWAYS, 0, nullptr);
            reading =
                CreateFileA(path.c_str(), GENERIC_READ, 7, nullptr, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
        } else {
            CreatePipe(&reading, &writing, &inherited, 65536); // holds all of it
        }
        EXPECT_EQ(runDebugged(c.mode, writing), first + log + assertion + line + "Log: " + line + nulls) << c.mode;
        CloseHandle(writing);
        EXPECT_EQ(readAll(reading), c.received) << c.mode << (c.toFile ? " to a file" : "");
        CloseHandle(reading);
    }
}

} // namespace
