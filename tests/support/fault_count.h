/// @file
/// Counts the faults that tests deal out, for the figures of script/reliability.

#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>

namespace test_support {

/// Counts one as a property of the running test.
/// @param kind  "allocations_failed" or "calls_failed"
inline void countFault(const char *kind)
{
    static std::map<std::pair<const testing::TestInfo *, std::string>, int> counts;
    const testing::TestInfo *running = testing::UnitTest::GetInstance()->current_test_info();
    testing::Test::RecordProperty(kind, ++counts[{running, kind}]);
}

} // namespace test_support
