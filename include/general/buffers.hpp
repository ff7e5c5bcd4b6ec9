/// @file
/// Byte buffer, growable string and pool of work buffers, over cbuf.h, vstr.h and bufpool.h.

#ifndef GENERAL_BUFFERS_HPP
#define GENERAL_BUFFERS_HPP

#include "general/bufpool.h"
#include "general/cbuf.h"
#include "general/core.hpp"
#include "general/vstr.h"

#include <string_view>

namespace general {

namespace c {
using BufPool = ::GENERAL_TYPE(BufPool);
using CBuf = ::GENERAL_TYPE(CBuf);
using CBufStat = ::GENERAL_TYPE(CBufStat);
using Vstr = ::GENERAL_TYPE(Vstr);
using VstrStat = ::GENERAL_TYPE(VstrStat);
} // namespace c

/// @cond
namespace detail {

struct BufferTraits {
    using Type = c::CBuf;
    static Result<c::CBufStat> destroy(Type *buffer) { return Result<c::CBufStat>(CBufDestroy(buffer)); }
};
struct StringTraits {
    using Type = c::Vstr;
    static Result<c::VstrStat> destroy(Type *string) { return Result<c::VstrStat>(VstrDestroy(string)); }
};
struct BufferPoolTraits {
    using Type = c::BufPool;
    static bool destroy(Type *pool) { return BufPoolDestroy(pool) == 0; }
};

} // namespace detail
/// @endcond

/// Growable byte buffer: `CBuf...`. Bytes are taken and shown as text of known length.
class Buffer : public Owner<detail::BufferTraits> {
public:
    using Result = general::Result<c::CBufStat>;

    /// CBufCreate. Empty if the quantum is 0 or memory is exhausted.
    explicit Buffer(uint32_t quantum = 256) noexcept : Owner(adopt, CBufCreate(quantum)) {}
    using Owner::Owner;

    /// CBufAppend.
    Result append(std::string_view bytes) noexcept { return Result(CBufAppend(get(), bytes.data(), length(bytes))); }
    /// CBufGetAppend: the address of bytes that are added for the caller to fill.
    Outcome<void *, c::CBufStat> extend(uint32_t count) noexcept
    {
        return Outcome<void *, c::CBufStat>([&](void **room) { return CBufGetAppend(get(), room, count); });
    }
    /// CBufSet.
    Result assign(std::string_view bytes) noexcept { return Result(CBufSet(get(), bytes.data(), length(bytes))); }
    /// CBufInsert: CBUF_END as the offset appends.
    Result insert(uint32_t offset, std::string_view bytes) noexcept
    {
        return Result(CBufInsert(get(), bytes.data(), offset, length(bytes)));
    }
    /// CBufCut: removes bytes, which `destination` receives unless it is null.
    Result erase(uint32_t offset, uint32_t count, void *destination = nullptr) noexcept
    {
        return Result(CBufCut(get(), destination, offset, count));
    }
    /// CBufGet: the contents, until the next call that may grow or free the memory.
    std::string_view view() const noexcept
    {
        void *data = nullptr;
        uint32_t size = 0;
        CBufGet(get(), &data, &size);
        return {static_cast<const char *>(data), size};
    }
    /// CBufGet: the address of the contents, to change them; null if no memory was needed yet.
    void *data() const noexcept
    {
        void *data = nullptr;
        CBufGet(get(), &data, nullptr);
        return data;
    }
    uint32_t size() const noexcept { return length(view()); }
    bool empty() const noexcept { return size() == 0; }
    /// CBufReset: keeps the memory, as clear() does in the standard library.
    Result clear() noexcept { return Result(CBufReset(get())); }
    /// CBufClear: frees the memory too.
    Result free() noexcept { return Result(CBufClear(get())); }
    /// CBufShrink.
    Result shrink_to_fit() noexcept { return Result(CBufShrink(get())); }

private:
    static uint32_t length(std::string_view bytes) noexcept { return static_cast<uint32_t>(bytes.size()); }
};

/// Growable string: `Vstr...`.
class String : public Owner<detail::StringTraits> {
public:
    using Result = general::Result<c::VstrStat>;

    /// VstrCreate. Empty if the increment is below 1 or memory is exhausted.
    explicit String(int32_t growthIncrement = 64) noexcept : Owner(adopt, VstrCreate(growthIncrement)) {}
    using Owner::Owner;

    /// VstrAppend.
    Result append(const char *text) noexcept { return Result(VstrAppend(get(), text)); }
    /// VstrEmpty: keeps the memory.
    Result clear() noexcept { return Result(VstrEmpty(get())); }
    /// VstrLength, without the final zero.
    uint32_t size() const noexcept
    {
        int32_t length = 0;
        VstrLength(get(), &length);
        return length > 0 ? static_cast<uint32_t>(length) - 1 : 0;
    }
    bool empty() const noexcept { return size() == 0; }
    /// VstrGet: the text, until the next append; "" where VstrGet shows what was before clear(), or null.
    const char *c_str() const noexcept { return view().data(); }
    std::string_view view() const noexcept
    {
        char *text = nullptr;
        uint32_t length = size();
        VstrGet(get(), &text);
        return length != 0 ? std::string_view(text, length) : std::string_view("");
    }
};

/// Pool of work buffers: `BufPool...`.
class BufferPool : public Owner<detail::BufferPoolTraits> {
public:
    /// A buffer of a pool, which goes back there at its end (BufPoolRelease). The pool must outlive it.
    class Buffer {
    public:
        Buffer() noexcept = default;
        Buffer(c::BufPool *pool, void *memory) noexcept : pool_(pool), memory_(memory) {}
        Buffer(Buffer &&other) noexcept : pool_(other.pool_), memory_(other.release()) {}
        Buffer &operator=(Buffer &&other) noexcept
        {
            Buffer moved(std::move(other));
            std::swap(pool_, moved.pool_);
            std::swap(memory_, moved.memory_);
            return *this;
        }
        ~Buffer()
        {
            if (memory_ != nullptr)
                BufPoolRelease(pool_, memory_);
        }
        /// The buffer's bytes; null if there was none to be had.
        void *get() const noexcept { return memory_; }
        explicit operator bool() const noexcept { return memory_ != nullptr; }
        /// Lets go of the buffer, which the caller hands to BufPoolRelease.
        [[nodiscard]] void *release() noexcept { return std::exchange(memory_, nullptr); }

    private:
        c::BufPool *pool_ = nullptr;
        void *memory_ = nullptr;
    };

    /// BufPoolCreate. Empty if an argument is out of range or memory is exhausted.
    BufferPool(int32_t slotCount, uint32_t maximumSize) noexcept : Owner(adopt, BufPoolCreate(slotCount, maximumSize))
    {
    }
    using Owner::Owner;

    /// BufPoolGrab.
    Buffer grab(uint32_t size) noexcept { return {get(), BufPoolGrab(get(), size)}; }
    /// BufPoolAvail: how many can be grabbed; -1 for an empty owner.
    int32_t available() const noexcept { return BufPoolAvail(get()); }
    /// BufPoolResetMaxSize; false for an empty owner.
    bool setMaximum(uint32_t size) noexcept { return BufPoolResetMaxSize(get(), size) == 0; }
};

#if GENERAL_EXCEPTIONS
/// @cond
template<>
inline constexpr const char *statusName<c::CBufStat> = "CBufStat";
template<>
inline constexpr const char *statusName<c::VstrStat> = "VstrStat";
/// @endcond
#endif

} // namespace general

#endif
