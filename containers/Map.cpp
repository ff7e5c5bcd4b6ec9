#include "base/checked_size.h"
#include "base/handle_magic.h"
#include "base/last_error.h"
#include "base/module_id.h"

#include "general/map.h"

#include <stddef.h>
#include <stdlib.h>

GENERAL_MODULE_ID("$Id$");

namespace {

struct Entry {
    uint32_t key;
    uint32_t value;
    Entry *next; ///< in the same bucket
};

} // namespace

struct Map {
    uint32_t magic;
    Entry **buckets;
    int32_t bucketCount; ///< a power of two
    int32_t entryCount;
    int32_t growthThreshold; ///< -1 before the first buckets exist, then the bucket count
};

static_assert(offsetof(Map, buckets) == 4 && offsetof(Map, bucketCount) == 8 && offsetof(Map, entryCount) == 12);
static_assert(offsetof(Map, growthThreshold) == 16 && sizeof(Map) == 20);
static_assert(offsetof(Entry, value) == 4 && offsetof(Entry, next) == 8 && sizeof(Entry) == 12);

template<>
constexpr uint32_t general::liveMagic<Map> = 0x4D415020;

namespace {

constexpr uint32_t defaultBucketCount = 1024;
constexpr size_t bucketSize = sizeof(void *);

/// How many buckets ahead of an iteration the entries are fetched into the cache.
constexpr uint32_t prefetchDistance = 8;

bool isLive(const Map *map)
{
    return general::isLive(map) && map->buckets != nullptr;
}

bool isPowerOfTwo(uint32_t number)
{
    return number != 0 && (number & (number - 1)) == 0;
}

uint32_t bucketMask(const Map *map)
{
    return static_cast<uint32_t>(map->bucketCount) - 1;
}

uint32_t bucketOf(uint32_t key, uint32_t mask)
{
    return ((((key >> 4) ^ key) >> 4) ^ key) & mask;
}

/// Pushes every entry onto the front of its new bucket, so that entries which stay together end up
/// in reverse order.
void moveEntries(const Map *map, Entry **buckets, uint32_t newMask)
{
    for (int32_t i = 0; i < map->bucketCount; ++i)
        for (Entry *entry = map->buckets[i]; entry != nullptr;) {
            Entry *following = entry->next;
            Entry **bucket = &buckets[bucketOf(entry->key, newMask)];
            entry->next = *bucket;
            *bucket = entry;
            entry = following;
        }
}

/// Gives the map `count` buckets, a power of two. When that fails, it keeps those that it has.
MapStat rehash(Map *map, uint32_t count)
{
    size_t size = 0;
    if (!general::checkedProduct(count, bucketSize, size))
        return MAP_NO_MEMORY;
    auto **buckets = static_cast<Entry **>(calloc(count, bucketSize));
    if (buckets == nullptr)
        return MAP_NO_MEMORY;

    if (map->buckets != nullptr)
        moveEntries(map, buckets, count - 1);
    free(map->buckets);
    map->buckets = buckets;
    map->bucketCount = static_cast<int32_t>(count);
    map->growthThreshold = map->bucketCount;
    return MAP_OK;
}

[[gnu::noinline]] MapStat doubleBuckets(Map *map)
{
    return rehash(map, static_cast<uint32_t>(map->bucketCount) * 2);
}

MapStat report(const Entry *entry, uint32_t *key, uint32_t *value)
{
    *key = entry == nullptr ? 0 : entry->key;
    *value = entry == nullptr ? 0 : entry->value;
    return entry == nullptr ? MAP_NOT_FOUND : MAP_OK;
}

/// The head of the first bucket at or after an index that has entries; null if there is none.
const Entry *headFrom(const Map *map, uint32_t index)
{
    uint32_t mask = bucketMask(map);
    for (; index <= mask; ++index)
        if (const Entry *head = map->buckets[index]) {
            __builtin_prefetch(map->buckets[(index + prefetchDistance) & mask]);
            return head;
        }
    return nullptr;
}

} // namespace

Map *MapCreate(uint32_t bucketCount)
{
    if (bucketCount != 0 && !isPowerOfTwo(bucketCount)) {
        general::setLastError(MAP_ERROR_INVALID_ARGUMENT);
        return nullptr;
    }
    auto *map = static_cast<Map *>(malloc(sizeof(Map)));
    if (map == nullptr) {
        general::setLastError(MAP_ERROR_NO_MEMORY);
        return nullptr;
    }
    *map = Map{
        .magic = general::liveMagic<Map>, .buckets = nullptr, .bucketCount = 0, .entryCount = 0, .growthThreshold = -1};
    if (rehash(map, bucketCount == 0 ? defaultBucketCount : bucketCount) != MAP_OK) {
        general::clearMagic(map->magic);
        free(map);
        general::setLastError(MAP_ERROR_NO_MEMORY);
        return nullptr;
    }
    return map;
}

uint32_t MapDestroy(Map *map)
{
    if (!isLive(map))
        return MAP_BAD_HANDLE;

    general::clearMagic(map->magic);
    for (int32_t i = 0; i < map->bucketCount; ++i)
        for (Entry *entry = map->buckets[i]; entry != nullptr;) {
            Entry *following = entry->next;
            free(entry);
            entry = following;
        }
    free(map->buckets);
    free(map);
    return MAP_OK;
}

uint32_t MapAdd(Map *map, uint32_t key, uint32_t value)
{
    if (!isLive(map))
        return MAP_BAD_HANDLE;

    // Counted before there is an entry, and not uncounted when there will be none: callers that
    // watch MapSize see a failed add as one entry more.
    map->entryCount = static_cast<int32_t>(static_cast<uint32_t>(map->entryCount) + 1);
    if (map->entryCount > map->growthThreshold && doubleBuckets(map) != MAP_OK)
        return MAP_NO_MEMORY;
    auto *entry = static_cast<Entry *>(malloc(sizeof(Entry)));
    if (entry == nullptr)
        return MAP_NO_MEMORY;

    Entry **bucket = &map->buckets[bucketOf(key, bucketMask(map))];
    *entry = Entry{.key = key, .value = value, .next = *bucket};
    *bucket = entry;
    return MAP_OK;
}

uint32_t MapFind(const Map *map, uint32_t key, uint32_t *value)
{
    if (!isLive(map)) [[unlikely]]
        return MAP_BAD_HANDLE;

    const Entry *entry = map->buckets[bucketOf(key, bucketMask(map))];
    while (entry != nullptr && entry->key != key)
        entry = entry->next;
    if (entry == nullptr)
        return MAP_NOT_FOUND;
    *value = entry->value;
    return MAP_OK;
}

uint32_t MapRemove(Map *map, uint32_t key)
{
    if (!isLive(map))
        return MAP_BAD_HANDLE;

    MapStat stat = MAP_NOT_FOUND;
    for (Entry **link = &map->buckets[bucketOf(key, bucketMask(map))]; *link != nullptr;) {
        Entry *entry = *link;
        if (entry->key != key) {
            link = &entry->next;
            continue;
        }
        *link = entry->next;
        free(entry);
        --map->entryCount;
        stat = MAP_OK;
    }
    return stat;
}

uint32_t MapFirst(const Map *map, uint32_t *key, uint32_t *value)
{
    if (!isLive(map))
        return MAP_BAD_HANDLE;

    return report(headFrom(map, 0), key, value);
}

uint32_t MapNext(const Map *map, uint32_t currentKey, uint32_t *key, uint32_t *value)
{
    if (!isLive(map))
        return MAP_BAD_HANDLE;

    uint32_t index = bucketOf(currentKey, bucketMask(map));
    const Entry *entry = map->buckets[index];
    if (entry == nullptr)
        return report(nullptr, key, value);
    for (; entry->next != nullptr; entry = entry->next)
        if (entry->key == currentKey)
            return report(entry->next, key, value);
    return report(entry->key == currentKey ? headFrom(map, index + 1) : nullptr, key, value);
}

int32_t MapSize(const Map *map)
{
    return isLive(map) ? map->entryCount : 0;
}
