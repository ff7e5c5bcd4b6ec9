/// @file
/// The classic parser of single-letter command-line options.
///
///     while ((option = getopt(argc, argv, "n:v")) != -1)
///         switch (option) {
///         case 'n': count = atoi(optarg); break;
///         case 'v': verbose = 1; break;
///         default: return 2; // getopt has said what is wrong
///         }
///     for (; optind < argc; ++optind)
///         use(argv[optind]);
///
/// Letters can be clustered (`-vn3`), and an argument stands behind its letter or in the next element
/// of argv. The options end before the first element that does not begin with `-`, and after one
/// that begins with `--`. There are no long options: a program that has `--help` looks for it first.
///
/// The position is kept for the whole process: parse from one thread. To parse a second argument
/// vector, parse the first one to its end and set optind to 1. A `-` inside an element (`-a-b`) gives
/// -1 before the end of that element: the parser stands in it still, and its next call reads on there.
/// Before such a vector is freed or left for another, have the parser leave it:
///
///     optind = argc;
///     opterr = 0;
///     while (getopt(argc, argv, "-") != -1) {
///     }
///     optind = opterr = 1;
///
/// A program that uses its tool-chain's getopt or getopt_long and wants the rest of general.h defines
/// GENERAL_NO_GETOPT before including it: without this header, the names are the tool-chain's. With both
/// headers they are this library's, whichever comes first; only a program compiled with -mrtd has to
/// include this one first.

#ifndef GENERAL_GETOPT_H
#define GENERAL_GETOPT_H

#include "general/api.h"

#ifndef GENERAL_NO_GETOPT

#ifdef __MINGW32__
// This tool-chain has a parser of the same names. Where its declarations do not stand already, they come
// now, under other names, so that no later <unistd.h> brings them. The macro leaves getopt_long out, as
// in <unistd.h>.
#ifndef __GETOPT_H__
#define getopt general_toolchain_getopt
#define optarg general_toolchain_optarg
#define optind general_toolchain_optind
#define opterr general_toolchain_opterr
#define optopt general_toolchain_optopt
#ifndef __UNISTD_H_SOURCED__
#define __UNISTD_H_SOURCED__ 1
#include <getopt.h>
#undef __UNISTD_H_SOURCED__
#else
#include <getopt.h>
#endif
#undef getopt
#undef optarg
#undef optind
#undef opterr
#undef optopt
#endif
#ifdef __clang__
#pragma clang diagnostic push // where they do stand, these make them the DLL's
#pragma clang diagnostic ignored "-Wdll-attribute-on-redeclaration"
#endif
#endif

#ifndef _WIN32 // the names are the C library's there; see base/host_names.h
#define getopt general_getopt
#define optarg general_optarg
#define optind general_optind
#define opterr general_opterr
#define optopt general_optopt
#endif

// NOLINTBEGIN(readability-redundant-declaration): the tool-chain's header may have declared them

/// The argument of the last option; null after an option that takes none.
GENERAL_API char *optarg;

/// Index in argv of the next element to look at. Starts at 1.
GENERAL_API int optind;

/// Whether errors are printed to the standard error stream. Starts at 1; set it to 0 for silence.
GENERAL_API int opterr;

/// The option character last looked at, set on success and on error.
GENERAL_API int optopt;

/// Parses the next option.
///
/// Three peculiarities are kept for compatibility. A lone `-`, and a `-` inside a cluster, end the
/// options with optind still at that element; after the latter the next call goes on behind the `-`.
/// Every element that begins with `--` ends the options, not only `--` itself. The program's name in
/// messages is what stands in argv[0] after the last `/`; a path with backslashes is printed whole.
///
/// @param argc     elements of argv
/// @param argv     the program's name and its arguments; read until the parser has left it
/// @param options  the option letters; `:` after a letter says that it takes an argument. `:` is
///                 never an option itself and means nothing special at the start
/// @return the option's letter, as a signed character; '?' for a letter that is not in options or
///         that lacks its argument, after a message; -1 when the options are over, or if argv or
///         options is null
GENERAL_API int GENERAL_CALL getopt(int argc, char *const *argv, const char *options);

// NOLINTEND(readability-redundant-declaration)

#if defined(__MINGW32__) && defined(__clang__)
#pragma clang diagnostic pop
#endif

#ifndef _WIN32
#undef getopt
#undef optarg
#undef optind
#undef opterr
#undef optopt
#endif

#endif

#endif
