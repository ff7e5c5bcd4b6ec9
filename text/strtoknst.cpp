#include "base/module_id.h"

#include "text/byte_set.h"

#include "general/strings.h"

GENERAL_MODULE_ID("$Id$");

namespace {

/// The delimiters, which the terminator is none of.
class Delimiters {
public:
    explicit Delimiters(const char *characters)
    {
        for (; *characters != '\0'; ++characters)
            bytes_.add(*characters);
    }

    char *skip(char *string) const
    {
        while (bytes_.holds(*string))
            ++string;
        return string;
    }

    char *find(char *string) const
    {
        while (*string != '\0' && !bytes_.holds(*string))
            ++string;
        return string;
    }

private:
    general::ByteSet bytes_;
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
