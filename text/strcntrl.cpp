#include "base/module_id.h"

#include "general/strings.h"

#include <ctype.h>
#include <stdint.h>

GENERAL_MODULE_ID("$Id$");

namespace {

/// Names of the bytes below the space; null where the byte is copied or written in hexadecimal.
/// 17 and 19 go by their part in flow control, 18 and 20 by their number as device controls.
constexpr const char *names[' '] = {nullptr, "<SOH>", "<STX>", "<ETX>",  "<EOT>", "<ENQ>", "<ACK>", "<BEL>",
                                    nullptr, nullptr, "<LF>",  nullptr,  nullptr, "<CR>",  nullptr, nullptr,
                                    nullptr, "<XON>", "<DC2>", "<XOFF>", "<DC4>", "<NAK>", "<SYN>", nullptr,
                                    nullptr, nullptr, nullptr, nullptr,  nullptr, nullptr, nullptr, nullptr};

constexpr unsigned char deleteCharacter = 0x7F;

/// Whether a byte is a letter, digit, punctuation or blank. In ASCII no locale changes that.
bool isVisible(unsigned char byte)
{
    if (byte < deleteCharacter)
        return byte >= ' ' || byte == '\t';
    return byte != deleteCharacter && (isalnum(byte) != 0 || ispunct(byte) != 0);
}

char *append(char *dst, const char *text)
{
    while (*text != '\0')
        *dst++ = *text++;
    return dst;
}

/// Appends a byte as "<0x%X>" writes its value as a signed number widened to int.
char *appendHexadecimal(char *dst, unsigned char byte)
{
    constexpr unsigned signExtension = 0x80;
    dst = append(dst, byte >= signExtension ? "<0xFFFFFF" : "<0x");
    if (byte > 0xF)
        *dst++ = "0123456789ABCDEF"[byte >> 4];
    *dst++ = "0123456789ABCDEF"[byte & 0xF];
    *dst++ = '>';
    return dst;
}

} // namespace

int strcntrl(char *dst, const char *src)
{
    if (dst == nullptr)
        return 0;
    *dst = '\0';
    if (src == nullptr)
        return 0;
    for (; *src != '\0'; ++src) {
        auto byte = static_cast<unsigned char>(*src);
        if (isVisible(byte))
            *dst++ = *src;
        else if (byte < ' ' && names[byte] != nullptr)
            dst = append(dst, names[byte]);
        else
            dst = appendHexadecimal(dst, byte);
    }
    *dst = '\0';
    return 1;
}
