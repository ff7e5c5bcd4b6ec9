#include "general/system.h"

#include "tests/support/fresh_library.h"
#include "tests/support/heap_watch.h"
#include "tests/support/import_hook.h"

#include <cstring>

#include <iptypes.h>

namespace {

using namespace test_support;

// What the IP helper answers: a domain or an error, after asking for more room if so told.
std::string answered;
ULONG roomNeeded;
DWORD answeredError;
int questions;

DWORD WINAPI answer(FIXED_INFO *parameters, ULONG *size)
{
    ++questions;
    if (*size < roomNeeded) {
        *size = roomNeeded;
        return ERROR_BUFFER_OVERFLOW;
    }
    std::memset(parameters, 0, *size); // writes to the end of what it was given
    answered.copy(parameters->DomainName, answered.size());
    return answeredError;
}

TEST(DomainName, IsKeptOnceThereIsOne)
{
    auto missing = winapi([](LPCSTR) -> HMODULE { return nullptr; });
    for (bool hasHelper : {false, true}) {
        FreshLibrary fresh;
        auto *domainName = fresh.function<decltype(QVSgetdomainname)>("QVSgetdomainname");
        FoundFunctions helper({{"GetNetworkParams", answer}}, fresh.module());
        std::optional<ImportHook> load;
        if (!hasHelper)
            load.emplace("LoadLibraryA", missing, fresh.module());
        answeredError = hasHelper ? ERROR_NO_DATA : ERROR_SUCCESS;
        EXPECT_STREQ(domainName(), "unknown");
        load.reset();
        EXPECT_STREQ(domainName(), "unknown") << "kept";
        EXPECT_EQ(std::exchange(questions, 0), hasHelper);
    }
    FoundFunctions helper({{"GetNetworkParams", answer}});
    answeredError = ERROR_SUCCESS;
    for (int asked : {1, 2}) { // in no domain: asked again
        EXPECT_STREQ(QVSgetdomainname(), "");
        EXPECT_EQ(questions, asked);
    }
    roomNeeded = 5000;
    answered = std::string(MAX_DOMAIN_NAME_LEN + 4, 'd'); // not terminated
    for (int failing : {1, 2}) {                          // the usual block, then the larger one
        HeapWatch watch(failing);
        EXPECT_STREQ(QVSgetdomainname(), "");
        EXPECT_TRUE(watch.failed());
        EXPECT_EQ(watch.liveBlocks(), 0);
    }
    EXPECT_EQ(QVSgetdomainname(), std::string(128, 'd'));
    answered = "other";
    EXPECT_EQ(QVSgetdomainname(), std::string(128, 'd'));
}

} // namespace
