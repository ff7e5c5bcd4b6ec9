/// @file
/// Where the message log's messages go: the event log or a file.

#pragma once

#include <stdint.h>

namespace general {

/// A destination of the message log, one per process. Nothing reports failure.
struct LogBackend {
    void (*open)(const char *name);
    void (*close)();
    /// @param format  what to make of the two strings, in the manner of printf
    void (*write)(uint16_t category, const char *format, const char *first, const char *second);
};

extern const LogBackend eventLogBackend;
extern const LogBackend fileLogBackend;

/// The least size, with its terminating zero, of a registry text that counts as set.
constexpr unsigned long leastTextSize = 2;

/// A registry text of at most 256 bytes that the log reads, and a zero after it.
using RegistryText = char[257];

} // namespace general
