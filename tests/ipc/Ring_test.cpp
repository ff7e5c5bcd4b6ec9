#include "ipc/ring.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>
#include <vector>

using namespace general::shm;

namespace {

/// A ring in a block of exactly its size, so that the sanitizers see every step past it.
struct Ring {
    explicit Ring(uint32_t size) : capacity(size), block(sizeof(RingHeader) + size) { header()->end = size; }
    RingHeader *header() { return reinterpret_cast<RingHeader *>(block.data()); }
    RingState state() { return stateOf(header(), capacity); }

    uint32_t capacity;
    std::vector<uint8_t> block;
};

/// What was checked is what is used: the header may say anything as soon as it has been read.
TEST(Ring, KeepsTheOrderOfItsBytesWhateverTheHeaderSaysMeanwhile)
{
    std::mt19937 random(7);
    for (uint32_t capacity : {0u, 1u, 7u, 64u}) {
        Ring ring(capacity);
        std::deque<uint8_t> held;
        for (int step = 0; step < 3000; ++step) {
            std::vector<uint8_t> bytes(1 + random() % (capacity + 2));
            std::generate(bytes.begin(), bytes.end(), random);
            auto length = static_cast<uint32_t>(bytes.size());
            RingState state = ring.state();
            std::fill_n(ring.block.begin(), 5 * sizeof(uint32_t), uint8_t{0xA5});
            if (random() % 2 == 0) {
                uint32_t added = copyIn(ring.header(), state, capacity, bytes.data(), length);
                ASSERT_EQ(added, std::min<size_t>(length, capacity - held.size()));
                held.insert(held.end(), bytes.begin(), bytes.begin() + added);
                ring.header()->readPos = state.readPos;
                finishAdd(ring.header(), state, capacity, added);
            } else {
                uint32_t removed = copyOut(ring.header(), state, capacity, bytes.data(), length);
                ASSERT_EQ(removed, std::min<size_t>(length, held.size()));
                ASSERT_TRUE(std::equal(bytes.begin(), bytes.begin() + removed, held.begin()));
                held.erase(held.begin(), held.begin() + removed);
                ring.header()->writePos = state.writePos;
                finishRemove(ring.header(), state, capacity, removed);
            }
            ring.header()->base = 0;
            ring.header()->end = capacity;
            ASSERT_FALSE(ring.state().closed);
            ASSERT_EQ(ring.state().count, held.size());
        }
    }
}

TEST(Ring, TakesADamagedHeaderForThatOfAClosedRing)
{
    const struct {
        uint32_t readPos, writePos, count, base, end;
        bool isClosed;
    } cases[] = {
        {60, 0, 4, 0, 64, false}, {0, 0, 64, 0, 64, false}, {0, 4, 4, 1, 64, true},    {0, 4, 4, ~0u, 64, true},
        {64, 4, 4, 0, 64, true},  {~0u, 4, 4, 0, 64, true}, {0, 64, 4, 0, 64, true},   {0, 3, 4, 0, 64, true},
        {0, 4, 4, 0, 0, true},    {0, 4, 4, 0, 65, true},   {0, 1, 65, 0, 64, true},   {0, 4, 68, 0, 64, true},
        {0, 4, 5, 0, 64, true},   {4, 0, ~3u, 0, 64, true}, {63, 62, 64, 0, 64, true}, {64, 0, 0, 0, 64, true}};
    for (const auto &damage : cases) {
        SCOPED_TRACE(&damage - cases);
        Ring ring(64);
        *ring.header() = {damage.base, damage.readPos, damage.writePos, damage.end, damage.count, 0, 0, 0, 0, 0};
        RingState state = ring.state();
        EXPECT_EQ(state.closed, damage.isClosed);
        EXPECT_EQ(state.count, damage.isClosed ? 0 : damage.count);
        EXPECT_EQ(readinessOf(state, state, 64, 3), damage.count == 4 && !damage.isClosed ? 3u : 1u);
        EXPECT_EQ(dueEvents(state, state, 64), damage.isClosed ? 32u : damage.count == 4 ? 11u : 9u);
    }
}

} // namespace
