/// @file
/// Counts the faults that tests deal out, for the figures of script/reliability.

#pragma once

namespace test_support {

/// Counts one as a property of the running test.
/// @param kind  "allocations_failed" or "calls_failed"
void countFault(const char *kind);

} // namespace test_support
