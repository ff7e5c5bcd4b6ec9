#include "base/module_id.h"

#include "general/strings.h"

#include <ctype.h>
#include <string.h>

GENERAL_MODULE_ID("$Id$");

namespace {

int smallLetter(char character)
{
    return tolower(static_cast<unsigned char>(character));
}

} // namespace

int isabbrev(const char *full, const char *abbrev, int min_len)
{
    if (full == nullptr || abbrev == nullptr)
        return full == abbrev;
    const char *rest = abbrev;
    for (; *rest != '\0'; ++rest, ++full)
        if (smallLetter(*rest) != smallLetter(*full)) // unequal too where the full word ends first
            return 0;
    if (*full == '\0')
        return 1;
    return min_len <= 0 || static_cast<size_t>(rest - abbrev) >= static_cast<size_t>(min_len);
}
