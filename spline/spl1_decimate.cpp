#include "base/module_id.h"

#include "spline/spline_object.h"

#include <string.h>

GENERAL_MODULE_ID("$Id$");

using namespace general::spline;

namespace {

/// Rounds half up, into 0..count - 1: with more points wanted than given, the blend of ramp and smooth
/// step overshoots both ends.
int32_t nearestIndex(double value, int32_t count)
{
    if (!(value > 0))
        return 0;
    double rounded = value + 0.5;
    return rounded < count ? static_cast<int32_t>(rounded) : count - 1;
}

/// Picks the input index of each output in turn.
class Decimation {
public:
    Decimation(bool closed, int32_t inCount, int32_t outCount) : closed_(closed), inCount_(inCount), outCount_(outCount)
    {
    }

    int32_t index(int32_t output) const
    {
        if (inCount_ == 1 || outCount_ == 1)
            return 0;
        if (closed_)
            return nearestIndex(output * (static_cast<double>(inCount_) / outCount_), inCount_);

        double last = static_cast<double>(inCount_) - 1;
        double ramp = (static_cast<double>(outCount_) - 1) / last; // share of even spacing
        double t = output / (static_cast<double>(outCount_) - 1);
        return nearestIndex(last * t * (ramp + (1 - ramp) * (3 - 2 * t) * t), inCount_);
    }

private:
    bool closed_;
    int32_t inCount_;
    int32_t outCount_;
};

uint32_t checkDecimation(const Spline1 *spline, int32_t inCount, const void *in, int32_t outCount, const void *out)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    bool complete = inCount >= 1 && outCount >= 1 && in != nullptr && out != nullptr && spline->defined == 1;
    return complete ? SPLINE_OK : SPLINE_BAD_ARG;
}

/// A form that only a packet can bring in is decimated to nothing.
bool hasKnownForm(const Spline1 *spline)
{
    return spline->form == openForm || spline->form == closedForm;
}

} // namespace

uint32_t Spline1DDecimate(const Spline1 *spline, int32_t inCount, const double *inValues, int32_t outCount,
                          double *outValues)
{
    uint32_t result = checkDecimation(spline, inCount, inValues, outCount, outValues);
    if (result != SPLINE_OK || !hasKnownForm(spline) || spline->dimension < 1)
        return result;

    auto dimension = static_cast<size_t>(spline->dimension);
    Decimation decimation(isClosed(spline), inCount, outCount);
    for (int32_t i = 0; i < outCount; ++i, outValues += dimension) {
        const double *picked = inValues + static_cast<size_t>(decimation.index(i)) * dimension;
        memcpy(outValues, picked, dimension * sizeof(double));
    }
    return SPLINE_OK;
}

uint32_t Spline1CDecimate(const Spline1 *spline, int32_t inCount, const SplineCoord *inRecords, int32_t outCount,
                          SplineCoord *outRecords)
{
    uint32_t result = checkDecimation(spline, inCount, inRecords, outCount, outRecords);
    if (result != SPLINE_OK || !hasKnownForm(spline) || spline->dimension < 1 || spline->dimension > largestDimension)
        return result;

    Decimation decimation(isClosed(spline), inCount, outCount);
    for (int32_t i = 0; i < outCount; ++i)
        memcpy(&outRecords[i], &inRecords[decimation.index(i)], offsetof(SplineCoord, unused));
    return SPLINE_OK;
}
