// Cell geometry, symmetry operations and the expansion to the full cell (space group P1).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <string>
#include <vector>

#include "fileio.h"
#include "p1_expansion.h"
#include "symmetry_operation.h"

namespace {

Lattice cubic_lattice(double a) {
  const double cell[6] = {a, a, a, 90.0, 90.0, 90.0};
  return Lattice::from_parameters(cell);
}

// Carbon atoms at the given fractional positions (Cartesian left zero, as a read leaves them
// for the fractional expansion).
AtomSites carbon_sites(const std::vector<double>& frac) {
  const size_t n = frac.size() / 3;
  return AtomSites{std::vector<int>(n, 6), std::vector<double>(n, 0.77), frac,
                   std::vector<double>(frac.size(), 0.0)};
}

}  // namespace

TEST(CellGeometry, LatticeUsesTruncatedPiAndBackSubstitutedInverse) {
  const Lattice cubic = cubic_lattice(5.0);
  // cos(90 degrees) with the truncated pi is tiny but not zero.
  EXPECT_NE(cubic.m[0][1], 0.0);
  EXPECT_NEAR(cubic.m[0][1], 5.0 * std::cos(3.1415926535898 / 2.0), 1e-30);
  EXPECT_EQ(cubic.m[1][0], 0.0);
  EXPECT_EQ(cubic.m[2][1], 0.0);

  // A monoclinic real cell (anthracene): the inverse is the exact back-substitution, not a
  // general inversion; the object stores that lattice and gives the parameters back from it.
  const double mono[6] = {9.3056, 5.9879, 8.4252, 90.0, 102.62, 90.0};
  const Lattice l = Lattice::from_parameters(mono);
  EXPECT_DOUBLE_EQ(l.inv[0][0], 1.0 / l.m[0][0]);
  EXPECT_EQ(l.inv[0][2], (l.m[0][1] * l.m[1][2] / l.m[1][1] - l.m[0][2]) / (l.m[0][0] * l.m[2][2]));
  FileIO io;
  double L[3][3];
  io.convert_cell6_to_latt3x3(mono, L);
  const Lattice stored = io.lattice();
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      EXPECT_EQ(L[i][j], l.m[i][j]);
      EXPECT_EQ(stored.inv[i][j], l.inv[i][j]);
    }
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
    const SymmetryOperation op = parse_symmetry_operation(c.text);
    for (int k = 0; k < 3; ++k) {
      EXPECT_EQ(op.R[k][k], c.diag[k]) << c.text;
      EXPECT_EQ(op.t[k], c.t[k]) << c.text;
    }
  }
  const SymmetryOperation swap = parse_symmetry_operation("y,-x,z");
  EXPECT_EQ(swap.R[0][1], 1.0);
  EXPECT_EQ(swap.R[1][0], -1.0);

  // The object's parser fills only what the text sets and shifts every t it is handed once:
  // entries set before the call stay, a failed number read gives 0 and ends the reading.
  FileIO io;
  double R[3][3] = {{7, 7, 7}, {7, 7, 7}, {7, 7, 7}};
  double t[3] = {7, 0.25, -0.25};
  io.ParseTransformString("-x,y", R, t);
  EXPECT_EQ(R[0][0], -1.0);
  EXPECT_EQ(R[0][1], 7.0);
  EXPECT_EQ(R[2][2], 7.0);
  EXPECT_EQ(t[0], 6.0);
  EXPECT_EQ(t[1], 0.25);
  EXPECT_EQ(t[2], 0.75);
  double S[3][3] = {{7, 7, 7}, {7, 7, 7}, {7, 7, 7}};
  double u[3] = {0.5, 0.5, 0.5};
  io.ParseTransformString("1 2 x 4", S, u);
  EXPECT_EQ(S[0][0], 1.0);
  EXPECT_EQ(S[0][1], 2.0);
  EXPECT_EQ(S[0][2], 0.0);
  EXPECT_EQ(u[0], 0.5);
  EXPECT_EQ(S[1][0], 7.0);
}

TEST(SymmetryExpansion, DuplicatesRemovedFirstSurvivesWithWarning) {
  // Atom 0 lies on the mirror plane y = 1/4 of the second operation; atom 1 does not.
  const AtomSites unit = carbon_sites({0.1, 0.25, 0.3, 0.2, 0.4, 0.6});
  for (auto expand : {expand_to_p1, expand_to_p1_reference}) {
    testing::internal::CaptureStdout();
    const AtomSites cell =
        expand(unit, {"x,y,z", "x,-y+1/2,z"}, cubic_lattice(10.0), 3, "m.cif", false);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "WARNING: Overlapped atoms detected and to be removed\n"
              "         Number of overlapped atoms is 1\n"
              "         Number of remaining atoms is 3\n");
    // Candidates are ordered operation by operation: atom 0, atom 1, then the image of atom 1.
    ASSERT_EQ(cell.types.size(), 3u);
    ASSERT_EQ(cell.frac.size(), 9u);
    EXPECT_EQ(cell.radius, std::vector<double>(3, 0.77));
    EXPECT_DOUBLE_EQ(cell.frac[3], 0.2);
    EXPECT_DOUBLE_EQ(cell.frac[7], 0.1);
    EXPECT_EQ(cell.frac[8], 0.6);
  }
}

// Two positions coincide when their minimum-image fractional distance is below 0.01 (squared
// 0.0001): a pair 1e-9 inside that tolerance is one atom, a pair 1e-9 outside is two, along an
// axis, on a diagonal and across a cell face, through both the grid and the pairwise scan.
TEST(SymmetryExpansion, DuplicateToleranceIsPinnedInsideAndOutside) {
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
    EXPECT_EQ(mark_overlaps(c.frac, fast, false), c.removed) << c.frac[3] << " " << c.frac[4];
    EXPECT_EQ(mark_overlaps_reference(c.frac, ref, false), c.removed);
    EXPECT_EQ(fast, ref);
    for (auto expand : {expand_to_p1, expand_to_p1_reference}) {
      testing::internal::CaptureStdout();
      const AtomSites cell =
          expand(carbon_sites(c.frac), {"x,y,z"}, cubic_lattice(10.0), 3, "t.cif", false);
      testing::internal::GetCapturedStdout();
      EXPECT_EQ(cell.types.size(), 2u - c.removed) << c.frac[3] << " " << c.frac[4];
    }
  }
}

// Operations on Cartesian positions (flag 0) are shifted into [0, 1) as they stand, then
// converted to fractional ones through the lattice; the debug flag prints each operation and
// each removed pair.
TEST(SymmetryExpansion, CartesianOperationsAndDebugReport) {
  AtomSites unit = carbon_sites({0, 0, 0});
  unit.cart = {2.5, 0.5, 0.75};
  testing::internal::CaptureStdout();
  const AtomSites cell =
      expand_to_p1(unit, {"x,y,z", "x,y,z"}, cubic_lattice(10.0), 0, "c.cif", true);
  const std::string out = testing::internal::GetCapturedStdout();
  ASSERT_EQ(cell.types.size(), 1u);
  EXPECT_EQ(cell.cart[0], 1.5);
  EXPECT_NEAR(cell.frac[0], 0.15, 1e-15);
  EXPECT_NEAR(cell.frac[2], 0.075, 1e-15);
  EXPECT_NE(out.find(">> operations: x,y,z\nmatrix:\n   1   0   0\n"), std::string::npos) << out;
  EXPECT_NE(out.find(" overlapped atoms:   0 0.1500 0.0500 0.0750  |    1 0.1500"),
            std::string::npos)
      << out;
}

// A cell of more than four million candidates is refused before anything is built.
TEST(SymmetryExpansionDeath, TooManyAtoms) {
  const AtomSites unit = carbon_sites(std::vector<double>(3 * 1000, 0.5));
  const std::vector<std::string> ops(4001, "x,y,z");
  const auto expand = [&] {
    dup2(STDERR_FILENO, STDOUT_FILENO);  // the message goes to standard output
    expand_to_p1(unit, ops, cubic_lattice(10.0), 3, "big.cif", false);
  };
  EXPECT_EXIT(expand(), testing::ExitedWithCode(255),
              "Too many atoms after symmetry expansion in big.cif: 1000 atoms x 4001 operations");
}

TEST(SymmetryExpansion, P1NameTestedBeforeOperationCount) {
  // P1 (any case, quoted) is left alone; 'P 1' is expanded; no operations empty the cell.
  const struct {
    const char* name;
    const char* ops;
    int natoms;
  } cases[] = {{"P1", "x,y,z\n-x,-y,-z\n", 1},
               {"p1", "-x,-y,-z\n", 1},
               {" \"P1\" ", "x,y,z\n-x,-y,-z\n", 1},
               {"'P 1'", "x,y,z\n-x,-y,-z\n", 2},
               {"P 21/c", "", 0}};
  for (const auto& c : cases) {
    const std::string text =
        std::string("_symmetry_space_group_name_H-M ") + c.name +
        "\n_cell_length_a 10\n_cell_length_b 10\n_cell_length_c 10\n_cell_angle_alpha 90\n"
        "_cell_angle_beta 90\n_cell_angle_gamma 90\nloop_\n_symmetry_equiv_pos_as_xyz\n" +
        c.ops +
        "\nloop_\n_atom_site_label\n_atom_site_type_symbol\n_atom_site_fract_x\n"
        "_atom_site_fract_y\n_atom_site_fract_z\nC1 C 0.1 0.2 0.3\n";
    FileIO io;
    io.read_data_cif_text(text, "p.cif", false);
    EXPECT_EQ(io.get_cif_natoms(), c.natoms) << c.name;
  }
}
