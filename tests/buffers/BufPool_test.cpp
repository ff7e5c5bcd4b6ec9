#include "general/bufpool.h"
#include "general/verystupidfunction.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <climits>
#include <random>
#include <vector>

namespace {

// Buffers are told apart by what their users left in them. Every fifth release comes twice.
TEST(BufPool, HandsOutTheLowestFreeSlotUnderRandomTraffic)
{
    struct ModelSlot {
        unsigned char *buffer;
        uint32_t size;
        bool isFree;
    };
    constexpr int32_t slotCount = 5;
    std::mt19937 random(3);
    test_support::HeapWatch watch;
    BufPool *pool = BufPoolCreate(slotCount, 100);
    EXPECT_EQ(BufPoolResetMaxSize(pool, 200), 0);
    std::vector<ModelSlot> model(slotCount, {nullptr, 0, true});
    int32_t available = slotCount;
    for (int step = 0; step < 20000; ++step) {
        if (random() % 2 == 0) {
            uint32_t size = random() % 220;
            auto slot = std::find_if(model.begin(), model.end(), [](const ModelSlot &s) { return s.isFree; });
            int allocations = watch.allocations();
            auto *buffer = static_cast<unsigned char *>(BufPoolGrab(pool, size));
            ASSERT_EQ(buffer != nullptr, size <= 200 && slot != model.end() && available != 0);
            if (buffer == nullptr)
                continue;
            bool grows = slot->buffer == nullptr || size > slot->size;
            ASSERT_EQ(watch.allocations(), allocations + grows);
            ASSERT_EQ(grows ? watch.lastSize() : 0, grows ? size : 0);
            ASSERT_TRUE(slot->size == 0 || size == 0 || buffer[0] == slot - model.begin()) << "another's, or not kept";
            *slot = {buffer, grows ? size : slot->size, false};
            if (slot->size != 0)
                buffer[0] = static_cast<unsigned char>(slot - model.begin());
            --available;
        } else {
            ModelSlot &slot = model[random() % slotCount];
            if (slot.isFree && random() % 5 != 0)
                continue;
            ASSERT_EQ(BufPoolRelease(pool, slot.buffer), slot.buffer == nullptr ? -1 : 0);
            slot.isFree = true;
            available += slot.buffer != nullptr;
        }
        ASSERT_EQ(BufPoolAvail(pool), available) << "step " << step;
    }
    EXPECT_GT(available, slotCount) << "double releases count twice";
    EXPECT_EQ(BufPoolDestroy(pool), 0);
    EXPECT_EQ(watch.wordOfLastFreedBlock(), 0u) << "the magic stays";
    EXPECT_EQ(watch.liveBlocks(), 0);
}

TEST(BufPool, RefusesWhatIsOutOfRangeAndSurvivesExhaustedMemory)
{
    struct Request {
        int32_t slots;
        uint32_t maximumSize;
    };
    constexpr int32_t withoutHeader = UINT32_MAX / 12; // so many slots fit, the header does not
    for (auto [slots, size] : {Request{0, 100}, {-1, 100}, {2, 0}, {INT32_MAX, 1}, {withoutHeader, 1}})
        EXPECT_EQ(BufPoolCreate(slots, size), nullptr);
    char elsewhere = 0;
    test_support::forEachForeign<BufPool>([&](BufPool *pool) {
        test_support::expectEach(-1,
                                 {BufPoolRelease(pool, &elsewhere), BufPoolAvail(pool), BufPoolResetMaxSize(pool, 1)});
        EXPECT_EQ(BufPoolDestroy(pool), pool == nullptr ? 0 : -1);
        EXPECT_EQ(BufPoolGrab(pool, 0), nullptr);
    });
    test_support::failEachAllocation([&](test_support::HeapWatch &watch) {
        BufPool *pool = BufPoolCreate(1, 100);
        if (pool == nullptr)
            return;
        for (uint32_t size : {10u, 20u}) {
            void *buffer = BufPoolGrab(pool, size);
            EXPECT_TRUE(buffer != nullptr || watch.failed());
            EXPECT_EQ(BufPoolAvail(pool), buffer == nullptr);
            BufPoolRelease(pool, buffer);
        }
        test_support::expectEach(-1, {BufPoolRelease(pool, nullptr), BufPoolRelease(pool, &elsewhere)});
        EXPECT_EQ(BufPoolAvail(pool), 1);
        EXPECT_NE(BufPoolGrab(pool, 5), nullptr);
        EXPECT_EQ(BufPoolDestroy(pool), 0);
    });
}

TEST(VeryStupidFunction, HandsItsArgumentBack)
{
    for (int value : {0, 1, -1, INT_MAX, INT_MIN})
        EXPECT_EQ(VeryStupidFunction(value), value);
}

} // namespace
