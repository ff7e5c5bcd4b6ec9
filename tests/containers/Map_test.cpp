#include "general/map.h"

#include "base/last_error.h"
#include "tests/support/handles.h"

#include <algorithm>
#include <map>
#include <random>
#include <utility>
#include <vector>

namespace {

using test_support::expectEach;
using test_support::fieldOf;
using test_support::HeapWatch;

constexpr size_t bucketCountField = 2;

using Entries = std::vector<std::pair<uint32_t, uint32_t>>;

/// The entries in the order of an iteration.
Entries iterate(Map *map)
{
    Entries entries;
    uint32_t key = 7, value = 7, stat = MapFirst(map, &key, &value);
    for (; stat == MAP_OK; stat = MapNext(map, key, &key, &value))
        entries.emplace_back(key, value);
    EXPECT_EQ(stat, MAP_NOT_FOUND);
    EXPECT_EQ(key | value, 0u);
    return entries;
}

Map *createMap()
{
    general::setLastError(0);
    Map *map = MapCreate(1);
    EXPECT_EQ(general::lastError(), map == nullptr ? 12u : 0u);
    return map;
}

void drive(HeapWatch &watch, int steps, Map *map)
{
    std::mt19937 random(4);
    std::map<uint32_t, uint32_t> model;
    int32_t failures = 0; // counted as if they had been added
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
        SCOPED_TRACE(step);
        uint32_t key = random() % 400 * 0x00800001u; // collides at every bucket count
        uint32_t value = 7;
        bool removes = random() % 10 >= 6, present = model.count(key) != 0;
        EXPECT_EQ(MapFind(map, key, &value), present ? MAP_OK : MAP_NOT_FOUND);
        EXPECT_EQ(value, present ? model[key] : 7);
        if (removes) {
            EXPECT_EQ(MapRemove(map, key), present ? MAP_OK : MAP_NOT_FOUND);
            model.erase(key);
        } else if (!present) {
            uint32_t stat = MapAdd(map, key, key + 1);
            EXPECT_EQ(stat, watch.justFailed() ? MAP_NO_MEMORY : MAP_OK);
            failures += stat == MAP_NO_MEMORY;
            if (stat == MAP_OK)
                model[key] = key + 1;
        }
        EXPECT_EQ(MapSize(map), static_cast<int32_t>(model.size()) + failures);
        if (removes) { // from an empty bucket or from beside an entry
            EXPECT_EQ(MapNext(map, key, &key, &value), MAP_NOT_FOUND);
            EXPECT_EQ(key | value, 0u);
        }
        if (step % 100 == 0) {
            Entries seen = iterate(map);
            std::sort(seen.begin(), seen.end());
            EXPECT_EQ(seen, Entries(model.begin(), model.end()));
        }
    }
}

TEST(Map, BehavesAsAModelUnderRandomTraffic)
{
    test_support::runTraffic(60, 12000, createMap, MapDestroy, drive);
}

TEST(Map, ChainsNewestFirstUntilTheBucketsDouble)
{
    Map *map = MapCreate(4);
    auto add = [map](std::initializer_list<uint32_t> keys, uint32_t buckets) {
        for (uint32_t key : keys)
            EXPECT_EQ(MapAdd(map, key, key), MAP_OK);
        EXPECT_EQ(fieldOf(map, bucketCountField), buckets);
    };
    add({1, 4, 8, 12}, 4); // all but 1 in the first bucket
    EXPECT_EQ(iterate(map), (Entries{{12, 12}, {8, 8}, {4, 4}, {1, 1}}));
    add({64}, 8); // 4 and 12 share a bucket with it
    EXPECT_EQ(iterate(map), (Entries{{8, 8}, {1, 1}, {64, 64}, {4, 4}, {12, 12}}));
    uint32_t found = 0;
    for (uint32_t value : {20, 21, 22}) { // of duplicates the newest is found
        expectEach(MAP_OK, {MapAdd(map, 2, value), MapFind(map, 2, &found)});
        EXPECT_EQ(found, value);
    }
    add({3}, 16); // turns chains round
    expectEach(MAP_OK, {MapFind(map, 2, &found), MapRemove(map, 2), MapSize(map) - 6, MapDestroy(map)});
    EXPECT_EQ(found, 20u);
}

TEST(Map, IsCreatedWithAPowerOfTwoOrTheDefaultOfBuckets)
{
    for (auto [count, error] : {std::pair{1000u, 22u}, {3, 22}, {0xFFFFFFFF, 22}, {1u << 30, 12}, {1u << 31, 12}}) {
        general::setLastError(0);
        EXPECT_EQ(MapCreate(count), nullptr);
        EXPECT_EQ(general::lastError(), error) << count;
    }
    Map *map = MapCreate(0);
    EXPECT_EQ(fieldOf(map, bucketCountField), 1024u);
    EXPECT_EQ(MapDestroy(map), MAP_OK);
}

} // namespace
