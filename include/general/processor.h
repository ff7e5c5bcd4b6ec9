/// @file
/// Identifies the x86 processor through its CPUID instruction: vendor, brand, instruction sets,
/// logical processors, cores and packages, clock frequency.
///
/// The rules are those of Intel's processors; others are identified as far as they answer alike.
/// Answers are found out once and kept for the life of the process. Any thread may ask at any time, but
/// for KuCPUCount, QVSsysconf, which calls it, and KuGet3LevelSubIDStr, whose text it makes: one thread
/// at a time among these three. On a processor without CPUID every test gives its negative answer.

#ifndef GENERAL_PROCESSOR_H
#define GENERAL_PROCESSOR_H

#include "general/api.h"
#include "general/names.h"

/// What KuCPUCount finds.
typedef enum KuCountStatus {
    KU_SINGLE_CORE_HT_ENABLED = 0,
    KU_SINGLE_CORE_HT_DISABLED = 1,
    KU_SINGLE_CORE_NO_HT = 2,
    KU_MULTI_CORE_NO_HT = 3,
    KU_MULTI_CORE_HT_ENABLED = 4,
    KU_MULTI_CORE_HT_DISABLED = 5,
    KU_NOT_COUNTED = 6 ///< the process may not run on every processor of the system
} KuCountStatus;

/// @return 0 when the processor has no CPUID instruction, else its highest standard leaf
GENERAL_API int GENERAL_CALL Kucpuid_supported(void);

/// Copies the vendor's text, for example "GenuineIntel" or "AuthenticAMD".
/// @param vendor  receives 13 bytes, the last of them 0; "no CPUID" when there is none
/// @return 1 when the processor has CPUID, else 0
GENERAL_API int GENERAL_CALL Kucpuid_vendorid(char *vendor);

/// Names the design that the processor's family and model stand for, whatever brand it is sold under: a
/// Celeron of the Pentium III's design is "Intel Pentium III", a Xeon of Haswell's "Intel Haswell".
/// @return for example "AMD Zen 3"; "UNKNOWN CPU" for a model that is not known here, as those are that
///         came after this library. Never null, valid for ever
GENERAL_API const char *GENERAL_CALL Kucpuid_model_name(void);

/// Reads the processor's signature, leaf 1's plain fields of four bits each; the extended family and
/// model are not added.
/// @param family,model,stepping  each null, or receives one field; 0 without CPUID
/// @return 1 when the processor has CPUID, else 0
GENERAL_API int GENERAL_CALL Kucpuid_model(int *family, int *model, int *stepping);

/// Names the processor by the brand index of processors made up to 2003, of which only the low four bits
/// count. Younger ones have no index, and spell their brand out (Kucpuid_get_extended_brand_string);
/// here they give "This processor does not support the brand identification feature" or, if they are of
/// family 6 and their plain model, of four bits, is 9 or above, "Intel(R) Pentium(R) M processor", a
/// Skylake too. That is wrong, and kept for compatibility.
/// @return a text of at most 95 characters, at times an empty one; never null, valid for ever
GENERAL_API const char *GENERAL_CALL Kucpuid_get_brand_string(void);

/// Reads the brand that the processor itself spells out, as it is, with any blanks at its start.
/// @param brand  receives 49 bytes, the last of them 0; an empty text when there is no such brand
/// @return 1 when the processor spells out its brand (leaves 0x80000002 to 0x80000004), else 0
GENERAL_API int GENERAL_CALL Kucpuid_get_extended_brand_string(char *brand);

/// @return 1 when the processor has MMX, else 0
GENERAL_API int GENERAL_CALL KuMMX_supported(void);

/// @return 1 when the processor has SSE and the operating system lets it be used, else 0
GENERAL_API int GENERAL_CALL KuXMMX_supported(void);

/// @return 1 when the processor has SSE2 and the operating system lets it be used, else 0
GENERAL_API int GENERAL_CALL KuSSE2_supported(void);

/// Runs an SSE instruction to see whether the operating system lets SSE be used.
/// @return 1 when it ran, 0 when it raised an exception (which goes no further)
GENERAL_API int GENERAL_CALL KuSIMD_fp_OS_supported(void);

/// @return 1 when the processor is Intel's, of family 15 or with an extended family, and reports
///         Hyper-Threading; else 0
GENERAL_API int GENERAL_CALL KuHT_supported(void);

/// @return the initial APIC identifier (0 to 255) of the processor that runs the caller
GENERAL_API unsigned GENERAL_CALL KuGetAPIC_ID(void);

/// @return logical processors per package as leaf 1 states them; 0 on processors that state none
GENERAL_API unsigned GENERAL_CALL KuLogicalProcPerPhysicalProc(void);

/// @return cores per package as leaf 4 states them, 1 where it states none. A processor counts as
///         Intel's until Kucpuid_get_brand_string has looked at its vendor; any other has 1
GENERAL_API unsigned GENERAL_CALL KuCorePerPhysicalProc(void);

/// Executes CPUID. Registers are four numbers: EAX, EBX, ECX, EDX.
/// @param registers  holds the leaf in [0] and the subleaf in [2]; receives all four registers, or
///                   four zeros when the processor has no CPUID
GENERAL_API void GENERAL_CALL Kucpuid32(unsigned *registers);

/// Counts the system's processors by running on each in turn, which changes the calling thread's
/// affinity to the process's. The first success is kept: later calls give the same answer at once.
/// On a system of more than 32 processors those of the process's mask, 32 at most, are counted, and the
/// calling thread stays on these.
///
/// Some virtual machines state fewer logical processors per package than cores. Then each core has one
/// thread, and packages are as many as the stated logical processors make them: with 1 or 0 of those,
/// every processor counts as a package of its own.
/// @param logical   null, or receives the logical processors; 0 when they could not be counted
/// @param cores     null, or receives the cores; 1 when they could not be counted
/// @param packages  null, or receives the packages; 1 when they could not be counted
/// @return a KuCountStatus
GENERAL_API int GENERAL_CALL KuCPUCount(unsigned *logical, unsigned *cores, unsigned *packages);

/// @return one line per processor that KuCPUCount counted, with its affinity bit, APIC identifier and
///         the identifier's three parts; empty before. Never null
GENERAL_API const char *GENERAL_CALL KuGet3LevelSubIDStr(void);

/// Measures the clock by counting cycles (time-stamp counter) through a busy wait, and rounds the
/// figure to a multiple of a 50 or 66.7 MHz bus clock.
/// @param milliseconds  how long to measure, at least 1; hundreds give a steady figure
/// @return kHz; 0 when milliseconds is 0 or when there is no timer or no time-stamp counter
GENERAL_API uint64_t GENERAL_CALL Kucpuid_frequency(unsigned milliseconds);

#include "general/names.h"

#endif
