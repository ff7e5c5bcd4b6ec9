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

using test_support::expectRefusal;
using testing::Each;

TEST(Buffers, RefuseForeignHandles)
{
    expectRefusal(ACTION_BAD_HANDLE, ActionDestroy, ActionRmv, ActionRmvCall, ActionRmvAll, ActionDo, ActionCount);
    expectRefusal(-1, BufPoolRelease, BufPoolAvail, BufPoolResetMaxSize);
    expectRefusal(CACHE_BAD_HANDLE, CacheAccess, CacheFinish, CacheRemove, CacheDelete);
    expectRefusal(CBUF_BAD_HANDLE, CBufDestroy, CBufAppend, CBufGetAppend, CBufSet, CBufInsert, CBufCut, CBufGet,
                  CBufReset, CBufClear, CBufShrink, CBufSetQuantum);
    expectRefusal(KEYCALL_BAD_HANDLE, KeyCallDestroy, KeyCallAdd, KeyCallRmv, KeyCallRmvAny, KeyCallGet, KeyCallGetI);
    expectRefusal(VSTR_BAD_HANDLE, VstrAppend, VstrEmpty, VstrGet, VstrLength, VstrDestroy);
    expectRefusal(0, BufPoolGrab, ActionAdd, KeyCallNext);
    uint32_t record[8] = {};
    EXPECT_EQ(BufPoolDestroy(nullptr), 0);
    EXPECT_EQ(BufPoolDestroy(reinterpret_cast<BufPool *>(record)), -1);
    void *address = record;
    EXPECT_EQ(CBufGetInsert(nullptr, &address, 1, 1), CBUF_BAD_HANDLE);
    EXPECT_EQ(address, nullptr) << "set on every return";
}

TEST(Buffers, HaveAMagicThatDestructionClearsButForTwo)
{
    test_support::HeapWatch watch;
    auto check = [&](uint32_t magic, auto *handle, auto destroy, bool clears = true) {
        EXPECT_EQ(test_support::fieldOf(handle, 0), magic);
        destroy(handle);
        EXPECT_EQ(watch.wordOfLastFreedBlock(), clears ? 0 : magic);
    };
    check(0x41637441, ActionCreate(), ActionDestroy, false);
    check(0x00048FB2, BufPoolCreate(1, 1), BufPoolDestroy);
    check(0x43616331, CacheCreate(1, nullptr, nullptr), CacheDelete);
    check(0x000499B6, CBufCreate(1), CBufDestroy);
    check(0x4B657930, KeyCallCreate(), KeyCallDestroy);
    check(0x0005DAB2, VstrCreate(1), VstrDestroy, false);
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
    EXPECT_EQ(VeryStupidFunction(INT_MIN), INT_MIN);
}

} // namespace
