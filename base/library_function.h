/// @file
/// Functions of libraries that are loaded when they are first needed, not with this one.

#pragma once

#include <string.h>
#include <windows.h>

namespace general {

/// Loads a library of the system's from the system's folder, and from nowhere else: a file of the same
/// name beside the program or in the current folder is left alone.
/// @return null where the system has none
inline HMODULE loadSystemLibrary(const char *name)
{
    char path[MAX_PATH];
    UINT length = GetSystemDirectoryA(path, sizeof path);
    if (length == 0 || length + 1 + strlen(name) >= sizeof path)
        return nullptr;
    path[length] = '\\';
    strcpy(path + length + 1, name);
    return LoadLibraryA(path);
}

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
