/// @file
/// Stack traces: the return addresses of the running call stack, and the module, function, source
/// file and line that an address belongs to.
///
/// Walking and looking up are done by the system's image-help library, which is loaded when first
/// needed. Looking up reads the debug information of the main program: what the system's library
/// reads, or, under Wine, DWARF up to version 4 inside the program as well. Addresses in DLLs are
/// walked through, but not looked up.
///
/// Failures of the look-up are reported through the message log under the name "QVSgetAddrSym".
/// The image-help library is not safe for concurrent use: trace from one thread at a time.

#ifndef GENERAL_STACKTRACE_H
#define GENERAL_STACKTRACE_H

#include "general/api.h"
#include "general/names.h"

/// One frame of a stack trace.
typedef struct QVSTraceEntry {
    uint32_t address; ///< the return address
    char *module;     ///< file name of the module without its path; null if unknown
    char *symbol;     ///< "name(file line N)", or the name alone where no line is known; null if unknown
    uint32_t start;   ///< address of the symbol; 0 if unknown
} QVSTraceEntry;

/// Chooses where traces begin, for the whole process.
/// @param framePointer  a frame address, such as the Ebp of an exception's context; it has to point to
///                      readable memory when a trace is taken. 0 for the caller's own frame, the default
/// @return framePointer
GENERAL_API uint32_t GENERAL_CALL QVSsetFramePointer(uint32_t framePointer);

/// Walks the calling thread's stack.
///
/// The first address lies in the function that calls QVSgetStackTrace, the second in that one's
/// caller, and so on. Where QVSsetFramePointer has chosen a frame, nothing is skipped: the first
/// address lies in the library itself, the second is the return address in the chosen frame.
///
/// The walk follows the chain of frame pointers, and debug information where the process has loaded
/// some. It ends where the chain does; one that runs in a circle is cut by max only.
/// @param addresses  receives at most max addresses, innermost first
/// @param max        0 or less stores nothing
/// @return how many were stored; 0 also if addresses is null, the image-help library is missing or the
///         system does not give the thread's registers
GENERAL_API int GENERAL_CALL QVSgetStackTrace(uint32_t *addresses, int max);

/// Looks an address up. What cannot be found is left null or 0, and logged.
///
/// The first call of the process loads the main program's symbols. When that fails, it is logged and
/// never tried again: this call returns 0, and every later one 1, with nothing found or logged.
/// @param address  anywhere; addresses outside the main program are not found
/// @param module   receives the module's file name without its path. This pointer and the next two may
///                 be null, and what they point to is overwritten, not freed
/// @param symbol   receives "name(file line N)", or the name alone where no line is known
/// @param start    receives the address of the symbol
/// @return 1; 0 if module (when wanted) or symbol could not be found, or if memory is exhausted. The
///         caller frees the strings with QVSfreeAddrSym either way
GENERAL_API int GENERAL_CALL QVSgetAddrSym(uint32_t address, char **module, char **symbol, uint32_t *start);

/// Frees the strings of a look-up and sets them to null. Null pointers are passed over.
/// @param module  what QVSgetAddrSym filled
/// @param symbol  what QVSgetAddrSym filled
GENERAL_API void GENERAL_CALL QVSfreeAddrSym(char **module, char **symbol);

/// Walks the calling thread's stack and looks every address up, beginning in the caller, or with the
/// return address in the frame that QVSsetFramePointer has chosen.
/// @param entries  max entries; those that are not filled are zeroed. Their old contents are not freed
/// @param max      how many entries there are
/// @return how many were filled, which the caller hands to QVSfreeStackTraceWithSyms; 0 if max is not
///         above 0, entries is null, the image-help library is missing or the system does not give the
///         thread's registers
GENERAL_API int GENERAL_CALL QVSgetStackTraceWithSyms(QVSTraceEntry *entries, int max);

/// Frees the strings of a trace and sets them to null.
/// @param entries  null is passed over
/// @param count    what QVSgetStackTraceWithSyms returned
GENERAL_API void GENERAL_CALL QVSfreeStackTraceWithSyms(QVSTraceEntry *entries, int count);

/// Tells whether the image-help library can be used. It is looked for once per process.
/// @return 1 or 0
GENERAL_API int GENERAL_CALL QVScheckDbgHelpDll(void);

#include "general/names.h"

#endif
