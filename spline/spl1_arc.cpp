#include "base/module_id.h"

#include "spline/arc_table.h"
#include "spline/spline_object.h"

GENERAL_MODULE_ID("$Id$");

using namespace general::spline;

namespace {

constexpr int32_t firstIntervalsTried = 64;

bool isMeasurable(const Spline1 *spline)
{
    return hasUsableType(spline) && hasPoints(spline);
}

uint32_t ensureArcTable(Spline1 *spline)
{
    if (hasArcTable(spline))
        return SPLINE_OK;
    if (!isMeasurable(spline))
        return SPLINE_BAD_ARG;
    return buildArcTable(spline) ? SPLINE_OK : SPLINE_NO_MEMORY;
}

uint32_t checkMapping(Spline1 *spline, int32_t count, const float *output)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    if (count < 1 || output == nullptr)
        return SPLINE_BAD_ARG;
    return ensureArcTable(spline);
}

/// Generates the input of a mapping where its output will be.
[[gnu::noinline]] const float *equalSteps(const Spline1 *spline, int32_t count, double end, float *values)
{
    InputValues in(spline, count, nullptr, end);
    for (int32_t i = 0; i < count; ++i)
        values[i] = in[i];
    return values;
}

/// Doubles the intervals of a scratch copy until its error is small enough or the rounds are used up.
uint32_t searchIntervals(Spline1 *copy, int32_t maxRounds, double &error, int32_t &intervals)
{
    for (int32_t round = 0, tried = firstIntervalsTried;; ++round, tried *= 2) {
        copy->intervals = tried;
        discardMeasurements(copy);
        if (!buildArcTable(copy) || !estimateError(copy, error))
            return SPLINE_NO_MEMORY;
        intervals = tried;
        if (error <= copy->accuracy || round >= maxRounds)
            return SPLINE_OK;
        if (tried > INT32_MAX / 2)
            return SPLINE_NO_MEMORY;
    }
}

} // namespace

void general::spline::findLengths(const Spline1 *spline, int32_t count, const float *params, float *lengths)
{
    withArcMap(spline, count, [&](const auto &map) {
        const float *in = params != nullptr ? params : equalSteps(spline, count, map.lastParameter(), lengths);
        for (int32_t i = 0; i < count; ++i)
            lengths[i] = map.lengthAt(in[i]);
    });
}

uint32_t Spline1ArcLen(Spline1 *spline, int32_t count, const float *params, float *lengths)
{
    uint32_t result = checkMapping(spline, count, lengths);
    if (result == SPLINE_OK)
        findLengths(spline, count, params, lengths);
    return result;
}

uint32_t Spline1Index(Spline1 *spline, int32_t count, const float *lengths, float *params)
{
    uint32_t result = checkMapping(spline, count, params);
    if (result != SPLINE_OK)
        return result;
    withArcMap(spline, count, [&](const auto &map) {
        const float *in = lengths != nullptr ? lengths : equalSteps(spline, count, map.lastLength(), params);
        for (int32_t i = 0; i < count; ++i)
            params[i] = map.parameterAt(in[i]);
    });
    return SPLINE_OK;
}

uint32_t Spline1GetAcc(Spline1 *spline, double *error, int32_t *intervals)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    if (error == nullptr || intervals == nullptr)
        return SPLINE_BAD_ARG;
    uint32_t result = ensureArcTable(spline);
    if (result != SPLINE_OK)
        return result;
    if (!(spline->achievedError >= 0)) {
        if (!isMeasurable(spline))
            return SPLINE_BAD_ARG;
        double estimate = 0;
        if (!estimateError(spline, estimate))
            return SPLINE_NO_MEMORY;
        spline->achievedError = estimate;
    }
    *error = spline->achievedError;
    *intervals = spline->intervals;
    return SPLINE_OK;
}

uint32_t Spline1CalcAcc(const Spline1 *spline, int32_t maxRounds, double accuracy, double *error, int32_t *intervals)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    bool complete = accuracy > 0 && accuracy < 1 && error != nullptr && intervals != nullptr;
    if (!complete || !isMeasurable(spline))
        return SPLINE_BAD_ARG;

    Spline1 *copy = Spline1Create();
    if (copy == nullptr)
        return SPLINE_NO_MEMORY;
    uint32_t result = Spline1Copy(spline, copy);
    if (result == SPLINE_OK) {
        copy->accuracy = accuracy;
        double lastError = 0;
        int32_t lastIntervals = 0;
        result = searchIntervals(copy, maxRounds, lastError, lastIntervals);
        if (result == SPLINE_OK) {
            *error = lastError;
            *intervals = lastIntervals;
        }
    }
    Spline1Destroy(copy);
    return result;
}
