/// @file
/// Arithmetic on 3-vectors, 3x3 rotations and 4x4 rigid transforms with one uniform scale.
///
/// Every function works on arrays that the caller owns and keeps no state: any number of threads
/// may call at once. Matrices are row-major and act on column vectors from the left, so the columns
/// of a rotation are the images of the axes. Angles are in degrees.
///
/// **Tolerance.** Every test for equality or validity compares an absolute difference with
/// GEOMETRY_TOLERANCE, strictly: a difference of exactly 1e-5 counts as unequal. There is no
/// relative tolerance. A component that is not a number equals nothing.
///
/// **Range.** Lengths, and what is divided by them, are right for lengths from 1e-307 up to the largest
/// double. Sums of products are formed in doubles: above 1e308 on the way they become infinities or not-a-numbers,
/// below 1e-308 they lose digits.
///
/// **Outputs.** An output may be the very array of an input in every function here. Arrays that
/// overlap in part are not supported. Arrays need no more than the 4-byte alignment that 32-bit
/// Windows compilers give them. Pointers are not checked.

#ifndef GENERAL_GEOMETRY_H
#define GENERAL_GEOMETRY_H

#include "general/api.h"
#include "general/names.h"

/// Two numbers are equal when their difference is smaller than this.
#define GEOMETRY_TOLERANCE 1e-5

/// A vector or point: x, y, z.
typedef double V3[3];

/// A 3x3 matrix: element 3 * i + j is row i, column j.
typedef double R3[9];

/// A 4x4 matrix: element 4 * i + j is row i, column j. A well-formed transform has a rotation times
/// a positive scale in the upper left 3x3 block, the translation in elements 3, 7 and 11, and
/// 0, 0, 0, 1 in row 3. Its scale is the length of the block's first column.
typedef double T4[16];

/// Sets all three components to 0, every byte of them.
/// @param v  receives the zero vector
GENERAL_API void GENERAL_CALL V3_set_zero(V3 v);

/// Copies a vector. The source comes first, as in every copy of this family.
/// @param source       what is copied
/// @param destination  receives the copy
GENERAL_API void GENERAL_CALL V3_copy_V3(const V3 source, V3 destination);

/// @param v  a vector
/// @return 1 when every component is within the tolerance of 0, else 0
GENERAL_API int GENERAL_CALL V3_equal_zero(const V3 v);

/// @param a,b  what is compared
/// @return 1 when every pair of components is within the tolerance, else 0
GENERAL_API int GENERAL_CALL V3_equal_V3(const V3 a, const V3 b);

/// @param v  a vector
/// @return the Euclidean length
GENERAL_API double GENERAL_CALL V3_len(const V3 v);

/// Multiplies v by a factor, in place.
/// @param v       a vector, multiplied in place
/// @param factor  any number
GENERAL_API void GENERAL_CALL V3_scale(V3 v, double factor);

/// Scales v to length 1, in place. A vector of length 0 becomes three not-a-numbers, with no other
/// sign: who may hold one asks V3_equal_zero first.
/// @param v  a vector, scaled in place
GENERAL_API void GENERAL_CALL V3_normalize(V3 v);

/// out = a + b
/// @param a,b  the operands, left and right
/// @param out  receives the result; may be an operand itself
GENERAL_API void GENERAL_CALL V3_add_V3(const V3 a, const V3 b, V3 out);

/// out = a - b
/// @param a,b  the operands, left and right
/// @param out  receives the result; may be an operand itself
GENERAL_API void GENERAL_CALL V3_subtract_V3(const V3 a, const V3 b, V3 out);

/// @param a,b  the operands, left and right
/// @return the dot product of a and b
GENERAL_API double GENERAL_CALL V3_dot_V3(const V3 a, const V3 b);

/// out = a x b, right-handed: x cross y is z
/// @param a,b  the operands, left and right
/// @param out  receives the result; may be an operand itself
GENERAL_API void GENERAL_CALL V3_cross_V3(const V3 a, const V3 b, V3 out);

/// Sets m to the identity.
/// @param m  receives the identity
GENERAL_API void GENERAL_CALL R3_set_identity(R3 m);

/// Copies a matrix, source first.
/// @param source       what is copied
/// @param destination  receives the copy
GENERAL_API void GENERAL_CALL R3_copy_R3(const R3 source, R3 destination);

/// @param m  a matrix
/// @return 1 when every element is within the tolerance of the identity's, else 0
GENERAL_API int GENERAL_CALL R3_equal_identity(const R3 m);

/// @param a,b  what is compared
/// @return 1 when every pair of elements is within the tolerance, else 0
GENERAL_API int GENERAL_CALL R3_equal_R3(const R3 a, const R3 b);

/// Tells whether the rows and the columns of a matrix are orthogonal to each other and all of one
/// squared length, each within the tolerance. The determinant is not looked at, so a reflection
/// passes.
/// @param m      a matrix
/// @param norm2  the squared length: 1 for a pure rotation, s * s for one scaled by s
/// @return 1 when they are, else 0
GENERAL_API int GENERAL_CALL R3_is_valid_rotation(const R3 m, double norm2);

/// Makes the right-handed rotation about an axis (Olinde Rodrigues, 1840): 90 degrees about z turns
/// x into y.
/// @param axis   a unit vector; it is used as it is, and any other length gives a matrix that is not a
///               rotation
/// @param angle  degrees
/// @param out    receives the rotation
GENERAL_API void GENERAL_CALL R3_compose_axis(const V3 axis, double angle, R3 out);

/// Makes Rz(az) * Ry(ay) * Rx(ax): a rotation about the fixed x axis, then the fixed y axis, then
/// the fixed z axis.
/// @param ax,ay,az  degrees
/// @param out       receives the rotation
GENERAL_API void GENERAL_CALL R3_compose(double ax, double ay, double az, R3 out);

/// Finds the angles that R3_compose makes a rotation from. Where ay is +90 or -90 (within about
/// 0.0006 degrees) only ax - az or ax + az is determined; az is then 0 and ax carries it all. Beside
/// that place ax and az are off by up to 0.06 degrees, ten degrees from it by some 0.00001;
/// docs/geometry.md has a table.
/// @param m         a pure rotation; of any other matrix the angles say nothing. If any element is not
///                  a number, none of the angles is
/// @param ax,ay,az  each null, or receives degrees: ax and az in [-180, 180], ay in [-90, 90]
GENERAL_API void GENERAL_CALL R3_decompose(const R3 m, double *ax, double *ay, double *az);

/// out = a * b
/// @param a,b  the operands, left and right
/// @param out  receives the result; may be an operand itself
GENERAL_API void GENERAL_CALL R3_mult_R3(const R3 a, const R3 b, R3 out);

/// out = m * v
/// @param m    a matrix
/// @param v    a vector
/// @param out  receives the result; may be an operand itself
GENERAL_API void GENERAL_CALL R3_mult_V3(const R3 m, const V3 v, V3 out);

/// Transposes m and divides it by the length of its first column. Of a pure rotation that is the
/// inverse. Of a rotation scaled by s it is the inverse rotation *without* scale, unlike T4_invert,
/// which inverts the scale too. A first column of length 0 gives not-a-numbers and infinities.
/// @param m    a matrix
/// @param out  receives the result; may be an operand itself
GENERAL_API void GENERAL_CALL R3_invert(const R3 m, R3 out);

/// out = a + b, element by element
/// @param a,b  the operands, left and right
/// @param out  receives the result; may be an operand itself
GENERAL_API void GENERAL_CALL R3_add_R3(const R3 a, const R3 b, R3 out);

/// out = a - b, element by element
/// @param a,b  the operands, left and right
/// @param out  receives the result; may be an operand itself
GENERAL_API void GENERAL_CALL R3_subtract_R3(const R3 a, const R3 b, R3 out);

/// Sets m to the identity.
/// @param m  receives the identity
GENERAL_API void GENERAL_CALL T4_set_identity(T4 m);

/// Copies a transform, source first.
/// @param source       what is copied
/// @param destination  receives the copy
GENERAL_API void GENERAL_CALL T4_copy_T4(const T4 source, T4 destination);

/// @param m  a matrix
/// @return 1 when every element is within the tolerance of the identity's, else 0
GENERAL_API int GENERAL_CALL T4_equal_identity(const T4 m);

/// @param a,b  what is compared
/// @return 1 when every pair of elements is within the tolerance, else 0
GENERAL_API int GENERAL_CALL T4_equal_T4(const T4 a, const T4 b);

/// Tells whether a transform is well-formed: row 3 is 0, 0, 0, 1 and the upper left block is a
/// rotation with one uniform scale, all within the tolerance. Shear and unequal scales are refused,
/// reflections are not.
/// @param m  a matrix
/// @return 1 when it is, else 0
GENERAL_API int GENERAL_CALL T4_is_valid_transformation(const T4 m);

/// Builds the transform that rotates, scales, then translates.
/// @param rotation     a pure rotation
/// @param scale        a positive factor
/// @param translation  added last
/// @param out          receives the transform
GENERAL_API void GENERAL_CALL T4_compose(const R3 rotation, double scale, const V3 translation, T4 out);

/// Splits a transform into what T4_compose makes it from. Row 3 is not looked at. A first column of
/// length 0 gives a scale of 0 and a rotation of not-a-numbers and infinities.
/// @param m            a matrix
/// @param rotation     receives the pure rotation
/// @param scale        receives the length of the block's first column
/// @param translation  receives the translation
GENERAL_API void GENERAL_CALL T4_decompose(const T4 m, R3 rotation, double *scale, V3 translation);

/// Inverts a well-formed transform, scale included. Row 3 of m is taken to be 0, 0, 0, 1.
/// @param m    a matrix
/// @param out  receives the result; may be an operand itself
GENERAL_API void GENERAL_CALL T4_invert(const T4 m, T4 out);

/// out = a * b, the full product with row 3 of both
/// @param a,b  the operands, left and right
/// @param out  receives the result; may be an operand itself
GENERAL_API void GENERAL_CALL T4_mult_T4(const T4 a, const T4 b, T4 out);

/// Transforms a point: out = upper left block * v + translation. Row 3 is not looked at.
/// @param m    a matrix
/// @param v    a point
/// @param out  receives the result; may be an operand itself
GENERAL_API void GENERAL_CALL T4_mult_V3(const T4 m, const V3 v, V3 out);

/// out = a + b over all sixteen elements
/// @param a,b  the operands, left and right
/// @param out  receives the result; may be an operand itself
GENERAL_API void GENERAL_CALL T4_add_T4(const T4 a, const T4 b, T4 out);

/// out = a - b over all sixteen elements
/// @param a,b  the operands, left and right
/// @param out  receives the result; may be an operand itself
GENERAL_API void GENERAL_CALL T4_subtract_T4(const T4 a, const T4 b, T4 out);

#include "general/names.h"

#endif
