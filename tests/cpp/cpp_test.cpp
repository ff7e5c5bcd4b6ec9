// The headers for C++. What the C functions do is tested beside them; here is what the wrappers add: who owns
// what, which function is called with what, and the user's exceptions.
#include "tests/support/heap_watch.h"

#include "general/general.hpp"

#include <gmock/gmock.h>

#include <memory>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

namespace {

using test_support::HeapWatch;
using testing::ElementsAre;

template<typename... Owners>
constexpr bool areHandles = ((sizeof(Owners) == sizeof(void *)) && ...);
static_assert(areHandles<general::Queue<int>, general::Stack<int>, general::PriorityQueue<double>>);
static_assert(areHandles<general::Tree<int32_t, int>, general::Tree<std::string, std::string>, general::Map<int, int>>);
static_assert(areHandles<general::List<double>, general::ArrayList<int, int>, general::StringVector, general::Buffer>);
static_assert(areHandles<general::String, general::BufferPool, general::Counted<int>, general::Cache<int>>);
static_assert(areHandles<general::Action<int>, general::KeyCall<int *, int *>>);
static_assert(sizeof(general::StringList) == sizeof(StrList));

template<typename A, typename B, typename = void>
constexpr bool comparable = false;
template<typename A, typename B>
constexpr bool comparable<A, B, std::void_t<decltype(std::declval<A>() == std::declval<B>())>> = true;
static_assert(comparable<general::Result<QueStat>, QueStat> && !comparable<general::Result<QueStat>, StackStat>);
static_assert(!comparable<general::Result<QueStat>, int> && !std::is_copy_constructible_v<general::Queue<int>>);

struct Thrown {};

/// Counts those that live.
struct Value {
    static inline int living = 0;
    int number;

    explicit Value(int theNumber) : number(theNumber) { ++living; }
    Value(const Value &other) : Value(other.number) {}
    ~Value() { --living; }
};

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

struct ThrowingValue {
    ThrowingValue() { throw Thrown(); }
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
    expectOwnership([] { return general::Map<int, int>(); });
    expectOwnership([] { return general::ArrayList<int, int>(); });
    expectOwnership([] { return general::Buffer(); });
    expectOwnership([] { return general::String(); });
    expectOwnership([] { return general::BufferPool(2, 10); });
    expectOwnership([] { return general::Action<int>(); });
    expectOwnership([] { return general::KeyCall<int *, int *>(); });
    expectOwnership([] { return general::Counted(new Value(1)); });
    expectOwnership([] {
        general::Tree<std::string, Value> tree;
        tree.try_emplace("key", 1);
        return tree;
    });
    expectOwnership([] {
        general::List<Value> list;
        list.push_back(Value(1));
        return list;
    });
    expectOwnership([] {
        general::Cache<Value> cache;
        cache.access("key", [](std::string_view) { return std::make_unique<Value>(1); });
        return cache;
    });
    EXPECT_EQ(Value::living, 0);
}

TEST(Cpp, EmptyOwnersAreRefusedAsNullIs)
{
    general::Queue<int> queue;
    ASSERT_TRUE(queue.reset());
    EXPECT_EQ(queue.push(1), QUE_BAD_HANDLE);
    EXPECT_EQ(queue.pop().result(), QUE_BAD_HANDLE);
    EXPECT_EQ(queue.front(), nullptr);
    EXPECT_TRUE(queue.empty());
    general::Tree<std::string, int> tree;
    general::List<int> list;
    general::Map<int, int> map;
    general::ArrayList<int, int> pairs;
    tree.reset();
    EXPECT_TRUE(list.reset() && map.reset() && pairs.reset());
    EXPECT_TRUE(tree.empty() && list.empty() && map.empty() && pairs.empty());
    EXPECT_THAT(tree.reversed().begin(), tree.reversed().end());
    for ([[maybe_unused]] auto [key, value] : map)
        ADD_FAILURE() << "an empty owner has an entry";
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

/// The keys and values that a loop meets, as text.
template<typename Range>
std::string walked(const Range &range)
{
    std::ostringstream text;
    for (auto [key, value] : range)
        text << key << value << ' ';
    return text.str();
}

TEST(Cpp, TreesAreWalkedBothWays)
{
    general::Tree<const char *, int> words;
    general::Tree<int32_t, char> numbers;
    general::Tree<const std::string *, int, std::less<std::string>> pointers;
    const std::string texts[] = {"b", "a", "c"};
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(words.insert(texts[i].c_str(), i).second);
        EXPECT_TRUE(numbers.insert(10 * i - 10, "xyz"[i]).second);
        EXPECT_TRUE(pointers.insert(&texts[i], i).second);
    }
    EXPECT_FALSE(words.insert("a", 9).second);
    EXPECT_EQ(walked(words), "a1 b0 c2 ");
    EXPECT_EQ(walked(words.reversed()), "c2 b0 a1 ");
    EXPECT_EQ(walked(numbers), "-10x 0y 10z ");
    EXPECT_EQ(numbers.lower_bound(1).key(), 10);
    EXPECT_FALSE(numbers.lower_bound(11));
    const std::string b = "b";
    EXPECT_EQ(pointers.find(&b).value(), 0);
    EXPECT_EQ(pointers.erase(pointers.find(&b)).key(), &texts[2]);
    EXPECT_TRUE(!pointers.contains(&b) && words.erase("a") && !words.erase("a"));
    EXPECT_EQ(walked(words), "b0 c2 ");
}

TEST(Cpp, ATreeOwnsItsStrings)
{
    test_support::failEachAllocation([](HeapWatch &watch) {
        general::Tree<std::string, Value> tree;
        if (!tree)
            return;
        std::string key = "bb";
        for (std::string_view text : {std::string_view(key), std::string_view("abc", 2), std::string_view("b\0x", 3),
                                      std::string_view("\xE9"), std::string_view("ab")}) {
            auto [leaf, isNew] = tree.try_emplace(text, static_cast<int>(text.size()));
            EXPECT_EQ(!leaf, watch.justFailed());
            EXPECT_TRUE(isNew || text == "ab" || watch.failed());
        }
        key = "zz";
        if (watch.failed())
            return;
        EXPECT_FALSE(tree.try_emplace("ab", 9).second);
        std::string keys;
        for (auto [text, value] : tree)
            keys.append(text).append(std::to_string(++value.number));
        EXPECT_EQ(keys, "ab3b4bb3\xE9"
                        "2");
        EXPECT_TRUE(tree.find("ab") == tree.find(std::string_view("ab")) && !tree.find(std::string_view("abb", 1)));
        EXPECT_TRUE(!tree.find(std::string_view("b\0x", 3)) && tree.contains("\xE9") && !tree.contains("b\xE9"));
        EXPECT_TRUE(tree.erase("bb") && tree.erase(std::string("b")) && !tree.erase(std::string_view("b")));
        EXPECT_EQ(Value::living, 2);
    });
    EXPECT_EQ(Value::living, 0);
}

TEST(Cpp, WhatAComparisonOfKeysThrowsComesOut)
{
    const int keys[] = {1, 2, 3};
    general::Tree<const int *, int, Throwing> tree;
    tree.insert(&keys[0], 1);
    for (int failing = 1; failing <= 2; ++failing) {
        Throwing::calls = failing;
        EXPECT_THROW(tree.insert(&keys[2], 3), Thrown);
        Throwing::calls = failing;
        EXPECT_THROW(tree.contains(&keys[0]), Thrown);
    }
    EXPECT_EQ(tree.begin().key(), &keys[0]);
    EXPECT_FALSE(++tree.begin());
}

TEST(Cpp, MapsAndListsAreWalked)
{
    general::Map<const char *, int> map;
    const char *const word = "word";
    general::check(map.insert(word, -1));
    EXPECT_EQ(general::check(map.find(word)), -1);
    EXPECT_EQ(walked(map), "word-1 ");
    EXPECT_TRUE(map.erase(word) && map.erase(word) == MAP_NOT_FOUND && map.empty());

    general::ArrayList<int, char> pairs;
    EXPECT_TRUE(pairs.push_back(2, 'x') && pairs.push_back(1, 'y') && pairs.push_back(3, 'z'));
    EXPECT_EQ(walked(pairs), "2x 1y 3z ");
    EXPECT_EQ(pairs.find(1)->object, 'y');
    EXPECT_EQ(pairs.find_object('z')->key, 3);
    EXPECT_EQ(pairs.erase(2)->object, 'x');
    EXPECT_EQ(pairs.at(2).result(), ARRAYLST_NO_SUCH_OBJ);

    general::StringList strings(0, 4);
    for (const char *string : {"one", "", "three"})
        ASSERT_NE(strings.push_back(string), nullptr);
    general::StringList moved = std::move(strings);
    EXPECT_THAT(std::vector<std::string_view>(moved.begin(), moved.end()), ElementsAre("one", "", "three"));
    EXPECT_TRUE(strings.empty() && strings.push_back("again") && *strings.begin() == "again");
    general::StringVector vector(moved);
    EXPECT_STREQ(vector.get()[2], "three");
    EXPECT_EQ(vector.get()[3], nullptr);

    HeapWatch watch;
    {
        general::List<Value> list;
        list.push_back(Value(2));
        auto second = list.emplace(list.end(), 3);
        list.push_front(Value(1));
        EXPECT_EQ(list.erase(second), list.end());
        EXPECT_EQ(std::prev(list.end())->number, 2);
        EXPECT_EQ(std::accumulate(list.begin(), list.end(), 0, [](int sum, const Value &v) { return sum + v.number; }),
                  3);
        general::List<ThrowingValue> throwing;
        EXPECT_THROW(throwing.emplace(throwing.begin()), Thrown);
        EXPECT_TRUE(throwing.empty());
    }
    EXPECT_TRUE(watch.liveBlocks() == 0 && Value::living == 0);
}

TEST(Cpp, BuffersShowTextOfKnownLength)
{
    general::Buffer buffer(1);
    EXPECT_TRUE(buffer.append("ab") && buffer.append(std::string(1, '\0')) && buffer.insert(1, "x"));
    EXPECT_EQ(buffer.view(), std::string_view("axb\0", 4));
    EXPECT_EQ(buffer.erase(3, 2), CBUF_BAD_SIZE);
    *static_cast<char *>(general::check(buffer.extend(1))) = 'e';
    EXPECT_TRUE(buffer.erase(1, 3) && buffer.view() == "ae" && buffer.assign("n") && buffer.size() == 1);
    general::String string(1);
    EXPECT_STREQ(string.c_str(), "");
    EXPECT_TRUE(string.append("ab") && string.append("c"));
    EXPECT_TRUE(string.view() == "abc" && string.clear() && string.view().empty());
    EXPECT_STREQ(string.c_str(), "");
    general::BufferPool pool(1, 10);
    {
        auto grabbed = pool.grab(10);
        EXPECT_TRUE(grabbed && !pool.grab(1));
        auto taken = std::move(grabbed);
        EXPECT_EQ(pool.available(), 0);
    }
    EXPECT_EQ(pool.available(), 1);
}

TEST(Cpp, CountedValuesEndWithTheLastReference)
{
    auto first = general::Counted(new Value(4));
    {
        auto second = first.share();
        EXPECT_TRUE(second->number == 4 && first.count() == 2);
        first.reset();
        EXPECT_EQ(Value::living, 1);
    }
    EXPECT_EQ(Value::living, 0);
    HeapWatch watch(1);
    EXPECT_FALSE(general::Counted(new Value(5)));
    EXPECT_EQ(Value::living, 0);
}

TEST(Cpp, CachesForgetWhatCouldNotBeMade)
{
    general::Cache<Value> cache(1);
    auto make = [](std::string_view key) { return new Value(static_cast<int>(key.size())); };
    auto fail = [](std::string_view) -> Value * { throw Thrown(); };
    auto failInside = [&](std::string_view) {
        EXPECT_THROW(cache.access("inner", fail), Thrown);
        return std::make_unique<Value>(cache.access("inner", make)->number);
    };
    EXPECT_THROW(cache.access("outer", fail), Thrown);
    EXPECT_EQ(CacheFinish(cache.get(), "outer", 5), CACHE_NO_REFERENCE);
    {
        auto pin = cache.access("outer", failInside);
        EXPECT_EQ(pin->number, 5);
        auto again = cache.access("outer", fail); // nothing is to be made
        EXPECT_EQ(again.get(), pin.get());
        pin = std::move(again);
        EXPECT_TRUE(pin.finish() && pin.finish() && !pin);
        EXPECT_EQ(CacheFinish(cache.get(), "outer", 5), CACHE_NO_REFERENCE);
    }
    EXPECT_TRUE(cache.erase("outer") && cache.erase("nothing") == CACHE_NO_ENTRY);
    EXPECT_EQ(Value::living, 1);
}

TEST(Cpp, RegistriesCallEveryFunctionAndThrowThen)
{
    general::Action<std::string> action;
    auto add = [](std::string &text) { text += 'a'; };
    auto fail = [](std::string &text) -> void { throw text.size(); };
    int32_t first = action.add(add);
    action.add(fail);
    action.add(add);
    std::string text;
    EXPECT_THROW(general::check(action.run(text)), std::size_t);
    EXPECT_TRUE(text == "aa" && action.erase(first) && action.size() == 2);
    EXPECT_TRUE(action.clear() && action.run(text) && text == "aa");
    general::KeyCall<int (*)(int), const char *> registry;
    uint32_t key = registry.next();
    EXPECT_TRUE(registry.insert(key, [](int number) { return number + 1; }, "data"));
    EXPECT_EQ(general::check(registry.find(key)).callback(1), 2);
    EXPECT_STREQ(registry.pop()->data, "data");
    EXPECT_EQ(registry.erase(key).result(), KEYCALL_NO_ENTRY);
}

} // namespace
