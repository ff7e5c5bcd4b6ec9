#include "ipc/ring.h"

#include "fuzz/ring_fuzz.cpp" // whose steps are worth taking here as well

#include <gtest/gtest.h>

#include <random>

namespace {

/// What does not hold ends the program with a message; what lies outside of the ring the sanitizers see.
TEST(Ring, KeepsItsBytesAndItsBounds)
{
    std::mt19937 random(7);
    for (int run = 0; run < 2000; ++run) {
        std::string input(400, 0);
        for (char &byte : input)
            byte = static_cast<char>(run % 2 == 0 ? random() : random() | 6); // with | 6 nobody spoils the header
        runWith(input);
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
        RingHeader ring{damage.base, damage.readPos, damage.writePos, damage.end, damage.count, 0, 0, 0, 0, 0};
        RingState state = stateOf(&ring, 64);
        EXPECT_EQ(state.closed, damage.isClosed);
        EXPECT_EQ(state.count, damage.isClosed ? 0 : damage.count);
        EXPECT_EQ(readinessOf(state, state, 64, 3), damage.count == 4 && !damage.isClosed ? 3u : 1u);
        EXPECT_EQ(dueEvents(state, state, 64), damage.isClosed ? 32u : damage.count == 4 ? 11u : 9u);
    }
}

} // namespace
