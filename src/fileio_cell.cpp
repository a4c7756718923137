// Cell geometry of the structure layer: cell parameters to the lattice matrix and back,
// fractional/Cartesian conversions and the two periodic wraps.
#include <cmath>

#include "fileio.h"
#include "util.h"

void FileIO::convert_cell6_to_latt3x3(const double cell6[6], double out[3][3]) {
  const Lattice l = Lattice::from_parameters(cell6);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      out[i][j] = l.m[i][j];
      latt[i][j] = l.m[i][j];
      latt_inv[i][j] = l.inv[i][j];
    }
}

Lattice FileIO::lattice() const {
  Lattice l;
  for (int k = 0; k < 6; ++k) l.cell[k] = cell_latt[k];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      l.m[i][j] = latt[i][j];
      l.inv[i][j] = latt_inv[i][j];
    }
  return l;
}

void FileIO::convert_latt3x3_to_cell6(double /*ignored: the stored lattice is used*/[3][3],
                                      double cell6[6]) {
  constexpr double pi = 3.141592653589793;
  double va[3], vb[3], vc[3];
  get_cif_lattice_vectors(va, vb, vc);
  const double la = get_magnitude(va), lb = get_magnitude(vb), lc = get_magnitude(vc);
  cell6[0] = la;
  cell6[1] = lb;
  cell6[2] = lc;
  cell6[3] = std::acos(get_dot(vb, vc) / (lb * lc)) * 180.0 / pi;
  cell6[4] = std::acos(get_dot(va, vc) / (la * lc)) * 180.0 / pi;
  cell6[5] = std::acos(get_dot(va, vb) / (la * lb)) * 180.0 / pi;
}

void FileIO::set_cell_lattice(const double abc[3], double alpha, double beta, double gamma) {
  cell_latt[0] = abc[0];
  cell_latt[1] = abc[1];
  cell_latt[2] = abc[2];
  cell_latt[3] = alpha;
  cell_latt[4] = beta;
  cell_latt[5] = gamma;
}

void FileIO::get_cif_lattice_vectors(double a[3], double b[3], double c[3]) const {
  for (int k = 0; k < 3; ++k) {
    a[k] = latt[k][0];
    b[k] = latt[k][1];
    c[k] = latt[k][2];
  }
}

// The three-reference form: x, y and z are updated from their values before the call.
static void mul3_in_place(const double m[3][3], double& px, double& py, double& pz) {
  double v[3] = {px, py, pz};
  lattice_product(m, v, v);
  px = v[0];
  py = v[1];
  pz = v[2];
}

void FileIO::coord_f2c(double& px, double& py, double& pz) const {
  mul3_in_place(latt, px, py, pz);
}

void FileIO::coord_f2c(const double in[3], double out[3]) const { lattice_product(latt, in, out); }

void FileIO::coord_c2f(double& px, double& py, double& pz) const {
  mul3_in_place(latt_inv, px, py, pz);
}

void FileIO::coord_c2f(const double in[3], double out[3]) const {
  lattice_product(latt_inv, in, out);
}

void FileIO::inverse_row_lengths(double row[3]) const {
  for (int k = 0; k < 3; ++k)
    row[k] = std::sqrt(latt_inv[k][0] * latt_inv[k][0] + latt_inv[k][1] * latt_inv[k][1] +
                       latt_inv[k][2] * latt_inv[k][2]);
}

void FileIO::PBC_scaled_x_wrap(double f[3]) {
  for (int k = 0; k < 3; ++k) {
    if (f[k] < 0.0)
      f[k] += 1.0;
    else if (f[k] >= 1.0)
      f[k] -= 1.0;
  }
}

void FileIO::PBC_scaled_disp_wrap(double d[3]) {
  for (int k = 0; k < 3; ++k) {
    if (d[k] > 0.5)
      d[k] -= 1.0;
    else if (d[k] < -0.5)
      d[k] += 1.0;
  }
}
