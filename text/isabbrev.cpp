#include "base/module_id.h"
#include "text/small_letter.h"

#include "general/strings.h"

#include <stddef.h>

GENERAL_MODULE_ID("$Id$");

using general::smallLetter;

int isabbrev(const char *full, const char *abbrev, int minLength)
{
    if (full == nullptr || abbrev == nullptr)
        return full == abbrev;
    const char *rest = abbrev;
    for (; *rest != '\0'; ++rest, ++full)
        if (smallLetter(*rest) != smallLetter(*full)) // unequal too where the full word ends first
            return 0;
    if (*full == '\0')
        return 1;
    return minLength <= 0 || static_cast<size_t>(rest - abbrev) >= static_cast<size_t>(minLength);
}
