#include "bench/support/row.h"

#include "general/map.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

/// The keys 0 to count - 1 in random order.
std::vector<uint32_t> makeKeys(uint32_t count)
{
    std::vector<uint32_t> keys(count);
    std::iota(keys.begin(), keys.end(), 0u);
    std::shuffle(keys.begin(), keys.end(), std::mt19937(count));
    return keys;
}

struct GeneralMap {
    Map *map = MapCreate(0);
    ~GeneralMap() { MapDestroy(map); }
    void insert(uint32_t key) { MapAdd(map, key, key); }
    uint32_t find(uint32_t key)
    {
        uint32_t value = 0;
        MapFind(map, key, &value);
        return value;
    }
    void remove(uint32_t key) { MapRemove(map, key); }
    uint32_t walk()
    {
        uint32_t sum = 0;
        uint32_t key = 0;
        uint32_t value = 0;
        for (uint32_t stat = MapFirst(map, &key, &value); stat == MAP_OK; stat = MapNext(map, key, &key, &value))
            sum += value;
        return sum;
    }
};

struct StdMap {
    std::unordered_map<uint32_t, uint32_t> map;
    void insert(uint32_t key) { map.emplace(key, key); }
    uint32_t find(uint32_t key)
    {
        auto found = map.find(key);
        return found == map.end() ? 0 : found->second;
    }
    void remove(uint32_t key) { map.erase(key); }
    uint32_t walk()
    {
        uint32_t sum = 0;
        for (auto &[key, value] : map)
            sum += value;
        return sum;
    }
};

template<typename Dictionary>
void fill(Dictionary &dictionary, const std::vector<uint32_t> &keys)
{
    for (uint32_t key : keys)
        dictionary.insert(key);
}

/// Every key plus an offset in turn, in another random order than that of insertion.
template<typename Dictionary>
void findAll(benchmark::State &state, uint32_t count, uint32_t offset)
{
    auto keys = makeKeys(count);
    Dictionary dictionary;
    fill(dictionary, keys);
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(dictionary.find(keys[i] + offset));
        i = i + 1 == keys.size() ? 0 : i + 1;
    }
}

template<typename Dictionary>
void walk(benchmark::State &state, uint32_t count)
{
    Dictionary dictionary;
    fill(dictionary, makeKeys(count));
    for (auto _ : state)
        benchmark::DoNotOptimize(dictionary.walk());
}

template<typename Dictionary>
void insertAll(benchmark::State &state, uint32_t count)
{
    auto keys = makeKeys(count);
    for (auto _ : state) {
        auto *dictionary = new Dictionary;
        fill(*dictionary, keys);
        state.PauseTiming();
        delete dictionary;
        state.ResumeTiming();
    }
}

template<typename Dictionary>
void removeAll(benchmark::State &state, uint32_t count)
{
    auto keys = makeKeys(count);
    for (auto _ : state) {
        state.PauseTiming();
        Dictionary dictionary;
        fill(dictionary, keys);
        state.ResumeTiming();
        for (uint32_t key : keys)
            dictionary.remove(key);
    }
}

/// The map's records, for a look at them without a call: what its layout allows at best.
struct MapRecord {
    struct Entry {
        uint32_t key;
        uint32_t value;
        Entry *next;
    };
    uint32_t magic;
    Entry **buckets;
    uint32_t bucketCount;
};

uint32_t bucketOf(const MapRecord *record, uint32_t key)
{
    return ((((key >> 4) ^ key) >> 4) ^ key) & (record->bucketCount - 1);
}

struct InlinedMap : GeneralMap {
    const MapRecord *record() const { return reinterpret_cast<const MapRecord *>(map); }
    uint32_t find(uint32_t key)
    {
        const MapRecord::Entry *entry = record()->buckets[bucketOf(record(), key)];
        while (entry != nullptr && entry->key != key)
            entry = entry->next;
        return entry == nullptr ? 0 : entry->value;
    }
    uint32_t walk()
    {
        uint32_t sum = 0;
        for (uint32_t i = 0; i < record()->bucketCount; ++i)
            for (const MapRecord::Entry *entry = record()->buckets[i]; entry != nullptr; entry = entry->next)
                sum += entry->value;
        return sum;
    }
};

/// The same records looked at by calls through pointers, as those of a DLL are, that check nothing.
uint32_t findOne(const MapRecord *record, uint32_t key, uint32_t *value)
{
    const MapRecord::Entry *entry = record->buckets[bucketOf(record, key)];
    while (entry != nullptr && entry->key != key)
        entry = entry->next;
    if (entry == nullptr)
        return MAP_NOT_FOUND;
    *value = entry->value;
    return MAP_OK;
}

uint32_t stepOn(const MapRecord *record, uint32_t currentKey, uint32_t *key, uint32_t *value)
{
    constexpr uint32_t prefetchDistance = 8;
    uint32_t index = bucketOf(record, currentKey);
    const MapRecord::Entry *entry = record->buckets[index];
    while (entry->next != nullptr && entry->key != currentKey)
        entry = entry->next;
    entry = entry->next;
    while (entry == nullptr) {
        if (++index == record->bucketCount)
            return MAP_NOT_FOUND;
        entry = record->buckets[index];
        __builtin_prefetch(record->buckets[(index + prefetchDistance) & (record->bucketCount - 1)]);
    }
    *key = entry->key;
    *value = entry->value;
    return MAP_OK;
}

struct BareMap : InlinedMap {
    decltype(&findOne) findCall = findOne;
    decltype(&stepOn) stepCall = stepOn;
    BareMap()
    {
        benchmark::DoNotOptimize(findCall);
        benchmark::DoNotOptimize(stepCall);
    }
    uint32_t find(uint32_t key)
    {
        uint32_t value = 0;
        findCall(record(), key, &value);
        return value;
    }
    uint32_t walk()
    {
        uint32_t sum = 0;
        uint32_t key = 0;
        uint32_t value = 0;
        for (uint32_t stat = MapFirst(map, &key, &value); stat == MAP_OK; stat = stepCall(record(), key, &key, &value))
            sum += value;
        return sum;
    }
};

template<typename Dictionary>
void contendOne(const char *contender, uint32_t count, bool ours)
{
    std::string suffix = ", " + std::to_string(count);
    double findAim = ours ? 0.9 : 0;
    double aim = ours ? 1.0 : 0;
    double walkAim = ours ? 0.5 : 0;
    auto row = [&](const std::string &task, double rowAim, auto work) {
        bench::contend("map: " + task + suffix, contender, work, rowAim);
    };
    row("find a key", findAim, [count](benchmark::State &state) { findAll<Dictionary>(state, count, 0); });
    row("miss a key", findAim, [count](benchmark::State &state) { findAll<Dictionary>(state, count, count); });
    row("insert all", aim, [count](benchmark::State &state) { insertAll<Dictionary>(state, count); });
    row("remove all", aim, [count](benchmark::State &state) { removeAll<Dictionary>(state, count); });
    row("iterate", walkAim, [count](benchmark::State &state) { walk<Dictionary>(state, count); });
}

const bool registered = [] {
    for (uint32_t count : {1000u, 10000u, 100000u, 1000000u}) {
        contendOne<GeneralMap>("general", count, true);
        contendOne<StdMap>("std::unordered_map", count, false);
        std::string suffix = ", " + std::to_string(count);
        bench::contend(
            "map: find a key" + suffix, "limit: bare calls",
            [count](benchmark::State &state) { findAll<BareMap>(state, count, 0); }, 0.9);
        bench::contend(
            "map: iterate" + suffix, "limit: bare calls",
            [count](benchmark::State &state) { walk<BareMap>(state, count); }, 0.9);
        bench::contend("map: find a key" + suffix, "limit: inlined",
                       [count](benchmark::State &state) { findAll<InlinedMap>(state, count, 0); });
        bench::contend("map: iterate" + suffix, "limit: inlined",
                       [count](benchmark::State &state) { walk<InlinedMap>(state, count); });
    }
    return true;
}();

} // namespace
