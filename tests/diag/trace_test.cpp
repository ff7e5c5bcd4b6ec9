#include "general/errortext.h"
#include "general/stacktrace.h"

#include "tests/diag/captured_events.h"
#include "tests/support/fresh_library.h"
#include "tests/support/heap_watch.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include <dbghelp.h>

namespace {

using namespace test_support;
using testing::ElementsAre, testing::HasSubstr;

uint32_t number(const void *pointer)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

uint32_t addresses[64];
QVSTraceEntry entries[64];
uint32_t returnAddress; ///< of the function that took the last trace
volatile int taken;     ///< stored on the line of the call, which is thus where the call returns to

[[gnu::noinline]] int takeAddresses(int max)
{
    returnAddress = number(__builtin_return_address(0));
    std::fill_n(addresses, 64, 1);
    taken = QVSgetStackTrace(addresses, max);
    return taken;
}

constexpr int traceLine = __LINE__ + 4;
[[gnu::noinline]] int takeEntries(int max)
{
    returnAddress = number(__builtin_return_address(0));
    taken = QVSgetStackTraceWithSyms(entries, max);
    return taken;
}

const uint32_t knownAddress = number(reinterpret_cast<void *>(takeEntries));

TEST(StackTrace, BeginsInTheCaller)
{
    int all = takeAddresses(64);
    ASSERT_GE(all, 2); // gtest's own frames need not be chained
    EXPECT_LT(addresses[0] - number(reinterpret_cast<void *>(takeAddresses)), 200u);
    EXPECT_EQ(addresses[1], returnAddress);
    for (int max : {1, all - 1, all, INT_MAX, 0, -1, INT_MIN}) {
        int count = takeAddresses(max);
        EXPECT_EQ(count, std::clamp(max, 0, all));
        EXPECT_EQ(addresses[count], 1u);
    }
    ImportHook noRegisters("GetThreadContext", winapi([](HANDLE, LPCONTEXT) { return FALSE; }));
    EXPECT_THAT(std::vector({takeEntries(0), takeEntries(-1), QVSgetStackTrace(nullptr, 5),
                             QVSgetStackTraceWithSyms(nullptr, 5), takeAddresses(64), takeEntries(64)}),
                testing::Each(0));
}

/// Takes one entry with its own frame chosen, which is where that one begins.
/// @return where this function returns to
[[gnu::noinline]] uint32_t takeFromOwnFrame()
{
    QVSsetFramePointer(number(__builtin_frame_address(0)));
    EXPECT_EQ(takeEntries(1), 1);
    return number(__builtin_return_address(0));
}

TEST(StackTrace, BeginsInTheChosenFrame)
{
    // Two frames that nobody is in: each has the caller's frame and the return address.
    uint32_t chain[] = {0, 0x11111111, 0, 0x22222222};
    chain[0] = number(&chain[2]);
    EXPECT_EQ(QVSsetFramePointer(number(chain)), number(chain));
    ASSERT_GE(takeAddresses(64), 2);
    EXPECT_EQ(addresses[1], 0x11111111u);
    MEMORY_BASIC_INFORMATION place;
    VirtualQuery(reinterpret_cast<void *>(uintptr_t{addresses[0]}), &place, sizeof place);
    EXPECT_EQ(place.AllocationBase, GetModuleHandleA("general.dll")) << "nothing is skipped";
    for (uint32_t wild : {1u, 0x10000u, 0x80000000u, 0xFFFFFFFCu}) {
        QVSsetFramePointer(wild);
        EXPECT_LE(takeAddresses(64), 2);
    }
    EXPECT_EQ(takeFromOwnFrame(), entries[0].address);
    QVSfreeStackTraceWithSyms(entries, 1);
    EXPECT_EQ(QVSsetFramePointer(0), 0u);
    takeAddresses(2);
    EXPECT_EQ(addresses[1], returnAddress);
}

TEST(StackTrace, NamesFunctionsFilesAndLines)
{
    CapturedEvents events; // frames in DLLs have no symbols, which is logged
    std::memset(static_cast<void *>(entries), 0xEE, sizeof entries);
    HeapWatch watch;
    int count = takeEntries(40);
    EXPECT_STREQ(entries[0].module, "trace_tests.exe");
    EXPECT_EQ(entries[0].start, knownAddress);
    EXPECT_THAT(entries[0].symbol, testing::StartsWith("takeEntries("));
    EXPECT_THAT(entries[0].symbol, HasSubstr("trace_test.cpp line " + std::to_string(traceLine) + ")"));
    EXPECT_EQ(entries[1].address, returnAddress);
    EXPECT_THAT(entries[1].symbol, HasSubstr("TestBody"));
    const QVSTraceEntry nothing{};
    for (int i = count; i < 40; ++i)
        EXPECT_EQ(std::memcmp(&entries[i], &nothing, sizeof nothing), 0);
    EXPECT_EQ(entries[40].address, 0xEEEEEEEEu);
    for (int again = 0; again < 2; ++again)
        QVSfreeStackTraceWithSyms(entries, count);
    EXPECT_EQ(watch.liveBlocks(), 0);
    QVSfreeStackTraceWithSyms(nullptr, 1);
    QVSfreeAddrSym(nullptr, nullptr);
}

struct Found {
    char *module, *symbol;
    uint32_t start;
    int result;

    bool isNothing() const { return !module && !symbol && start == 0; }
};

Found lookUp(uint32_t address, decltype(QVSgetAddrSym) *function = QVSgetAddrSym)
{
    Found found;
    std::memset(static_cast<void *>(&found), 0xEE, sizeof found); // cleared whatever happens
    found.result = function(address, &found.module, &found.symbol, &found.start);
    return found;
}

/// A message of the look-up.
std::string failed(const char *step, DWORD error)
{
    return std::string("QVSgetAddrSym: ERROR: ") + step + " FAILED with error <" + GetErrorText(error) + ">";
}

TEST(AddressLookup, WildAddressesAreReportedAndExhaustedMemorySurvived)
{
    CapturedEvents events;
    for (uint32_t wild : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        Found found = lookUp(wild);
        EXPECT_EQ(found.result, 0);
        EXPECT_TRUE(found.isNothing());
        EXPECT_THAT(events.take(), ElementsAre(failed("SymGetModuleInfo", ERROR_MOD_NOT_FOUND),
                                               failed("SymGetSymFromAddr", ERROR_MOD_NOT_FOUND)));
    }
    EXPECT_EQ(QVSgetAddrSym(knownAddress, nullptr, nullptr, nullptr), 1);
    int failures = failEachAllocation([](const HeapWatch &watch) {
        Found found = lookUp(knownAddress);
        EXPECT_EQ(found.result == 1, found.module != nullptr);
        EXPECT_TRUE(watch.failed() || found.result == 1);
        EXPECT_EQ(found.start, knownAddress);
        EXPECT_NE(found.symbol, nullptr) << "at least the name alone";
        QVSfreeAddrSym(&found.module, &found.symbol);
    });
    EXPECT_EQ(failures, 2);
    EXPECT_THAT(events.take(), ElementsAre());
}

// A fresh copy of the DLL, with another function for one that it imports or finds, looks a known address up in vain.
TEST(AddressLookup, FirstFailureIsFinal)
{
    constexpr DWORD denied = ERROR_ACCESS_DENIED;
    auto unloadable = winapi([](LPCSTR) -> HMODULE { return nullptr; });
    auto noName = winapi([](HMODULE, LPSTR, DWORD) { return SetLastError(denied), DWORD{0}; });
    auto cutName = winapi([](HMODULE, LPSTR, DWORD size) { return size; });
    auto noSymbols = winapi([](HANDLE, LPCSTR, BOOL) { return SetLastError(denied), FALSE; });
    auto noModule =
        winapi([](HANDLE, HANDLE, LPCSTR, LPCSTR, DWORD64, DWORD) { return SetLastError(denied), DWORD64{0}; });
    auto longFolder = winapi([](LPSTR, UINT) { return UINT{300}; });
    struct Case {
        const char *import, *found;
        FoundFunctions::Function function;
        std::vector<std::string> messages;
    };
    const Case cases[] = {
        {"LoadLibraryA", "", unloadable, {}},
        {"GetSystemDirectoryA", "", longFolder, {}},
        {nullptr, "StackWalk64", nullptr, {}}, // which an old library lacks
        {"GetModuleFileNameA", "", noName, {failed("GetModuleFileName", denied)}},
        {"GetModuleFileNameA", "", cutName, {failed("GetModuleFileName", ERROR_INSUFFICIENT_BUFFER)}},
        {nullptr, "SymInitialize", noSymbols, {failed("SymInitialize", denied)}},
        {nullptr, "SymLoadModule64", noModule, {failed("SymLoadModule", denied)}},
    };
    for (const auto &c : cases) {
        FreshLibrary library;
        CapturedEvents events(library.module());
        FoundFunctions found({{c.found, c.function}}, library.module());
        std::optional<ImportHook> hook;
        if (c.import != nullptr)
            hook.emplace(c.import, c.function.address, library.module());
        for (int expected : {0, 1, 1}) {
            Found nothing = lookUp(knownAddress, library.function<decltype(QVSgetAddrSym)>("QVSgetAddrSym"));
            EXPECT_EQ(nothing.result, expected) << c.found;
            EXPECT_TRUE(nothing.isNothing()) << c.found;
            EXPECT_EQ(events.take(), expected == 0 ? c.messages : decltype(c.messages)());
        }
        hook.reset(); // a library that comes late is left alone
        const bool hasLibrary = !c.messages.empty();
        EXPECT_EQ(library.function<decltype(QVScheckDbgHelpDll)>("QVScheckDbgHelpDll")(), hasLibrary);
        EXPECT_EQ(library.function<decltype(QVSgetStackTrace)>("QVSgetStackTrace")(addresses, 1), hasLibrary);
    }
}

uint64_t askedAddress;
std::vector<DWORD> askedSizes;

TEST(AddressLookup, AsksForAModuleAsEveryVersionUnderstands)
{
    auto onlyTodays = winapi([](HANDLE, DWORD64 address, PIMAGEHLP_MODULE64 module) -> BOOL {
        askedAddress = address;
        askedSizes.push_back(module->SizeOfStruct);
        std::strcpy(module->ImageName, "no separator.exe");
        return module->SizeOfStruct == sizeof *module || (SetLastError(ERROR_INVALID_PARAMETER), FALSE);
    });
    FreshLibrary library;
    CapturedEvents events(library.module());
    FoundFunctions found({{"SymGetModuleInfo64", onlyTodays}}, library.module());
    Found named = lookUp(0x80001234, library.function<decltype(QVSgetAddrSym)>("QVSgetAddrSym"));
    EXPECT_EQ(askedAddress, 0xFFFFFFFF80001234u) << "addresses count as signed";
    EXPECT_THAT(askedSizes, ElementsAre(584, sizeof(IMAGEHLP_MODULE64)));
    EXPECT_STREQ(named.module, "no separator.exe");
    EXPECT_EQ(named.result, 0) << "there is no symbol";
    QVSfreeAddrSym(&named.module, &named.symbol);
}

} // namespace
