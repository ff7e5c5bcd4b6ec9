/// @file
/// Conversion between the single-precision points of an object and the caller's points.

#pragma once

#include "spline/spline_object.h"

namespace general::spline
{

/// Narrows count records to count * dimension floats.
void narrowRecords(const SplineCoord *records, int32_t count, int32_t dimension, float *points);

/// Narrows count * dimension numbers to floats.
void narrowValues(const double *values, int32_t count, int32_t dimension, float *points);

/// Widens one point into a record and stamps it with a space id.
void widenToRecord(const float *point, int32_t dimension, int32_t space, SplineCoord &record);

/// The place in an array for `floats` doubles where as many floats can wait to be widened in place.
float *upperHalf(double *values, size_t floats);

/// Widens the floats of the upper half to doubles from the start on. Each float is read before the
/// doubles written so far reach it.
void widenInPlace(double *values, size_t floats);

} // namespace general::spline
