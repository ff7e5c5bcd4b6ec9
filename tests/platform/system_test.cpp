#include "general/system.h"

#include "tests/support/heap_watch.h"
#include "tests/support/import_hook.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <windows.h>

#include <iptypes.h>

namespace {

using test_support::FailingImport;
using test_support::HeapWatch;
using test_support::ImportHook;

TEST(Sysconf, KnowsTwoNames)
{
    EXPECT_TRUE(QVSsysconf(508) == 64 && 8192 % QVSsysconf(506) == 0);
    EXPECT_TRUE(QVSsysconf(0) == 22 && QVSsysconf(507) == 22 && QVSsysconf(-1) == 22);
}

// The IP helper that the library finds: answers with a domain, after asking for more room if so told.
std::string answeredDomain;
ULONG roomNeeded;
DWORD answeredError;
int questions;

DWORD WINAPI answerParams(FIXED_INFO *parameters, ULONG *size)
{
    ++questions;
    if (*size < roomNeeded) {
        *size = roomNeeded;
        return ERROR_BUFFER_OVERFLOW;
    }
    std::memset(parameters, 0, *size); // writes to the end of what it was given
    std::memcpy(parameters->DomainName, answeredDomain.data(), answeredDomain.size());
    return answeredError;
}

FARPROC WINAPI findAnswerParams(HMODULE, LPCSTR)
{
    return reinterpret_cast<FARPROC>(reinterpret_cast<void *>(answerParams));
}

/// Makes the library forget the domain that it keeps.
void forgetDomain()
{
    const_cast<char *>(QVSgetdomainname())[0] = 0;
}

TEST(DomainName, IsKeptOnceThereIsOne)
{
    { // must come first: the library looks for the helper until it finds it
        FailingImport<HMODULE WINAPI(LPCSTR)> missing("LoadLibraryA", nullptr, 1);
        EXPECT_STREQ(QVSgetdomainname(), "unknown");
        EXPECT_STREQ(QVSgetdomainname(), "unknown");
        EXPECT_EQ(missing.calls(), 1);
        forgetDomain();
    }
    ImportHook find("GetProcAddress", findAnswerParams);
    for (int asked : {1, 2}) { // in no domain: asked again
        EXPECT_STREQ(QVSgetdomainname(), "");
        EXPECT_EQ(questions, asked);
    }

    for (int failing : {1, 2}) { // the usual block, then the larger one
        roomNeeded = 5000;
        HeapWatch watch(failing);
        EXPECT_STREQ(QVSgetdomainname(), "");
        EXPECT_TRUE(watch.failed());
        EXPECT_EQ(watch.liveBlocks(), 0);
    }
    answeredDomain = std::string(MAX_DOMAIN_NAME_LEN + 4, 'd'); // not terminated
    EXPECT_EQ(QVSgetdomainname(), std::string(128, 'd'));
    questions = 0;
    QVSgetdomainname();
    EXPECT_EQ(questions, 0);
    forgetDomain();
    answeredError = ERROR_NO_DATA;
    EXPECT_STREQ(QVSgetdomainname(), "unknown");
    forgetDomain();
}

} // namespace
