/// @file
/// Rows of contenders. Each row times the library and its peers at one task in one run;
/// bench/ratios.py turns the rows into a table with a ratio per row.

#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace bench {

/// Adds one contender to a row.
/// @param row        what is done, e.g. "find, integer keys, 1000 entries"
/// @param contender  who does it: "general" for the library, else the peer's name; "limit: ..." is no
///                   peer but a bound that is shown beside them
/// @param work       the benchmark; every contender of a row does the same work per iteration
/// @param aim        given with "general": the ratio peer time / our time that is aimed at, 0 for none; given
///                   with a limit: the share of its speed that is aimed at
benchmark::internal::Benchmark *contend(const std::string &row, const std::string &contender,
                                        std::function<void(benchmark::State &)> work, double aim = 0);

} // namespace bench
