// Points of the plane or of space, and reading them from comma-separated rows.

#pragma once

#include <cstdio>
#include <string>
#include <vector>

struct Point {
    double x, y, z;
};
using Points = std::vector<Point>;

/// Reads rows "x,y" or "x,y,z", all of one kind; without z it is 0. Empty rows and rows that begin with # are skipped.
/// @param name      the stream's name in messages
/// @param problems  receives one line "name:row: what is wrong" for each bad row
Points readPoints(std::FILE *stream, const std::string &name, std::vector<std::string> &problems);
