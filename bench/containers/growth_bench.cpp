// How cost grows with size, and what an entry costs in memory. bench/growth.py draws the first.

#include "bench/support/row.h"

#include "general/arraylst.h"
#include "general/list.h"
#include "general/map.h"
#include "general/pqueue.h"
#include "general/redblack.h"
#include "general/strlist.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <new>
#include <numeric>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>
#include <windows.h>

namespace {

/// The keys 0 to count - 1 in random order, made again only for another count.
const std::vector<int32_t> &keysFor(size_t count)
{
    static std::vector<int32_t> keys;
    if (keys.size() != count) {
        keys.resize(count);
        std::iota(keys.begin(), keys.end(), 0);
        std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    }
    return keys;
}

// Each contender adds a key, and does the other thing that its family is for: by key, or step by step.

struct Tree {
    RbNode *tree = RbCreate();
    ~Tree() { RbDestroy(tree); }
    void add(int32_t key)
    {
        int32_t found = 0;
        RbNode *position = RbFindKeyI_n(tree, key, &found);
        RbInsert_b(position, reinterpret_cast<void *>(static_cast<intptr_t>(key)), nullptr);
    }
    void use(int32_t key) { benchmark::DoNotOptimize(RbExactI(tree, key)); }
};

struct StdTree {
    std::map<int32_t, void *> map;
    void add(int32_t key) { map.emplace(key, nullptr); }
    void use(int32_t key) { benchmark::DoNotOptimize(map.find(key)->second); }
};

struct HashMap {
    Map *map = MapCreate(0);
    ~HashMap() { MapDestroy(map); }
    void add(int32_t key) { MapAdd(map, static_cast<uint32_t>(key), 0); }
    void use(int32_t key)
    {
        uint32_t value = 0;
        benchmark::DoNotOptimize(MapFind(map, static_cast<uint32_t>(key), &value));
    }
};

struct StdHashMap {
    std::unordered_map<uint32_t, uint32_t> map;
    void add(int32_t key) { map.emplace(key, 0); }
    void use(int32_t key) { benchmark::DoNotOptimize(map.find(static_cast<uint32_t>(key))->second); }
};

struct LinkedList {
    struct Item {
        ListNode links;
        int32_t value;
    };
    List *list = ListMake(sizeof(Item));
    ListNode *place = &list->links;
    ~LinkedList() { ListDestroy(list); }
    void add(int32_t key)
    {
        auto *item = static_cast<Item *>(ListMakeNode(list));
        item->value = key;
        ListInsert(&list->links, &item->links);
    }
    void use(int32_t)
    {
        place = place->next;
        benchmark::DoNotOptimize(place);
    }
};

struct StdList {
    std::list<int32_t> list;
    std::list<int32_t>::iterator place = list.end();
    void add(int32_t key) { list.push_back(key); }
    void use(int32_t)
    {
        ++place;
        benchmark::DoNotOptimize(place);
    }
};

int smallestFirst(const void *queued, const void *added)
{
    int32_t left = 0;
    int32_t right = 0;
    std::memcpy(&left, queued, sizeof left);
    std::memcpy(&right, added, sizeof right);
    return left < right ? 1 : left > right ? -1 : 0;
}

struct PriorityQueue {
    PQueue *queue = PQCreate(sizeof(int32_t), smallestFirst);
    ~PriorityQueue() { PQDestroy(queue); }
    void add(int32_t key) { PQAdd(queue, &key); }
    void use(int32_t key)
    {
        int32_t first = 0;
        PQRmv(queue, &first);
        PQAdd(queue, &key);
    }
};

struct SortedVector {
    std::vector<int32_t> queue;
    void add(int32_t key) { queue.insert(std::upper_bound(queue.begin(), queue.end(), key), key); }
    void use(int32_t key)
    {
        queue.erase(queue.begin());
        add(key);
    }
};

struct PairList {
    ArrayLst *list = ArrayLstCreate();
    ~PairList() { ArrayLstDestroy(list); }
    void add(int32_t key) { ArrayLstAdd(list, static_cast<uint32_t>(key), 0); }
    void use(int32_t key)
    {
        uint32_t object = 0;
        benchmark::DoNotOptimize(ArrayLstSeek(list, static_cast<uint32_t>(key), &object));
    }
};

struct PairVector {
    std::vector<std::pair<uint32_t, uint32_t>> list;
    void add(int32_t key) { list.emplace_back(key, 0); }
    void use(int32_t key)
    {
        auto wanted = static_cast<uint32_t>(key);
        benchmark::DoNotOptimize(
            std::find_if(list.begin(), list.end(), [wanted](auto &pair) { return pair.first == wanted; }));
    }
};

/// Names of eleven letters.
struct Name {
    char text[16] = "name0000000";
    explicit Name(int32_t key)
    {
        for (size_t i = 10; key != 0; --i, key /= 10)
            text[i] = static_cast<char>('0' + key % 10);
    }
};

struct Strings {
    StrList list;
    const char *place = nullptr;
    Strings() { StrListInit(&list, 4096, 4096); }
    ~Strings() { StrListDestroy(&list); }
    void add(int32_t key) { StrListAppend(&list, Name(key).text); }
    void use(int32_t)
    {
        if (place == nullptr || place == list.buffer + list.used)
            place = list.buffer;
        place += std::strlen(place) + 1;
        benchmark::DoNotOptimize(place);
    }
};

struct StdStrings {
    std::vector<std::string> list;
    size_t place = 0;
    void add(int32_t key) { list.emplace_back(Name(key).text); }
    void use(int32_t)
    {
        place = place + 1 == list.size() ? 0 : place + 1;
        benchmark::DoNotOptimize(list[place].size());
    }
};

constexpr double longEnough = 0.01; // seconds

/// Calls work(), and more and more often, until that takes long enough.
/// @param perCall  operations of one call
/// @return seconds of one operation; what work() returns is not counted
template<typename Work>
double secondsOf(size_t perCall, Work work)
{
    using Clock = std::chrono::steady_clock;
    for (size_t calls = 1;; calls *= 4) {
        std::chrono::duration<double> taken{};
        for (size_t i = 0; i < calls; ++i) {
            auto start = Clock::now();
            auto result = work();
            taken += Clock::now() - start;
            benchmark::DoNotOptimize(result);
        }
        if (taken.count() >= longEnough)
            return taken.count() / static_cast<double>(calls * perCall);
    }
}

template<typename Container>
auto filled(const std::vector<int32_t> &keys)
{
    auto container = std::make_unique<Container>();
    for (int32_t key : keys)
        container->add(key);
    return container;
}

/// Fills so many containers in one go that reading the clock does not count.
template<typename Container>
void timeAdd(benchmark::State &state, size_t count)
{
    const auto &keys = keysFor(count);
    const size_t copies = std::max<size_t>(1, 1000 / count);
    for (auto _ : state)
        state.SetIterationTime(secondsOf(count * copies, [&] {
            std::vector<std::unique_ptr<Container>> containers;
            for (size_t i = 0; i < copies; ++i)
                containers.push_back(filled<Container>(keys));
            return containers;
        }));
}

template<typename Container>
void timeUse(benchmark::State &state, size_t count)
{
    const auto &keys = keysFor(count);
    auto container = filled<Container>(keys);
    std::mt19937 random(2);
    constexpr size_t perCall = 100;
    for (auto _ : state)
        state.SetIterationTime(secondsOf(perCall, [&] {
            for (size_t i = 0; i < perCall; ++i)
                container->use(keys[static_cast<size_t>((uint64_t{random()} * count) >> 32)]);
            return 0;
        }));
}

/// Bytes that are taken from every heap of the process, with what the heap itself needs for each block.
double bytesTaken()
{
    HANDLE heaps[64];
    DWORD count = GetProcessHeaps(64, heaps);
    double bytes = 0;
    for (DWORD i = 0; i < count && i < 64; ++i) {
        PROCESS_HEAP_ENTRY entry = {};
        HeapLock(heaps[i]);
        while (HeapWalk(heaps[i], &entry))
            if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY)
                bytes += entry.cbData + entry.cbOverhead;
        HeapUnlock(heaps[i]);
    }
    return bytes;
}

template<typename Container>
void countBytes(benchmark::State &state)
{
    constexpr size_t count = 100000;
    const auto &keys = keysFor(count);
    for (auto _ : state) {
        double before = bytesTaken();
        auto container = filled<Container>(keys);
        state.counters["bytes"] = (bytesTaken() - before) / static_cast<double>(count);
        state.SetIterationTime(longEnough);
    }
}

/// Registers what is timed once. A size that memory does not hold is left out of the figure.
void once(const std::string &row, const char *contender, std::function<void(benchmark::State &)> work)
{
    auto guarded = [work = std::move(work)](benchmark::State &state) {
        try {
            work(state);
        } catch (const std::bad_alloc &) {
            state.SkipWithError("memory is exhausted");
        }
    };
    bench::contend(row, contender, guarded)->Iterations(1)->Repetitions(1)->UseManualTime();
}

template<typename Ours, typename Peer>
void contendFamily(const std::string &family, const std::string &use, const char *peer, size_t most)
{
    for (size_t count = 10; count <= most; count *= 10) {
        const std::string size = ", " + std::to_string(count);
        const std::string add = "growth: " + family + ", add" + size;
        const std::string other = "growth: " + family + ", " + use + size;
        once(add, "general", [count](benchmark::State &state) { timeAdd<Ours>(state, count); });
        once(add, peer, [count](benchmark::State &state) { timeAdd<Peer>(state, count); });
        once(other, "general", [count](benchmark::State &state) { timeUse<Ours>(state, count); });
        once(other, peer, [count](benchmark::State &state) { timeUse<Peer>(state, count); });
    }
    once("memory: " + family, "general", countBytes<Ours>);
    once("memory: " + family, peer, countBytes<Peer>);
}

// Up to ten million entries where a program's 2 GiB and a minute hold them. Moving what is sorted, and
// growing by ten slots, is what ends the others.
const bool registered = [] {
    contendFamily<Tree, StdTree>("tree", "find", "std::map", 10000000);
    contendFamily<HashMap, StdHashMap>("map", "find", "std::unordered_map", 10000000);
    contendFamily<LinkedList, StdList>("list", "step", "std::list", 10000000);
    contendFamily<PriorityQueue, SortedVector>("priority queue", "remove and add", "sorted std::vector", 100000);
    contendFamily<PairList, PairVector>("array list", "seek", "std::vector of pairs", 1000000);
    contendFamily<Strings, StdStrings>("string list", "step", "std::vector of std::string", 10000000);
    return true;
}();

} // namespace
