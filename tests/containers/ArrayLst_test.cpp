#include "general/arraylst.h"

#include "tests/support/heap_watch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

namespace {

struct Destroy {
    void operator()(ArrayLst *list) const { EXPECT_EQ(ArrayLstDestroy(list), ARRAYLST_OK); }
};
using ArrayLstPtr = std::unique_ptr<ArrayLst, Destroy>;

using Pair = std::pair<uint32_t, uint32_t>;

/// What a call gave; both numbers are poisoned before it.
struct Outcome {
    uint32_t stat;
    uint32_t key;
    uint32_t object;
    bool operator==(const Outcome &) const = default;
    friend void PrintTo(const Outcome &outcome, std::ostream *stream)
    {
        *stream << outcome.stat << " (" << outcome.key << ", " << outcome.object << ")";
    }
};

struct Model {
    std::vector<Pair> pairs;
    size_t cursor = 0;

    size_t indexOf(uint32_t wanted, uint32_t Pair::*member) const
    {
        auto matches = [&](const Pair &pair) { return pair.*member == wanted; };
        return static_cast<size_t>(std::find_if(pairs.begin(), pairs.end(), matches) - pairs.begin());
    }
    Outcome visit(size_t index)
    {
        if (index >= pairs.size())
            return {ARRAYLST_EMPTY, 0, 0};
        cursor = index + 1;
        return {ARRAYLST_OK, pairs[index].first, pairs[index].second};
    }
};

constexpr uint32_t poison = 0xDEAD;

TEST(ArrayLst, BehavesAsAVectorWithACursorUnderRandomTraffic)
{
    std::mt19937 random(5);
    ArrayLstPtr list(ArrayLstCreate());
    Model model;
    for (uint32_t step = 0; step < 30000; ++step) {
        uint32_t wanted = random() % 40;
        auto index = static_cast<uint32_t>(random() % (model.pairs.size() + 2));
        bool byKey = random() % 2 == 0;
        auto member = byKey ? &Pair::first : &Pair::second;
        size_t found = model.indexOf(wanted, member);
        bool exists = found < model.pairs.size();
        Outcome got = {0, poison, poison};
        Outcome expected = got;
        Outcome match = {byKey ? ARRAYLST_NO_SUCH_KEY : ARRAYLST_NO_SUCH_OBJ, byKey ? poison : 0, byKey ? 0 : poison};
        if (exists)
            match = {ARRAYLST_OK, byKey ? poison : model.pairs[found].first,
                     byKey ? model.pairs[found].second : poison};
        switch (random() % 12) {
        case 0:
        case 1:
        case 2:
            got.stat = ArrayLstAdd(list.get(), wanted, step % 40);
            model.pairs.emplace_back(wanted, step % 40);
            break;
        case 3:
        case 4:
            expected = match;
            got.stat = byKey ? ArrayLstRemove(list.get(), wanted, &got.object)
                             : ArrayLstRemoveObj(list.get(), &got.key, wanted);
            if (exists) {
                model.pairs.erase(model.pairs.begin() + static_cast<ptrdiff_t>(found));
                model.cursor = found;
            }
            break;
        case 5:
            expected = match;
            got.stat =
                byKey ? ArrayLstSeek(list.get(), wanted, &got.object) : ArrayLstSeekObj(list.get(), &got.key, wanted);
            model.cursor = exists ? found + 1 : model.cursor;
            break;
        case 6:
            expected = model.visit(0);
            got.stat = ArrayLstFirst(list.get(), &got.key, &got.object);
            break;
        case 7:
        case 8:
            expected = model.visit(model.cursor);
            got.stat = ArrayLstNext(list.get(), &got.key, &got.object);
            break;
        case 9:
            expected = model.visit(model.pairs.size() - 1);
            got.stat = ArrayLstLast(list.get(), &got.key, &got.object);
            break;
        case 10:
            expected = index < model.pairs.size()
                           ? Outcome{ARRAYLST_OK, model.pairs[index].first, model.pairs[index].second}
                           : Outcome{ARRAYLST_NO_SUCH_OBJ, 0, 0};
            got.stat = ArrayLstGet(list.get(), &got.key, &got.object, index);
            break;
        default:
            if (step % 50 == 0) {
                got.stat = ArrayLstRemoveAll(list.get());
                model = Model{};
            }
        }
        ASSERT_EQ(got, expected) << "step " << step;
        uint32_t count = poison;
        ASSERT_EQ(ArrayLstSize(list.get(), &count), ARRAYLST_OK);
        ASSERT_EQ(count, model.pairs.size());
    }
}

TEST(ArrayLst, CopiesAllKeysAndObjects)
{
    ArrayLstPtr list(ArrayLstCreate());
    for (uint32_t i = 0; i < 15; ++i)
        ArrayLstAdd(list.get(), i, 100 + i);
    uint32_t count = 0;
    uint32_t *keys = nullptr;
    uint32_t *objects = nullptr;
    ASSERT_EQ(ArrayLstGetKeys(list.get(), &count, &keys), ARRAYLST_OK);
    ASSERT_EQ(ArrayLstGetObjs(list.get(), &count, &objects), ARRAYLST_OK);
    ASSERT_EQ(count, 15u);
    for (uint32_t i = 0; i < count; ++i)
        EXPECT_EQ(keys[i] + 100, objects[i]);
    EXPECT_EQ(objects[14], 114u);
    ArrayLstFree(keys);
    ArrayLstFree(objects);
    ArrayLstRemoveAll(list.get());
    EXPECT_EQ(ArrayLstGetKeys(list.get(), &count, &keys), ARRAYLST_EMPTY);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(keys, nullptr);
}

TEST(ArrayLst, ZeroesOutputsOfForeignHandlesButThoseOfTheRemoveCalls)
{
    uint32_t foreign[5] = {};
    for (uint32_t *record : {static_cast<uint32_t *>(nullptr), foreign}) {
        auto *list = reinterpret_cast<ArrayLst *>(record);
        uint32_t key = poison;
        uint32_t object = poison;
        uint32_t *array = foreign;
        EXPECT_EQ(ArrayLstDestroy(list), record == nullptr ? ARRAYLST_OK : ARRAYLST_INVALID_ARGS);
        EXPECT_EQ(ArrayLstAdd(list, 1, 1), ARRAYLST_NO_SUCH_LST);
        EXPECT_EQ(ArrayLstRemoveAll(list), ARRAYLST_NO_SUCH_LST);
        EXPECT_EQ(ArrayLstRemove(list, 1, &object), ARRAYLST_NO_SUCH_LST);
        EXPECT_EQ(ArrayLstRemoveObj(list, &key, 1), ARRAYLST_NO_SUCH_LST);
        EXPECT_EQ(key + object, 2 * poison);
        EXPECT_EQ(ArrayLstSeek(list, 1, &object), ARRAYLST_NO_SUCH_LST);
        EXPECT_EQ(ArrayLstSeekObj(list, &key, 1), ARRAYLST_NO_SUCH_LST);
        EXPECT_EQ(key + object, 0u);
        for (auto visit : {ArrayLstFirst, ArrayLstNext, ArrayLstLast}) {
            key = object = poison;
            EXPECT_EQ(visit(list, &key, &object), ARRAYLST_NO_SUCH_LST);
            EXPECT_EQ(key + object, 0u);
        }
        key = poison;
        EXPECT_EQ(ArrayLstSize(list, &key), ARRAYLST_NO_SUCH_LST);
        object = poison;
        EXPECT_EQ(ArrayLstGet(list, nullptr, &object, 0), ARRAYLST_NO_SUCH_LST);
        EXPECT_EQ(key + object, 0u);
        key = poison;
        EXPECT_EQ(ArrayLstGetKeys(list, &key, &array), ARRAYLST_NO_SUCH_LST);
        EXPECT_EQ(key, 0u);
        EXPECT_EQ(array, nullptr);
    }
    EXPECT_STREQ(ArrayLstStatStr(0), "ARRAYLST_OK");
    EXPECT_STREQ(ArrayLstStatStr(6), "ARRAYLST_NO_SUCH_OBJ");
    for (int32_t unknown : {7, -1, INT32_MIN})
        EXPECT_STREQ(ArrayLstStatStr(unknown), "arraylstStat unknown enum value");
}

TEST(ArrayLst, GrowsByTenAndSurvivesExhaustedMemory)
{
    test_support::failEachAllocation([](test_support::HeapWatch &) {
        ArrayLst *list = ArrayLstCreate();
        if (list == nullptr)
            return;
        const uint32_t &capacity = reinterpret_cast<uint32_t *>(list)[2];
        uint32_t added = 0;
        for (uint32_t i = 0; i < 12; ++i) {
            uint32_t stat = ArrayLstAdd(list, i, i);
            added += stat == ARRAYLST_OK;
            if (stat != ARRAYLST_OK) {
                EXPECT_EQ(stat, ARRAYLST_BAD_MALLOC);
                EXPECT_EQ(capacity, 10u) << "also while there is no array";
            }
        }
        EXPECT_EQ(capacity, 20u);
        uint32_t count = 0;
        uint32_t *keys = nullptr;
        uint32_t stat = ArrayLstGetKeys(list, &count, &keys);
        EXPECT_EQ(stat == ARRAYLST_OK ? count : added, added);
        ArrayLstFree(keys);
        ArrayLstSize(list, &count);
        EXPECT_EQ(count, added);
        EXPECT_EQ(ArrayLstDestroy(list), ARRAYLST_OK);
    });
}

} // namespace
