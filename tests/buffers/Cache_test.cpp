#include "general/cache.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

using test_support::fieldOf;

enum Field : size_t { slotsInUseField = 1, capacityField = 2, clockField = 4 };

/// What the callbacks did since the last look, oldest first: "+key" made, "-key" disposed of.
std::vector<std::string> calls;

std::vector<std::string> takeCalls()
{
    return std::exchange(calls, {});
}

std::string keyText(const void *key, int32_t length)
{
    return std::string(static_cast<const char *>(key), static_cast<size_t>(length));
}

void make(const void *key, int32_t length, void **value, void *argument)
{
    calls.push_back("+" + keyText(key, length));
    *value = argument;
}

void dispose(const void *key, int32_t length, void *)
{
    calls.push_back("-" + keyText(key, length));
}

struct ModelSlot {
    bool valid = false;
    int references = 0;
    int lastUse = 0;
    std::string key = std::string(4, '\0');
    void *value = nullptr;
};

struct Model {
    std::vector<ModelSlot> slots;
    int clock = 0;

    ModelSlot *find(const std::string &key)
    {
        auto found = std::find_if(slots.begin(), slots.end(), [&](const ModelSlot &s) { return s.key == key; });
        return found == slots.end() ? nullptr : &*found;
    }
    void *access(const std::string &key, void *fresh, std::vector<std::string> &expectedCalls)
    {
        ++clock;
        auto slot = std::find_if(slots.begin(), slots.end(), [&](auto &s) { return s.valid && s.key == key; });
        if (slot == slots.end()) {
            slot = std::min_element(slots.begin(), slots.end(), [](auto &a, auto &b) {
                return std::pair(a.references != 0, a.lastUse) < std::pair(b.references != 0, b.lastUse);
            });
            if (slot == slots.end() || slot->references != 0)
                slot = slots.insert(slots.end(), ModelSlot());
            if (slot->valid)
                expectedCalls.push_back("-" + slot->key);
            expectedCalls.push_back("+" + key);
            *slot = {true, 0, 0, key, fresh};
        }
        slot->lastUse = clock;
        ++slot->references;
        return slot->value;
    }
};

TEST(Cache, EvictsAsTheModelDoesUnderRandomTraffic)
{
    for (int32_t size : {0, 3, -1}) {
        std::mt19937 random(6);
        Cache *cache = CacheCreate(size, make, dispose);
        Model model;
        model.slots.resize(size > 0 ? static_cast<size_t>(size) : 0);
        for (intptr_t step = 1; step < 20000; ++step) {
            std::string key(random() % 9, "\0abc"[random() % 4]); // a fresh slot has four zero bytes
            auto length = static_cast<int32_t>(key.size());
            std::vector<std::string> expectedCalls;
            ModelSlot *slot = model.find(key);
            unsigned choice = random() % 100;
            if (choice < 48) {
                void *value = nullptr;
                auto *fresh = reinterpret_cast<void *>(step);
                ASSERT_EQ(CacheAccess(cache, key.data(), key.size(), &value, fresh), CACHE_OK);
                ASSERT_EQ(value, model.access(key, fresh, expectedCalls)) << "step " << step;
            } else if (choice < 98) {
                uint32_t expected = slot == nullptr         ? CACHE_NO_ENTRY
                                    : slot->references == 0 ? CACHE_NO_REFERENCE
                                                            : CACHE_OK;
                ASSERT_EQ(CacheFinish(cache, key.data(), length), expected) << "step " << step;
                if (expected == CACHE_OK)
                    --slot->references;
            } else {
                ASSERT_EQ(CacheRemove(cache, key.data(), length), slot == nullptr ? CACHE_NO_ENTRY : CACHE_OK);
                if (slot != nullptr && slot->valid)
                    expectedCalls.push_back("-" + key);
                if (slot != nullptr)
                    slot->valid = false, slot->references = slot->lastUse = 0;
            }
            ASSERT_EQ(takeCalls(), expectedCalls) << "step " << step;
            ASSERT_EQ(fieldOf(cache, slotsInUseField), model.slots.size());
        }
        std::vector<std::string> expectedCalls;
        for (const ModelSlot &slot : model.slots)
            if (slot.valid)
                expectedCalls.push_back("-" + slot.key);
        EXPECT_EQ(CacheDelete(cache), CACHE_OK);
        EXPECT_EQ(takeCalls(), expectedCalls);
    }
}

TEST(Cache, GrowsByTenAndThenByAQuarter)
{
    Cache *cache = CacheCreate(2, make, dispose);
    std::vector<uint32_t> capacities;
    for (uint32_t key = 0; key < 70; ++key) {
        void *value = nullptr;
        CacheAccess(cache, &key, sizeof key, &value, nullptr);
        if (capacities.empty() || fieldOf(cache, capacityField) != capacities.back())
            capacities.push_back(fieldOf(cache, capacityField));
    }
    EXPECT_EQ(capacities, (std::vector<uint32_t>{2, 12, 22, 32, 42, 52, 65, 81}));
    EXPECT_EQ(CacheDelete(cache), CACHE_OK);
    takeCalls();
}

// A clock that has reached its end is set back, and the times of use with it.
TEST(Cache, KeepsTheOrderOfUseWhenItsClockReachesTheEnd)
{
    Cache *cache = CacheCreate(3, make, dispose);
    fieldOf(cache, clockField) = INT32_MAX - 3;
    for (const char *key : {"a", "b", "c", "b", "c", "d", "e"}) {
        void *value = nullptr;
        EXPECT_EQ(CacheAccess(cache, key, 1, &value, nullptr), CACHE_OK);
        EXPECT_EQ(CacheFinish(cache, key, 1), CACHE_OK);
    }
    EXPECT_EQ(takeCalls(), (std::vector<std::string>{"+a", "+b", "+c", "-a", "+d", "-b", "+e"}));
    EXPECT_EQ(CacheDelete(cache), CACHE_OK);
    takeCalls();
}

/// Makes the value of n from that of n - 1, which it has to access while all slots move.
void makeCount(const void *key, int32_t, void **value, void *cache)
{
    auto below = static_cast<uint8_t>(*static_cast<const uint8_t *>(key) - 1);
    void *part = nullptr;
    if (below != 0)
        CacheAccess(static_cast<Cache *>(cache), &below, 1, &part, cache);
    *value = static_cast<char *>(part) + 1;
}

TEST(Cache, LetsTheMakerAccessOtherKeys)
{
    Cache *cache = CacheCreate(1, makeCount, [](const void *, int32_t, void *) {});
    void *value = nullptr;
    for (int access = 0; access < 2; ++access)
        EXPECT_EQ(CacheAccess(cache, "\x28", 1, &value, cache), CACHE_OK);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(value), 0x28u);
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
        EXPECT_EQ(CacheDelete(cache), CACHE_OK);
        EXPECT_EQ(takeCalls().size(), watch.failed() ? 2u : 4u);
        EXPECT_EQ(watch.wordOfLastFreedBlock(), 0u) << "the magic stays";
    });
}

TEST(Cache, RefusesForeignHandlesAndSizesOutOfRange)
{
    test_support::forEachForeign<Cache>([](Cache *cache) {
        test_support::expectEach(CACHE_BAD_HANDLE,
                                 {CacheAccess(cache, "a", 1, nullptr, nullptr), CacheFinish(cache, "a", 1),
                                  CacheRemove(cache, "a", 1), CacheDelete(cache)});
    });
    EXPECT_EQ(CacheCreate(INT32_MAX, make, dispose), nullptr);
    Cache *cache = CacheCreate(1, make, dispose);
    EXPECT_EQ(CacheAccess(cache, "a", UINT32_MAX, nullptr, nullptr), CACHE_NO_MEMORY);
    EXPECT_EQ(CacheFinish(cache, "a", -1), CACHE_NO_ENTRY);
    EXPECT_EQ(CacheDelete(cache), CACHE_OK);
}

} // namespace
