// The three containers of elements held by value, through one driver: queue, stack, priority queue.

#include "general/pqueue.h"
#include "general/queue.h"
#include "general/stack.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <vector>

namespace {

using test_support::fieldOf;

using Model = std::vector<uint32_t>;               ///< 16-bit numbers in the order in which they come out
constexpr uint32_t tooLarge = UINT32_MAX / 20 + 1; ///< the bytes of 20 elements wrap to a short block

using Element = std::array<unsigned char, 10>;

/// An element that holds a number, with a guard behind its last byte.
Element elementOf(uint32_t number, uint32_t size)
{
    Element element;
    element.fill(0xEE);
    std::fill_n(element.begin(), size, static_cast<unsigned char>(number >> 8));
    element[0] = static_cast<unsigned char>(number);
    return element;
}

struct QueueKind {
    static constexpr bool indexed = true;
    static constexpr size_t capacityField = 1;
    static constexpr uint32_t empty = QUE_EMPTY, badIndex = QUE_BAD_ARG, noMemory = QUE_NO_MEMORY;
    Queue *handle = nullptr;
    void create(uint32_t size) { handle = QueCreate(size); }
    static size_t placeOf(const Model &model, uint32_t) { return model.size(); }
    uint32_t destroy() { return QueDestroy(handle); }
    uint32_t length(uint32_t *count) { return QueLength(handle, count); }
    uint32_t add(const void *element) { return QueAdd(handle, element); }
    uint32_t remove(void *element) { return QueRmv(handle, element); }
    uint32_t drop() { return QueDel(handle); }
    uint32_t dropIndex(int32_t index)
    {
        uint32_t head = fieldOf(handle, 5);
        uint32_t stat = QueDelIndex(handle, static_cast<uint32_t>(index));
        EXPECT_EQ(fieldOf(handle, 5), head) << "the later elements move, not the head";
        return stat;
    }
    uint32_t removeIndex(int32_t index, void *element)
    {
        uint32_t stat = look(index, element);
        return stat == QUE_OK ? dropIndex(index) : stat;
    }
    uint32_t look(int32_t index, void *element) { return QueLook(handle, static_cast<uint32_t>(index), element); }
    uint32_t peek(int32_t index, void **element) { return QuePeek(handle, static_cast<uint32_t>(index), element); }
};

struct StackKind {
    static constexpr bool indexed = false;
    static constexpr size_t capacityField = 1;
    static constexpr uint32_t empty = STACK_EMPTY, badIndex = 0, noMemory = STACK_NO_MEMORY;
    Stack *handle = nullptr;
    void create(uint32_t size) { handle = StackCreate(size); }
    static size_t placeOf(const Model &, uint32_t) { return 0; }
    uint32_t destroy() { return StackDestroy(handle); }
    uint32_t length(uint32_t *count) { return StackLength(handle, count); }
    uint32_t add(const void *element) { return StackAdd(handle, element); }
    uint32_t remove(void *element) { return StackRmv(handle, element); }
};

struct PQueueKind {
    static constexpr bool indexed = true;
    static constexpr size_t capacityField = 4;
    static constexpr uint32_t empty = PQ_BAD_INDEX, badIndex = PQ_BAD_INDEX, noMemory = PQ_NO_MEMORY;
    PQueue *handle = nullptr;
    void create(uint32_t size) { handle = PQCreate(size, greatestFirst); }
    /// The low 3 bits are the priority, the rest tells equals apart.
    static int greatestFirst(const void *queued, const void *added)
    {
        return (*static_cast<const char *>(queued) & 7) - (*static_cast<const char *>(added) & 7);
    }
    static size_t placeOf(const Model &model, uint32_t number)
    {
        auto before = [](uint32_t left, uint32_t right) { return (left & 7) > (right & 7); };
        return static_cast<size_t>(std::upper_bound(model.begin(), model.end(), number, before) - model.begin());
    }
    uint32_t destroy() { return PQDestroy(handle); }
    uint32_t length(uint32_t *count) { return PQLength(handle, count); }
    uint32_t add(const void *element) { return PQAdd(handle, element); }
    uint32_t remove(void *element) { return PQRmv(handle, element); }
    uint32_t drop() { return PQDel(handle); }
    uint32_t dropIndex(int32_t index) { return PQDelIndex(handle, index); }
    uint32_t removeIndex(int32_t index, void *element) { return PQRmvIndex(handle, index, element); }
    uint32_t look(int32_t index, void *element) { return PQLook(handle, index, element); }
    uint32_t peek(int32_t index, void **element) { return PQPeek(handle, index, element); }
};

/// A container beside its model.
template<typename Kind>
struct Traffic {
    uint32_t size;
    Kind container;
    Model model;
    size_t capacity = 20;

    void add(test_support::HeapWatch &watch, uint32_t number)
    {
        bool grows = model.size() == capacity;
        uint32_t stat = container.add(elementOf(number, size).data());
        ASSERT_EQ(stat, watch.justFailed() ? Kind::noMemory : 0u);
        if (stat == 0)
            model.insert(model.begin() + static_cast<ptrdiff_t>(Kind::placeOf(model, number)), number);
        capacity += grows && stat == 0 ? 10 : 0;
        ASSERT_TRUE(!grows || watch.lastSize() == size * (stat == 0 ? capacity : capacity + 10));
    }

    /// Removes an element in one of four ways; the index may be outside.
    void remove(unsigned way, int32_t index)
    {
        way = Kind::indexed ? way : 0;
        index = way < 2 ? 0 : index;
        Element out = elementOf(0xEEEE, size);
        Element expected = out;
        uint32_t stat = 0;
        if (way == 0)
            stat = container.remove(out.data());
        if constexpr (Kind::indexed) {
            if (way == 1)
                stat = container.drop();
            else if (way == 2)
                stat = container.removeIndex(index, out.data());
            else if (way == 3)
                stat = container.dropIndex(index);
        }
        bool inside = index >= 0 && static_cast<size_t>(index) < model.size();
        ASSERT_EQ(stat, model.empty() ? Kind::empty : inside ? 0u : Kind::badIndex);
        if (inside) {
            expected = way % 2 == 0 ? elementOf(model[static_cast<size_t>(index)], size) : expected;
            model.erase(model.begin() + index);
        }
        ASSERT_EQ(out, expected);
    }

    void compare()
    {
        uint32_t count = 7777;
        ASSERT_EQ(container.length(&count), 0u);
        ASSERT_EQ(count, model.size());
        ASSERT_EQ(fieldOf(container.handle, Kind::capacityField), capacity);
        if constexpr (Kind::indexed)
            for (int32_t i = 0; i < static_cast<int32_t>(count); ++i) {
                Element expected = elementOf(model[static_cast<size_t>(i)], size);
                Element looked = elementOf(0xEEEE, size);
                void *peeked = nullptr;
                ASSERT_EQ(container.look(i, looked.data()) | container.peek(i, &peeked), 0u);
                ASSERT_EQ(looked, expected) << "at " << i;
                ASSERT_EQ(std::memcmp(peeked, expected.data(), size), 0) << "at " << i;
            }
    }
};

template<typename Kind>
class Elements : public testing::Test {
};
using Kinds = testing::Types<QueueKind, StackKind, PQueueKind>;
TYPED_TEST_SUITE(Elements, Kinds);

// Traffic keeps a queue's elements wrapping around the end of its ring, through every growth.
TYPED_TEST(Elements, BehaveAsAModelUnderRandomTraffic)
{
    for (uint32_t size : {2u, 4u, 9u})
        test_support::runTraffic(500, 8000, [size](test_support::HeapWatch &watch, int steps) {
            std::mt19937 random(size);
            Traffic<TypeParam> traffic{size, {}, {}};
            traffic.container.create(size);
            EXPECT_EQ(traffic.container.handle == nullptr, watch.justFailed());
            if (traffic.container.handle == nullptr)
                return;
            for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
                SCOPED_TRACE(step);
                auto index = static_cast<int32_t>(random() % (traffic.model.size() + 2)) - 1;
                if (random() % 10 < ((step / 500) % 2 == 0 ? 6u : 3u))
                    traffic.add(watch, random() % 0x10000);
                else
                    traffic.remove(random() % 4, index);
                traffic.compare();
            }
            EXPECT_GE(traffic.capacity, steps > 1000 ? 60u : 30u);
            EXPECT_EQ(traffic.container.destroy(), 0u);
            EXPECT_EQ(watch.wordOfLastFreedBlock(), 0u) << "the magic stays";
        });
}

TEST(Queue, ReportsTheFirstThingWrong)
{
    test_support::forEachForeign<Queue>([](Queue *queue) {
        test_support::expectEach(QUE_BAD_HANDLE, {QueDestroy(queue), QueLength(queue, nullptr), QueAdd(queue, nullptr),
                                                  QueRmv(queue, nullptr), QueDel(queue), QueDelIndex(queue, 0),
                                                  QueLook(queue, 0, nullptr), QuePeek(queue, 0, nullptr)});
    });
    for (uint32_t size : {0u, tooLarge, UINT32_MAX})
        EXPECT_EQ(QueCreate(size), nullptr);
    int value = 7;
    void *address = nullptr;
    Queue *queue = QueCreate(sizeof value);
    test_support::expectEach(QUE_EMPTY, {QueRmv(queue, nullptr), QueDel(queue), QueDelIndex(queue, 9),
                                         QueLook(queue, 9, nullptr), QuePeek(queue, 9, nullptr)});
    test_support::expectEach(QUE_BAD_ARG, {QueLength(queue, nullptr), QueAdd(queue, nullptr)});
    QueAdd(queue, &value);
    test_support::expectEach(QUE_BAD_ARG,
                             {QueRmv(queue, nullptr), QueLook(queue, 0, nullptr), QuePeek(queue, 0, nullptr)});
    for (uint32_t index : {1u, 0x7FFFFFFFu, UINT32_MAX})
        test_support::expectEach(
            QUE_BAD_ARG, {QueDelIndex(queue, index), QueLook(queue, index, &value), QuePeek(queue, index, &address)});
    EXPECT_EQ(address, nullptr);
    EXPECT_EQ(QueDestroy(queue), QUE_OK);
}

TEST(Stack, ReportsTheFirstThingWrong)
{
    test_support::forEachForeign<Stack>([](Stack *stack) {
        test_support::expectEach(STACK_BAD_HANDLE, {StackDestroy(stack), StackLength(stack, nullptr),
                                                    StackAdd(stack, nullptr), StackRmv(stack, nullptr)});
    });
    for (uint32_t size : {0u, tooLarge, UINT32_MAX})
        EXPECT_EQ(StackCreate(size), nullptr);
    int value = 7;
    Stack *stack = StackCreate(sizeof value);
    EXPECT_EQ(StackRmv(stack, nullptr), STACK_EMPTY); // emptiness before the pointer
    StackAdd(stack, &value);
    test_support::expectEach(STACK_BAD_ARG,
                             {StackLength(stack, nullptr), StackAdd(stack, nullptr), StackRmv(stack, nullptr)});
    EXPECT_EQ(StackDestroy(stack), STACK_OK);
}

TEST(PQueue, ReportsTheFirstThingWrong)
{
    uint32_t word = 7;
    void *address = nullptr;
    test_support::forEachForeign<PQueue>([&](PQueue *queue) {
        test_support::expectEach(PQ_BAD_HANDLE,
                                 {PQDestroy(queue), PQAdd(queue, &word), PQRmv(queue, &word), PQDel(queue),
                                  PQRmvIndex(queue, -1, &word), PQDelIndex(queue, -1), PQLength(queue, &word),
                                  PQLook(queue, -1, &word), PQPeek(queue, -1, &address)});
    });
    EXPECT_EQ(PQCreate(tooLarge, PQueueKind::greatestFirst), nullptr);
    PQueue *queue = PQCreate(sizeof word, PQueueKind::greatestFirst);
    PQAdd(queue, &word);
    for (int32_t index : {-1, 1, INT32_MAX, INT32_MIN})
        test_support::expectEach(PQ_BAD_INDEX, {PQLook(queue, index, &word), PQPeek(queue, index, &address)});
    EXPECT_EQ(word, 7u);
    EXPECT_EQ(address, nullptr);
    EXPECT_EQ(PQDestroy(queue), PQ_OK);
}

TEST(PQueue, CountsElementsOfNoSize)
{
    PQueue *queue = PQCreate(0, [](const void *, const void *) { return 0; });
    for (int i = 0; i < 31; ++i)
        EXPECT_EQ(PQAdd(queue, &i), PQ_OK);
    uint32_t length = 0;
    PQLength(queue, &length);
    EXPECT_EQ(length, 31u);
    EXPECT_EQ(PQDestroy(queue), PQ_OK);
}

} // namespace
