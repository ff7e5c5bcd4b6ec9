#include "general/bufpool.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <array>
#include <random>

namespace {

struct ModelSlot {
    unsigned char *buffer;
    uint32_t size;
    bool inUse;
};

// Buffers are told apart by what their users left in them. Every fifth release comes twice.
TEST(BufPool, HandsOutTheLowestFreeSlotUnderRandomTraffic)
{
    auto create = [] { return BufPoolCreate(5, 100); };
    test_support::runTraffic(60, 20000, create, BufPoolDestroy, [](auto &watch, int steps, BufPool *pool) {
        std::mt19937 random(3);
        EXPECT_EQ(BufPoolResetMaxSize(pool, 200), 0);
        std::array<ModelSlot, 5> model = {};
        int32_t available = 5;
        for (int step = 0; step < steps; ++step) {
            ModelSlot *slot = &model[random() % 5];
            if (random() % 2 == 0) {
                uint32_t size = random() % 220;
                slot = std::find_if(model.begin(), model.end(), [](const ModelSlot &s) { return !s.inUse; });
                bool served = size <= 200 && slot != model.end() && available != 0;
                bool grows = served && (slot->buffer == nullptr || size > slot->size);
                int allocations = watch.allocations();
                auto *buffer = static_cast<unsigned char *>(BufPoolGrab(pool, size));
                ASSERT_EQ(watch.allocations(), allocations + grows);
                ASSERT_TRUE(!grows || watch.lastSize() == size);
                ASSERT_EQ(buffer != nullptr, served && !watch.justFailed());
                if (buffer == nullptr)
                    continue;
                auto number = static_cast<unsigned char>(slot - model.begin());
                ASSERT_TRUE(slot->size == 0 || size == 0 || buffer[0] == number) << "another's, or not kept";
                *slot = {buffer, grows ? size : slot->size, true};
                if (slot->size != 0)
                    buffer[0] = number;
                --available;
            } else if (slot->inUse || random() % 5 == 0) {
                ASSERT_EQ(BufPoolRelease(pool, slot->buffer), slot->buffer == nullptr ? -1 : 0);
                slot->inUse = false;
                available += slot->buffer != nullptr;
            }
            ASSERT_EQ(BufPoolRelease(pool, &model), -1);
            ASSERT_EQ(BufPoolAvail(pool), available) << "step " << step;
        }
        EXPECT_TRUE(available > 5 || steps < 1000) << "double releases count twice";
    });
}

} // namespace
