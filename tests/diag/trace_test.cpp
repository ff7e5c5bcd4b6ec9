#include "general/errortext.h"
#include "general/stacktrace.h"

#include "tests/diag/captured_events.h"
#include "tests/support/fresh_library.h"
#include "tests/support/heap_watch.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <string>
#include <vector>
#include <windows.h>

#include <dbghelp.h>

namespace {

using test_support::FreshLibrary;
using test_support::HeapWatch;
using test_support::ImportHook;
using testing::ElementsAre;

uint32_t number(const void *pointer)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

std::array<uint32_t, 64> addresses;
std::array<QVSTraceEntry, 64> entries;
uint32_t returnAddress; ///< of the function that took the last trace
int traceLine;
volatile int taken; // stored on the line of the call, which is thus where the call returns to

[[gnu::noinline]] int takeAddresses(int max)
{
    returnAddress = number(__builtin_return_address(0));
    addresses.fill(1);
    taken = QVSgetStackTrace(addresses.data(), max);
    return taken;
}

[[gnu::noinline]] int takeEntries(int max)
{
    returnAddress = number(__builtin_return_address(0));
    traceLine = __LINE__ + 1;
    taken = QVSgetStackTraceWithSyms(entries.data(), max);
    return taken;
}

TEST(StackTrace, BeginsInTheCaller)
{
    int all = takeAddresses(64);
    ASSERT_GT(all, 3);
    EXPECT_LT(addresses[0] - number(reinterpret_cast<void *>(takeAddresses)), 200u);
    EXPECT_EQ(addresses[1], returnAddress);
    for (int max : {1, all - 1, all, INT_MAX, 0, -1, INT_MIN}) {
        int count = takeAddresses(max);
        EXPECT_EQ(count, std::clamp(max, 0, all));
        EXPECT_EQ(addresses[static_cast<size_t>(count)], 1u);
    }
    EXPECT_TRUE(takeEntries(0) == 0 && takeEntries(-1) == 0);
    EXPECT_TRUE(QVSgetStackTrace(nullptr, 5) == 0 && QVSgetStackTraceWithSyms(nullptr, 5) == 0);
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
    EXPECT_EQ(QVSsetFramePointer(0), 0u);
    takeAddresses(2);
    EXPECT_EQ(addresses[1], returnAddress);
}

TEST(StackTrace, NamesFunctionsFilesAndLines)
{
    CapturedEvents events; // frames in DLLs have no symbols, which is logged
    std::memset(static_cast<void *>(entries.data()), 0xEE, sizeof entries);
    HeapWatch watch;
    int count = takeEntries(40);
    ASSERT_GT(count, 3);
    EXPECT_STREQ(entries[0].module, "trace_tests.exe");
    EXPECT_EQ(entries[0].start, number(reinterpret_cast<void *>(takeEntries)));
    EXPECT_THAT(entries[0].symbol, testing::StartsWith("takeEntries("));
    EXPECT_THAT(entries[0].symbol, testing::EndsWith("trace_test.cpp line " + std::to_string(traceLine) + ")"));
    EXPECT_EQ(entries[1].address, returnAddress);
    EXPECT_THAT(entries[1].symbol, testing::HasSubstr("TestBody"));
    for (auto i = static_cast<size_t>(count); i < 40; ++i)
        EXPECT_TRUE(entries[i].address == 0 && !entries[i].module && !entries[i].symbol && entries[i].start == 0);
    EXPECT_EQ(entries[40].address, 0xEEEEEEEEu);
    for (int again = 0; again < 2; ++again)
        QVSfreeStackTraceWithSyms(entries.data(), count);
    EXPECT_EQ(watch.liveBlocks(), 0);
    QVSfreeStackTraceWithSyms(nullptr, 1);
    QVSfreeAddrSym(nullptr, nullptr);

    QVSsetFramePointer(number(__builtin_frame_address(0)));
    EXPECT_EQ(takeEntries(1), 1);
    QVSsetFramePointer(0);
    EXPECT_EQ(entries[0].address, number(__builtin_return_address(0))) << "the chosen frame's own";
    QVSfreeStackTraceWithSyms(entries.data(), 1);
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

const uint32_t knownAddress = number(reinterpret_cast<void *>(takeEntries));

TEST(AddressLookup, WildAddressesAreReportedAndExhaustedMemorySurvived)
{
    CapturedEvents events;
    for (uint32_t wild : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        Found found = lookUp(wild);
        EXPECT_TRUE(found.result == 0 && found.isNothing());
        EXPECT_THAT(events.take(), ElementsAre(failed("SymGetModuleInfo", ERROR_MOD_NOT_FOUND),
                                               failed("SymGetSymFromAddr", ERROR_MOD_NOT_FOUND)));
    }
    EXPECT_EQ(QVSgetAddrSym(knownAddress, nullptr, nullptr, nullptr), 1);
    int failures = test_support::failEachAllocation([](const HeapWatch &watch) {
        Found found = lookUp(knownAddress);
        EXPECT_EQ(found.result == 1, found.module != nullptr && found.symbol != nullptr);
        EXPECT_TRUE((watch.failed() || found.result == 1) && found.start == knownAddress);
        QVSfreeAddrSym(&found.module, &found.symbol);
    });
    EXPECT_EQ(failures, 2);
    EXPECT_THAT(events.take(), ElementsAre());
}

/// Functions that refuse, for the system's.
template<typename Function>
struct Refusing;
template<typename Result, typename... Arguments>
struct Refusing<Result __attribute__((stdcall)) (Arguments...)> {
    static Result __attribute__((stdcall)) call(Arguments...)
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return Result{};
    }
};

uint64_t askedAddress;

BOOL WINAPI noteAddress(HANDLE, DWORD64 address, PIMAGEHLP_MODULE64 module)
{
    askedAddress = address;
    std::strcpy(module->ImageName, "no separator.exe");
    return TRUE;
}

DWORD WINAPI cutFileName(HMODULE, LPSTR, DWORD size)
{
    return size;
}

/// A function of the image-help library, and what a fresh copy of the DLL gets for it.
const char *substituted;
void *substitute;

FARPROC WINAPI findFunction(HMODULE module, LPCSTR name)
{
    return std::strcmp(name, substituted) == 0 ? reinterpret_cast<FARPROC>(substitute) : GetProcAddress(module, name);
}

/// A fresh copy of the DLL, with another function for one of its imports, looks a known address up in vain.
template<typename Function>
void expectFailureOnce(const char *import, Function *replacement, const std::vector<std::string> &messages)
{
    FreshLibrary library;
    CapturedEvents events(library.module());
    ImportHook hook(import, replacement, library.module());
    for (int expected : {0, 1, 1}) {
        Found found = lookUp(knownAddress, library.function<decltype(QVSgetAddrSym)>("QVSgetAddrSym"));
        EXPECT_TRUE(found.result == expected && found.isNothing()) << import;
        EXPECT_EQ(events.take(), expected == 0 ? messages : std::vector<std::string>());
    }
    bool hasLibrary = !messages.empty();
    EXPECT_EQ(library.function<decltype(QVScheckDbgHelpDll)>("QVScheckDbgHelpDll")(), hasLibrary);
    EXPECT_EQ(library.function<decltype(QVSgetStackTrace)>("QVSgetStackTrace")(addresses.data(), 1), hasLibrary);
}

TEST(AddressLookup, FirstFailureIsFinal)
{
    expectFailureOnce("LoadLibraryA", Refusing<HMODULE WINAPI(LPCSTR)>::call, {});
    expectFailureOnce("GetModuleFileNameA", Refusing<DWORD WINAPI(HMODULE, LPSTR, DWORD)>::call,
                      {failed("GetModuleFileName", ERROR_ACCESS_DENIED)});
    expectFailureOnce("GetModuleFileNameA", cutFileName, {failed("GetModuleFileName", ERROR_INSUFFICIENT_BUFFER)});
    substituted = "StackWalk64"; // which an old library lacks
    expectFailureOnce("GetProcAddress", findFunction, {});
    substituted = "SymInitialize";
    substitute = reinterpret_cast<void *>(Refusing<decltype(SymInitialize)>::call);
    expectFailureOnce("GetProcAddress", findFunction, {failed("SymInitialize", ERROR_ACCESS_DENIED)});
    substituted = "SymLoadModule64";
    substitute = reinterpret_cast<void *>(Refusing<decltype(SymLoadModule64)>::call);
    expectFailureOnce("GetProcAddress", findFunction, {failed("SymLoadModule", ERROR_ACCESS_DENIED)});
    EXPECT_EQ(QVScheckDbgHelpDll(), 1);
}

TEST(AddressLookup, TakesAddressesAsSigned)
{
    substituted = "SymGetModuleInfo64";
    substitute = reinterpret_cast<void *>(noteAddress);
    FreshLibrary library;
    CapturedEvents events(library.module());
    ImportHook hook("GetProcAddress", findFunction, library.module());
    Found found = lookUp(0x80001234, library.function<decltype(QVSgetAddrSym)>("QVSgetAddrSym"));
    EXPECT_EQ(askedAddress, 0xFFFFFFFF80001234u);
    EXPECT_STREQ(found.module, "no separator.exe");
    EXPECT_EQ(found.result, 0) << "there is no symbol";
    QVSfreeAddrSym(&found.module, &found.symbol);
}

} // namespace
