#include "base/crt_stdio.h"

#include "base/library_function.h"
#include "base/module_id.h"
#include "base/once.h"
#include "base/registry_text.h"
#include "diag/log_backend.h"

#include <fcntl.h>
#include <io.h>
#include <string.h>
#include <time.h>
#include <windows.h>

GENERAL_MODULE_ID("$Id$");

namespace general {

namespace {

constexpr size_t nameSize = 32;
char logName[nameSize];
FILE *logFile;
CRITICAL_SECTION lineLock; ///< lives as long as the stream; held for a whole line

constexpr const char *defaultPath = R"(c:\tmp\local7.info)";

/// Month, day and time, as in "Jan  1 12:30:00": a part of the runtime's standard time text.
constexpr size_t timeStart = 4;
constexpr size_t timeLength = 15;

/// Lines whose parts are no longer than this together are written in one piece.
constexpr size_t longestShortLine = 1024;

/// Reads the file's path from the registry.
bool readPath(RegistryText &path)
{
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, R"(SOFTWARE\KLT\QVS)", 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS)
        return false;
    DWORD size = 0;
    LSTATUS status = readRegistryText(key, "LogFileName", path, size);
    RegCloseKey(key);
    return status == ERROR_SUCCESS && size >= leastTextSize;
}

void open(const char *name)
{
    strncpy(logName, name, nameSize - 1);
    logName[nameSize - 1] = '\0';
    RegistryText path;
    if (!readPath(path))
        strcpy(path, defaultPath);
    int mask = _umask(0); // any user may write to the log
    FILE *stream = fopen(path, "a");
    _umask(mask);
    if (stream != nullptr)
        InitializeCriticalSection(&lineLock);
    logFile = stream;
}

void close()
{
    if (logFile == nullptr)
        return;
    fclose(logFile);
    logFile = nullptr;
    DeleteCriticalSection(&lineLock);
}

/// The runtime's time in 64 bits. Older runtimes have it in 32 bits only, which end in 2038.
struct WideTime {
    decltype(&_time64) now; ///< null where there is none
    decltype(&_ctime64) text;
};

WideTime findWideTime()
{
    WideTime wide;
    HMODULE runtime = GetModuleHandleA("msvcrt.dll");
    if (!findFunction(runtime, "_time64", wide.now) || !findFunction(runtime, "_ctime64", wide.text))
        wide.now = nullptr;
    return wide;
}

/// The runtime's standard text for a time; null for one that it does not take.
const char *standardText(const WideTime &wide, int64_t time)
{
    if (wide.now != nullptr)
        return wide.text(&time);
    auto narrow = static_cast<time_t>(time);
    return ctime(&narrow);
}

/// The time of a line, for the holder of the lock. Its text is kept for as long as the second lasts:
/// making it costs as much as writing a short line.
const char *timeText()
{
    static Once<WideTime> wideTime;
    static char text[timeLength + 1];
    static int64_t textTime;
    const WideTime wide = wideTime.get(findWideTime);
    int64_t now = wide.now != nullptr ? wide.now(nullptr) : time(nullptr);
    if (text[0] == '\0' || now != textTime) {
        textTime = now;
        const char *standard = standardText(wide, now);
        memcpy(text, standard == nullptr ? "--- -- --:--:--" : standard + timeStart, timeLength);
    }
    return text;
}

/// Writes a line in one piece.
/// @return false, with nothing written, if it is too long for that
bool writeShortLine(FILE *stream, const char *format, const char *now, const char *first, const char *second)
{
    if (strlen(logName) + strlen(format) + strlen(first) + strlen(second) + timeLength > longestShortLine)
        return false;
    constexpr size_t punctuation = sizeof " : \n";
    char line[longestShortLine + punctuation];
    int prefix = sprintf(line, "%s %s: ", now, logName);
    size_t left = sizeof line - 1 - static_cast<size_t>(prefix);
    int message = _snprintf(line + prefix, left, format, first, second);
    if (message < 0 || static_cast<size_t>(message) > left)
        return false;
    size_t length = static_cast<size_t>(prefix + message);
    line[length] = '\n';
    fwrite(line, 1, length + 1, stream);
    return true;
}

/// Appends a line. A stream that was opened for appending seeks to the end of the file, which others may
/// have moved, before each write: a second seek here would cost a third of a short line's time.
void writeLine(FILE *stream, const char *format, const char *first, const char *second)
{
    const char *now = timeText();
    if (format == nullptr) {
        fprintf(stream, "%s %s:\n", now, logName);
    } else if (!writeShortLine(stream, format, now, first, second)) {
        fprintf(stream, "%s %s: ", now, logName);
        fprintf(stream, format, first, second);
        fputc('\n', stream);
    }
    fflush(stream);
}

// The runtime's own lock on a stream is not exported by old runtimes.
void write(uint16_t, const char *format, const char *first, const char *second)
{
    FILE *stream = logFile;
    if (stream == nullptr)
        return;
    EnterCriticalSection(&lineLock);
    writeLine(stream, format, first, second == nullptr ? "" : second);
    LeaveCriticalSection(&lineLock);
}

} // namespace

const LogBackend fileLogBackend = {open, close, write};

} // namespace general
