/// @file
/// Tokens in a loop, the system's error texts, and functions of other libraries, over strings.h, errortext.h and
/// dynld.h.
///
///     for (char *word : general::tokens(line, " \t"))
///         count(word);

#ifndef GENERAL_TEXT_HPP
#define GENERAL_TEXT_HPP

#include "general/core.hpp"
#include "general/dynld.h"
#include "general/errortext.h"
#include "general/strings.h"

#include <string_view>

namespace general {

namespace c {
using DynLdStat = ::GENERAL_TYPE(DynLdStat);
}

/// strtoknst: the tokens of a string, none of them empty, for one loop, which cuts the string into them.
inline auto tokens(char *string, const char *delims) noexcept
{
    struct Tokens {
        const char *delims;
        char *rest;
        char *token;

        Tokens &begin() noexcept { return *this; }
        detail::End end() const noexcept { return {}; }
        char *operator*() const noexcept { return token; }
        Tokens &operator++() noexcept
        {
            token = strtoknst(nullptr, delims, &rest);
            return *this;
        }
        bool operator!=(detail::End) const noexcept { return token != nullptr; }
    };
    char *rest = nullptr;
    char *token = strtoknst(string, delims, &rest);
    return Tokens{delims, rest, token};
}

/// GetErrorText without the line break at its end, until the next call.
inline std::string_view errorText(unsigned code) noexcept
{
    std::string_view text(GetErrorText(code));
    return text.substr(0, text.find_last_not_of("\r\n") + 1);
}

/// DynLd: a function of a library that is loaded if need be, `symbol<int (__cdecl *)(int)>("msvcrt", "abs")`.
template<typename Function>
Outcome<Function, c::DynLdStat> symbol(const char *library, const char *name) noexcept
{
    return Outcome<Function, c::DynLdStat>([&](Function *function) {
        void *address = nullptr;
        int result = DynLd(library, name, &address, nullptr, 0);
        *function = reinterpret_cast<Function>(address);
        return result;
    });
}

#if GENERAL_EXCEPTIONS
/// @cond
template<>
inline constexpr const char *statusName<c::DynLdStat> = "DynLdStat";
/// @endcond
#endif

} // namespace general

#endif
