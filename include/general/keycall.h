/// @file
/// Registry of (key, callback, data) triples in the order in which they were added. It hands out
/// fresh keys and stores the triples; it never invokes a callback.
///
/// Searches are linear, and the first match counts. Output pointers may be null, and are untouched on
/// failure. A registry is not locked: callers serialise access to one registry.

#ifndef GENERAL_KEYCALL_H
#define GENERAL_KEYCALL_H

#include "general/api.h"
#include "general/names.h"

/// A registry. Opaque to callers.
typedef struct KeyCall KeyCall;

/// Outcome of the calls that return one.
typedef enum KeyCallStat {
    KEYCALL_OK = 0,         ///< done
    KEYCALL_BAD_HANDLE = 1, ///< null, or not a live registry
    KEYCALL_NO_ENTRY = 2,   ///< no entry with that key or at that index, or none at all
    KEYCALL_NO_MEMORY = 3   ///< memory is exhausted
} KeyCallStat;

/// Makes an empty registry.
/// @return the registry, which the caller hands to KeyCallDestroy; null if memory is exhausted
GENERAL_API KeyCall *GENERAL_CALL KeyCallCreate(void);

/// Frees the registry and its entries.
/// @param registry  a live registry
/// @return KEYCALL_OK or KEYCALL_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL KeyCallDestroy(KeyCall *registry);

/// Gives out a fresh key: 1, 2, 3 ...
/// @param registry  a live registry
/// @return the key; 0 if the registry is not live
GENERAL_API uint32_t GENERAL_CALL KeyCallNext(KeyCall *registry);

/// Appends an entry, in time linear in the number of entries. Keys may repeat.
/// @param registry  a live registry
/// @param key       any number
/// @param callback  stored as given
/// @param data      stored as given
/// @return KEYCALL_OK, KEYCALL_BAD_HANDLE or KEYCALL_NO_MEMORY
GENERAL_API uint32_t GENERAL_CALL KeyCallAdd(KeyCall *registry, uint32_t key, void *callback, void *data);

/// Removes the first entry with a key and hands it out.
/// @param registry  a live registry
/// @param key       the key looked for
/// @param callback  receives what was stored
/// @param data      receives what was stored
/// @return KEYCALL_OK, KEYCALL_BAD_HANDLE or KEYCALL_NO_ENTRY
GENERAL_API uint32_t GENERAL_CALL KeyCallRmv(KeyCall *registry, uint32_t key, void **callback, void **data);

/// Removes the oldest entry and hands it out.
/// @param registry  a live registry
/// @param key       receives its key
/// @param callback  receives what was stored
/// @param data      receives what was stored
/// @return KEYCALL_OK, KEYCALL_BAD_HANDLE or KEYCALL_NO_ENTRY
GENERAL_API uint32_t GENERAL_CALL KeyCallRmvAny(KeyCall *registry, uint32_t *key, void **callback, void **data);

/// Shows the first entry with a key. It stays.
/// @param registry  a live registry
/// @param key       the key looked for
/// @param callback  receives what was stored
/// @param data      receives what was stored
/// @return KEYCALL_OK, KEYCALL_BAD_HANDLE or KEYCALL_NO_ENTRY
GENERAL_API uint32_t GENERAL_CALL KeyCallGet(const KeyCall *registry, uint32_t key, void **callback, void **data);

/// Shows the entry at an index. It stays.
/// @param registry  a live registry
/// @param index     0 is the oldest entry
/// @param key       receives its key
/// @param callback  receives what was stored
/// @param data      receives what was stored
/// @return KEYCALL_OK, KEYCALL_BAD_HANDLE or KEYCALL_NO_ENTRY (also for a negative index)
GENERAL_API uint32_t GENERAL_CALL KeyCallGetI(const KeyCall *registry, int32_t index, uint32_t *key, void **callback,
                                              void **data);

#include "general/names.h"

#endif
