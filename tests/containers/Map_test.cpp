#include "general/map.h"

#include "base/last_error.h"
#include "tests/support/handles.h"

#include <algorithm>
#include <deque>
#include <map>
#include <random>

namespace {

using test_support::fieldOf;
using test_support::HeapWatch;

constexpr size_t bucketCountField = 2;

using Model =
    std::map<uint32_t, std::deque<uint32_t>>; ///< the values of each key, in the order in which they are found

void expectIteration(Map *map, const Model &model)
{
    Model seen;
    uint32_t key = 7;
    uint32_t value = 7;
    uint32_t lastBucket = 0;
    uint32_t stat = MapFirst(map, &key, &value);
    for (; stat == MAP_OK && seen.size() <= model.size(); stat = MapNext(map, key, &key, &value)) {
        uint32_t bucket = ((((key >> 4) ^ key) >> 4) ^ key) & (fieldOf(map, bucketCountField) - 1);
        ASSERT_GE(bucket, lastBucket);
        lastBucket = bucket;
        seen[key].push_back(value);
    }
    ASSERT_EQ(seen, model);
    ASSERT_TRUE(stat == MAP_NOT_FOUND && key == 0 && value == 0);
}

Map *createMap()
{
    general::setLastError(0);
    Map *map = MapCreate(1);
    EXPECT_EQ(general::lastError(), map == nullptr ? 12u : 0u);
    return map;
}

void drive(bool duplicates, HeapWatch &watch, int steps, Map *map)
{
    std::mt19937 random(4);
    auto anyKey = [&random] { return random() % 400 * 0x00800001u; }; // collides at every bucket count
    Model model;
    int32_t count = 0;
    uint32_t buckets = 1;
    for (int step = 0; step < steps; ++step) {
        SCOPED_TRACE(step);
        uint32_t key = anyKey();
        auto values = model.find(key);
        if (random() % 10 >= 6) {
            ASSERT_EQ(MapRemove(map, key), values == model.end() ? MAP_NOT_FOUND : MAP_OK);
            count -= values == model.end() ? 0 : static_cast<int32_t>(values->second.size());
            model.erase(key);
        } else if (duplicates || values == model.end()) {
            uint32_t stat = MapAdd(map, key, static_cast<uint32_t>(step));
            ASSERT_EQ(stat, watch.justFailed() ? MAP_NO_MEMORY : MAP_OK);
            bool grows = ++count > static_cast<int32_t>(buckets); // counted also when it failed
            bool grew = fieldOf(map, bucketCountField) == 2 * buckets;
            ASSERT_TRUE(stat == MAP_OK ? grew == grows : grows || !grew);
            buckets *= grew ? 2 : 1;
            for (auto &entry : model)
                if (grew) // turns chains round
                    std::reverse(entry.second.begin(), entry.second.end());
            if (stat == MAP_OK)
                model[key].push_front(static_cast<uint32_t>(step));
        }
        key = anyKey();
        values = model.find(key);
        uint32_t value = UINT32_MAX;
        ASSERT_EQ(MapFind(map, key, &value), values == model.end() ? MAP_NOT_FOUND : MAP_OK);
        ASSERT_EQ(value, values == model.end() ? UINT32_MAX : values->second.front());
        if (values == model.end()) { // in an empty bucket or beside an entry
            ASSERT_TRUE(MapNext(map, key, &key, &value) == MAP_NOT_FOUND && key == 0 && value == 0);
        }
        ASSERT_EQ(MapSize(map), count);
        if (!duplicates && step % 100 == 0)
            expectIteration(map, model);
    }
}

TEST(Map, BehavesAsAModelUnderRandomTraffic)
{
    for (bool duplicates : {false, true})
        test_support::runTraffic(60, 12000, createMap, MapDestroy,
                                 [&](auto &...arguments) { drive(duplicates, arguments...); });
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
