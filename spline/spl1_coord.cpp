#include "base/module_id.h"

#include "spline/coord.h"

GENERAL_MODULE_ID("$Id$");

using namespace general::spline;

namespace general::spline {

void narrowRecords(const SplineCoord *records, int32_t count, int32_t dimension, float *points)
{
    for (int32_t i = 0; i < count; ++i) {
        const double components[largestDimension] = {records[i].x, records[i].y, records[i].z};
        for (int32_t c = 0; c < dimension && c < largestDimension; ++c)
            *points++ = static_cast<float>(components[c]);
    }
}

void narrowValues(const double *values, int32_t count, int32_t dimension, float *points)
{
    size_t numbers = static_cast<size_t>(count) * static_cast<size_t>(dimension);
    for (size_t i = 0; i < numbers; ++i)
        points[i] = static_cast<float>(values[i]);
}

void widenToRecord(const float *point, int32_t dimension, int32_t space, SplineCoord &record)
{
    double *const components[largestDimension] = {&record.x, &record.y, &record.z};
    for (int32_t c = 0; c < dimension && c < largestDimension; ++c)
        *components[c] = point[c];
    record.space = space;
}

float *upperHalf(double *values, size_t floats)
{
    return reinterpret_cast<float *>(values) + floats;
}

void widenInPlace(double *values, size_t floats)
{
    // The same bytes are read as floats and written as doubles.
    using NarrowNumber [[gnu::may_alias]] = float;
    using WideNumber [[gnu::may_alias]] = double;
    const NarrowNumber *from = upperHalf(values, floats);
    WideNumber *to = values;
    for (size_t i = 0; i < floats; ++i)
        to[i] = static_cast<double>(from[i]);
}

} // namespace general::spline

namespace {

uint32_t checkRead(const Spline1 *spline, int32_t count, const void *output)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    bool complete = count >= 1 && output != nullptr && spline->defined == 1 && hasPoints(spline);
    return complete ? SPLINE_OK : SPLINE_BAD_ARG;
}

/// The control points that a caller reads back.
class Selection {
public:
    Selection(const Spline1 *spline, int32_t count, const int32_t *indices)
        : spline_(spline), count_(count), indices_(indices)
    {
    }

    /// Without indices, only equal steps that reach the last point can be taken.
    bool isPossible() const
    {
        int32_t points = spline_->pointCount;
        if (indices_ != nullptr)
            return true;
        if (count_ == 1)
            return points == 1;
        return count_ <= points && (points - 1) % (count_ - 1) == 0;
    }

    const float *point(int32_t i) const
    {
        return spline_->points + static_cast<size_t>(number(i)) * static_cast<size_t>(spline_->dimension);
    }

private:
    int32_t number(int32_t i) const
    {
        int32_t last = spline_->pointCount - 1;
        if (indices_ == nullptr)
            return count_ == 1 ? 0 : i * (last / (count_ - 1));
        if (indices_[i] < 0)
            return 0;
        return indices_[i] < last ? indices_[i] : last;
    }

    const Spline1 *spline_;
    int32_t count_;
    const int32_t *indices_;
};

} // namespace

uint32_t Spline1CCtl(const Spline1 *spline, int32_t count, const int32_t *indices, SplineCoord *records)
{
    uint32_t result = checkRead(spline, count, records);
    if (result != SPLINE_OK)
        return result;
    Selection selection(spline, count, indices);
    if (spline->spaceSet != 1 || !selection.isPossible())
        return SPLINE_BAD_ARG;

    for (int32_t i = 0; i < count; ++i)
        widenToRecord(selection.point(i), spline->dimension, spline->space, records[i]);
    return SPLINE_OK;
}

uint32_t Spline1DCtl(const Spline1 *spline, int32_t count, const int32_t *indices, double *values)
{
    uint32_t result = checkRead(spline, count, values);
    if (result != SPLINE_OK)
        return result;
    Selection selection(spline, count, indices);
    if (!selection.isPossible())
        return SPLINE_BAD_ARG;

    for (int32_t i = 0; i < count; ++i) {
        const float *point = selection.point(i);
        for (int32_t c = 0; c < spline->dimension; ++c)
            *values++ = static_cast<double>(point[c]);
    }
    return SPLINE_OK;
}
