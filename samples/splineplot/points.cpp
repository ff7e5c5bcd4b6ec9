#include "points.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

/// Reads one line without its end, of any length.
/// @return false at the end of the stream
bool readLine(std::FILE *stream, std::string &line)
{
    line.clear();
    for (int c = std::getc(stream); c != EOF; c = std::getc(stream)) {
        if (c == '\n')
            return true;
        line += static_cast<char>(c);
    }
    return !line.empty();
}

const char *skipBlanks(const char *text)
{
    return text + std::strspn(text, " \t\r");
}

/// Reads the numbers of a row.
/// @return what is wrong with it; empty if nothing is
std::string readNumbers(const char *text, std::vector<double> &numbers)
{
    for (;;) {
        char *end = nullptr;
        double number = std::strtod(text, &end);
        if (end == text)
            return numbers.empty() ? "a number is expected" : "a number is expected after the comma";
        if (!std::isfinite(number))
            return "the number is out of range";
        numbers.push_back(number);
        text = skipBlanks(end);
        if (*text == '\0')
            return numbers.size() == 2 || numbers.size() == 3 ? "" : "x,y or x,y,z is expected";
        if (*text != ',')
            return std::string("'") + *text + "' where a comma is expected";
        ++text;
    }
}

} // namespace

Points readPoints(std::FILE *stream, const std::string &name, std::vector<std::string> &problems)
{
    Points points;
    size_t dimension = 0;
    std::string line;
    for (int row = 1; readLine(stream, line); ++row) {
        const char *text = skipBlanks(line.c_str());
        if (*text == '\0' || *text == '#')
            continue;
        std::vector<double> numbers;
        std::string problem = readNumbers(text, numbers);
        if (problem.empty() && dimension != 0 && dimension != numbers.size())
            problem = "this row has " + std::to_string(numbers.size()) + " coordinates, those before have " +
                      std::to_string(dimension);
        if (!problem.empty()) {
            std::string place = name + ":" + std::to_string(row) + ": ";
            problems.push_back(place.append(problem));
            continue;
        }
        dimension = numbers.size();
        points.push_back({numbers[0], numbers[1], dimension == 3 ? numbers[2] : 0});
    }
    return points;
}
