#include "base/module_id.h"

#include "spline/coord.h"
#include "spline/evaluator.h"
#include "spline/spline_object.h"

GENERAL_MODULE_ID("$Id$");

using namespace general::spline;

namespace
{

uint32_t checkCall(const Spline1 *spline, int32_t count, const void *output)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    if (count < 1 || output == nullptr)
        return SPLINE_BAD_ARG;
    return hasUsableType(spline) && hasPoints(spline) ? SPLINE_OK : SPLINE_BAD_ARG;
}

enum class Wanted { points, tangents };

/// Floats that the tangents of a curve need beside their results.
int32_t workingFloats(const Spline1 *spline, Wanted wanted)
{
    return wanted == Wanted::tangents && spline->degree > 1 ? 2 * spline->dimension : 0;
}

void evaluate(const Spline1 *spline, Wanted wanted, int32_t count, const float *params, float *results, float *working)
{
    if (wanted == Wanted::points)
        evaluatePoints(spline, count, params, results);
    else
        evaluateTangents(spline, count, params, results, working);
}

uint32_t evaluateToRecords(Spline1 *spline, Wanted wanted, int32_t count, const float *params, SplineCoord *records)
{
    uint32_t result = checkCall(spline, count, records);
    if (result != SPLINE_OK)
        return result;
    if (spline->spaceSet != 1)
        return SPLINE_BAD_ARG;
    int32_t working = workingFloats(spline, wanted);
    int32_t results = 0;
    if (!floatsNeeded(count, spline->dimension, results) || results > INT32_MAX - working ||
        !growFloats(spline->scratch, spline->scratchCapacity, working + results))
        return SPLINE_NO_MEMORY;

    float *point = spline->scratch + working;
    evaluate(spline, wanted, count, params, point, spline->scratch);
    for (int32_t i = 0; i < count; ++i, point += spline->dimension)
        widenToRecord(point, spline->dimension, spline->space, records[i]);
    return SPLINE_OK;
}

/// The results wait as floats in the upper half of the caller's own array, and are widened there.
uint32_t evaluateToValues(Spline1 *spline, Wanted wanted, int32_t count, const float *params, double *values)
{
    uint32_t result = checkCall(spline, count, values);
    if (result != SPLINE_OK)
        return result;
    int32_t results = 0;
    if (!floatsNeeded(count, spline->dimension, results) ||
        !growFloats(spline->scratch, spline->scratchCapacity, workingFloats(spline, wanted)))
        return SPLINE_NO_MEMORY;

    auto floats = static_cast<size_t>(results);
    evaluate(spline, wanted, count, params, upperHalf(values, floats), spline->scratch);
    widenInPlace(values, floats);
    return SPLINE_OK;
}

} // namespace

uint32_t Spline1CPoint(Spline1 *spline, int32_t count, const float *params, SplineCoord *records)
{
    return evaluateToRecords(spline, Wanted::points, count, params, records);
}

uint32_t Spline1DPoint(Spline1 *spline, int32_t count, const float *params, double *values)
{
    return evaluateToValues(spline, Wanted::points, count, params, values);
}

uint32_t Spline1CTangent(Spline1 *spline, int32_t count, const float *params, SplineCoord *records)
{
    return evaluateToRecords(spline, Wanted::tangents, count, params, records);
}

uint32_t Spline1DTangent(Spline1 *spline, int32_t count, const float *params, double *values)
{
    return evaluateToValues(spline, Wanted::tangents, count, params, values);
}
