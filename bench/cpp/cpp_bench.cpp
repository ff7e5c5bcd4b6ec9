// The headers for C++ beside the same work by the C functions that they stand for.

#include "bench/support/row.h"

#include "general/general.hpp"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr int count = 1000;
constexpr int few = 50; ///< what a priority queue moves does not hide the rest
constexpr double aim = 0.97;

using benchmark::DoNotOptimize;

/// Adds a row of two contenders that do the same: one with the wrapper, one with the bare C functions.
template<typename Wrapped, typename Bare>
void row(const char *name, const Wrapped &wrapped, const Bare &bare)
{
    bench::contend(
        name, "general",
        [wrapped](benchmark::State &state) {
            for (auto _ : state)
                wrapped();
        },
        aim);
    bench::contend(name, "bare calls", [bare](benchmark::State &state) {
        for (auto _ : state)
            bare();
    });
}

/// Numbers in no order, the same for both contenders.
int scattered(int i)
{
    return static_cast<int>(static_cast<uint32_t>(i) * 2654435761u >> 8);
}

const std::vector<std::string> &words()
{
    static const std::vector<std::string> result = [] {
        std::vector<std::string> made;
        for (int i = 0; i < count; ++i)
            made.push_back("word " + std::to_string(scattered(i)));
        return made;
    }();
    return result;
}

int smallestFirst(const void *queued, const void *added)
{
    return *static_cast<const int *>(added) < *static_cast<const int *>(queued) ? -1 : 0;
}

/// A comparison that may throw, for all that the compiler knows.
struct Careful {
    bool operator()(const int &a, const int &b) const noexcept(false) { return b < a; }
};

struct Counter {
    uint32_t count;
    char word[1];
};

void addToSum(void *first, void *userData, void *)
{
    *static_cast<int *>(userData) += *static_cast<int *>(first);
}

template<typename Queue>
void fillAndDrain()
{
    static Queue queue;
    for (int i = 0; i < few; ++i)
        DoNotOptimize(queue.push(scattered(i)));
    for (int element = 0; queue.pop(element);)
        DoNotOptimize(element);
}

void fillAndDrainBare()
{
    static PQueue *queue = PQCreate(sizeof(int), smallestFirst);
    for (int i = 0; i < few; ++i) {
        int element = scattered(i);
        DoNotOptimize(PQAdd(queue, &element));
    }
    for (int element = 0; PQRmv(queue, &element) == PQ_OK;)
        DoNotOptimize(element);
}

void countWords()
{
    general::Tree<std::string, uint32_t> tree;
    for (int round = 0; round < 2; ++round)
        for (const std::string &word : words())
            ++tree.try_emplace(word.c_str()).first.value();
    uint32_t sum = 0;
    for (auto [word, number] : tree)
        sum += number;
    DoNotOptimize(sum);
}

void countWordsBare()
{
    RbNode *tree = RbCreate();
    for (int round = 0; round < 2; ++round)
        for (const std::string &word : words()) {
            int32_t found = 0;
            RbNode *position = RbFindKey_n(tree, word.c_str(), &found);
            if (!found) {
                auto *counter = static_cast<Counter *>(operator new(sizeof(Counter) + strlen(word.c_str())));
                counter->count = 0;
                strcpy(counter->word, word.c_str());
                position = RbInsert_b(position, counter->word, counter);
            }
            ++static_cast<Counter *>(RbVal(position))->count;
        }
    uint32_t sum = 0;
    for (RbNode *leaf = RbFirst(tree); leaf != nullptr; leaf = RbNext(leaf)) {
        DoNotOptimize(RbKey(leaf));
        sum += static_cast<Counter *>(RbVal(leaf))->count;
    }
    for (RbNode *leaf = RbFirst(tree); leaf != nullptr; leaf = RbNext(leaf))
        operator delete(RbVal(leaf));
    RbDestroy(tree);
    DoNotOptimize(sum);
}

const bool registered = [] {
    row("queue: push 50 integers, pop 50", fillAndDrain<general::Queue<int>>, [queue = QueCreate(sizeof(int))] {
        for (int i = 0; i < few; ++i) {
            int element = scattered(i);
            DoNotOptimize(QueAdd(queue, &element));
        }
        for (int element = 0; QueRmv(queue, &element) == QUE_OK;)
            DoNotOptimize(element);
    });
    row("priority queue: push 50 integers, pop 50", fillAndDrain<general::PriorityQueue<int, std::greater<int>>>,
        fillAndDrainBare);
    row("priority queue: the same, by a comparison that may throw", fillAndDrain<general::PriorityQueue<int, Careful>>,
        fillAndDrainBare);
    row("tree of strings of its own: count 1000 words twice, walk", countWords, countWordsBare);

    static general::Tree<int32_t, int> tree;
    static general::Map<int, int> map;
    static general::List<int> list;
    static general::ArrayList<int, int> pairs;
    static general::StringList strings;
    static general::Cache<int> cache;
    cache.access("key", [](std::string_view) { return new int(1); });
    static general::Action<int> action;
    static int sum = 0;
    static auto add = [](int number) { sum += number; };
    for (int i = 0; i < count; ++i) {
        tree.insert(scattered(i), i);
        map.insert(scattered(i), i).ignore();
        list.push_back(i);
        pairs.push_back(i, i).ignore();
        strings.push_back(words()[static_cast<size_t>(i)].c_str());
    }
    static Action *bareAction = ActionCreate();
    for (int i = 0; i < 10; ++i) {
        action.add(add);
        ActionAdd(bareAction, addToSum, &sum);
    }

    row(
        "tree: find 1000 integers",
        [] {
            for (int i = 0; i < count; ++i)
                DoNotOptimize(tree.find(scattered(i)).value());
        },
        [] {
            for (int i = 0; i < count; ++i)
                DoNotOptimize(RbVal(RbExactI(tree.get(), scattered(i))));
        });
    row(
        "tree: walk 1000 leaves",
        [] {
            for (auto [key, value] : tree)
                DoNotOptimize(key + value);
        },
        [] {
            for (RbNode *leaf = RbFirst(tree.get()); leaf != nullptr; leaf = RbNext(leaf))
                DoNotOptimize(RbKeyI(leaf) + reinterpret_cast<int>(RbVal(leaf)));
        });
    row(
        "map: find 1000 integers",
        [] {
            for (int i = 0; i < count; ++i)
                DoNotOptimize(map.find(scattered(i)).value_or(0));
        },
        [] {
            for (int i = 0; i < count; ++i) {
                uint32_t value = 0;
                if (MapFind(map.get(), static_cast<uint32_t>(scattered(i)), &value) != MAP_OK)
                    value = 0;
                DoNotOptimize(value);
            }
        });
    row(
        "map: walk 1000 entries",
        [] {
            for (auto [key, value] : map)
                DoNotOptimize(key + value);
        },
        [] {
            uint32_t key = 0, value = 0;
            for (uint32_t stat = MapFirst(map.get(), &key, &value); stat == MAP_OK;
                 stat = MapNext(map.get(), key, &key, &value))
                DoNotOptimize(key + value);
        });
    row(
        "list: walk 1000 values",
        [] {
            for (int value : list)
                DoNotOptimize(value);
        },
        [] {
            ListNode *end = &list.get()->links;
            for (ListNode *node = end->next; node != end; node = node->next) {
                int value = *reinterpret_cast<int *>(node + 1);
                DoNotOptimize(value);
            }
        });
    row(
        "array list: walk 1000 pairs",
        [] {
            for (auto [key, object] : pairs)
                DoNotOptimize(key + object);
        },
        [] {
            uint32_t key = 0, object = 0, size = 0;
            ArrayLstSize(pairs.get(), &size);
            for (uint32_t i = 0; i < size; ++i) {
                ArrayLstGet(pairs.get(), &key, &object, i);
                DoNotOptimize(key + object);
            }
        });
    row(
        "string list: walk 1000 strings",
        [] {
            for (std::string_view string : strings)
                DoNotOptimize(string.size());
        },
        [] {
            const char *string = strings.get()->buffer;
            for (uint32_t i = 0; i < strings.get()->count; ++i) {
                size_t length = strlen(string);
                DoNotOptimize(length);
                string += length + 1;
            }
        });
    row(
        "buffer: append 1000 times 8 bytes",
        [buffer = std::make_shared<general::Buffer>(4096)] {
            for (int i = 0; i < count; ++i)
                DoNotOptimize(buffer->append({"12345678", 8}));
            buffer->clear().ignore();
        },
        [buffer = CBufCreate(4096)] {
            for (int i = 0; i < count; ++i)
                DoNotOptimize(CBufAppend(buffer, "12345678", 8));
            CBufReset(buffer);
        });
    row(
        "cache: access a value and finish it",
        [] {
            auto pin = cache.access("key", [](std::string_view) { return new int(1); });
            DoNotOptimize(*pin);
        },
        [] {
            void *value = nullptr;
            if (CacheAccess(cache.get(), "key", 3, &value, nullptr) != CACHE_OK)
                return;
            DoNotOptimize(*static_cast<int *>(value));
            CacheFinish(cache.get(), "key", 3);
        });
    row(
        "action: call 10 functions",
        [] {
            int one = 1;
            DoNotOptimize(action.run(one));
        },
        [] {
            int one = 1;
            DoNotOptimize(ActionDo(bareAction, &one, nullptr));
        });
    row(
        "geometry: rotate a vector and add one",
        [m = general::Rotation(10, 20, 30), v = general::Vector(1, 2, 3)] {
            general::Vector result = m * v + v;
            DoNotOptimize(result);
        },
        [m = general::Rotation(10, 20, 30), v = general::Vector(1, 2, 3)] {
            V3 result;
            R3_mult_V3(m.data(), v.data(), result);
            V3_add_V3(result, v.data(), result);
            DoNotOptimize(result);
        });
    return true;
}();

} // namespace
