#include "base/crt_stdio.h"
#include "base/module_id.h"
#include "time/milliseconds.h"

#include "general/chrono.h"

#include <windows.h>

GENERAL_MODULE_ID("$Id$");

namespace {

/// Processor times of the process, in units of 100 nanoseconds.
struct CpuTimes {
    int64_t user;
    int64_t kernel;
};

constexpr double secondsPerUnit = 1e-7;
constexpr double millisecondsPerUnit = 1e-4;

CpuTimes reference; // shared by all threads; zero, the start of the process, until CPU_TIME_START

int64_t units(const FILETIME &time)
{
    return static_cast<int64_t>(uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
}

bool readTimes(CpuTimes &times)
{
    FILETIME creation, exit, kernel, user;
    if (!GetProcessTimes(GetCurrentProcess(), &creation, &exit, &kernel, &user))
        return false;
    times = CpuTimes{.user = units(user), .kernel = units(kernel)};
    return true;
}

/// Units since the reference.
double interval(const CpuTimes &now, int selector)
{
    auto user = static_cast<double>(now.user - reference.user);
    auto kernel = static_cast<double>(now.kernel - reference.kernel);
    switch (selector) {
    case CPU_TIME_USER:
    case CPU_TIME_USER_AGAIN:
        return user;
    case CPU_TIME_KERNEL:
    case CPU_TIME_KERNEL_AGAIN:
        return kernel;
    default:
        return user + kernel;
    }
}

} // namespace

int32_t CpuTime(const char *label, int selector)
{
    CpuTimes now;
    if (!readTimes(now) || selector < CPU_TIME_START || selector > CPU_TIME_BOTH)
        return 0;
    if (selector == CPU_TIME_START) {
        reference = now;
        return 0;
    }

    double elapsedUnits = interval(now, selector);
    if (label != nullptr)
        fprintf(stderr, "%s: %.3f secs\n", label, elapsedUnits * secondsPerUnit);
    return general::wholeMilliseconds(elapsedUnits * millisecondsPerUnit);
}
