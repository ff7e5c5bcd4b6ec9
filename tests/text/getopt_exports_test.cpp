#include "general/getopt.h"

#include <gtest/gtest.h>

#include <windows.h>

namespace {

// The tool-chain has a parser of the same names: what programs get has to be the DLL's.
TEST(GetoptExports, VariablesAreTheDllsOwn)
{
    HMODULE library = GetModuleHandleA("general.dll");
    auto exported = [library](const char *name) { return reinterpret_cast<void *>(GetProcAddress(library, name)); };
    EXPECT_EQ(exported("getopt"), reinterpret_cast<void *>(&getopt));
    EXPECT_EQ(exported("optarg"), &optarg);
    EXPECT_EQ(exported("optind"), &optind);
    EXPECT_EQ(exported("opterr"), &opterr);
    EXPECT_EQ(exported("optopt"), &optopt);
}

} // namespace
