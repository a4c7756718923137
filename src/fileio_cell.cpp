// Cell geometry of the structure layer: cell parameters to the lattice matrix and back,
// fractional/Cartesian conversions and the two periodic wraps.
#include <cmath>

#include "fileio.h"
#include "util.h"

void FileIO::convert_cell6_to_latt3x3(const double cell6[6], double out[3][3]) {
  const double a = cell6[0], b = cell6[1], c = cell6[2];
  const double alpha = KAVRI_PI * cell6[3] / 180.0;
  const double beta = KAVRI_PI * cell6[4] / 180.0;
  const double gamma = KAVRI_PI * cell6[5] / 180.0;
  const double ca = std::cos(alpha), cb = std::cos(beta), cg = std::cos(gamma);
  const double sg = std::sin(gamma);

  out[0][0] = a;
  out[0][1] = b * cg;
  out[0][2] = c * cb;
  out[1][0] = 0.0;
  out[1][1] = b * sg;
  out[1][2] = c * (ca - cb * cg) / sg;
  out[2][0] = 0.0;
  out[2][1] = 0.0;
  out[2][2] = (c / sg) * std::sqrt(1.0 - ca * ca - cb * cb - cg * cg + 2.0 * ca * cb * cg);

  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) latt[i][j] = out[i][j];

  // L is upper triangular: its inverse follows by back substitution.
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) latt_inv[i][j] = 0.0;
  latt_inv[0][0] = 1.0 / latt[0][0];
  latt_inv[1][1] = 1.0 / latt[1][1];
  latt_inv[2][2] = 1.0 / latt[2][2];
  latt_inv[0][1] = -latt[0][1] / (latt[0][0] * latt[1][1]);
  latt_inv[1][2] = -latt[1][2] / (latt[1][1] * latt[2][2]);
  latt_inv[0][2] = (latt[0][1] * latt[1][2] / latt[1][1] - latt[0][2]) / (latt[0][0] * latt[2][2]);
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

static void mul3(const double m[3][3], const double in[3], double out[3]) {
  const double v0 = in[0], v1 = in[1], v2 = in[2];
  for (int k = 0; k < 3; ++k) out[k] = m[k][0] * v0 + m[k][1] * v1 + m[k][2] * v2;
}

// The three-reference form: x, y and z are updated from their values before the call.
static void mul3_in_place(const double m[3][3], double& px, double& py, double& pz) {
  double v[3] = {px, py, pz};
  mul3(m, v, v);
  px = v[0];
  py = v[1];
  pz = v[2];
}

void FileIO::coord_f2c(double& px, double& py, double& pz) const {
  mul3_in_place(latt, px, py, pz);
}

void FileIO::coord_f2c(const double in[3], double out[3]) const { mul3(latt, in, out); }

void FileIO::coord_c2f(double& px, double& py, double& pz) const {
  mul3_in_place(latt_inv, px, py, pz);
}

void FileIO::coord_c2f(const double in[3], double out[3]) const { mul3(latt_inv, in, out); }

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
