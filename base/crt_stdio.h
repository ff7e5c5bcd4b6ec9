/// @file
/// The system runtime's own formatted output. Include it before every other header.
///
/// The tool-chain can replace the printf family with its own, which writes `%p` differently. It is
/// asked not to by __USE_MINGW_ANSI_STDIO=0, but the C++ library's configuration header turns the
/// replacement back on, so <stdio.h> has to be seen first.

#pragma once

#if defined(__MINGW32__) && defined(_GLIBCXX_OS_DEFINES)
#error "base/crt_stdio.h must be included before any C++ library header"
#endif

#include <stdio.h>

#if defined(__MINGW32__) && __USE_MINGW_ANSI_STDIO
#error "formatted output must come from the system's C runtime"
#endif
