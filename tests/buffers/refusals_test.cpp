// What these modules say to handles that are not their own, and to sizes that make no sense.

#include "general/action.h"
#include "general/bufpool.h"
#include "general/cache.h"
#include "general/cbuf.h"
#include "general/keycall.h"
#include "general/strvec.h"
#include "general/verystupidfunction.h"
#include "general/vstr.h"

#include "tests/support/handles.h"

#include <gmock/gmock.h>

#include <climits>

namespace {

using test_support::expectEach;
using testing::Each;

TEST(Buffers, RefuseForeignHandles)
{
    test_support::forEachForeign([](auto none) {
        uint32_t mark = 7;
        void *address = &mark;
        expectEach(ACTION_BAD_HANDLE,
                   {ActionDestroy(none), ActionRmv(none, 1), ActionRmvCall(none, nullptr), ActionRmvAll(none),
                    ActionDo(none, nullptr, nullptr), ActionCount(none, &mark), ActionCount(none, nullptr)});
        expectEach(-1, {BufPoolDestroy(none) - (none.address == nullptr), BufPoolRelease(none, &mark),
                        BufPoolAvail(none), BufPoolResetMaxSize(none, 1)});
        expectEach(CACHE_BAD_HANDLE, {CacheAccess(none, "a", 1, nullptr, nullptr), CacheFinish(none, "a", 1),
                                      CacheRemove(none, "a", 1), CacheDelete(none)});
        expectEach(CBUF_BAD_HANDLE, {CBufDestroy(none), CBufAppend(none, "x", 1), CBufGetAppend(none, &address, 1),
                                     CBufSet(none, "x", 1), CBufInsert(none, "x", 9, 1), CBufCut(none, nullptr, 9, 1),
                                     CBufGet(none, &address, nullptr), CBufReset(none), CBufClear(none),
                                     CBufShrink(none), CBufSetQuantum(none, 0)});
        expectEach(KEYCALL_BAD_HANDLE,
                   {KeyCallDestroy(none), KeyCallAdd(none, 1, nullptr, nullptr), KeyCallRmv(none, 1, nullptr, nullptr),
                    KeyCallRmvAny(none, nullptr, nullptr, nullptr), KeyCallGet(none, 1, nullptr, nullptr),
                    KeyCallGetI(none, -1, nullptr, nullptr, nullptr)});
        expectEach(VSTR_BAD_HANDLE, {VstrAppend(none, "x"), VstrEmpty(none), VstrGet(none, nullptr),
                                     VstrLength(none, nullptr), VstrDestroy(none)});
        EXPECT_TRUE(mark == 7 && address == &mark);
        EXPECT_EQ(CBufGetInsert(none, &address, 1, 1), CBUF_BAD_HANDLE);
        EXPECT_TRUE(address == nullptr && BufPoolGrab(none, 0) == nullptr);
        EXPECT_TRUE(ActionAdd(none, nullptr, nullptr) == 0 && KeyCallNext(none) == 0);
    });
}

TEST(Buffers, ClearTheirMagicOnDestructionButForTwo)
{
    test_support::HeapWatch watch;
    auto expectLast = [&](uint32_t magic, int64_t stat) {
        EXPECT_EQ(stat, 0);
        EXPECT_EQ(watch.wordOfLastFreedBlock(), magic);
    };
    expectLast(0x41637441, ActionDestroy(ActionCreate()));
    expectLast(0, BufPoolDestroy(BufPoolCreate(1, 1)));
    expectLast(0, CacheDelete(CacheCreate(1, nullptr, nullptr)));
    expectLast(0, CBufDestroy(CBufCreate(1)));
    expectLast(0, KeyCallDestroy(KeyCallCreate()));
    expectLast(0x0005DAB2, VstrDestroy(VstrCreate(1)));
}

TEST(Buffers, AreNotCreatedWithSizesOutOfRange)
{
    constexpr int32_t withoutHeader = UINT32_MAX / 12; // so many slots fit, the header does not
    void *pools[] = {BufPoolCreate(0, 100), BufPoolCreate(-1, 100), BufPoolCreate(2, 0), BufPoolCreate(INT_MAX, 1),
                     BufPoolCreate(withoutHeader, 1)};
    void *others[] = {CBufCreate(0), CacheCreate(INT_MAX, nullptr, nullptr), VstrCreate(0), VstrCreate(-5)};
    void *vectors[] = {StrVecCreate(nullptr, UINT32_MAX), StrVecCreate(nullptr, UINT32_MAX / 4 + 5)};
    EXPECT_THAT(pools, Each(nullptr));
    EXPECT_THAT(others, Each(nullptr));
    EXPECT_THAT(vectors, Each(nullptr));
}

TEST(VeryStupidFunction, HandsItsArgumentBack)
{
    for (int value : {0, 1, -1, INT_MAX, INT_MIN})
        EXPECT_EQ(VeryStupidFunction(value), value);
}

} // namespace
