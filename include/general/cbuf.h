/// @file
/// Growable byte buffer.
///
/// The memory grows to a whole number of quanta, a size that the caller chooses per buffer, so that a
/// run of small appends causes few reallocations. It only ever grows, except through CBufShrink, which
/// cuts it to the contents, and CBufClear. Growth is linear: filling a buffer by small appends copies it
/// as often as its length holds the quantum. Bytes to copy may not overlap the buffer's own memory. A
/// buffer is not locked: callers serialise access to one buffer.

#ifndef GENERAL_CBUF_H
#define GENERAL_CBUF_H

#include "general/api.h"
#include "general/names.h"

/// A buffer. Opaque to callers.
typedef struct CBuf CBuf;

/// Outcome of every buffer call. After any but CBUF_OK contents and length are unchanged.
typedef enum CBufStat {
    CBUF_OK = 0,          ///< done
    CBUF_BAD_HANDLE = 1,  ///< null, or not a live buffer
    CBUF_BAD_MALLOC = 2,  ///< memory is exhausted, or the length would exceed the address space
    CBUF_BAD_QUANTUM = 3, ///< quantum 0
    CBUF_BAD_SIZE = 4     ///< offset or range outside the contents
} CBufStat;

/// The offset that stands for the end of the contents.
#define CBUF_END 0xFFFFFFFFu

/// Makes an empty buffer, without memory for contents yet.
/// @param quantum  bytes by which the memory grows, not 0. Any contents take at least as much, so a
///                 quantum that cannot be had makes every append fail
/// @return the buffer, which the caller hands to CBufDestroy; null if the quantum is 0 or memory is
///         exhausted
GENERAL_API CBuf *GENERAL_CALL CBufCreate(uint32_t quantum);

/// Frees the buffer and its contents.
/// @param buffer  a live buffer
/// @return CBUF_OK or CBUF_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL CBufDestroy(CBuf *buffer);

/// Appends a copy of some bytes.
/// @param buffer  a live buffer
/// @param source  count bytes
/// @param count   how many bytes
/// @return CBUF_OK, CBUF_BAD_HANDLE or CBUF_BAD_MALLOC
GENERAL_API uint32_t GENERAL_CALL CBufAppend(CBuf *buffer, const void *source, uint32_t count);

/// Makes the contents longer, for the caller to fill.
/// @param buffer  a live buffer
/// @param room    receives the address of the new bytes, which are not initialised; valid until the next
///                call that may grow or free the memory; untouched on failure; not null
/// @param count   how many bytes
/// @return CBUF_OK, CBUF_BAD_HANDLE or CBUF_BAD_MALLOC
GENERAL_API uint32_t GENERAL_CALL CBufGetAppend(CBuf *buffer, void **room, uint32_t count);

/// Replaces the contents with a copy of some bytes.
/// @param buffer  a live buffer
/// @param source  count bytes
/// @param count   how many bytes
/// @return CBUF_OK, CBUF_BAD_HANDLE or CBUF_BAD_MALLOC
GENERAL_API uint32_t GENERAL_CALL CBufSet(CBuf *buffer, const void *source, uint32_t count);

/// Inserts bytes before an offset. What follows moves up.
/// @param buffer  a live buffer
/// @param source  count bytes, or null to leave the inserted ones uninitialised
/// @param offset  0 to the length; CBUF_END appends
/// @param count   how many bytes
/// @return CBUF_OK, CBUF_BAD_HANDLE, CBUF_BAD_SIZE (offset beyond the length) or CBUF_BAD_MALLOC,
///         looked for in that order
GENERAL_API uint32_t GENERAL_CALL CBufInsert(CBuf *buffer, const void *source, uint32_t offset, uint32_t count);

/// Inserts bytes before an offset, for the caller to fill.
/// @param buffer  a live buffer
/// @param room    receives the address of the contents plus offset, whatever the result: with CBUF_END
///                that is one byte before the contents, so give the length as the offset to append. It
///                receives null if the buffer is not live; not null itself
/// @param offset  0 to the length; CBUF_END appends
/// @param count   how many bytes
/// @return as CBufInsert
GENERAL_API uint32_t GENERAL_CALL CBufGetInsert(CBuf *buffer, void **room, uint32_t offset, uint32_t count);

/// Removes a range of bytes. What follows moves down; the memory stays allocated.
/// @param buffer       a live buffer
/// @param destination  receives the count bytes, or null to discard them
/// @param offset       where the range begins
/// @param count        how many bytes
/// @return CBUF_OK, CBUF_BAD_HANDLE or CBUF_BAD_SIZE (the range ends beyond the length)
GENERAL_API uint32_t GENERAL_CALL CBufCut(CBuf *buffer, void *destination, uint32_t offset, uint32_t count);

/// Shows the contents in place.
/// @param buffer  a live buffer
/// @param data    receives their address, null if no memory was needed yet; valid until the next call
///                that may grow or free the memory; may be null
/// @param length  receives their length in bytes; may be null
/// @return CBUF_OK or CBUF_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL CBufGet(const CBuf *buffer, void **data, uint32_t *length);

/// Empties the buffer and keeps its memory.
/// @param buffer  a live buffer
/// @return CBUF_OK or CBUF_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL CBufReset(CBuf *buffer);

/// Empties the buffer and frees its memory.
/// @param buffer  a live buffer
/// @return CBUF_OK or CBUF_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL CBufClear(CBuf *buffer);

/// Gives back all memory beyond the contents; the whole of it if there are none.
/// @param buffer  a live buffer
/// @return CBUF_OK, CBUF_BAD_HANDLE or CBUF_BAD_MALLOC
GENERAL_API uint32_t GENERAL_CALL CBufShrink(CBuf *buffer);

/// Changes the quantum for growth to come.
/// @param buffer   a live buffer
/// @param quantum  bytes by which the memory grows, not 0
/// @return CBUF_OK, CBUF_BAD_HANDLE or CBUF_BAD_QUANTUM (it is 0; the old one stays)
GENERAL_API uint32_t GENERAL_CALL CBufSetQuantum(CBuf *buffer, uint32_t quantum);

/// The name of a result, such as "CBUF_OK".
/// @param stat  what a call returned
/// @return a constant text; "Bad cbufStat value" for any other number
GENERAL_API const char *GENERAL_CALL CBufStatStr(int32_t stat);

#include "general/names.h"

#endif
