/// @file
/// Registries of callbacks, over action.h and keycall.h.

#ifndef GENERAL_REGISTRY_HPP
#define GENERAL_REGISTRY_HPP

#include "general/action.h"
#include "general/core.hpp"
#include "general/keycall.h"

namespace general {

namespace c {
using Action = ::GENERAL_TYPE(Action);
using ActionStat = ::GENERAL_TYPE(ActionStat);
using KeyCall = ::GENERAL_TYPE(KeyCall);
using KeyCallStat = ::GENERAL_TYPE(KeyCallStat);
} // namespace c

/// @cond
namespace detail {

struct ActionTraits {
    using Type = c::Action;
    static Result<c::ActionStat> destroy(Type *action) { return Result<c::ActionStat>(ActionDestroy(action)); }
};
struct KeyCallTraits {
    using Type = c::KeyCall;
    static Result<c::KeyCallStat> destroy(Type *registry) { return Result<c::KeyCallStat>(KeyCallDestroy(registry)); }
};

} // namespace detail
/// @endcond

/// Function objects that are called together with an Argument, in the order in which they were added: `Action...`.
///
/// What add() added is called by run(), not by ActionDo. A C callback in the same registry gets the argument's address
/// as its first argument; the second is not its own.
template<typename Argument>
class Action : public Owner<detail::ActionTraits> {
public:
    using Result = general::Result<c::ActionStat>;

    /// ActionCreate. Empty if memory is exhausted.
    Action() noexcept : Owner(adopt, ActionCreate()) {}
    using Owner::Owner;

    /// ActionAdd: a function object that outlives its entry. Gives the entry's id, 0 if there is none.
    template<typename Function>
    int32_t add(Function &function) noexcept
    {
        static_assert(std::is_object_v<Function>, "a function needs an object around it, such as a lambda");
        return ActionAdd(get(), call<Function>, const_cast<std::remove_const_t<Function> *>(&function));
    }
    template<typename Function>
    int32_t add(const Function &&function) = delete;
    /// ActionRmv.
    Result erase(int32_t id) noexcept { return Result(ActionRmv(get(), id)); }
    /// ActionRmvAll.
    Result clear() noexcept { return Result(ActionRmvAll(get())); }
    /// ActionDo: calls every function. The first exception that one throws comes out when all have been called.
    Result run(Argument &argument)
    {
        detail::Carrier carrier;
        Result result(ActionDo(get(), const_cast<std::remove_const_t<Argument> *>(&argument), &carrier));
        carrier.rethrow();
        return result;
    }
    /// ActionCount.
    uint32_t size() const noexcept
    {
        uint32_t count = 0;
        ActionCount(get(), &count);
        return count;
    }
    bool empty() const noexcept { return size() == 0; }

private:
    template<typename Function>
    static void GENERAL_CALL call(void *argument, void *function, void *carrier) noexcept
    {
        static_cast<detail::Carrier *>(carrier)->guard(
            [&] { (*static_cast<Function *>(function))(*static_cast<Argument *>(argument)); });
    }
};

/// Callbacks with data under numbers, which it hands out, and calls none: `KeyCall...`. Callback and Data are pointers.
template<typename Callback, typename Data>
class KeyCall : public Owner<detail::KeyCallTraits> {
public:
    using Result = general::Result<c::KeyCallStat>;

    /// One entry.
    struct Entry {
        uint32_t key;
        Callback callback;
        Data data;
    };
    using Outcome = general::Outcome<Entry, c::KeyCallStat>;

    /// KeyCallCreate. Empty if memory is exhausted.
    KeyCall() noexcept : Owner(adopt, KeyCallCreate()) {}
    using Owner::Owner;

    /// KeyCallNext: a fresh key; 0 for an empty owner.
    uint32_t next() noexcept { return KeyCallNext(get()); }
    /// KeyCallAdd.
    Result insert(uint32_t key, Callback callback, Data data) noexcept
    {
        return Result(KeyCallAdd(get(), key, pointer(callback), pointer(data)));
    }
    /// KeyCallGet: the first entry with a key.
    Outcome find(uint32_t key) const noexcept
    {
        return outcome([&](uint32_t *k, void **f, void **d) { return KeyCallGet(get(), *k = key, f, d); });
    }
    /// KeyCallGetI: the entry at an index, 0 the oldest.
    Outcome at(int32_t index) const noexcept
    {
        return outcome([&](uint32_t *k, void **f, void **d) { return KeyCallGetI(get(), index, k, f, d); });
    }
    /// KeyCallRmv: removes the first entry with a key, and hands it out.
    Outcome erase(uint32_t key) noexcept
    {
        return outcome([&](uint32_t *k, void **f, void **d) { return KeyCallRmv(get(), *k = key, f, d); });
    }
    /// KeyCallRmvAny: removes the oldest entry, and hands it out.
    Outcome pop() noexcept
    {
        return outcome([&](uint32_t *k, void **f, void **d) { return KeyCallRmvAny(get(), k, f, d); });
    }

private:
    template<typename T>
    static void *pointer(T value) noexcept
    {
        return reinterpret_cast<void *>(detail::toWord(value));
    }
    template<typename Call>
    static Outcome outcome(Call call) noexcept
    {
        return Outcome([&](Entry *entry) {
            uint32_t key = 0;
            void *callback = nullptr, *data = nullptr;
            uint32_t result = call(&key, &callback, &data);
            *entry = {key, detail::fromWord<Callback>(reinterpret_cast<std::uintptr_t>(callback)),
                      detail::fromWord<Data>(reinterpret_cast<std::uintptr_t>(data))};
            return result;
        });
    }
};

#if GENERAL_EXCEPTIONS
/// @cond
template<>
inline constexpr const char *statusName<c::ActionStat> = "ActionStat";
template<>
inline constexpr const char *statusName<c::KeyCallStat> = "KeyCallStat";
/// @endcond
#endif

} // namespace general

#endif
