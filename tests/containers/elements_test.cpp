// The three containers of elements held by value, through one driver: queue, stack, priority queue.

#include "general/pqueue.h"
#include "general/queue.h"
#include "general/stack.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using test_support::expectEach;
using test_support::fieldOf;
using test_support::HeapWatch;

/// An element that holds a 16-bit number, with a guard behind its last byte.
std::string elementOf(uint32_t number, uint32_t size)
{
    std::string element(1, static_cast<char>(number));
    while (element.size() < size)
        element += static_cast<char>((number >> 8) + element.size());
    return element + '\xEE';
}

/// The low 3 bits of a number are its priority, the rest tells equals apart.
PQueue *createByPriority(uint32_t size)
{
    return PQCreate(size, [](const void *queued, const void *added) {
        return (*static_cast<const char *>(queued) & 7) - (*static_cast<const char *>(added) & 7);
    });
}

constexpr uint32_t noMemory = 3; // and 0 for success, 2 for empty, as in all three
constexpr size_t countField = 3;

/// The functions of one container.
template<typename Handle, typename Index>
struct Calls {
    uint32_t badIndex;
    size_t capacityField;
    size_t headField;  ///< only a queue's differs from the magic
    unsigned removals; ///< how many of the four ways to remove an element there are
    Handle *(*create)(uint32_t);
    uint32_t (*destroy)(Handle *);
    uint32_t (*length)(const Handle *, uint32_t *);
    uint32_t (*add)(Handle *, const void *);
    uint32_t (*remove)(Handle *, void *);
    uint32_t (*drop)(Handle *) = nullptr;
    uint32_t (*dropIndex)(Handle *, Index) = nullptr;
    uint32_t (*look)(const Handle *, Index, void *) = nullptr;
    uint32_t (*peek)(const Handle *, Index, void **) = nullptr;
    uint32_t (*removeIndex)(Handle *, Index, void *) = nullptr;
};

const Calls<Queue, uint32_t> queueCalls = {QUE_BAD_ARG, 1,      5,      3,           QueCreate, QueDestroy, QueLength,
                                           QueAdd,      QueRmv, QueDel, QueDelIndex, QueLook,   QuePeek};
const Calls<Stack, uint32_t> stackCalls = {0, 1, 0, 1, StackCreate, StackDestroy, StackLength, StackAdd, StackRmv};
const Calls<PQueue, int32_t> pqueueCalls = {PQ_BAD_INDEX, 4,        0,      4,         createByPriority,
                                            PQDestroy,    PQLength, PQAdd,  PQRmv,     PQDel,
                                            PQDelIndex,   PQLook,   PQPeek, PQRmvIndex};

using GoesBefore = bool (*)(uint32_t added, uint32_t present);

// The filling and emptying keeps a queue's elements wrapping around the end of its ring, through every growth.
template<typename Handle, typename Index>
void drive(const Calls<Handle, Index> &calls, GoesBefore goesBefore, uint32_t size, HeapWatch &watch, int steps,
           Handle *handle)
{
    std::mt19937 random(size);
    std::vector<uint32_t> model; // in the order in which they come out
    size_t capacity = 20;
    auto isInside = [&](int32_t index) { return index >= 0 && static_cast<size_t>(index) < model.size(); };
    auto statOf = [&](int32_t index) { return model.empty() ? 2u : isInside(index) ? 0u : calls.badIndex; };
    const std::string blank = elementOf(0xEEEE, size);
    for (int step = 0; step < steps; ++step) {
        SCOPED_TRACE(step);
        if (random() % 10 < ((step / 500) % 2 == 0 ? 6u : 3u)) {
            bool grows = model.size() == capacity;
            uint32_t number = random() % 0x10000;
            uint32_t stat = calls.add(handle, elementOf(number, size).data());
            ASSERT_EQ(stat, watch.justFailed() ? noMemory : 0u);
            if (stat == 0)
                model.insert(std::upper_bound(model.begin(), model.end(), number, goesBefore), number);
            ASSERT_TRUE(!grows || watch.lastSize() == size * (capacity + 10));
            capacity += grows && stat == 0 ? 10 : 0;
        } else {
            unsigned way = random() % calls.removals;
            bool atHead = way < 2 || model.size() == capacity; // of a full ring, tail and head are one slot
            int32_t index = atHead ? 0 : static_cast<int32_t>(random() % (model.size() + 2)) - 1;
            auto at = static_cast<Index>(index);
            uint32_t head = fieldOf(handle, calls.headField);
            std::string out = blank;
            uint32_t stat = way == 0   ? calls.remove(handle, out.data())
                            : way == 1 ? calls.drop(handle)
                            : way == 2 ? calls.dropIndex(handle, at)
                                       : calls.removeIndex(handle, at, out.data());
            ASSERT_EQ(stat, statOf(index));
            ASSERT_EQ(out, stat == 0 && way % 3 == 0 ? elementOf(model[at], size) : blank);
            ASSERT_TRUE(way != 2 || fieldOf(handle, calls.headField) == head)
                << "the later elements move, not the head";
            if (stat == 0)
                model.erase(model.begin() + index);
        }
        uint32_t count = 7777;
        ASSERT_EQ(calls.length(handle, &count), 0u);
        ASSERT_EQ(count, model.size());
        ASSERT_EQ(fieldOf(handle, calls.capacityField), capacity);
        for (int32_t i = -1; calls.look != nullptr && i <= static_cast<int32_t>(count); ++i) {
            std::string looked = blank;
            void *peeked = nullptr;
            expectEach(statOf(i), {calls.look(handle, Index(i), looked.data()), calls.peek(handle, Index(i), &peeked)});
            ASSERT_EQ(looked, isInside(i) ? elementOf(model[static_cast<size_t>(i)], size) : blank) << "at " << i;
            ASSERT_TRUE(isInside(i) ? std::memcmp(peeked, looked.data(), size) == 0 : peeked == nullptr);
        }
    }
    EXPECT_GE(capacity, steps > 1000 ? 60u : 30u);
}

template<typename Handle, typename Index>
void refuseSizesThatWrap(const Calls<Handle, Index> &calls)
{
    for (uint32_t size : {UINT32_MAX / 20 + 1, UINT32_MAX})
        EXPECT_EQ(calls.create(size), nullptr);
    Handle *handle = calls.create(4);
    fieldOf(handle, countField) = fieldOf(handle, calls.capacityField) = (1u << 30) - 9;
    EXPECT_EQ(calls.add(handle, "abc"), noMemory);
    EXPECT_EQ(calls.destroy(handle), 0u);
}

TEST(Elements, BehaveAsAModelUnderRandomTraffic)
{
    auto test = [](auto &calls, GoesBefore goesBefore) {
        for (uint32_t size : {1u, 4u, 9u, 65u}) // a byte, a word, in pieces, by a call
            test_support::runTraffic(
                500, 8000, [&] { return calls.create(size); }, calls.destroy,
                [&](auto &...arguments) { drive(calls, goesBefore, size, arguments...); });
        refuseSizesThatWrap(calls);
    };
    test(queueCalls, [](uint32_t, uint32_t) { return false; });
    test(stackCalls, [](uint32_t, uint32_t) { return true; });
    test(pqueueCalls, [](uint32_t added, uint32_t present) { return (added & 7) > (present & 7); });
}

TEST(PQueue, CountsElementsOfNoSize)
{
    uint32_t length = 0;
    PQueue *queue = PQCreate(0, [](const void *, const void *) { return 0; });
    for (uint32_t i = 1; i < 32; ++i)
        expectEach(PQ_OK, {PQAdd(queue, "abc"), PQLength(queue, &length), length - i});
    EXPECT_EQ(PQDestroy(queue), PQ_OK);
}

} // namespace
