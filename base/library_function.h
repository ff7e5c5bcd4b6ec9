/// @file
/// Functions of libraries that are loaded when they are first needed, not with this one.

#pragma once

#include <windows.h>

namespace general {

/// Looks a function up in a loaded library.
/// @param library   null for one that could not be loaded
/// @param function  receives the function; null if it is not there
/// @return whether it is there
template<typename Function>
bool findFunction(HMODULE library, const char *name, Function *&function)
{
    FARPROC address = library == nullptr ? nullptr : GetProcAddress(library, name);
    function = reinterpret_cast<Function *>(reinterpret_cast<void *>(address));
    return function != nullptr;
}

} // namespace general
