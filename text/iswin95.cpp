#include "base/module_id.h"
#include "text/windows_version.h"

#include "general/validators.h"

GENERAL_MODULE_ID("$Id$");

int iswin95(void)
{
    static int answer = -1;
    if (answer == -1)
        answer = general::windowsVersion().dwPlatformId == VER_PLATFORM_WIN32_WINDOWS ? 1 : 0;
    return answer;
}
