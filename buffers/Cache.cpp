#include "base/checked_size.h"
#include "base/handle_magic.h"
#include "base/module_id.h"

#include "general/cache.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

GENERAL_MODULE_ID("$Id$");

namespace {

struct Slot {
    int32_t valid; ///< 1 while it holds a value
    int32_t references;
    int32_t lastUse; ///< by the cache's clock; 0 for never
    void *value;
    void *key; ///< kept when the value goes
    int32_t keyLength;
};

} // namespace

struct Cache {
    uint32_t magic;
    int32_t slotsInUse; ///< the first ones; those behind are fresh
    int32_t capacity;
    Slot *slots;
    int32_t clock; ///< counts accesses
    CacheMake make;
    CacheDispose dispose;
};

static_assert(offsetof(Cache, slotsInUse) == 4 && offsetof(Cache, capacity) == 8 && offsetof(Cache, slots) == 12);
static_assert(offsetof(Cache, clock) == 16 && offsetof(Cache, make) == 20 && offsetof(Cache, dispose) == 24);
static_assert(sizeof(Cache) == 28);
static_assert(offsetof(Slot, references) == 4 && offsetof(Slot, lastUse) == 8 && offsetof(Slot, value) == 12);
static_assert(offsetof(Slot, key) == 16 && offsetof(Slot, keyLength) == 20 && sizeof(Slot) == 24);

template<>
constexpr uint32_t general::liveMagic<Cache> = 0x43616331;

namespace {

constexpr int32_t growthStep = 10;
constexpr int32_t largestSteppedCapacity = 40; ///< beyond it, growth is by a quarter
constexpr int32_t freshKeyLength = 4;
constexpr int32_t none = -1;

using general::isLive;

bool hasKey(const Slot &slot, const void *key, int32_t length)
{
    return slot.keyLength == length && (length == 0 || memcmp(slot.key, key, static_cast<size_t>(length)) == 0);
}

/// Makes fresh slots; all of them or none.
bool makeFresh(Slot *slots, int32_t first, int32_t end)
{
    for (int32_t i = first; i < end; ++i) {
        void *key = calloc(freshKeyLength, 1);
        if (key == nullptr) {
            while (i-- > first)
                free(slots[i].key);
            return false;
        }
        slots[i] =
            Slot{.valid = 0, .references = 0, .lastUse = 0, .value = nullptr, .key = key, .keyLength = freshKeyLength};
    }
    return true;
}

/// Adds fresh slots up to a capacity. A failure leaves those that there were.
bool growTo(Cache *cache, int32_t capacity)
{
    size_t size = 0;
    if (!general::checkedProduct(static_cast<uint32_t>(capacity), sizeof(Slot), size))
        return false;
    auto *slots = static_cast<Slot *>(realloc(cache->slots, size));
    if (slots == nullptr)
        return false;
    cache->slots = slots;
    if (!makeFresh(slots, cache->capacity, capacity))
        return false;
    cache->capacity = capacity;
    return true;
}

bool grow(Cache *cache)
{
    bool byStep = cache->capacity <= largestSteppedCapacity;
    return growTo(cache, cache->capacity + (byStep ? growthStep : cache->capacity / 4));
}

/// The time of the next access. A clock that has reached its end is set back to the middle with all
/// times of use halved, which keeps their order but for neighbours, and keeps 0 for "never" alone.
int32_t tick(Cache *cache)
{
    if (cache->clock == INT32_MAX) {
        for (int32_t i = 0; i < cache->slotsInUse; ++i)
            cache->slots[i].lastUse -= cache->slots[i].lastUse / 2;
        cache->clock -= cache->clock / 2;
    }
    return ++cache->clock;
}

struct Scan {
    int32_t match = none;  ///< the slot that holds the key's value
    int32_t victim = none; ///< else the unreferenced slot least recently used, the first among equals
};

Scan scanSlots(const Cache *cache, const void *key, int32_t length)
{
    Scan scan;
    int32_t oldest = cache->clock;
    for (int32_t i = 0; i < cache->slotsInUse; ++i) {
        const Slot &slot = cache->slots[i];
        if (slot.valid && hasKey(slot, key, length)) {
            scan.match = i;
            return scan;
        }
        if (slot.references == 0 && slot.lastUse < oldest) {
            oldest = slot.lastUse;
            scan.victim = i;
        }
    }
    return scan;
}

bool setKey(Slot &slot, const void *key, int32_t length)
{
    if (length > slot.keyLength) {
        void *copy = realloc(slot.key, static_cast<size_t>(length));
        if (copy == nullptr)
            return false;
        slot.key = copy;
    }
    slot.keyLength = length;
    if (length != 0)
        memcpy(slot.key, key, static_cast<size_t>(length));
    return true;
}

/// Takes a slot without references for a key and has its value made. The maker may access other keys:
/// the reference keeps them from taking this slot, and since all slots may move meanwhile, it is found
/// again by its index.
CacheStat fill(Cache *cache, int32_t index, const void *key, uint32_t length, void *argument)
{
    Slot *slot = &cache->slots[index];
    if (slot->valid)
        cache->dispose(slot->key, slot->keyLength, slot->value);
    slot->valid = 0;
    slot->references = 1;
    slot->lastUse = cache->clock;
    slot->value = nullptr;
    if (length > INT32_MAX || !setKey(*slot, key, static_cast<int32_t>(length)))
        return CACHE_NO_MEMORY;

    void *value = nullptr;
    cache->make(slot->key, slot->keyLength, &value, argument);
    slot = &cache->slots[index];
    slot->value = value;
    slot->valid = 1;
    return CACHE_OK;
}

/// The first slot with a key, whether or not it holds a value; null if there is none.
Slot *findKey(const Cache *cache, const void *key, int32_t length)
{
    for (int32_t i = 0; i < cache->slotsInUse; ++i)
        if (hasKey(cache->slots[i], key, length))
            return &cache->slots[i];
    return nullptr;
}

} // namespace

Cache *CacheCreate(int32_t size, CacheMake make, CacheDispose dispose)
{
    auto *cache = static_cast<Cache *>(malloc(sizeof(Cache)));
    if (cache == nullptr)
        return nullptr;
    *cache = Cache{.magic = general::liveMagic<Cache>,
                   .slotsInUse = 0,
                   .capacity = 0,
                   .slots = nullptr,
                   .clock = 0,
                   .make = make,
                   .dispose = dispose};
    if (size > 0 && !growTo(cache, size)) {
        free(cache->slots);
        free(cache);
        return nullptr;
    }
    cache->slotsInUse = cache->capacity;
    return cache;
}

uint32_t CacheAccess(Cache *cache, const void *key, uint32_t length, void **value, void *argument)
{
    if (!isLive(cache))
        return CACHE_BAD_HANDLE;

    int32_t now = tick(cache);
    Scan scan = scanSlots(cache, key, static_cast<int32_t>(length));
    if (scan.match != none) {
        Slot &slot = cache->slots[scan.match];
        slot.lastUse = now;
        ++slot.references;
        *value = slot.value;
        return CACHE_OK;
    }
    int32_t index = scan.victim;
    if (index == none) {
        if (cache->slotsInUse == cache->capacity && !grow(cache))
            return CACHE_NO_MEMORY;
        index = cache->slotsInUse++;
    }
    CacheStat stat = fill(cache, index, key, length, argument);
    if (stat == CACHE_OK)
        *value = cache->slots[index].value;
    return stat;
}

uint32_t CacheFinish(Cache *cache, const void *key, int32_t length)
{
    if (!isLive(cache))
        return CACHE_BAD_HANDLE;
    Slot *slot = findKey(cache, key, length);
    if (slot == nullptr)
        return CACHE_NO_ENTRY;
    if (slot->references == 0)
        return CACHE_NO_REFERENCE;

    --slot->references;
    return CACHE_OK;
}

uint32_t CacheRemove(Cache *cache, const void *key, int32_t length)
{
    if (!isLive(cache))
        return CACHE_BAD_HANDLE;
    Slot *slot = findKey(cache, key, length);
    if (slot == nullptr)
        return CACHE_NO_ENTRY;

    if (slot->valid)
        cache->dispose(slot->key, slot->keyLength, slot->value);
    slot->valid = 0;
    slot->references = 0;
    slot->lastUse = 0;
    return CACHE_OK;
}

uint32_t CacheDelete(Cache *cache)
{
    if (!isLive(cache))
        return CACHE_BAD_HANDLE;

    for (int32_t i = 0; i < cache->slotsInUse; ++i) {
        const Slot &slot = cache->slots[i];
        if (slot.valid)
            cache->dispose(slot.key, slot.keyLength, slot.value);
    }
    for (int32_t i = 0; i < cache->capacity; ++i)
        free(cache->slots[i].key);
    general::clearMagic(cache->magic);
    free(cache->slots);
    free(cache);
    return CACHE_OK;
}
