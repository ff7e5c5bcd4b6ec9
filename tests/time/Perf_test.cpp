#include "general/perf.h"

#include "tests/support/import_hook.h"

#include <gtest/gtest.h>

#include <vector>
#include <windows.h>

namespace {

using test_support::FailingImport;
using test_support::ImportHook;
using OpenMapping = HANDLE WINAPI(HANDLE, SECURITY_ATTRIBUTES *, DWORD, DWORD, DWORD, LPCSTR);
using MapView = LPVOID WINAPI(HANDLE, DWORD, DWORD, DWORD, SIZE_T);
using Close = BOOL WINAPI(HANDLE);

/// Every test has a segment of its own.
const char *segmentName()
{
    return testing::UnitTest::GetInstance()->current_test_info()->name();
}

PerfCounterDef counter(uint32_t id, uint32_t initialValue, uint32_t isPrivate = 0)
{
    return PerfCounterDef{id, 0xAAAAAAAA, 0xAAAAAAAA, isPrivate, 0xAAAAAAAA, initialValue};
}

PerfObjectDef object(const std::vector<PerfCounterDef> &counters)
{
    return PerfObjectDef{9, 9, 9, counters.data(), static_cast<uint32_t>(counters.size()), 9, 9};
}

/// A view of this process's own that, like a reader's, outlives the segment.
volatile uint32_t *view(const char *name = segmentName())
{
    HANDLE mapping = OpenFileMappingA(FILE_MAP_WRITE, FALSE, name);
    return static_cast<volatile uint32_t *>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0));
}

class Perf : public testing::Test {
protected:
    ~Perf() override { PerfShutdown(); }

    static int publish(const std::vector<PerfCounterDef> &counters)
    {
        PerfObjectDef description = object(counters);
        return PerfInit(segmentName(), &description, 1);
    }
};

TEST_F(Perf, TheSegmentHoldsWhatIsPublishedAndUpdated)
{
    EXPECT_EQ(PerfSetValue(1, 5) | PerfApplyDelta(1, 5) | PerfShutdown(), 0);
    std::vector<PerfCounterDef> first = {counter(1, 7), counter(2, 8, 1), counter(3, 9)}, none,
                                second = {counter(3, 10)};
    const PerfObjectDef objects[] = {object(first), object(none), object(second)};
    ASSERT_EQ(PerfInit(segmentName(), objects, 3), 0);
    using Words = std::vector<uint32_t>;
    auto words = [reader = view()] { return Words(reader, reader + 12); };
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
    volatile uint32_t *reader = view();
    PerfSetValue(0, 77); // what follows the last record reads as identifier 0
    EXPECT_EQ(reader[10], 0u);
    for (uint32_t length : {0u, 1u, 11u, 13u, 24u, 25u, 0x7FFFFFFFu, 0xFFFFFFF4u, 0xFFFFFFFFu}) {
        reader[1] = 0xFFFFFFFF;
        reader[3] = length;
        PerfSetValue(5, 77);
        PerfApplyDelta(0, 77);
        for (size_t word = 8; word < 1024; ++word)
            ASSERT_EQ(reader[word], 0u) << "length " << length << ", word " << word;
    }
    reader[3] = 4; // too short: what it leads to is no record with the identifier 4
    PerfSetValue(4, 77);
    EXPECT_EQ(reader[5], 2u);
    reader[1] = 1; // a count that shrank hides what lies behind it
    PerfSetValue(2, 77);
    EXPECT_EQ(reader[7], 20u);
}

constexpr size_t secondPage = 1024; // in words
uint32_t *viewBeingFilled;
uint32_t magicAtFirstWrite = 99;

DWORD protectSecondPage(DWORD protection)
{
    DWORD before = 0;
    VirtualProtect(viewBeingFilled + secondPage, 1, protection, &before);
    return before;
}

LPVOID WINAPI mapReadOnly(HANDLE mapping, DWORD, DWORD, DWORD, SIZE_T size)
{
    viewBeingFilled = static_cast<uint32_t *>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, size));
    protectSecondPage(PAGE_READONLY);
    return viewBeingFilled;
}

LONG CALLBACK releaseSecondPage(EXCEPTION_POINTERS *)
{
    magicAtFirstWrite = *viewBeingFilled;
    return protectSecondPage(PAGE_READWRITE) == PAGE_READONLY ? EXCEPTION_CONTINUE_EXECUTION
                                                              : EXCEPTION_CONTINUE_SEARCH;
}

// The first write to the second page is caught: at that moment there is no magic yet, not even where
// an older segment of the same name, magic and all, is taken over.
TEST_F(Perf, TheMagicIsWrittenLast)
{
    const std::vector<PerfCounterDef> many(400, counter(1, 5)); // 4808 bytes
    publish(many);
    volatile uint32_t *reader = view();
    PerfShutdown();
    reader[0] = PERF_MAGIC; // as a process leaves it that ends without shutdown
    ImportHook hook("MapViewOfFile", mapReadOnly);
    void *handler = AddVectoredExceptionHandler(1, releaseSecondPage);
    EXPECT_EQ(publish(many), 0);
    RemoveVectoredExceptionHandler(handler);
    EXPECT_EQ(magicAtFirstWrite, 0u);
    EXPECT_EQ(reader[0], PERF_MAGIC);
}

TEST_F(Perf, WhatIsRefusedChangesNothingAndKeepsNothing)
{
    FailingImport<Close> close("CloseHandle", FALSE, 0);
    {
        FailingImport<OpenMapping> create("CreateFileMappingA", nullptr, 1);
        FailingImport<MapView> map("MapViewOfFile", nullptr, 1);
        for (int closed : {0, 1}) { // the mapping fails, then the view
            EXPECT_EQ(publish({counter(1, 10)}), 3);
            EXPECT_EQ(close.calls(), closed);
        }
        EXPECT_EQ(PerfShutdown(), 0);
    }
    publish({counter(1, 10)});
    volatile uint32_t *reader = view();
    // Many objects share one array, so that their records need more than 4 GB.
    std::vector<PerfCounterDef> shared(65536, counter(2, 0));
    std::vector<PerfObjectDef> tooMany(5462, object(shared));
    PerfObjectDef noCounters = {0, 0, 0, nullptr, 1, 0, 0};
    FailingImport<OpenMapping> create("CreateFileMappingA", nullptr, 0);
    EXPECT_EQ(PerfInit(segmentName(), tooMany.data(), static_cast<uint32_t>(tooMany.size())), 3);
    EXPECT_EQ(PerfInit(segmentName(), &noCounters, 1), 3);
    EXPECT_EQ(PerfInit(segmentName(), nullptr, 1), 3);
    EXPECT_EQ(PerfInit(nullptr, nullptr, 0), 3);
    EXPECT_EQ(create.calls(), 0);
    PerfApplyDelta(1, 1);
    EXPECT_TRUE(reader[0] == PERF_MAGIC && reader[4] == 11);
}

TEST_F(Perf, ASecondInitReplacesTheFirstSegment)
{
    ASSERT_EQ(PerfInit("general_perf_older", nullptr, 0), 0);
    volatile uint32_t *older = view("general_perf_older");
    FailingImport<Close> close("CloseHandle", FALSE, 0);
    ASSERT_EQ(publish({counter(1, 1)}), 0);
    EXPECT_EQ(older[0], 0u);
    ASSERT_EQ(publish({counter(3, 3), counter(4, 4)}), 0); // the same name, with more counters
    EXPECT_EQ(close.calls(), 2);
    EXPECT_EQ(view()[7], 4u);
}

} // namespace
