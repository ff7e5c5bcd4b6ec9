/// @file
/// Two questions about the system, for programs that come from a POSIX-like environment.

#ifndef GENERAL_SYSTEM_H
#define GENERAL_SYSTEM_H

#include "general/api.h"

/// The names that QVSsysconf knows.
#define QVS_SC_PER_THREAD 506 ///< 8192 divided by the hardware threads per core
#define QVS_SC_64 508         ///< 64

/// Asks for a figure of the system. Every call counts the processors first, as KuCPUCount does, which
/// see for threads.
/// @param name  QVS_SC_PER_THREAD or QVS_SC_64
/// @return the figure; 8192 for QVS_SC_PER_THREAD where processors could not be counted. For any
///         other name 22, the number of the invalid-argument error, as a plain result
GENERAL_API long GENERAL_CALL QVSsysconf(int name);

/// Finds the DNS domain that the machine belongs to. A domain that was found is kept; while there is
/// none, every call asks the system again, and each time keeps some 600 bytes of heap for good.
/// @return the domain; empty when the machine is in none or memory is exhausted; "unknown", which is
///         kept too, when the system's IP helper library is missing or fails. Never null, valid for
///         ever; not to be called by two threads at once
GENERAL_API const char *GENERAL_CALL QVSgetdomainname(void);

#endif
