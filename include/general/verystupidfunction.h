/// @file
/// A function that does next to nothing, for checking that the library loads and can be called.

#ifndef GENERAL_VERYSTUPIDFUNCTION_H
#define GENERAL_VERYSTUPIDFUNCTION_H

#include "general/api.h"

/// Stores its argument in a variable that nothing reads.
/// @param value  any number
/// @return the argument
GENERAL_API int GENERAL_CALL VeryStupidFunction(int value);

#endif
