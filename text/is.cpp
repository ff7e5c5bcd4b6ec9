#include "base/module_id.h"
#include "text/small_letter.h"

#include "general/validators.h"

#include <ctype.h>
#include <stdlib.h>

GENERAL_MODULE_ID("$Id$");

namespace {

using general::smallLetter;

bool isDigit(char character)
{
    return isdigit(static_cast<unsigned char>(character)) != 0;
}

bool isLetter(char character)
{
    return isalpha(static_cast<unsigned char>(character)) != 0 || character == '_';
}

bool equalIgnoringCase(const char *left, const char *right)
{
    for (; smallLetter(*left) == smallLetter(*right); ++left, ++right)
        if (*left == '\0')
            return true;
    return false;
}

const char *afterMinus(const char *s)
{
    return s != nullptr && *s == '-' ? s + 1 : s;
}

struct BooleanWord {
    const char *word;
    int value;
};

constexpr BooleanWord booleanWords[] = {{"on", 1},  {"yes", 1}, {"true", 1},  {"1", 1},
                                        {"off", 0}, {"no", 0},  {"false", 0}, {"0", 0}};

/// By how many bits the letter after a number shifts it.
unsigned unitShift(char letter)
{
    switch (letter) {
    case 'M':
    case 'm':
        return 20;
    case 'K':
    case 'k':
        return 10;
    default:
        return 0;
    }
}

} // namespace

int isnatural(const char *s)
{
    if (s == nullptr || *s == '\0')
        return 0;
    for (; *s != '\0'; ++s)
        if (!isDigit(*s))
            return 0;
    return 1;
}

int isinteger(const char *s)
{
    return isnatural(afterMinus(s));
}

int isreal(const char *s)
{
    s = afterMinus(s);
    if (s == nullptr || *s == '\0')
        return 0;
    bool hasPoint = false;
    for (; *s != '\0'; ++s) {
        bool isFirstPoint = *s == '.' && !hasPoint;
        if (!isDigit(*s) && !isFirstPoint)
            return 0;
        hasPoint = hasPoint || isFirstPoint;
    }
    return 1;
}

int isboolean(const char *s, int *value)
{
    if (s == nullptr || value == nullptr)
        return 0;
    for (const BooleanWord &known : booleanWords)
        if (equalIgnoringCase(s, known.word)) {
            *value = known.value;
            return 1;
        }
    return 0;
}

int issize(const char *s, unsigned *size)
{
    if (s == nullptr)
        return 0;
    char *end = nullptr;
    auto number = static_cast<unsigned>(strtol(s, &end, 0)); // negative numbers wrap
    if (end == s)
        return 0;
    if (size != nullptr)
        *size = number << unitShift(*end);
    return 1;
}

int isident(const char *s)
{
    if (s == nullptr || !isLetter(*s))
        return 0;
    int length = 1;
    for (; s[length] != '\0'; ++length)
        if (!isLetter(s[length]) && !isDigit(s[length]))
            return 0;
    return length;
}
