// The lattice of a crystal and the two kinds of position in it. Fractional (cell units) and
// Cartesian (angstrom) positions are distinct types with no conversion between them except
// through a Lattice, so one cannot be passed where the other is meant.
#pragma once

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
// of every conversion, so that every path rounds alike.
void lattice_product(const double m[3][3], const double in[3], double out[3]);
