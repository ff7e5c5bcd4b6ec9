// A spline of the library, owned, with its failures as exceptions.

#pragma once

#include "points.h"

#include "general/spline.h"

#include <memory>
#include <string>
#include <vector>

struct CurveType {
    int form = SPLINE_OPEN;
    int kind = SPLINE_B;
    int degree = 3;
    double tension = 0;
};

struct Measures {
    double length;
    double error;
    int intervals;
};

class Curve
{
public:
    /// @throws std::runtime_error for a type that does not exist, and when memory is exhausted
    Curve(const CurveType &type, int dimension);

    /// A subset of count points.
    Points decimated(const Points &points, int count) const;

    /// Loads points to pass through, or control points.
    void load(const Points &points, bool asControlPoints);

    /// Chooses the accuracy of the arc table and as many intervals as it takes, then measures.
    Measures measure(double accuracy);

    Points controlPoints() const;

    /// Parameters of count points at equal distances along the curve.
    std::vector<float> equalDistances(int count);

    Points at(const std::vector<float> &params);
    Points tangentsAt(const std::vector<float> &params);

    /// Enough points to draw the curve by straight lines.
    Points drawn(int count);

    bool isClosed() const
    {
        return type_.form == SPLINE_CLOSED;
    }

private:
    struct Destroy {
        void operator()(Spline1 *spline) const
        {
            Spline1Destroy(spline);
        }
    };

    CurveType type_;
    int dimension_;
    std::unique_ptr<Spline1, Destroy> spline_;
};
