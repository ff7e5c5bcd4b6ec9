#include "base/crt_stdio.h"

#include "base/module_id.h"
#include "base/string_copy.h"
#include "diag/stack_walk.h"

#include "general/errortext.h"
#include "general/message_log.h"
#include "general/stacktrace.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

GENERAL_MODULE_ID("$Id$");

static_assert(offsetof(QVSTraceEntry, module) == 4 && offsetof(QVSTraceEntry, symbol) == 8);
static_assert(offsetof(QVSTraceEntry, start) == 12 && sizeof(QVSTraceEntry) == 16);

namespace {

constexpr DWORD nameLength = 260;
constexpr DWORD pathSize = 260;
/// The sizes of the record of a module that versions of the image-help library know: the first one's,
/// which later ones still take, and today's.
constexpr DWORD moduleRecordSizes[] = {584, sizeof(IMAGEHLP_MODULE64)};
static_assert(offsetof(IMAGEHLP_MODULE64, LoadedPdbName) == 580); // padded for the 64-bit address in it

enum class Symbols { notLoaded, loaded, failed };
Symbols symbols;

struct SymbolRecord {
    IMAGEHLP_SYMBOL64 head;
    char rest[nameLength]; ///< the name continues here
};

/// Logs a failure with the system's text for the last error.
bool failed(const char *format)
{
    LogPrintf("QVSgetAddrSym", format, GetErrorText(GetLastError()));
    return false;
}

/// The library takes 64-bit addresses, and 32-bit ones as signed.
DWORD64 wide(uint32_t address)
{
    return static_cast<DWORD64>(int64_t{static_cast<int32_t>(address)});
}

bool loadModuleSymbols(const general::ImageHelp &help, HANDLE process, const char *path)
{
    auto base = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(GetModuleHandleA(nullptr)));
    SetLastError(ERROR_SUCCESS);
    DWORD64 loaded = help.SymLoadModule64(process, nullptr, path, nullptr, wide(base), 0);
    return loaded != 0 || GetLastError() == ERROR_SUCCESS; // the program has loaded them itself
}

bool loadSymbols(const general::ImageHelp &help)
{
    HANDLE process = GetCurrentProcess();
    help.SymSetOptions(help.SymGetOptions() | SYMOPT_LOAD_LINES);
    if (help.SymInitialize(process, nullptr, FALSE) == FALSE)
        return failed("ERROR: SymInitialize FAILED with error <%s>");
    char path[pathSize];
    DWORD length = GetModuleFileNameA(nullptr, path, sizeof path);
    if (length == sizeof path)
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
    if (length == 0 || length == sizeof path)
        return failed("ERROR: GetModuleFileName FAILED with error <%s>");
    if (!loadModuleSymbols(help, process, path))
        return failed("ERROR: SymLoadModule FAILED with error <%s>");
    return true;
}

bool findModule(const general::ImageHelp &help, uint32_t address, IMAGEHLP_MODULE64 &module)
{
    for (DWORD size : moduleRecordSizes) {
        module = {};
        module.SizeOfStruct = size;
        if (help.SymGetModuleInfo64(GetCurrentProcess(), wide(address), &module) != FALSE)
            return true;
        if (GetLastError() != ERROR_INVALID_PARAMETER)
            return false;
    }
    return false;
}

char *copyModuleName(const general::ImageHelp &help, uint32_t address)
{
    IMAGEHLP_MODULE64 module;
    if (!findModule(help, address, module)) {
        failed("ERROR: SymGetModuleInfo FAILED with error <%s>");
        return nullptr;
    }
    const char *separator = strrchr(module.ImageName, '\\');
    return general::copyString(separator == nullptr ? module.ImageName : separator + 1);
}

/// "name(file line N)", or the name alone where no line is known or memory for more is exhausted.
char *describe(const general::ImageHelp &help, uint32_t address, const char *name)
{
    constexpr const char *format = "%s(%s line %u)";
    IMAGEHLP_LINE64 line = {};
    line.SizeOfStruct = sizeof line;
    DWORD displacement = 0;
    if (help.SymGetLineFromAddr64(GetCurrentProcess(), wide(address), &displacement, &line) == FALSE)
        return general::copyString(name);
    auto number = static_cast<unsigned>(line.LineNumber);
    size_t size = static_cast<size_t>(_scprintf(format, name, line.FileName, number)) + 1;
    auto *text = static_cast<char *>(malloc(size));
    if (text == nullptr)
        return general::copyString(name);
    snprintf(text, size, format, name, line.FileName, number);
    return text;
}

bool findSymbol(const general::ImageHelp &help, uint32_t address, char **text, uint32_t *start)
{
    SymbolRecord symbol = {};
    symbol.head.SizeOfStruct = sizeof symbol.head;
    symbol.head.MaxNameLength = nameLength;
    DWORD64 displacement = 0;
    if (help.SymGetSymFromAddr64(GetCurrentProcess(), wide(address), &displacement, &symbol.head) == FALSE)
        return failed("ERROR: SymGetSymFromAddr FAILED with error <%s>");
    if (start != nullptr)
        *start = static_cast<uint32_t>(symbol.head.Address);
    if (text == nullptr)
        return true;
    *text = describe(help, address, symbol.head.Name);
    return *text != nullptr;
}

void freeAndClear(char **string)
{
    if (string == nullptr)
        return;
    free(*string);
    *string = nullptr;
}

} // namespace

int QVSgetAddrSym(uint32_t address, char **module, char **symbol, uint32_t *start)
{
    if (module != nullptr)
        *module = nullptr;
    if (symbol != nullptr)
        *symbol = nullptr;
    if (start != nullptr)
        *start = 0;
    if (symbols == Symbols::failed)
        return 1; // success, with nothing found: callers go on without symbols
    const general::ImageHelp *help = general::imageHelp();
    if (symbols == Symbols::notLoaded)
        symbols = help != nullptr && loadSymbols(*help) ? Symbols::loaded : Symbols::failed;
    if (symbols == Symbols::failed)
        return 0;

    bool complete = true;
    if (module != nullptr) {
        *module = copyModuleName(*help, address);
        complete = *module != nullptr;
    }
    return findSymbol(*help, address, symbol, start) && complete;
}

void QVSfreeAddrSym(char **module, char **symbol)
{
    freeAndClear(module);
    freeAndClear(symbol);
}

int QVSgetStackTraceWithSyms(QVSTraceEntry *entries, int max)
{
    CONTEXT here;
    if (!general::captureCaller(here) || entries == nullptr || max <= 0)
        return 0;
    general::StackWalk walk(here);
    uint32_t address = 0;
    if (!walk.next(address)) // this function's own
        return 0;

    int count = 0;
    while (count < max && walk.next(address))
        entries[count++].address = address;
    for (int i = 0; i < count; ++i)
        QVSgetAddrSym(entries[i].address, &entries[i].module, &entries[i].symbol, &entries[i].start);
    memset(entries + count, 0, static_cast<size_t>(max - count) * sizeof *entries);
    return count;
}

void QVSfreeStackTraceWithSyms(QVSTraceEntry *entries, int count)
{
    if (entries == nullptr)
        return;
    for (int i = 0; i < count; ++i)
        QVSfreeAddrSym(&entries[i].module, &entries[i].symbol);
}
