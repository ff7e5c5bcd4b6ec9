/// @file
/// Cache of expensive values under byte-string keys.
///
/// Each access finds the key's value, or has it made by a callback, and takes a reference on it, which
/// CacheFinish drops. Values without references may be evicted, the least recently used first; when
/// every value is referenced, the cache grows instead. Look-up is a linear scan that compares
/// lengths first. Both callbacks have to return: one that leaves by longjmp or an exception leaves a
/// slot behind that is taken for ever. A cache is not locked: callers serialise access to one cache.

#ifndef GENERAL_CACHE_H
#define GENERAL_CACHE_H

#include "general/api.h"
#include "general/names.h"

/// A cache. Opaque to callers.
typedef struct Cache Cache;

/// Makes the value for a key. It may access, finish and remove other keys of the same cache, but none that
/// is being made itself, and must not delete the cache. A maker that has no value to give leaves null: the
/// access then succeeds with null, which is cached as any other value is. Give it up by CacheRemove to have
/// the next access try again.
/// @param key       the cache's own copy of the key
/// @param length    its length in bytes
/// @param value     receives the value; null until it is written
/// @param argument  what CacheAccess was given
typedef void(GENERAL_CALL *CacheMake)(const void *key, int32_t length, void **value, void *argument);

/// Disposes of a value; null comes here too, where a maker left it. It must not call into the same cache.
typedef void(GENERAL_CALL *CacheDispose)(const void *key, int32_t length, void *value);

/// Outcome of every cache call but CacheCreate.
typedef enum CacheStat {
    CACHE_OK = 0,           ///< done
    CACHE_NO_MEMORY = 1,    ///< memory is exhausted
    CACHE_NO_ENTRY = 2,     ///< no slot holds that key
    CACHE_NO_REFERENCE = 3, ///< the key's slot holds no reference
    CACHE_BAD_HANDLE = 4    ///< null, or not a live cache
} CacheStat;

/// Makes a cache.
/// @param size     slots to begin with; 0 or less begins without and grows on the first access
/// @param make     makes values; not null
/// @param dispose  disposes of them; not null
/// @return the cache, which the caller hands to CacheDelete; null if memory is exhausted
GENERAL_API Cache *GENERAL_CALL CacheCreate(int32_t size, CacheMake make, CacheDispose dispose);

/// Finds a key's value, or makes it, and takes a reference on it. A value that has to give way is
/// disposed of first.
/// @param cache     a live cache
/// @param key       length bytes, which are copied
/// @param length    the key's length in bytes
/// @param value     receives the value; untouched on failure; not null
/// @param argument  handed to the callback that makes the value
/// @return CACHE_OK, CACHE_BAD_HANDLE or CACHE_NO_MEMORY. When a longer key cannot be copied, its slot
///         stays taken by a reference under its old key, without a value
GENERAL_API uint32_t GENERAL_CALL CacheAccess(Cache *cache, const void *key, uint32_t length, void **value,
                                              void *argument);

/// Drops one reference on a key's value. The value stays cached.
///
/// This looks at the keys of all slots, also of those whose value is gone and of those never used,
/// which hold four zero bytes: such a slot answers CACHE_NO_REFERENCE.
/// @param cache   a live cache
/// @param key     length bytes
/// @param length  the key's length in bytes
/// @return CACHE_OK, CACHE_BAD_HANDLE, CACHE_NO_ENTRY or CACHE_NO_REFERENCE
GENERAL_API uint32_t GENERAL_CALL CacheFinish(Cache *cache, const void *key, int32_t length);

/// Disposes of a key's value, referenced or not, and frees its slot. Looks keys up as CacheFinish
/// does; a slot without a value answers CACHE_OK.
/// @param cache   a live cache
/// @param key     length bytes
/// @param length  the key's length in bytes
/// @return CACHE_OK, CACHE_BAD_HANDLE or CACHE_NO_ENTRY
GENERAL_API uint32_t GENERAL_CALL CacheRemove(Cache *cache, const void *key, int32_t length);

/// Disposes of every value, referenced or not, in the order of the slots, and frees the cache.
/// @param cache  a live cache
/// @return CACHE_OK or CACHE_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL CacheDelete(Cache *cache);

#include "general/names.h"

#endif
