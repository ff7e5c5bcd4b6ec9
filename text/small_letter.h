/// @file
/// Comparison of characters ignoring case, in the C runtime's current locale.

#pragma once

#include <ctype.h>

namespace general {

inline int smallLetter(char character)
{
    return tolower(static_cast<unsigned char>(character));
}

} // namespace general
