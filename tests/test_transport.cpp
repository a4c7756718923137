// The transport model: molecular data preparation and the neighbour list, on hand-made cells
// whose neighbours can be counted by hand and on a real crystal.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "pr_siteenergy.h"
#include "util.h"

namespace {

class Model : public SiteEnergy {
 public:
  using FileIO::latt;
  using FileIO::struct_source;
  using KavriInp::chargetype;
  using KavriInp::homo_adjustment;
  using KavriInp::lattice_cutoff;
  using KavriInp::neighbor_scell;
  using KavriInp::qc_basis;
  using KavriInp::qc_basis_re;
  using KavriInp::reorg_outer_code;
  using KavriInp::use_moo;
  using Transport::print_cell_matrix;

  // An orthorhombic cell a x b x c holding the given molecules (element, fractional x, y, z).
  Model(double a, double b, double c) {
    const double cell[6] = {a, b, c, 90.0, 90.0, 90.0};
    double L[3][3];
    convert_cell6_to_latt3x3(cell, L);
  }
  void add_molecule(const std::vector<int>& types, const std::vector<double>& frac) {
    ++nmols;
    mol_natoms.push_back(static_cast<int>(types.size()));
    mol_atypes.push_back(types);
    mol_x_s.push_back(frac);
    mol_x.push_back(std::vector<double>(frac.size(), 0.0));
  }
  void prepare(bool verbose = false) { post_data_read_treatment(verbose); }
};

// Neighbour list of molecule i as (j, a, b, c) tuples in list order.
std::vector<std::vector<int>> neighbours(const Model& m, int i) {
  std::vector<std::vector<int>> v;
  for (int k = 0; k < m.get_nei_count(i); ++k) {
    int s[3];
    m.get_nei_shift(i, k, s);
    v.push_back({m.get_nei_mol(i, k), s[0], s[1], s[2]});
  }
  return v;
}

}  // namespace

TEST(MolecularData, ChargeTypeMassesCentresAndHomo) {
  Model m(10, 10, 10);
  m.chargetype = "E";
  // C2H: 13 electrons, HOMO index 6 (the remainder is dropped).
  m.add_molecule({6, 6, 1}, {0.1, 0.1, 0.1, 0.2, 0.1, 0.1, 0.3, 0.4, 0.1});
  m.add_molecule({8}, {0.5, 0.5, 0.5});
  m.prepare();
  EXPECT_EQ(m.get_charge_type(), 'e');
  EXPECT_EQ(m.get_natoms_total(), 4);
  EXPECT_DOUBLE_EQ(m.get_mol_mass()[0], 12.011 + 12.011 + 1.00794);
  const double M = 12.011 + 12.011 + 1.00794;
  EXPECT_EQ(m.get_x_com()[0], (12.011 * 0.1 + 12.011 * 0.2 + 1.00794 * 0.3) / M);
  EXPECT_NEAR(m.get_x_com_cart()[3], 5.0, 1e-12);
  EXPECT_EQ(m.get_homo(), (std::vector<int>{6, 4}));
  EXPECT_EQ(m.get_qc_out_ext(), "log");
  EXPECT_TRUE(m.is_data_ready());

  // Semi-empirical counting: carbon gives 4 valence electrons, hydrogen 1, chlorine 7,
  // germanium (heavier than argon) all 32.
  Model z(10, 10, 10);
  z.qc_basis = "ZINDOS";
  z.use_moo = true;
  z.add_molecule({6, 1, 17, 32}, {0.1, 0.1, 0.1, 0.2, 0.1, 0.1, 0.3, 0.1, 0.1, 0.4, 0.1, 0.1});
  z.prepare();
  EXPECT_EQ(z.get_homo()[0], (4 + 1 + 7 + 32) / 2);

  // An empty cell is ready too.
  Model empty(10, 10, 10);
  empty.prepare();
  EXPECT_EQ(empty.get_natoms_total(), 0);
  EXPECT_TRUE(empty.get_homo().empty());
}

TEST(MolecularData, BasisAdjustmentsPrinted) {
  Model m(10, 10, 10);
  m.qc_basis_re = "zindos";
  m.add_molecule({1}, {0.5, 0.5, 0.5});
  testing::internal::CaptureStdout();
  m.prepare(true);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\nINFO: QC_basis_re is adjusted to 'b3lyp STO-3g'\n\n");
  EXPECT_EQ(m.qc_basis_re, "b3lyp STO-3g");

}

TEST(MolecularDataDeath, SettingsThatDoNotFitTheCell) {
  auto run = [](void (*setup)(Model&)) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    Model m(10, 10, 10);
    m.add_molecule({1}, {0.5, 0.5, 0.5});
    m.add_molecule({1}, {0.1, 0.5, 0.5});
    setup(m);
    m.prepare();
  };
  EXPECT_EXIT(run([](Model& m) { m.homo_adjustment = {1}; }), testing::ExitedWithCode(1),
              "\nERROR  transport : transport : line 9986 : \nhomo_adjustment: Number of input "
              "parameters \\(1\\) is NOT equal to nmols_uc \\(2\\)\n");
  EXPECT_EXIT(run([](Model& m) { m.reorg_outer_code = 2; }), testing::ExitedWithCode(1),
              "line 9944 : \nreorg_outer: Number of radiuses \\(0\\) is LESS than number of "
              "molecules \\(2\\)");
}

TEST(NeighborList, ImagesCutOffAndOrdering) {
  // One atom per cell along a short a axis: with a search range of 0 nothing is found; with
  // 1 the molecule's own images at -a and +a are its neighbours.
  Model one(3.5, 10, 10);
  one.add_molecule({6}, {0.5, 0.5, 0.5});
  one.prepare();
  one.neighbor_scell[0] = one.neighbor_scell[1] = one.neighbor_scell[2] = 0;
  one.build_neighbor_list(false, false);
  EXPECT_EQ(one.get_nei_count(0), 0);

  Model self(3.5, 10, 10);
  self.add_molecule({6}, {0.5, 0.5, 0.5});
  self.prepare();
  self.neighbor_scell[0] = self.neighbor_scell[1] = self.neighbor_scell[2] = 1;
  self.build_neighbor_list(false, false);
  ASSERT_EQ(self.get_nei_count(0), 2);
  EXPECT_EQ(self.get_nei_disp(0)[0] * self.get_nei_disp(0)[3], -1.0);

  // Two atoms exactly at the cut-off distance are not neighbours (strict test).
  Model strict(4.0, 20, 20);
  strict.add_molecule({6}, {0.5, 0.5, 0.5});
  strict.prepare();
  strict.neighbor_scell[0] = 1;
  strict.neighbor_scell[1] = strict.neighbor_scell[2] = 0;
  strict.build_neighbor_list(false, false);
  EXPECT_EQ(strict.get_nei_count(0), 0);

  // Ordered by centre-of-mass distance, not by closest contact: molecule 1 is a long rod whose
  // end touches molecule 0 (contact 1 A) while its centre is 3 A away; molecule 2 is a single
  // atom 2.5 A away.
  Model order(30, 30, 30);
  order.add_molecule({6}, {0.5, 0.5, 0.5});
  order.add_molecule({6, 6, 6, 6, 6}, {0.5, 0.5 + 1.0 / 30, 0.5, 0.5, 0.5 + 2.0 / 30, 0.5,
                                       0.5, 0.5 + 3.0 / 30, 0.5, 0.5, 0.5 + 4.0 / 30, 0.5,
                                       0.5, 0.5 + 5.0 / 30, 0.5});
  order.add_molecule({6}, {0.5 + 2.5 / 30, 0.5, 0.5});
  order.prepare();
  order.neighbor_scell[0] = order.neighbor_scell[1] = order.neighbor_scell[2] = 1;
  testing::internal::CaptureStdout();
  order.build_neighbor_list(false, true);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\n**** KAVRI Build Neighbor List ****\n"
            "  Neighbor rcutoff distance: 4\n"
            "  Neighbor search cell (-/+): 1 1 1\n"
            "**** End of KAVRI Build Neighbor List ****\n\n");
  EXPECT_EQ(neighbours(order, 0), (std::vector<std::vector<int>>{{2, 0, 0, 0}, {1, 0, 0, 0}}));
  EXPECT_NEAR(order.get_nei_com(0)[0], 17.5, 1e-12);
  EXPECT_NEAR(order.get_nei_disp(0)[0], 2.5 / 30, 1e-15);
}

TEST(NeighborListDeath, CapacityReachedAndNeighborFile) {
  // A dense cell: the 300th candidate already ends the run.
  EXPECT_EXIT(
      {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        Model dense(1.0, 1.0, 1.0);
        dense.add_molecule({6}, {0.5, 0.5, 0.5});
        dense.prepare();
        dense.lattice_cutoff = 10.0;
        dense.build_neighbor_list(false, false);
      },
      testing::ExitedWithCode(1),
      "line 3658 : \nNeed to boost NNEIMAX \\(NumNeigh=300\\)\n");

  char dir[] = "/tmp/kavri-nei-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  auto read_file = [&](const std::string& text) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    if (chdir(dir) != 0) std::exit(99);
    std::ofstream("neighbor.dat") << text;
    Model m(10, 10, 10);
    m.add_molecule({6}, {0.5, 0.5, 0.5});
    m.prepare();
    m.build_neighbor_list(true, false);
    std::exit(m.get_nei_count(0) == 1 && m.get_nei_mol(0, 0) == 0 ? 42 : 43);
  };
  EXPECT_EXIT(read_file("1\nh\nh\nmol 1\n1\n 1 0 0 0 0 -1 0 2\n"), testing::ExitedWithCode(42),
              "Reading file 'neighbor.dat'");
  EXPECT_EXIT(read_file("2\n"), testing::ExitedWithCode(1),
              "line 3560 : \nReadin nmols \\(2\\) in neighbor.dat not equal to nmols \\(1\\) in "
              "unitcell!");
  EXPECT_EXIT(read_file("1\nh\nh\nmol 1\n1\n 1 0 0 0 0 -1 0\n"), testing::ExitedWithCode(1),
              "line 3587 : \nncol \\(7\\) in neighbor.dat not equal to 8!");
  EXPECT_EXIT(read_file("1\nh\nh\nmol 1\n1\n 1 0 0 0 0 -1 0 x\n"), testing::ExitedWithCode(1),
              "neighbor.dat");
  EXPECT_EXIT(read_file("1\nh\nh\nmol 1\n2147483647\n"), testing::ExitedWithCode(1),
              "ncol \\(0\\)");
}

TEST(NeighborList, RealCrystalCountsAndSymmetricPairs) {
  Model m(1, 1, 1);
  testing::internal::CaptureStdout();
  m.read_data_cif((std::string(KAVRI_TEST_DATA) + "/crystals/anthracene.cif").c_str(), false);
  m.struct_source = 2;
  m.read_crystal_strcuture_files(false, false);
  m.prepare();
  m.build_neighbor_list(false, false);
  testing::internal::GetCapturedStdout();
  ASSERT_EQ(m.get_nmols_uc(), 2);
  EXPECT_EQ(m.get_nei_count(0), 14);
  EXPECT_EQ(m.get_nei_count(1), 14);
  // Every pair appears once in the list of each molecule, with the opposite shift.
  for (int i = 0; i < 2; ++i)
    for (int k = 0; k < m.get_nei_count(i); ++k) {
      int s[3];
      m.get_nei_shift(i, k, s);
      const int j = m.get_nei_mol(i, k);
      int found = 0;
      for (int q = 0; q < m.get_nei_count(j); ++q) {
        int t[3];
        m.get_nei_shift(j, q, t);
        if (m.get_nei_mol(j, q) == i && t[0] == -s[0] && t[1] == -s[1] && t[2] == -s[2]) ++found;
      }
      EXPECT_EQ(found, 1);
    }
}
