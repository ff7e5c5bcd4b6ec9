#include "base/block_copy.h"
#include "base/checked_size.h"
#include "base/handle_magic.h"
#include "base/module_id.h"

#include "general/cbuf.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

GENERAL_MODULE_ID("$Id$");

struct CBuf {
    uint32_t magic;
    unsigned char *data;
    uint32_t length;
    uint32_t allocated; ///< bytes; what was last asked for if data is null
    uint32_t quantum;   ///< not 0
    uint32_t flags;
    uint32_t wholeQuanta; ///< how much of the memory is whole quanta: the longest contents that fit; 0 without data
};

static_assert(offsetof(CBuf, data) == 4 && offsetof(CBuf, length) == 8 && offsetof(CBuf, allocated) == 12);
static_assert(offsetof(CBuf, quantum) == 16 && offsetof(CBuf, flags) == 20);

template<>
constexpr uint32_t general::liveMagic<CBuf> = 0x000499B6;

namespace {

constexpr uint32_t ownsData = 1;

using general::isLive;

/// To be called after every change of memory or quantum.
void noteMemory(CBuf *buffer)
{
    buffer->wholeQuanta = buffer->data == nullptr ? 0 : buffer->allocated / buffer->quantum * buffer->quantum;
}

[[gnu::noinline]] CBufStat setLengthSlowly(CBuf *buffer, uint32_t length)
{
    size_t rounded = 0;
    if (!general::checkedSum(buffer->quantum, length - 1, rounded))
        return CBUF_BAD_MALLOC;
    uint32_t size = rounded / buffer->quantum * buffer->quantum;
    if (buffer->data == nullptr) {
        // Recorded before it is there: after a failure the next attempt, finding no data, allocates again.
        buffer->allocated = size;
        buffer->data = static_cast<unsigned char *>(malloc(size));
        if (buffer->data == nullptr)
            return CBUF_BAD_MALLOC;
    } else if (size > buffer->allocated) {
        auto *data = static_cast<unsigned char *>(realloc(buffer->data, size));
        if (data == nullptr)
            return CBUF_BAD_MALLOC;
        buffer->data = data;
        buffer->allocated = size;
    }
    noteMemory(buffer);
    buffer->length = length;
    return CBUF_OK;
}

/// Sets the length, with memory for it. New bytes are not initialised.
CBufStat setLength(CBuf *buffer, uint32_t length)
{
    if (length > buffer->wholeQuanta)
        return setLengthSlowly(buffer, length);
    buffer->length = length;
    return CBUF_OK;
}

CBufStat extend(CBuf *buffer, uint32_t count)
{
    size_t length = 0;
    return general::checkedSum(buffer->length, count, length) ? setLength(buffer, length) : CBUF_BAD_MALLOC;
}

/// Appends any number of bytes.
[[gnu::noinline]] CBufStat append(CBuf *buffer, const void *source, uint32_t count)
{
    uint32_t end = buffer->length;
    CBufStat stat = extend(buffer, count);
    if (stat == CBUF_OK)
        general::copyBytes(buffer->data + end, source, count);
    return stat;
}

} // namespace

CBuf *CBufCreate(uint32_t quantum)
{
    auto *buffer = quantum == 0 ? nullptr : static_cast<CBuf *>(malloc(sizeof(CBuf)));
    if (buffer != nullptr)
        *buffer = CBuf{.magic = general::liveMagic<CBuf>,
                       .data = nullptr,
                       .length = 0,
                       .allocated = 0,
                       .quantum = quantum,
                       .flags = ownsData,
                       .wholeQuanta = 0};
    return buffer;
}

uint32_t CBufDestroy(CBuf *buffer)
{
    if (!isLive(buffer))
        return CBUF_BAD_HANDLE;

    general::clearMagic(buffer->magic);
    if (buffer->flags & ownsData)
        free(buffer->data);
    free(buffer);
    return CBUF_OK;
}

uint32_t CBufAppend(CBuf *buffer, const void *source, uint32_t count)
{
    if (!isLive(buffer))
        return CBUF_BAD_HANDLE;
    if (count != 1 || buffer->length >= buffer->wholeQuanta)
        return append(buffer, source, count);

    // Byte by byte is how a buffer is often filled.
    buffer->data[buffer->length] = *static_cast<const unsigned char *>(source);
    ++buffer->length;
    return CBUF_OK;
}

uint32_t CBufGetAppend(CBuf *buffer, void **room, uint32_t count)
{
    if (!isLive(buffer))
        return CBUF_BAD_HANDLE;
    uint32_t end = buffer->length;
    CBufStat stat = extend(buffer, count);
    if (stat == CBUF_OK)
        *room = buffer->data + end;
    return stat;
}

uint32_t CBufSet(CBuf *buffer, const void *source, uint32_t count)
{
    if (!isLive(buffer))
        return CBUF_BAD_HANDLE;
    CBufStat stat = setLength(buffer, count);
    if (stat == CBUF_OK)
        general::copyBytes(buffer->data, source, count);
    return stat;
}

uint32_t CBufInsert(CBuf *buffer, const void *source, uint32_t offset, uint32_t count)
{
    if (!isLive(buffer))
        return CBUF_BAD_HANDLE;
    uint32_t end = buffer->length;
    if (offset == CBUF_END)
        offset = end;
    if (offset > end)
        return CBUF_BAD_SIZE;
    CBufStat stat = extend(buffer, count);
    if (stat != CBUF_OK)
        return stat;
    if (count == 0)
        return CBUF_OK;

    unsigned char *place = buffer->data + offset;
    memmove(place + count, place, end - offset);
    if (source != nullptr)
        memcpy(place, source, count);
    return CBUF_OK;
}

uint32_t CBufGetInsert(CBuf *buffer, void **room, uint32_t offset, uint32_t count)
{
    uint32_t stat = CBufInsert(buffer, nullptr, offset, count);
    // From the offset as given: CBUF_END wraps to the byte before the data. The address is set
    // on every return, for compatibility.
    uintptr_t base = stat == CBUF_BAD_HANDLE ? 0 : reinterpret_cast<uintptr_t>(buffer->data) + offset;
    *room = reinterpret_cast<void *>(base);
    return stat;
}

uint32_t CBufCut(CBuf *buffer, void *destination, uint32_t offset, uint32_t count)
{
    if (!isLive(buffer))
        return CBUF_BAD_HANDLE;
    size_t end = 0;
    if (!general::checkedSum(offset, count, end) || end > buffer->length)
        return CBUF_BAD_SIZE;
    if (count == 0)
        return CBUF_OK;

    unsigned char *range = buffer->data + offset;
    if (destination != nullptr)
        memcpy(destination, range, count);
    memmove(range, range + count, buffer->length - end);
    buffer->length -= count;
    return CBUF_OK;
}

uint32_t CBufGet(const CBuf *buffer, void **data, uint32_t *length)
{
    if (!isLive(buffer))
        return CBUF_BAD_HANDLE;

    if (data != nullptr)
        *data = buffer->data;
    if (length != nullptr)
        *length = buffer->length;
    return CBUF_OK;
}

uint32_t CBufReset(CBuf *buffer)
{
    if (!isLive(buffer))
        return CBUF_BAD_HANDLE;

    buffer->length = 0;
    return CBUF_OK;
}

uint32_t CBufClear(CBuf *buffer)
{
    if (!isLive(buffer))
        return CBUF_BAD_HANDLE;

    free(buffer->data);
    buffer->data = nullptr;
    buffer->length = 0;
    buffer->allocated = 0;
    noteMemory(buffer);
    return CBUF_OK;
}

uint32_t CBufShrink(CBuf *buffer)
{
    if (!isLive(buffer))
        return CBUF_BAD_HANDLE;
    if (buffer->length == 0) // a heap takes a reallocation to nothing as a request to free
        return CBufClear(buffer);

    auto *data = static_cast<unsigned char *>(realloc(buffer->data, buffer->length));
    if (data == nullptr)
        return CBUF_BAD_MALLOC;
    buffer->data = data;
    buffer->allocated = buffer->length;
    noteMemory(buffer);
    return CBUF_OK;
}

uint32_t CBufSetQuantum(CBuf *buffer, uint32_t quantum)
{
    if (!isLive(buffer))
        return CBUF_BAD_HANDLE;
    if (quantum == 0)
        return CBUF_BAD_QUANTUM;

    buffer->quantum = quantum;
    noteMemory(buffer);
    return CBUF_OK;
}

const char *CBufStatStr(int32_t stat)
{
    static constexpr const char *names[] = {"CBUF_OK", "CBUF_BAD_HANDLE", "CBUF_BAD_MALLOC", "CBUF_BAD_QUANTUM",
                                            "CBUF_BAD_SIZE"};
    bool known = stat >= 0 && static_cast<size_t>(stat) < sizeof names / sizeof names[0];
    return known ? names[stat] : "Bad cbufStat value";
}
