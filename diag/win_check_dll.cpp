#include "diag/image_help.h"

#include "base/library_function.h"
#include "base/module_id.h"
#include "base/once.h"

#include "general/stacktrace.h"

GENERAL_MODULE_ID("$Id$");

// Checks on Windows for the DLL that names and walks need, and loads it: the system's image-help library.

namespace general {

namespace {

ImageHelp functions;
Once<bool> isAvailable;

bool findAll(HMODULE library)
{
    return findFunction(library, "StackWalk64", functions.StackWalk64) &&
           findFunction(library, "SymFunctionTableAccess64", functions.SymFunctionTableAccess64) &&
           findFunction(library, "SymGetLineFromAddr64", functions.SymGetLineFromAddr64) &&
           findFunction(library, "SymGetModuleBase64", functions.SymGetModuleBase64) &&
           findFunction(library, "SymGetModuleInfo64", functions.SymGetModuleInfo64) &&
           findFunction(library, "SymGetOptions", functions.SymGetOptions) &&
           findFunction(library, "SymGetSymFromAddr64", functions.SymGetSymFromAddr64) &&
           findFunction(library, "SymInitialize", functions.SymInitialize) &&
           findFunction(library, "SymLoadModule64", functions.SymLoadModule64) &&
           findFunction(library, "SymSetOptions", functions.SymSetOptions);
}

bool probe()
{
    HMODULE library = loadSystemLibrary("imagehlp.dll");
    if (library == nullptr)
        return false;
    if (!findAll(library)) {
        FreeLibrary(library);
        return false;
    }
    functions.SymSetOptions(functions.SymGetOptions());
    return true;
}

} // namespace

const ImageHelp *imageHelp()
{
    return isAvailable.get(probe) ? &functions : nullptr;
}

} // namespace general

int QVScheckDbgHelpDll(void)
{
    return general::imageHelp() != nullptr;
}
