#include "base/library_function.h"
#include "base/module_id.h"

#include "general/system.h"

#include <stdlib.h>
#include <string.h>
#include <windows.h>

#include <iptypes.h>

GENERAL_MODULE_ID("$Id$");

static_assert(sizeof(FIXED_INFO) == 584);

namespace {

using GetNetworkParamsFunction = DWORD WINAPI(FIXED_INFO *parameters, ULONG *size);

constexpr size_t domainSize = 128;
char domain[domainSize + 1]; // a domain of full length is still terminated

/// The IP helper's function, loaded when first asked for; null where the library is missing.
GetNetworkParamsFunction *networkParamsFunction()
{
    static GetNetworkParamsFunction *function;
    if (function == nullptr)
        general::findFunction(general::loadSystemLibrary("iphlpapi.dll"), "GetNetworkParams", function);
    return function;
}

/// Asks for the network parameters, a second time when they need more room than usual.
/// @param parameters  a block of usual size, which may be replaced; null when memory is exhausted
bool askNetworkParams(FIXED_INFO *&parameters)
{
    GetNetworkParamsFunction *ask = networkParamsFunction();
    if (ask == nullptr)
        return false;
    ULONG size = sizeof(FIXED_INFO);
    DWORD error = ask(parameters, &size);
    if (error == ERROR_BUFFER_OVERFLOW && size > sizeof(FIXED_INFO)) {
        auto *larger = static_cast<FIXED_INFO *>(realloc(parameters, size));
        if (larger == nullptr)
            free(parameters);
        parameters = larger;
        if (parameters == nullptr)
            return false;
        error = ask(parameters, &size);
    }
    return error == ERROR_SUCCESS;
}

void keepDomain(const char *name)
{
    size_t length = strnlen(name, domainSize);
    memcpy(domain, name, length);
    domain[length] = 0;
}

} // namespace

// The parameters' block is never freed: one block per call that gets here, as the header tells.
const char *QVSgetdomainname(void)
{
    if (domain[0] != 0)
        return domain;
    auto *parameters = static_cast<FIXED_INFO *>(malloc(sizeof(FIXED_INFO)));
    if (parameters == nullptr)
        return domain;

    bool answered = askNetworkParams(parameters);
    if (parameters != nullptr)
        keepDomain(answered ? parameters->DomainName : "unknown"); // NOLINT(clang-analyzer-unix.Malloc)
    return domain;                                                 // NOLINT(clang-analyzer-unix.Malloc)
}
