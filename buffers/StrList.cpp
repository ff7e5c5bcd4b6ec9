#include "base/module_id.h"

#include "buffers/text_growth.h"

#include "general/strlist.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

GENERAL_MODULE_ID("$Id$");

static_assert(offsetof(StrList, allocated) == 4 && offsetof(StrList, growthIncrement) == 8);
static_assert(offsetof(StrList, used) == 12 && offsetof(StrList, count) == 16 && sizeof(StrList) == 20);

namespace {

constexpr int64_t largestBuffer = INT32_MAX;

/// The recorded size of the buffer. Failed appends lower it, at times below zero, so it is a signed
/// number in the record's unsigned field; read as unsigned it would promise memory that is not there.
int64_t allocatedBytes(const StrList *list)
{
    return static_cast<int32_t>(list->allocated);
}

} // namespace

void StrListInit(StrList *list, uint32_t size, uint32_t growthIncrement)
{
    auto *buffer = size > largestBuffer ? nullptr : static_cast<char *>(malloc(size));
    *list = StrList{.buffer = buffer,
                    .allocated = buffer == nullptr ? 0 : size,
                    .growthIncrement = growthIncrement,
                    .used = 0,
                    .count = 0};
}

char *StrListAppend(StrList *list, const char *string)
{
    size_t size = strlen(string) + 1;
    int64_t allocated = allocatedBytes(list);
    int64_t used = int64_t{list->used} + size;
    if (used > allocated && !general::growText(list->buffer, list->allocated, used, list->growthIncrement)) {
        // Callers see the size lowered by a string that was not stored.
        list->allocated = static_cast<uint32_t>(std::max(allocated - int64_t{size}, int64_t{INT32_MIN}));
        return nullptr;
    }
    char *copy = list->buffer + list->used;
    memcpy(copy, string, size);
    list->used = static_cast<uint32_t>(used);
    ++list->count;
    return copy;
}

void StrListDestroy(StrList *list)
{
    free(list->buffer);
    *list = StrList{};
}
