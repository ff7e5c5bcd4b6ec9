#include <gtest/gtest.h>

#include <regex>
#include <windows.h>

namespace {

/// Runs debug_writer as its debugger, with a console of its own.
/// @return what it sends to the debugger
std::string runDebugged(const std::string &mode, HANDLE output)
{
    std::string command = testing::internal::GetArgvs()[0], sent;
    command = "\"" + command.substr(0, command.find_last_of("\\/") + 1) + "debug_writer.exe\" " + mode;
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
            sent += text.data(); // up to its zero
        }
        const bool isStart = event.u.Exception.ExceptionRecord.ExceptionCode == EXCEPTION_BREAKPOINT;
        ContinueDebugEvent(event.dwProcessId, event.dwThreadId, isStart ? DBG_CONTINUE : DBG_EXCEPTION_NOT_HANDLED);
    }
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
    return sent;
}

TEST(DebugOutput, GoesToTheDebuggerAndStandardError)
{
    const std::string first = "q: 1 and two\n", log = "Log: q: 3\n", line = "q: " + std::string(5000, 'x') + "\n",
                      assertion = "queue: QVS assertion failed: (p != 0) at line 42\n", nulls = "(null): ";
    const struct {
        std::string mode, received;
    } rows[] = {{"redirected", first + assertion + line + nulls}, {"none", ""}, {"console", first + log + assertion}};
    for (const auto &row : rows) {
        SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
        HANDLE reading = nullptr, writing = nullptr;
        CreatePipe(&reading, &writing, &inherited, 65536); // holds all of it
        EXPECT_EQ(runDebugged(row.mode, writing), first + log + assertion + line + "Log: " + line + nulls) << row.mode;
        CloseHandle(writing);
        std::string all(65536, '\0');
        DWORD length = 0;
        ReadFile(reading, all.data(), all.size(), &length, nullptr);
        all.resize(length);
        // A console fills its rows of 80 with blanks.
        EXPECT_EQ(std::regex_replace(all, std::regex(" {20,}"), "\n"), row.received) << row.mode;
        CloseHandle(reading);
    }
}

} // namespace
