/// @file
/// Counted value and cache of made values, over refcounter.h and cache.h.
///
/// Both dispose of values by a function object without state, std::default_delete unless another is named. It may not
/// throw: what it throws ends the program, as it does from any destructor.

#ifndef GENERAL_CACHE_HPP
#define GENERAL_CACHE_HPP

#include "general/cache.h"
#include "general/core.hpp"
#include "general/refcounter.h"

#include <memory>
#include <string>
#include <string_view>

namespace general {

namespace c {
using Cache = ::GENERAL_TYPE(Cache);
using CacheStat = ::GENERAL_TYPE(CacheStat);
using RefCounter = ::GENERAL_TYPE(RefCounter);
} // namespace c

/// @cond
namespace detail {

struct CountedTraits {
    using Type = c::RefCounter;
    static void destroy(Type *counter) { RefCounterReleaseReference(counter); }
};
struct CacheTraits {
    using Type = c::Cache;
    static Result<c::CacheStat> destroy(Type *cache) { return Result<c::CacheStat>(CacheDelete(cache)); }
};

} // namespace detail
/// @endcond

/// One reference to a counted value: `RefCounter...`. The last one disposes of it. Not for two threads at once.
template<typename T, typename Dispose = std::default_delete<T>>
class Counted : public Owner<detail::CountedTraits> {
public:
    /// RefCounterCreate: owns the value. If memory is exhausted the value is disposed of at once, and this is empty.
    explicit Counted(T *value) noexcept : Owner(adopt, RefCounterCreate(value, dispose, nullptr))
    {
        if (!*this)
            Dispose{}(value);
    }
    using Owner::Owner;

    /// RefCounterAddReference: one more reference. Not on an empty owner, as nothing here but reset().
    Counted share() const noexcept { return Counted(adopt, RefCounterAddReference(get())); }
    /// RefCounterGetReferenceCount.
    uint32_t count() const noexcept { return RefCounterGetReferenceCount(get()); }
    /// RefCounterGetValue.
    T *value() const noexcept { return static_cast<T *>(RefCounterGetValue(get())); }
    T &operator*() const noexcept { return *value(); }
    T *operator->() const noexcept { return value(); }

private:
    static void GENERAL_CALL dispose(void *value, void *) noexcept { Dispose{}(static_cast<T *>(value)); }
};

/// Cache of values under byte strings: `Cache...`. CacheAccess, with a null argument, finds values beside it and makes
/// none.
template<typename T, typename Dispose = std::default_delete<T>>
class Cache : public Owner<detail::CacheTraits> {
public:
    using Result = general::Result<c::CacheStat>;

    /// A reference to a value, which ends with it (CacheFinish). The cache and the key's bytes must outlive it.
    class Pin {
    public:
        Pin(Pin &&other) noexcept
            : cache_(std::exchange(other.cache_, nullptr)), key_(other.key_),
              value_(std::exchange(other.value_, nullptr)), result_(other.result_)
        {
        }
        Pin &operator=(Pin &&other) noexcept
        {
            Pin moved(std::move(other));
            std::swap(cache_, moved.cache_);
            std::swap(key_, moved.key_);
            std::swap(value_, moved.value_);
            std::swap(result_, moved.result_);
            return *this;
        }
        ~Pin() { finish().ignore(); }

        /// The value; null if the access failed, or if the maker had none to give.
        T *get() const noexcept { return value_; }
        T &operator*() const noexcept { return *value_; }
        T *operator->() const noexcept { return value_; }
        explicit operator bool() const noexcept { return value_ != nullptr; }
        /// What CacheAccess returned.
        Result result() const noexcept { return result_; }
        /// CacheFinish, now: drops the reference.
        Result finish() noexcept
        {
            value_ = nullptr;
            auto *cache = std::exchange(cache_, nullptr);
            return Result(cache != nullptr ? CacheFinish(cache, key_.data(), length(key_)) : uint32_t{CACHE_OK});
        }

    private:
        friend Cache;
        Pin(c::Cache *cache, std::string_view key, void *value, Result result) noexcept
            : cache_(result ? cache : nullptr), key_(key), value_(static_cast<T *>(value)), result_(result)
        {
        }

        c::Cache *cache_; ///< null without a reference
        std::string_view key_;
        T *value_;
        Result result_;
    };

    /// CacheCreate. Empty if memory is exhausted.
    explicit Cache(int32_t size = 0) noexcept : Owner(adopt, CacheCreate(size, make, dispose)) {}
    /// Takes over what another cache of this type has released.
    Cache(Adopt, c::Cache *cache) noexcept : Owner(adopt, cache) {}

    /// CacheAccess: a key's value, found, or made by `maker(key)`, which gives a pointer or a std::unique_ptr. Null is
    /// cached too. What the maker throws comes out of here, and then nothing is cached.
    template<typename Maker>
    Pin access(std::string_view key, Maker &&maker)
    {
        Making<std::remove_reference_t<Maker>> making{{makeWith<std::remove_reference_t<Maker>>}, maker, {}};
        void *value = nullptr;
        Result result(CacheAccess(get(), key.data(), static_cast<uint32_t>(key.size()), &value,
                                  static_cast<MakingBase *>(&making)));
        if (making.carrier.holds()) {
            erase(key).ignore();
            making.carrier.rethrow();
        }
        return Pin(get(), key, value, result);
    }
    /// The key would end before the pin.
    template<typename Text, typename Maker, typename = std::enable_if_t<std::is_same_v<Text, std::string>>>
    Pin access(Text &&key, Maker &&maker) = delete;
    /// CacheRemove: disposes of a key's value, referenced or not.
    Result erase(std::string_view key) noexcept { return Result(CacheRemove(get(), key.data(), length(key))); }

private:
    /// What the maker travels in: one cache has one C function for makers of all types.
    struct MakingBase {
        void *(*make)(MakingBase *making, std::string_view key);
    };
    template<typename Maker>
    struct Making : MakingBase {
        Maker &maker;
        detail::Carrier carrier;
    };

    static int32_t length(std::string_view key) noexcept { return static_cast<int32_t>(key.size()); }

    static void GENERAL_CALL make(const void *key, int32_t length, void **value, void *argument) noexcept
    {
        auto *making = static_cast<MakingBase *>(argument);
        if (making != nullptr) // as it is when C code finds no value by CacheAccess
            *value = making->make(making, {static_cast<const char *>(key), static_cast<std::size_t>(length)});
    }
    template<typename Maker>
    static void *makeWith(MakingBase *base, std::string_view key)
    {
        auto *making = static_cast<Making<Maker> *>(base);
        T *value = nullptr;
        making->carrier.guard([&] {
            if constexpr (std::is_pointer_v<std::invoke_result_t<Maker &, std::string_view>>)
                value = making->maker(key);
            else
                value = making->maker(key).release();
        });
        return value;
    }
    static void GENERAL_CALL dispose(const void *, int32_t, void *value) noexcept
    {
        if (value != nullptr)
            Dispose{}(static_cast<T *>(value));
    }
};

#if GENERAL_EXCEPTIONS
/// @cond
template<>
inline constexpr const char *statusName<c::CacheStat> = "CacheStat";
/// @endcond
#endif

} // namespace general

#endif
