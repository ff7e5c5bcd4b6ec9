#include "base/module_id.h"

#include "spline/coord.h"
#include "spline/solver.h"
#include "spline/spline_object.h"

GENERAL_MODULE_ID("$Id$");

using namespace general::spline;

namespace
{

/// Checks a load and makes room for the points. On success the object counts them as held.
uint32_t prepareLoad(Spline1 *spline, int32_t count, const void *data)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    if (count < 1 || data == nullptr || !hasUsableType(spline))
        return SPLINE_BAD_ARG;

    discardMeasurements(spline);
    spline->pointCount = 0;
    int32_t floats = 0;
    if (!floatsNeeded(count, spline->dimension, floats) || !growFloats(spline->points, spline->pointCapacity, floats))
        return SPLINE_NO_MEMORY;
    spline->pointCount = count;
    return SPLINE_OK;
}

uint32_t loadRecords(Spline1 *spline, int32_t count, const SplineCoord *records)
{
    uint32_t result = prepareLoad(spline, count, records);
    if (result != SPLINE_OK)
        return result;
    narrowRecords(records, count, spline->dimension, spline->points);
    spline->spaceSet = 1;
    spline->space = records[0].space;
    return SPLINE_OK;
}

uint32_t loadValues(Spline1 *spline, int32_t count, const double *values)
{
    uint32_t result = prepareLoad(spline, count, values);
    if (result != SPLINE_OK)
        return result;
    narrowValues(values, count, spline->dimension, spline->points);
    spline->spaceSet = 0;
    spline->space = 0;
    return SPLINE_OK;
}

/// Makes the curve pass through the points that were loaded.
uint32_t fitLoadedPoints(Spline1 *spline)
{
    if (!needsSolving(spline))
        return SPLINE_OK;
    int32_t floats = 0;
    if (!solverFloats(spline, floats) || !growFloats(spline->scratch, spline->scratchCapacity, floats))
        return SPLINE_NO_MEMORY;
    solveForControlPoints(spline, spline->scratch);
    return SPLINE_OK;
}

uint32_t checkRead(const Spline1 *spline, int32_t count, const void *output)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    bool complete = count >= 1 && output != nullptr && spline->defined == 1 && hasPoints(spline);
    return complete ? SPLINE_OK : SPLINE_BAD_ARG;
}

/// The control points that a caller reads back.
class Selection
{
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

uint32_t Spline1FitCCtl(Spline1 *spline, int32_t count, const SplineCoord *records)
{
    return loadRecords(spline, count, records);
}

uint32_t Spline1FitDCtl(Spline1 *spline, int32_t count, const double *values)
{
    return loadValues(spline, count, values);
}

uint32_t Spline1FitCPoints(Spline1 *spline, int32_t count, const SplineCoord *records)
{
    uint32_t result = loadRecords(spline, count, records);
    return result == SPLINE_OK ? fitLoadedPoints(spline) : result;
}

uint32_t Spline1FitDPoints(Spline1 *spline, int32_t count, const double *values)
{
    uint32_t result = loadValues(spline, count, values);
    return result == SPLINE_OK ? fitLoadedPoints(spline) : result;
}

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
