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
    uint32_t key = 7;
    uint32_t value = 7;
    uint32_t stat = MapFirst(map, &key, &value);
    for (; stat == MAP_OK; stat = MapNext(map, key, &key, &value))
        entries.emplace_back(key, value);
    EXPECT_TRUE(stat == MAP_NOT_FOUND && key == 0 && value == 0);
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
    auto anyKey = [&random] { return random() % 400 * 0x00800001u; }; // collides at every bucket count
    std::map<uint32_t, uint32_t> model;
    int32_t failures = 0;
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
        SCOPED_TRACE(step);
        uint32_t key = anyKey();
        if (random() % 10 >= 6) {
            EXPECT_EQ(MapRemove(map, key), model.erase(key) == 0 ? MAP_NOT_FOUND : MAP_OK);
        } else if (model.count(key) == 0) {
            auto added = static_cast<uint32_t>(random());
            uint32_t stat = MapAdd(map, key, added);
            EXPECT_EQ(stat, watch.justFailed() ? MAP_NO_MEMORY : MAP_OK);
            failures += stat == MAP_NO_MEMORY; // counted as if it had been added
            if (stat == MAP_OK)
                model[key] = added;
        }
        key = anyKey();
        auto entry = model.find(key);
        uint32_t value = UINT32_MAX;
        EXPECT_EQ(MapFind(map, key, &value), entry == model.end() ? MAP_NOT_FOUND : MAP_OK);
        EXPECT_EQ(value, entry == model.end() ? UINT32_MAX : entry->second);
        if (entry == model.end()) { // in an empty bucket or beside an entry
            EXPECT_EQ(MapNext(map, key, &key, &value), MAP_NOT_FOUND);
            EXPECT_EQ(key | value, 0u);
        }
        EXPECT_EQ(MapSize(map), static_cast<int32_t>(model.size()) + failures);
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
    auto add = [map](uint32_t key, uint32_t value, uint32_t buckets) {
        EXPECT_EQ(MapAdd(map, key, value), MAP_OK);
        EXPECT_EQ(fieldOf(map, bucketCountField), buckets);
        EXPECT_EQ(MapFind(map, key, &value), MAP_OK);
        return value;
    };
    for (uint32_t key : {1, 4, 8, 12}) // all but 1 in the first bucket
        add(key, key, 4);
    EXPECT_EQ(iterate(map), (Entries{{12, 12}, {8, 8}, {4, 4}, {1, 1}}));
    add(64, 64, 8); // 4 and 12 share a bucket with it
    EXPECT_EQ(iterate(map), (Entries{{8, 8}, {1, 1}, {64, 64}, {4, 4}, {12, 12}}));
    for (uint32_t value : {20, 21, 22}) // of duplicates the newest is found
        EXPECT_EQ(add(2, value, 8), value);
    add(3, 0, 16); // turns chains round
    uint32_t value = 0;
    expectEach(MAP_OK, {MapFind(map, 2, &value), MapRemove(map, 2), MapSize(map) - 6, MapDestroy(map)});
    EXPECT_EQ(value, 20u);
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
