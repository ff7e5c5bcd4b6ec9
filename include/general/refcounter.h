/// @file
/// Counted handle around a caller's value, with a callback that runs when the last reference goes.
///
/// Counting is plain, not atomic: a counter that threads share needs the caller's lock. Handles are
/// not checked: each function needs a live counter.

#ifndef GENERAL_REFCOUNTER_H
#define GENERAL_REFCOUNTER_H

#include "general/api.h"
#include "general/names.h"

/// A counter. Opaque to callers.
typedef struct RefCounter RefCounter;

/// Disposes of a value whose last reference is gone. The counter is freed when this returns, whatever
/// happens in it: a reference taken in here does not keep it, and dropping one does nothing more. It has
/// to return; the counter is lost if it leaves by longjmp or an exception.
typedef void(GENERAL_CALL *RefCounterRelease)(void *value, void *context);

/// Makes a counter that holds one reference.
/// @param value    the caller's, not interpreted
/// @param release  called once, when the last reference goes; not null
/// @param context  handed to release
/// @return the counter, which its last release frees; null if memory is exhausted
GENERAL_API RefCounter *GENERAL_CALL RefCounterCreate(void *value, RefCounterRelease release, void *context);

/// @param counter  a live counter
/// @return the value
GENERAL_API void *GENERAL_CALL RefCounterGetValue(const RefCounter *counter);

/// @param counter  a live counter
/// @return the number of references
GENERAL_API uint32_t GENERAL_CALL RefCounterGetReferenceCount(const RefCounter *counter);

/// Takes one more reference. There may be 2^32 - 1.
/// @param counter  a live counter
/// @return the counter
GENERAL_API RefCounter *GENERAL_CALL RefCounterAddReference(RefCounter *counter);

/// Drops one reference. With the last one the callback runs, once, and then the counter is freed.
/// @param counter  a live counter
GENERAL_API void GENERAL_CALL RefCounterReleaseReference(RefCounter *counter);

#include "general/names.h"

#endif
