// Reads text and publishes how much of it, and how fast, as performance counters that another
// program (perfmon) watches.

#include "general/chrono.h"
#include "general/perf.hpp"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include <windows.h>

namespace {

constexpr const char *usage = "Usage: perfpublish NAME [--rate BYTES] [FILE...]\n"
                              "Reads the files, or standard input, and publishes what it reads as counters in the\n"
                              "shared-memory segment NAME: 1 words, 2 bytes, 3 words per second, 4 bytes per second.\n"
                              "The segment is withdrawn at the end of the text. Watch it with: perfmon NAME\n"
                              "\n"
                              "  --rate BYTES   read no more than so many bytes per second (default: no limit)\n"
                              "  -h, --help\n"
                              "\n"
                              "Exit status: 0, 1 if a file could not be read or NAME not be created, 2 for a wrong\n"
                              "command line.\n";

enum CounterId : uint32_t { wordsRead = 1, bytesRead = 2, wordsPerSecond = 3, bytesPerSecond = 4 };

[[noreturn]] void fail(int status, const std::string &message)
{
    fprintf(stderr, "perfpublish: %s\n", message.c_str());
    exit(status);
}

class Reader {
public:
    explicit Reader(unsigned long bytesPerSecondLimit) : limit_(bytesPerSecondLimit)
    {
        ChronoInit(&sinceStart_);
        ChronoInit(&sinceRates_);
    }

    void read(FILE *file)
    {
        char chunk[512];
        size_t length;
        while ((length = fread(chunk, 1, sizeof chunk, file)) > 0) {
            count(chunk, length);
            updateRates();
            keepToLimit();
        }
    }

private:
    void count(const char *chunk, size_t length)
    {
        uint32_t words = 0;
        for (size_t i = 0; i < length; ++i) {
            bool letter = !isspace(static_cast<unsigned char>(chunk[i]));
            words += letter && !insideWord_;
            insideWord_ = letter;
        }
        PerfApplyDelta(wordsRead, words);
        PerfApplyDelta(bytesRead, static_cast<uint32_t>(length));
        wordsSinceRates_ += words;
        bytesSinceRates_ += static_cast<double>(length);
        bytes_ += static_cast<double>(length);
    }

    void updateRates()
    {
        constexpr double ratePeriod = 0.25; // seconds
        double seconds = ChronoTime(&sinceRates_, 0);
        if (seconds < ratePeriod)
            return;
        PerfSetValue(wordsPerSecond, static_cast<uint32_t>(wordsSinceRates_ / seconds));
        PerfSetValue(bytesPerSecond, static_cast<uint32_t>(bytesSinceRates_ / seconds));
        wordsSinceRates_ = bytesSinceRates_ = 0;
        ChronoInit(&sinceRates_);
    }

    void keepToLimit()
    {
        if (limit_ == 0)
            return;
        double ahead = bytes_ / static_cast<double>(limit_) - ChronoTime(&sinceStart_, 0);
        if (ahead > 0)
            Sleep(static_cast<DWORD>(ahead * 1000));
    }

    unsigned long limit_;
    ChronoRec sinceStart_, sinceRates_;
    bool insideWord_ = false;
    double wordsSinceRates_ = 0, bytesSinceRates_ = 0, bytes_ = 0;
};

unsigned long parseRate(const char *text)
{
    char *end = nullptr;
    unsigned long rate = text == nullptr ? 0 : strtoul(text, &end, 10);
    if (rate == 0 || *end != 0)
        fail(2, "--rate takes a number of bytes per second; see perfpublish --help");
    return rate;
}

bool readFile(Reader &reader, const char *name)
{
    FILE *file = strcmp(name, "-") == 0 ? stdin : fopen(name, "rb");
    if (file == nullptr) {
        fprintf(stderr, "perfpublish: cannot read %s: %s\n", name, strerror(errno));
        return false;
    }
    reader.read(file);
    if (file != stdin)
        fclose(file);
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    unsigned long rate = 0;
    std::vector<const char *> names;
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        if (argument == "-h" || argument == "--help") {
            fputs(usage, stdout);
            return 0;
        }
        if (argument == "--rate")
            rate = parseRate(i + 1 < argc ? argv[++i] : nullptr);
        else if (argument.size() > 1 && argument[0] == '-')
            fail(2, "unknown option " + argument + "; see perfpublish --help");
        else
            names.push_back(argv[i]);
    }
    if (names.empty())
        fail(2, "the segment's name is missing; see perfpublish --help");
    if (names.size() == 1)
        names.push_back("-");
    _setmode(_fileno(stdin), _O_BINARY);

    general::PublishedCounters counters(names[0], {general::counter(wordsRead), general::counter(bytesRead),
                                                   general::counter(wordsPerSecond), general::counter(bytesPerSecond)});
    if (!counters)
        fail(1, std::string("the segment ") + names[0] + " cannot be created; is the name in use?");
    Reader reader(rate);
    bool complete = true;
    for (size_t i = 1; i < names.size(); ++i)
        complete = readFile(reader, names[i]) && complete;
    return complete ? 0 : 1;
}
