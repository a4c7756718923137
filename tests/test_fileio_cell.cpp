// Cell geometry, symmetry operations and the P1 expansion of the structure layer.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "fileio.h"
#include "util.h"

namespace {

// Opens the protected structure state to the tests.
class CellProbe : public FileIO {
 public:
  using FileIO::atypes;
  using FileIO::latt;
  using FileIO::latt_inv;
  using FileIO::natoms_cif;
  using FileIO::radius;
  using FileIO::spacegroup_name;
  using FileIO::symm_ops;
  using FileIO::x;
  using FileIO::x_s;

  void set_atoms(const std::vector<double>& frac) {
    natoms_cif = static_cast<int>(frac.size() / 3);
    x_s = frac;
    x.assign(frac.size(), 0.0);
    atypes.assign(natoms_cif, 6);
    radius.assign(natoms_cif, 0.77);
  }
};

void parse(const FileIO& io, const std::string& op, double R[3][3], double t[3]) {
  for (int i = 0; i < 3; ++i) {
    t[i] = 0.0;
    for (int j = 0; j < 3; ++j) R[i][j] = 0.0;
  }
  io.ParseTransformString(op, R, t);
}

}  // namespace

TEST(CellGeometry, LatticeUsesTruncatedPiAndBackSubstitutedInverse) {
  CellProbe io;
  const double cubic[6] = {5.0, 5.0, 5.0, 90.0, 90.0, 90.0};
  double L[3][3];
  io.convert_cell6_to_latt3x3(cubic, L);
  // cos(90 degrees) with the truncated pi is tiny but not zero.
  EXPECT_NE(L[0][1], 0.0);
  EXPECT_NEAR(L[0][1], 5.0 * std::cos(3.1415926535898 / 2.0), 1e-30);
  EXPECT_EQ(L[1][0], 0.0);
  EXPECT_EQ(L[2][1], 0.0);

  // A monoclinic real cell (anthracene): L * L^-1 = I, and the inverse is the exact
  // back-substitution, not a general inversion.
  const double mono[6] = {9.3056, 5.9879, 8.4252, 90.0, 102.62, 90.0};
  io.convert_cell6_to_latt3x3(mono, L);
  EXPECT_DOUBLE_EQ(io.latt_inv[0][0], 1.0 / L[0][0]);
  EXPECT_EQ(io.latt_inv[0][2], (L[0][1] * L[1][2] / L[1][1] - L[0][2]) / (L[0][0] * L[2][2]));
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      double s = 0.0;
      for (int k = 0; k < 3; ++k) s += L[i][k] * io.latt_inv[k][j];
      EXPECT_NEAR(s, i == j ? 1.0 : 0.0, 1e-14);
    }
  double cell[6];
  io.convert_latt3x3_to_cell6(L, cell);
  for (int k = 0; k < 6; ++k) EXPECT_NEAR(cell[k], mono[k], 1e-9);

  // Coordinate round trip and the three-reference form.
  double px = 0.25, py = -0.5, pz = 1.5;
  io.coord_f2c(px, py, pz);
  io.coord_c2f(px, py, pz);
  EXPECT_NEAR(px, 0.25, 1e-14);
  EXPECT_NEAR(py, -0.5, 1e-14);
  EXPECT_NEAR(pz, 1.5, 1e-14);
}

TEST(CellGeometry, PeriodicWrapsMoveByOneCellOnly) {
  double f[3] = {1.0, -1.3, -1e-17};
  FileIO::PBC_scaled_x_wrap(f);
  EXPECT_EQ(f[0], 0.0);
  EXPECT_NEAR(f[1], -0.3, 1e-15);
  EXPECT_EQ(f[2], 1.0);  // 1 - 1e-17 rounds to 1 and stays there
  double d[3] = {0.5, 0.5000001, -0.75};
  FileIO::PBC_scaled_disp_wrap(d);
  EXPECT_EQ(d[0], 0.5);
  EXPECT_NEAR(d[1], -0.4999999, 1e-15);
  EXPECT_EQ(d[2], 0.25);
}

TEST(SymmetryOperations, ParseTextsIntoRotationAndTranslation) {
  FileIO io;
  double R[3][3], t[3];
  parse(io, "-x+1/2,y+1/2,-z+1/2", R, t);
  EXPECT_EQ(R[0][0], -1.0);
  EXPECT_EQ(R[1][1], 1.0);
  EXPECT_EQ(R[2][2], -1.0);
  EXPECT_EQ(R[0][1], 0.0);
  for (double v : t) EXPECT_EQ(v, 0.5);

  parse(io, "1/2+x, 1/2-y, -z", R, t);
  EXPECT_EQ(R[1][1], -1.0);
  EXPECT_EQ(t[0], 0.5);
  EXPECT_EQ(t[1], 0.5);
  EXPECT_EQ(t[2], 0.0);

  // Negative fractions shift into the cell; whole numbers lose their sign, then shift to 0.
  parse(io, "-x-1/2,x-1/4,z-1", R, t);
  EXPECT_EQ(t[0], 0.5);
  EXPECT_EQ(t[1], 0.75);
  EXPECT_EQ(t[2], 0.0);
  EXPECT_EQ(R[1][0], 1.0);

  parse(io, "y+0.5,-x,z_", R, t);
  EXPECT_EQ(R[0][1], 1.0);
  EXPECT_EQ(R[1][0], -1.0);
  EXPECT_EQ(t[0], 0.5);

  // Without commas: twelve numbers, a row and its translation three times.
  parse(io, "0 1 0 0.25 -1 0 0 0 0 0 1 -0.5", R, t);
  EXPECT_EQ(R[0][1], 1.0);
  EXPECT_EQ(R[1][0], -1.0);
  EXPECT_EQ(t[0], 0.25);
  EXPECT_EQ(t[2], 0.5);

  // A text without comma or blank leaves everything zero.
  parse(io, "loop_", R, t);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(t[i], 0.0);
    for (int j = 0; j < 3; ++j) EXPECT_EQ(R[i][j], 0.0);
  }
}

TEST(SymmetryExpansion, DuplicatesRemovedFirstSurvivesWithWarning) {
  CellProbe io;
  const double cell[6] = {10.0, 10.0, 10.0, 90.0, 90.0, 90.0};
  double L[3][3];
  io.convert_cell6_to_latt3x3(cell, L);
  // Atom 0 lies on the mirror plane y = 1/4 of the second operation; atom 1 does not.
  io.set_atoms({0.1, 0.25, 0.3, 0.2, 0.4, 0.6});
  io.symm_ops = {"x,y,z", "x,-y+1/2,z"};
  io.spacegroup_name = "'P m'";
  testing::internal::CaptureStdout();
  io.make_spacegroup_P1(3);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out,
            "WARNING: Overlapped atoms detected and to be removed\n"
            "         Number of overlapped atoms is 1\n"
            "         Number of remaining atoms is 3\n");
  ASSERT_EQ(io.natoms_cif, 3);
  EXPECT_EQ(io.spacegroup_name, "P m");
  // Candidates are ordered operation by operation: atom 0, atom 1, then the image of atom 1.
  EXPECT_DOUBLE_EQ(io.x_s[3], 0.2);
  EXPECT_DOUBLE_EQ(io.x_s[7], 0.1);

  // Positions 0.0001 and 0.9999 coincide across the cell face.
  CellProbe edge;
  edge.convert_cell6_to_latt3x3(cell, L);
  edge.set_atoms({0.0001, 0.5, 0.5, 0.9999, 0.5, 0.5});
  edge.symm_ops = {"x,y,z"};
  edge.spacegroup_name = "C1";
  testing::internal::CaptureStdout();
  edge.make_spacegroup_P1(3);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(edge.natoms_cif, 1);
}

TEST(SymmetryExpansion, P1NameTestedBeforeOperationCount) {
  for (const char* name : {"P1", "p1", "'P1'", " \"P1\" "}) {
    CellProbe io;
    io.set_atoms({0.1, 0.2, 0.3});
    io.symm_ops = {"x,y,z", "-x,-y,-z"};
    io.spacegroup_name = name;
    io.make_spacegroup_P1(3);
    EXPECT_EQ(io.natoms_cif, 1) << name;
  }
  // 'P 1' is not P1: its listed operations are applied.
  CellProbe spaced;
  spaced.set_atoms({0.1, 0.2, 0.3});
  spaced.symm_ops = {"x,y,z", "-x,-y,-z"};
  spaced.spacegroup_name = "'P 1'";
  spaced.make_spacegroup_P1(3);
  EXPECT_EQ(spaced.natoms_cif, 2);
  EXPECT_DOUBLE_EQ(spaced.x_s[3], 0.9);
  // No operations and a name other than P1: the cell ends up empty.
  CellProbe none;
  none.set_atoms({0.1, 0.2, 0.3});
  none.spacegroup_name = "P 21/c";
  none.make_spacegroup_P1(3);
  EXPECT_EQ(none.natoms_cif, 0);
  EXPECT_TRUE(none.x_s.empty());
}
