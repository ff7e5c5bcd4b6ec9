#include "base/last_error.h"
#include "base/module_id.h"
#include "base/string_copy.h"

#include "general/dynld.h"
#include "general/errortext.h"
#include "general/redblack.h"

#include <stdlib.h>

GENERAL_MODULE_ID("$Id$");

namespace {

RbNode *libraries; ///< handles by name; null until first use

/// Remembers a loaded library under a copy of its name.
bool remember(const char *name, HMODULE library)
{
    char *copy = general::copyString(name);
    if (copy == nullptr)
        return false;
    if (RbInsert_b(RbFindKey(libraries, copy), copy, library) != nullptr)
        return true;
    free(copy);
    return false;
}

/// Fills in the path of a library; the system does not terminate one that is cut.
void tellPath(HMODULE library, char *path, int size)
{
    GetModuleFileNameA(library, path, static_cast<DWORD>(size));
    path[size - 1] = 0;
}

/// Ends a call with the last error that DynLdErr is to describe.
int finish(DynLdStat status, DWORD error)
{
    general::setLastError(error);
    return status;
}

} // namespace

int DynLd(const char *lib, const char *symbol, void **address, char *path, int pathSize)
{
    bool wantsPath = path != nullptr && pathSize > 0;
    if (wantsPath)
        path[0] = 0;
    if (lib == nullptr)
        return finish(DYNLD_NO_LIBRARY, ERROR_INVALID_PARAMETER);
    if (libraries == nullptr)
        libraries = RbCreate();
    if (libraries == nullptr)
        return finish(DYNLD_NO_MEMORY, ERROR_NOT_ENOUGH_MEMORY);

    DWORD error = general::lastError();
    DynLdStat status = DYNLD_OK;
    RbNode *known = RbExact(libraries, lib);
    HMODULE library = known != nullptr ? static_cast<HMODULE>(RbVal(known)) : LoadLibraryA(lib);
    if (library == nullptr)
        return DYNLD_NO_LIBRARY;
    if (known == nullptr && !remember(lib, library)) { // the caller gets the address all the same
        status = DYNLD_NO_MEMORY;
        error = ERROR_NOT_ENOUGH_MEMORY;
    }

    FARPROC found = symbol == nullptr ? nullptr : GetProcAddress(library, symbol);
    if (found == nullptr) {
        status = DYNLD_NO_SYMBOL;
        error = symbol == nullptr ? ERROR_INVALID_PARAMETER : general::lastError();
    } else if (address != nullptr) {
        *address = reinterpret_cast<void *>(found);
    }
    if (wantsPath)
        tellPath(library, path, pathSize);
    return finish(status, error);
}

const char *DynLdErr(void)
{
    return GetErrorText(general::lastError());
}

const char *DynLdExt(void)
{
    return "dll";
}
