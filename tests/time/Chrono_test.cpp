#include "general/chrono.h"

#include "tests/support/import_hook.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <windows.h>

namespace {

using test_support::ImportHook;

// What the hooked system functions answer.
LONGLONG counterTicks;
LONGLONG counterFrequency; // 0: there is no counter
uint64_t userTime, kernelTime;
BOOL timesAvailable = TRUE;

BOOL WINAPI readCounter(LARGE_INTEGER *ticks)
{
    ticks->QuadPart = counterTicks;
    return TRUE;
}

DWORD WINAPI readMilliseconds()
{
    return static_cast<DWORD>(counterTicks);
}

BOOL WINAPI readFrequency(LARGE_INTEGER *frequency)
{
    frequency->QuadPart = counterFrequency;
    return counterFrequency != 0;
}

BOOL WINAPI readProcessTimes(HANDLE, FILETIME *, FILETIME *, FILETIME *kernel, FILETIME *user)
{
    std::memcpy(kernel, &kernelTime, sizeof *kernel);
    std::memcpy(user, &userTime, sizeof *user);
    return timesAvailable;
}

void WINAPI readLocalTime(SYSTEMTIME *time)
{
    *time = SYSTEMTIME{2024, 2, 4, 29, 10, 20, 30, 456};
}

LONGLONG realFrequency()
{
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

template<typename Work>
std::string standardErrorOf(Work work)
{
    testing::internal::CaptureStderr();
    work();
    return testing::internal::GetCapturedStderr();
}

/// Ends a child process with what it found; the parent sees the text when something was wrong.
[[noreturn]] void finish(bool right, const char *what)
{
    std::fputs(what, stderr);
    std::exit(right ? 0 : 1);
}

// Everything here runs in a process of its own, in which the clock is unused so far.
TEST(FreshClockDeathTest, ChoosesItsSourceOnFirstUse)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    static ChronoRec stopwatch;
    EXPECT_EXIT(
        {
            bool zero = ChronoSecs(1000) == 0;
            ChronoTime(&stopwatch, 0);
            finish(zero && ChronoSecs(static_cast<uint64_t>(realFrequency())) == 1, "seconds");
        },
        testing::ExitedWithCode(0), "seconds");
    EXPECT_EXIT(
        {
            std::optional<ImportHook> frequency(std::in_place, "QueryPerformanceFrequency", readFrequency);
            ImportHook milliseconds("GetTickCount", readMilliseconds);
            counterTicks = 0xFFFFFFF0;
            ChronoInit(&stopwatch);
            frequency.reset(); // the counter is back, but the source stays
            counterTicks = 5;  // an interval across the wrap of the count is left as it comes out
            finish(ChronoTicks(&stopwatch, 0) == 5 - uint64_t{0xFFFFFFF0} && ChronoSecs(1000) == 1, "milliseconds");
        },
        testing::ExitedWithCode(0), "milliseconds");
    EXPECT_EXIT(
        {
            ImportHook frequency("QueryPerformanceFrequency", readFrequency);
            ImportHook counter("QueryPerformanceCounter", readCounter);
            counterFrequency = 1000;
            counterTicks = 7'654'321;
            bool fromOrigin = elapsed_time("first") == 7'654'321 * (1.0 / 1000);
            counterTicks += 250;
            finish(fromOrigin && elapsed_time("next") == 0.25, "origin");
        },
        testing::ExitedWithCode(0), "first: 7654.321 secs\r?\nnext: 0.250 secs\r?\norigin");
}

TEST(Clock, StopwatchesRestartOnlyWhenAsked)
{
    ImportHook counter("QueryPerformanceCounter", readCounter);
    LONGLONG second = realFrequency();
    counterTicks = 1000;
    ChronoRec stopwatch;
    ChronoInit(&stopwatch);
    counterTicks += second / 2;
    EXPECT_EQ(ChronoTicks(&stopwatch, 0), static_cast<uint64_t>(second / 2));
    EXPECT_DOUBLE_EQ(ChronoTime(&stopwatch, -1), 0.5); // any number but 0 restarts
    counterTicks += 3;
    EXPECT_EQ(ChronoTicks(&stopwatch, 1), 3u);
    counterTicks -= 1;
    EXPECT_EQ(ChronoTicks(&stopwatch, 0), UINT64_MAX); // unsigned, also when the counter steps back
    EXPECT_DOUBLE_EQ(ChronoSecs(UINT64_MAX), 18446744073709551616.0 * ChronoSecs(1));
}

TEST(Clock, LocalTimeFillsEightIntegers)
{
    ImportHook localTime("GetLocalTime", readLocalTime);
    ChronoLocal local;
    EXPECT_EQ(ChronoLocalTime(&local), &local);
    const uint32_t expected[8] = {2024, 2, 4, 29, 10, 20, 30, 456000};
    EXPECT_EQ(std::memcmp(&local, expected, sizeof expected), 0);
}

TEST(Elapsed, PrintsItsLineAndTruncates)
{
    ImportHook counter("QueryPerformanceCounter", readCounter);
    LONGLONG second = realFrequency();
    counterTicks = 100 * second;
    elapsed_time(nullptr);
    counterTicks += second * 19999 / 10000;
    EXPECT_EQ(standardErrorOf([] { EXPECT_EQ(elapsed("load %s"), 1999); }), "load %s: 2.000 secs\n");
    counterTicks += second * 3;
    EXPECT_EQ(standardErrorOf([] { EXPECT_DOUBLE_EQ(elapsed_time(nullptr), 3); }), "");
    counterTicks += second * 86400 * 30;
    EXPECT_EQ(elapsed(nullptr), INT_MAX);
    counterTicks = second * 12 + second / 4;
    EXPECT_EQ(standardErrorOf([] { time_stamp("here"); }), "here: @ 12.250\n");
    EXPECT_EQ(standardErrorOf([] { time_stamp(nullptr); }), "");
}

TEST(CpuTime, MeasuresFromTheReference)
{
    ImportHook times("GetProcessTimes", readProcessTimes);
    const uint64_t start = 0xFFFFFFF0; // the differences carry into the high word
    userTime = kernelTime = start;
    EXPECT_EQ(standardErrorOf([] { EXPECT_EQ(CpuTime("none", 0), 0); }), "");
    userTime = start + 12'345'678;
    kernelTime = start + 5'009'999;

    const struct {
        int selector;
        int32_t milliseconds;
        const char *line;
    } cases[] = {{1, 1234, "used: 1.235 secs\n"},
                 {2, 500, "used: 0.501 secs\n"},
                 {3, 1234, "used: 1.235 secs\n"},
                 {4, 500, "used: 0.501 secs\n"},
                 {5, 1735, "used: 1.736 secs\n"},
                 {6, 0, ""},
                 {-1, 0, ""}};
    for (const auto &c : cases) {
        EXPECT_EQ(standardErrorOf([&] { EXPECT_EQ(CpuTime("used", c.selector), c.milliseconds); }), c.line)
            << "selector " << c.selector;
        EXPECT_EQ(standardErrorOf([&] { EXPECT_EQ(CpuTime(nullptr, c.selector), c.milliseconds); }), "");
    }
    userTime = start + 30 * uint64_t{864'000'000'000};
    EXPECT_EQ(CpuTime(nullptr, 1), INT_MAX);

    timesAvailable = FALSE; // no times, no line, and the reference stays
    EXPECT_EQ(standardErrorOf([] { EXPECT_EQ(CpuTime("used", 1) + CpuTime("used", 0), 0); }), "");
    timesAvailable = TRUE;
    EXPECT_EQ(CpuTime(nullptr, 2), 500);
}

} // namespace
