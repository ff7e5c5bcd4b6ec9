#include "diag/image_help.h"

#include "base/module_id.h"

#include "general/stacktrace.h"

GENERAL_MODULE_ID("$Id$");

namespace general {

namespace {

ImageHelp functions;
bool isProbed;
bool isAvailable;

template<typename Function>
bool find(HMODULE library, const char *name, Function &function)
{
    function = reinterpret_cast<Function>(reinterpret_cast<void *>(GetProcAddress(library, name)));
    return function != nullptr;
}

bool findAll(HMODULE library)
{
    return find(library, "StackWalk64", functions.StackWalk64) &&
           find(library, "SymFunctionTableAccess64", functions.SymFunctionTableAccess64) &&
           find(library, "SymGetLineFromAddr64", functions.SymGetLineFromAddr64) &&
           find(library, "SymGetModuleBase64", functions.SymGetModuleBase64) &&
           find(library, "SymGetModuleInfo64", functions.SymGetModuleInfo64) &&
           find(library, "SymGetOptions", functions.SymGetOptions) &&
           find(library, "SymGetSymFromAddr64", functions.SymGetSymFromAddr64) &&
           find(library, "SymInitialize", functions.SymInitialize) &&
           find(library, "SymLoadModule64", functions.SymLoadModule64) &&
           find(library, "SymSetOptions", functions.SymSetOptions);
}

bool probe()
{
    HMODULE library = LoadLibraryA("imagehlp.dll");
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
    if (!isProbed) {
        isAvailable = probe();
        isProbed = true;
    }
    return isAvailable ? &functions : nullptr;
}

} // namespace general

int QVScheckDbgHelpDll(void)
{
    return general::imageHelp() != nullptr;
}
