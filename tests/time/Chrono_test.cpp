#include "general/chrono.h"

#include "tests/support/import_hook.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <windows.h>

namespace {

using test_support::ImportHook;

// What the hooked system functions answer.
LONGLONG counterTicks;
LONGLONG counterFrequency; // 0: there is no counter
DWORD millisecondCount;
FILETIME userTime, kernelTime;
BOOL timesAvailable = TRUE;

BOOL WINAPI readCounter(LARGE_INTEGER *ticks)
{
    ticks->QuadPart = counterTicks;
    return TRUE;
}

BOOL WINAPI readFrequency(LARGE_INTEGER *frequency)
{
    frequency->QuadPart = counterFrequency;
    return counterFrequency != 0;
}

DWORD WINAPI readMilliseconds()
{
    return millisecondCount;
}

BOOL WINAPI readProcessTimes(HANDLE, FILETIME *, FILETIME *, FILETIME *kernel, FILETIME *user)
{
    *kernel = kernelTime;
    *user = userTime;
    return timesAvailable;
}

void WINAPI readLocalTime(SYSTEMTIME *time)
{
    *time = SYSTEMTIME{2024, 2, 4, 29, 10, 20, 30, 456};
}

FILETIME units(uint64_t count)
{
    return FILETIME{static_cast<DWORD>(count), static_cast<DWORD>(count >> 32)};
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

class FreshClockDeathTest : public testing::Test {
protected:
    // Every statement under test runs in a process of its own, in which the clock is unused so far.
    FreshClockDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(FreshClockDeathTest, SecondsAreZeroUntilAnyOtherCallChoosesTheSource)
{
    ChronoRec stopwatch = {};
    void (*const starters[])(ChronoRec *) = {ChronoInit, [](ChronoRec *s) { ChronoTime(s, 0); }};
    for (auto start : starters) {
        EXPECT_EXIT(
            {
                bool zero = ChronoSecs(1000) == 0 && ChronoSecs(UINT64_MAX) == 0;
                start(&stopwatch);
                finish(zero && ChronoSecs(static_cast<uint64_t>(realFrequency())) == 1, "seconds");
            },
            testing::ExitedWithCode(0), "seconds");
    }
}

TEST_F(FreshClockDeathTest, MillisecondsStandInForAMissingCounterAndStay)
{
    EXPECT_EXIT(
        {
            ChronoRec stopwatch;
            {
                ImportHook frequency("QueryPerformanceFrequency", readFrequency);
                ChronoInit(&stopwatch);
            }
            bool right = ChronoSecs(1000) == 1;
            // The count wraps every 49.7 days; the interval across it is left as it comes out.
            ImportHook milliseconds("GetTickCount", readMilliseconds);
            millisecondCount = 0xFFFFFFF0;
            ChronoInit(&stopwatch);
            millisecondCount = 5;
            right = right && stopwatch.start == 0xFFFFFFF0 && ChronoTicks(&stopwatch, 0) == 5 - uint64_t{0xFFFFFFF0};
            finish(right, "milliseconds");
        },
        testing::ExitedWithCode(0), "milliseconds");
}

TEST_F(FreshClockDeathTest, FirstElapsedTimeCountsFromTheOrigin)
{
    EXPECT_EXIT(
        {
            ImportHook frequency("QueryPerformanceFrequency", readFrequency);
            ImportHook counter("QueryPerformanceCounter", readCounter);
            counterFrequency = 1000;
            counterTicks = 7'654'321;
            double first = elapsed_time("first");
            counterTicks += 250;
            finish(first == 7'654'321 * (1.0 / 1000) && elapsed_time("next") == 0.25, "origin");
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
    EXPECT_EQ(ChronoTicks(&stopwatch, 1), 0u);
    counterTicks += 3;
    EXPECT_EQ(ChronoTicks(&stopwatch, 1), 3u);
    counterTicks -= 1;
    EXPECT_EQ(ChronoTicks(&stopwatch, 0), UINT64_MAX); // unsigned, also when the counter steps back
    double tick = ChronoSecs(1);
    EXPECT_DOUBLE_EQ(ChronoSecs(UINT64_MAX), 18446744073709551616.0 * tick);
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
    EXPECT_EQ(standardErrorOf([] { EXPECT_EQ(elapsed(nullptr), 0); }), "");
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
    userTime = units(start);
    kernelTime = units(start);
    EXPECT_EQ(standardErrorOf([] { EXPECT_EQ(CpuTime("none", 0), 0); }), "");
    userTime = units(start + 12'345'678);
    kernelTime = units(start + 5'009'999);

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
    userTime = units(start + 30 * uint64_t{864'000'000'000});
    EXPECT_EQ(CpuTime(nullptr, 1), INT_MAX);

    timesAvailable = FALSE; // no times, no line, and the reference stays
    EXPECT_EQ(standardErrorOf([] { EXPECT_EQ(CpuTime("used", 1) + CpuTime("used", 0), 0); }), "");
    timesAvailable = TRUE;
    EXPECT_EQ(CpuTime(nullptr, 2), 500);
}

TEST(CpuTime, GrowsWithWork)
{
    CpuTime(nullptr, 0);
    ULONGLONG began = GetTickCount();
    volatile unsigned work = 0;
    while (CpuTime(nullptr, 1) < 30 && GetTickCount() - began < 30000)
        for (int i = 0; i < 100000; ++i)
            work = work + 1;
    EXPECT_GE(CpuTime(nullptr, 5), 30);
}

} // namespace
