#include "base/module_id.h"

#include "general/fp.h"

GENERAL_MODULE_ID("$Id$");

unsigned next_power_2(unsigned n)
{
    constexpr unsigned greatest = 0x80000000;
    if (n < 2)
        return n;
    if (n > greatest)
        return 1; // stands for overflow; kept for compatibility
    constexpr int width = 32;
    return 1u << (width - __builtin_clz(n - 1));
}
