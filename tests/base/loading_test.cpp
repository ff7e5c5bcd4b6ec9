#include "general/processor.h"
#include "general/stacktrace.h"
#include "general/system.h"
#include "general/validators.h"

#include "tests/support/fresh_library.h"
#include "tests/support/import_hook.h"

#include <gmock/gmock.h>

#include <winternl.h>

namespace {

using namespace test_support;

/// What the system notes of a loaded module, from the module's address on.
struct LoadedModule {
    void *address, *entryPoint;
    ULONG size;
    UNICODE_STRING path, name;
    ULONG flags;
};

constexpr ULONG hearsOfNoThreads = 0x40000;

TEST(Loading, ThreadsAreNotAnnounced)
{
    const HMODULE library = LoadLibraryA("general.dll");
    const PEB *process = nullptr;
    asm("movl %%fs:0x30, %0" : "=r"(process));
    const LIST_ENTRY *modules = &process->Ldr->InMemoryOrderModuleList;
    ULONG flags = 0;
    for (const LIST_ENTRY *links = modules->Flink; links != modules; links = links->Flink) {
        auto *module = reinterpret_cast<const LoadedModule *>(links + 2); // behind this list's links and another's
        if (module->address == library)
            flags = module->flags;
    }
    EXPECT_TRUE((flags & hearsOfNoThreads) != 0) << "the library's own call was refused";
    EXPECT_TRUE(DisableThreadLibraryCalls(library));
}

std::vector<std::string> loaded;

TEST(Loading, SystemLibrariesComeFromTheSystemsFolder)
{
    FreshLibrary library;
    ImportHook hook("LoadLibraryA", winapi([](LPCSTR path) -> HMODULE { return loaded.emplace_back(path), nullptr; }),
                    library.module());
    EXPECT_EQ(library.function<decltype(islocal)>("islocal")("host"), 0);
    EXPECT_EQ(library.function<decltype(Kucpuid_frequency)>("Kucpuid_frequency")(1), 0u);
    EXPECT_STREQ(library.function<decltype(QVSgetdomainname)>("QVSgetdomainname")(), "unknown");
    EXPECT_EQ(library.function<decltype(QVScheckDbgHelpDll)>("QVScheckDbgHelpDll")(), 0);
    char folder[MAX_PATH];
    GetSystemDirectoryA(folder, sizeof folder);
    std::vector<std::string> expected;
    for (const char *name : {"\\wsock32.dll", "\\winmm.dll", "\\iphlpapi.dll", "\\imagehlp.dll"})
        expected.push_back(std::string(folder) + name);
    EXPECT_EQ(loaded, expected);
}

} // namespace
