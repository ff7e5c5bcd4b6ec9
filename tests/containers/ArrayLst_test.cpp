#include "general/arraylst.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <array>
#include <functional>
#include <random>
#include <vector>

namespace {

using Outcome = std::array<uint32_t, 3>; ///< result code, key, object
constexpr uint32_t untouched = 0xDEAD;

/// What a list is to do, on a vector.
struct Model {
    std::vector<std::array<uint32_t, 2>> pairs; ///< key, object
    size_t cursor = 0;

    Outcome at(size_t index, uint32_t missing) const
    {
        return index < pairs.size() ? Outcome{ARRAYLST_OK, pairs[index][0], pairs[index][1]} : Outcome{missing, 0, 0};
    }
    Outcome visit(size_t index)
    {
        cursor = index < pairs.size() ? index + 1 : cursor;
        return at(index, ARRAYLST_EMPTY);
    }
    /// @param member  what is looked for: 0 a key, 1 an object
    Outcome find(size_t member, uint32_t wanted, bool removes)
    {
        auto match = std::find_if(pairs.begin(), pairs.end(), [=](auto &pair) { return pair[member] == wanted; });
        auto index = static_cast<size_t>(match - pairs.begin());
        Outcome outcome = at(index, member == 0 ? ARRAYLST_NO_SUCH_KEY : ARRAYLST_NO_SUCH_OBJ);
        outcome[1 + member] = untouched;
        cursor = match == pairs.end() ? cursor : removes ? index : index + 1;
        if (match != pairs.end() && removes)
            pairs.erase(match);
        return outcome;
    }
};

void drive(test_support::HeapWatch &watch, int steps, ArrayLst *list)
{
    std::mt19937 random(5);
    Model model;
    uint32_t wanted, key, object, index, count, capacity = 0;
    auto expect = [&](uint32_t stat, Outcome expected) { EXPECT_EQ((Outcome{stat, key, object}), expected); };
    auto expectCopies = [&](size_t member, decltype(ArrayLstGetKeys) *copyAll) {
        uint32_t *copy = &count;
        uint32_t stat = copyAll(list, &count, &copy);
        ArrayLstStat found = model.pairs.empty() ? ARRAYLST_EMPTY : ARRAYLST_OK;
        EXPECT_EQ(stat, watch.justFailed() ? ARRAYLST_BAD_MALLOC : found);
        EXPECT_EQ(count, stat == ARRAYLST_OK ? model.pairs.size() : 0);
        EXPECT_EQ(copy == nullptr, stat != ARRAYLST_OK);
        for (size_t i = 0; i < count; ++i)
            EXPECT_EQ(copy[i], model.pairs[i][member]);
        ArrayLstFree(copy);
    };
    const std::function<void()> looks[] = {
        [&] { expect(ArrayLstRemove(list, wanted, &object), model.find(0, wanted, true)); },
        [&] { expect(ArrayLstRemoveObj(list, &key, wanted), model.find(1, wanted, true)); },
        [&] { expect(ArrayLstSeek(list, wanted, &object), model.find(0, wanted, false)); },
        [&] { expect(ArrayLstSeekObj(list, &key, wanted), model.find(1, wanted, false)); },
        [&] { expect(ArrayLstFirst(list, &key, &object), model.visit(0)); },
        [&] { expect(ArrayLstNext(list, &key, &object), model.visit(model.cursor)); },
        [&] { expect(ArrayLstLast(list, &key, &object), model.visit(model.pairs.size() - 1)); },
        [&] { expect(ArrayLstGet(list, &key, &object, index), model.at(index, ARRAYLST_NO_SUCH_OBJ)); },
        [&] { EXPECT_EQ(ArrayLstGet(list, nullptr, nullptr, index), model.at(index, ARRAYLST_NO_SUCH_OBJ)[0]); },
        [&] { expectCopies(0, ArrayLstGetKeys); },
        [&] { expectCopies(1, ArrayLstGetObjs); },
    };
    for (int step = 1; step <= steps && !testing::Test::HasFailure(); ++step) {
        SCOPED_TRACE(step);
        if (step % 600 == 0) {
            EXPECT_EQ(ArrayLstRemoveAll(list), ARRAYLST_OK);
            model = {};
        }
        wanted = random() % 40;
        index = static_cast<uint32_t>(random() % (model.pairs.size() + 2));
        key = object = untouched;
        if (random() % 10 < 3) {
            uint32_t stat = ArrayLstAdd(list, wanted, wanted / 2);
            EXPECT_EQ(stat, watch.justFailed() ? ARRAYLST_BAD_MALLOC : ARRAYLST_OK);
            if (stat == ARRAYLST_OK)
                model.pairs.push_back({wanted, wanted / 2});
            capacity += model.pairs.size() > capacity || capacity == 0 ? 10 : 0; // the first also when it failed
        } else {
            looks[random() % std::size(looks)]();
        }
        EXPECT_EQ(ArrayLstSize(list, &(count = 7)), ARRAYLST_OK);
        EXPECT_EQ(count, model.pairs.size());
        EXPECT_EQ(test_support::fieldOf(list, 2), capacity);
    }
}

TEST(ArrayLst, BehavesAsAVectorWithACursorUnderRandomTraffic)
{
    test_support::runTraffic(150, 20000, ArrayLstCreate, ArrayLstDestroy, drive);
}

} // namespace
