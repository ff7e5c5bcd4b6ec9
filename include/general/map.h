/// @file
/// Hash map from 32-bit keys to 32-bit values, for integers or for pointers used as integers.
///
/// Entries hang in chains from a power of two of buckets, which doubles when there would be more
/// entries than buckets. Keys and values are stored as given: nothing is copied or freed on the
/// caller's behalf. A map is not locked: callers serialise access to one map.

#ifndef GENERAL_MAP_H
#define GENERAL_MAP_H

#include "general/api.h"
#include "general/names.h"

/// A map. Opaque to callers.
typedef struct Map Map;

/// Outcome of the calls that return one.
typedef enum MapStat {
    MAP_OK = 0,         ///< done
    MAP_BAD_HANDLE = 1, ///< null, or not a live map
    MAP_NO_MEMORY = 2,  ///< memory is exhausted
    MAP_NOT_FOUND = 3   ///< no entry with that key, or no further entry
} MapStat;

/// Last-error codes of MapCreate: the C runtime's error numbers for the same two things.
enum { MAP_ERROR_NO_MEMORY = 12, MAP_ERROR_INVALID_ARGUMENT = 22 };

/// Makes an empty map.
/// @param bucketCount  buckets to begin with, a power of two; 0 for the default of 1024
/// @return the map, which the caller hands to MapDestroy; or null with the thread's last-error code
///         set to 22 (bucketCount is neither 0 nor a power of two) or 12 (memory is exhausted)
GENERAL_API Map *GENERAL_CALL MapCreate(uint32_t bucketCount);

/// Frees the map and its entries.
/// @param map  a live map
/// @return MAP_OK or MAP_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL MapDestroy(Map *map);

/// Adds an entry, in constant time on average. There is no check for duplicates: a second entry with
/// the same key hides the first from MapFind, until the buckets next double: that turns chains
/// round, and the older entry is found.
/// @param map    a live map
/// @param key    any 32-bit value
/// @param value  any 32-bit value
/// @return MAP_OK, MAP_BAD_HANDLE or MAP_NO_MEMORY. With MAP_NO_MEMORY nothing is added, and yet the
///         count that MapSize reports is one higher from then on
GENERAL_API uint32_t GENERAL_CALL MapAdd(Map *map, uint32_t key, uint32_t value);

/// Finds the value of a key, in constant time on average.
/// @param map    a live map
/// @param key    the key looked for
/// @param value  receives the value; not null
/// @return MAP_OK; MAP_BAD_HANDLE or MAP_NOT_FOUND with value untouched
GENERAL_API uint32_t GENERAL_CALL MapFind(const Map *map, uint32_t key, uint32_t *value);

/// Removes every entry with a key, duplicates included.
/// @param map  a live map
/// @param key  the key looked for
/// @return MAP_OK if there was at least one, MAP_BAD_HANDLE or MAP_NOT_FOUND
GENERAL_API uint32_t GENERAL_CALL MapRemove(Map *map, uint32_t key);

/// Begins an iteration. The order is that of the buckets, which says nothing about the keys.
/// @param map    a live map
/// @param key    receives the first entry's key; not null
/// @param value  receives its value; not null
/// @return MAP_OK; MAP_NOT_FOUND with both set to 0 if the map is empty; MAP_BAD_HANDLE with both
///         untouched
GENERAL_API uint32_t GENERAL_CALL MapFirst(const Map *map, uint32_t *key, uint32_t *value);

/// Takes an iteration one step on. Entries other than the current one may be removed on the way;
/// entries that are added may double the buckets, which changes the order. A map that holds
/// duplicates is iterated for ever: each duplicate leads to the successor of the first.
/// @param map         a live map
/// @param currentKey  the key that the last step gave
/// @param key         receives the next entry's key; not null
/// @param value       receives its value; not null
/// @return MAP_OK; MAP_NOT_FOUND with both set to 0 after the last entry, or if currentKey is not in
///         the map; MAP_BAD_HANDLE with both untouched
GENERAL_API uint32_t GENERAL_CALL MapNext(const Map *map, uint32_t currentKey, uint32_t *key, uint32_t *value);

/// The number of entries, plus one for each MapAdd that found memory exhausted.
/// @param map  a live map
/// @return the count; 0 if the map is null or not live
GENERAL_API int32_t GENERAL_CALL MapSize(const Map *map);

#include "general/names.h"

#endif
