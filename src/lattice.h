// The lattice of a crystal and the two kinds of position in it. Fractional (cell units) and
// Cartesian (angstrom) positions are distinct types with no conversion between them except
// through a Lattice, so one cannot be passed where the other is meant.
#pragma once
#include <cmath>

// A position or displacement in cell units.
struct Fractional {
  double v[3] = {0.0, 0.0, 0.0};

  Fractional() = default;
  Fractional(double a, double b, double c) : v{a, b, c} {}
  explicit Fractional(const double* p) : v{p[0], p[1], p[2]} {}
  double& operator[](int k) { return v[k]; }
  double operator[](int k) const { return v[k]; }
  const double* data() const { return v; }
  double* data() { return v; }
};

// A position or displacement in angstrom.
struct Cartesian {
  double v[3] = {0.0, 0.0, 0.0};

  Cartesian() = default;
  Cartesian(double x, double y, double z) : v{x, y, z} {}
  explicit Cartesian(const double* p) : v{p[0], p[1], p[2]} {}
  double& operator[](int k) { return v[k]; }
  double operator[](int k) const { return v[k]; }
  const double* data() const { return v; }
  double* data() { return v; }
};

// Cell parameters (a, b, c in angstrom; alpha, beta, gamma in degrees), the upper-triangular
// matrix L whose columns are the cell vectors a, b, c, and its inverse by back substitution.
struct Lattice {
  double cell[6] = {0, 0, 0, 0, 0, 0};
  double m[3][3] = {};
  double inv[3][3] = {};

  // The lattice of six cell parameters, degrees converted with the truncated pi of the
  // system.
  static Lattice from_parameters(const double cell6[6]);

  // L * f and L^-1 * c, each component summed in the order of the matrix row.
  Cartesian to_cartesian(const Fractional& f) const;
  Fractional to_fractional(const Cartesian& c) const;

  // Lengths of the rows of L^-1: a Cartesian distance r spans at most r * row[k] cells along
  // axis k.
  void inverse_row_lengths(double row[3]) const;
};

// out = m * in over raw 3-vectors (in and out may be the same array): the one matrix product
// of every conversion, so that every path rounds alike. Inline: the partition, the whole
// molecules and the neighbour search call it once per atom or atom pair.
inline void lattice_product(const double m[3][3], const double in[3], double out[3]) {
  const double v0 = in[0], v1 = in[1], v2 = in[2];
  const double o0 = m[0][0] * v0 + m[0][1] * v1 + m[0][2] * v2;
  const double o1 = m[1][0] * v0 + m[1][1] * v1 + m[1][2] * v2;
  const double o2 = m[2][0] * v0 + m[2][1] * v1 + m[2][2] * v2;
  out[0] = o0;
  out[1] = o1;
  out[2] = o2;
}

// |m * d|: the product, then the square root of the sum of its squared components in order.
inline double cartesian_length(const double m[3][3], const double d[3]) {
  double c[3];
  lattice_product(m, d, c);
  return std::sqrt(c[0] * c[0] + c[1] * c[1] + c[2] * c[2]);
}

inline Cartesian Lattice::to_cartesian(const Fractional& f) const {
  Cartesian c;
  lattice_product(m, f.v, c.v);
  return c;
}

inline Fractional Lattice::to_fractional(const Cartesian& c) const {
  Fractional f;
  lattice_product(inv, c.v, f.v);
  return f;
}
