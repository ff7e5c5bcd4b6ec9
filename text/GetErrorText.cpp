#include "base/crt_stdio.h"

#include "base/last_error.h"
#include "base/module_id.h"

#include "general/errortext.h"

GENERAL_MODULE_ID("$Id$");

namespace {

char text[128];

}

const char *GetErrorText(unsigned code)
{
    uint32_t lastError = general::lastError();
    DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                                  MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US), text, sizeof text, nullptr);
    if (length == 0)
        snprintf(text, sizeof text, "%d", static_cast<int>(code));
    general::setLastError(lastError);
    return text;
}
