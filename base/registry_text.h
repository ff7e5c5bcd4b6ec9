/// @file
/// Texts that the registry holds.

#pragma once

#include <stddef.h>
#include <windows.h>

namespace general {

/// Reads a value. The registry does not promise that a text is terminated; here it always is.
/// @param text  receives one byte less than it has room for
/// @param size  receives the value's size, with its own terminator if it has one; also when there is
///              too much of it
/// @return ERROR_SUCCESS; ERROR_MORE_DATA or another error, and the text is empty
template<size_t room>
LSTATUS readRegistryText(HKEY key, const char *name, char (&text)[room], DWORD &size)
{
    size = room - 1;
    LSTATUS status = RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<BYTE *>(text), &size);
    text[status == ERROR_SUCCESS ? size : 0] = '\0';
    return status;
}

} // namespace general
