/// @file
/// The spline object, and what the spline modules share about it.

#pragma once

#include "base/handle_magic.h"

#include "general/spline.h"

#include <math.h>
#include <stddef.h>
#include <stdint.h>

/// Every buffer is owned by the object. A flag or a count may outlive the array it speaks of (after
/// exhausted memory, a copy of an object without type, or an odd packet), so ask hasPoints and
/// hasArcTable below.
struct Spline1 {
    uint32_t magic;
    int32_t defined; ///< 1 once a valid type is declared
    int32_t form;    ///< 100 open, 101 closed
    int32_t kind;
    int32_t degree;
    int32_t dimension;
    double cardinalScale; ///< (1 - tension) / 2
    int32_t spaceSet;
    int32_t space;
    int32_t pointCapacity; ///< floats
    int32_t pointCount;
    float *points;         ///< point after point
    int32_t tableCapacity; ///< floats
    int32_t tableValid;    ///< 1 when the arc table matches points and accuracy settings
    int32_t intervals;
    int32_t tableFlags; ///< bit 0: uniform parameter samples, bit 1: uniform arc-length samples
    float *parameterSamples;
    float *lengthSamples;
    float *table; ///< see spl1_arc_wk
    double accuracy;
    double achievedError;    ///< negative: not computed
    double arcReference;     ///< step of the integration that filled the arc table
    int32_t scratchCapacity; ///< floats
    float *scratch;
};

#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(offsetof(Spline1, cardinalScale) == 24 && offsetof(Spline1, spaceSet) == 32);
static_assert(offsetof(Spline1, points) == 48 && offsetof(Spline1, intervals) == 60);
static_assert(offsetof(Spline1, table) == 76 && offsetof(Spline1, accuracy) == 80);
static_assert(offsetof(Spline1, arcReference) == 96 && offsetof(Spline1, scratch) == 108);
static_assert(sizeof(Spline1) == 112);
#endif
static_assert(sizeof(SplineCoord) == 32 && offsetof(SplineCoord, space) == 24);

template<>
inline constexpr uint32_t general::liveMagic<Spline1> = 0x53706C31; // "Spl1"

namespace general::spline {

using general::isLive;

constexpr int32_t openForm = 100;
constexpr int32_t closedForm = 101;
constexpr int32_t largestDimension = 3;
constexpr double errorNotComputed = -1.0;

inline bool isClosed(const Spline1 *spline)
{
    return spline->form == closedForm;
}

/// Whether control points are held, in the current dimension.
inline bool hasPoints(const Spline1 *spline)
{
    return spline->points != nullptr && spline->pointCount >= 1 && spline->dimension >= 1;
}

inline bool hasArcTable(const Spline1 *spline)
{
    return spline->tableValid == 1 && spline->table != nullptr;
}

/// Whether the curve has a type that can be evaluated. An object that was unpacked may carry any
/// numbers; one-dimensional curves work, although they cannot be declared.
inline bool hasUsableType(const Spline1 *spline)
{
    bool isCurve = spline->kind == SPLINE_B
                       ? spline->degree >= 1 && spline->degree <= 3
                       : spline->kind == SPLINE_CARDINAL && (spline->degree == 1 || spline->degree == 3);
    return spline->defined == 1 && isCurve && (spline->form == openForm || spline->form == closedForm) &&
           spline->dimension >= 1 && spline->dimension <= largestDimension;
}

/// Upper end of the parameter range.
inline int32_t parameterEnd(const Spline1 *spline)
{
    return isClosed(spline) ? spline->pointCount : spline->pointCount - 1;
}

/// The arguments of one call: the caller's, or count values at equal steps over [0, end]. On an open curve
/// the end is the last of them; on a closed one, where it is the start again, they stop a step before.
class InputValues {
public:
    /// @param values  count values, or null
    InputValues(const Spline1 *spline, int32_t count, const float *values, double end)
        : values_(values), step_(isClosed(spline) ? end / count
                                 : count == 1     ? 1.0
                                                  : end / (count - 1))
    {
    }

    float operator[](int32_t i) const { return values_ != nullptr ? values_[i] : static_cast<float>(i * step_); }

private:
    const float *values_;
    double step_;
};

/// What a change of the points or of the accuracy settings does to the measurements.
inline void discardMeasurements(Spline1 *spline)
{
    spline->tableValid = 0;
    spline->achievedError = errorNotComputed;
}

/// Multiplies counts into a number of floats.
/// @return false when a count is negative or the floats exceed the address space
bool floatsNeeded(int32_t count, int32_t perItem, int32_t &floats);

/// Number of floats in an arc table: four coefficients per interval, two parameter samples, and one
/// arc-length sample more than intervals.
/// @return false when there is no such table
bool arcTableSize(int32_t intervals, int32_t &floats);

/// Makes a buffer hold at least `needed` floats. A buffer that is too small is freed first, and its
/// contents are lost.
/// @return false when memory is exhausted: the buffer is then null with capacity 0
bool growFloats(float *&buffer, int32_t &capacity, int32_t needed);

/// Gives an object its own table of exactly the right size and places the sample pointers.
bool growArcTable(Spline1 *spline);

/// Frees points, arc table and scratch.
void freeBuffers(Spline1 *spline);

} // namespace general::spline
