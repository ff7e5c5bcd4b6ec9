/// @file
/// The system's image-help library, imagehlp.dll: loaded when first needed, never unloaded.

#pragma once

#include <windows.h>

#include <dbghelp.h>

namespace general {

/// What the stack traces call of it.
struct ImageHelp {
    decltype(&::StackWalk64) StackWalk64;
    decltype(&::SymFunctionTableAccess64) SymFunctionTableAccess64;
    decltype(&::SymGetLineFromAddr64) SymGetLineFromAddr64;
    decltype(&::SymGetModuleBase64) SymGetModuleBase64;
    decltype(&::SymGetModuleInfo64) SymGetModuleInfo64;
    decltype(&::SymGetOptions) SymGetOptions;
    decltype(&::SymGetSymFromAddr64) SymGetSymFromAddr64;
    decltype(&::SymInitialize) SymInitialize;
    decltype(&::SymLoadModule64) SymLoadModule64;
    decltype(&::SymSetOptions) SymSetOptions;
};

/// @return the library's functions; null where the library or one of them is missing
const ImageHelp *imageHelp();

} // namespace general
