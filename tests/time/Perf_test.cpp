#include "general/perf.h"

#include "tests/support/import_hook.h"

#include <gtest/gtest.h>

namespace {

using namespace test_support;
using Counters = std::vector<PerfCounterDef>;
using Words = std::vector<uint32_t>;

PerfCounterDef counter(uint32_t id, uint32_t initialValue, uint32_t isPrivate = 0)
{
    return {id, 0xAAAAAAAA, 0xAAAAAAAA, isPrivate, 0xAAAAAAAA, initialValue};
}

PerfObjectDef object(const Counters &counters)
{
    return {9, 9, 9, counters.data(), static_cast<uint32_t>(counters.size()), 9, 9};
}

struct Perf : testing::Test {
    ~Perf() override { PerfShutdown(); }
    const char *name = testing::UnitTest::GetInstance()->current_test_info()->name();
    int publish(const Counters &counters)
    {
        const PerfObjectDef description = object(counters);
        return PerfInit(name, &description, 1);
    }
    /// A view of this process's own that, like a reader's, outlives the segment.
    static volatile uint32_t *view(const char *segment)
    {
        HANDLE mapping = OpenFileMappingA(FILE_MAP_WRITE, FALSE, segment);
        return static_cast<volatile uint32_t *>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0));
    }
};

TEST_F(Perf, TheSegmentHoldsWhatIsPublishedAndUpdated)
{
    EXPECT_EQ(PerfSetValue(1, 5) | PerfApplyDelta(1, 5) | PerfShutdown(), 0);
    const Counters first = {counter(1, 7), counter(2, 8, 1), counter(3, 9)}, none, second = {counter(3, 10)};
    const PerfObjectDef objects[] = {object(first), object(none), object(second)};
    ASSERT_EQ(PerfInit(name, objects, 3), 0);
    auto words = [reader = view(name)] { return Words(reader, reader + 12); };
    EXPECT_EQ(words(), (Words{0x5368766D, 4, 1, 12, 7, 3, 12, 9, 3, 12, 10, 0})); // four counters, three records
    // The first record of two; a private counter and an unknown one are not in the segment.
    EXPECT_EQ(PerfSetValue(1, 0xCAFE) | PerfApplyDelta(3, 0xFFFFFFFF) | PerfApplyDelta(2, 5) | PerfSetValue(4, 5), 0);
    EXPECT_EQ(words(), (Words{0x5368766D, 4, 1, 12, 0xCAFE, 3, 12, 8, 3, 12, 10, 0}));
    EXPECT_NE(PerfShutdown(), 0);
    EXPECT_EQ(PerfSetValue(1, 5) | PerfApplyDelta(1, 5) | PerfShutdown(), 0);
    EXPECT_EQ(words(), (Words{0, 4, 1, 12, 0xCAFE, 3, 12, 8, 3, 12, 10, 0}));
}

// Private counters make the count run past the records, and anybody may write to the segment.
TEST_F(Perf, UpdatesStayInsideTheSegment)
{
    publish({counter(1, 10), counter(2, 20), counter(3, 30, 1), counter(4, 40, 1)});
    volatile uint32_t *reader = view(name);
    PerfSetValue(0, 77); // what follows the last record reads as identifier 0
    for (uint32_t length : {12u, 0u, 11u, 25u, 0xFFFFFFF4u}) {
        reader[1] = 0xFFFFFFFF;
        reader[3] = length;
        PerfSetValue(5, 77);
        PerfApplyDelta(0, 77);
        EXPECT_EQ(Words(reader + 8, reader + 1024), Words(1016)) << "length " << length;
    }
    reader[3] = 4; // too short: what it leads to is no record with the identifier 4
    PerfSetValue(4, 77);
    reader[1] = 1; // a count that shrank hides what lies behind it
    PerfSetValue(2, 77);
    EXPECT_EQ(Words(reader + 4, reader + 8), (Words{10, 2, 12, 20}));
}

uint32_t *viewBeingFilled, magicAtFirstAccess = 99;

// The first access to the second page is caught: at that moment there is no magic yet, not even where
// a larger segment of the same name, magic and all, is taken over. Nothing of that one is left.
TEST_F(Perf, TheMagicIsWrittenLast)
{
    publish(Counters(800, counter(1, 5))); // 9608 bytes
    volatile uint32_t *reader = view(name);
    PerfShutdown();
    reader[0] = PERF_MAGIC; // as a process leaves it that ends without shutdown
    auto query = winapi([](const void *view, MEMORY_BASIC_INFORMATION *region, SIZE_T size) -> SIZE_T {
        DWORD before = 0;
        SIZE_T answer = VirtualQuery(view, region, size);
        viewBeingFilled = static_cast<uint32_t *>(region->BaseAddress);
        VirtualProtect(viewBeingFilled + 1024, 1, PAGE_READWRITE | PAGE_GUARD, &before);
        return answer;
    });
    auto look = winapi([](EXCEPTION_POINTERS *) -> LONG {
        return magicAtFirstAccess = *viewBeingFilled, EXCEPTION_CONTINUE_EXECUTION;
    });
    ImportHook hook("VirtualQuery", query);
    void *handler = AddVectoredExceptionHandler(1, look);
    EXPECT_EQ(publish(Counters(400, counter(1, 7))), 0); // 4808 bytes
    RemoveVectoredExceptionHandler(handler);
    EXPECT_EQ(magicAtFirstAccess, 0u);
    EXPECT_EQ(reader[0], PERF_MAGIC);
    EXPECT_EQ(reader[1201], 7u);
    EXPECT_EQ(Words(reader + 1202, reader + 3072), Words(1870));
}

TEST_F(Perf, ASecondInitReplacesTheFirstUnlessRefused)
{
    FailingImport<decltype(CloseHandle)> close("CloseHandle", FALSE, 0);
    {
        FailingImport<decltype(CreateFileMappingA)> create("CreateFileMappingA", nullptr, 1);
        FailingImport<decltype(MapViewOfFile)> map("MapViewOfFile", nullptr, 1);
        for (int closed : {0, 1}) // the mapping fails, then the view
            EXPECT_EQ(publish({counter(1, 10)}) * 10 + close.calls(), 30 + closed);
        EXPECT_EQ(PerfShutdown(), 0);
    }
    ASSERT_EQ(PerfInit("general_perf_older", nullptr, 0), 0);
    volatile uint32_t *older = view("general_perf_older");
    ASSERT_EQ(publish({counter(1, 1)}) | publish({counter(1, 10), counter(2, 20)}), 0); // and one of the same name
    EXPECT_EQ(close.calls(), 3);
    EXPECT_EQ((Words{older[0], view(name)[7]}), (Words{0, 20}));
    // Many objects share one array, so that their records need more than 4 GB.
    const Counters shared(65536, counter(2, 0));
    const std::vector<PerfObjectDef> tooMany(5462, object(shared));
    const PerfObjectDef noCounters = {0, 0, 0, nullptr, 1, 0, 0};
    FailingImport<decltype(CreateFileMappingA)> create("CreateFileMappingA", nullptr, 0);
    EXPECT_EQ(PerfInit(name, tooMany.data(), static_cast<uint32_t>(tooMany.size())), 3);
    EXPECT_EQ(PerfInit(name, &noCounters, 1) & PerfInit(name, nullptr, 1) & PerfInit(nullptr, nullptr, 0), 3);
    EXPECT_EQ(create.calls(), 0);
    PerfApplyDelta(1, 1);
    EXPECT_EQ((Words{view(name)[0], view(name)[4]}), (Words{PERF_MAGIC, 11}));
}

} // namespace
