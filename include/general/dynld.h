/// @file
/// Loads a dynamic library by name once per process and looks symbols up in it.
///
/// Loaded libraries are remembered by the name exactly as it was given, and never unloaded. Another
/// spelling of the same file (other capitals, with its path) goes to the system's loader once more,
/// which hands out the same library. The table is not locked: call DynLd from one thread at a time.
///
///     void *address;
///     char path[260];
///     if (DynLd("version", "GetFileVersionInfoA", &address, path, sizeof path) != DYNLD_OK)
///         fprintf(stderr, "version: %s", DynLdErr());

#ifndef GENERAL_DYNLD_H
#define GENERAL_DYNLD_H

#include "general/api.h"
#include "general/names.h"

/// Outcome of DynLd.
typedef enum DynLdStat {
    DYNLD_OK = 0,
    DYNLD_NO_LIBRARY = 2, ///< the library could not be loaded, or lib is null
    DYNLD_NO_SYMBOL = 3,  ///< the library has no such symbol, or symbol is null
    DYNLD_NO_MEMORY = 4   ///< the library could not be remembered
} DynLdStat;

/// Finds the address of an exported symbol.
/// @param lib       passed to the system's loader as it is, which searches the usual places and appends
///                  ".dll" where there is no extension
/// @param symbol    the exported name
/// @param address   receives the address with DYNLD_OK, and with DYNLD_NO_MEMORY when the library was
///                  loaded but could not be remembered; otherwise untouched. May be null
/// @param path      receives the full path of the loaded library, also when the symbol is missing; cut
///                  to pathSize - 1 characters where it is longer. Empty when no library was loaded.
///                  May be null
/// @param pathSize  bytes in path; 0 or less leaves path alone
/// @return a DynLdStat. A missing symbol is reported before a library that could not be remembered. The
///         thread's last error then tells the cause: see DynLdErr
GENERAL_API int GENERAL_CALL DynLd(const char *lib, const char *symbol, void **address, char *path, int pathSize);

/// The system's text for the calling thread's last error. Ask right after a failed DynLd: any other
/// system call may change the error.
/// @return what GetErrorText returns, in its static buffer
GENERAL_API const char *GENERAL_CALL DynLdErr(void);

/// The platform's file extension for dynamic libraries.
/// @return "dll"
GENERAL_API const char *GENERAL_CALL DynLdExt(void);

#include "general/names.h"

#endif
