// The one widening of a search reach by round-off, shared by every fast spatial search
// (duplicate removal, bond partition, whole molecules, neighbour search, closest contacts).
//
// Each fast search skips a pair when a cheap bound shows it beyond the reach of the exact
// test, and must never skip a pair that the exact test, evaluated in floating point, would
// accept. Both the exact test and the bound are floating-point expressions of the stored
// coordinates, so the reach used by the bound is widened by more than the round-off either
// can carry:
//
//   * relative part. Every compared value is a length computed from coordinate differences:
//     at most 3 roundings for a difference and its periodic wrap, 3 for a row of a lattice
//     product, 3 for a sum of squares, 1 for a square root and 1 for a sum of radii times a
//     scale, so no chain is longer than 11 roundings of relative size u = 2^-53 each. The
//     neighbour search chains two such bounds (a closest contact bounded through bounding
//     spheres whose radii and centre distance are computed too): at most 22 roundings, and
//     22u (1 + O(u)) < 32u. A length measured through the lattice and bounded through its
//     inverse (or the other way round) is amplified by the condition number
//     kappa = || |L| ||_F * || |L^-1| ||_F, which also bounds the error of the stored inverse
//     against the exact inverse of the stored lattice (back substitution is componentwise
//     stable). Hence the factor (1 + kRoundings * u * kappa).
//   * absolute part. A difference of two coordinates of size X carries an error of up to u X
//     however small the difference, and binning by a fractional part adds u per axis. Hence
//     kRoundings * u * magnitude, where `magnitude` bounds the coordinates (and image shifts)
//     entering the difference, in the units of the reach.
//
// The tests pin the margin with grids whose bins are exactly as wide as the reach allows and
// pairs placed at the reach, and with molecule pairs whose closest contact and bounding
// spheres are collinear: a reach smaller than the exact one loses pairs there.
#pragma once
#include <cmath>

namespace search_margin {

constexpr double kUnitRoundoff = 0x1p-53;
constexpr double kRoundings = 32.0;

// `reach` widened by the round-off of lengths measured through a lattice of condition
// `condition` (1 where no lattice is involved) from coordinates bounded by `magnitude`.
inline double widened(double reach, double condition, double magnitude) {
  const double rel = kRoundings * kUnitRoundoff * condition;
  return reach * (1.0 + rel) + kRoundings * kUnitRoundoff * std::fabs(magnitude);
}

// || |L| ||_F * || |L^-1| ||_F of a lattice matrix and its stored inverse: at least 1 for a
// true pair, infinite or NaN for a degenerate lattice (every reach then widens to all).
inline double lattice_condition(const double L[3][3], const double Linv[3][3]) {
  double a = 0.0, b = 0.0;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) {
      a += L[r][c] * L[r][c];
      b += Linv[r][c] * Linv[r][c];
    }
  return std::sqrt(a) * std::sqrt(b);
}

}  // namespace search_margin
