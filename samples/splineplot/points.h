// Points, and reading them from comma-separated rows.

#pragma once

#include <cstdio>
#include <string>
#include <vector>

/// Points of two or three coordinates, point after point.
struct Points {
    int dimension = 0;
    std::vector<double> values;

    int count() const
    {
        return dimension == 0 ? 0 : static_cast<int>(values.size()) / dimension;
    }
};

/// Reads rows "x,y" or "x,y,z", all of one kind. Empty rows and rows that begin with # are skipped.
/// @param name      the stream's name in messages
/// @param problems  receives one line "name:row: what is wrong" for each bad row
Points readPoints(std::FILE *stream, const std::string &name, std::vector<std::string> &problems);
