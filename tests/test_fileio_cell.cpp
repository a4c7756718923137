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

  // A monoclinic real cell (anthracene): the inverse is the exact back-substitution, not a
  // general inversion, and the cell parameters come back from the stored lattice.
  const double mono[6] = {9.3056, 5.9879, 8.4252, 90.0, 102.62, 90.0};
  io.convert_cell6_to_latt3x3(mono, L);
  EXPECT_DOUBLE_EQ(io.latt_inv[0][0], 1.0 / L[0][0]);
  EXPECT_EQ(io.latt_inv[0][2], (L[0][1] * L[1][2] / L[1][1] - L[0][2]) / (L[0][0] * L[2][2]));
  double cell[6];
  io.convert_latt3x3_to_cell6(L, cell);
  for (int k = 0; k < 6; ++k) EXPECT_NEAR(cell[k], mono[k], 1e-9);
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
  struct Case {
    const char* text;
    double diag[3];  // R11, R22, R33
    double t[3];
  };
  // Negative fractions shift into the cell; whole numbers lose their sign, then shift to 0;
  // blanks and underscores are ignored; twelve numbers without commas give rows and shifts.
  const Case cases[] = {
      {"-x+1/2,y+1/2,-z+1/2", {-1, 1, -1}, {0.5, 0.5, 0.5}},
      {"1/2+x, 1/2-y, -z", {1, -1, -1}, {0.5, 0.5, 0.0}},
      {"-x-1/2,y-1/4,z-1", {-1, 1, 1}, {0.5, 0.75, 0.0}},
      {"x+0.5,y_,-z", {1, 1, -1}, {0.5, 0.0, 0.0}},
      {"1 0 0 0.25 0 -1 0 0 0 0 1 -0.5", {1, -1, 1}, {0.25, 0.0, 0.5}},
      {"loop_", {0, 0, 0}, {0.0, 0.0, 0.0}},  // neither comma nor blank: left zero
  };
  for (const Case& c : cases) {
    double R[3][3], t[3];
    parse(io, c.text, R, t);
    for (int k = 0; k < 3; ++k) {
      EXPECT_EQ(R[k][k], c.diag[k]) << c.text;
      EXPECT_EQ(t[k], c.t[k]) << c.text;
    }
  }
  double R[3][3], t[3];
  parse(io, "y,-x,z", R, t);
  EXPECT_EQ(R[0][1], 1.0);
  EXPECT_EQ(R[1][0], -1.0);
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

}

// Two positions coincide when their minimum-image fractional distance is below 0.01: a pair
// 1e-9 inside that tolerance is one atom, a pair 1e-9 outside is two, along an axis, on a
// diagonal and across a cell face, through both the grid and the pairwise scan.
TEST(SymmetryExpansion, DuplicateToleranceIsPinnedInsideAndOutside) {
  CellProbe io;
  const double e = 1e-9, r = 0.01 / std::sqrt(2.0);
  const struct {
    std::vector<double> frac;
    int removed;
  } cases[] = {{{0.5, 0.5, 0.5, 0.51 - e, 0.5, 0.5}, 1},
               {{0.5, 0.5, 0.5, 0.51 + e, 0.5, 0.5}, 0},
               {{0.2, 0.3, 0.4, 0.2, 0.3 + r - e, 0.4 + r - e}, 1},
               {{0.2, 0.3, 0.4, 0.2, 0.3 + r + e, 0.4 + r + e}, 0},
               {{0.003, 0.5, 0.5, 0.993 + e, 0.5, 0.5}, 1},
               {{0.003, 0.5, 0.5, 0.993 - e, 0.5, 0.5}, 0}};
  for (const auto& c : cases) {
    std::vector<char> fast, ref;
    EXPECT_EQ(io.mark_overlapped_atoms(c.frac, fast), c.removed) << c.frac[3] << " " << c.frac[4];
    EXPECT_EQ(io.mark_overlapped_atoms_reference(c.frac, ref), c.removed);
    EXPECT_EQ(fast, ref);
  }
}

TEST(SymmetryExpansion, P1NameTestedBeforeOperationCount) {
  // P1 (any case, quoted) is left alone; 'P 1' is expanded; no operations empty the cell.
  const struct {
    const char* name;
    std::vector<std::string> ops;
    int natoms;
  } cases[] = {{"P1", {"x,y,z", "-x,-y,-z"}, 1},   {"p1", {"-x,-y,-z"}, 1},
               {" \"P1\" ", {"x,y,z", "-x,-y,-z"}, 1}, {"'P 1'", {"x,y,z", "-x,-y,-z"}, 2},
               {"P 21/c", {}, 0}};
  for (const auto& c : cases) {
    CellProbe io;
    io.set_atoms({0.1, 0.2, 0.3});
    io.symm_ops = c.ops;
    io.spacegroup_name = c.name;
    io.make_spacegroup_P1(3);
    EXPECT_EQ(io.natoms_cif, c.natoms) << c.name;
  }
}
