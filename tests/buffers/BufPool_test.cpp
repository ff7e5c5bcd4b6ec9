#include "general/bufpool.h"

#include "tests/support/handles.h"

#include <cstring>

namespace {

using namespace test_support;

TEST(BufPool, HandsOutTheLowestFreeSlotAndKeepsItsBuffer)
{
    failEachAllocation([](HeapWatch &watch) {
        BufPool *pool = BufPoolCreate(3, 100);
        if (pool == nullptr)
            return;
        /// @param allocates  the size that the heap is asked for; 0 for none
        auto grab = [&](uint32_t size, size_t allocates) {
            int allocations = watch.allocations();
            int32_t available = BufPoolAvail(pool);
            void *buffer = BufPoolGrab(pool, size);
            if (watch.justFailed()) {
                EXPECT_EQ(buffer, nullptr);
                EXPECT_EQ(BufPoolAvail(pool), available);
                allocations = watch.allocations();
                buffer = BufPoolGrab(pool, size); // goes well the second time
            }
            EXPECT_EQ(watch.allocations() - allocations, allocates != 0);
            EXPECT_TRUE(allocates == 0 || watch.lastSize() == allocates) << watch.lastSize();
            EXPECT_EQ(BufPoolAvail(pool), available - (buffer != nullptr));
            return static_cast<char *>(buffer);
        };
        char *a = grab(10, 10), *b = grab(100, 100), *c = grab(1, 1);
        EXPECT_EQ(grab(1, 0), nullptr) << "all are taken";
        std::strcpy(a, "kept");
        expectEach(0, {BufPoolRelease(pool, a), BufPoolRelease(pool, b)});
        expectEach(-1, {BufPoolRelease(pool, nullptr), BufPoolRelease(pool, pool)});
        EXPECT_EQ(grab(101, 0), nullptr) << "larger than the maximum";
        EXPECT_EQ(BufPoolResetMaxSize(pool, 200), 0);
        a = grab(101, 101);
        EXPECT_STREQ(a, "kept");
        EXPECT_EQ(grab(100, 0), b);
        expectEach(0, {BufPoolRelease(pool, c), BufPoolRelease(pool, c), BufPoolAvail(pool) - 2}); // counts twice
        EXPECT_EQ(grab(1, 0), c);
        EXPECT_EQ(grab(1, 0), nullptr);
        EXPECT_EQ(BufPoolDestroy(pool), 0);
    });
}

} // namespace
