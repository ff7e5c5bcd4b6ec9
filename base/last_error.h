/// @file
/// The calling thread's last-error code. The host build has no such thing and keeps one plain
/// variable in its place, for tests to read.

#pragma once

#include <stdint.h>

#ifdef _WIN32
#include <windows.h>
#endif

namespace general {

#ifdef _WIN32

inline void setLastError(uint32_t code)
{
    SetLastError(code);
}

inline uint32_t lastError()
{
    return GetLastError();
}

#else

inline uint32_t hostLastError = 0;

inline void setLastError(uint32_t code)
{
    hostLastError = code;
}

inline uint32_t lastError()
{
    return hostLastError;
}

#endif

} // namespace general
