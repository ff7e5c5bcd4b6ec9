#include "base/crt_stdio.h"

#include "base/module_id.h"

#include "general/strings.h"

#include <stdarg.h>

GENERAL_MODULE_ID("$Id$");

int eprintf(const char *format, ...)
{
    if (format == nullptr)
        return 0;
    va_list arguments;
    va_start(arguments, format);
    int count = vfprintf(stderr, format, arguments);
    va_end(arguments);
    return count;
}
