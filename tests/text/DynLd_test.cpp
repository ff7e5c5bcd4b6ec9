#include "general/dynld.h"
#include "general/errortext.h"
#include "general/getopt.h"

#include "tests/support/fresh_library.h"
#include "tests/support/heap_watch.h"
#include "tests/support/import_hook.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

using LoadCount = test_support::FailingImport<decltype(LoadLibraryA)>;

std::string versionPath()
{
    char folder[MAX_PATH];
    GetSystemDirectoryA(folder, sizeof folder);
    return std::string(folder) + "\\version.dll";
}

TEST(DynLd, LoadsEachSpellingOnce)
{
    LoadCount loads("LoadLibraryA", nullptr, 0);
    for (const std::string &name : {std::string("version"), std::string("VERSION.dll"), versionPath(), versionPath()}) {
        void *address = nullptr;
        char path[MAX_PATH];
        SetLastError(77);
        EXPECT_EQ(DynLd(name.c_str(), "VerQueryValueA", &address, path, sizeof path), DYNLD_OK);
        EXPECT_EQ(GetLastError(), 77u) << "nothing went wrong";
        EXPECT_EQ(address, reinterpret_cast<void *>(GetProcAddress(GetModuleHandleA("version"), "VerQueryValueA")));
        EXPECT_STRCASEEQ(path, versionPath().c_str());
    }
    EXPECT_EQ(loads.calls(), 3);
    EXPECT_STREQ(DynLdExt(), "dll");
}

// The tool-chain has a parser of the same names: what programs get has to be the DLL's.
TEST(DynLd, FindsTheOptionParsersVariables)
{
    for (auto [name, expected] : {std::pair<const char *, void *>{"optarg", &optarg},
                                  {"optind", &optind},
                                  {"opterr", &opterr},
                                  {"optopt", &optopt}}) {
        void *address = nullptr;
        EXPECT_EQ(DynLd("general", name, &address, nullptr, 260), DYNLD_OK);
        EXPECT_EQ(address, expected) << name;
    }
}

TEST(DynLd, SaysWhatIsMissingAndWhy)
{
    LoadLibraryA("no_such_library");
    const DWORD missing = GetLastError(); // Windows 95, 98 and ME have an error of their own for it
    const struct {
        const char *lib, *symbol;
        int status;
        DWORD error;
    } cases[] = {{"no_such_library", "f", DYNLD_NO_LIBRARY, missing},
                 {nullptr, "f", DYNLD_NO_LIBRARY, ERROR_INVALID_PARAMETER},
                 {"version", "no_such_symbol", DYNLD_NO_SYMBOL, ERROR_PROC_NOT_FOUND},
                 {"version", nullptr, DYNLD_NO_SYMBOL, ERROR_INVALID_PARAMETER}};
    for (const auto &c : cases)
        for (int length : {260, 5, 1, 0, -1}) {
            void *address = &address;
            std::string path(261, '?'), expected = c.status == DYNLD_NO_SYMBOL ? versionPath() : "";
            EXPECT_EQ(DynLd(c.lib, c.symbol, &address, path.data(), length), c.status);
            EXPECT_EQ(GetLastError(), c.error);
            EXPECT_EQ(DynLdErr(), std::string(GetErrorText(c.error)));
            EXPECT_EQ(address, &address);
            expected.resize(std::min(expected.size(), static_cast<size_t>(std::max(length, 1)) - 1));
            EXPECT_STRCASEEQ(length > 0 ? path.c_str() : "", expected.c_str());
            EXPECT_EQ(path[static_cast<size_t>(std::max(length, 0))], '?');
        }
}

// In order: the name's copy, the leaf, the separator beside it. The table was made before.
TEST(DynLd, OutOfMemoryStillHandsTheAddressOut)
{
    ASSERT_EQ(DynLd("version", "VerQueryValueA", nullptr, nullptr, 0), DYNLD_OK);
    int failing = 0;
    for (const char *spelling : {"Version", "vErsion", "veRsion"}) {
        LoadCount loads("LoadLibraryA", nullptr, 0);
        test_support::HeapWatch watch(++failing);
        void *address = nullptr;
        EXPECT_EQ(DynLd(spelling, "VerQueryValueA", &address, nullptr, 0), DYNLD_NO_MEMORY);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_ENOUGH_MEMORY});
        EXPECT_NE(address, nullptr);
        EXPECT_EQ(watch.liveBlocks(), 0);
        EXPECT_EQ(DynLd(spelling, "none", &address, nullptr, 0), DYNLD_NO_SYMBOL);
        EXPECT_EQ(loads.calls(), 2) << "the first was not remembered";
    }
}

TEST(DynLd, NeedsItsTable)
{
    test_support::FreshLibrary library;
    test_support::ImportHook hook("malloc", +[](size_t) -> void * { return nullptr; }, library.module());
    EXPECT_EQ(library.function<decltype(DynLd)>("DynLd")("version", "VerQueryValueA", nullptr, nullptr, 0),
              DYNLD_NO_MEMORY);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_ENOUGH_MEMORY});
}

TEST(ErrorText, SystemTextInEnglishOrDecimal)
{
    SetLastError(77);
    EXPECT_STREQ(GetErrorText(0x20000001), "536870913"); // a customer code, which has no text
    EXPECT_STREQ(GetErrorText(0xE0000001), "-536870911");
    auto format = test_support::winapi(
        [](DWORD flags, LPCVOID, DWORD code, DWORD language, LPSTR text, DWORD size, va_list *) -> DWORD {
            SetLastError(1);
            return static_cast<DWORD>(std::snprintf(text, size, "%lx %lu %lx %lu", flags, code, language, size));
        });
    test_support::ImportHook hook("FormatMessageA", format);
    EXPECT_STREQ(GetErrorText(2), "1200 2 409 128"); // from the system, inserts left as they are, English
    EXPECT_EQ(GetLastError(), 77u);
}

} // namespace
