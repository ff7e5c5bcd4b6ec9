/// @file
/// Where an exception of the system came from, over stacktrace.h.
///
///     SetUnhandledExceptionFilter(general::traceUnhandled); // the program's last words, on standard error

#ifndef GENERAL_TRACE_HPP
#define GENERAL_TRACE_HPP

#include "general/core.hpp"
#include "general/stacktrace.h"

#include <cstdio>

namespace general {

namespace c {
using QVSTraceEntry = ::GENERAL_TYPE(QVSTraceEntry);
}

/// QVSgetAddrSym: what is known of an address. A return address belongs to the call before it, which is looked up.
struct LookedUp : c::QVSTraceEntry {
    LookedUp(uint32_t at, bool isReturnAddress) noexcept : c::QVSTraceEntry{at, nullptr, nullptr, 0}
    {
        QVSgetAddrSym(isReturnAddress ? at - 1 : at, &module, &symbol, &start);
    }
    ~LookedUp() { QVSfreeAddrSym(&module, &symbol); }
    LookedUp(const LookedUp &) = delete;
    LookedUp &operator=(const LookedUp &) = delete;
};

/// Calls `each` with the place of an exception, which the system's EXCEPTION_POINTERS tell, and with those that it was
/// called from, 32 at most, as LookedUp.
template<typename Pointers, typename Each>
void traceException(const Pointers &exception, Each &&each)
{
    constexpr int most = 32;
    uint32_t addresses[most];
    QVSsetFramePointer(static_cast<uint32_t>(exception.ContextRecord->Ebp));
    int count = QVSgetStackTrace(addresses, most);
    QVSsetFramePointer(0);
    addresses[0] = static_cast<uint32_t>(exception.ContextRecord->Eip); // instead of one that lies in the library
    for (int i = 0; i < (count > 0 ? count : 1); ++i)
        each(static_cast<const LookedUp &>(LookedUp(addresses[i], i > 0)));
}

/// A filter for SetUnhandledExceptionFilter, which writes the exception and its trace to standard error. Then the
/// system goes on as it would have done.
template<typename Pointers>
#ifdef _WIN32
long __stdcall
#else
long
#endif
    traceUnhandled(Pointers *exception)
{
    std::fprintf(stderr, "exception %08lx\n", static_cast<unsigned long>(exception->ExceptionRecord->ExceptionCode));
    traceException(*exception, [](const LookedUp &entry) {
        std::fprintf(stderr, "  %08lx  %s  %s\n", static_cast<unsigned long>(entry.address),
                     entry.module != nullptr ? entry.module : "?", entry.symbol != nullptr ? entry.symbol : "?");
    });
    std::fflush(stderr);
    return 0; // EXCEPTION_CONTINUE_SEARCH
}

} // namespace general

#endif
