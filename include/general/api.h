/// @file
/// What every header of the interface leans on: linkage, calling convention, fixed-width types.
///
/// The interface is plain C: undecorated names, the calling convention `__cdecl` whatever the compiler's
/// default is. A callback is a function of that convention too; where the compiler has been told to use
/// another one (`-mrtd`, `/Gz`), write `static int GENERAL_CALL compare(...)`.
/// Define `GENERAL_STATIC` to use the library as a static archive instead of a DLL.

#ifndef GENERAL_API_H
#define GENERAL_API_H

#include <stdint.h>

/// @cond
#if !defined(_WIN32) || defined(GENERAL_STATIC)
#define GENERAL_IMPORT_EXPORT
#elif defined(GENERAL_BUILDING_DLL)
#define GENERAL_IMPORT_EXPORT __declspec(dllexport)
#else
#define GENERAL_IMPORT_EXPORT __declspec(dllimport)
#endif

// Stands before the name of every function and callback type.
#ifdef _WIN32
#define GENERAL_CALL __cdecl
#else
#define GENERAL_CALL
#endif

#ifdef __cplusplus
#define GENERAL_API extern "C" GENERAL_IMPORT_EXPORT
#else
#define GENERAL_API extern GENERAL_IMPORT_EXPORT
#endif

// The name that a type of the interface has: names.h tells when it is the longer one.
#ifdef GENERAL_NO_GLOBAL_NAMES
#define GENERAL_TYPE(name) general_##name
#else
#define GENERAL_TYPE(name) name
#endif

// Lets the compiler check the arguments of a function in the manner of printf.
#ifdef __GNUC__
#define GENERAL_PRINTF_LIKE(format, first) __attribute__((__format__(__printf__, format, first)))
#else
#define GENERAL_PRINTF_LIKE(format, first)
#endif
/// @endcond

#endif
