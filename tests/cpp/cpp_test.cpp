// The headers for C++. What the C functions do is tested beside them; here is what the wrappers add: who owns
// what, which function is called with what, and the user's exceptions.
#include "tests/support/heap_watch.h"

#include "general/general.hpp"

#include <gmock/gmock.h>

#include <vector>

namespace {

using test_support::HeapWatch;
using testing::ElementsAre;

template<typename... Owners>
constexpr bool areHandles = ((sizeof(Owners) == sizeof(void *)) && ...);
static_assert(areHandles<general::Queue<int>, general::Stack<int>, general::PriorityQueue<double>>);

template<typename A, typename B, typename = void>
constexpr bool comparable = false;
template<typename A, typename B>
constexpr bool comparable<A, B, std::void_t<decltype(std::declval<A>() == std::declval<B>())>> = true;
static_assert(comparable<general::Result<QueStat>, QueStat> && !comparable<general::Result<QueStat>, StackStat>);
static_assert(!comparable<general::Result<QueStat>, int> && !std::is_copy_constructible_v<general::Queue<int>>);

struct Thrown {};

/// Throws in the call before which `calls` counts down to 0.
struct Throwing {
    static inline int calls = 0;
    static void count()
    {
        if (--calls == 0)
            throw Thrown();
    }
    bool operator()(int a, int b) const
    {
        count();
        return a < b;
    }
};

template<typename Queue>
std::vector<int> drained(Queue &queue)
{
    std::vector<int> elements;
    for (int element = 0; queue.pop(element);)
        elements.push_back(element);
    return elements;
}

/// What every owner does with its handle. `make` makes one that is not empty.
template<typename Make>
void expectOwnership(Make make)
{
    HeapWatch watch;
    {
        auto first = make();
        auto *handle = first.get();
        auto second = std::move(first);
        EXPECT_FALSE(first);
        EXPECT_EQ(second.get(), handle);
        decltype(first) third(general::adopt, second.release());
        EXPECT_FALSE(second);
        first = std::move(third);
        second = make();
        second = std::move(first);
        EXPECT_EQ(second.get(), handle);
        second.swap(first);
        EXPECT_EQ(first.get(), handle);
        static_cast<void>(first.reset());
        static_cast<void>(first.reset());
        EXPECT_FALSE(first);
    }
    EXPECT_EQ(watch.liveBlocks(), 0);
}

TEST(Cpp, OwnersHoldOneHandle)
{
    expectOwnership([] { return general::Queue<int>(); });
    expectOwnership([] { return general::Stack<int>(); });
    expectOwnership([] { return general::PriorityQueue<int>(); });
}

TEST(Cpp, EmptyOwnersAreRefusedAsNullIs)
{
    general::Queue<int> queue;
    ASSERT_TRUE(queue.reset());
    EXPECT_EQ(queue.push(1), QUE_BAD_HANDLE);
    EXPECT_EQ(queue.pop().result(), QUE_BAD_HANDLE);
    EXPECT_EQ(queue.front(), nullptr);
    EXPECT_TRUE(queue.empty());
    HeapWatch watch(1);
    EXPECT_THROW(general::check(general::Queue<int>()), std::bad_alloc);
}

TEST(Cpp, ResultsBecomeExceptions)
{
    general::Stack<int> stack;
    general::check(stack.push(7));
    EXPECT_EQ(general::check(stack.pop()), 7);
    try {
        general::check(stack.pop());
        ADD_FAILURE() << "an empty stack gave an element";
    } catch (const general::ErrorOf<StackStat> &error) {
        EXPECT_EQ(error.status(), STACK_EMPTY);
        EXPECT_STREQ(error.what(), "StackStat 2");
    }
}

TEST(Cpp, QueuesHandElementsOut)
{
    general::Queue<int> queue;
    general::PriorityQueue<int> largestFirst;
    general::PriorityQueue<int, std::greater<int>> smallestFirst;
    for (int element : {2, 3, 1, 4}) {
        general::check(queue.push(element));
        general::check(largestFirst.push(element));
        general::check(smallestFirst.push(element));
    }
    *queue.front() = 5;
    general::check(queue.erase(1));
    general::check(smallestFirst.erase(3));
    EXPECT_EQ(*queue.peek(2), 4);
    EXPECT_EQ(*largestFirst.top(), 4);
    EXPECT_EQ(largestFirst.pop().value_or(0), 4);
    general::check(largestFirst.discard());
    EXPECT_THAT(drained(queue), ElementsAre(5, 1, 4));
    EXPECT_THAT(drained(largestFirst), ElementsAre(2, 1));
    EXPECT_THAT(drained(smallestFirst), ElementsAre(1, 2, 3));
}

TEST(Cpp, AComparisonThatThrowsQueuesNothing)
{
    for (int failing = 1; failing <= 4; ++failing) {
        for (int element = 0; element <= 10; ++element) {
            general::PriorityQueue<int, Throwing> queue;
            for (int i : {1, 3, 3, 5, 5, 5, 7, 9}) {
                Throwing::calls = 0;
                general::check(queue.push(i));
            }
            Throwing::calls = failing;
            bool thrown = false;
            try {
                general::check(queue.push(element));
            } catch (const Thrown &) {
                thrown = true;
            }
            EXPECT_EQ(thrown, Throwing::calls == 0);
            EXPECT_EQ(queue.size(), thrown ? 8 : 9);
            EXPECT_TRUE(!thrown || drained(queue) == (std::vector{9, 7, 5, 5, 5, 3, 3, 1})) << failing << element;
        }
    }
}

} // namespace
