#include "base/module_id.h"

#include "general/strings.h"

#include <stdint.h>

GENERAL_MODULE_ID("$Id$");

namespace {

/// A set of byte values that holds neither the terminator nor anything twice.
class Delimiters {
public:
    explicit Delimiters(const char *characters)
    {
        for (; *characters != '\0'; ++characters)
            words_[wordOf(*characters)] |= bitOf(*characters);
    }

    char *skip(char *string) const
    {
        while (holds(*string))
            ++string;
        return string;
    }

    char *find(char *string) const
    {
        while (*string != '\0' && !holds(*string))
            ++string;
        return string;
    }

private:
    static unsigned wordOf(char character) { return static_cast<unsigned char>(character) / 32u; }
    static uint32_t bitOf(char character) { return uint32_t{1} << (static_cast<unsigned char>(character) % 32u); }
    bool holds(char character) const { return (words_[wordOf(character)] & bitOf(character)) != 0; }

    uint32_t words_[8] = {};
};

} // namespace

char *strtoknst(char *string, const char *delims, char **save)
{
    if (delims == nullptr || save == nullptr)
        return nullptr;
    if (string != nullptr)
        *save = string;
    if (*save == nullptr)
        return nullptr;

    Delimiters delimiters(delims);
    char *token = delimiters.skip(*save);
    if (*token == '\0')
        return nullptr;
    char *end = delimiters.find(token);
    if (*end == '\0') {
        *save = nullptr;
        return token;
    }
    char *next = delimiters.skip(end);
    *save = *next == '\0' ? nullptr : next;
    *end = '\0';
    return token;
}
