#include "base/module_id.h"

#include "general/strings.h"

#include <string.h>

#include "base/host_names.h"

GENERAL_MODULE_ID("$Id$");

char *rindex(const char *string, int character)
{
    return string == nullptr ? nullptr : const_cast<char *>(strrchr(string, character));
}
