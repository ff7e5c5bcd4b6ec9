#include "bench/support/row.h"

#include "containers/RedBlack_node.h"

#include "general/redblack.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

/// Different words in random order: the word list, and pairs of its words where it is too short.
const std::vector<std::string> &words()
{
    static const std::vector<std::string> list = [] {
        constexpr size_t wanted = 1000000;
        std::ifstream file("build/bench/words.txt");
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);)
            lines.push_back(line);
        if (lines.empty()) {
            std::fprintf(stderr, "build/bench/words.txt is missing: run this through script/bench containers\n");
            std::exit(1);
        }
        std::shuffle(lines.begin(), lines.end(), std::mt19937(1));
        size_t single = lines.size();
        for (size_t i = 0; lines.size() < wanted; ++i)
            lines.push_back(lines[i % single] + " " + lines[(i + 1 + i / single) % single]);
        return lines;
    }();
    return list;
}

const std::vector<int32_t> &numbers()
{
    static const std::vector<int32_t> list = [] {
        std::vector<int32_t> sequence(1000000);
        for (size_t i = 0; i < sequence.size(); ++i)
            sequence[i] = static_cast<int32_t>(i);
        std::shuffle(sequence.begin(), sequence.end(), std::mt19937(1));
        return sequence;
    }();
    return list;
}

/// Another order than that of insertion: a permutation of 0 ... count - 1.
size_t otherOrder(size_t i, size_t count)
{
    return static_cast<size_t>(uint64_t{i} * 7919 % count); // a prime that divides no count used here
}

/// Random indices that never repeat as a sequence, so that no branch predictor learns the way to
/// them (a xorshift generator, G. Marsaglia, 2003).
class RandomIndex {
public:
    explicit RandomIndex(size_t count) : count_(count) {}
    size_t next()
    {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return static_cast<size_t>((uint64_t{state_} * count_) >> 32);
    }

private:
    size_t count_;
    uint32_t state_ = 2463534242u;
};

struct IntegerTree {
    static constexpr const char *keys = "integer keys";
    static const std::vector<int32_t> &source() { return numbers(); }
    RbNode *tree = RbCreate();
    ~IntegerTree() { RbDestroy(tree); }
    void insert(int32_t key)
    {
        int32_t found = 0;
        RbNode *position = RbFindKeyI_n(tree, key, &found);
        if (found == 0)
            RbInsert_b(position, reinterpret_cast<void *>(static_cast<intptr_t>(key)), nullptr);
    }
    void *find(int32_t key) { return RbVal(RbExactI(tree, key)); }
    void remove(int32_t key) { RbDeleteNode(RbExactI(tree, key)); }
    size_t walk()
    {
        size_t sum = 0;
        for (RbNode *leaf = RbFirst(tree); leaf != nullptr; leaf = RbNext(leaf))
            sum += reinterpret_cast<size_t>(RbVal(leaf)) + 1;
        return sum;
    }
};

struct StringTree {
    static constexpr const char *keys = "string keys";
    static const std::vector<std::string> &source() { return words(); }
    RbNode *tree = RbCreate();
    ~StringTree() { RbDestroy(tree); }
    void insert(const std::string &key)
    {
        int32_t found = 0;
        RbNode *position = RbFindKey_n(tree, key.c_str(), &found);
        if (found == 0)
            RbInsert_b(position, key.c_str(), nullptr);
    }
    void *find(const std::string &key) { return RbVal(RbExact(tree, key.c_str())); }
    void remove(const std::string &key) { RbDeleteNode(RbExact(tree, key.c_str())); }
    size_t walk()
    {
        size_t sum = 0;
        for (RbNode *leaf = RbFirst(tree); leaf != nullptr; leaf = RbNext(leaf))
            sum += reinterpret_cast<size_t>(RbVal(leaf)) + 1;
        return sum;
    }
};

template<typename Key>
struct StdMap {
    std::map<Key, void *> map;
    void insert(const Key &key) { map.emplace(key, nullptr); }
    void *find(const Key &key) { return map.find(key)->second; }
    void remove(const Key &key) { map.erase(key); }
    size_t walk()
    {
        size_t sum = 0;
        for (auto &[key, value] : map)
            sum += reinterpret_cast<size_t>(value) + 1;
        return sum;
    }
};

template<typename Dictionary, typename Keys>
void fill(Dictionary &dictionary, const Keys &keys, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        dictionary.insert(keys[i]);
}

template<typename Dictionary, typename Keys>
void contendOne(const std::string &suffix, const char *contender, const Keys &keys, size_t count, bool ours)
{
    auto aim = [ours](double ratio) { return ours ? ratio : 0; };
    bench::contend(
        "find" + suffix, contender,
        [&keys, count](benchmark::State &state) {
            Dictionary dictionary;
            fill(dictionary, keys, count);
            RandomIndex index(count);
            for (auto _ : state)
                benchmark::DoNotOptimize(dictionary.find(keys[index.next()]));
        },
        aim(1.0));
    bench::contend(
        "ordered walk" + suffix, contender,
        [&keys, count](benchmark::State &state) {
            Dictionary dictionary;
            fill(dictionary, keys, count);
            for (auto _ : state)
                benchmark::DoNotOptimize(dictionary.walk());
        },
        aim(3.0));
    bench::contend(
        "insert all" + suffix, contender,
        [&keys, count](benchmark::State &state) {
            for (auto _ : state) {
                auto *dictionary = new Dictionary;
                fill(*dictionary, keys, count);
                state.PauseTiming();
                delete dictionary;
                state.ResumeTiming();
            }
        },
        aim(0.6));
    bench::contend(
        "find and delete all" + suffix, contender,
        [&keys, count](benchmark::State &state) {
            for (auto _ : state) {
                state.PauseTiming();
                Dictionary dictionary;
                fill(dictionary, keys, count);
                state.ResumeTiming();
                for (size_t i = 0; i < count; ++i)
                    dictionary.remove(keys[otherOrder(i, count)]);
            }
        },
        aim(0.7));
}

/// The same leaves, followed by a loop that the compiler sees through: what the records allow.
void followLinks(benchmark::State &state, const RbNode *tree)
{
    for (auto _ : state) {
        size_t sum = 0;
        for (RbNode *leaf = tree->next(); leaf != tree; leaf = leaf->next())
            sum += reinterpret_cast<size_t>(leaf->value) + 1;
        benchmark::DoNotOptimize(sum);
    }
}

template<typename Tree>
void walkRecords(benchmark::State &state, size_t count)
{
    Tree dictionary;
    fill(dictionary, Tree::source(), count);
    followLinks(state, dictionary.tree);
}

/// What deleting cannot do without: to find each key, and then to give back two blocks for each.
void findAndFree(benchmark::State &state, size_t count)
{
    std::vector<void *> blocks(2 * count);
    for (auto _ : state) {
        state.PauseTiming();
        auto *integers = new IntegerTree;
        fill(*integers, numbers(), count);
        for (void *&block : blocks)
            block = std::malloc(sizeof(RbNode));
        state.ResumeTiming();
        for (size_t i = 0; i < count; ++i)
            benchmark::DoNotOptimize(integers->find(numbers()[otherOrder(i, count)]));
        for (size_t i = 0; i < count; ++i) {
            size_t entry = otherOrder(i, count);
            std::free(blocks[2 * entry]);
            std::free(blocks[2 * entry + 1]);
        }
        state.PauseTiming();
        delete integers;
        state.ResumeTiming();
    }
}

/// Keys that arrive in order, so that neighbours in the order are neighbours in memory.
template<typename Dictionary>
void walkSorted(benchmark::State &state, size_t count)
{
    Dictionary dictionary;
    for (size_t i = 0; i < count; ++i)
        dictionary.insert(static_cast<int32_t>(i));
    for (auto _ : state)
        benchmark::DoNotOptimize(dictionary.walk());
}

template<typename Tree>
void contendBoth()
{
    const auto &keys = Tree::source();
    using Key = std::decay_t<decltype(keys[0])>;
    for (size_t count : {1000u, 100000u, 1000000u}) {
        std::string suffix = std::string(", ") + Tree::keys + ", " + std::to_string(count);
        contendOne<Tree>(suffix, "general", keys, count, true);
        contendOne<StdMap<Key>>(suffix, "std::map", keys, count, false);
    }
}

const bool registered = [] {
    contendBoth<IntegerTree>();
    for (size_t count : {1000u, 100000u, 1000000u}) {
        std::string size = std::to_string(count);
        bench::contend("find and delete all, integer keys, " + size, "limit: find, free two blocks",
                       [count](benchmark::State &state) { findAndFree(state, count); });
        bench::contend("ordered walk, integer keys, " + size, "limit: inlined links",
                       [count](benchmark::State &state) { walkRecords<IntegerTree>(state, count); });
        std::string row = "ordered walk, integer keys inserted in order, " + size;
        bench::contend(
            row, "general", [count](benchmark::State &state) { walkSorted<IntegerTree>(state, count); }, 3.0);
        bench::contend(row, "std::map",
                       [count](benchmark::State &state) { walkSorted<StdMap<int32_t>>(state, count); });
        bench::contend(row, "limit: inlined links", [count](benchmark::State &state) {
            IntegerTree integers;
            for (size_t i = 0; i < count; ++i)
                integers.insert(static_cast<int32_t>(i));
            followLinks(state, integers.tree);
        });
    }
    contendBoth<StringTree>();
    for (size_t count : {1000u, 100000u, 1000000u})
        bench::contend("ordered walk, string keys, " + std::to_string(count), "limit: inlined links",
                       [count](benchmark::State &state) { walkRecords<StringTree>(state, count); });
    return true;
}();

} // namespace
