// Points in time: as log lines carry them, and as --since takes them.

#pragma once

#include <ctime>
#include <optional>
#include <string>

/// Reads the time at the start of a log line, such as "Nov 21 16:10:05". Lines carry no year: it is
/// the one that puts the line nearest before now, a day of difference between clocks allowed for.
std::optional<std::time_t> timeOfLine(const std::string &line, std::time_t now);

/// Reads what --since takes: "90s", "10m", "2h" or "3d" ago, "16:10" or "16:10:05" today,
/// "2026-11-21" or "2026-11-21 16:10[:05]".
std::optional<std::time_t> parseSince(const std::string &text, std::time_t now);
