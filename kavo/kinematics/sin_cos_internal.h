#pragma once

#include <cstddef>

#include "kavo/util/export.h"

namespace kavo::kinematics::internal {

//! sin[i] and cos[i] of x[i], radians, for i < n.
//!
//! The system's own routines differ in the last bit from machine to machine, so the library brings these: the
//! same bits on every target, for every n, and equal to those of the one-value form below. The error is below
//! 1 ulp, for arguments of any size; NaN and infinities give NaN. `sin` and `cos` overlap neither each other
//! nor `x`.
//!
//! Arguments are reduced by multiples of pi/2 in four parts (Cody and Waite, 1980) or, when they are very
//! large, against the bits of 2/pi (Payne and Hanek, 1983); then minimax polynomials on [-pi/4, pi/4].
KAVO_EXPORT void SinCos(const double* x, double* sin, double* cos, std::size_t n);

//! One value.
KAVO_EXPORT void SinCos(double x, double* sin, double* cos);

}  // namespace kavo::kinematics::internal
