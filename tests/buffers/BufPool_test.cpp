#include "general/bufpool.h"

#include "tests/support/heap_watch.h"

#include <gtest/gtest.h>

#include <algorithm>
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
    BufPool *pool = BufPoolCreate(slotCount, 200);
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
            if (slot->size != 0 && size != 0) {
                ASSERT_EQ(buffer[0], slot - model.begin()) << "another slot's, or not kept";
            }
            *slot = {buffer, grows ? size : slot->size, false};
            if (slot->size != 0)
                buffer[0] = static_cast<unsigned char>(slot - model.begin());
            --available;
        } else {
            ModelSlot &slot = model[random() % slotCount];
            bool twice = random() % 5 == 0;
            if (slot.isFree && !twice)
                continue;
            ASSERT_EQ(BufPoolRelease(pool, slot.buffer), slot.buffer == nullptr ? -1 : 0);
            slot.isFree = true;
            available += slot.buffer != nullptr;
        }
        ASSERT_EQ(BufPoolAvail(pool), available) << "step " << step;
    }
    EXPECT_GT(available, slotCount) << "double releases count twice";
    EXPECT_EQ(BufPoolDestroy(pool), 0);
    EXPECT_EQ(watch.firstWordOfLastFreedBlock(), 0u) << "a destroyed pool keeps its magic";
    EXPECT_EQ(watch.liveBlocks(), 0);
}

TEST(BufPool, RefusesWhatIsOutOfRange)
{
    EXPECT_EQ(BufPoolCreate(0, 100), nullptr);
    EXPECT_EQ(BufPoolCreate(-1, 100), nullptr);
    EXPECT_EQ(BufPoolCreate(2, 0), nullptr);
    EXPECT_EQ(BufPoolCreate(INT32_MAX, 1), nullptr);
    EXPECT_EQ(BufPoolCreate(static_cast<int32_t>(UINT32_MAX / 12), 1), nullptr); // slots fit, the header does not

    uint32_t foreign[4] = {};
    for (uint32_t *record : {static_cast<uint32_t *>(nullptr), foreign}) {
        auto *pool = reinterpret_cast<BufPool *>(record);
        EXPECT_EQ(BufPoolDestroy(pool), record == nullptr ? 0 : -1);
        EXPECT_EQ(BufPoolGrab(pool, 0), nullptr);
        EXPECT_EQ(BufPoolRelease(pool, foreign), -1);
        EXPECT_EQ(BufPoolAvail(pool), -1);
        EXPECT_EQ(BufPoolResetMaxSize(pool, 1), -1);
    }
    BufPool *pool = BufPoolCreate(1, 10);
    EXPECT_EQ(BufPoolGrab(pool, 11), nullptr);
    EXPECT_EQ(BufPoolResetMaxSize(pool, 11), 0);
    EXPECT_NE(BufPoolGrab(pool, 11), nullptr);
    EXPECT_EQ(BufPoolRelease(pool, nullptr), -1);
    EXPECT_EQ(BufPoolRelease(pool, foreign), -1);
    EXPECT_EQ(BufPoolDestroy(pool), 0);
}

TEST(BufPool, SurvivesExhaustedMemory)
{
    test_support::failEachAllocation([](test_support::HeapWatch &watch) {
        BufPool *pool = BufPoolCreate(1, 100);
        if (pool == nullptr)
            return;
        for (uint32_t size : {10u, 20u}) {
            void *buffer = BufPoolGrab(pool, size);
            EXPECT_TRUE(buffer != nullptr || watch.failed());
            EXPECT_EQ(BufPoolAvail(pool), buffer == nullptr);
            BufPoolRelease(pool, buffer);
        }
        EXPECT_EQ(BufPoolAvail(pool), 1);
        EXPECT_NE(BufPoolGrab(pool, 5), nullptr);
        EXPECT_EQ(BufPoolDestroy(pool), 0);
    });
}

} // namespace
