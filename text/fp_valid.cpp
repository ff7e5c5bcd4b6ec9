#include "base/module_id.h"

#include "general/fp.h"

#include <math.h>

GENERAL_MODULE_ID("$Id$");

int fp_valid_d(double x)
{
    return isfinite(x) ? 1 : 0;
}
