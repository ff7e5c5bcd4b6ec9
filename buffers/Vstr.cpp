#include "base/handle_magic.h"
#include "base/module_id.h"

#include "buffers/text_growth.h"

#include "general/vstr.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

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

template<>
constexpr uint32_t general::liveMagic<Vstr> = 0x0005DAB2;

namespace {

using general::isLive;

} // namespace

Vstr *VstrCreate(int32_t growthIncrement)
{
    auto *string = growthIncrement < 1 ? nullptr : static_cast<Vstr *>(malloc(sizeof(Vstr)));
    if (string != nullptr)
        *string = Vstr{.magic = general::liveMagic<Vstr>,
                       .buffer = nullptr,
                       .length = 0,
                       .allocated = 0,
                       .growthIncrement = growthIncrement};
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
    if (length > string->allocated &&
        !general::growText(string->buffer, string->allocated, length, string->growthIncrement))
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
