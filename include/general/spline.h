/// @file
/// Parametric curves in the plane and in space: uniform B-splines of degree 1 to 3 and cardinal
/// splines of degree 1 or 3 with tension, open or closed.
///
/// A spline object holds control points. Its life: Spline1Create, Spline1Encode (the type),
/// a Spline1Fit... call (the points), then any number of evaluations, measurements and packets,
/// at last Spline1Destroy.
///
///     Spline1 *spline = Spline1Create();
///     Spline1Encode(spline, SPLINE_OPEN, SPLINE_B, 3, 2, 0.0);
///     Spline1FitDPoints(spline, n, xy);           // the curve passes through n points
///     Spline1Index(spline, 100, NULL, params);    // 100 parameters, equally spaced along the curve
///     Spline1DPoint(spline, 100, params, out);    // the points there
///
/// **Parameters.** With n control points the parameter runs over [0, n - 1] on an open and over
/// [0, n] on a closed curve, one unit per control point. A parameter outside stands for the nearer
/// end, NaN for the start.
///
/// **Ends.** An open curve continues beyond its ends with its control points mirrored about the
/// first and the last one; a closed curve continues with its own points. An open curve of degree 2
/// or 3 therefore has speed 0 at its two ends: near them a step of the parameter moves hardly along the
/// curve. Its shape shows nothing of that.
///
/// **Precision.** Points are kept in single precision and computed with in double precision; every result
/// has passed through single precision. Move data that is far from the origin near it first.
///
/// **Two forms of each call.** The D form takes bare arrays of doubles, `dimension` per point, point
/// after point. The C form takes coordinate records, which carry the id of a coordinate space.
///
/// **Memory.** The object owns its buffers. They only grow, and a buffer that has to grow is freed
/// first: after SPLINE_NO_MEMORY that buffer is empty and a later call makes it anew. The object
/// remains valid.
///
/// **Threads.** One object must not be used by two threads at once, not even to evaluate it. Different
/// objects are independent.

#ifndef GENERAL_SPLINE_H
#define GENERAL_SPLINE_H

#include "general/api.h"
#include "general/names.h"

/// A spline object. Opaque to callers.
typedef struct Spline1 Spline1;

/// An affine map of points, q = A p + b. Opaque to callers.
typedef struct SplineLX SplineLX;

/// Outcome of every spline call.
typedef enum SplineResult {
    SPLINE_OK = 0,
    SPLINE_BAD_HANDLE = 1, ///< null, or not a live spline object
    SPLINE_BAD_ARG = 2,    ///< a bad argument, or something is missing: a type, points, a space
    SPLINE_NO_MEMORY = 3   ///< memory is exhausted, or a size does not fit the address space
} SplineResult;

/// Whether the last control point is followed by the first.
enum { SPLINE_OPEN = 0, SPLINE_CLOSED = 1 };

/// The kinds of curve. A B-spline is drawn towards its control points; a cardinal spline passes
/// through them.
enum { SPLINE_B = 0, SPLINE_CARDINAL = 1 };

/// A point or a vector with the coordinate space it belongs to. In two dimensions z is neither read
/// nor written.
typedef struct SplineCoord {
    double x;       ///< first component
    double y;       ///< second component
    double z;       ///< third component
    int32_t space;  ///< the caller's id of a coordinate space
    int32_t unused; ///< neither read nor written
} SplineCoord;

/// Makes a spline object without type and points, with accuracy 0.01 and 16 intervals.
/// @return the object, which the caller hands to Spline1Destroy; null if memory is exhausted
GENERAL_API Spline1 *GENERAL_CALL Spline1Create(void);

/// Frees the object and what it holds.
/// @param spline  a live object
/// @return SPLINE_OK or SPLINE_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL Spline1Destroy(Spline1 *spline);

/// Tells whether a pointer is a live spline object.
/// @param spline  null, or the address of at least four readable bytes. An object that was destroyed is no
///                such address
/// @return 0 if it is; 1 for null or anything else
GENERAL_API uint32_t GENERAL_CALL Spline1Verify(const Spline1 *spline);

/// Makes one object an independent copy of another: type, points, space, accuracy, arc table. The
/// points are copied only if the source has a type.
/// @param source  a live object
/// @param target  a live object, whose former contents are freed. The source itself: nothing happens
/// @return SPLINE_OK, SPLINE_BAD_HANDLE (either object) or SPLINE_NO_MEMORY (the target has the
///         source's type and settings, without the points or the arc table that found no room)
GENERAL_API uint32_t GENERAL_CALL Spline1Copy(const Spline1 *source, Spline1 *target);

/// Declares the type of the curve. Points that were loaded stay, unless the dimension changes: then
/// they are dropped and have to be loaded again.
/// @param spline     a live object
/// @param form       SPLINE_OPEN or SPLINE_CLOSED
/// @param kind       SPLINE_B or SPLINE_CARDINAL
/// @param degree     1, 2 or 3 for a B-spline; 1 or 3 for a cardinal spline
/// @param dimension  2 or 3
/// @param tension    of a cardinal spline: 0 is the Catmull-Rom spline (Catmull and Rom, 1974), towards 1
///                   the curve tightens into its control polygon
/// @return SPLINE_OK, SPLINE_BAD_HANDLE, or SPLINE_BAD_ARG if there is no such type: the object then
///         has no type until a valid one is declared
GENERAL_API uint32_t GENERAL_CALL Spline1Encode(Spline1 *spline, int32_t form, int32_t kind, int32_t degree,
                                                int32_t dimension, double tension);

/// Tells the type of the curve. Any output but not every one may be null.
/// @param spline     a live object
/// @param form       receives SPLINE_OPEN or SPLINE_CLOSED
/// @param kind       receives SPLINE_B or SPLINE_CARDINAL
/// @param degree     receives 1, 2 or 3
/// @param dimension  receives 2 or 3
/// @param tension    receives the tension that was declared
/// @return SPLINE_OK, SPLINE_BAD_HANDLE, or SPLINE_BAD_ARG (every output is null, or there is no
///         valid type; nothing is written)
GENERAL_API uint32_t GENERAL_CALL Spline1Decode(Spline1 *spline, int32_t *form, int32_t *kind, int32_t *degree,
                                                int32_t *dimension, double *tension);

/// Attaches the id of a coordinate space, which every coordinate record from this object carries.
/// @param spline  a live object
/// @param space   not 0; or 0 to detach, after which the C forms that write records are refused
/// @return SPLINE_OK, SPLINE_BAD_HANDLE, or SPLINE_BAD_ARG if no points are loaded
GENERAL_API uint32_t GENERAL_CALL Spline1SetSpace(Spline1 *spline, int32_t space);

/// Tells the id of the coordinate space: 0 when none is attached, or when the records that were loaded said 0.
/// @param spline  a live object
/// @param space   receives the id
/// @return SPLINE_OK, SPLINE_BAD_HANDLE or SPLINE_BAD_ARG (space is null)
GENERAL_API uint32_t GENERAL_CALL Spline1GetSpace(const Spline1 *spline, int32_t *space);

/// Tells how many control points there are.
/// @param spline  a live object
/// @param count   receives the number, 0 before points are loaded
/// @return SPLINE_OK, SPLINE_BAD_HANDLE or SPLINE_BAD_ARG (count is null)
GENERAL_API uint32_t GENERAL_CALL Spline1CountPoints(const Spline1 *spline, int32_t *count);

/// Sets how finely the curve is measured. A change discards the arc table and the achieved error.
/// @param spline     a live object
/// @param accuracy   between 0 and 1, both excluded; half of it, but at least 0.00001, bounds the error
///                   of each integrated arc length, in the unit of the coordinates
/// @param intervals  pieces of the arc table, at least 1
/// @return SPLINE_OK, SPLINE_BAD_HANDLE, or SPLINE_BAD_ARG (nothing is changed)
GENERAL_API uint32_t GENERAL_CALL Spline1SetAcc(Spline1 *spline, double accuracy, int32_t intervals);

/// Measures how well the arc table maps parameters to arc lengths, building the table first if need be.
/// @param spline     a live object
/// @param error      receives the largest deviation found, relative to the total length, plus half the
///                   accuracy. More is added when the curve is too large to be integrated as accurately
///                   as asked for; infinity when points or lengths are not finite
/// @param intervals  receives the pieces of the arc table
/// @return SPLINE_OK, SPLINE_BAD_HANDLE, SPLINE_BAD_ARG (an output is null, or there is no type or no
///         points to measure) or SPLINE_NO_MEMORY, looked for in that order
GENERAL_API uint32_t GENERAL_CALL Spline1GetAcc(Spline1 *spline, double *error, int32_t *intervals);

/// Searches the number of intervals that reaches an accuracy, beginning with 64 and doubling. The
/// spline itself is not changed.
/// @param spline     a live object
/// @param maxRounds  how many times the number may be doubled beyond 64; less than 0 counts as 0
/// @param accuracy   between 0 and 1, both excluded
/// @param error      receives the achieved error of the last number tried, as Spline1GetAcc would say
/// @param intervals  receives that number
/// @return SPLINE_OK even if the accuracy was not reached, SPLINE_BAD_HANDLE, SPLINE_BAD_ARG (an
///         accuracy out of range, a null output, no type, no points) or SPLINE_NO_MEMORY
GENERAL_API uint32_t GENERAL_CALL Spline1CalcAcc(const Spline1 *spline, int32_t maxRounds, double accuracy,
                                                 double *error, int32_t *intervals);

/// Loads control points. The space of the first record is attached to the object, even if it is 0.
/// @param spline   a live object
/// @param count    at least 1
/// @param records  count records
/// @return SPLINE_OK, SPLINE_BAD_HANDLE, SPLINE_BAD_ARG (a count below 1, null, or no type), or
///         SPLINE_NO_MEMORY (no points are loaded then), looked for in that order
GENERAL_API uint32_t GENERAL_CALL Spline1FitCCtl(Spline1 *spline, int32_t count, const SplineCoord *records);

/// Loads control points and detaches the space.
/// @param spline  a live object
/// @param count   how many points, at least 1
/// @param values  count * dimension numbers
/// @return as Spline1FitCCtl
GENERAL_API uint32_t GENERAL_CALL Spline1FitDCtl(Spline1 *spline, int32_t count, const double *values);

/// Loads points for the curve to pass through: at parameter i it is at point i. The control points
/// are solved for, in time linear in their number; cardinal splines and curves of degree 1 take the
/// points as they are.
/// @param spline   a live object
/// @param count    how many points, at least 1
/// @param records  count records
/// @return as Spline1FitCCtl. If memory for the solving is exhausted, the data points are left as the
///         control points
GENERAL_API uint32_t GENERAL_CALL Spline1FitCPoints(Spline1 *spline, int32_t count, const SplineCoord *records);

/// Like Spline1FitCPoints, from an array; detaches the space.
/// @param spline  a live object
/// @param count   how many points, at least 1
/// @param values  count * dimension numbers
/// @return as Spline1FitCPoints
GENERAL_API uint32_t GENERAL_CALL Spline1FitDPoints(Spline1 *spline, int32_t count, const double *values);

/// Reads control points back.
/// @param spline   a live object
/// @param count    how many, at least 1
/// @param indices  count indices, each clamped to the control points there are; or null for count points
///                 at equal steps from the first to the last: count may then not exceed the number of
///                 points n, and count - 1 must divide n - 1 (count 1 only if n is 1)
/// @param records  receives count records
/// @return SPLINE_OK, SPLINE_BAD_HANDLE or SPLINE_BAD_ARG (a count below 1 or against the conditions above,
///         no output, no type, no points, no space attached)
GENERAL_API uint32_t GENERAL_CALL Spline1CCtl(const Spline1 *spline, int32_t count, const int32_t *indices,
                                              SplineCoord *records);

/// Like Spline1CCtl, to an array, and without need of a space.
/// @param spline   a live object
/// @param count    how many, at least 1
/// @param indices  as for Spline1CCtl
/// @param values   receives count * dimension numbers
/// @return as Spline1CCtl, without the condition on the space
GENERAL_API uint32_t GENERAL_CALL Spline1DCtl(const Spline1 *spline, int32_t count, const int32_t *indices,
                                              double *values);

/// Computes points of the curve.
/// @param spline   a live object
/// @param count    how many, at least 1
/// @param params   count parameters, in any order; neighbours on one span are cheaper. Null for
///                 parameters at equal steps: from end to end on an open curve (the start alone if count
///                 is 1), around the loop without its closing point on a closed one
/// @param records  receives count records
/// @return SPLINE_OK, SPLINE_BAD_HANDLE, SPLINE_BAD_ARG (a count below 1, no output, no type, no points,
///         no space attached) or SPLINE_NO_MEMORY, looked for in that order
GENERAL_API uint32_t GENERAL_CALL Spline1CPoint(Spline1 *spline, int32_t count, const float *params,
                                                SplineCoord *records);

/// Like Spline1CPoint, to an array, and without need of a space.
/// @param spline  a live object
/// @param count   how many, at least 1
/// @param params  as for Spline1CPoint; may be the last count floats of the output
/// @param values  receives count * dimension numbers. Its upper half serves as working storage
/// @return as Spline1CPoint, without the condition on the space
GENERAL_API uint32_t GENERAL_CALL Spline1DPoint(Spline1 *spline, int32_t count, const float *params, double *values);

/// Computes unit tangents in the direction of increasing parameter. Where the speed is 0, as at the ends of
/// an open curve of degree 2 or 3, at a cusp or among repeated control points, the direction comes from the
/// second derivative; where that is 0 too, as where all control points of a span are equal, or on a degree 1
/// curve between two equal points, the result is the zero vector.
/// @param spline   a live object
/// @param count    how many, at least 1
/// @param params   as for Spline1CPoint
/// @param records  receives count records
/// @return as Spline1CPoint
GENERAL_API uint32_t GENERAL_CALL Spline1CTangent(Spline1 *spline, int32_t count, const float *params,
                                                  SplineCoord *records);

/// Like Spline1CTangent, to an array, and without need of a space.
/// @param spline  a live object
/// @param count   how many, at least 1
/// @param params  as for Spline1CPoint
/// @param values  receives count * dimension numbers. Its upper half serves as working storage
/// @return as Spline1CTangent, without the condition on the space
GENERAL_API uint32_t GENERAL_CALL Spline1DTangent(Spline1 *spline, int32_t count, const float *params, double *values);

/// Maps parameters to arc lengths from the start of the curve, through the arc table, which is built
/// first if need be. The table costs at most some four million evaluations of the speed.
/// @param spline   a live object
/// @param count    how many, at least 1
/// @param params   count parameters; null for parameters at equal steps, as for Spline1CPoint
/// @param lengths  receives count arc lengths; may be the array of parameters
/// @return SPLINE_OK, SPLINE_BAD_HANDLE, SPLINE_BAD_ARG (a count below 1, no output, no type, no points) or
///         SPLINE_NO_MEMORY, looked for in that order
GENERAL_API uint32_t GENERAL_CALL Spline1ArcLen(Spline1 *spline, int32_t count, const float *params, float *lengths);

/// Maps arc lengths to parameters, the inverse of Spline1ArcLen. With null lengths, the results are the
/// parameters of count points at equal distances along the curve.
/// @param spline   a live object
/// @param count    how many, at least 1
/// @param lengths  count arc lengths; null for lengths at equal steps
/// @param params   receives count parameters; may be the array of lengths
/// @return as Spline1ArcLen
GENERAL_API uint32_t GENERAL_CALL Spline1Index(Spline1 *spline, int32_t count, const float *lengths, float *params);

/// Tells the buffer size that Spline1Pack asks for. It is 8 bytes more than is written.
/// @param spline  a live object
/// @param size    receives bytes
/// @return SPLINE_OK, SPLINE_BAD_HANDLE or SPLINE_BAD_ARG (size is null)
GENERAL_API uint32_t GENERAL_CALL Spline1PacketSize(const Spline1 *spline, uint32_t *size);

/// Writes the object into a flat packet: type, points, space, arc table. All fields are 4 bytes,
/// little-endian, so the three 64-bit settings keep single precision.
/// @param spline      a live object
/// @param bufferSize  bytes at buffer, at least what Spline1PacketSize says
/// @param buffer      receives the packet; any alignment
/// @return SPLINE_OK, SPLINE_BAD_HANDLE or SPLINE_BAD_ARG (the buffer is too small, or null)
GENERAL_API uint32_t GENERAL_CALL Spline1Pack(const Spline1 *spline, uint32_t bufferSize, void *buffer);

/// Replaces an object's contents by those of a packet.
///
/// **No length is passed, so none is checked**: as many bytes are read as the packet's own header
/// announces. A program that receives packets from elsewhere compares the header (point count at
/// offset 28, dimension at 20, intervals at 44) with what it received before it calls. Counts that no
/// memory can hold are refused, and no value of any field makes later calls unsafe.
/// @param packet  at any alignment
/// @param spline  a live object
/// @return SPLINE_OK, SPLINE_BAD_HANDLE, SPLINE_BAD_ARG (null, or not a packet; the object is
///         unchanged) or SPLINE_NO_MEMORY (the object has the packet's header, without what could not be
///         allocated)
GENERAL_API uint32_t GENERAL_CALL Spline1Unpack(const void *packet, Spline1 *spline);

/// Applies an affine map to every control point, which maps the curve as well. If the map and the
/// spline differ in dimension, the leading components that both have are mapped by the leading part of
/// the matrix, and the others stay.
/// @param spline  a live object
/// @param lx      a map
/// @return SPLINE_OK, SPLINE_BAD_ARG (a bad spline object too; a null or empty map; no type, no points)
///         or SPLINE_NO_MEMORY
GENERAL_API uint32_t GENERAL_CALL Spline1LinXform(Spline1 *spline, const SplineLX *lx);

/// Makes an empty affine map.
/// @return the map, which the caller hands to SplineDeleteLX; null if memory is exhausted
GENERAL_API SplineLX *GENERAL_CALL SplineCreateLX(void);

/// Frees a map.
/// @param lx  a map
/// @return SPLINE_OK or SPLINE_BAD_ARG (lx is null)
GENERAL_API uint32_t GENERAL_CALL SplineDeleteLX(SplineLX *lx);

/// Stores an affine map, in single precision.
/// @param lx       a map
/// @param n        dimension, at least 1
/// @param matrix   n * n numbers, row by row
/// @param offsets  n numbers
/// @return SPLINE_OK, SPLINE_BAD_ARG (a null argument, or n below 1) or SPLINE_NO_MEMORY (the map is empty
///         then)
GENERAL_API uint32_t GENERAL_CALL SplineEncodeLX(SplineLX *lx, int32_t n, const double *matrix, const double *offsets);

/// Reads an affine map.
/// @param lx       a map
/// @param n        receives the dimension, 0 for an empty map
/// @param matrix   receives n * n numbers, row by row; may be null
/// @param offsets  receives n numbers; may be null
/// @return SPLINE_OK or SPLINE_BAD_ARG (lx or n is null)
GENERAL_API uint32_t GENERAL_CALL SplineDecodeLX(const SplineLX *lx, int32_t *n, double *matrix, double *offsets);

/// Picks a subset of a list of points. On an open curve the ends are kept and the picks lie closer
/// towards both ends, the more so the stronger the reduction; on a closed curve they are spread evenly.
/// Only the object's form and dimension matter; its points are not touched.
/// @param spline     a live object
/// @param inCount    points given, at least 1
/// @param inValues   inCount points of dimension numbers each
/// @param outCount   points wanted, at least 1; more than inCount repeats some
/// @param outValues  receives outCount points; must not overlap inValues
/// @return SPLINE_OK, SPLINE_BAD_HANDLE or SPLINE_BAD_ARG (a count below 1, a null array, no type)
GENERAL_API uint32_t GENERAL_CALL Spline1DDecimate(const Spline1 *spline, int32_t inCount, const double *inValues,
                                                   int32_t outCount, double *outValues);

/// Like Spline1DDecimate, on coordinate records, which are copied whole.
/// @param spline      a live object
/// @param inCount     records given, at least 1
/// @param inRecords   inCount records
/// @param outCount    records wanted, at least 1; more than inCount repeats some
/// @param outRecords  receives outCount records; must not overlap inRecords
/// @return as Spline1DDecimate
GENERAL_API uint32_t GENERAL_CALL Spline1CDecimate(const Spline1 *spline, int32_t inCount, const SplineCoord *inRecords,
                                                   int32_t outCount, SplineCoord *outRecords);

#include "general/names.h"

#endif
