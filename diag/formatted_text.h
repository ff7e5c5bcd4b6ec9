/// @file
/// Text of any length, put together and formatted by the system's C runtime: inside the object where
/// it fits, else on the heap. When memory is exhausted the text is cut, not lost.

#pragma once

#include <stdarg.h>
#include <stddef.h>

namespace general {

class FormattedText {
public:
    FormattedText() = default;
    ~FormattedText();
    FormattedText(const FormattedText &) = delete;
    FormattedText &operator=(const FormattedText &) = delete;

    void append(const char *part);
    /// @param format  null appends nothing
    void appendFormatted(const char *format, va_list arguments);
    /// Appends a newline; where the text was cut, in place of its last character.
    void endLine();

    /// The text, with a zero at its end. Valid until the next change.
    const char *text() const { return text_; }
    size_t length() const { return length_; }

private:
    bool reserve(size_t extra);

    static constexpr size_t roomInside = 1024;
    char inside_[roomInside] = "";
    char *text_ = inside_;
    size_t room_ = roomInside;
    size_t length_ = 0;
};

} // namespace general
