// Draws a curve through points, or towards them, as SVG, with marks at equal distances along it.

#include "points.h"
#include "svg.h"

#include "general/spline.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>

namespace {

constexpr const char *usage =
    "Usage: splineplot [option...] [FILE]\n"
    "Reads points from FILE, or from standard input, and draws a curve as SVG. After \"--\" comes no option.\n"
    "A row is x,y or x,y,z; empty rows and rows that begin with # are skipped.\n"
    "\n"
    "Curve:\n"
    "  --kind bspline|cardinal  (default bspline)\n"
    "  --degree N               1, 2 or 3 for bspline; 1 or 3 for cardinal (default 3)\n"
    "  --tension T              of a cardinal spline: 0 round, 1 tight (default 0)\n"
    "  --closed                 the last point is followed by the first\n"
    "  --control                the points are control points; otherwise the curve passes through them\n"
    "  --decimate N             use N of the points\n"
    "  --geographic             the points are degrees of longitude and latitude: x is narrowed to scale\n"
    "  --accuracy A             aim of the measurement, relative, between 0 and 1 (default 0.001)\n"
    "\n"
    "Drawing:\n"
    "  -o, --output FILE        write the SVG there (default: standard output)\n"
    "  --width N                of the picture, in pixels (default 800)\n"
    "  --samples N              points that the curve is drawn through (default 600)\n"
    "  --ticks N                marks at N equal distances along the curve (default 0)\n"
    "  --tangents               unit tangents at the marks\n"
    "  --outline                all the points as a filled outline beneath\n"
    "  --no-points              leave the points out\n"
    "  --no-polygon             leave the control polygon out\n"
    "  --title TEXT\n"
    "  --sheet                  all five kinds and degrees side by side\n"
    "  -h, --help\n"
    "\n"
    "Length, achieved error and intervals of the arc table are printed on standard output, or on\n"
    "standard error if the SVG goes to standard output. Exit status: 0, 1 if something could not be read,\n"
    "drawn or written, 2 for a wrong command line.\n";

constexpr int mostProblemsShown = 10;

struct Options {
    std::map<std::string, std::string> values;
    std::string file = "-";

    bool has(const std::string &name) const { return values.count(name) != 0; }
    std::string text(const std::string &name, const std::string &otherwise) const
    {
        auto found = values.find(name);
        return found == values.end() ? otherwise : found->second;
    }
};

struct UsageError : std::runtime_error {
    using runtime_error::runtime_error;
};

double numberOption(const Options &options, const std::string &name, double otherwise, double least, double most)
{
    if (!options.has(name))
        return otherwise;
    const std::string &text = options.values.at(name);
    char *end = nullptr;
    double number = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(number >= least && number <= most)) {
        char range[80];
        std::snprintf(range, sizeof range, " takes a number from %g to %g, not '", least, most);
        throw UsageError("--" + name + range + text + "'");
    }
    return number;
}

int countOption(const Options &options, const std::string &name, int otherwise, int least, int most)
{
    double number = numberOption(options, name, otherwise, least, most);
    if (number != std::floor(number))
        throw UsageError("--" + name + " takes a whole number");
    return static_cast<int>(number);
}

Options parse(int argc, char **argv)
{
    const std::vector<std::string> flags = {"closed",    "control",    "geographic", "tangents", "outline",
                                            "no-points", "no-polygon", "sheet",      "help"};
    const std::vector<std::string> withValue = {"kind",   "degree", "tension", "decimate", "accuracy",
                                                "output", "width",  "samples", "ticks",    "title"};
    auto contains = [](const std::vector<std::string> &names, const std::string &name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    Options options;
    bool hasFile = false;
    bool readsOptions = true;
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        if (readsOptions && argument == "--") {
            readsOptions = false;
            continue;
        }
        if (!readsOptions || argument == "-" || argument.rfind('-', 0) != 0) {
            if (hasFile)
                throw UsageError("more than one file: " + argument);
            options.file = argument;
            hasFile = true;
            continue;
        }
        if (argument == "-h")
            argument = "--help";
        if (argument == "-o")
            argument = "--output";
        size_t equals = std::min(argument.find('='), argument.size());
        std::string name = argument.rfind("--", 0) == 0 ? argument.substr(2, equals - 2) : "";
        bool hasValue = equals < argument.size();
        if (contains(flags, name) && !hasValue) {
            options.values[name] = "";
        } else if (contains(withValue, name)) {
            if (!hasValue && i + 1 == argc)
                throw UsageError(argument + " needs a value");
            options.values[name] = hasValue ? argument.substr(equals + 1) : argv[++i];
        } else {
            throw UsageError("unknown option " + argument);
        }
    }
    return options;
}

general::SplineType typeOf(const Options &options)
{
    std::string kind = options.text("kind", "bspline");
    if (kind != "bspline" && kind != "cardinal")
        throw UsageError("--kind takes bspline or cardinal, not '" + kind + "'");
    general::SplineType type;
    type.form = options.has("closed") ? SPLINE_CLOSED : SPLINE_OPEN;
    type.kind = kind == "bspline" ? SPLINE_B : SPLINE_CARDINAL;
    type.degree = countOption(options, "degree", 3, 1, 3);
    type.tension = numberOption(options, "tension", 0, -10, 10);
    if (type.kind == SPLINE_CARDINAL && type.degree == 2)
        throw UsageError("a cardinal spline has degree 1 or 3");
    return type;
}

/// @throws std::runtime_error with every bad row
Points load(const std::string &file)
{
    bool isInput = file == "-";
    std::FILE *stream = isInput ? stdin : std::fopen(file.c_str(), "r");
    if (stream == nullptr)
        throw std::runtime_error("cannot read " + file + ": " + std::strerror(errno));
    std::vector<std::string> problems;
    Points points = readPoints(stream, isInput ? "standard input" : file, problems);
    bool failed = std::ferror(stream) != 0;
    if (!isInput)
        std::fclose(stream);
    if (failed)
        throw std::runtime_error("cannot read " + file);
    if (!problems.empty()) {
        std::string message = std::to_string(problems.size()) + " bad rows";
        for (size_t i = 0; i < problems.size() && i < mostProblemsShown; ++i)
            message += "\n  " + problems[i];
        throw std::runtime_error(message);
    }
    if (points.empty())
        throw std::runtime_error("no points in " + (isInput ? "standard input" : file));
    return points;
}

/// Narrows degrees of longitude to the width that they have at the middle latitude.
void scaleDegrees(Points &points)
{
    double lowest = HUGE_VAL;
    double highest = -HUGE_VAL;
    for (const Point &point : points) {
        lowest = std::min(lowest, point.y);
        highest = std::max(highest, point.y);
    }
    double scale = std::cos((lowest + highest) / 2 * std::acos(-1.0) / 180);
    for (Point &point : points)
        point.x *= scale;
}

/// Points on the plane of the drawing; space is shown in an oblique projection.
std::vector<Spot> projected(const Points &points)
{
    std::vector<Spot> spots;
    for (const Point &point : points)
        spots.push_back({point.x + 0.4 * point.z, point.y + 0.4 * point.z});
    return spots;
}

/// Rectangle on the page, and the part of the plane that is shown in it.
class Frame {
public:
    Frame(Spot corner, double width, double height) : corner_(corner), width_(width), height_(height) {}

    void include(const std::vector<Spot> &spots)
    {
        for (const Spot &spot : spots) {
            low_ = {std::min(low_.x, spot.x), std::min(low_.y, spot.y)};
            high_ = {std::max(high_.x, spot.x), std::max(high_.y, spot.y)};
        }
    }

    /// Height over width of what is included.
    double aspect() const
    {
        double width = high_.x - low_.x;
        double height = high_.y - low_.y;
        return width > 0 && height > 0 ? height / width : 0.5;
    }

    double scale() const
    {
        double x = high_.x > low_.x ? width_ / (high_.x - low_.x) : HUGE_VAL;
        double y = high_.y > low_.y ? height_ / (high_.y - low_.y) : HUGE_VAL;
        return std::isfinite(std::min(x, y)) ? std::min(x, y) : 1;
    }

    Spot onPage(Spot spot) const
    {
        Spot middle{(low_.x + high_.x) / 2, (low_.y + high_.y) / 2};
        return {corner_.x + width_ / 2 + (spot.x - middle.x) * scale(),
                corner_.y + height_ / 2 - (spot.y - middle.y) * scale()};
    }

    std::vector<Spot> onPage(std::vector<Spot> spots) const
    {
        for (Spot &spot : spots)
            spot = onPage(spot);
        return spots;
    }

    void setHeight(double height) { height_ = height; }

private:
    Spot corner_;
    double width_;
    double height_;
    Spot low_{HUGE_VAL, HUGE_VAL};
    Spot high_{-HUGE_VAL, -HUGE_VAL};
};

constexpr const char *outlineStyle = "fill:#e8e4d8;stroke:#b9b29c;stroke-width:.8;stroke-linejoin:round";
constexpr const char *polygonStyle = "fill:none;stroke:#999;stroke-width:1;stroke-dasharray:5 3";
constexpr const char *curveStyle =
    "fill:none;stroke:#0b5394;stroke-width:2.2;stroke-linejoin:round;stroke-linecap:round";
constexpr const char *pointStyle = "fill:#fff;stroke:#c0392b;stroke-width:1.4";
constexpr const char *tickStyle = "fill:none;stroke:#0b5394;stroke-width:1.2";
constexpr const char *tangentStyle = "fill:none;stroke:#27824a;stroke-width:1.5;stroke-linecap:round";
constexpr const char *titleStyle = "font-size:15px;fill:#222";
constexpr const char *noteStyle = "font-size:12px;fill:#555";
constexpr double tickLength = 9;
constexpr double tangentLength = 26;
constexpr double pointRadius = 3;

struct Measures {
    double error;
    int intervals;
    float length;
};

/// One curve and what is shown with it.
struct Picture {
    Points all;
    Points used;
    Points curve;
    Points polygon;
    Points marks;
    Points tangents;
    Measures measures{};
    bool closed = false;
};

/// Chooses as many intervals as the accuracy takes, then measures.
Measures measure(general::Spline<Point> &curve, double accuracy)
{
    constexpr int mostRounds = 8; // 16384 intervals
    using Result = general::Spline<Point>::Result;
    Measures measures{};
    general::check(Result(Spline1CalcAcc(curve.get(), mostRounds, accuracy, &measures.error, &measures.intervals)));
    general::check(curve.setAccuracy(accuracy, measures.intervals));
    general::check(Result(Spline1GetAcc(curve.get(), &measures.error, &measures.intervals)));
    measures.length = general::check(curve.length());
    return measures;
}

Picture makePicture(const Options &options, const general::SplineType &type, const Points &points)
{
    Picture picture;
    auto curve = general::check(general::Spline<Point>());
    general::check(curve.setType(type));
    auto count = static_cast<int>(points.size());
    int wanted = countOption(options, "decimate", count, 1, count);
    picture.closed = type.form == SPLINE_CLOSED;
    picture.all = points;
    picture.used = wanted < count ? general::check(curve.decimated(points, static_cast<size_t>(wanted))) : points;
    general::check(options.has("control") ? curve.control(picture.used) : curve.fit(picture.used));
    picture.measures = measure(curve, numberOption(options, "accuracy", 0.001, 1e-6, 0.999));
    picture.polygon = general::check(curve.controlPoints());
    // A polygon is its own best drawing; everything else looks best in steps of one length.
    auto samples = static_cast<size_t>(countOption(options, "samples", 600, 2, 1000000));
    picture.curve = type.degree == 1 ? picture.polygon
                                     : general::check(curve.points(general::check(curve.equalDistances(samples))));
    if (int ticks = countOption(options, "ticks", 0, 0, 100000); ticks > 0) {
        auto params = general::check(curve.equalDistances(static_cast<size_t>(ticks)));
        picture.marks = general::check(curve.points(params));
        picture.tangents = general::check(curve.tangents(params));
    }
    return picture;
}

void include(Frame &frame, const Options &options, const Picture &picture)
{
    frame.include(projected(picture.curve));
    if (options.has("outline"))
        frame.include(projected(picture.all));
    if (!options.has("no-points"))
        frame.include(projected(picture.used));
    if (!options.has("no-polygon"))
        frame.include(projected(picture.polygon));
}

/// Directions of the tangents on the page, of length 1.
std::vector<Spot> directionsOnPage(const Picture &picture)
{
    std::vector<Spot> directions = projected(picture.tangents);
    for (Spot &direction : directions) {
        double length = std::hypot(direction.x, direction.y);
        direction = length > 0 ? Spot{direction.x / length, -direction.y / length} : Spot{0, 0};
    }
    return directions;
}

void drawMarks(Svg &svg, const Frame &frame, const Options &options, const Picture &picture)
{
    std::vector<Spot> marks = frame.onPage(projected(picture.marks));
    std::vector<Spot> directions = directionsOnPage(picture);
    std::vector<Spot> ticks;
    std::vector<Spot> arrows;
    for (size_t i = 0; i < marks.size(); ++i) {
        Spot at = marks[i];
        Spot along = directions[i];
        Spot across{-along.y * tickLength / 2, along.x * tickLength / 2};
        Spot tip{at.x + along.x * tangentLength, at.y + along.y * tangentLength};
        ticks.insert(ticks.end(), {{at.x - across.x, at.y - across.y}, {at.x + across.x, at.y + across.y}});
        for (int side : {-1, 1}) {
            Spot barb{tip.x - 5 * along.x + side * 3 * along.y, tip.y - 5 * along.y - side * 3 * along.x};
            arrows.insert(arrows.end(), {tip, barb});
        }
        arrows.insert(arrows.end(), {at, tip});
    }
    svg.segments(ticks, tickStyle);
    if (options.has("tangents"))
        svg.segments(arrows, tangentStyle);
}

void draw(Svg &svg, const Frame &frame, const Options &options, const Picture &picture)
{
    if (options.has("outline"))
        svg.polyline(frame.onPage(projected(picture.all)), true, outlineStyle);
    if (!options.has("no-polygon"))
        svg.polyline(frame.onPage(projected(picture.polygon)), picture.closed, polygonStyle);
    svg.polyline(frame.onPage(projected(picture.curve)), picture.closed, curveStyle);
    if (!picture.marks.empty())
        drawMarks(svg, frame, options, picture);
    if (!options.has("no-points"))
        svg.dots(frame.onPage(projected(picture.used)), pointRadius, pointStyle);
}

std::string summary(const Picture &picture)
{
    char text[160];
    std::snprintf(text, sizeof text, "length %.6g, achieved error %.2g, %d intervals",
                  static_cast<double>(picture.measures.length), picture.measures.error, picture.measures.intervals);
    return text;
}

std::string nameOf(const general::SplineType &type)
{
    std::string name = type.kind == SPLINE_B ? "B-spline" : "cardinal spline";
    return name + " of degree " + std::to_string(type.degree);
}

constexpr double margin = 24;
constexpr double lineHeight = 20;

/// @param report  receives a line for the terminal
std::string drawOne(const Options &options, const Points &points, std::string &report)
{
    general::SplineType type = typeOf(options);
    Picture picture = makePicture(options, type, points);
    double width = countOption(options, "width", 800, 100, 10000);
    double inner = width - 2 * margin;
    std::string title = options.text("title", nameOf(type));
    Frame frame({margin, margin + lineHeight}, inner, 0);
    include(frame, options, picture);
    double height = std::min(std::max(inner * frame.aspect(), inner / 4), inner * 1.5);
    frame.setHeight(height);

    Svg svg(width, height + 2 * margin + 2.5 * lineHeight);
    svg.text({margin, margin}, title, titleStyle);
    draw(svg, frame, options, picture);
    std::string note = std::to_string(picture.used.size()) + " of " + std::to_string(picture.all.size()) + " points, " +
                       summary(picture);
    svg.text({margin, height + 2 * margin + 1.8 * lineHeight}, note, noteStyle);
    report = title + ": " + note + "\n";
    return svg.document(title);
}

/// The five kinds and degrees on the same points, three in a row, and a legend in the sixth place.
std::string drawSheet(const Options &options, const Points &points, std::string &report)
{
    constexpr int columns = 3;
    constexpr double gap = 28;
    const general::SplineType types[] = {{.kind = SPLINE_B, .degree = 1},
                                         {.kind = SPLINE_B, .degree = 2},
                                         {.kind = SPLINE_B, .degree = 3},
                                         {.kind = SPLINE_CARDINAL, .degree = 1},
                                         {.kind = SPLINE_CARDINAL, .degree = 3}};
    double width = countOption(options, "width", 900, 300, 10000);
    double cell = (width - 2 * margin - (columns - 1) * gap) / columns;
    std::vector<Picture> pictures;
    Frame shape({0, 0}, 1, 1);
    for (general::SplineType type : types) {
        type.form = typeOf(options).form;
        type.tension = typeOf(options).tension;
        pictures.push_back(makePicture(options, type, points));
        include(shape, options, pictures.back());
    }
    double cellHeight = cell * std::min(std::max(shape.aspect(), 0.3), 1.2);
    double rowHeight = cellHeight + 4.2 * lineHeight;
    Svg svg(width, 2 * rowHeight + margin - lineHeight);
    for (size_t i = 0; i < pictures.size(); ++i) {
        size_t row = i / columns;
        Spot corner{margin + static_cast<double>(i % columns) * (cell + gap),
                    margin + static_cast<double>(row) * rowHeight};
        Frame frame({corner.x, corner.y + lineHeight}, cell, cellHeight);
        for (const Picture &picture : pictures)
            include(frame, options, picture);
        char length[64];
        std::snprintf(length, sizeof length, "length %.4g", static_cast<double>(pictures[i].measures.length));
        svg.text({corner.x, corner.y}, nameOf(types[i]), titleStyle);
        draw(svg, frame, options, pictures[i]);
        svg.text({corner.x, corner.y + cellHeight + 2.1 * lineHeight}, length, noteStyle);
        report += nameOf(types[i]) + ": " + summary(pictures[i]) + "\n";
    }

    double left = margin + 2 * (cell + gap) + 20;
    double top = margin + rowHeight + lineHeight;
    auto legend = [&](int line, const char *label, auto sign) {
        double y = top + line * 1.5 * lineHeight;
        sign(y);
        svg.text({left + 50, y + 4}, label, noteStyle);
    };
    auto stroke = [&](const char *style) {
        return [&svg, left, style](double y) { svg.polyline({{left, y}, {left + 36, y}}, false, style); };
    };
    legend(0, "curve", stroke(curveStyle));
    legend(1, "control polygon", stroke(polygonStyle));
    legend(2, options.has("control") ? "control points" : "data points",
           [&](double y) { svg.dots({{left + 18, y}}, pointRadius, pointStyle); });
    if (options.has("ticks"))
        legend(3, "equal distances along the curve", [&](double y) {
            svg.segments({{left + 18, y - tickLength / 2}, {left + 18, y + tickLength / 2}}, tickStyle);
        });
    return svg.document(options.text("title", "Kinds and degrees of curves"));
}

void write(const std::string &file, const std::string &text)
{
    bool isOutput = file == "-";
    std::FILE *stream = isOutput ? stdout : std::fopen(file.c_str(), "wb");
    bool written = stream != nullptr && std::fwrite(text.data(), 1, text.size(), stream) == text.size();
    if (stream != nullptr && !isOutput)
        written = std::fclose(stream) == 0 && written;
    if (!written)
        throw std::runtime_error("cannot write " + (isOutput ? "standard output" : file) + ": " + std::strerror(errno));
}

void run(const Options &options)
{
    typeOf(options); // a wrong command line comes before a wrong file
    Points points = load(options.file);
    if (options.has("geographic"))
        scaleDegrees(points);
    std::string report;
    std::string picture = options.has("sheet") ? drawSheet(options, points, report) : drawOne(options, points, report);
    std::string output = options.text("output", "-");
    write(output, picture);
    std::fputs(report.c_str(), output == "-" ? stderr : stdout);
}

} // namespace

int main(int argc, char **argv)
{
    try {
        Options options = parse(argc, argv);
        if (options.has("help")) {
            std::fputs(usage, stdout);
            return 0;
        }
        run(options);
        return 0;
    } catch (const UsageError &error) {
        std::fprintf(stderr, "splineplot: %s\nsplineplot --help lists the options.\n", error.what());
        return 2;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "splineplot: %s\n", error.what());
        return 1;
    }
}
