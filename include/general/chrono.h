/// @file
/// Clocks: ticks and stopwatches of high resolution, the local time, and labelled measurements on
/// standard error.
///
/// A **tick** is one period of the system's performance counter or, on a machine that has none, one
/// millisecond of the time since the system started, which wraps after 49.7 days. Which of the two
/// is decided by the first call of ChronoInit, ChronoNow, ChronoTicks or ChronoTime and stays so for
/// the life of the process.
///
/// Differences are unsigned and of 64 bits: a stopwatch tells the time since a tick that lies before
/// now, and was read in this session of the system. For a start that lies after now (a tick of another
/// machine or session or, without a performance counter, an interval across a wrap of the millisecond
/// count) they come out near 2 to the 64th ticks.
///
/// Any number of threads may use clocks, each with its own stopwatches. `CpuTime` and `elapsed_time`
/// measure from a start that all threads of the process share, and does not guard it: call each from
/// one thread at a time.

#ifndef GENERAL_CHRONO_H
#define GENERAL_CHRONO_H

#include "general/api.h"
#include "general/names.h"

/// A stopwatch, owned by the caller.
typedef struct ChronoRec {
    uint64_t start; ///< tick at which it was started
} ChronoRec;

/// A local date and time of day.
typedef struct ChronoLocal {
    uint32_t year;        ///< with the century
    uint32_t month;       ///< 1 to 12
    uint32_t dayOfWeek;   ///< 0 is Sunday
    uint32_t day;         ///< of the month, from 1
    uint32_t hour;        ///< 0 to 23
    uint32_t minute;      ///< 0 to 59
    uint32_t second;      ///< 0 to 59
    uint32_t microsecond; ///< a multiple of 1000: the system counts milliseconds
} ChronoLocal;

/// What CpuTime is asked for.
typedef enum CpuTimeSelector {
    CPU_TIME_START = 0,        ///< remember the present as the reference
    CPU_TIME_USER = 1,         ///< time in the process's own code since the reference
    CPU_TIME_KERNEL = 2,       ///< time in the system on the process's behalf
    CPU_TIME_USER_AGAIN = 3,   ///< the same as CPU_TIME_USER
    CPU_TIME_KERNEL_AGAIN = 4, ///< the same as CPU_TIME_KERNEL
    CPU_TIME_BOTH = 5          ///< user and kernel time together
} CpuTimeSelector;

/// Starts a stopwatch.
/// @param stopwatch  not null
GENERAL_API void GENERAL_CALL ChronoInit(ChronoRec *stopwatch);

/// @return the present tick
GENERAL_API uint64_t GENERAL_CALL ChronoNow(void);

/// Reads a stopwatch in ticks.
/// @param stopwatch  a started stopwatch
/// @param restart    not 0 to start it anew at the present tick
/// @return ticks since its start
GENERAL_API uint64_t GENERAL_CALL ChronoTicks(ChronoRec *stopwatch, int restart);

/// Reads a stopwatch in seconds.
/// @param stopwatch  a started stopwatch
/// @param restart    not 0 to start it anew at the present tick
/// @return seconds since its start
GENERAL_API double GENERAL_CALL ChronoTime(ChronoRec *stopwatch, int restart);

/// Converts ticks, taken as an unsigned number, to seconds.
/// @param ticks  what ChronoTicks gives, or the difference of two results of ChronoNow
/// @return seconds; 0 for any number of ticks until ChronoInit, ChronoNow, ChronoTicks or ChronoTime
///         has been called once in the process
GENERAL_API double GENERAL_CALL ChronoSecs(uint64_t ticks);

/// Reads the local date and time of day.
/// @param local  receives it
/// @return local
GENERAL_API ChronoLocal *GENERAL_CALL ChronoLocalTime(ChronoLocal *local);

/// Measures processor time of the process since the last call with CPU_TIME_START, or since the
/// process began when there was none. With a label and any selector but CPU_TIME_START it prints
/// "LABEL: SECONDS secs" with three decimals to standard error.
/// @param label     null for no line
/// @param selector  a CpuTimeSelector. With any other number nothing happens
/// @return milliseconds, truncated, at most INT32_MAX; 0 for CPU_TIME_START, for a number that is no
///         selector, and when the system does not tell the times (nothing is printed then)
GENERAL_API int32_t GENERAL_CALL CpuTime(const char *label, int selector);

/// Measures the time since its previous call in the process; the first call measures from the
/// clock's origin, tick 0. With a label it prints "LABEL: SECONDS secs" with three decimals to
/// standard error.
/// @param label  null for no line
/// @return seconds
GENERAL_API double GENERAL_CALL elapsed_time(const char *label);

/// As elapsed_time, and sharing its start, in milliseconds.
/// @param label  null for no line
/// @return milliseconds, truncated, at most INT32_MAX
GENERAL_API int32_t GENERAL_CALL elapsed(const char *label);

/// Prints "LABEL: @ SECONDS" with three decimals to standard error, where SECONDS is the present
/// tick in seconds.
/// @param label  null for no line
GENERAL_API void GENERAL_CALL time_stamp(const char *label);

#include "general/names.h"

#endif
