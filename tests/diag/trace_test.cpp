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
#include <map>
#include <string>
#include <vector>
#include <windows.h>

#include <dbghelp.h>

namespace {

using test_support::FreshLibrary;
using test_support::HeapWatch;
using test_support::ImportHook;
using testing::ElementsAre;
using testing::IsEmpty;

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
    for (int max : {1, 2, all - 1, all, all + 1, INT_MAX}) {
        int count = takeAddresses(max);
        EXPECT_EQ(count, std::min(max, all));
        EXPECT_GT(addresses[static_cast<size_t>(count) - 1], 1u);
        EXPECT_EQ(addresses[static_cast<size_t>(count)], 1u);
    }
    for (int max : {0, -1, INT_MIN})
        EXPECT_TRUE(takeAddresses(max) == 0 && takeEntries(max) == 0);
    EXPECT_TRUE(QVSgetStackTrace(nullptr, 5) == 0 && QVSgetStackTraceWithSyms(nullptr, 5) == 0);
}

TEST(StackTrace, BeginsInTheChosenFrame)
{
    // Two frames that nobody is in, as a debugger would see them: the caller's frame, the return address.
    uint32_t chain[] = {0, 0x11111111, 0, 0x22222222};
    chain[0] = number(&chain[2]);
    EXPECT_EQ(QVSsetFramePointer(number(chain)), number(chain));
    int count = takeAddresses(64);
    HMODULE library = GetModuleHandleA("general.dll"), found = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCSTR>(uintptr_t{addresses[0]}),
                       &found);
    EXPECT_EQ(found, library) << "nothing is skipped";
    ASSERT_GE(count, 2);
    EXPECT_EQ(addresses[1], 0x11111111u);
    for (uint32_t wild : {1u, 0x10000u, 0x80000000u, 0xFFFFFFFCu}) {
        QVSsetFramePointer(wild);
        EXPECT_LE(takeAddresses(64), 2);
    }
    EXPECT_EQ(QVSsetFramePointer(0), 0u);
    takeAddresses(64);
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
    QVSfreeStackTraceWithSyms(entries.data(), count);
    QVSfreeStackTraceWithSyms(entries.data(), count);
    QVSfreeStackTraceWithSyms(nullptr, 1);
    QVSfreeAddrSym(nullptr, nullptr);
    EXPECT_EQ(watch.liveBlocks(), 0);

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
};

using AddressLookup = decltype(QVSgetAddrSym);

Found lookUp(const void *address, AddressLookup *function = QVSgetAddrSym)
{
    Found found;
    std::memset(static_cast<void *>(&found), 0xEE, sizeof found); // cleared whatever happens
    found.result = function(number(address), &found.module, &found.symbol, &found.start);
    return found;
}

const void *const knownAddress = reinterpret_cast<void *>(takeEntries);

TEST(AddressLookup, WildAddressesAreReportedAndExhaustedMemorySurvived)
{
    CapturedEvents events;
    std::string error = GetErrorText(ERROR_MOD_NOT_FOUND);
    for (uintptr_t wild : {uintptr_t{0}, uintptr_t{1}, uintptr_t{0x7FFFFFFF}, uintptr_t{0x80000000}, UINTPTR_MAX}) {
        Found found = lookUp(reinterpret_cast<void *>(wild));
        EXPECT_TRUE(found.result == 0 && !found.module && !found.symbol && found.start == 0);
        EXPECT_THAT(events.take(),
                    ElementsAre("QVSgetAddrSym: ERROR: SymGetModuleInfo FAILED with error <" + error + ">",
                                "QVSgetAddrSym: ERROR: SymGetSymFromAddr FAILED with error <" + error + ">"));
    }
    EXPECT_EQ(QVSgetAddrSym(number(knownAddress), nullptr, nullptr, nullptr), 1);
    int failures = test_support::failEachAllocation([](const HeapWatch &watch) {
        Found found = lookUp(knownAddress);
        EXPECT_EQ(found.result == 1, found.module != nullptr && found.symbol != nullptr);
        EXPECT_TRUE(watch.failed() || found.result == 1);
        EXPECT_EQ(found.start, number(knownAddress));
        QVSfreeAddrSym(&found.module, &found.symbol);
    });
    EXPECT_EQ(failures, 2);
    EXPECT_THAT(events.take(), IsEmpty());
}

/// Functions of the system's library that a fresh copy of the DLL gets others for; null for none.
std::map<std::string, void *> substitutes;

FARPROC WINAPI findSubstitute(HMODULE module, LPCSTR name)
{
    auto found = substitutes.find(name);
    return found == substitutes.end() ? GetProcAddress(module, name) : reinterpret_cast<FARPROC>(found->second);
}

BOOL WINAPI refuseToInitialize(HANDLE, PCSTR, BOOL)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

DWORD64 WINAPI refuseToLoad(HANDLE, HANDLE, PCSTR, PCSTR, DWORD64, DWORD)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return 0;
}

DWORD64 askedAddress;

BOOL WINAPI noteAddress(HANDLE, DWORD64 address, PIMAGEHLP_MODULE64 module)
{
    askedAddress = address;
    std::strcpy(module->ImageName, "no separator.exe");
    return TRUE;
}

DWORD WINAPI refuseFileName(HMODULE, LPSTR, DWORD)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return 0;
}

DWORD WINAPI cutFileName(HMODULE, LPSTR, DWORD size)
{
    return size;
}

HMODULE WINAPI refuseLibrary(LPCSTR)
{
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
}

/// Looks up twice in a fresh copy of the DLL: the first fails, with these messages, the second is empty.
void expectFailureOnce(const FreshLibrary &library, const std::vector<std::string> &messages)
{
    CapturedEvents events(library.module());
    auto *function = library.function<AddressLookup>("QVSgetAddrSym");
    for (int expected : {0, 1, 1}) {
        Found found = lookUp(knownAddress, function);
        EXPECT_TRUE(found.result == expected && !found.module && !found.symbol && found.start == 0);
        EXPECT_EQ(events.take(), expected == 0 ? messages : std::vector<std::string>());
    }
}

TEST(AddressLookup, FirstFailureIsFinal)
{
    auto message = [](const char *step, DWORD error = ERROR_ACCESS_DENIED) {
        return std::string("QVSgetAddrSym: ERROR: ") + step + " FAILED with error <" + GetErrorText(error) + ">";
    };
    const struct {
        const char *name;
        void *replacement;
        std::vector<std::string> messages;
    } steps[] = {
        {"SymInitialize", reinterpret_cast<void *>(refuseToInitialize), {message("SymInitialize")}},
        {"SymLoadModule64", reinterpret_cast<void *>(refuseToLoad), {message("SymLoadModule")}},
        {"StackWalk64", nullptr, {}}, // an old library
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.name);
        substitutes = {{step.name, step.replacement}};
        FreshLibrary library;
        ImportHook hook("GetProcAddress", findSubstitute, library.module());
        expectFailureOnce(library, step.messages);
    }
    for (auto *fileName : {refuseFileName, cutFileName}) {
        FreshLibrary library;
        ImportHook hook("GetModuleFileNameA", fileName, library.module());
        expectFailureOnce(library, {message("GetModuleFileName", fileName == cutFileName ? ERROR_INSUFFICIENT_BUFFER
                                                                                         : ERROR_ACCESS_DENIED)});
    }
    FreshLibrary library;
    auto check = library.function<decltype(QVScheckDbgHelpDll)>("QVScheckDbgHelpDll");
    {
        ImportHook hook("LoadLibraryA", refuseLibrary, library.module());
        EXPECT_EQ(check(), 0);
        expectFailureOnce(library, {});
        EXPECT_EQ(library.function<decltype(QVSgetStackTrace)>("QVSgetStackTrace")(addresses.data(), 9), 0);
        auto trace = library.function<decltype(QVSgetStackTraceWithSyms)>("QVSgetStackTraceWithSyms");
        EXPECT_EQ(trace(entries.data(), 9), 0);
    }
    EXPECT_EQ(check(), 0) << "probed once";
    EXPECT_EQ(QVScheckDbgHelpDll(), 1);
}

TEST(AddressLookup, TakesAddressesAsSigned)
{
    substitutes = {{"SymGetModuleInfo64", reinterpret_cast<void *>(noteAddress)}};
    FreshLibrary library;
    CapturedEvents events(library.module());
    ImportHook hook("GetProcAddress", findSubstitute, library.module());
    Found found =
        lookUp(reinterpret_cast<void *>(uintptr_t{0x80001234}), library.function<AddressLookup>("QVSgetAddrSym"));
    EXPECT_EQ(askedAddress, 0xFFFFFFFF80001234u);
    EXPECT_STREQ(found.module, "no separator.exe");
    EXPECT_EQ(found.result, 0) << "there is no symbol";
    QVSfreeAddrSym(&found.module, &found.symbol);
}

} // namespace
