#include "base/module_id.h"
#include "base/once.h"

#include "general/chrono.h"

#include <stddef.h>
#include <windows.h>

GENERAL_MODULE_ID("$Id$");

static_assert(sizeof(ChronoRec) == 8);
static_assert(offsetof(ChronoLocal, dayOfWeek) == 8 && offsetof(ChronoLocal, microsecond) == 28 &&
              sizeof(ChronoLocal) == 32);

namespace {

enum class TickSource { performanceCounter, milliseconds };

general::Once<TickSource> tickSource;
double secondsPerTick; // 0 until the source is chosen, which ChronoSecs shows to callers

/// Stores the period before the source is known, so that who sees the source sees the period too.
TickSource chooseSource()
{
    LARGE_INTEGER frequency = {};
    bool hasCounter = QueryPerformanceFrequency(&frequency) && frequency.QuadPart > 0;
    secondsPerTick = hasCounter ? 1.0 / static_cast<double>(frequency.QuadPart) : 0.001;
    return hasCounter ? TickSource::performanceCounter : TickSource::milliseconds;
}

} // namespace

void ChronoInit(ChronoRec *stopwatch)
{
    stopwatch->start = ChronoNow();
}

uint64_t ChronoNow(void)
{
    if (tickSource.get(chooseSource) == TickSource::milliseconds)
        return GetTickCount();

    LARGE_INTEGER ticks = {};
    QueryPerformanceCounter(&ticks);
    return static_cast<uint64_t>(ticks.QuadPart);
}

uint64_t ChronoTicks(ChronoRec *stopwatch, int restart)
{
    uint64_t now = ChronoNow();
    uint64_t ticks = now - stopwatch->start;
    if (restart != 0)
        stopwatch->start = now;
    return ticks;
}

double ChronoTime(ChronoRec *stopwatch, int restart)
{
    return ChronoSecs(ChronoTicks(stopwatch, restart));
}

double ChronoSecs(uint64_t ticks)
{
    return static_cast<double>(ticks) * secondsPerTick;
}

ChronoLocal *ChronoLocalTime(ChronoLocal *local)
{
    SYSTEMTIME time = {};
    GetLocalTime(&time);
    *local = ChronoLocal{.year = time.wYear,
                         .month = time.wMonth,
                         .dayOfWeek = time.wDayOfWeek,
                         .day = time.wDay,
                         .hour = time.wHour,
                         .minute = time.wMinute,
                         .second = time.wSecond,
                         .microsecond = time.wMilliseconds * 1000u};
    return local;
}
