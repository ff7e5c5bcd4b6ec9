/// @file
/// Hash map from pointers or numbers to pointers or numbers, over map.h.

#ifndef GENERAL_MAP_HPP
#define GENERAL_MAP_HPP

#include "general/core.hpp"
#include "general/map.h"

namespace general {

namespace c {
using Map = ::GENERAL_TYPE(Map);
using MapStat = ::GENERAL_TYPE(MapStat);
} // namespace c

/// @cond
namespace detail {

struct MapTraits {
    using Type = c::Map;
    static Result<c::MapStat> destroy(Type *map) { return Result<c::MapStat>(MapDestroy(map)); }
};

} // namespace detail
/// @endcond

/// Map: `Map...`. Key and Value are pointers, or numbers or enumerations of at most 32 bits.
template<typename Key, typename Value>
class Map : public Owner<detail::MapTraits> {
public:
    using Result = general::Result<c::MapStat>;
    using Outcome = general::Outcome<Value, c::MapStat>;

    /// One entry.
    struct Pair {
        Key key;
        Value value;
    };
    /// MapFirst and MapNext. `for (auto [key, value] : map)`; the current entry is not to be removed, and a map that
    /// holds one key twice is walked for ever.
    class Iterator {
    public:
        explicit Iterator(const c::Map *map) noexcept : map_(map)
        {
            stand([map](uint32_t *key, uint32_t *value) { return MapFirst(map, key, value); });
        }
        Pair operator*() const noexcept { return {detail::fromWord<Key>(key_), detail::fromWord<Value>(value_)}; }
        Iterator &operator++() noexcept
        {
            stand([this](uint32_t *key, uint32_t *value) { return MapNext(map_, key_, key, value); });
            return *this;
        }
        friend bool operator!=(const Iterator &iterator, detail::End) noexcept { return iterator.more_; }

    private:
        /// Copies what a C function writes, which leaves the iterator in registers.
        template<typename Step>
        void stand(Step step) noexcept
        {
            uint32_t key = 0, value = 0;
            more_ = step(&key, &value) == MAP_OK;
            key_ = key;
            value_ = value;
        }

        const c::Map *map_;
        uint32_t key_ = 0, value_ = 0;
        bool more_ = false;
    };

    /// MapCreate. Empty if memory is exhausted, or if the count is neither 0 nor a power of two.
    explicit Map(uint32_t bucketCount = 0) noexcept : Owner(adopt, MapCreate(bucketCount)) {}
    /// Takes over a map of such keys and values.
    Map(Adopt, c::Map *map) noexcept : Owner(adopt, map) {}

    /// MapAdd. There is no look for an entry with that key: who may have one asks contains() first.
    Result insert(Key key, Value value) noexcept { return Result(MapAdd(get(), word(key), word(value))); }
    /// MapFind: the value of a key, or MAP_NOT_FOUND.
    Outcome find(Key key) const noexcept
    {
        return Outcome([this, key](Value *value) {
            uint32_t found = 0;
            uint32_t result = MapFind(get(), word(key), &found);
            *value = detail::fromWord<Value>(found);
            return result;
        });
    }
    /// Whether there is an entry with a key.
    bool contains(Key key) const noexcept { return static_cast<bool>(find(key)); }
    /// MapRemove: removes every entry with a key.
    Result erase(Key key) noexcept { return Result(MapRemove(get(), word(key))); }
    /// MapSize.
    uint32_t size() const noexcept { return static_cast<uint32_t>(MapSize(get())); }
    /// Whether there is no entry.
    bool empty() const noexcept { return size() == 0; }

    Iterator begin() const noexcept { return Iterator(get()); }
    detail::End end() const noexcept { return {}; }

private:
    template<typename T>
    static uint32_t word(T value) noexcept
    {
        return static_cast<uint32_t>(detail::toWord(value));
    }
};

#if GENERAL_EXCEPTIONS
/// @cond
template<>
inline constexpr const char *statusName<c::MapStat> = "MapStat";
/// @endcond
#endif

} // namespace general

#endif
