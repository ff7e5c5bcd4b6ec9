/// @file
/// List of (key, object) pairs of 32-bit values in the order in which they were added.
///
/// The pairs lie in one array, which starts at 10 pairs and grows by 10. Keys and objects are opaque
/// 32-bit values, integers or pointers, compared by equality; duplicates are allowed, and look-ups
/// find the first match in linear time. One cursor per list serves iteration: First, Next, Last and
/// the Seek calls leave it behind the pair that they give, the Remove calls on the pair that
/// followed the removed one. So a loop over ArrayLstNext may remove the pair just given by its key or
/// object, provided that no earlier pair has the same.
///
/// A list is not locked: callers serialise access to one list.

#ifndef GENERAL_ARRAYLST_H
#define GENERAL_ARRAYLST_H

#include "general/api.h"
#include "general/names.h"

/// An array list. Opaque to callers.
typedef struct ArrayLst ArrayLst;

/// Outcome of every array list call. After any but ARRAYLST_OK the list is unchanged.
typedef enum ArrayLstStat {
    ARRAYLST_OK = 0,           ///< done
    ARRAYLST_BAD_MALLOC = 1,   ///< memory is exhausted
    ARRAYLST_EMPTY = 2,        ///< no pair, or no further one
    ARRAYLST_INVALID_ARGS = 3, ///< what was to be destroyed is not a list
    ARRAYLST_NO_SUCH_KEY = 4,  ///< no pair with that key
    ARRAYLST_NO_SUCH_LST = 5,  ///< null, or not a live list
    ARRAYLST_NO_SUCH_OBJ = 6   ///< no pair with that object, or at that index
} ArrayLstStat;

/// Makes an empty list.
/// @return the list, which the caller hands to ArrayLstDestroy; null if memory is exhausted
GENERAL_API ArrayLst *GENERAL_CALL ArrayLstCreate(void);

/// Frees the list. Nothing marks a destroyed list: do not use it again.
/// @param list  a live list
/// @return ARRAYLST_OK, also for null; ARRAYLST_INVALID_ARGS if it is not a list
GENERAL_API uint32_t GENERAL_CALL ArrayLstDestroy(ArrayLst *list);

/// Appends a pair.
/// @param list    a live list
/// @param key     any 32-bit value; it may repeat
/// @param object  any 32-bit value
/// @return ARRAYLST_OK, ARRAYLST_NO_SUCH_LST or ARRAYLST_BAD_MALLOC
GENERAL_API uint32_t GENERAL_CALL ArrayLstAdd(ArrayLst *list, uint32_t key, uint32_t object);

/// Removes every pair and rewinds the cursor. The memory is kept for pairs to come.
/// @param list  a live list
/// @return ARRAYLST_OK or ARRAYLST_NO_SUCH_LST
GENERAL_API uint32_t GENERAL_CALL ArrayLstRemoveAll(ArrayLst *list);

/// Removes the first pair with a key; the cursor then stands on the pair that followed it.
/// @param list    a live list
/// @param key     the key looked for
/// @param object  receives its object, or 0 if there is none; untouched if the list is not live; not null
/// @return ARRAYLST_OK, ARRAYLST_NO_SUCH_LST or ARRAYLST_NO_SUCH_KEY
GENERAL_API uint32_t GENERAL_CALL ArrayLstRemove(ArrayLst *list, uint32_t key, uint32_t *object);

/// Removes the first pair with an object; the cursor then stands on the pair that followed it.
/// @param list    a live list
/// @param key     receives its key, or 0 if there is none; untouched if the list is not live; not null
/// @param object  the object looked for
/// @return ARRAYLST_OK, ARRAYLST_NO_SUCH_LST or ARRAYLST_NO_SUCH_OBJ
GENERAL_API uint32_t GENERAL_CALL ArrayLstRemoveObj(ArrayLst *list, uint32_t *key, uint32_t object);

/// Finds the first pair with a key and puts the cursor behind it.
/// @param list    a live list
/// @param key     the key looked for
/// @param object  receives its object, 0 on any failure; not null
/// @return ARRAYLST_OK, ARRAYLST_NO_SUCH_LST or ARRAYLST_NO_SUCH_KEY
GENERAL_API uint32_t GENERAL_CALL ArrayLstSeek(ArrayLst *list, uint32_t key, uint32_t *object);

/// Finds the first pair with an object and puts the cursor behind it.
/// @param list    a live list
/// @param key     receives its key, 0 on any failure; not null
/// @param object  the object looked for
/// @return ARRAYLST_OK, ARRAYLST_NO_SUCH_LST or ARRAYLST_NO_SUCH_OBJ
GENERAL_API uint32_t GENERAL_CALL ArrayLstSeekObj(ArrayLst *list, uint32_t *key, uint32_t object);

/// Gives the first pair.
/// @param list    a live list
/// @param key     receives its key, 0 on any failure; not null
/// @param object  receives its object, 0 on any failure; not null
/// @return ARRAYLST_OK, ARRAYLST_NO_SUCH_LST or ARRAYLST_EMPTY
GENERAL_API uint32_t GENERAL_CALL ArrayLstFirst(ArrayLst *list, uint32_t *key, uint32_t *object);

/// Gives the pair at the cursor and moves the cursor on. Parameters and results as for
/// ArrayLstFirst; ARRAYLST_EMPTY when the cursor is past the last pair.
/// @param list    a live list
/// @param key     receives its key, 0 on any failure; not null
/// @param object  receives its object, 0 on any failure; not null
/// @return as ArrayLstFirst; ARRAYLST_EMPTY when the cursor is past the last pair
GENERAL_API uint32_t GENERAL_CALL ArrayLstNext(ArrayLst *list, uint32_t *key, uint32_t *object);

/// Gives the last pair and puts the cursor past it. Parameters and results as for ArrayLstFirst.
/// @param list    a live list
/// @param key     receives its key, 0 on any failure; not null
/// @param object  receives its object, 0 on any failure; not null
/// @return as ArrayLstFirst
GENERAL_API uint32_t GENERAL_CALL ArrayLstLast(ArrayLst *list, uint32_t *key, uint32_t *object);

/// Tells how many pairs there are.
/// @param list   a live list
/// @param count  receives the number, 0 on failure; not null
/// @return ARRAYLST_OK or ARRAYLST_NO_SUCH_LST
GENERAL_API uint32_t GENERAL_CALL ArrayLstSize(const ArrayLst *list, uint32_t *count);

/// Gives the pair at an index, in constant time and without moving the cursor.
/// @param list    a live list
/// @param key     receives its key, 0 on any failure; may be null
/// @param object  receives its object, 0 on any failure; may be null
/// @param index   0 is the first pair
/// @return ARRAYLST_OK, ARRAYLST_NO_SUCH_LST or ARRAYLST_NO_SUCH_OBJ (index not below the count)
GENERAL_API uint32_t GENERAL_CALL ArrayLstGet(const ArrayLst *list, uint32_t *key, uint32_t *object, uint32_t index);

/// Copies all keys, in order.
/// @param list   a live list
/// @param count  receives their number, 0 on any failure; not null
/// @param keys   receives a new array, which the caller hands to ArrayLstFree; null on any failure; not
///               null
/// @return ARRAYLST_OK, ARRAYLST_NO_SUCH_LST, ARRAYLST_EMPTY or ARRAYLST_BAD_MALLOC
GENERAL_API uint32_t GENERAL_CALL ArrayLstGetKeys(const ArrayLst *list, uint32_t *count, uint32_t **keys);

/// Copies all objects, in order. Parameters and results as for ArrayLstGetKeys.
/// @param list     a live list
/// @param count    receives their number, 0 on any failure; not null
/// @param objects  receives a new array, which the caller hands to ArrayLstFree; null on any failure; not
///                 null
/// @return as ArrayLstGetKeys
GENERAL_API uint32_t GENERAL_CALL ArrayLstGetObjs(const ArrayLst *list, uint32_t *count, uint32_t **objects);

/// Frees an array that ArrayLstGetKeys or ArrayLstGetObjs made; null is allowed.
/// @param array  the array, or null
GENERAL_API void GENERAL_CALL ArrayLstFree(void *array);

/// The name of a result, such as "ARRAYLST_OK".
/// @param stat  what a call returned
/// @return a constant text; "arraylstStat unknown enum value" for any other number
GENERAL_API const char *GENERAL_CALL ArrayLstStatStr(int32_t stat);

#include "general/names.h"

#endif
