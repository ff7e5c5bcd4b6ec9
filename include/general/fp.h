/// @file
/// Helpers for numbers: decimal mantissa and exponent, comparison of doubles, powers of two.
///
/// No state is kept: any thread may call at any time. Infinities and not-a-numbers give the results
/// that are named here and raise nothing.

#ifndef GENERAL_FP_H
#define GENERAL_FP_H

#include "general/api.h"

/// Splits a number into a decimal mantissa m and exponent e: x = m * 10^e with 1 <= |m| < 10. Both
/// come from logarithms: the mantissa is good to about 13 digits, and a number within rounding of a
/// power of ten may come out as either 1 or 9.99... with the exponent to match.
/// @param x         any number
/// @param exponent  receives e; 0 for 0 and for a not-a-number, INT_MAX for an infinity
/// @return m; 0 for 0 and for a not-a-number, 1 or -1 for an infinity; 0 if exponent is null
GENERAL_API double GENERAL_CALL fp_scinotation(double x, int *exponent);

/// Tells whether two numbers agree to about a number of significant digits: whether their mantissas,
/// brought to one exponent, differ by at most 5 * 10^-digits. Numbers whose exponents differ by more
/// than 1 never agree. Zero has mantissa and exponent 0, so only numbers of about 1 can agree with it;
/// a not-a-number compares as zero, and infinities of one sign are equal.
/// @param a,b     the two numbers
/// @param digits  significant digits that have to agree
/// @return 1 or 0
GENERAL_API int GENERAL_CALL fp_equal(double a, double b, int digits);

/// Tells whether two numbers differ by less than 0.0001, however large they are.
/// @param a,b  the two numbers
/// @return 1, or 0; 0 also if either is a not-a-number or an infinity
GENERAL_API int GENERAL_CALL fp_close(double a, double b);

/// Tells finite numbers from the others.
/// @param x  any number
/// @return 0 for an infinity or a not-a-number of any kind, 1 for every other number
GENERAL_API int GENERAL_CALL fp_valid_d(double x);

/// Rounds up to a power of two.
/// @param n  any number
/// @return the smallest power of two that is not below n; n itself for 0 and 1; 1 when there is none
///         in 32 bits, which is for n above 0x80000000
GENERAL_API unsigned GENERAL_CALL next_power_2(unsigned n);

#endif
