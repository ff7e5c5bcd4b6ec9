#include "base/module_id.h"

#include "spline/coord.h"
#include "spline/solver.h"
#include "spline/spline_object.h"

GENERAL_MODULE_ID("$Id$");

using namespace general::spline;

namespace {

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
