/// @file
/// Queue, stack and priority queue of elements of one type, over queue.h, stack.h and pqueue.h.
///
/// Elements are copied byte by byte, so their type has to allow that. As with a pointer, a queue that cannot be
/// changed itself still lets its elements be changed.

#ifndef GENERAL_QUEUE_HPP
#define GENERAL_QUEUE_HPP

#include "general/core.hpp"
#include "general/pqueue.h"
#include "general/queue.h"
#include "general/stack.h"

#include <cstdint>
#include <cstring>
#include <functional>

namespace general {

namespace c {
using Queue = ::GENERAL_TYPE(Queue);
using QueStat = ::GENERAL_TYPE(QueStat);
using Stack = ::GENERAL_TYPE(Stack);
using StackStat = ::GENERAL_TYPE(StackStat);
using PQueue = ::GENERAL_TYPE(PQueue);
using PQStat = ::GENERAL_TYPE(PQStat);
} // namespace c

/// @cond
namespace detail {

struct QueueTraits {
    using Type = c::Queue;
    static Result<c::QueStat> destroy(Type *queue) { return Result<c::QueStat>(QueDestroy(queue)); }
};
struct StackTraits {
    using Type = c::Stack;
    static Result<c::StackStat> destroy(Type *stack) { return Result<c::StackStat>(StackDestroy(stack)); }
};
struct PriorityQueueTraits {
    using Type = c::PQueue;
    static Result<c::PQStat> destroy(Type *queue) { return Result<c::PQStat>(PQDestroy(queue)); }
};

/// Whether a comparison of two T is known not to throw; what the standard library does to numbers is not marked so.
template<typename Compare, typename T>
inline constexpr bool neverThrows =
    !GENERAL_EXCEPTIONS || std::is_nothrow_invocable_v<Compare, const T &, const T &> ||
    (std::is_arithmetic_v<T> && (std::is_same_v<Compare, std::less<T>> || std::is_same_v<Compare, std::greater<T>>));

} // namespace detail
/// @endcond

/// First-in, first-out queue: `Que...`.
template<typename T>
class Queue : public Owner<detail::QueueTraits> {
    static_assert(std::is_trivially_copyable_v<T>, "elements are copied byte by byte");

public:
    using Result = general::Result<c::QueStat>;
    using Outcome = general::Outcome<T, c::QueStat>;

    /// QueCreate. Empty if memory is exhausted.
    Queue() noexcept : Owner(adopt, QueCreate(sizeof(T))) {}
    /// Takes over a queue of elements of this size.
    Queue(Adopt, c::Queue *queue) noexcept : Owner(adopt, queue) {}

    /// QueAdd: appends a copy of an element.
    Result push(const T &element) noexcept { return Result(QueAdd(get(), &element)); }
    /// QueRmv: removes the oldest element and hands it out.
    Result pop(T &element) noexcept { return Result(QueRmv(get(), &element)); }
    /// QueRmv, for elements that can be made without one.
    Outcome pop() noexcept
    {
        return Outcome([this](T *element) { return QueRmv(get(), element); });
    }
    /// QueDel: removes the oldest element.
    Result discard() noexcept { return Result(QueDel(get())); }
    /// QueDelIndex: removes the element at an index.
    Result erase(uint32_t index) noexcept { return Result(QueDelIndex(get(), index)); }
    /// QuePeek: the element at an index, 0 the oldest, until the queue next changes; null if there is none.
    T *peek(uint32_t index) const noexcept
    {
        void *element = nullptr;
        QuePeek(get(), index, &element);
        return static_cast<T *>(element);
    }
    /// QuePeek: the oldest element; null if there is none.
    T *front() const noexcept { return peek(0); }
    /// QueLength.
    uint32_t size() const noexcept
    {
        uint32_t length = 0;
        QueLength(get(), &length);
        return length;
    }
    /// Whether nothing is queued.
    bool empty() const noexcept { return size() == 0; }
};

/// Last-in, first-out stack: `Stack...`.
template<typename T>
class Stack : public Owner<detail::StackTraits> {
    static_assert(std::is_trivially_copyable_v<T>, "elements are copied byte by byte");

public:
    using Result = general::Result<c::StackStat>;
    using Outcome = general::Outcome<T, c::StackStat>;

    /// StackCreate. Empty if memory is exhausted.
    Stack() noexcept : Owner(adopt, StackCreate(sizeof(T))) {}
    /// Takes over a stack of elements of this size.
    Stack(Adopt, c::Stack *stack) noexcept : Owner(adopt, stack) {}

    /// StackAdd: puts a copy of an element on top.
    Result push(const T &element) noexcept { return Result(StackAdd(get(), &element)); }
    /// StackRmv: takes the newest element off and hands it out.
    Result pop(T &element) noexcept { return Result(StackRmv(get(), &element)); }
    /// StackRmv, for elements that can be made without one.
    Outcome pop() noexcept
    {
        return Outcome([this](T *element) { return StackRmv(get(), element); });
    }
    /// StackLength.
    uint32_t size() const noexcept
    {
        uint32_t length = 0;
        StackLength(get(), &length);
        return length;
    }
    /// Whether the stack holds nothing.
    bool empty() const noexcept { return size() == 0; }
};

/// Priority queue: `PQ...`. As in std::priority_queue the largest element comes out first, and with std::greater the
/// smallest; equal ones come out in the order in which they were added.
///
/// Less is a function object without state. What it throws comes out of push(), which then has added nothing; one
/// that is `noexcept` saves push() the care.
template<typename T, typename Less = std::less<T>>
class PriorityQueue : public Owner<detail::PriorityQueueTraits> {
    static_assert(std::is_trivially_copyable_v<T>, "elements are copied byte by byte");
    static_assert(std::is_empty_v<Less> && std::is_default_constructible_v<Less>, "a comparison has no state");

public:
    using Result = general::Result<c::PQStat>;
    using Outcome = general::Outcome<T, c::PQStat>;

    /// PQCreate. Empty if memory is exhausted.
    PriorityQueue() noexcept : Owner(adopt, PQCreate(sizeof(T), compare)) {}
    /// Takes over a queue of elements of this size, with its own order.
    PriorityQueue(Adopt, c::PQueue *queue) noexcept : Owner(adopt, queue) {}

    /// PQAdd: queues a copy of an element, behind those of equal priority.
    Result push(const T &element) noexcept(detail::neverThrows<Less, T>)
    {
        if constexpr (detail::neverThrows<Less, T>) {
            return Result(PQAdd(get(), &element));
        } else {
            Added added{element, {}};
            Result result(PQAdd(get(), &added));
            if (added.carrier.holds()) {
                // Where it does not know better, the comparison says that the new element goes behind the queued
                // one: no element of these bytes is further behind.
                uint32_t index = size();
                while (std::memcmp(peek(--index), &element, sizeof element) != 0) {
                }
                erase(index).ignore();
                added.carrier.rethrow();
            }
            return result;
        }
    }
    /// PQRmv: removes the first element and hands it out.
    Result pop(T &element) noexcept { return Result(PQRmv(get(), &element)); }
    /// PQRmv, for elements that can be made without one.
    Outcome pop() noexcept
    {
        return Outcome([this](T *element) { return PQRmv(get(), element); });
    }
    /// PQDel: removes the first element.
    Result discard() noexcept { return Result(PQDel(get())); }
    /// PQDelIndex: removes the element at an index.
    Result erase(uint32_t index) noexcept { return Result(PQDelIndex(get(), static_cast<int32_t>(index))); }
    /// PQPeek: the element at an index, 0 the next to come out, until the queue next changes; null if there is none.
    /// Writing to it must not change its place in the order.
    T *peek(uint32_t index) const noexcept
    {
        void *element = nullptr;
        PQPeek(get(), static_cast<int32_t>(index), &element);
        return static_cast<T *>(element);
    }
    /// PQPeek: the next element to come out, as for std::priority_queue; null if there is none.
    T *top() const noexcept { return peek(0); }
    /// PQLength.
    uint32_t size() const noexcept
    {
        uint32_t length = 0;
        PQLength(get(), &length);
        return length;
    }
    /// Whether nothing is queued.
    bool empty() const noexcept { return size() == 0; }

private:
    struct Added {
        T element; // first: a comparison in C takes this for the element
        detail::Carrier carrier;
    };

    static int GENERAL_CALL compare(const void *queued, const void *added) noexcept
    {
        const T &first = *static_cast<const T *>(queued);
        const T &second = *static_cast<const T *>(added);
        if constexpr (detail::neverThrows<Less, T>) {
            return Less{}(first, second) ? -1 : 0;
        } else {
            auto &carrier = const_cast<Added *>(static_cast<const Added *>(added))->carrier;
            bool isBefore = false;
            if (!carrier.holds())
                carrier.guard([&] { isBefore = Less{}(first, second); });
            return isBefore ? -1 : 0;
        }
    }
};

#if GENERAL_EXCEPTIONS
/// @cond
template<>
inline constexpr const char *statusName<c::QueStat> = "QueStat";
template<>
inline constexpr const char *statusName<c::StackStat> = "StackStat";
template<>
inline constexpr const char *statusName<c::PQStat> = "PQStat";
/// @endcond
#endif

} // namespace general

#endif
