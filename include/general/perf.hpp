/// @file
/// The counters that this process publishes, over perf.h.
///
///     general::PublishedCounters counters("spool", {general::counter(1), general::counter(2, 100)});
///     counters.add(1, 5);

#ifndef GENERAL_PERF_HPP
#define GENERAL_PERF_HPP

#include "general/core.hpp"
#include "general/perf.h"

namespace general {

namespace c {
using PerfCounterDef = ::GENERAL_TYPE(PerfCounterDef);
using PerfObjectDef = ::GENERAL_TYPE(PerfObjectDef);
} // namespace c

/// @cond
namespace detail {

struct PerfTraits {
    using Type = const char;
    static void destroy(Type *) { PerfShutdown(); }
};

} // namespace detail
/// @endcond

/// Describes a counter to PublishedCounters.
constexpr c::PerfCounterDef counter(uint32_t id, uint32_t initialValue = 0) noexcept
{
    return {id, 0, 0, 0, 0, initialValue};
}

/// The process's counters: `Perf...`. They are withdrawn at the end of their owner, whose handle is their name. A
/// process has one set: publishing another one withdraws the first, whose owner has to end or to release() before.
class PublishedCounters : public Owner<detail::PerfTraits> {
public:
    using Owner::Owner;
    PublishedCounters() noexcept = default;
    /// PerfInit. Empty if the segment could not be made.
    PublishedCounters(const char *name, Span<const c::PerfCounterDef> counters) noexcept
        : Owner(adopt, publish(name, counters) ? name : nullptr)
    {
    }
    template<std::size_t Size>
    PublishedCounters(const char *name, const c::PerfCounterDef (&counters)[Size]) noexcept
        : PublishedCounters(name, Span<const c::PerfCounterDef>(counters))
    {
    }

    /// PerfSetValue.
    static void set(uint32_t id, uint32_t value) noexcept { PerfSetValue(id, value); }
    /// PerfApplyDelta: adds modulo 2 to the 32nd.
    static void add(uint32_t id, uint32_t delta) noexcept { PerfApplyDelta(id, delta); }

private:
    static bool publish(const char *name, Span<const c::PerfCounterDef> counters) noexcept
    {
        c::PerfObjectDef object = {0, 0, 0, counters.data(), static_cast<uint32_t>(counters.size()), 0, 0};
        return PerfInit(name, &object, 1) == PERF_OK;
    }
};

} // namespace general

#endif
