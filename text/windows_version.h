/// @file
/// The running system's version, as the version tests ask for it.

#pragma once

#include <windows.h>

namespace general {

/// Reads the version; all zeros, which is no Windows, when the system does not tell it.
inline OSVERSIONINFOA windowsVersion()
{
    OSVERSIONINFOA version = {};
    version.dwOSVersionInfoSize = sizeof version;
    if (!GetVersionExA(&version))
        version = {};
    return version;
}

} // namespace general
