#include "base/crt_stdio.h"

#include "base/module_id.h"

#include "general/errortext.h"

#include <string.h>

GENERAL_MODULE_ID("$Id$");

namespace {

/// By the numbers of the Windows C runtime, whatever those of the building machine are.
const char *nameOf(int sig)
{
    switch (sig) {
    case 2:
        return "SIGINT";
    case 4:
        return "SIGILL";
    case 8:
        return "SIGFPE";
    case 11:
        return "SIGSEGV";
    case 15:
        return "SIGTERM";
    case 22:
        return "SIGABRT";
    default:
        return nullptr;
    }
}

} // namespace

char *signal_name(int sig, char *buf, size_t len)
{
    if (buf == nullptr || len == 0)
        return buf;
    const char *name = nameOf(sig);
    if (name != nullptr)
        return strncpy(buf, name, len);
    sprintf(buf, "%d", sig); // NOLINT: of any length, as the header tells
    return buf;
}

const char *signal_code_name(...)
{
    return "unknown";
}
