#include "base/crt_stdio.h"
#include "base/module_id.h"
#include "time/milliseconds.h"

#include "general/chrono.h"

#include <stddef.h>

GENERAL_MODULE_ID("$Id$");

namespace {

ChronoRec previousCall; // shared by all threads; tick 0 before the first call

}

double elapsed_time(const char *label)
{
    double seconds = ChronoTime(&previousCall, 1);
    if (label != nullptr)
        fprintf(stderr, "%s: %.3f secs\n", label, seconds);
    return seconds;
}

int32_t elapsed(const char *label)
{
    return general::wholeMilliseconds(elapsed_time(label) * 1000);
}

void time_stamp(const char *label)
{
    if (label != nullptr)
        fprintf(stderr, "%s: @ %.3f\n", label, ChronoSecs(ChronoNow()));
}
