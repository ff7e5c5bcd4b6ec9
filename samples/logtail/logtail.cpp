// Writes lines to the message log, and shows and follows the log file in the manner of tail.

#include "general.h"
#include "log_time.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <deque>
#include <optional>
#include <string>

namespace {

constexpr const char *usage =
    "Usage: logtail -a [-n NAME] [-w WHO]\n"
    "       logtail [-f] [-c COUNT | --since TIME] [-t SECONDS] [FILE]\n"
    "Writes each line of the standard input to the message log, or shows the end of a log file.\n"
    "\n"
    "  -a            write to the log, and say at the end where the lines went\n"
    "  -n NAME       under this log name (default: QVS)\n"
    "  -w WHO        reported by WHO (default: logtail)\n"
    "\n"
    "  -c COUNT      show the last COUNT lines (default: 10)\n"
    "  --since TIME  show the lines written since then: \"90s\", \"10m\", \"2h\" or \"3d\" ago, \"16:10\"\n"
    "                or \"16:10:05\" today, \"2026-11-21\" or \"2026-11-21 16:10\"\n"
    "  -f            then show lines as they are written. Waits for a file that is not there yet,\n"
    "                and goes over to a new one when the file is renamed and made anew\n"
    "  -t SECONDS    stop following after so long\n"
    "  FILE          default: the log file that the registry names, else c:\\tmp\\local7.info\n"
    "  -h, --help\n"
    "\n"
    "Windows NT and later keep messages in the event log, not in a file: look at them with the\n"
    "event viewer. Exit status: 0, 1 if the file cannot be read, 2 for a wrong command line.\n";

enum ExitStatus { Success = 0, Unreadable = 1, WrongUse = 2 };

struct Options {
    bool append = false;
    bool follow = false;
    const char *name = "QVS";
    const char *who = "logtail";
    size_t count = 10;
    unsigned long seconds = 0; // 0: without end
    std::optional<time_t> since;
    std::string file;
};

[[noreturn]] void refuse(const std::string &why)
{
    eprintf("logtail: %s; see logtail --help\n", why.c_str());
    exit(WrongUse);
}

/// The file that the log is written to on the Windows 95 family.
std::string logFile()
{
    char path[257]; // 255 characters, a zero and one more: the registry need not have put the first there
    DWORD size = sizeof path - 1;
    HKEY key = nullptr;
    bool found =
        RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\KLT\\QVS", 0, KEY_QUERY_VALUE, &key) == ERROR_SUCCESS &&
        RegQueryValueExA(key, "LogFileName", nullptr, nullptr, reinterpret_cast<BYTE *>(path), &size) == ERROR_SUCCESS;
    if (key != nullptr)
        RegCloseKey(key);
    if (!found || size < 2)
        return "c:\\tmp\\local7.info";
    path[size] = '\0';
    return path;
}

/// Reads a line without its end.
bool readLine(FILE *stream, std::string &line)
{
    line.clear();
    int character = getc(stream);
    if (character == EOF)
        return false;
    for (; character != EOF && character != '\n'; character = getc(stream))
        line += static_cast<char>(character);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return true;
}

ExitStatus append(const Options &options)
{
    LogName(options.name);
    unsigned long count = 0;
    for (std::string line; readLine(stdin, line); ++count)
        LogMessage(options.who, line.c_str());
    const char *lines = count == 1 ? "line" : "lines";
    if (iswin95() == 0) {
        eprintf("logtail: %lu %s to the event log, source %s\n", count, lines, options.name);
        return Success;
    }
    const std::string file = logFile();
    constexpr int forWriting = 2;
    if (_access(file.c_str(), forWriting) != 0) {
        eprintf("logtail: %s cannot be written: %lu %s dropped\n", file.c_str(), count, lines);
        return Unreadable;
    }
    eprintf("logtail: %lu %s to %s\n", count, lines, file.c_str());
    return Success;
}

/// A file that others write to, may replace, and may not have made yet.
class Source {
public:
    explicit Source(std::string path) : path_(std::move(path)) {}
    ~Source() { close(); }
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;

    bool open()
    {
        take(openPath());
        return file_ != INVALID_HANDLE_VALUE;
    }

    /// Goes over to the file that has the path now, if that is another one.
    /// @return what has come to the old one since the last read, and what the new one holds
    std::string readReplacement()
    {
        HANDLE latest = openPath();
        if (latest == INVALID_HANDLE_VALUE)
            return "";
        if (isSameFile(latest, file_)) {
            CloseHandle(latest);
            return "";
        }
        std::string rest = read();
        take(latest);
        return rest + read();
    }

    /// Takes what was written since the last call; from the start if the file has become shorter.
    std::string read()
    {
        if (GetFileSize(file_, nullptr) < position_) {
            position_ = 0;
            SetFilePointer(file_, 0, nullptr, FILE_BEGIN);
        }
        std::string all;
        char part[4096];
        for (DWORD length = 0; ReadFile(file_, part, sizeof part, &length, nullptr) && length > 0; position_ += length)
            all.append(part, length);
        return all;
    }

private:
    HANDLE openPath() const
    {
        // Windows 95, 98 and ME know nothing of sharing for deletion, and rename no file that is open.
        DWORD sharing = FILE_SHARE_READ | FILE_SHARE_WRITE | (iswin95() != 0 ? 0 : FILE_SHARE_DELETE);
        return CreateFileA(path_.c_str(), GENERIC_READ, sharing, nullptr, OPEN_EXISTING, 0, nullptr);
    }

    static bool isSameFile(HANDLE left, HANDLE right)
    {
        BY_HANDLE_FILE_INFORMATION a, b;
        return !GetFileInformationByHandle(left, &a) || !GetFileInformationByHandle(right, &b) ||
               (a.dwVolumeSerialNumber == b.dwVolumeSerialNumber && a.nFileIndexHigh == b.nFileIndexHigh &&
                a.nFileIndexLow == b.nFileIndexLow);
    }

    void take(HANDLE file)
    {
        close();
        file_ = file;
        position_ = 0;
    }

    void close()
    {
        if (file_ != INVALID_HANDLE_VALUE)
            CloseHandle(file_);
        file_ = INVALID_HANDLE_VALUE;
    }

    std::string path_;
    HANDLE file_ = INVALID_HANDLE_VALUE;
    DWORD position_ = 0;
};

/// The part of a log that is asked for first: from the first line since a time, or the last lines.
std::string lastPart(const std::string &log, const Options &options)
{
    const time_t now = time(nullptr);
    std::deque<size_t> starts;
    for (size_t start = 0, end = 0; start < log.size(); start = end) {
        end = log.find('\n', start);
        end = end == std::string::npos ? log.size() : end + 1;
        if (options.since) {
            std::optional<time_t> written = timeOfLine(log.substr(start, end - start), now);
            if (written && *written >= *options.since)
                return log.substr(start);
            continue;
        }
        starts.push_back(start);
        if (starts.size() > options.count)
            starts.pop_front();
    }
    return starts.empty() ? "" : log.substr(starts.front());
}

void print(const std::string &text)
{
    fwrite(text.data(), 1, text.size(), stdout);
    fflush(stdout);
}

ExitStatus show(const Options &options)
{
    constexpr DWORD pollPeriod = 100; // milliseconds
    ChronoRec watch;
    ChronoInit(&watch);
    auto timeIsUp = [&] {
        return options.seconds > 0 && ChronoTime(&watch, 0) >= static_cast<double>(options.seconds);
    };

    Source source(options.file);
    bool isOpen = source.open();
    if (!isOpen && (GetLastError() == ERROR_ACCESS_DENIED || !options.follow)) {
        eprintf("logtail: cannot read %s (error %lu)%s\n", options.file.c_str(), GetLastError(),
                iswin95() == 0 ? "; this system's messages are in the event log" : "");
        return Unreadable;
    }
    if (isOpen) {
        print(lastPart(source.read(), options));
    } else {
        eprintf("logtail: waiting for %s\n", options.file.c_str());
        fflush(stderr); // some runtimes hold it back when it is no terminal
    }
    while (options.follow && !timeIsUp()) {
        Sleep(pollPeriod);
        isOpen = isOpen || source.open();
        if (!isOpen)
            continue;
        print(source.read());
        print(source.readReplacement());
    }
    return isOpen ? Success : Unreadable;
}

unsigned long number(char option, const char *text)
{
    constexpr size_t mostDigits = 9;
    if (!isnatural(text) || strlen(text) > mostDigits)
        refuse(std::string("-") + option + " takes a number");
    return strtoul(text, nullptr, 10);
}

void takeSince(Options &options, const char *text)
{
    options.since = text == nullptr ? std::nullopt : parseSince(text, time(nullptr));
    if (!options.since)
        refuse("--since takes a time, such as 10m, 16:10 or \"2026-11-21 16:10\"");
}

/// Takes one that begins with two minuses. The library's parser goes past it and leaves it to us.
void takeLongOption(Options &options, int argc, char **argv)
{
    const std::string option = argv[optind - 1];
    if (option == "--help") {
        fputs(usage, stdout);
        exit(Success);
    }
    if (option == "--since")
        takeSince(options, optind < argc ? argv[optind++] : nullptr);
    else if (option.rfind("--since=", 0) == 0)
        takeSince(options, option.c_str() + strlen("--since="));
    else
        refuse("unknown option " + option);
}

/// Takes the next option.
/// @return false at the operands
bool takeOption(Options &options, int argc, char **argv)
{
    const int before = optind;
    switch (getopt(argc, argv, "ac:fhn:t:w:")) {
    case 'a':
        options.append = true;
        return true;
    case 'c':
        options.count = number('c', optarg);
        return true;
    case 'f':
        options.follow = true;
        return true;
    case 'n':
        options.name = optarg;
        return true;
    case 't':
        options.seconds = number('t', optarg);
        return true;
    case 'w':
        options.who = optarg;
        return true;
    case 'h':
        fputs(usage, stdout);
        exit(Success);
    case -1:
        if (optind == before || strcmp(argv[before], "--") == 0)
            return false;
        takeLongOption(options, argc, argv);
        return true;
    default:
        eprintf("See logtail --help.\n");
        exit(WrongUse);
    }
}

Options readOptions(int argc, char **argv)
{
    Options options;
    while (takeOption(options, argc, argv)) {
    }
    if (argc - optind > (options.append ? 0 : 1))
        refuse(std::string("unexpected argument ") + argv[argc - 1]);
    options.file = optind < argc ? argv[optind] : logFile();
    return options;
}

} // namespace

int main(int argc, char **argv)
{
    _setmode(_fileno(stdout), _O_BINARY); // lines go through as they stand
    const Options options = readOptions(argc, argv);
    return options.append ? append(options) : show(options);
}
