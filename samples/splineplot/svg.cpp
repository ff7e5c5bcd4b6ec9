#include "svg.h"

#include <cmath>
#include <cstdio>

namespace
{

/// A coordinate with one digit after the point, or none if that is 0.
std::string number(double value)
{
    char text[32];
    double rounded = std::round(value * 10) / 10;
    std::snprintf(text, sizeof text, rounded == std::floor(rounded) ? "%.0f" : "%.1f", rounded);
    return text;
}

std::string position(Spot spot)
{
    return number(spot.x) + "," + number(spot.y);
}

std::string escaped(const std::string &text)
{
    std::string result;
    for (char c : text) {
        if (c == '&')
            result += "&amp;";
        else if (c == '<')
            result += "&lt;";
        else if (c == '"')
            result += "&quot;";
        else
            result += c;
    }
    return result;
}

} // namespace

void Svg::polyline(const std::vector<Spot> &spots, bool closed, const std::string &style)
{
    body_ += "<path style=\"" + style + "\" d=\"M";
    for (const Spot &spot : spots)
        body_ += position(spot) + " ";
    body_.back() = closed ? 'Z' : ' ';
    body_ += "\"/>\n";
}

void Svg::segments(const std::vector<Spot> &spots, const std::string &style)
{
    body_ += "<path style=\"" + style + "\" d=\"";
    for (size_t i = 0; i + 1 < spots.size(); i += 2)
        body_ += "M" + position(spots[i]) + " " + position(spots[i + 1]);
    body_ += "\"/>\n";
}

void Svg::dots(const std::vector<Spot> &spots, double radius, const std::string &style)
{
    body_ += "<g style=\"" + style + "\">";
    for (const Spot &spot : spots)
        body_ += "<circle cx=\"" + number(spot.x) + "\" cy=\"" + number(spot.y) + "\" r=\"" + number(radius) + "\"/>";
    body_ += "</g>\n";
}

void Svg::text(Spot spot, const std::string &text, const std::string &style)
{
    body_ += "<text x=\"" + number(spot.x) + "\" y=\"" + number(spot.y) + "\" style=\"" + style + "\">" +
             escaped(text) + "</text>\n";
}

std::string Svg::document(const std::string &title) const
{
    std::string size = number(width_) + " " + number(height_);
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + number(width_) + "\" height=\"" + number(height_) +
           "\" viewBox=\"0 0 " + size + "\" font-family=\"sans-serif\">\n<title>" + escaped(title) +
           "</title>\n<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n" + body_ + "</svg>\n";
}
