#include "base/crt_stdio.h"

#include "base/checked_size.h"
#include "base/module_id.h"
#include "diag/formatted_text.h"

#include <stdlib.h>
#include <string.h>

GENERAL_MODULE_ID("$Id$");

namespace general {

namespace {

/// The length of the formatted text; negative where the runtime cannot format it.
int lengthOf(const char *format, va_list arguments)
{
    va_list copy;
    va_copy(copy, arguments);
    int length = _vscprintf(format, copy);
    va_end(copy);
    return length;
}

} // namespace

FormattedText::~FormattedText()
{
    if (text_ != inside_)
        free(text_);
}

/// Makes room for so many characters more.
/// @return false, with the text as it was, when memory is exhausted
bool FormattedText::reserve(size_t extra)
{
    size_t needed = 0;
    if (!checkedSum(length_ + 1, extra, needed))
        return false;
    if (needed <= room_)
        return true;
    bool isInside = text_ == inside_;
    auto *larger = static_cast<char *>(isInside ? malloc(needed) : realloc(text_, needed));
    if (larger == nullptr)
        return false;
    if (isInside)
        memcpy(larger, inside_, length_ + 1);
    text_ = larger;
    room_ = needed;
    return true;
}

void FormattedText::append(const char *part)
{
    size_t partLength = strlen(part);
    if (!reserve(partLength))
        partLength = room_ - 1 - length_;
    memcpy(text_ + length_, part, partLength);
    length_ += partLength;
    text_[length_] = '\0';
}

void FormattedText::appendFormatted(const char *format, va_list arguments)
{
    if (format == nullptr)
        return;
    va_list again;
    va_copy(again, arguments);
    char *end = text_ + length_;
    size_t left = room_ - length_;
    // Where the room is too small, the runtime writes what fits, without a zero at the end.
    int written = _vsnprintf(end, left, format, arguments);
    bool fits = written >= 0 && static_cast<size_t>(written) < left;
    text_[room_ - 1] = '\0';
    if (!fits) {
        int needed = lengthOf(format, again);
        if (needed >= 0 && reserve(static_cast<size_t>(needed)))
            _vsnprintf(text_ + length_, room_ - length_, format, again);
    }
    length_ += strlen(text_ + length_);
    va_end(again);
}

void FormattedText::endLine()
{
    if (!reserve(1))
        --length_;
    text_[length_++] = '\n';
    text_[length_] = '\0';
}

} // namespace general
