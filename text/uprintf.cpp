#include "base/crt_stdio.h"

#include "base/module_id.h"

#include "general/strings.h"

#include <stdarg.h>

GENERAL_MODULE_ID("$Id$");

int uprintf(const char *format, ...)
{
    if (format != nullptr) {
        va_list arguments;
        va_start(arguments, format);
        vfprintf(stdout, format, arguments);
        va_end(arguments);
    }
    return fflush(stdout);
}
