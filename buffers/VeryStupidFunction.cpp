#include "base/module_id.h"

#include "general/verystupidfunction.h"

GENERAL_MODULE_ID("$Id$");

namespace {

volatile int lastValue; // volatile: the store is the function's whole effect, and nobody reads it

}

int VeryStupidFunction(int value)
{
    lastValue = value;
    return value;
}
