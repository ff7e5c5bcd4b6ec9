// Stack traces beside the system's own ways to the same addresses and names, and a symbol of a library that DynLd
// has loaded before beside GetProcAddress.

#include "bench/support/row.h"

#include "general/dynld.h"
#include "general/stacktrace.h"

#include <array>
#include <cstdint>
#include <string>
#include <windows.h>

#include <dbghelp.h>

namespace {

constexpr int frames = 20;
using Addresses = std::array<uint32_t, frames>;

/// Runs the work below so many calls, every one with a frame of its own.
template<typename Work>
[[gnu::noinline]] int under(int depth, Work work)
{
    if (depth == 0) {
        work();
        return 0;
    }
    int below = under(depth - 1, work);
    benchmark::DoNotOptimize(below);
    return below + 1;
}

/// Times a function that fills addresses, and sees to it that it fills them all.
template<typename Trace>
void timeTrace(benchmark::State &state, Trace trace)
{
    under(frames, [&] {
        Addresses addresses = {};
        for (auto _ : state)
            trace(addresses);
        if (addresses.back() == 0)
            state.SkipWithError("the trace is too short");
    });
}

void traceByGeneral(Addresses &addresses)
{
    QVSgetStackTrace(addresses.data(), frames);
}

void traceBySystem(Addresses &addresses)
{
    void *found[frames];
    USHORT count = CaptureStackBackTrace(0, frames, found, nullptr);
    for (USHORT i = 0; i < count; ++i)
        addresses[i] = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(found[i]));
}

/// What is in a frame that the compiler has set up.
struct Frame {
    const Frame *caller;
    uint32_t returnAddress;
};

void traceByFramePointers(Addresses &addresses)
{
    auto *frame = static_cast<const Frame *>(__builtin_frame_address(0));
    for (uint32_t &address : addresses) {
        address = frame->returnAddress;
        frame = frame->caller;
    }
}

void traceByImageHelp(Addresses &addresses)
{
    CONTEXT context;
    RtlCaptureContext(&context);
    STACKFRAME64 frame = {};
    frame.AddrPC = {context.Eip, 0, AddrModeFlat};
    frame.AddrFrame = {context.Ebp, 0, AddrModeFlat};
    frame.AddrStack = {context.Esp, 0, AddrModeFlat};
    for (uint32_t &address : addresses) {
        StackWalk64(IMAGE_FILE_MACHINE_I386, GetCurrentProcess(), GetCurrentThread(), &frame, &context, nullptr,
                    SymFunctionTableAccess64, SymGetModuleBase64, nullptr);
        address = static_cast<uint32_t>(frame.AddrPC.Offset);
    }
}

/// Symbols are loaded once per process. From then on every walk uses them, by whoever it is.
void loadSymbols()
{
    QVSgetAddrSym(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&loadSymbols)), nullptr, nullptr, nullptr);
}

void describeByGeneral(Addresses &addresses)
{
    std::array<QVSTraceEntry, frames> entries;
    int count = QVSgetStackTraceWithSyms(entries.data(), frames);
    addresses.back() = entries.back().symbol == nullptr ? 0 : entries.back().address;
    QVSfreeStackTraceWithSyms(entries.data(), count);
}

/// The same look-ups by hand, into a buffer that is used again and again.
void describeByHand(Addresses &addresses)
{
    struct {
        SYMBOL_INFO head;
        char rest[260];
    } symbol = {};
    IMAGEHLP_MODULE64 module = {};
    IMAGEHLP_LINE64 line = {};
    symbol.head.SizeOfStruct = sizeof symbol.head;
    symbol.head.MaxNameLen = sizeof symbol.rest;
    module.SizeOfStruct = sizeof module;
    line.SizeOfStruct = sizeof line;
    loadSymbols();
    traceByImageHelp(addresses);
    for (uint32_t address : addresses) {
        DWORD displacement = 0;
        SymGetModuleInfo64(GetCurrentProcess(), address, &module);
        if (SymFromAddr(GetCurrentProcess(), address, nullptr, &symbol.head) == FALSE ||
            SymGetLineFromAddr64(GetCurrentProcess(), address, &displacement, &line) == FALSE)
            addresses.back() = 0;
        benchmark::DoNotOptimize(std::string(symbol.head.Name) + line.FileName);
    }
}

const char *const libraries[] = {"version", "ws2_32", "winmm", "advapi32", "user32", "gdi32", "shell32", "ole32"};

void findByDynLd(benchmark::State &state)
{
    void *address = nullptr;
    for (const char *library : libraries)
        DynLd(library, "none", &address, nullptr, 0);
    for (auto _ : state)
        benchmark::DoNotOptimize(DynLd("version", "VerQueryValueA", &address, nullptr, 0));
}

void findByHandle(benchmark::State &state)
{
    HMODULE library = LoadLibraryA("version");
    for (auto _ : state)
        benchmark::DoNotOptimize(GetProcAddress(library, "VerQueryValueA"));
}

void findByName(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(GetProcAddress(GetModuleHandleA("version"), "VerQueryValueA"));
}

void add(const char *row, const char *contender, void (*trace)(Addresses &), double aim = 0)
{
    bench::contend(row, contender, [trace](benchmark::State &state) { timeTrace(state, trace); }, aim);
}

const bool registered = [] {
    add("trace of 20 frames", "general", traceByGeneral, 0.8);
    add("trace of 20 frames", "StackWalk64", traceByImageHelp);
    add("trace of 20 frames, frame pointers are enough", "general", traceByGeneral);
    add("trace of 20 frames, frame pointers are enough", "CaptureStackBackTrace", traceBySystem);
    add("trace of 20 frames, frame pointers are enough", "limit: unchecked", traceByFramePointers);
    add("trace of 20 frames with symbols and lines", "general", describeByGeneral, 0.8);
    add("trace of 20 frames with symbols and lines", "StackWalk64, SymFromAddr", describeByHand);
    bench::contend("symbol of one of 8 loaded libraries", "general", findByDynLd, 0.5);
    bench::contend("symbol of one of 8 loaded libraries", "GetProcAddress, handle kept", findByHandle);
    bench::contend("symbol of one of 8 loaded libraries", "GetModuleHandle, GetProcAddress", findByName);
    return true;
}();

} // namespace
