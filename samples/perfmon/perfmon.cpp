// Watches the performance counters that another process publishes: a reader of the segment that
// general/perf.h describes.

#include "general/chrono.h"
#include "general/perf.h"
#include "general/validators.h"

#include <io.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <windows.h>

namespace {

constexpr const char *usage =
    "Usage: perfmon [OPTION...] NAME\n"
    "Shows the counters that a process publishes in the shared-memory segment NAME, with the\n"
    "change per second and its recent course. Waits for the segment to appear, and ends when\n"
    "it is withdrawn.\n"
    "\n"
    "  --once            show the values once, and end\n"
    "  --csv             one line of comma-separated values per refresh\n"
    "  --interval MS     milliseconds between refreshes (default 1000)\n"
    "  --count N         end after N refreshes (default: no end)\n"
    "  --timeout S       wait S seconds for the segment (default: no end)\n"
    "  --label ID=TEXT   call counter ID so; may be given for each counter\n"
    "  --gauge ID        counter ID is a level, not a total: draw it as it is\n"
    "  -h, --help\n"
    "\n"
    "Exit status: 0, 1 if the segment did not appear, 2 for a wrong command line.\n";

struct Options {
    const char *name = nullptr;
    bool once = false;
    bool csv = false;
    unsigned long interval = 1000;
    unsigned long count = 0;
    unsigned long timeout = 0;
    std::map<uint32_t, std::string> labels;
    std::set<uint32_t> gauges;
};

void say(const std::string &message)
{
    fprintf(stderr, "perfmon: %s\n", message.c_str());
    fflush(stderr); // some runtimes hold it back when it is no terminal
}

[[noreturn]] void fail(int status, const std::string &message)
{
    say(message);
    exit(status);
}

/// A view of the segment. What it holds is up to another process: everything is checked against the
/// size of the view.
class Segment {
public:
    ~Segment() { close(); }
    Segment() = default;
    Segment(const Segment &) = delete;
    Segment &operator=(const Segment &) = delete;

    /// Opens the segment if it is there and complete.
    bool open(const char *name)
    {
        mapping_ = OpenFileMappingA(FILE_MAP_READ, FALSE, name);
        if (mapping_ != nullptr)
            view_ = static_cast<const char *>(MapViewOfFile(mapping_, FILE_MAP_READ, 0, 0, 0));
        MEMORY_BASIC_INFORMATION region;
        if (view_ != nullptr && VirtualQuery(view_, &region, sizeof region) != 0) {
            size_ = region.RegionSize;
            if (isLive())
                return true;
        }
        close();
        return false;
    }

    bool isLive() const { return word(0) == PERF_MAGIC; }

    std::vector<PerfRecord> records() const
    {
        std::vector<PerfRecord> found;
        size_t offset = sizeof(PerfSegment);
        for (uint32_t left = word(4); left > 0 && size_ - offset >= sizeof(PerfRecord); --left) {
            PerfRecord record = {word(offset), word(offset + 4), word(offset + 8)};
            if (record.length < sizeof(PerfRecord) || record.length > size_ - offset)
                break; // the count takes in counters that are not published
            found.push_back(record);
            offset += record.length;
        }
        return found;
    }

private:
    uint32_t word(size_t offset) const { return *reinterpret_cast<const volatile uint32_t *>(view_ + offset); }

    void close()
    {
        if (view_ != nullptr)
            UnmapViewOfFile(view_);
        if (mapping_ != nullptr)
            CloseHandle(mapping_);
        view_ = nullptr;
        mapping_ = nullptr;
    }

    HANDLE mapping_ = nullptr;
    const char *view_ = nullptr;
    size_t size_ = 0;
};

/// The recent changes per second of one counter, or its recent levels, drawn in one line.
class Course {
public:
    void add(double rate)
    {
        rates_.push_back(rate);
        if (rates_.size() > width)
            rates_.erase(rates_.begin());
    }

    std::string line() const
    {
        static const char levels[] = " .:-=+*#%@";
        constexpr double highest = sizeof levels - 2;
        double peak = rates_.empty() ? 0 : *std::max_element(rates_.begin(), rates_.end());
        std::string result;
        for (double rate : rates_)
            result += peak > 0 && rate > 0 ? levels[1 + static_cast<size_t>((highest - 1) * rate / peak)] : levels[0];
        return result;
    }

private:
    static constexpr size_t width = 24;
    std::vector<double> rates_;
};

/// On a terminal, moves the cursor back up, so that the next table replaces the last.
void moveUp(size_t lines)
{
    HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    CONSOLE_SCREEN_BUFFER_INFO screen;
    if (!_isatty(_fileno(stdout)) || !GetConsoleScreenBufferInfo(output, &screen))
        return;
    auto row = std::max(0, screen.dwCursorPosition.Y - static_cast<int>(lines));
    SetConsoleCursorPosition(output, COORD{0, static_cast<SHORT>(row)});
}

class Monitor {
public:
    explicit Monitor(const Options &options) : options_(options) { ChronoInit(&sinceStart_); }

    void refresh(const std::vector<PerfRecord> &records)
    {
        double now = ChronoTime(&sinceStart_, 0);
        if (options_.csv)
            printCsv(records, now);
        else
            printTable(records, now);
        fflush(stdout);
        for (const PerfRecord &record : records)
            last_[record.id] = record.value;
        lastTime_ = now;
        ++refreshes_;
    }

    unsigned long refreshes() const { return refreshes_; }

private:
    std::string label(uint32_t id) const
    {
        auto found = options_.labels.find(id);
        return found != options_.labels.end() ? found->second : "counter " + std::to_string(id);
    }

    /// A field of comma-separated values: quoted if it needs to be.
    static std::string field(const std::string &text)
    {
        if (text.find_first_of(",\"\r\n") == std::string::npos)
            return text;
        std::string quoted = "\"";
        for (char c : text)
            quoted += c == '"' ? "\"\"" : std::string(1, c);
        return quoted + '"';
    }

    void printCsv(const std::vector<PerfRecord> &records, double now) const
    {
        if (refreshes_ == 0) {
            printf("seconds");
            for (const PerfRecord &record : records)
                printf(",%s", field(label(record.id)).c_str());
            printf("\n");
        }
        printf("%.3f", now);
        for (const PerfRecord &record : records)
            printf(",%lu", static_cast<unsigned long>(record.value));
        printf("\n");
    }

    void printTable(const std::vector<PerfRecord> &records, double now)
    {
        if (refreshes_ > 0)
            moveUp(records.size() + 2);
        printf("%s after %.1f s\n", options_.name, now);
        for (const PerfRecord &record : records)
            printRow(record, now);
        printf("\n");
    }

    void printRow(const PerfRecord &record, double now)
    {
        printf("  %-16s %12lu", label(record.id).c_str(), static_cast<unsigned long>(record.value));
        auto last = last_.find(record.id);
        if (options_.gauges.count(record.id) != 0) {
            printf(" %14s", "");
            printCourse(record.id, record.value);
        } else if (last != last_.end() && now > lastTime_) {
            // Counters wrap and may go down: the difference is signed.
            double rate = static_cast<int32_t>(record.value - last->second) / (now - lastTime_);
            printf(" %+12.0f/s", rate);
            printCourse(record.id, rate);
        }
        printf("\n");
    }

    void printCourse(uint32_t id, double latest)
    {
        courses_[id].add(latest);
        printf("  |%-24s|", courses_[id].line().c_str());
    }

    const Options &options_;
    ChronoRec sinceStart_;
    double lastTime_ = 0;
    unsigned long refreshes_ = 0;
    std::map<uint32_t, uint32_t> last_;
    std::map<uint32_t, Course> courses_;
};

void waitFor(Segment &segment, const Options &options)
{
    constexpr DWORD pollPeriod = 20; // milliseconds
    ChronoRec waiting;
    ChronoInit(&waiting);
    bool told = false;
    while (!segment.open(options.name)) {
        if (options.timeout > 0 && ChronoTime(&waiting, 0) >= static_cast<double>(options.timeout))
            fail(1, std::string("no process has published ") + options.name + " within " +
                        std::to_string(options.timeout) + " s");
        if (!told)
            say(std::string("waiting for ") + options.name);
        told = true;
        Sleep(pollPeriod);
    }
}

void watch(const Options &options)
{
    Segment segment;
    waitFor(segment, options);
    Monitor monitor(options);
    for (;;) {
        std::vector<PerfRecord> records = segment.records();
        if (!segment.isLive()) { // looked at after the records: what was read is whole
            say(std::string(options.name) + " has been withdrawn");
            return;
        }
        monitor.refresh(records);
        if (options.once || monitor.refreshes() == options.count)
            return;
        Sleep(options.interval);
    }
}

unsigned long parseNumber(const char *option, const char *text)
{
    constexpr size_t mostDigits = 9;
    unsigned long number = isnatural(text) && strlen(text) <= mostDigits ? strtoul(text, nullptr, 10) : 0;
    if (number == 0)
        fail(2, std::string(option) + " takes a number above 0; see perfmon --help");
    return number;
}

/// Any 32-bit number is an identifier, 0 too.
uint32_t parseId(const char *option, const std::string &text)
{
    constexpr size_t mostDigits = 10;
    uint64_t id =
        isnatural(text.c_str()) && text.size() <= mostDigits ? strtoull(text.c_str(), nullptr, 10) : UINT64_MAX;
    if (id > UINT32_MAX)
        fail(2, std::string(option) + " takes a counter's number; see perfmon --help");
    return static_cast<uint32_t>(id);
}

void parseLabel(Options &options, const char *text)
{
    const char *sign = strchr(text, '=');
    if (sign == nullptr)
        fail(2, "--label takes ID=TEXT; see perfmon --help");
    options.labels[parseId("--label", std::string(text, sign))] = sign + 1;
}

Options parse(int argc, char **argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        auto value = [&] { return i + 1 < argc ? argv[++i] : ""; };
        if (argument == "-h" || argument == "--help") {
            fputs(usage, stdout);
            exit(0);
        }
        if (argument == "--once")
            options.once = true;
        else if (argument == "--csv")
            options.csv = true;
        else if (argument == "--interval")
            options.interval = parseNumber("--interval", value());
        else if (argument == "--count")
            options.count = parseNumber("--count", value());
        else if (argument == "--timeout")
            options.timeout = parseNumber("--timeout", value());
        else if (argument == "--gauge")
            options.gauges.insert(parseId("--gauge", value()));
        else if (argument == "--label")
            parseLabel(options, value());
        else if (argument.size() > 1 && argument[0] == '-')
            fail(2, "unknown option " + argument + "; see perfmon --help");
        else if (options.name != nullptr)
            fail(2, "one name only; see perfmon --help");
        else
            options.name = argv[i];
    }
    if (options.name == nullptr)
        fail(2, "the segment's name is missing; see perfmon --help");
    return options;
}

} // namespace

int main(int argc, char **argv)
{
    Options options = parse(argc, argv);
    watch(options);
    return 0;
}
