/// @file
/// What the system calls when the library is loaded and unloaded.

#include "base/module_id.h"

#include <windows.h>

GENERAL_MODULE_ID("$Id$");

/// Nothing happens at load time but this: no family needs to hear of threads that come and go.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH)
        DisableThreadLibraryCalls(instance);
    return TRUE;
}
