#include "general/cache.h"

#include "tests/support/heap_watch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

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
            std::string key(random() % 9, static_cast<char>('a' + random() % 4));
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
    const int32_t *record = reinterpret_cast<int32_t *>(cache);
    std::vector<int32_t> capacities{record[2]};
    for (uint32_t key = 0; key < 70; ++key) {
        void *value = nullptr;
        CacheAccess(cache, &key, sizeof key, &value, nullptr);
        if (record[2] != capacities.back())
            capacities.push_back(record[2]);
    }
    EXPECT_EQ(capacities, (std::vector<int32_t>{2, 12, 22, 32, 42, 52, 65, 81}));
    EXPECT_EQ(record[1], 70);
    EXPECT_EQ(CacheDelete(cache), CACHE_OK);
    takeCalls();
}

TEST(Cache, KeepsTheOrderOfUseWhenItsClockReachesTheEnd)
{
    Cache *cache = CacheCreate(3, make, dispose);
    auto use = [cache](const char *key) {
        void *value = nullptr;
        EXPECT_EQ(CacheAccess(cache, key, 1, &value, nullptr), CACHE_OK);
        EXPECT_EQ(CacheFinish(cache, key, 1), CACHE_OK);
    };
    use("a");
    reinterpret_cast<int32_t *>(cache)[4] = INT32_MAX - 3;
    for (const char *key : {"b", "c", "b", "c", "b", "a"})
        use(key);
    takeCalls();
    use("d");
    use("e");
    EXPECT_EQ(takeCalls(), (std::vector<std::string>{"-c", "+d", "-b", "+e"}));
    EXPECT_EQ(CacheDelete(cache), CACHE_OK);
    takeCalls();
}

/// Makes the value of n from those of n - 1 and n - 2, which it has to access while all slots move.
void makeFibonacci(const void *key, int32_t, void **value, void *cache)
{
    uint8_t number = *static_cast<const uint8_t *>(key);
    uintptr_t sum = number;
    for (uint8_t smaller = number; number > 1 && smaller-- > number - 2;) {
        void *part = nullptr;
        sum = smaller == number - 1 ? 0 : sum;
        EXPECT_EQ(CacheAccess(static_cast<Cache *>(cache), &smaller, 1, &part, cache), CACHE_OK);
        sum += reinterpret_cast<uintptr_t>(part);
    }
    *value = reinterpret_cast<void *>(sum);
}

TEST(Cache, LetsTheMakerAccessOtherKeys)
{
    Cache *cache = CacheCreate(1, makeFibonacci, [](const void *, int32_t, void *) {});
    uint8_t number = 40;
    void *value = nullptr;
    EXPECT_EQ(CacheAccess(cache, &number, 1, &value, cache), CACHE_OK);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(value), 102334155u);
    EXPECT_EQ(CacheDelete(cache), CACHE_OK);
}

TEST(Cache, SurvivesExhaustedMemoryAndForeignHandles)
{
    test_support::failEachAllocation([](test_support::HeapWatch &watch) {
        Cache *cache = CacheCreate(1, make, dispose);
        if (cache == nullptr)
            return;
        void *value = nullptr;
        uint32_t stat = CacheAccess(cache, "a", 1, &value, cache);
        EXPECT_EQ(stat, CACHE_OK);
        stat = CacheAccess(cache, "long key", 8, &value, nullptr); // grows, and copies a longer key
        EXPECT_EQ(stat, watch.failed() ? CACHE_NO_MEMORY : CACHE_OK);
        EXPECT_EQ(value, watch.failed() ? cache : nullptr);
        EXPECT_EQ(CacheFinish(cache, "a", 1), CACHE_OK);
        EXPECT_EQ(CacheFinish(cache, "a", 1), CACHE_NO_REFERENCE);
        EXPECT_EQ(CacheFinish(cache, "long key", 8), watch.failed() ? CACHE_NO_ENTRY : CACHE_OK);
        takeCalls();
        EXPECT_EQ(CacheDelete(cache), CACHE_OK);
        EXPECT_EQ(takeCalls().size(), watch.failed() ? 1u : 2u);
        EXPECT_EQ(watch.firstWordOfLastFreedBlock(), 0u) << "a destroyed cache keeps its magic";
    });
    uint32_t foreign[7] = {};
    for (uint32_t *record : {static_cast<uint32_t *>(nullptr), foreign}) {
        auto *cache = reinterpret_cast<Cache *>(record);
        EXPECT_EQ(CacheAccess(cache, "a", 1, nullptr, nullptr), CACHE_BAD_HANDLE);
        EXPECT_EQ(CacheFinish(cache, "a", 1), CACHE_BAD_HANDLE);
        EXPECT_EQ(CacheRemove(cache, "a", 1), CACHE_BAD_HANDLE);
        EXPECT_EQ(CacheDelete(cache), CACHE_BAD_HANDLE);
    }
    EXPECT_EQ(CacheCreate(INT32_MAX, make, dispose), nullptr);
    Cache *cache = CacheCreate(1, make, dispose);
    void *value = nullptr;
    EXPECT_EQ(CacheAccess(cache, "a", UINT32_MAX, &value, nullptr), CACHE_NO_MEMORY);
    EXPECT_EQ(CacheFinish(cache, "a", -1), CACHE_NO_ENTRY);
    EXPECT_EQ(CacheDelete(cache), CACHE_OK);
}

} // namespace
