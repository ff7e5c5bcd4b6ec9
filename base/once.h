/// @file
/// Answers that are found out once per process and kept.

#pragma once

namespace general {

/// One such answer, in static storage and without a constructor, so that it needs no start-up code.
/// Threads that ask first at the same time all find the answer, which must be the same for each; the
/// mark is stored after it, and who sees the mark sees the answer.
template<typename Value>
class Once {
public:
    template<typename Find>
    Value get(Find find)
    {
        if (!__atomic_load_n(&known_, __ATOMIC_ACQUIRE)) {
            Value found = find(); // whoever comes second writes the same bytes again
            value_ = found;
            __atomic_store_n(&known_, true, __ATOMIC_RELEASE);
        }
        return value_;
    }

private:
    Value value_;
    bool known_;
};

} // namespace general
