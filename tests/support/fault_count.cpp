#include "tests/support/fault_count.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>

namespace test_support {

void countFault(const char *kind)
{
    static std::map<std::pair<const testing::TestInfo *, std::string>, int> counts;
    const testing::TestInfo *running = testing::UnitTest::GetInstance()->current_test_info();
    testing::Test::RecordProperty(kind, ++counts[{running, kind}]);
}

} // namespace test_support
