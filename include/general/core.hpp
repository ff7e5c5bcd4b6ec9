/// @file
/// What the headers for C++ lean on: owners, results, spans, and exceptions that wait for a C call to end.
///
/// The headers are C++17 and use the C interface and nothing else: nothing is exported or allocated here, and
/// neither exceptions nor run-time types are needed. docs/cpp.md is the guide.

#ifndef GENERAL_CORE_HPP
#define GENERAL_CORE_HPP

#include "general/api.h"

#if !(__cplusplus >= 201703L || (defined(_MSVC_LANG) && _MSVC_LANG >= 201703L))
#error "general's headers for C++ need C++17"
#endif

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <type_traits>
#include <utility>

#if defined(__cpp_exceptions) || defined(_CPPUNWIND)
#define GENERAL_EXCEPTIONS 1
#include <cstdio>
#include <exception>
#include <new>
#else
#define GENERAL_EXCEPTIONS 0
#endif

/// The library for C++.
namespace general {

/// The types of the C interface, whatever they are called in this program's global names (names.h).
namespace c {
}

/// Says that a constructor takes a handle over: `Queue<int> queue(general::adopt, handle);`
struct Adopt {};
/// See Adopt.
inline constexpr Adopt adopt{};

/// The result of a call: its family's own enumeration, which only compares with itself. True for success.
template<typename Status>
class [[nodiscard]] Result {
public:
    /// From one of the family's constants.
    constexpr Result(Status status) noexcept : status_(status) {}
    /// From what a C function returns.
    template<typename Number, typename = std::enable_if_t<std::is_integral_v<Number>>>
    constexpr explicit Result(Number code) noexcept : status_(static_cast<Status>(code))
    {
    }

    /// Whether the call succeeded: 0 in every family.
    constexpr explicit operator bool() const noexcept { return status_ == Status{}; }
    /// The family's constant, as for a switch.
    constexpr Status status() const noexcept { return status_; }
    /// Says that this result does not matter.
    constexpr void ignore() const noexcept {}

    friend constexpr bool operator==(Result a, Result b) noexcept { return a.status_ == b.status_; }
    friend constexpr bool operator!=(Result a, Result b) noexcept { return a.status_ != b.status_; }

private:
    Status status_;
};

/// A value, or the reason why there is none. Used as a std::optional is.
template<typename T, typename Status>
class [[nodiscard]] Outcome {
public:
    /// Has the C function write the value: `fill` takes its address and returns the result.
    template<typename Fill, typename = std::enable_if_t<std::is_invocable_v<Fill, T *>>>
    explicit Outcome(Fill &&fill) : status_(static_cast<Status>(fill(&value_)))
    {
    }

    /// Whether there is a value.
    explicit operator bool() const noexcept { return status_ == Status{}; }
    /// The value, which must be there.
    T &operator*() noexcept { return value_; }
    const T &operator*() const noexcept { return value_; }
    T *operator->() noexcept { return &value_; }
    const T *operator->() const noexcept { return &value_; }
    /// The value, or another where there is none.
    T value_or(T other) const { return *this ? value_ : other; }
    /// Success, or the reason.
    Result<Status> result() const noexcept { return status_; }

private:
    T value_;
    Status status_;
};

/// An array of somebody else's. Any container that has data() and size() converts to it.
template<typename T>
class Span {
public:
    constexpr Span() noexcept = default;
    constexpr Span(T *data, std::size_t size) noexcept : data_(data), size_(size) {}
    template<std::size_t Size>
    constexpr Span(T (&array)[Size]) noexcept : data_(array), size_(Size)
    {
    }
    template<typename Container,
             typename = std::enable_if_t<std::is_convertible_v<
                 std::remove_pointer_t<decltype(std::declval<Container &>().data())> (*)[], T (*)[]>>>
    constexpr Span(Container &&container) noexcept : data_(container.data()), size_(container.size())
    {
    }

    constexpr T *data() const noexcept { return data_; }
    constexpr std::size_t size() const noexcept { return size_; }
    constexpr bool empty() const noexcept { return size_ == 0; }
    constexpr T *begin() const noexcept { return data_; }
    constexpr T *end() const noexcept { return data_ + size_; }
    constexpr T &operator[](std::size_t index) const noexcept { return data_[index]; }

private:
    T *data_ = nullptr;
    std::size_t size_ = 0;
};

/// Owns a handle, as std::unique_ptr does, and is as large. Empty after a creation that failed, after a move and
/// after release(): calls on an empty owner answer as the C functions do to null, and may not be made where the C
/// functions do not check.
///
/// Traits has Type, what the handle points to, and `static Destroyed destroy(Type *)`, which gives a Result, true for
/// success where the family has no enumeration, or nothing where the C function returns nothing.
template<typename Traits>
class Owner {
public:
    /// What the handle points to.
    using Type = typename Traits::Type;
    /// What destroying it returns.
    using Destroyed = decltype(Traits::destroy(nullptr));

    constexpr Owner() noexcept = default;
    constexpr Owner(Adopt, Type *handle) noexcept : handle_(handle) {}
    Owner(Owner &&other) noexcept : handle_(other.release()) {}
    Owner &operator=(Owner &&other) noexcept
    {
        Owner moved(std::move(other));
        std::swap(handle_, moved.handle_);
        return *this;
    }
    ~Owner()
    {
        if (handle_ != nullptr)
            static_cast<void>(Traits::destroy(handle_));
    }

    /// The handle, for any C function; null if this is empty.
    Type *get() const noexcept { return handle_; }
    /// Whether there is a handle.
    explicit operator bool() const noexcept { return handle_ != nullptr; }
    /// Lets go of the handle, which the caller destroys.
    [[nodiscard]] Type *release() noexcept { return std::exchange(handle_, nullptr); }

    /// Destroys the handle now and says how that went, which the destructor cannot. A handle whose destruction
    /// is refused stays, for another try or for release().
    Destroyed reset()
    {
        if constexpr (std::is_void_v<Destroyed>) {
            Owner(std::move(*this));
        } else {
            // Nothing to destroy is success: 0 among results, true among truths.
            constexpr bool success = std::is_same_v<Destroyed, bool>;
            Destroyed destroyed = handle_ != nullptr ? Traits::destroy(handle_) : Destroyed(success);
            if (destroyed)
                handle_ = nullptr;
            return destroyed;
        }
    }

private:
    Type *handle_ = nullptr;
};

#if GENERAL_EXCEPTIONS
/// What an Error calls the results of a family: the name of their enumeration.
template<typename Status>
inline constexpr const char *statusName = "result";

/// What check() throws: a result that is not success.
class Error : public std::exception {
public:
    Error(const char *name, unsigned code) noexcept : code_(code)
    {
        std::snprintf(text_, sizeof text_, "%s %u", name, code);
    }
    /// The result as a number.
    unsigned code() const noexcept { return code_; }
    /// The name of the enumeration and the number, "QueStat 3".
    const char *what() const noexcept override { return text_; }

private:
    unsigned code_;
    char text_[32];
};

/// The Error of one family, to be caught by its enumeration: `catch (const general::ErrorOf<QueStat> &error)`.
template<typename Status>
class ErrorOf : public Error {
public:
    explicit ErrorOf(Status status) noexcept : Error(statusName<Status>, static_cast<unsigned>(status)) {}
    /// The family's constant.
    Status status() const noexcept { return static_cast<Status>(code()); }
};

/// Turns a result that is not success into an exception, ErrorOf its family, for those who work that way.
template<typename Status>
void check(Result<Status> result)
{
    if (!result)
        throw ErrorOf<Status>(result.status());
}

/// The value of an outcome, or an exception with the reason.
template<typename T, typename Status>
T check(Outcome<T, Status> outcome)
{
    check(outcome.result());
    return std::move(*outcome);
}

/// An owner that is not empty, or std::bad_alloc: `auto queue = general::check(general::Queue<int>());`
template<typename Owned, typename = decltype(std::declval<Owned &>().release())>
Owned check(Owned owner)
{
    if (!owner)
        throw std::bad_alloc();
    return owner;
}
#endif

/// @cond
namespace detail {

/// Whether a comparison of two T is known not to throw; what the standard library does to numbers is not marked so.
template<typename Compare, typename T>
inline constexpr bool neverThrows =
    !GENERAL_EXCEPTIONS || std::is_nothrow_invocable_v<Compare, const T &, const T &> ||
    (std::is_arithmetic_v<T> && (std::is_same_v<Compare, std::less<T>> || std::is_same_v<Compare, std::greater<T>>));

/// Whether a container of 32-bit values can keep a T in one.
template<typename T>
inline constexpr bool isWord =
    (std::is_pointer_v<T> || std::is_integral_v<T> || std::is_enum_v<T>) && sizeof(T) <= sizeof(std::uint32_t);

template<typename T>
std::uintptr_t toWord(T value) noexcept
{
    static_assert(isWord<T>, "what is kept is a pointer, or a number or enumeration of at most 32 bits");
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<std::uintptr_t>(value);
    else
        return static_cast<std::uintptr_t>(value);
}
template<typename T>
T fromWord(std::uintptr_t word) noexcept
{
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<T>(word);
    else
        return static_cast<T>(word);
}

/// What the standard library asks of an iterator that gives values.
template<typename Value>
struct ValueIterator {
    using iterator_category = std::input_iterator_tag;
    using value_type = Value;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = Value;
};

/// The end of a loop over what tells itself when it is over.
struct End {};

/// Carries an exception of a user's function across the C call that called it: the function that the library
/// calls makes the user's call through guard(), and whoever called the library calls rethrow() afterwards.
/// Without exceptions this is nothing at all.
class Carrier {
public:
#if GENERAL_EXCEPTIONS
    template<typename Call>
    void guard(Call &&call) noexcept
    {
        try {
            call();
        } catch (...) {
            if (!thrown_)
                thrown_ = std::current_exception();
        }
    }
    bool holds() const noexcept { return thrown_ != nullptr; }
    void rethrow()
    {
        if (thrown_)
            std::rethrow_exception(std::move(thrown_));
    }

private:
    std::exception_ptr thrown_;
#else
    template<typename Call>
    void guard(Call &&call) noexcept
    {
        call();
    }
    bool holds() const noexcept { return false; }
    void rethrow() noexcept {}
#endif
};

} // namespace detail
/// @endcond

} // namespace general

#endif
