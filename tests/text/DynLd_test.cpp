#include "general/dynld.h"
#include "general/errortext.h"

#include "tests/support/heap_watch.h"
#include "tests/support/import_hook.h"

#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <windows.h>

namespace {

using test_support::FailingImport;
using test_support::HeapWatch;

using LoadLibraryFunction = HMODULE WINAPI(LPCSTR);

/// Counts the calls to the system's loader, and fails none.
class LoadCount : public FailingImport<LoadLibraryFunction> {
public:
    LoadCount() : FailingImport("LoadLibraryA", nullptr, 0) {}
};

std::string systemPath(const char *file)
{
    char folder[MAX_PATH];
    GetSystemDirectoryA(folder, sizeof folder);
    return std::string(folder) + "\\" + file;
}

TEST(DynLd, LoadsEachSpellingOnce)
{
    LoadCount loads;
    const std::string spellings[] = {"version", "VERSION.dll", systemPath("version.dll")};
    for (int round = 0; round < 2; ++round)
        for (const std::string &name : spellings) {
            void *address = nullptr;
            char path[MAX_PATH];
            EXPECT_EQ(DynLd(name.c_str(), "VerQueryValueA", &address, path, sizeof path), DYNLD_OK);
            EXPECT_EQ(address, reinterpret_cast<void *>(GetProcAddress(GetModuleHandleA("version"), "VerQueryValueA")));
            EXPECT_STRCASEEQ(path, spellings[2].c_str());
        }
    EXPECT_EQ(loads.calls(), 3);
    EXPECT_STREQ(DynLdExt(), "dll");
}

TEST(DynLd, SaysWhatIsMissingAndWhy)
{
    int untouched = 0;
    const struct {
        const char *lib, *symbol;
        int status;
        DWORD error;
    } cases[] = {
        {"no_such_library", "f", DYNLD_NO_LIBRARY, ERROR_MOD_NOT_FOUND},
        {nullptr, "f", DYNLD_NO_LIBRARY, ERROR_INVALID_PARAMETER},
        {"version", "no_such_symbol", DYNLD_NO_SYMBOL, ERROR_PROC_NOT_FOUND},
        {"version", nullptr, DYNLD_NO_SYMBOL, ERROR_INVALID_PARAMETER},
    };
    for (const auto &c : cases)
        for (int length : {260, 5, 1, 0, -1}) {
            SCOPED_TRACE(testing::Message() << (c.lib ? c.lib : "null") << ", room for " << length);
            void *address = &untouched;
            char path[261];
            std::memset(path, '?', sizeof path);
            SetLastError(0);
            EXPECT_EQ(DynLd(c.lib, c.symbol, &address, path, length), c.status);
            EXPECT_EQ(GetLastError(), c.error);
            std::string text = DynLdErr();
            EXPECT_EQ(text, GetErrorText(c.error));
            EXPECT_EQ(DynLdErr(), text) << "asking does not change it";
            EXPECT_EQ(address, &untouched);
            std::string expected = c.status == DYNLD_NO_SYMBOL ? systemPath("version.dll") : "";
            if (length > 0) {
                EXPECT_STRCASEEQ(path, expected.substr(0, static_cast<size_t>(length) - 1).c_str());
            }
            EXPECT_EQ(path[length > 0 ? length : 0], '?');
        }
    EXPECT_EQ(DynLd("version", "VerQueryValueA", nullptr, nullptr, 260), DYNLD_OK);
}

// In order: the name's copy, the leaf, the separator beside it. The table was made before.
TEST(DynLd, OutOfMemoryStillHandsTheAddressOut)
{
    ASSERT_EQ(DynLd("version", "VerQueryValueA", nullptr, nullptr, 0), DYNLD_OK);
    const char *const spellings[] = {"Version", "vErsion", "veRsion"};
    for (int failing = 1; failing <= 3; ++failing) {
        const char *name = spellings[failing - 1];
        LoadCount loads;
        HeapWatch watch(failing);
        void *address = nullptr;
        char path[MAX_PATH] = "";
        EXPECT_EQ(DynLd(name, "VerQueryValueA", &address, path, sizeof path), DYNLD_NO_MEMORY);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_ENOUGH_MEMORY});
        EXPECT_TRUE(watch.failed() && watch.liveBlocks() == 0);
        EXPECT_TRUE(address != nullptr && *path != 0);
        EXPECT_EQ(DynLd(name, "none", &address, nullptr, 0), DYNLD_NO_SYMBOL);
        EXPECT_EQ(loads.calls(), 2) << "the first was not remembered";
    }
}

TEST(ErrorText, SystemTextInEnglishOrDecimal)
{
    SetLastError(77);
    EXPECT_THAT(std::string(GetErrorText(ERROR_FILE_NOT_FOUND)), testing::EndsWith("\r\n"));
    EXPECT_NE(std::string(GetErrorText(ERROR_FILE_NOT_FOUND)).find("ile not found"), std::string::npos);
    EXPECT_STREQ(GetErrorText(0x20000001), "536870913"); // a customer code, which has no text
    EXPECT_STREQ(GetErrorText(0xE0000001), "-536870911");
    EXPECT_EQ(GetLastError(), 77u);
    EXPECT_EQ(GetErrorText(1), GetErrorText(2));
}

} // namespace
