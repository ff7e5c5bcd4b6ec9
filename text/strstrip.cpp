#include "base/module_id.h"

#include "general/strings.h"

#include <ctype.h>
#include <string.h>

GENERAL_MODULE_ID("$Id$");

namespace {

bool isSpace(char character)
{
    return isspace(static_cast<unsigned char>(character)) != 0;
}

} // namespace

char *strstrip(char *string, int lead, int trail)
{
    if (string == nullptr)
        return nullptr;
    if (lead != 0)
        while (isSpace(*string))
            ++string;
    if (trail != 0 && *string != '\0') {
        char *end = string + strlen(string);
        while (end != string && isSpace(end[-1]))
            --end;
        *end = '\0';
    }
    return string;
}
