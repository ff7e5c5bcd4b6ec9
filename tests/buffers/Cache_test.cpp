#include "general/cache.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

using test_support::expectEach;
using test_support::fieldOf;

enum Field : size_t { slotsInUseField = 1, capacityField = 2, clockField = 4 };

/// What the callbacks did since the last look: "+key" made, "-key" disposed of.
std::string calls;

void make(const void *key, int32_t length, void **value, void *argument)
{
    calls.append("+").append(static_cast<const char *>(key), static_cast<size_t>(length));
    if (argument != nullptr)
        *value = argument; // else it has none to give
}

void dispose(const void *key, int32_t length, void *)
{
    calls.append("-").append(static_cast<const char *>(key), static_cast<size_t>(length));
}

struct ModelSlot {
    bool valid = false;
    int references = 0;
    int lastUse = 0;
    std::string key = std::string(4, '\0');
    void *value = nullptr;
};

TEST(Cache, EvictsAsTheModelDoesUnderRandomTraffic)
{
    for (int32_t size : {0, 3, -1}) {
        std::mt19937 random(6);
        Cache *cache = CacheCreate(size, make, dispose);
        std::vector<ModelSlot> model(size > 0 ? static_cast<size_t>(size) : 0);
        std::string expectedCalls;
        for (int clock = 0, step = 1; step < 20000; ++step) {
            std::string key(random() % 9, "\0abc"[random() % 4]); // a fresh slot has four zero bytes
            auto length = static_cast<int32_t>(key.size());
            unsigned choice = random() % 100;
            bool accesses = choice < 48;
            auto matches = [&](auto &s) { return s.key == key && (s.valid || !accesses); };
            auto slot = std::find_if(model.begin(), model.end(), matches);
            if (accesses) {
                void *value = nullptr;
                auto *fresh = step % 5 == 0 ? nullptr : reinterpret_cast<void *>(static_cast<intptr_t>(step));
                if (slot == model.end()) {
                    slot = std::min_element(model.begin(), model.end(), [](auto &a, auto &b) {
                        return std::pair(a.references != 0, a.lastUse) < std::pair(b.references != 0, b.lastUse);
                    });
                    if (slot == model.end() || slot->references != 0)
                        slot = model.insert(model.end(), ModelSlot());
                    expectedCalls = (slot->valid ? "-" + slot->key : "") + "+" + key;
                    *slot = {true, 0, 0, key, fresh};
                }
                slot->lastUse = ++clock;
                ++slot->references;
                ASSERT_EQ(CacheAccess(cache, key.data(), key.size(), &value, fresh), CACHE_OK);
                ASSERT_EQ(value, slot->value) << "step " << step;
            } else {
                bool removes = choice >= 98;
                uint32_t expected = slot == model.end()                 ? CACHE_NO_ENTRY
                                    : !removes && slot->references == 0 ? CACHE_NO_REFERENCE
                                                                        : CACHE_OK;
                ASSERT_EQ((removes ? CacheRemove : CacheFinish)(cache, key.data(), length), expected)
                    << "step " << step;
                if (removes && expected == CACHE_OK && slot->valid)
                    expectedCalls = "-" + key;
                if (expected == CACHE_OK)
                    *slot = {slot->valid && !removes, removes ? 0 : slot->references - 1, removes ? 0 : slot->lastUse,
                             key, slot->value};
            }
            ASSERT_EQ(std::exchange(calls, {}), std::exchange(expectedCalls, {})) << "step " << step;
            ASSERT_EQ(fieldOf(cache, slotsInUseField), model.size());
        }
        for (const ModelSlot &slot : model)
            expectedCalls += slot.valid ? "-" + slot.key : "";
        EXPECT_EQ(CacheDelete(cache), CACHE_OK);
        EXPECT_EQ(std::exchange(calls, {}), expectedCalls);
    }
}

// A clock that has reached its end is set back, and the times of use with it.
TEST(Cache, KeepsTheOrderOfUseWhenItsClockReachesTheEnd)
{
    Cache *cache = CacheCreate(3, make, dispose);
    fieldOf(cache, clockField) = INT32_MAX - 4;
    void *value = nullptr;
    for (const char *key : {"a", "b", "c", "a", "b", "d", "e"})
        expectEach(CACHE_OK, {CacheAccess(cache, key, 1, &value, nullptr), CacheFinish(cache, key, 1)});
    EXPECT_EQ(CacheDelete(cache), CACHE_OK);
    EXPECT_EQ(std::exchange(calls, {}), "+a+b+c-c+d-a+e-e-b-d");
}

std::vector<uint32_t> capacities; ///< that a cache has gone through

/// Makes the value of n from that of n - 1, which it has to access while all slots move.
void makeCount(const void *key, int32_t, void **value, void *argument)
{
    auto *cache = static_cast<Cache *>(argument);
    if (capacities.empty() || fieldOf(cache, capacityField) != capacities.back())
        capacities.push_back(fieldOf(cache, capacityField));
    auto below = static_cast<uint8_t>(*static_cast<const uint8_t *>(key) - 1);
    void *part = nullptr;
    if (below != 0)
        expectEach(CACHE_OK, {CacheAccess(cache, &below, 1, &part, cache), CacheFinish(cache, &below, 1)});
    *value = static_cast<char *>(part) + 1;
}

TEST(Cache, LetsTheMakerAccessOtherKeysWhileItGrowsByTenAndThenByAQuarter)
{
    Cache *cache = CacheCreate(10, makeCount, [](const void *, int32_t, void *) {});
    void *value = nullptr;
    for (int access = 0; access < 2; ++access)
        EXPECT_EQ(CacheAccess(cache, "\x46", 1, &value, cache), CACHE_OK);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(value), 0x46u);
    EXPECT_EQ(std::exchange(capacities, {}), (std::vector<uint32_t>{10, 20, 30, 40, 50, 62, 77}));
    EXPECT_EQ(CacheDelete(cache), CACHE_OK);
}

TEST(Cache, SurvivesExhaustedMemory)
{
    test_support::failEachAllocation([](test_support::HeapWatch &watch) {
        Cache *cache = CacheCreate(1, make, dispose);
        if (cache == nullptr)
            return;
        void *value = nullptr;
        EXPECT_EQ(CacheAccess(cache, "a", 1, &value, cache), CACHE_OK);
        uint32_t stat = CacheAccess(cache, "long key", 8, &value, nullptr); // grows, and copies a longer key
        EXPECT_EQ(stat, watch.failed() ? CACHE_NO_MEMORY : CACHE_OK);
        EXPECT_EQ(value, watch.failed() ? cache : nullptr);
        EXPECT_EQ(CacheFinish(cache, "a", 1), CACHE_OK);
        EXPECT_EQ(CacheFinish(cache, "long key", 8), watch.failed() ? CACHE_NO_ENTRY : CACHE_OK);
        bool slotTaken = watch.failed() && fieldOf(cache, slotsInUseField) == 2;
        EXPECT_EQ(CacheFinish(cache, "\0\0\0", 4), slotTaken ? CACHE_OK : CACHE_NO_ENTRY) << "under its old key";
        EXPECT_EQ(CacheAccess(cache, "a", UINT32_MAX, &value, nullptr), CACHE_NO_MEMORY);
        EXPECT_EQ(CacheFinish(cache, "a", -1), CACHE_NO_ENTRY);
        EXPECT_EQ(CacheDelete(cache), CACHE_OK);
        EXPECT_EQ(std::exchange(calls, {}), watch.failed() ? "+a-a" : "+a+long key-a-long key");
    });
}

} // namespace
