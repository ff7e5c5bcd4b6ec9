#include "general/chrono.h"
#include "general/perf.h"

#include "tests/support/import_hook.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <iterator>
#include <memory>
#include <string>
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

/// What another process reads at the start of the segment; empty when it finds none.
std::string seenByAnotherProcess(int bytes)
{
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, sizeof path);
    std::string command(path);
    command.resize(command.rfind('\\') + 1);
    command = "\"" + command + "segment_dump.exe\" " + segmentName() + " " + std::to_string(bytes);
    std::unique_ptr<FILE, int (*)(FILE *)> pipe(_popen(command.c_str(), "r"), _pclose);
    std::string text;
    for (int c; (c = std::getc(pipe.get())) != EOF;)
        text += static_cast<char>(c);
    return text;
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

TEST_F(Perf, AnotherProcessReadsTheSegment)
{
    std::vector<PerfCounterDef> first = {counter(0x11, 7), counter(0x12, 8, 1)}, none,
                                second = {counter(0x13, 0x01020304)};
    const PerfObjectDef objects[] = {object(first), object(none), object(second)};
    ASSERT_EQ(PerfInit(segmentName(), objects, 3), 0);
    EXPECT_EQ(seenByAnotherProcess(36),
              "6D-76-68-53 03-00-00-00 11-00-00-00 0C-00-00-00 07-00-00-00 "
              "13-00-00-00 0C-00-00-00 04-03-02-01 00-00-00-00 "); // three counters, two records
    PerfSetValue(0x11, 0xCAFE);
    PerfApplyDelta(0x13, 0xFFFFFFFF);
    PerfApplyDelta(0x12, 5); // private: not in the segment
    EXPECT_EQ(seenByAnotherProcess(36), "6D-76-68-53 03-00-00-00 11-00-00-00 0C-00-00-00 FE-CA-00-00 "
                                        "13-00-00-00 0C-00-00-00 03-03-02-01 00-00-00-00 ");
    EXPECT_NE(PerfShutdown(), 0);
    EXPECT_EQ(seenByAnotherProcess(4), "");
}

TEST_F(Perf, UpdatesFindTheFirstRecordOrNothing)
{
    EXPECT_EQ(PerfSetValue(1, 5) | PerfApplyDelta(1, 5) | PerfShutdown(), 0);
    publish({counter(1, 10), counter(2, 20), counter(2, 30)});
    volatile uint32_t *reader = view();
    EXPECT_EQ(PerfSetValue(2, 99) | PerfApplyDelta(2, 2) | PerfSetValue(3, 5), 0);
    PerfShutdown();
    EXPECT_EQ(PerfSetValue(1, 5) | PerfApplyDelta(1, 5) | PerfShutdown(), 0);
    const uint32_t expected[] = {0, 3, 1, 12, 10, 2, 12, 101, 2, 12, 30};
    for (size_t word = 0; word < std::size(expected); ++word)
        EXPECT_EQ(reader[word], expected[word]) << "word " << word;
}

// Private counters make the count run past the records, and anybody may write to the segment.
TEST_F(Perf, UpdatesStayInsideTheSegment)
{
    publish({counter(1, 10), counter(2, 20), counter(3, 30, 1), counter(4, 40, 1)});
    volatile uint32_t *reader = view();
    PerfSetValue(0, 77); // what follows the last record reads as identifier 0
    EXPECT_EQ(reader[10], 0u);
    CpuTime(nullptr, CPU_TIME_START);
    for (uint32_t length : {0u, 1u, 11u, 13u, 24u, 25u, 0x7FFFFFFFu, 0xFFFFFFF4u, 0xFFFFFFFFu}) {
        reader[1] = 0xFFFFFFFF;
        reader[3] = length;
        PerfSetValue(5, 77);
        PerfApplyDelta(0, 77);
        for (size_t word = 8; word < 1024; ++word)
            ASSERT_EQ(reader[word], 0u) << "length " << length << ", word " << word;
    }
    EXPECT_LT(CpuTime(nullptr, CPU_TIME_USER), 1500) << "walked on the spot for as long as the count said";
    reader[1] = 1; // a count that shrank hides what lies behind it
    PerfSetValue(2, 77);
    EXPECT_EQ(reader[7], 20u);
}

uint32_t *viewBeingFilled;
uint32_t magicAtFirstWrite = 99;

LPVOID WINAPI mapReadOnly(HANDLE mapping, DWORD, DWORD, DWORD, SIZE_T size)
{
    viewBeingFilled = static_cast<uint32_t *>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, size));
    DWORD before = 0;
    VirtualProtect(viewBeingFilled + 1024, 1, PAGE_READONLY, &before);
    return viewBeingFilled;
}

LONG CALLBACK releaseSecondPage(EXCEPTION_POINTERS *exception)
{
    if (exception->ExceptionRecord->ExceptionCode != EXCEPTION_ACCESS_VIOLATION)
        return EXCEPTION_CONTINUE_SEARCH;
    magicAtFirstWrite = *viewBeingFilled;
    DWORD before = 0;
    return VirtualProtect(viewBeingFilled + 1024, 1, PAGE_READWRITE, &before) ? EXCEPTION_CONTINUE_EXECUTION
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

TEST_F(Perf, SizesThatOverflowAndNullsAreRefusedAndChangeNothing)
{
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
    EXPECT_EQ(reader[0], PERF_MAGIC);
    EXPECT_EQ(reader[4], 11u);
}

TEST_F(Perf, ARefusedSegmentGivesThreeAndKeepsNothing)
{
    FailingImport<Close> close("CloseHandle", FALSE, 0);
    FailingImport<OpenMapping> create("CreateFileMappingA", nullptr, 1);
    FailingImport<MapView> map("MapViewOfFile", nullptr, 1);
    for (int closed : {0, 1}) { // the mapping fails, then the view
        EXPECT_EQ(publish({counter(1, 10)}), 3);
        EXPECT_EQ(close.calls(), closed);
    }
    EXPECT_EQ(PerfShutdown(), 0);
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
