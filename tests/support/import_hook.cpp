#include "tests/support/import_hook.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace test_support {

namespace {

template<typename Type>
Type *at(HMODULE module, DWORD offset)
{
    return reinterpret_cast<Type *>(reinterpret_cast<char *>(module) + offset);
}

/// The import table's slot for a function; null when the module imports no such name.
void **findEntry(HMODULE module, const char *name)
{
    auto *headers = at<IMAGE_NT_HEADERS>(module, at<IMAGE_DOS_HEADER>(module, 0)->e_lfanew);
    const IMAGE_DATA_DIRECTORY &imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    auto *descriptor = at<IMAGE_IMPORT_DESCRIPTOR>(module, imports.VirtualAddress);
    for (; descriptor->Name != 0; ++descriptor) {
        auto *lookup = at<IMAGE_THUNK_DATA>(module, descriptor->OriginalFirstThunk);
        auto *entry = at<IMAGE_THUNK_DATA>(module, descriptor->FirstThunk);
        for (; lookup->u1.AddressOfData != 0; ++lookup, ++entry) {
            if (IMAGE_SNAP_BY_ORDINAL(lookup->u1.Ordinal))
                continue;
            auto *import = at<IMAGE_IMPORT_BY_NAME>(module, lookup->u1.AddressOfData);
            if (std::strcmp(reinterpret_cast<const char *>(import->Name), name) == 0)
                return reinterpret_cast<void **>(&entry->u1.Function);
        }
    }
    return nullptr;
}

void store(void **entry, void *function)
{
    DWORD protection = 0;
    VirtualProtect(entry, sizeof *entry, PAGE_READWRITE, &protection);
    *entry = function;
    VirtualProtect(entry, sizeof *entry, protection, &protection);
}

} // namespace

ImportHook::ImportHook(const char *name, void *replacement, void *module, int)
    : entry_(findEntry(module == nullptr ? GetModuleHandleA("general.dll") : static_cast<HMODULE>(module), name))
{
    if (entry_ == nullptr) {
        std::fprintf(stderr, "general.dll does not import %s\n", name);
        std::abort();
    }
    original_ = *entry_;
    store(entry_, replacement);
}

ImportHook::~ImportHook()
{
    store(entry_, original_);
}

} // namespace test_support
