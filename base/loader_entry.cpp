/// @file
/// What the system calls when the library is loaded and unloaded.

#include "base/module_id.h"

#include <windows.h>

GENERAL_MODULE_ID("$Id$");

// The tool-chain's start-up code gives every library a directory of thread-local storage, unless this
// is null. This one has no use for it, and the system refuses the call below to a library that has one.
extern "C" {
// NOLINTBEGIN(misc-misplaced-const): the start-up code's own type of it
extern const PIMAGE_TLS_CALLBACK __dyn_tls_init_callback;
const PIMAGE_TLS_CALLBACK __dyn_tls_init_callback = nullptr;
// NOLINTEND(misc-misplaced-const)

// It also holds a lock of the runtime's, which old runtimes do not export, over its table of exit functions.
// That changes only while the library is loaded and unloaded, under the loader's own lock. script/check sees
// to it that nothing else of the tool-chain's needs these, such as its locks on streams.
void _lock(int) {}
void _unlock(int) {}
}

/// Nothing happens at load time but this: no family needs to hear of threads that come and go.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH)
        DisableThreadLibraryCalls(instance);
    return TRUE;
}
