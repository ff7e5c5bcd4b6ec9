#include "general/chrono.h"

#include "tests/support/import_hook.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <optional>
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

bool secondsAreKnownFromTheFirstReading()
{
    ChronoRec stopwatch{};
    bool unknown = ChronoSecs(1000) == 0;
    ChronoTime(&stopwatch, 0);
    return unknown && ChronoSecs(static_cast<uint64_t>(realFrequency())) == 1;
}

bool millisecondsStandInForGood()
{
    ChronoRec stopwatch;
    std::optional<ImportHook> frequency(std::in_place, "QueryPerformanceFrequency", readFrequency);
    ImportHook milliseconds("GetTickCount", readMilliseconds);
    counterTicks = 0xFFFFFFF0;
    ChronoInit(&stopwatch);
    frequency.reset(); // the counter is back, but the source stays
    counterTicks = 5;  // an interval across the wrap of the count is left as it comes out
    return ChronoTicks(&stopwatch, 0) == 5 - uint64_t{0xFFFFFFF0} && ChronoSecs(1000) == 1;
}

bool elapsedStartsAtTheClocksOrigin()
{
    ImportHook frequency("QueryPerformanceFrequency", readFrequency);
    ImportHook counter("QueryPerformanceCounter", readCounter);
    counterFrequency = 1000;
    counterTicks = 7'654'321;
    bool fromOrigin = elapsed_time("first") == 7'654'321 * (1.0 / 1000);
    counterTicks += 250;
    return fromOrigin && elapsed_time("next") == 0.25;
}

// Each in a process of its own, in which the clock is unused so far.
TEST(FreshClockDeathTest, ChoosesItsSourceOnFirstUse)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(!secondsAreKnownFromTheFirstReading()), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(std::exit(!millisecondsStandInForGood()), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(std::exit(!elapsedStartsAtTheClocksOrigin()), testing::ExitedWithCode(0),
                "first: 7654.321 secs\r?\nnext: 0.250 secs");
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
    testing::internal::CaptureStderr();
    counterTicks += second * 19999 / 10000;
    EXPECT_EQ(elapsed("load %s"), 1999);
    counterTicks += second * 3;
    EXPECT_DOUBLE_EQ(elapsed_time(nullptr), 3);
    counterTicks += second * 86400 * 30;
    EXPECT_EQ(elapsed(nullptr), INT_MAX);
    counterTicks = second * 12 + second / 4;
    time_stamp(nullptr);
    time_stamp("here");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "load %s: 2.000 secs\nhere: @ 12.250\n");
}

TEST(CpuTime, MeasuresFromTheReference)
{
    ImportHook times("GetProcessTimes", readProcessTimes);
    const uint64_t start = 0xFFFFFFF0; // the differences carry into the high word
    userTime = kernelTime = start;
    testing::internal::CaptureStderr();
    EXPECT_EQ(CpuTime("none", 0), 0);
    userTime = start + 12'345'678;
    kernelTime = start + 5'009'999;
    const int32_t milliseconds[] = {1234, 500, 1234, 500, 1735, 0};
    for (int selector = 1; selector <= 6; ++selector) {
        EXPECT_EQ(CpuTime("used", selector), milliseconds[selector - 1]) << "selector " << selector;
        EXPECT_EQ(CpuTime(nullptr, selector), milliseconds[selector - 1]) << "selector " << selector;
    }
    EXPECT_EQ(CpuTime("used", -1), 0);
    userTime = start + 30 * uint64_t{864'000'000'000};
    EXPECT_EQ(CpuTime(nullptr, 1), INT_MAX);

    timesAvailable = FALSE; // no times, no line, and the reference stays
    EXPECT_EQ(CpuTime("used", 1) + CpuTime("used", 0), 0);
    timesAvailable = TRUE;
    EXPECT_EQ(CpuTime(nullptr, 2), 500);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "used: 1.235 secs\nused: 0.501 secs\nused: 1.235 secs\n"
                                                      "used: 0.501 secs\nused: 1.736 secs\n");
}

} // namespace
