/// @file
/// Registry of callbacks that are invoked together, in the order in which they were added.
///
/// A callback may call every function on its own registry. Entries that it adds run in the same pass;
/// entries that it removes do not run any more; and a registry that it destroys is freed when the
/// outermost ActionDo returns, after the rest of the pass has run. Callbacks have to return: after one
/// that leaves by longjmp or an exception, what is removed is never freed, nor is the registry. A
/// registry is not locked: callers serialise access to one registry.

#ifndef GENERAL_ACTION_H
#define GENERAL_ACTION_H

#include "general/api.h"
#include "general/names.h"

/// A registry. Opaque to callers.
typedef struct Action Action;

/// What an entry invokes, with ActionDo's first argument, the entry's own data, and ActionDo's second
/// argument.
typedef void(GENERAL_CALL *ActionCallback)(void *first, void *userData, void *second);

/// Outcome of the calls that return one.
typedef enum ActionStat {
    ACTION_OK = 0,         ///< done
    ACTION_BAD_HANDLE = 1, ///< null, or not a registry
    ACTION_NO_ENTRY = 3    ///< no such entry, or nowhere to put the count
} ActionStat;

/// Makes an empty registry.
/// @return the registry, which the caller hands to ActionDestroy; null if memory is exhausted
GENERAL_API Action *GENERAL_CALL ActionCreate(void);

/// Frees the registry and its entries; while an ActionDo runs on it, as soon as the outermost returns.
/// Nothing marks a destroyed registry: do not use it again.
/// @param action  a live registry
/// @return ACTION_OK or ACTION_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL ActionDestroy(Action *action);

/// Appends an entry, in time linear in the number of entries.
/// @param action    a live registry
/// @param callback  what to invoke; null for an entry that does nothing
/// @param userData  handed to it
/// @return the entry's id, 1 or more and never given twice; 0 if the registry is not live, memory is
///         exhausted, or all 2^31 - 1 ids have been given
GENERAL_API int32_t GENERAL_CALL ActionAdd(Action *action, ActionCallback callback, void *userData);

/// Removes the entry with an id. While an ActionDo runs, a removed entry is still found: removing it again
/// gives ACTION_OK and changes nothing.
/// @param action  a live registry
/// @param id      what ActionAdd gave
/// @return ACTION_OK, ACTION_BAD_HANDLE or ACTION_NO_ENTRY
GENERAL_API uint32_t GENERAL_CALL ActionRmv(Action *action, int32_t id);

/// Removes the first entry with a callback. While an ActionDo runs, that may be one removed already, as
/// for ActionRmv, even if there is another behind it: remove several of one callback by their ids.
/// @param action    a live registry
/// @param callback  the callback as it was added
/// @return ACTION_OK, ACTION_BAD_HANDLE or ACTION_NO_ENTRY
GENERAL_API uint32_t GENERAL_CALL ActionRmvCall(Action *action, ActionCallback callback);

/// Removes every entry.
/// @param action  a live registry
/// @return ACTION_OK or ACTION_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL ActionRmvAll(Action *action);

/// Invokes every entry.
/// @param action  a live registry
/// @param first   handed to each callback
/// @param second  handed to each callback
/// @return ACTION_OK or ACTION_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL ActionDo(Action *action, void *first, void *second);

/// Counts the entries that have not been removed.
/// @param action  a live registry
/// @param count   receives their number
/// @return ACTION_OK, ACTION_BAD_HANDLE or ACTION_NO_ENTRY (count is null), looked for in that order
GENERAL_API uint32_t GENERAL_CALL ActionCount(const Action *action, uint32_t *count);

#include "general/names.h"

#endif
