#include "general/map.h"

#include "base/last_error.h"
#include "tests/support/handles.h"

#include <algorithm>
#include <deque>
#include <map>
#include <random>

namespace {

using test_support::HeapWatch;

constexpr size_t bucketCountField = 2;

/// A map beside the values of each key, in the order in which they are found.
struct Traffic {
    std::mt19937 random{4};
    Map *map = MapCreate(1);
    std::map<uint32_t, std::deque<uint32_t>> model;
    int32_t count = 0;
    uint32_t buckets = 1;

    uint32_t anyKey() { return random() % 400 * 0x00800001u; } // collides at every bucket count

    void add(HeapWatch &watch, uint32_t key, uint32_t value)
    {
        uint32_t stat = MapAdd(map, key, value);
        ASSERT_EQ(stat, watch.justFailed() ? MAP_NO_MEMORY : MAP_OK);
        bool grows = ++count > static_cast<int32_t>(buckets); // counted also when it failed
        bool grew = test_support::fieldOf(map, bucketCountField) == 2 * buckets;
        ASSERT_TRUE(stat == MAP_OK ? grew == grows : grows || !grew);
        if (grew) { // turns chains round
            buckets *= 2;
            for (auto &[k, values] : model)
                std::reverse(values.begin(), values.end());
        }
        if (stat == MAP_OK)
            model[key].push_front(value);
    }

    void remove(uint32_t key)
    {
        ASSERT_EQ(MapRemove(map, key), model.count(key) ? MAP_OK : MAP_NOT_FOUND);
        count -= model.count(key) ? static_cast<int32_t>(model[key].size()) : 0;
        model.erase(key);
    }

    void find(uint32_t key)
    {
        auto found = model.find(key);
        bool exists = found != model.end();
        uint32_t value = UINT32_MAX;
        ASSERT_EQ(MapFind(map, key, &value), exists ? MAP_OK : MAP_NOT_FOUND);
        ASSERT_EQ(value, exists ? found->second.front() : UINT32_MAX);
        if (!exists) { // in an empty bucket or beside an entry
            ASSERT_EQ(MapNext(map, key, &key, &value), MAP_NOT_FOUND);
            ASSERT_EQ(key | value, 0u);
        }
    }

    void iterate()
    {
        std::map<uint32_t, std::deque<uint32_t>> seen;
        uint32_t key = 7;
        uint32_t value = 7;
        uint32_t lastBucket = 0;
        uint32_t stat = MapFirst(map, &key, &value);
        for (; stat == MAP_OK && seen.size() <= model.size(); stat = MapNext(map, key, &key, &value)) {
            uint32_t bucket = ((((key >> 4) ^ key) >> 4) ^ key) & (buckets - 1);
            ASSERT_GE(bucket, lastBucket);
            lastBucket = bucket;
            seen[key].push_back(value);
        }
        ASSERT_EQ(seen, model);
        ASSERT_EQ(stat, MAP_NOT_FOUND);
        ASSERT_EQ(key | value, 0u);
    }
};

TEST(Map, BehavesAsAModelUnderRandomTraffic)
{
    for (bool duplicates : {false, true})
        test_support::runTraffic(60, 12000, [duplicates](HeapWatch &watch, int steps) {
            general::setLastError(0);
            Traffic traffic;
            EXPECT_EQ(general::lastError(), traffic.map == nullptr ? 12u : 0u);
            for (int step = 0; step < steps && traffic.map != nullptr && !HasFailure(); ++step) {
                SCOPED_TRACE(step);
                uint32_t key = traffic.anyKey();
                if (traffic.random() % 10 >= 6)
                    traffic.remove(key);
                else if (duplicates || !traffic.model.count(key))
                    traffic.add(watch, key, static_cast<uint32_t>(step));
                traffic.find(traffic.anyKey());
                EXPECT_EQ(MapSize(traffic.map), traffic.count);
                if (!duplicates && step % 100 == 0)
                    traffic.iterate();
            }
            EXPECT_EQ(MapDestroy(traffic.map), traffic.map == nullptr ? MAP_BAD_HANDLE : MAP_OK);
            EXPECT_EQ(watch.wordOfLastFreedBlock(), 0u) << "the magic stays";
        });
}

TEST(Map, RefusesWhatIsNotALiveMapOrAPowerOfTwo)
{
    uint32_t key = 7;
    uint32_t value = 7;
    auto refuses = [&](Map *map) {
        test_support::expectEach(MAP_BAD_HANDLE,
                                 {MapDestroy(map), MapAdd(map, 1, 1), MapFind(map, 1, &value), MapRemove(map, 1),
                                  MapFirst(map, &key, &value), MapNext(map, 1, &key, &value)});
        EXPECT_EQ(MapSize(map), 0);
    };
    test_support::forEachForeign<Map>(refuses);
    uint32_t withoutBuckets[5] = {0x4D415020};
    refuses(reinterpret_cast<Map *>(withoutBuckets));
    EXPECT_EQ(key + value, 14u);

    for (auto [count, error] :
         {std::pair<uint32_t, uint32_t>{1000, 22}, {3, 22}, {0xFFFFFFFF, 22}, {1u << 30, 12}, {1u << 31, 12}}) {
        general::setLastError(0);
        EXPECT_EQ(MapCreate(count), nullptr);
        EXPECT_EQ(general::lastError(), error) << count;
    }
    Map *map = MapCreate(0);
    EXPECT_EQ(test_support::fieldOf(map, bucketCountField), 1024u);
    EXPECT_EQ(MapDestroy(map), MAP_OK);
}

} // namespace
