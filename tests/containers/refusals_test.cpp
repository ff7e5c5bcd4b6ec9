// What every container says to a handle that is not its own.

#include "general/arraylst.h"
#include "general/list.h"
#include "general/map.h"
#include "general/pqueue.h"
#include "general/queue.h"
#include "general/stack.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <iterator>

namespace {

using namespace test_support;

TEST(Containers, RefuseForeignHandles)
{
    expectRefusal(QUE_BAD_HANDLE, QueDestroy, QueLength, QueAdd, QueRmv, QueDel, QueDelIndex, QueLook, QuePeek);
    expectRefusal(STACK_BAD_HANDLE, StackDestroy, StackLength, StackAdd, StackRmv);
    expectRefusal(PQ_BAD_HANDLE, PQDestroy, PQAdd, PQRmv, PQDel, PQRmvIndex, PQDelIndex, PQLength, PQLook, PQPeek);
    expectRefusal(MAP_BAD_HANDLE, MapDestroy, MapAdd, MapFind, MapRemove, MapFirst, MapNext);
    expectRefusal(0, MapSize, ListMakeNode, ListDestroy);
    expectRefusal(ARRAYLST_NO_SUCH_LST, ArrayLstAdd, ArrayLstRemoveAll, ArrayLstRemove, ArrayLstRemoveObj);
    ListFreeNode(nullptr, nullptr);
    uint32_t mapWithoutBuckets[5] = {0x4D415020};
    EXPECT_EQ(MapRemove(reinterpret_cast<Map *>(mapWithoutBuckets), 1), MAP_BAD_HANDLE);
}

TEST(ArrayLst, ZeroesItsOutputsAlsoForForeignHandles)
{
    uint32_t out[10], record[5] = {};
    for (ArrayLst *none : {static_cast<ArrayLst *>(nullptr), reinterpret_cast<ArrayLst *>(record)}) {
        uint32_t *arrays[2] = {out, out};
        std::fill(std::begin(out), std::end(out), 7);
        EXPECT_EQ(ArrayLstDestroy(none), none == nullptr ? ARRAYLST_OK : ARRAYLST_INVALID_ARGS);
        expectEach(ARRAYLST_NO_SUCH_LST,
                   {ArrayLstSeek(none, 1, &out[0]), ArrayLstSeekObj(none, &out[1], 1), ArrayLstSize(none, &out[2]),
                    ArrayLstGet(none, nullptr, &out[3], 0), ArrayLstGet(none, &out[4], nullptr, 0),
                    ArrayLstGetKeys(none, &out[5], &arrays[0]), ArrayLstGetObjs(none, &out[6], &arrays[1]),
                    ArrayLstFirst(none, &out[7], &out[8]), ArrayLstNext(none, &out[9], &out[9]),
                    ArrayLstLast(none, &out[9], &out[9])});
        EXPECT_EQ(arrays[0], nullptr);
        EXPECT_EQ(arrays[1], nullptr);
        EXPECT_EQ(std::count(std::begin(out), std::end(out), 0u), 10);
    }
}

TEST(Containers, HaveAMagicThatDestructionClearsButForTheArrayLists)
{
    HeapWatch watch;
    expectMagic(0x0004676C, watch, ArrayLstCreate(), ArrayLstDestroy, 0x0004676C);
    expectMagic(0x4C697374, watch, ListMake(9), ListDestroy, 0, 4);
    expectMagic(0x4D415020, watch, MapCreate(4), MapDestroy);
    expectMagic(0x50517565, watch, PQCreate(4, nullptr), PQDestroy);
    expectMagic(0x51756531, watch, QueCreate(4), QueDestroy);
    expectMagic(0x53746131, watch, StackCreate(4), StackDestroy);
}

TEST(QueueAndStack, ReportEmptinessBeforeNullPointers)
{
    EXPECT_EQ(QueCreate(0), nullptr);
    EXPECT_EQ(StackCreate(0), nullptr);
    Queue *queue = QueCreate(4);
    Stack *stack = StackCreate(4);
    for (int64_t stat : {QUE_EMPTY, QUE_BAD_ARG}) {
        expectEach(stat, {QueRmv(queue, nullptr), QueLook(queue, 0, nullptr), QuePeek(queue, 0, nullptr),
                          StackRmv(stack, nullptr)});
        expectEach(QUE_BAD_ARG, {QueLength(queue, nullptr), QueAdd(queue, nullptr), StackLength(stack, nullptr),
                                 StackAdd(stack, nullptr)});
        expectEach(QUE_OK, {QueAdd(queue, "abc"), StackAdd(stack, "abc")});
    }
    expectEach(QUE_OK, {QueDestroy(queue), StackDestroy(stack)});
}

TEST(ArrayLst, NamesItsResults)
{
    expectNames(ArrayLstStatStr,
                {"ARRAYLST_OK", "ARRAYLST_BAD_MALLOC", "ARRAYLST_EMPTY", "ARRAYLST_INVALID_ARGS",
                 "ARRAYLST_NO_SUCH_KEY", "ARRAYLST_NO_SUCH_LST", "ARRAYLST_NO_SUCH_OBJ"},
                "arraylstStat unknown enum value");
}

} // namespace
