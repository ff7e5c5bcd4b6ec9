#include "base/crt_stdio.h"

#include "base/module_id.h"
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
constexpr size_t longestShortLine = 128;

/// Reads the file's path from the registry.
/// @param path  registryTextSize bytes and one for a terminating zero
bool readPath(char *path)
{
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, R"(SOFTWARE\KLT\QVS)", 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS)
        return false;
    DWORD size = registryTextSize;
    LSTATUS status = RegQueryValueExA(key, "LogFileName", nullptr, nullptr, reinterpret_cast<BYTE *>(path), &size);
    RegCloseKey(key);
    if (status != ERROR_SUCCESS || size < leastTextSize)
        return false;
    path[size] = '\0';
    return true;
}

void open(const char *name)
{
    strncpy(logName, name, nameSize - 1);
    logName[nameSize - 1] = '\0';
    char path[registryTextSize + 1];
    if (!readPath(path))
        strcpy(path, defaultPath);
    int mask = _umask(0); // any user may write to the log
    logFile = fopen(path, "a");
    _umask(mask);
    if (logFile != nullptr)
        InitializeCriticalSection(&lineLock);
}

void close()
{
    if (logFile == nullptr)
        return;
    fclose(logFile);
    logFile = nullptr;
    DeleteCriticalSection(&lineLock);
}

/// The time of a line, for the holder of the lock. The clock is read again only when the system's
/// tick count has moved, for the two move together, and reading costs as much as writing a short line.
const char *timeText()
{
    static char text[timeLength + 1];
    static DWORD askedAt;
    DWORD tick = GetTickCount();
    if (text[0] == '\0' || tick != askedAt) {
        askedAt = tick;
        time_t now = time(nullptr);
        const char *standard = ctime(&now);
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
