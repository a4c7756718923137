// The lattice of a crystal: the matrix of six cell parameters and its inverse (the conversions
// between fractional and Cartesian positions are inline in lattice.h).
#include "lattice.h"

#include <cmath>

#include "util.h"

Lattice Lattice::from_parameters(const double cell6[6]) {
  Lattice l;
  for (int k = 0; k < 6; ++k) l.cell[k] = cell6[k];
  const double a = cell6[0], b = cell6[1], c = cell6[2];
  const double alpha = KAVRI_PI * cell6[3] / 180.0;
  const double beta = KAVRI_PI * cell6[4] / 180.0;
  const double gamma = KAVRI_PI * cell6[5] / 180.0;
  const double ca = std::cos(alpha), cb = std::cos(beta), cg = std::cos(gamma);
  const double sg = std::sin(gamma);

  double(&L)[3][3] = l.m;
  L[0][0] = a;
  L[0][1] = b * cg;
  L[0][2] = c * cb;
  L[1][0] = 0.0;
  L[1][1] = b * sg;
  L[1][2] = c * (ca - cb * cg) / sg;
  L[2][0] = 0.0;
  L[2][1] = 0.0;
  L[2][2] = (c / sg) * std::sqrt(1.0 - ca * ca - cb * cb - cg * cg + 2.0 * ca * cb * cg);

  // L is upper triangular: its inverse follows by back substitution.
  double(&I)[3][3] = l.inv;
  I[0][0] = 1.0 / L[0][0];
  I[1][1] = 1.0 / L[1][1];
  I[2][2] = 1.0 / L[2][2];
  I[0][1] = -L[0][1] / (L[0][0] * L[1][1]);
  I[1][2] = -L[1][2] / (L[1][1] * L[2][2]);
  I[0][2] = (L[0][1] * L[1][2] / L[1][1] - L[0][2]) / (L[0][0] * L[2][2]);
  return l;
}

void Lattice::inverse_row_lengths(double row[3]) const {
  for (int k = 0; k < 3; ++k)
    row[k] = std::sqrt(inv[k][0] * inv[k][0] + inv[k][1] * inv[k][1] + inv[k][2] * inv[k][2]);
}
