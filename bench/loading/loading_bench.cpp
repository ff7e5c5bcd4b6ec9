// What it costs a program to load the library and let it go again.

#include "bench/support/row.h"

#include <windows.h>

namespace {

void loadAndUnload(benchmark::State &state, const char *name)
{
    for (auto _ : state) {
        HMODULE module = LoadLibraryA(name);
        if (module == nullptr) {
            state.SkipWithError("the DLL could not be loaded; it lies beside the program");
            break;
        }
        FreeLibrary(module);
    }
}

[[maybe_unused]] const bool added = [] {
    const char *row = "load and unload the DLL";
    bench::contend(row, "general", [](benchmark::State &state) { loadAndUnload(state, "general_again.dll"); });
    bench::contend(row, "limit: an empty DLL", [](benchmark::State &state) { loadAndUnload(state, "empty.dll"); });
    return true;
}();

} // namespace
