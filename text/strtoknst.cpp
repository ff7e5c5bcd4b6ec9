#include "base/module_id.h"

#include "text/byte_set.h"

#include "general/strings.h"

GENERAL_MODULE_ID("$Id$");

namespace {

/// The characters that end a token: the delimiters and the terminator.
class TokenEnds {
public:
    explicit TokenEnds(const char *delims)
    {
        do
            bytes_.add(*delims);
        while (*delims++ != '\0');
    }

    char *skipDelimiters(char *string) const
    {
        while (*string != '\0' && bytes_.holds(*string))
            ++string;
        return string;
    }

    char *find(char *string) const
    {
        while (!bytes_.holds(*string))
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

    TokenEnds ends(delims);
    char *token = ends.skipDelimiters(*save);
    if (*token == '\0')
        return nullptr;
    char *end = ends.find(token);
    if (*end == '\0') {
        *save = nullptr;
        return token;
    }
    char *next = ends.skipDelimiters(end);
    *save = *next == '\0' ? nullptr : next;
    *end = '\0';
    return token;
}
