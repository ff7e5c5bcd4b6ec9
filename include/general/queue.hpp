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
    using Status = c::QueStat;
    static Result<Status> destroy(Type *queue) { return Result<Status>(QueDestroy(queue)); }
    static uint32_t add(Type *queue, const void *element) { return QueAdd(queue, element); }
    static uint32_t remove(Type *queue, void *element) { return QueRmv(queue, element); }
    static uint32_t length(const Type *queue, uint32_t *length) { return QueLength(queue, length); }
    static uint32_t discard(Type *queue) { return QueDel(queue); }
    static uint32_t erase(Type *queue, uint32_t index) { return QueDelIndex(queue, index); }
    static uint32_t peek(Type *queue, uint32_t index, void **element) { return QuePeek(queue, index, element); }
};
struct StackTraits {
    using Type = c::Stack;
    using Status = c::StackStat;
    static Result<Status> destroy(Type *stack) { return Result<Status>(StackDestroy(stack)); }
    static uint32_t add(Type *stack, const void *element) { return StackAdd(stack, element); }
    static uint32_t remove(Type *stack, void *element) { return StackRmv(stack, element); }
    static uint32_t length(const Type *stack, uint32_t *length) { return StackLength(stack, length); }
};
struct PriorityQueueTraits {
    using Type = c::PQueue;
    using Status = c::PQStat;
    static Result<Status> destroy(Type *queue) { return Result<Status>(PQDestroy(queue)); }
    static uint32_t add(Type *queue, const void *element) { return PQAdd(queue, element); }
    static uint32_t remove(Type *queue, void *element) { return PQRmv(queue, element); }
    static uint32_t length(const Type *queue, uint32_t *length) { return PQLength(queue, length); }
    static uint32_t discard(Type *queue) { return PQDel(queue); }
    static uint32_t erase(Type *queue, uint32_t index) { return PQDelIndex(queue, static_cast<int32_t>(index)); }
    static uint32_t peek(Type *queue, uint32_t index, void **element)
    {
        return PQPeek(queue, static_cast<int32_t>(index), element);
    }
};

} // namespace detail
/// @endcond

/// What queue, stack and priority queue have: `QueAdd`, `StackAdd`, `PQAdd` and so on.
template<typename T, typename Traits>
class Elements : public Owner<Traits> {
    static_assert(std::is_trivially_copyable_v<T>, "elements are copied byte by byte");

public:
    using Result = general::Result<typename Traits::Status>;
    using Outcome = general::Outcome<T, typename Traits::Status>;
    using Owner<Traits>::Owner;

    /// `Add`: queues a copy of an element, or puts it on top.
    Result push(const T &element) noexcept { return Result(Traits::add(this->get(), &element)); }
    /// `Rmv`: removes the next element and hands it out.
    Result pop(T &element) noexcept { return Result(Traits::remove(this->get(), &element)); }
    /// `Rmv`, for elements that can be made without one.
    Outcome pop() noexcept
    {
        return Outcome([this](T *element) { return Traits::remove(this->get(), element); });
    }
    /// `Length`; 0 for an empty owner.
    uint32_t size() const noexcept
    {
        uint32_t length = 0;
        Traits::length(this->get(), &length);
        return length;
    }
    /// Whether there is no element.
    bool empty() const noexcept { return size() == 0; }
};

/// What queue and priority queue have besides. Index 0 is the element that comes out next.
template<typename T, typename Traits>
class IndexedElements : public Elements<T, Traits> {
public:
    using typename Elements<T, Traits>::Result;
    using Elements<T, Traits>::Elements;

    /// `Del`: removes the next element.
    Result discard() noexcept { return Result(Traits::discard(this->get())); }
    /// `DelIndex`: removes the element at an index.
    Result erase(uint32_t index) noexcept { return Result(Traits::erase(this->get(), index)); }
    /// `Peek`: the element at an index, until the queue next changes; null if there is none. What is written to it
    /// must not change its place in the order.
    T *peek(uint32_t index) const noexcept
    {
        void *element = nullptr;
        Traits::peek(this->get(), index, &element);
        return static_cast<T *>(element);
    }
};

/// First-in, first-out queue: `Que...`.
template<typename T>
class Queue : public IndexedElements<T, detail::QueueTraits> {
    using Base = IndexedElements<T, detail::QueueTraits>;

public:
    /// QueCreate. Empty if memory is exhausted.
    Queue() noexcept : Base(adopt, QueCreate(sizeof(T))) {}
    /// Takes over a queue of elements of this size.
    Queue(Adopt, c::Queue *queue) noexcept : Base(adopt, queue) {}
    /// QuePeek: the oldest element; null if there is none.
    T *front() const noexcept { return this->peek(0); }
};

/// Last-in, first-out stack: `Stack...`.
template<typename T>
class Stack : public Elements<T, detail::StackTraits> {
    using Base = Elements<T, detail::StackTraits>;

public:
    /// StackCreate. Empty if memory is exhausted.
    Stack() noexcept : Base(adopt, StackCreate(sizeof(T))) {}
    /// Takes over a stack of elements of this size.
    Stack(Adopt, c::Stack *stack) noexcept : Base(adopt, stack) {}
};

/// Priority queue: `PQ...`. As in std::priority_queue the largest element comes out first, and with std::greater the
/// smallest; equal ones come out in the order in which they were added.
///
/// Less is a function object without state. What it throws comes out of push(), which then has added nothing; one
/// that is `noexcept` saves push() the care.
template<typename T, typename Less = std::less<T>>
class PriorityQueue : public IndexedElements<T, detail::PriorityQueueTraits> {
    static_assert(std::is_empty_v<Less> && std::is_default_constructible_v<Less>, "a comparison has no state");
    using Base = IndexedElements<T, detail::PriorityQueueTraits>;

public:
    using typename Base::Result;

    /// PQCreate. Empty if memory is exhausted.
    PriorityQueue() noexcept : Base(adopt, PQCreate(sizeof(T), compare)) {}
    /// Takes over a queue of elements of this size, with its own order.
    PriorityQueue(Adopt, c::PQueue *queue) noexcept : Base(adopt, queue) {}

    /// PQAdd: queues a copy of an element, behind those of equal priority.
    Result push(const T &element) noexcept(detail::neverThrows<Less, T>)
    {
        if constexpr (detail::neverThrows<Less, T>) {
            return Base::push(element);
        } else {
            Added added{element, {}};
            Result result(PQAdd(this->get(), &added));
            if (added.carrier.holds()) {
                // From then on the comparison put the new element behind the queued ones: none of the same bytes is
                // further behind.
                uint32_t index = this->size();
                while (std::memcmp(this->peek(--index), &added.element, sizeof element) != 0) {
                }
                this->erase(index).ignore();
                added.carrier.rethrow();
            }
            return result;
        }
    }
    /// PQPeek: the next element to come out, as for std::priority_queue; null if there is none.
    T *top() const noexcept { return this->peek(0); }

private:
    /// @cond
    struct Added {
        T element; // first: a comparison in C takes this for the element
        detail::Carrier carrier;
    };
    /// @endcond

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
