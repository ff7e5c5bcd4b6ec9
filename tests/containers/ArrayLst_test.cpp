#include "general/arraylst.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <array>
#include <random>
#include <vector>

namespace {

constexpr uint32_t poison = 0xDEAD;
constexpr size_t capacityField = 2;

using Outcome = std::array<uint32_t, 3>; ///< result code, key, object

/// A list beside its pairs and cursor.
struct Traffic {
    ArrayLst *list = ArrayLstCreate();
    std::vector<std::array<uint32_t, 2>> model;
    size_t cursor = 0;

    Outcome at(size_t index, uint32_t missing) const
    {
        return index < model.size() ? Outcome{ARRAYLST_OK, model[index][0], model[index][1]} : Outcome{missing, 0, 0};
    }
    Outcome visit(size_t index)
    {
        cursor = index < model.size() ? index + 1 : cursor;
        return at(index, ARRAYLST_EMPTY);
    }
    /// Seeks by key or object, or removes; the member looked for is not handed out.
    Outcome match(uint32_t wanted, bool byKey, bool removes)
    {
        auto matches = [&](auto &pair) { return pair[byKey ? 0 : 1] == wanted; };
        auto found = std::find_if(model.begin(), model.end(), matches);
        auto index = static_cast<size_t>(found - model.begin());
        Outcome outcome = at(index, byKey ? ARRAYLST_NO_SUCH_KEY : ARRAYLST_NO_SUCH_OBJ);
        outcome[byKey ? 1 : 2] = poison;
        if (found != model.end()) {
            cursor = removes ? index : index + 1;
            if (removes)
                model.erase(found);
        }
        return outcome;
    }

    void expectSnapshot(test_support::HeapWatch &watch, size_t member)
    {
        uint32_t count = poison;
        uint32_t *copy = &count;
        uint32_t stat = (member == 0 ? ArrayLstGetKeys : ArrayLstGetObjs)(list, &count, &copy);
        ASSERT_EQ(stat, model.empty() ? ARRAYLST_EMPTY : watch.justFailed() ? ARRAYLST_BAD_MALLOC : ARRAYLST_OK);
        ASSERT_EQ(count, stat == ARRAYLST_OK ? model.size() : 0);
        ASSERT_EQ(copy == nullptr, stat != ARRAYLST_OK);
        for (size_t i = 0; i < count; ++i)
            ASSERT_EQ(copy[i], model[i][member]);
        ArrayLstFree(copy);
    }
};

TEST(ArrayLst, BehavesAsAVectorWithACursorUnderRandomTraffic)
{
    test_support::runTraffic(150, 20000, [](test_support::HeapWatch &watch, int steps) {
        std::mt19937 random(5);
        Traffic t;
        EXPECT_EQ(t.list == nullptr, watch.justFailed());
        uint32_t capacity = 0;
        for (int step = 0; step < steps && t.list != nullptr; ++step) {
            uint32_t wanted = random() % 40;
            bool byKey = random() % 2 == 0;
            Outcome expected = {ARRAYLST_OK, poison, poison};
            Outcome got = expected;
            auto &[stat, key, object] = got;
            unsigned choice = random() % 12;
            if (choice < 4) {
                stat = ArrayLstAdd(t.list, wanted, wanted / 2);
                expected[0] = watch.justFailed() ? ARRAYLST_BAD_MALLOC : ARRAYLST_OK;
                if (stat == ARRAYLST_OK)
                    t.model.push_back({wanted, wanted / 2});
                capacity += t.model.size() > capacity || capacity == 0 ? 10 : 0; // the first also when it failed
            } else if (choice < 6) {
                expected = t.match(wanted, byKey, true);
                stat = byKey ? ArrayLstRemove(t.list, wanted, &object) : ArrayLstRemoveObj(t.list, &key, wanted);
            } else if (choice == 6) {
                expected = t.match(wanted, byKey, false);
                stat = byKey ? ArrayLstSeek(t.list, wanted, &object) : ArrayLstSeekObj(t.list, &key, wanted);
            } else if (choice == 7) {
                expected = t.visit(0);
                stat = ArrayLstFirst(t.list, &key, &object);
            } else if (choice < 10) {
                expected = t.visit(t.cursor);
                stat = ArrayLstNext(t.list, &key, &object);
            } else if (choice == 10) {
                expected = t.visit(t.model.size() - 1);
                stat = ArrayLstLast(t.list, &key, &object);
            } else if (step % 50 != 0) {
                auto index = static_cast<uint32_t>(random() % (t.model.size() + 2));
                expected = t.at(index, ARRAYLST_NO_SUCH_OBJ);
                expected[1] = byKey ? expected[1] : poison;
                stat = ArrayLstGet(t.list, byKey ? &key : nullptr, &object, index);
            } else {
                stat = ArrayLstRemoveAll(t.list);
                t.model.clear();
                t.cursor = 0;
            }
            ASSERT_EQ(got, expected) << "step " << step;
            uint32_t count = poison;
            ASSERT_EQ(ArrayLstSize(t.list, &count), ARRAYLST_OK);
            ASSERT_EQ(count, t.model.size());
            ASSERT_EQ(test_support::fieldOf(t.list, capacityField), capacity);
            if (step % 50 == 0)
                t.expectSnapshot(watch, byKey);
        }
        EXPECT_EQ(ArrayLstDestroy(t.list), ARRAYLST_OK);
    });
}

TEST(ArrayLst, ZeroesOutputsOfForeignHandlesButThoseOfTheRemoveCalls)
{
    test_support::forEachForeign<ArrayLst>([](ArrayLst *list) {
        uint32_t out[12];
        uint32_t *array = out;
        std::fill(std::begin(out), std::end(out), poison);
        EXPECT_EQ(ArrayLstDestroy(list), list == nullptr ? ARRAYLST_OK : ARRAYLST_INVALID_ARGS);
        test_support::expectEach(ARRAYLST_NO_SUCH_LST,
                                 {ArrayLstAdd(list, 1, 1), ArrayLstRemoveAll(list), ArrayLstRemove(list, 1, out),
                                  ArrayLstRemoveObj(list, out, 1), ArrayLstSeek(list, 1, &out[1]),
                                  ArrayLstSeekObj(list, &out[2], 1), ArrayLstSize(list, &out[3]),
                                  ArrayLstGet(list, nullptr, &out[4], 0), ArrayLstGet(list, &out[5], nullptr, 0),
                                  ArrayLstFirst(list, &out[6], &out[7]), ArrayLstNext(list, &out[8], &out[9]),
                                  ArrayLstLast(list, &out[10], &out[11])});
        EXPECT_EQ(out[0], poison);
        EXPECT_EQ(std::count(std::begin(out), std::end(out), 0u), 11);
        EXPECT_EQ(ArrayLstGetKeys(list, &out[0], &array), ARRAYLST_NO_SUCH_LST);
        EXPECT_EQ(out[0], 0u);
        EXPECT_EQ(array, nullptr);
    });
    EXPECT_STREQ(ArrayLstStatStr(0), "ARRAYLST_OK");
    EXPECT_STREQ(ArrayLstStatStr(6), "ARRAYLST_NO_SUCH_OBJ");
    for (int32_t unknown : {7, -1, INT32_MIN})
        EXPECT_STREQ(ArrayLstStatStr(unknown), "arraylstStat unknown enum value");
}

} // namespace
