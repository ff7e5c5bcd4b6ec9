// Log lines to a file, beside the C runtime's own printing and flushing.

#include "base/crt_stdio.h"

#include "bench/support/row.h"

#include "general/message_log.h"
#include "tests/support/import_hook.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <windows.h>

namespace {

using test_support::ImportHook;

std::string path(const char *name)
{
    return std::string(std::getenv("TEMP")) + "\\general_diag_bench_" + name;
}

/// Plays Windows 95, so that the log goes to a file: the version is asked for once, by the first call.
BOOL WINAPI tellWindows95(OSVERSIONINFOA *version)
{
    version->dwPlatformId = VER_PLATFORM_WIN32_WINDOWS;
    return TRUE;
}

/// Opens the log in a file of the benchmark's own, named by a registry that only this process sees.
void openLog()
{
    const std::string file = path("log");
    HKEY own = nullptr, key = nullptr;
    RegCreateKeyA(HKEY_CURRENT_USER, "Software\\general_diag_bench", &own);
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, own);
    RegCreateKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\KLT\\QVS", &key);
    RegSetValueExA(key, "LogFileName", 0, REG_SZ, reinterpret_cast<const BYTE *>(file.c_str()),
                   static_cast<DWORD>(file.size()) + 1);
    ImportHook hook("GetVersionExA", tellWindows95);
    LogName("bench");
    std::atexit([] { // the library leaves the file open
        _fcloseall();
        std::remove(path("log").c_str());
    });
    RegDeleteKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\KLT\\QVS");
    RegCloseKey(key);
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegCloseKey(own);
    RegDeleteKeyA(HKEY_CURRENT_USER, "Software\\general_diag_bench\\SOFTWARE\\KLT");
    RegDeleteKeyA(HKEY_CURRENT_USER, "Software\\general_diag_bench\\SOFTWARE");
    RegDeleteKeyA(HKEY_CURRENT_USER, "Software\\general_diag_bench");
}

void logLines(benchmark::State &state, size_t length)
{
    [[maybe_unused]] static const bool opened = (openLog(), true);
    const std::string text(length, 'x');
    for (auto _ : state)
        LogMessage("bench", text.c_str());
}

/// Prints the same line, with the present time or that of the first.
void printLines(benchmark::State &state, size_t length, bool withTime)
{
    const std::string text(length, 'x');
    FILE *file = std::fopen(path("stdio").c_str(), "a");
    std::time_t now = std::time(nullptr);
    std::string time(std::ctime(&now), 4, 15);
    for (auto _ : state) {
        if (withTime) {
            now = std::time(nullptr);
            time.assign(std::ctime(&now), 4, 15);
        }
        std::fprintf(file, "%s %s: %s: <%s>\n", time.c_str(), "bench", "bench", text.c_str());
        std::fflush(file);
    }
    std::fclose(file);
    std::remove(path("stdio").c_str());
}

const bool registered = [] {
    for (size_t length : {60U, 500U, 5000U}) {
        const std::string row = "log a line of " + std::to_string(length) + " characters to a file";
        bench::contend(row, "general", [length](benchmark::State &state) { logLines(state, length); }, 1.0);
        bench::contend(row, "fprintf, fflush", [length](benchmark::State &state) { printLines(state, length, false); });
        bench::contend(row, "time, ctime, fprintf, fflush",
                       [length](benchmark::State &state) { printLines(state, length, true); });
    }
    return true;
}();

} // namespace
