/// @file
/// Pool of a fixed number of reusable work buffers.
///
/// A released buffer keeps its memory, and its contents, for the next grab; it is enlarged only when
/// a grab asks for more than it has, and never shrinks. A pool is not locked: callers serialise
/// access to one pool.

#ifndef GENERAL_BUFPOOL_H
#define GENERAL_BUFPOOL_H

#include "general/api.h"
#include "general/names.h"

/// A pool. Opaque to callers.
typedef struct BufPool BufPool;

/// Makes a pool whose buffers have no memory yet.
/// @param slotCount    how many buffers may be in use at a time, at least 1
/// @param maximumSize  the largest size that may be asked for, not 0
/// @return the pool, which the caller hands to BufPoolDestroy; null if an argument is out of range or
///         memory is exhausted
GENERAL_API BufPool *GENERAL_CALL BufPoolCreate(int32_t slotCount, uint32_t maximumSize);

/// Frees the pool and all its buffers, also those in use.
/// @param pool  a live pool
/// @return 0, also for null; -1 if it is not a live pool
GENERAL_API int32_t GENERAL_CALL BufPoolDestroy(BufPool *pool);

/// Takes a buffer out of the pool, in time linear in the number of slots.
/// @param pool  a live pool
/// @param size  bytes that it must have
/// @return the buffer, which the caller hands to BufPoolRelease; null if the pool is not live, size
///         exceeds the maximum, all buffers are in use, or memory is exhausted
GENERAL_API void *GENERAL_CALL BufPoolGrab(BufPool *pool, uint32_t size);

/// Puts a buffer back into the pool. Putting a buffer back twice counts it twice: BufPoolAvail then
/// reports more than there is.
/// @param pool    a live pool
/// @param buffer  what BufPoolGrab gave
/// @return 0; -1 if the pool is not live, or buffer is null or not one of the pool's
GENERAL_API int32_t GENERAL_CALL BufPoolRelease(BufPool *pool, const void *buffer);

/// Tells how many buffers can be grabbed.
/// @param pool  a live pool
/// @return the number; -1 if the pool is not live
GENERAL_API int32_t GENERAL_CALL BufPoolAvail(const BufPool *pool);

/// Changes the largest size that may be asked for. Existing buffers are left as they are.
/// @param pool         a live pool
/// @param maximumSize  the new limit in bytes
/// @return 0; -1 if the pool is not live
GENERAL_API int32_t GENERAL_CALL BufPoolResetMaxSize(BufPool *pool, uint32_t maximumSize);

#include "general/names.h"

#endif
