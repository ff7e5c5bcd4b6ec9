// The headers for C++. What the C functions do is tested beside them; here is what the wrappers add: who owns
// what, which function is called with what, and the user's exceptions.
#include "tests/support/heap_watch.h"

#include "general/general.hpp"

#include <gmock/gmock.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace std::literals;
using test_support::HeapWatch;
using testing::ElementsAre;

template<typename... Owners>
constexpr bool areHandles = ((sizeof(Owners) == sizeof(void *)) && ...);
static_assert(areHandles<general::Queue<int>, general::Stack<int>, general::PriorityQueue<double>>);
static_assert(areHandles<general::Tree<int32_t, int>, general::Tree<std::string, std::string>, general::Map<int, int>>);
static_assert(areHandles<general::List<double>, general::ArrayList<int, int>, general::StringVector, general::Buffer>);
static_assert(areHandles<general::String, general::BufferPool, general::Counted<int>, general::Cache<int>>);
static_assert(areHandles<general::Action<int>, general::KeyCall<int *, int *>>);
static_assert(sizeof(general::StringList) == sizeof(StrList) && sizeof(general::Vector) == sizeof(V3));
static_assert(sizeof(general::Rotation) == sizeof(R3));

template<typename A, typename B, typename = void>
constexpr bool comparable = false;
template<typename A, typename B>
constexpr bool comparable<A, B, std::void_t<decltype(std::declval<A>() == std::declval<B>())>> = true;
static_assert(comparable<general::Result<QueStat>, QueStat> && !comparable<general::Result<QueStat>, StackStat>);
static_assert(!comparable<general::Result<QueStat>, int> && !std::is_copy_constructible_v<general::Queue<int>>);

struct Thrown {
    static inline int calls = 0;
    /// Throws in the call with which `calls` has counted down to 0.
    static void count()
    {
        if (--calls == 0)
            throw Thrown();
    }
};
struct Throwing {
    bool operator()(int a, int b) const { return Thrown::count(), a < b; }
};

/// Counts those that live.
struct Value {
    static inline int living = 0;
    int number;

    explicit Value(int theNumber) : number(theNumber) { Thrown::count(), ++living; }
    Value(const Value &other) : Value(other.number) {}
    ~Value() { --living; }
};
const auto makeValue = [](std::string_view key) { return std::make_unique<Value>(static_cast<int>(key.size())); };
const auto failToMake = [](std::string_view) -> Value * { throw Thrown(); };

template<typename Queue>
std::vector<int> drained(Queue &&queue)
{
    std::vector<int> elements;
    for (int element = 0; queue.pop(element);)
        elements.push_back(element);
    return elements;
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

/// What every owner does with its handle. `make` makes one that is not empty.
template<typename Make>
void expectOwnership(Make make)
{
    HeapWatch watch;
    {
        auto first = make();
        auto *handle = first.get();
        auto second = std::move(first);
        EXPECT_TRUE(!first && second.get() == handle);
        decltype(first) third(general::adopt, second.release());
        EXPECT_FALSE(second);
        second = make();
        second = std::move(third);
        std::swap(first, second);
        EXPECT_EQ(first.get(), handle);
        static_cast<void>(first.reset());
        EXPECT_FALSE(first);
        first = make();
    }
    EXPECT_TRUE(watch.liveBlocks() == 0 && Value::living == 0);
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
    auto filled = [](auto owner, auto fill) { return fill(owner), std::move(owner); };
    expectOwnership(
        [&] { return filled(general::Tree<std::string, Value>(), [](auto &o) { o.try_emplace("key", 1); }); });
    expectOwnership([&] { return filled(general::List<Value>(), [](auto &o) { o.emplace(o.end(), 1); }); });
    expectOwnership([&] { return filled(general::Cache<Value>(), [](auto &o) { o.access("key", makeValue); }); });
}

TEST(Cpp, EmptyOwnersAreRefusedAsNullIs)
{
    general::Queue<int> queue(general::adopt, nullptr);
    EXPECT_TRUE(queue.push(1) == QUE_BAD_HANDLE && queue.pop().result() == QUE_BAD_HANDLE && queue.reset());
    EXPECT_TRUE(queue.front() == nullptr && queue.empty());
    general::Tree<std::string, int> tree(general::adopt, nullptr);
    EXPECT_TRUE(tree.empty() && tree.reversed().begin() == tree.reversed().end());
    general::List<int> list(general::adopt, nullptr);
    EXPECT_TRUE(list.empty() && list.reset());
    EXPECT_EQ(walked(general::Map<int, int>(general::adopt, nullptr)), "");
    EXPECT_EQ(walked(general::ArrayList<int, int>(general::adopt, nullptr)), "");
    HeapWatch watch(1);
    EXPECT_THROW(general::check(general::Queue<int>()), std::bad_alloc);
}

TEST(Cpp, QueuesHandElementsOut)
{
    general::Stack<int> stack;
    general::Queue<int> queue;
    general::PriorityQueue<int> largestFirst;
    general::PriorityQueue<int, std::greater<int>> smallestFirst;
    for (int element : {2, 3, 1, 4})
        EXPECT_TRUE(stack.push(element) && queue.push(element) && largestFirst.push(element) &&
                    smallestFirst.push(element));
    *queue.front() = 5;
    EXPECT_TRUE(queue.erase(1) && smallestFirst.erase(3) && largestFirst.discard() && *queue.peek(2) == 4);
    EXPECT_EQ(*largestFirst.top() + largestFirst.pop().value_or(0), 6);
    EXPECT_THAT(drained(stack), ElementsAre(4, 1, 3, 2));
    EXPECT_THAT(drained(queue), ElementsAre(5, 1, 4));
    EXPECT_THAT(drained(largestFirst), ElementsAre(2, 1));
    EXPECT_THAT(drained(smallestFirst), ElementsAre(1, 2, 3));
    try {
        general::check(stack.pop());
        ADD_FAILURE() << "an empty stack gave an element";
    } catch (const general::ErrorOf<StackStat> &error) {
        EXPECT_EQ(error.status(), STACK_EMPTY);
        EXPECT_STREQ(error.what(), "StackStat 2");
    }
}

TEST(Cpp, AComparisonThatThrowsChangesNothing)
{
    const std::vector<int> queued = {9, 7, 5, 5, 5, 3, 3, 1};
    for (int failing = 1; failing <= 4; ++failing) {
        for (int element = 0; element <= 10; ++element) {
            general::PriorityQueue<int, Throwing> queue;
            Thrown::calls = 0;
            for (int i : queued)
                general::check(queue.push(i));
            Thrown::calls = failing;
            bool thrown = false;
            try {
                general::check(queue.push(element));
            } catch (const Thrown &) {
                thrown = true;
            }
            EXPECT_EQ(thrown, Thrown::calls == 0);
            EXPECT_TRUE(!thrown || drained(queue) == queued) << element << " with comparison " << failing;
        }
    }
    const int keys[] = {1, 3};
    general::Tree<const int *, int, Throwing> tree;
    Thrown::calls = 0;
    tree.insert(&keys[0], 1);
    for (int failing = 1; failing <= 2; ++failing) {
        Thrown::calls = failing;
        EXPECT_THROW(tree.insert(&keys[1], 3), Thrown);
        EXPECT_TRUE(++tree.begin() == tree.end());
    }
}

TEST(Cpp, TreesAreWalkedBothWays)
{
    general::Tree<const char *, int> words;
    general::Tree<int32_t, char> numbers;
    general::Tree<const std::string *, int, std::less<std::string>> pointers;
    const std::string texts[] = {"b", "a", "c"}, b = "b";
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(words.insert(texts[i].c_str(), i).second && pointers.insert(&texts[i], i).second);
        EXPECT_TRUE(numbers.insert(10 * i - 10, "xyz"[i]).second);
    }
    EXPECT_FALSE(words.insert("a", 9).second);
    EXPECT_EQ(walked(words) + walked(words.reversed()) + walked(numbers), "a1 b0 c2 c2 b0 a1 -10x 0y 10z ");
    EXPECT_TRUE(numbers.lower_bound(1).key() == 10 && !numbers.lower_bound(11));
    EXPECT_TRUE(pointers.find(&b).value() == 0 && pointers.erase(pointers.find(&b)).key() == &texts[2]);
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
        for (std::string_view text : {std::string_view(key), "abc"sv.substr(0, 2), "b\0x"sv, "\xE9"sv, "ab"sv}) {
            auto [leaf, isNew] = tree.try_emplace(text, static_cast<int>(text.size()));
            EXPECT_EQ(!leaf, watch.justFailed());
            EXPECT_TRUE(isNew || text == "ab" || watch.failed());
        }
        if (watch.failed())
            return;
        key = "zz";
        std::string keys;
        for (auto [text, value] : tree)
            keys.append(text).append(std::to_string(++value.number));
        EXPECT_EQ(keys, "ab3b4bb3\xE9" + "2"s);
        EXPECT_TRUE(!tree.try_emplace("ab", 9).second && tree.find("ab") == tree.find("ab"sv));
        EXPECT_TRUE(!tree.find("abb"sv.substr(0, 1)) && !tree.find("b\0x"sv) && !tree.contains("b\xE9"));
        EXPECT_TRUE(tree.erase("bb") && tree.erase("b"s) && !tree.erase("b"sv) && Value::living == 2);
        Thrown::calls = 1;
        EXPECT_THROW(tree.try_emplace("new", 1), Thrown);
        EXPECT_FALSE(tree.contains("new"));
    });
}

TEST(Cpp, MapsAndListsAreWalked)
{
    general::Map<const char *, int> map;
    const char *const word = "word";
    EXPECT_TRUE(map.insert(word, -1) && general::check(map.find(word)) == -1 && walked(map) == "word-1 ");
    EXPECT_TRUE(map.erase(word) && map.erase(word) == MAP_NOT_FOUND && map.empty() && !map.contains(word));

    general::ArrayList<int, char> pairs;
    EXPECT_TRUE(pairs.push_back(2, 'x') && pairs.push_back(1, 'y') && pairs.push_back(3, 'z'));
    EXPECT_TRUE(walked(pairs) == "2x 1y 3z " && pairs.find(1)->object == 'y' && pairs.findObject('z')->key == 3);
    EXPECT_TRUE(pairs.erase(2)->object == 'x' && pairs.at(2).result() == ARRAYLST_NO_SUCH_OBJ);

    general::StringList strings(0, 4);
    for (const char *string : {"one", "", "three"})
        ASSERT_NE(strings.push_back(string), nullptr);
    general::StringList moved = std::move(strings);
    EXPECT_THAT(std::vector<std::string_view>(moved.begin(), moved.end()), ElementsAre("one", "", "three"));
    EXPECT_TRUE(strings.empty() && strings.push_back("again") && *strings.begin() == "again");
    general::StringVector vector(moved);
    EXPECT_TRUE(vector.get()[2] == "three"s && vector.get()[3] == nullptr);

    HeapWatch watch;
    {
        general::List<Value> list;
        list.push_back(Value(2));
        auto last = list.emplace(list.end(), 3);
        list.push_front(Value(1));
        Thrown::calls = 1;
        EXPECT_THROW(list.emplace(list.begin(), 4), Thrown);
        EXPECT_TRUE(list.begin()->number == 1 && std::prev(last)->number == 2 && list.erase(last) == list.end());
        EXPECT_EQ(Value::living, 2);
    }
    EXPECT_TRUE(watch.liveBlocks() == 0 && Value::living == 0);
}

TEST(Cpp, BuffersShowTextOfKnownLength)
{
    general::Buffer buffer(1);
    EXPECT_TRUE(buffer.append("ab") && buffer.append("\0"sv) && buffer.insert(1, "x") && buffer.view() == "axb\0"sv);
    EXPECT_EQ(buffer.erase(3, 2), CBUF_BAD_SIZE);
    *static_cast<char *>(general::check(buffer.extend(1))) = 'e';
    EXPECT_TRUE(buffer.erase(1, 3) && buffer.view() == "ae" && buffer.assign("n") && buffer.size() == 1);
    general::String string(1);
    EXPECT_TRUE(string.c_str() == ""s && string.append("ab") && string.append("c") && string.view() == "abc");
    EXPECT_TRUE(string.clear() && string.view().empty() && string.c_str() == ""s);
    general::BufferPool pool(1, 10);
    {
        auto grabbed = pool.grab(10);
        EXPECT_TRUE(grabbed && !pool.grab(1));
        auto taken = std::move(grabbed);
        EXPECT_EQ(pool.available(), 0);
    }
    EXPECT_EQ(pool.available(), 1);
}

TEST(Cpp, CountedAndCachedValuesEndInTime)
{
    general::Counted first(new Value(4));
    {
        auto second = first.share();
        EXPECT_TRUE(second->number == 4 && first.count() == 2);
        first.reset();
        EXPECT_EQ(Value::living, 1);
    }
    EXPECT_TRUE(Value::living == 0 && (HeapWatch(1), !general::Counted(new Value(5))) && Value::living == 0);

    general::Cache<Value> cache(1);
    auto failInside = [&](std::string_view) {
        EXPECT_THROW(cache.access("inner", failToMake), Thrown);
        return std::make_unique<Value>(cache.access("inner", makeValue)->number);
    };
    EXPECT_THROW(cache.access("outer", failToMake), Thrown);
    EXPECT_EQ(CacheFinish(cache.get(), "outer", 5), CACHE_NO_REFERENCE);
    void *none = nullptr;
    EXPECT_TRUE(CacheAccess(cache.get(), "C", 1, &none, nullptr) == CACHE_OK && none == nullptr);
    {
        auto pin = cache.access("outer", failInside);
        auto again = cache.access("outer", failToMake); // nothing is to be made
        EXPECT_TRUE(pin->number == 5 && again.get() == pin.get());
        pin = std::move(again);
        EXPECT_TRUE(pin.finish() && pin.finish() && !pin);
        EXPECT_EQ(CacheFinish(cache.get(), "outer", 5), CACHE_NO_REFERENCE);
    }
    EXPECT_TRUE(cache.erase("outer") && cache.erase("nothing") == CACHE_NO_ENTRY && Value::living == 1);
}

TEST(Cpp, RegistriesCallEveryFunctionAndThrowThen)
{
    general::Action<std::string> action;
    auto add = [](std::string &text) { text += 'a'; };
    auto fail = [](std::string &text) -> void { throw text.size(); };
    int32_t first = action.add(add);
    EXPECT_TRUE(first == 1 && action.add(fail) && action.add(fail) && action.add(add));
    std::string text;
    EXPECT_THROW(general::check(action.run(text)), std::size_t);
    EXPECT_TRUE(text == "aa" && action.erase(first) && action.size() == 3);
    EXPECT_TRUE(action.clear() && action.run(text) && text == "aa");
    general::KeyCall<int (*)(int), const char *> registry;
    uint32_t key = registry.next();
    EXPECT_TRUE(registry.insert(key, [](int number) { return number + 1; }, "data"));
    EXPECT_TRUE(registry.find(key)->callback(1) == 2 && registry.pop()->data == "data"s && !registry.erase(key));
}

TEST(Cpp, GeometryHasOperators)
{
    const general::Vector x(1, 0, 0), z(0, 0, 1);
    const general::Rotation quarter(z, 90);
    EXPECT_TRUE(quarter * x == general::Vector(0, 1, 0) && quarter * quarter.inverse() == general::Rotation());
    EXPECT_TRUE(cross(z, x) == quarter * x && dot(x + z, 2 * x - z) == 1 && (x * 3).normalized() == x);
    EXPECT_TRUE((x * 2).length() == 2 && quarter.angles() == general::Vector(0, 0, 90) && x != z);
}

} // namespace
