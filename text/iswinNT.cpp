#include "base/module_id.h"
#include "text/windows_version.h"

#include "general/validators.h"

GENERAL_MODULE_ID("$Id$");

namespace {

constexpr int unknown = -1;

int isVersion(DWORD major, DWORD minor)
{
    OSVERSIONINFOA version = general::windowsVersion();
    return version.dwMajorVersion == major && version.dwMinorVersion == minor ? 1 : 0;
}

} // namespace

// Windows 95 also calls itself 4.0. There the answer stays unknown, and callers get to see the -1.
int iswinNT(void)
{
    static int answer = unknown;
    if (answer == unknown && iswin95() == 0)
        answer = isVersion(4, 0);
    return answer;
}

int iswin2K(void)
{
    static int answer = unknown;
    if (answer == unknown)
        answer = isVersion(5, 0);
    return answer;
}

int iswinXP(void)
{
    static int answer = unknown;
    if (answer == unknown)
        answer = isVersion(5, 1);
    return answer;
}
