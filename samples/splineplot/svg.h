// A drawing in SVG: shapes in page coordinates, y downwards.

#pragma once

#include <string>
#include <vector>

struct Spot {
    double x;
    double y;
};

class Svg
{
public:
    Svg(double width, double height) : width_(width), height_(height) {}

    /// @param style  presentation attributes, such as "fill:none;stroke:#888"
    void polyline(const std::vector<Spot> &spots, bool closed, const std::string &style);
    /// Separate lines, each from an even to the following odd spot.
    void segments(const std::vector<Spot> &spots, const std::string &style);
    void dots(const std::vector<Spot> &spots, double radius, const std::string &style);
    void text(Spot spot, const std::string &text, const std::string &style);

    std::string document(const std::string &title) const;

private:
    double width_;
    double height_;
    std::string body_;
};
