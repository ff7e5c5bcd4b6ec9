/// @file
/// The names that this library shares with the C library of a Unix machine. Include it last.
///
/// On Windows they are what they are. In the host build a plain `index` or `getopt` would be the C
/// library's: the compiler knows `index` as a builtin, C++ headers overload it, and a test would
/// pass by testing the wrong function. There the library's own are called general_index and so on,
/// and this header lets modules, tests and fuzz targets write them as on Windows.

#pragma once

#ifndef _WIN32
#define index general_index
#define rindex general_rindex
#define getopt general_getopt
#define optarg general_optarg
#define optind general_optind
#define opterr general_opterr
#define optopt general_optopt
#endif
