#include "general/chrono.h"

#include "tests/support/fresh_library.h"
#include "tests/support/import_hook.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>

namespace {

using namespace test_support;

LONGLONG ticks, frequency; ///< what the hooked functions answer; without a frequency there is no counter
auto readCounter = winapi([](LARGE_INTEGER *answer) -> BOOL { return answer->QuadPart = ticks, TRUE; });
auto readFrequency = winapi([](LARGE_INTEGER *answer) -> BOOL { return (answer->QuadPart = frequency) != 0; });

TEST(Clock, ChoosesItsSourceOnFirstUse)
{
    testing::internal::CaptureStderr();
    for (LONGLONG perSecond : {4000, 0}) {
        FreshLibrary fresh;
        auto *seconds = fresh.function<decltype(ChronoSecs)>("ChronoSecs");
        auto *elapsedTime = fresh.function<decltype(elapsed_time)>("elapsed_time");
        ImportHook counter("QueryPerformanceCounter", readCounter, fresh.module());
        ImportHook frequencyHook("QueryPerformanceFrequency", readFrequency, fresh.module());
        ImportHook milliseconds("GetTickCount", winapi([] { return static_cast<DWORD>(ticks); }), fresh.module());
        frequency = perSecond;
        ticks = 0xFFFFFFF0;
        const double unit = 1.0 / (perSecond == 0 ? 1000 : 4000);
        EXPECT_EQ(seconds(1000), 0) << "known before the first reading";
        EXPECT_EQ(elapsedTime("first"), static_cast<double>(ticks) * unit) << "from the clock's origin";
        frequency = 1000; // a counter that comes late is left alone
        ticks += 21;      // an interval across the wrap of the milliseconds is left as it comes out
        EXPECT_EQ(elapsedTime(nullptr), static_cast<double>(perSecond == 0 ? 5 - uint64_t{0xFFFFFFF0} : 21) * unit);
        EXPECT_EQ(seconds(1000), 1000 * unit);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "first: 1073741.820 secs\nfirst: 4294967.280 secs\n");
}

TEST(Clock, StopwatchesRestartOnlyWhenAsked)
{
    ImportHook counter("QueryPerformanceCounter", readCounter);
    ChronoRec stopwatch;
    ticks = 1000;
    ChronoInit(&stopwatch);
    const double unit = ChronoSecs(1); // known by now
    ticks += 500;
    EXPECT_EQ(ChronoTicks(&stopwatch, 0), 500u);
    EXPECT_DOUBLE_EQ(ChronoTime(&stopwatch, -1), 500 * unit); // any number but 0 restarts
    ticks += 3;
    EXPECT_EQ(ChronoTicks(&stopwatch, 1), 3u);
    ticks -= 1;
    EXPECT_EQ(ChronoTicks(&stopwatch, 0), UINT64_MAX); // unsigned, also when the counter steps back
    EXPECT_DOUBLE_EQ(ChronoSecs(UINT64_MAX), 18446744073709551616.0 * unit);

    ImportHook local("GetLocalTime", winapi([](SYSTEMTIME *t) { *t = {2024, 2, 4, 29, 10, 20, 30, 456}; }));
    ChronoLocal now;
    const uint32_t expected[8] = {2024, 2, 4, 29, 10, 20, 30, 456000};
    EXPECT_EQ(ChronoLocalTime(&now), &now);
    EXPECT_EQ(std::memcmp(&now, expected, sizeof expected), 0);
}

TEST(Elapsed, PrintsItsLineAndTruncates)
{
    ChronoNow();
    const LONGLONG second = std::llround(1 / ChronoSecs(1));
    ImportHook counter("QueryPerformanceCounter", readCounter);
    ticks = 100 * second;
    elapsed_time(nullptr);
    testing::internal::CaptureStderr();
    ticks += second * 19999 / 10000;
    EXPECT_EQ(elapsed("load %s"), 1999);
    ticks = second * 12 + second / 4;
    time_stamp(nullptr);
    time_stamp("here");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "load %s: 2.000 secs\nhere: @ 12.250\n");
}

uint64_t userTime, kernelTime; ///< neither: there are no times

TEST(CpuTime, MeasuresFromTheReference)
{
    auto read = winapi([](HANDLE, FILETIME *, FILETIME *, FILETIME *kernel, FILETIME *user) -> BOOL {
        std::memcpy(kernel, &kernelTime, sizeof *kernel);
        std::memcpy(user, &userTime, sizeof *user);
        return (userTime | kernelTime) != 0;
    });
    ImportHook times("GetProcessTimes", read);
    const uint64_t start = 0xFFFFFFF0; // the differences carry into the high word
    userTime = kernelTime = start;
    testing::internal::CaptureStderr();
    EXPECT_EQ(CpuTime("none", 0), 0);
    userTime += 12'345'678;
    kernelTime += 5'009'999;
    const int32_t milliseconds[] = {0, 0, 1234, 500, 1234, 500, 1735, 0}; // for -1 to 6
    for (int selector : {-1, 1, 2, 3, 4, 5, 6})
        for (const char *label : {"used", static_cast<const char *>(nullptr)})
            EXPECT_EQ(CpuTime(label, selector), milliseconds[selector + 1]) << "selector " << selector;
    userTime = kernelTime = 0;
    EXPECT_EQ(CpuTime("used", 1) + CpuTime("used", 0), 0); // no line, and the reference stays
    userTime = start + 30 * uint64_t{864'000'000'000};
    EXPECT_EQ(CpuTime(nullptr, 1), INT_MAX);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "used: 1.235 secs\nused: 0.501 secs\nused: 1.235 secs\n"
                                                      "used: 0.501 secs\nused: 1.736 secs\n");
}

} // namespace
