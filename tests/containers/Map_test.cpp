#include "general/map.h"

#include "base/last_error.h"
#include "tests/support/heap_watch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <random>

namespace {

struct Destroy {
    void operator()(Map *map) const { EXPECT_EQ(MapDestroy(map), MAP_OK); }
};
using MapPtr = std::unique_ptr<Map, Destroy>;

/// The values of each key, in the order in which they are found.
struct Model {
    std::map<uint32_t, std::deque<uint32_t>> values;
    int32_t count = 0;
    int32_t buckets = 1;

    void add(uint32_t key, uint32_t value)
    {
        if (++count > buckets) { // growth turns chains round
            buckets *= 2;
            for (auto &[k, list] : values)
                std::reverse(list.begin(), list.end());
        }
        values[key].push_front(value);
    }
    bool remove(uint32_t key)
    {
        auto found = values.find(key);
        if (found == values.end())
            return false;
        count -= static_cast<int32_t>(found->second.size());
        values.erase(found);
        return true;
    }
};

void expectIteration(const Map *map, const Model &model)
{
    std::map<uint32_t, uint32_t> seen;
    uint32_t key = 7;
    uint32_t value = 7;
    uint32_t lastBucket = 0;
    uint32_t stat = MapFirst(map, &key, &value);
    for (; stat == MAP_OK; stat = MapNext(map, key, &key, &value)) {
        uint32_t bucket = ((((key >> 4) ^ key) >> 4) ^ key) & static_cast<uint32_t>(model.buckets - 1);
        ASSERT_GE(bucket, lastBucket);
        lastBucket = bucket;
        ASSERT_TRUE(seen.emplace(key, value).second) << "key " << key << " comes twice";
    }
    EXPECT_EQ(stat, MAP_NOT_FOUND);
    EXPECT_EQ(key, 0u);
    EXPECT_EQ(value, 0u);
    ASSERT_EQ(seen.size(), model.values.size());
    for (auto &[k, list] : model.values)
        ASSERT_EQ(seen[k], list.front());
}

TEST(Map, BehavesAsAModelUnderRandomTraffic)
{
    for (bool duplicates : {false, true}) {
        std::mt19937 random(4);
        MapPtr map(MapCreate(1));
        Model model;
        for (uint32_t step = 0; step < 20000; ++step) {
            uint32_t key = random() % 400 * 0x00800001u; // collides at every bucket count
            if (random() % 10 < 6) {
                if (duplicates || !model.values.count(key)) {
                    ASSERT_EQ(MapAdd(map.get(), key, step), MAP_OK);
                    model.add(key, step);
                }
            } else {
                ASSERT_EQ(MapRemove(map.get(), key), model.remove(key) ? MAP_OK : MAP_NOT_FOUND);
            }
            ASSERT_EQ(MapSize(map.get()), model.count);
            uint32_t sought = random() % 400 * 0x00800001u;
            uint32_t value = UINT32_MAX;
            auto found = model.values.find(sought);
            ASSERT_EQ(MapFind(map.get(), sought, &value), found == model.values.end() ? MAP_NOT_FOUND : MAP_OK);
            ASSERT_EQ(value, found == model.values.end() ? UINT32_MAX : found->second.front()) << "step " << step;
            if (!duplicates && step % 100 == 0) {
                ASSERT_NO_FATAL_FAILURE(expectIteration(map.get(), model));
            }
        }
        EXPECT_GE(model.buckets, 256);
    }
}

TEST(Map, RefusesWhatIsNotALiveMapOrAPowerOfTwo)
{
    uint32_t foreign[5] = {};
    uint32_t noBuckets[5] = {0x4D415020};
    uint32_t key = 7;
    uint32_t value = 7;
    for (uint32_t *record : {static_cast<uint32_t *>(nullptr), foreign, noBuckets}) {
        auto *map = reinterpret_cast<Map *>(record);
        EXPECT_EQ(MapDestroy(map), MAP_BAD_HANDLE);
        EXPECT_EQ(MapAdd(map, 1, 1), MAP_BAD_HANDLE);
        EXPECT_EQ(MapFind(map, 1, &value), MAP_BAD_HANDLE);
        EXPECT_EQ(MapRemove(map, 1), MAP_BAD_HANDLE);
        EXPECT_EQ(MapFirst(map, &key, &value), MAP_BAD_HANDLE);
        EXPECT_EQ(MapNext(map, 1, &key, &value), MAP_BAD_HANDLE);
        EXPECT_EQ(MapSize(map), 0);
    }
    EXPECT_EQ(key, 7u);
    EXPECT_EQ(value, 7u);

    for (auto [count, error] :
         {std::pair<uint32_t, uint32_t>{1000, 22}, {3, 22}, {0xFFFFFFFF, 22}, {1u << 30, 12}, {1u << 31, 12}}) {
        general::setLastError(0);
        EXPECT_EQ(MapCreate(count), nullptr);
        EXPECT_EQ(general::lastError(), error) << count;
    }
}

TEST(Map, StepsFromAnAbsentKeyToNothing)
{
    MapPtr map(MapCreate(2));
    MapAdd(map.get(), 1, 11);
    for (uint32_t absent : {0u, 3u}) { // in an empty bucket, and beside an entry
        uint32_t key = 7;
        uint32_t value = 7;
        EXPECT_EQ(MapNext(map.get(), absent, &key, &value), MAP_NOT_FOUND);
        EXPECT_EQ(key + value, 0u);
    }
}

TEST(Map, DoublesFromTheDefaultSizeAtTheEntryAfterTheLastBucket)
{
    test_support::HeapWatch watch;
    MapPtr map(MapCreate(0));
    EXPECT_EQ(watch.lastSize(), 1024 * sizeof(void *));
    for (uint32_t i = 0; i < 1024; ++i)
        MapAdd(map.get(), i, i);
    EXPECT_EQ(watch.allocations(), 2 + 1024);
    MapAdd(map.get(), 1024, 1024);
    EXPECT_EQ(watch.allocations(), 2 + 1024 + 2);
}

TEST(Map, CountsAFailedAddAndKeepsTheRest)
{
    test_support::failEachAllocation([](test_support::HeapWatch &watch) {
        general::setLastError(0);
        Map *map = MapCreate(1);
        if (map == nullptr) {
            EXPECT_EQ(general::lastError(), 12u);
            return;
        }
        uint32_t added = 0;
        for (uint32_t i = 0; i < 5; ++i)
            added += MapAdd(map, i, 10 + i) == MAP_OK;
        EXPECT_EQ(added, watch.failed() ? 4u : 5u);
        EXPECT_EQ(MapSize(map), 5) << "a failed add is counted";
        for (uint32_t i = 0; i < 5; ++i) {
            uint32_t value = 10 + i;
            added -= MapFind(map, i, &value) == MAP_OK;
            EXPECT_EQ(value, 10 + i);
        }
        EXPECT_EQ(added, 0u);
        EXPECT_EQ(MapDestroy(map), MAP_OK);
        EXPECT_EQ(watch.firstWordOfLastFreedBlock(), 0u) << "a destroyed map keeps its magic";
    });
}

} // namespace
