#include "base/module_id.h"

#include "spline/spline_object.h"

#include <stdlib.h>

GENERAL_MODULE_ID("$Id$");

namespace general::spline
{

bool floatsNeeded(int32_t count, int32_t perItem, int32_t &floats)
{
    constexpr int64_t most = INT32_MAX / static_cast<int32_t>(sizeof(float));
    int64_t product = 0;
    if (count < 0 || perItem < 0 || __builtin_mul_overflow(int64_t{count}, int64_t{perItem}, &product) ||
        product > most)
        return false;
    floats = static_cast<int32_t>(product);
    return true;
}

bool arcTableSize(int32_t intervals, int32_t &floats)
{
    int32_t perInterval = 0;
    if (intervals < 1 || !floatsNeeded(intervals, 5, perInterval))
        return false;
    floats = perInterval + 3;
    return true;
}

bool growFloats(float *&buffer, int32_t &capacity, int32_t needed)
{
    if (needed <= capacity)
        return true;
    free(buffer);
    capacity = 0;
    buffer = static_cast<float *>(malloc(static_cast<size_t>(needed) * sizeof(float)));
    if (buffer == nullptr)
        return false;
    capacity = needed;
    return true;
}

bool growArcTable(Spline1 *spline)
{
    int32_t floats = 0;
    if (!arcTableSize(spline->intervals, floats))
        return false;
    if (!growFloats(spline->table, spline->tableCapacity, floats)) {
        spline->tableValid = 0;
        spline->parameterSamples = nullptr;
        spline->lengthSamples = nullptr;
        return false;
    }
    spline->parameterSamples = spline->table + 4 * static_cast<size_t>(spline->intervals);
    spline->lengthSamples = spline->parameterSamples + 2;
    return true;
}

void freeBuffers(Spline1 *spline)
{
    free(spline->points);
    free(spline->table);
    free(spline->scratch);
    spline->points = spline->table = spline->scratch = nullptr;
    spline->parameterSamples = spline->lengthSamples = nullptr;
    spline->pointCapacity = spline->tableCapacity = spline->scratchCapacity = 0;
}

} // namespace general::spline
