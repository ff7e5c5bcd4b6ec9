#include "general/arraylst.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <array>
#include <random>
#include <vector>

namespace {

/// A list beside the vector with a cursor that it is to behave as.
struct ArrayListModel {
    test_support::HeapWatch &watch;
    ArrayLst *list;
    std::vector<std::array<uint32_t, 2>> pairs = {}; ///< key, object
    size_t cursor = 0;
    uint32_t capacity = 0;

    void add(uint32_t key, uint32_t object)
    {
        uint32_t stat = ArrayLstAdd(list, key, object);
        EXPECT_EQ(stat, watch.justFailed() ? ARRAYLST_BAD_MALLOC : ARRAYLST_OK);
        if (stat == ARRAYLST_OK)
            pairs.push_back({key, object});
        capacity += pairs.size() > capacity || capacity == 0 ? 10 : 0; // the first also when it failed
        EXPECT_EQ(test_support::fieldOf(list, 2), capacity);
    }

    /// Looks for a key (member 0) or an object (member 1), which gives the other one.
    void search(uint32_t wanted, size_t member, bool removes)
    {
        uint32_t other = 7;
        uint32_t stat = member == 0 ? (removes ? ArrayLstRemove : ArrayLstSeek)(list, wanted, &other)
                                    : (removes ? ArrayLstRemoveObj : ArrayLstSeekObj)(list, &other, wanted);
        auto match = std::find_if(pairs.begin(), pairs.end(), [=](auto &pair) { return pair[member] == wanted; });
        bool found = match != pairs.end();
        EXPECT_EQ(stat, found ? ARRAYLST_OK : member == 0 ? ARRAYLST_NO_SUCH_KEY : ARRAYLST_NO_SUCH_OBJ);
        EXPECT_EQ(other, found ? (*match)[1 - member] : 0);
        cursor = found ? static_cast<size_t>(match - pairs.begin()) + (removes ? 0 : 1) : cursor;
        if (found && removes)
            pairs.erase(match);
    }

    void removeAll()
    {
        EXPECT_EQ(ArrayLstRemoveAll(list), ARRAYLST_OK);
        pairs.clear();
        cursor = 0;
    }

    void expectPair(size_t index, uint32_t missing, auto function, auto... arguments)
    {
        uint32_t key = 7, object = 7, stat = function(list, &key, &object, arguments...);
        bool found = index < pairs.size();
        EXPECT_EQ(stat, found ? uint32_t{ARRAYLST_OK} : missing);
        EXPECT_EQ((std::array{key, object}), found ? pairs[index] : (std::array{0u, 0u})) << "at " << index;
    }

    void expectPairs()
    {
        expectPair(cursor, ARRAYLST_EMPTY, ArrayLstNext);
        expectPair(0, ARRAYLST_EMPTY, ArrayLstFirst);
        expectPair(1, ARRAYLST_EMPTY, ArrayLstNext);
        expectPair(pairs.size() - 1, ARRAYLST_EMPTY, ArrayLstLast);
        for (uint32_t i = 0; i < pairs.size() + 2; ++i)
            expectPair(i, ARRAYLST_NO_SUCH_OBJ, ArrayLstGet, i);
        EXPECT_EQ(ArrayLstGet(list, nullptr, nullptr, 0), pairs.empty() ? ARRAYLST_NO_SUCH_OBJ : ARRAYLST_OK);
        cursor = pairs.empty() ? cursor : pairs.size();
    }

    void expectCopies(size_t member, decltype(ArrayLstGetKeys) *copyAll)
    {
        uint32_t count = 7, size = 7, *copies = &count;
        EXPECT_EQ(ArrayLstSize(list, &size), ARRAYLST_OK);
        EXPECT_EQ(size, pairs.size());
        uint32_t stat = copyAll(list, &count, &copies);
        EXPECT_EQ(stat, watch.justFailed() ? ARRAYLST_BAD_MALLOC : size == 0 ? ARRAYLST_EMPTY : ARRAYLST_OK);
        EXPECT_EQ(count, stat == ARRAYLST_OK ? size : 0);
        EXPECT_EQ(copies == nullptr, stat != ARRAYLST_OK);
        for (size_t i = 0; i < count; ++i)
            EXPECT_EQ(copies[i], pairs[i][member]);
        ArrayLstFree(copies);
    }
};

void drive(test_support::HeapWatch &watch, int steps, ArrayLst *list)
{
    std::mt19937 random(5);
    ArrayListModel model{watch, list};
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
        SCOPED_TRACE(step);
        uint32_t wanted = random() % 40, choice = random() % 10;
        if (choice < 5)
            model.add(wanted, wanted / 2);
        else if (choice < 9)
            model.search(wanted, choice % 2, choice < 7);
        else if (model.pairs.size() > 30)
            model.removeAll();
        model.expectPairs();
        model.expectCopies(0, ArrayLstGetKeys);
        model.expectCopies(1, ArrayLstGetObjs);
    }
}

TEST(ArrayLst, BehavesAsAVectorWithACursorUnderRandomTraffic)
{
    test_support::runTraffic(150, 5000, ArrayLstCreate, ArrayLstDestroy, drive);
}

} // namespace
