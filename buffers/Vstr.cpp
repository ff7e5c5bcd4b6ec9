#include "base/module_id.h"

#include "general/vstr.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

GENERAL_MODULE_ID("$Id$");

struct Vstr {
    uint32_t magic; ///< not cleared on destruction
    char *buffer;
    int32_t length; ///< bytes with the terminating NUL; 0 when empty
    int32_t allocated;
    int32_t growthIncrement; ///< at least 1
};

static_assert(offsetof(Vstr, buffer) == 4 && offsetof(Vstr, length) == 8 && offsetof(Vstr, allocated) == 12);
static_assert(offsetof(Vstr, growthIncrement) == 16 && sizeof(Vstr) == 20);

namespace {

constexpr uint32_t vstrMagic = 0x0005DAB2;

bool isLive(const Vstr *string)
{
    return string != nullptr && string->magic == vstrMagic;
}

bool grow(Vstr *string, int64_t length)
{
    int64_t shortfall = length - string->allocated;
    int64_t size = string->allocated + std::max(shortfall, int64_t{string->growthIncrement});
    void *buffer = size > INT32_MAX ? nullptr : realloc(string->buffer, static_cast<size_t>(size));
    if (buffer == nullptr)
        return false;
    string->buffer = static_cast<char *>(buffer);
    string->allocated = static_cast<int32_t>(size);
    return true;
}

} // namespace

Vstr *VstrCreate(int32_t growthIncrement)
{
    auto *string = growthIncrement < 1 ? nullptr : static_cast<Vstr *>(malloc(sizeof(Vstr)));
    if (string != nullptr)
        *string = Vstr{
            .magic = vstrMagic, .buffer = nullptr, .length = 0, .allocated = 0, .growthIncrement = growthIncrement};
    return string;
}

uint32_t VstrDestroy(Vstr *string)
{
    if (!isLive(string))
        return VSTR_BAD_HANDLE;

    free(string->buffer);
    free(string);
    return VSTR_OK;
}

uint32_t VstrAppend(Vstr *string, const char *text)
{
    if (!isLive(string))
        return VSTR_BAD_HANDLE;

    size_t size = strlen(text) + 1;
    int32_t offset = string->length == 0 ? 0 : string->length - 1; // over the old terminator
    int64_t length = offset + int64_t{size};
    if (length > string->allocated && !grow(string, length))
        return VSTR_NO_MEMORY;
    memcpy(string->buffer + offset, text, size);
    string->length = static_cast<int32_t>(length);
    return VSTR_OK;
}

uint32_t VstrEmpty(Vstr *string)
{
    if (!isLive(string))
        return VSTR_BAD_HANDLE;

    string->length = 0;
    return VSTR_OK;
}

uint32_t VstrGet(const Vstr *string, char **text)
{
    if (!isLive(string))
        return VSTR_BAD_HANDLE;

    *text = string->buffer;
    return VSTR_OK;
}

uint32_t VstrLength(const Vstr *string, int32_t *length)
{
    if (!isLive(string))
        return VSTR_BAD_HANDLE;

    *length = string->length;
    return VSTR_OK;
}
