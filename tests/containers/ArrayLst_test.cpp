#include "general/arraylst.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <array>
#include <random>
#include <vector>

namespace {

using Outcome = std::array<uint32_t, 3>; ///< result code, key, object
constexpr uint32_t untouched = 0xDEAD;

TEST(ArrayLst, BehavesAsAVectorWithACursorUnderRandomTraffic)
{
    test_support::runTraffic(150, 20000, ArrayLstCreate, ArrayLstDestroy, [](auto &watch, int steps, ArrayLst *list) {
        std::mt19937 random(5);
        std::vector<std::array<uint32_t, 2>> model; // key, object
        size_t cursor = 0;
        uint32_t capacity = 0;
        auto at = [&model](size_t index, uint32_t missing) {
            return index < model.size() ? Outcome{0, model[index][0], model[index][1]} : Outcome{missing, 0, 0};
        };
        for (int step = 0; step < steps; ++step) {
            uint32_t wanted = random() % 40;
            size_t member = random() % 2;
            Outcome expected = {ARRAYLST_OK, untouched, untouched};
            Outcome got = expected;
            auto &[stat, key, object] = got;
            unsigned choice = random() % 12;
            if (choice < 4) {
                stat = ArrayLstAdd(list, wanted, wanted / 2);
                expected[0] = watch.justFailed() ? ARRAYLST_BAD_MALLOC : ARRAYLST_OK;
                if (stat == ARRAYLST_OK)
                    model.push_back({wanted, wanted / 2});
                capacity += model.size() > capacity || capacity == 0 ? 10 : 0; // the first also when it failed
            } else if (choice < 7) {
                bool removes = choice < 6;
                stat = member == 0 ? (removes ? ArrayLstRemove : ArrayLstSeek)(list, wanted, &object)
                                   : (removes ? ArrayLstRemoveObj : ArrayLstSeekObj)(list, &key, wanted);
                auto match =
                    std::find_if(model.begin(), model.end(), [=](auto &pair) { return pair[member] == wanted; });
                auto index = static_cast<size_t>(match - model.begin());
                expected = at(index, member == 0 ? ARRAYLST_NO_SUCH_KEY : ARRAYLST_NO_SUCH_OBJ);
                expected[1 + member] = untouched;
                cursor = match == model.end() ? cursor : removes ? index : index + 1;
                if (match != model.end() && removes)
                    model.erase(match);
            } else if (choice < 11) {
                size_t index = choice == 7 ? 0 : choice == 8 ? model.size() - 1 : cursor;
                auto *visit = choice == 7 ? ArrayLstFirst : choice == 8 ? ArrayLstLast : ArrayLstNext;
                stat = visit(list, &key, &object);
                expected = at(index, ARRAYLST_EMPTY);
                cursor = index < model.size() ? index + 1 : cursor;
            } else if (step % 50 != 0) {
                size_t index = random() % (model.size() + 2);
                stat = ArrayLstGet(list, member == 0 ? &key : nullptr, &object, static_cast<uint32_t>(index));
                expected = at(index, ARRAYLST_NO_SUCH_OBJ);
                expected[1] = member == 0 ? expected[1] : untouched;
            } else {
                stat = ArrayLstRemoveAll(list);
                model.clear();
                cursor = 0;
            }
            ASSERT_EQ(got, expected) << "step " << step;
            uint32_t count = 7;
            ASSERT_EQ(ArrayLstSize(list, &count), ARRAYLST_OK);
            ASSERT_TRUE(count == model.size() && test_support::fieldOf(list, 2) == capacity) << "step " << step;
            if (step % 25 != 0)
                continue;
            uint32_t *copy = &count;
            stat = (member == 0 ? ArrayLstGetKeys : ArrayLstGetObjs)(list, &count, &copy);
            ASSERT_EQ(stat, model.empty() ? ARRAYLST_EMPTY : watch.justFailed() ? ARRAYLST_BAD_MALLOC : ARRAYLST_OK);
            ASSERT_EQ(count, stat == ARRAYLST_OK ? model.size() : 0);
            ASSERT_EQ(copy == nullptr, stat != ARRAYLST_OK);
            for (size_t i = 0; i < count; ++i)
                ASSERT_EQ(copy[i], model[i][member]);
            ArrayLstFree(copy);
        }
    });
    EXPECT_STREQ(ArrayLstStatStr(0), "ARRAYLST_OK");
    EXPECT_STREQ(ArrayLstStatStr(6), "ARRAYLST_NO_SUCH_OBJ");
    for (int32_t unknown : {7, -1})
        EXPECT_STREQ(ArrayLstStatStr(unknown), "arraylstStat unknown enum value");
}

} // namespace
