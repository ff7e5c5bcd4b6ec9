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

using test_support::expectEach;

TEST(Containers, RefuseForeignHandles)
{
    uint32_t untouched[2] = {7, 7};
    uint32_t *out = untouched;
    void *address = nullptr;
    auto refuse = [&](auto none) {
        expectEach(QUE_BAD_HANDLE,
                   {QueDestroy(none), QueLength(none, nullptr), QueAdd(none, nullptr), QueRmv(none, nullptr),
                    QueDel(none), QueDelIndex(none, 0), QueLook(none, 0, nullptr), QuePeek(none, 0, nullptr)});
        expectEach(STACK_BAD_HANDLE,
                   {StackDestroy(none), StackLength(none, nullptr), StackAdd(none, nullptr), StackRmv(none, nullptr)});
        expectEach(PQ_BAD_HANDLE,
                   {PQDestroy(none), PQAdd(none, out), PQRmv(none, out), PQDel(none), PQRmvIndex(none, -1, out),
                    PQDelIndex(none, -1), PQLength(none, out), PQLook(none, -1, out), PQPeek(none, -1, &address)});
        expectEach(MAP_BAD_HANDLE, {MapDestroy(none), MapAdd(none, 1, 1), MapFind(none, 1, out), MapRemove(none, 1),
                                    MapFirst(none, out, out + 1), MapNext(none, 1, out, out + 1)});
        ListFreeNode(none, out);
        EXPECT_TRUE(ListMakeNode(none) == nullptr && ListDestroy(none) == 0 && MapSize(none) == 0);
    };
    test_support::forEachForeign(refuse);
    uint32_t mapWithoutBuckets[8] = {0x4D415020};
    refuse(test_support::AnyHandle{mapWithoutBuckets});
    EXPECT_TRUE(out[0] == 7 && out[1] == 7 && address == nullptr);
}

TEST(Containers, ClearTheirMagicOnDestructionButForTheArrayList)
{
    test_support::HeapWatch watch;
    auto expectLast = [&](uint32_t magic, int64_t stat, size_t field = 0) {
        EXPECT_EQ(stat, 0);
        EXPECT_EQ(watch.wordOfLastFreedBlock(field), magic);
    };
    expectLast(0x0004676C, ArrayLstDestroy(ArrayLstCreate()));
    expectLast(0, ListDestroy(ListMake(9)) - 1, 4);
    expectLast(0, MapDestroy(MapCreate(4)));
    expectLast(0, PQDestroy(PQCreate(4, nullptr)));
    expectLast(0, QueDestroy(QueCreate(4)));
    expectLast(0, StackDestroy(StackCreate(4)));
}

TEST(QueueAndStack, ReportEmptinessBeforeNullPointers)
{
    EXPECT_TRUE(QueCreate(0) == nullptr && StackCreate(0) == nullptr);
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

TEST(ArrayLst, ZeroesOutputsOfForeignHandlesButThoseOfTheRemoveCalls)
{
    test_support::forEachForeign([](auto none) {
        uint32_t out[14];
        uint32_t *arrays[2] = {out, out};
        std::fill(std::begin(out), std::end(out), 7);
        EXPECT_EQ(ArrayLstDestroy(none), none.address == nullptr ? ARRAYLST_OK : ARRAYLST_INVALID_ARGS);
        expectEach(ARRAYLST_NO_SUCH_LST,
                   {ArrayLstAdd(none, 1, 1), ArrayLstRemoveAll(none), ArrayLstRemove(none, 1, out),
                    ArrayLstRemoveObj(none, out, 1), ArrayLstSeek(none, 1, &out[1]), ArrayLstSeekObj(none, &out[2], 1),
                    ArrayLstSize(none, &out[3]), ArrayLstGet(none, nullptr, &out[4], 0),
                    ArrayLstGet(none, &out[5], nullptr, 0), ArrayLstFirst(none, &out[6], &out[7]),
                    ArrayLstNext(none, &out[8], &out[9]), ArrayLstLast(none, &out[10], &out[11]),
                    ArrayLstGetKeys(none, &out[12], &arrays[0]), ArrayLstGetObjs(none, &out[13], &arrays[1])});
        EXPECT_TRUE(out[0] == 7 && arrays[0] == nullptr && arrays[1] == nullptr);
        EXPECT_EQ(std::count(std::begin(out), std::end(out), 0u), 13);
    });
}

} // namespace
