// The transport model's stages on hand-made molecules whose numbers can be checked by hand
// (molecular data, neighbour list, "neighbor.dat", energy tables and site-energy text), and
// the model object that calls them, driven through its input file on a real crystal.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "energy_table.h"
#include "molecular_data.h"
#include "neighbor_file.h"
#include "neighbor_search.h"
#include "test_support.h"
#include "pr_siteenergy.h"
#include "site_energy_write.h"
#include "util.h"

namespace {

using test_support::Molecules;


Lattice box(double a, double b, double c) {
  const double p[6] = {a, b, c, 90.0, 90.0, 90.0};
  return Lattice::from_parameters(p);
}

// The neighbour list of the molecules by the fast search, after checking that the reference
// gives the same list to the bit.
NeighborList neighbours(const Molecules& m, const Lattice& l, double cutoff, int range) {
  const MolecularCentres c = molecular_centres(m.view(), l);
  const NeighborSearch s{m.view(), c.centre, l, cutoff * cutoff, {range, range, range}};
  const NeighborList fast = search_neighbor_list(s), ref = search_neighbor_list_reference(s);
  EXPECT_EQ(fast.of.size(), ref.of.size());
  for (size_t i = 0; i < fast.of.size() && i < ref.of.size(); ++i) {
    EXPECT_EQ(fast.of[i].size(), ref.of[i].size()) << "molecule " << i;
    for (size_t k = 0; k < fast.of[i].size() && k < ref.of[i].size(); ++k) {
      const NeighborImage &x = fast.of[i][k], &y = ref.of[i][k];
      EXPECT_EQ(x.mol, y.mol);
      for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(x.shift[c], y.shift[c]);
        EXPECT_EQ(x.disp[c], y.disp[c]);
        EXPECT_EQ(x.centre[c], y.centre[c]);
      }
    }
  }
  return fast;
}

// (j, a, b, c) of every image of molecule i in list order.
std::vector<std::vector<int>> images(const NeighborList& list, int i) {
  std::vector<std::vector<int>> v;
  for (const NeighborImage& im : list.of[i])
    v.push_back({im.mol, im.shift[0], im.shift[1], im.shift[2]});
  return v;
}

// A model loaded through an input file naming a crystal of the test data.
void load(SiteEnergy& m, const std::string& crystal, const std::string& keys) {
  const std::string inp = "&transport\n  crystal = " + std::string(KAVRI_TEST_DATA) + "/crystals/" +
                          crystal + "\n" + keys + "/\n";
  testing::internal::CaptureStdout();
  m.read_kavri_inp_text(inp, "kavri.inp", false);
  m.read_crystal_strcuture_files(false, false);
  testing::internal::GetCapturedStdout();
}

}  // namespace

TEST(MolecularData, MassesCentresAndHomo) {
  Molecules m;
  // C2H: 13 electrons, HOMO index 6 (the remainder is dropped).
  m.add({6, 6, 1}, {0.1, 0.1, 0.1, 0.2, 0.1, 0.1, 0.3, 0.4, 0.1});
  m.add({8}, {0.5, 0.5, 0.5});
  // An unknown element counts as the dummy atom: no electrons, the dummy's mass.
  m.add({-1, 6}, {0.5, 0.5, 0.5, 0.6, 0.5, 0.5});
  m.add({0, 6}, {0.5, 0.5, 0.5, 0.6, 0.5, 0.5});
  const MolecularCentres c = molecular_centres(m.view(), box(10, 10, 20));
  const double M = 12.011 + 12.011 + 1.00794;
  EXPECT_DOUBLE_EQ(c.mass[0], M);
  EXPECT_EQ(c.centre[0][0], (12.011 * 0.1 + 12.011 * 0.2 + 1.00794 * 0.3) / M);
  EXPECT_EQ(c.centre[1][2], 0.5);
  EXPECT_NEAR(c.centre_cart[1][2], 10.0, 1e-12);
  EXPECT_EQ(c.mass[2], c.mass[3]);
  EXPECT_EQ(c.centre[2][0], c.centre[3][0]);
  EXPECT_EQ(homo_indices(m.view(), false), (std::vector<int>{6, 4, 3, 3}));

  // Valence electrons only: carbon 4, hydrogen 1, chlorine 7, germanium (heavier than argon)
  // all 32.
  Molecules z;
  z.add({6, 1, 17, 32}, {0.1, 0.1, 0.1, 0.2, 0.1, 0.1, 0.3, 0.1, 0.1, 0.4, 0.1, 0.1});
  EXPECT_EQ(homo_indices(z.view(), true), std::vector<int>{(4 + 1 + 7 + 32) / 2});

  const Molecules empty;
  EXPECT_TRUE(molecular_centres(empty.view(), box(10, 10, 10)).mass.empty());
  EXPECT_TRUE(homo_indices(empty.view(), true).empty());
}

// The model's preparation on anthracene (two C14H10 per cell): charge type, counts, the
// molecular-data stage's values, the basis adjustment and its message.
TEST(MolecularData, TheModelPreparesItsInput) {
  SiteEnergy m;
  load(m, "anthracene.cif", "  chargetype = E\n  qc_basis_re = zindos\n");
  testing::internal::CaptureStdout();
  m.post_data_read_treatment(true);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\nINFO: QC_basis_re is adjusted to 'b3lyp STO-3g'\n\n");
  EXPECT_EQ(m.get_charge_type(), 'e');
  ASSERT_EQ(m.get_nmols_uc(), 2);
  EXPECT_EQ(m.get_natoms_total(), 48);
  EXPECT_EQ(m.get_homo(), (std::vector<int>{47, 47}));
  EXPECT_EQ(m.get_qc_out_ext(), "log");
  EXPECT_TRUE(m.is_data_ready());
  EXPECT_NEAR(m.get_mol_mass()[0], 14 * 12.011 + 10 * 1.00794, 1e-9);
  const MolecularCentres c = molecular_centres(m.cell_molecules(), m.lattice());
  EXPECT_EQ(m.get_mol_mass(), c.mass);
  for (int i = 0; i < 2; ++i)
    for (int k = 0; k < 3; ++k) {
      EXPECT_EQ(m.get_x_com()[3 * i + k], c.centre[i][k]);
      EXPECT_EQ(m.get_x_com_cart()[3 * i + k], c.centre_cart[i][k]);
    }

  // A semi-empirical basis with the switch on counts valence electrons: (14 * 4 + 10) / 2.
  SiteEnergy z;
  load(z, "anthracene.cif", "  qc_basis = ZINDOS\n  use_moo = 1\n");
  z.post_data_read_treatment(false);
  EXPECT_EQ(z.get_homo(), (std::vector<int>{33, 33}));
}

TEST(MolecularDataDeath, AdjustmentListsThatDoNotFitTheCell) {
  auto run = [](const char* keys) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    SiteEnergy m;
    load(m, "anthracene.cif", keys);
    m.post_data_read_treatment(false);
  };
  EXPECT_EXIT(run("  homo_adjustment = 1\n"), testing::ExitedWithCode(1),
              "\nERROR  transport : transport : line 9986 : \nhomo_adjustment: Number of input "
              "parameters \\(1\\) is NOT equal to nmols_uc \\(2\\)\n");
  EXPECT_EXIT(run("  lumo_adjustment = 1 2 3\n"), testing::ExitedWithCode(1),
              "line 9997 : \nlumo_adjustment: Number of input parameters \\(3\\) is NOT equal "
              "to nmols_uc \\(2\\)\n");
}

TEST(NeighborSearch, ImagesCutOffAndOrdering) {
  // One atom per cell along a short a axis: with a search range of 0 nothing is found; with
  // 1 the molecule's own images at -a and +a are its neighbours.
  Molecules one;
  one.add({6}, {0.5, 0.5, 0.5});
  EXPECT_TRUE(neighbours(one, box(3.5, 10, 10), 4.0, 0).of[0].empty());
  const NeighborList self = neighbours(one, box(3.5, 10, 10), 4.0, 1);
  EXPECT_EQ(images(self, 0), (std::vector<std::vector<int>>{{0, 1, 0, 0}, {0, -1, 0, 0}}));
  EXPECT_EQ(self.of[0][0].disp[0], 1.0);
  EXPECT_NEAR(self.of[0][1].centre[0], -0.5 * 3.5, 1e-12);

  // Two atoms exactly at the cut-off distance are not neighbours (strict test).
  EXPECT_TRUE(neighbours(one, box(4.0, 20, 20), 4.0, 1).of[0].empty());

  // Ordered by centre-of-mass distance, not by closest contact: molecule 1 is a long rod whose
  // end touches molecule 0 (contact 1 A) while its centre is 3 A away; molecule 2 is a single
  // atom 2.5 A away.
  Molecules order;
  order.add({6}, {0.5, 0.5, 0.5});
  std::vector<double> rod;
  for (int k = 1; k <= 5; ++k) rod.insert(rod.end(), {0.5, 0.5 + k / 30.0, 0.5});
  order.add({6, 6, 6, 6, 6}, rod);
  order.add({6}, {0.5 + 2.5 / 30, 0.5, 0.5});
  const NeighborList list = neighbours(order, box(30, 30, 30), 4.0, 1);
  EXPECT_EQ(images(list, 0), (std::vector<std::vector<int>>{{2, 0, 0, 0}, {1, 0, 0, 0}}));
  EXPECT_NEAR(list.of[0][0].centre[0], 17.5, 1e-12);
  EXPECT_NEAR(list.of[0][0].disp[0], 2.5 / 30, 1e-15);
}

TEST(NeighborSearchDeath, TheCapacityIsReachedAtThe300thImage) {
  Molecules dense;
  dense.add({6}, {0.5, 0.5, 0.5});
  const std::vector<Fractional> centres{Fractional(0.5, 0.5, 0.5)};
  // 5^3 - 1 = 124 images fit; 7^3 - 1 = 342 do not, in either search.
  const NeighborSearch fits{dense.view(), centres, box(1, 1, 1), 100.0, {2, 2, 2}};
  EXPECT_EQ(search_neighbor_list(fits).of[0].size(), 124u);
  for (auto search : {search_neighbor_list, search_neighbor_list_reference})
    EXPECT_EXIT(
        {
          dup2(STDERR_FILENO, STDOUT_FILENO);
          search(NeighborSearch{dense.view(), centres, box(1, 1, 1), 100.0, {3, 3, 3}});
        },
        testing::ExitedWithCode(1), "line 3658 : \nNeed to boost NNEIMAX \\(NumNeigh=300\\)\n");
}

TEST(NeighborFile, ListInFileOrderAndItsErrors) {
  const NeighborList list =
      read_neighbor_text("2\nh\nh\nmol 1\n2\n 2 0 0 0 0 -1 0 2\n1\t9 9 9 9 1 1 1\nmol 2\n0\n", 2);
  EXPECT_EQ(images(list, 0), (std::vector<std::vector<int>>{{1, -1, 0, 2}, {0, 1, 1, 1}}));
  EXPECT_TRUE(list.of[1].empty());
  // A line longer than the 255 characters of one read continues as the next line.
  const std::string long_line = "1 " + std::string(300, ' ') + "0 0 0 0 0 0 1\n";
  EXPECT_EXIT(
      {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        read_neighbor_text("1\nh\nh\nm\n1\n" + long_line, 1);
      },
      testing::ExitedWithCode(1), "line 3587 : \nncol \\(1\\) in neighbor.dat not equal to 8!");

  auto read = [](const char* text, int nmols) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    read_neighbor_text(text, nmols);
  };
  EXPECT_EXIT(read("2\n", 1), testing::ExitedWithCode(1),
              "line 3560 : \nReadin nmols \\(2\\) in neighbor.dat not equal to nmols \\(1\\) in "
              "unitcell!");
  EXPECT_EXIT(read("1\nh\nh\nm\n1\n 1 0 0 0 0 -1 0\n", 1), testing::ExitedWithCode(1),
              "line 3587 : \nncol \\(7\\) in neighbor.dat not equal to 8!");
  EXPECT_EXIT(read("1\nh\nh\nm\n1\n 1 0 0 0 0 -1 0 x\n", 1), testing::ExitedWithCode(1),
              "line 3590 : \nInvalid integer column 'x' in neighbor.dat!");
  EXPECT_EXIT(read("1\nh\nh\nm\n1\n 2 0 0 0 0 -1 0 0\n", 1), testing::ExitedWithCode(1),
              "line 3592 : \nNeighbor molecule 2 in neighbor.dat is not in 1..1!");
  // A count beyond the lines present reads empty lines: no columns.
  EXPECT_EXIT(read("1\nh\nh\nm\n2147483647\n", 1), testing::ExitedWithCode(1), "ncol \\(0\\)");
}

// The model in reading mode: the file of the working directory, its images placed from the
// centres of mass; and the message of a missing file.
TEST(NeighborFile, TheModelReadsTheWorkingDirectorysFile) {
  char dir[] = "/tmp/kavri-nei-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  auto run = [&](const char* text) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    if (chdir(dir) != 0) std::exit(99);
    std::remove("neighbor.dat");
    if (text) std::ofstream("neighbor.dat") << text;
    SiteEnergy m;
    load(m, "anthracene.cif", "");
    m.post_data_read_treatment(false);
    m.build_neighbor_list(true, false);
    const double* x = m.get_x_com().data();
    const bool placed = m.get_nei_count(0) == 1 && m.get_nei_mol(0, 0) == 1 &&
                        m.get_nei_disp(0)[2] == (2 + x[5]) - x[2] && m.get_nei_count(1) == 0;
    std::exit(placed ? 42 : 43);
  };
  EXPECT_EXIT(run("2\nh\nh\nmol 1\n1\n 2 0 0 0 0 -1 0 2\nmol 2\n0\n"), testing::ExitedWithCode(42),
              "Reading file 'neighbor.dat'");
  EXPECT_EXIT(run(nullptr), testing::ExitedWithCode(1),
              "line 3546 : \nFailed to open input file: neighbor.dat\n");
}

// The model's list on anthracene: the straightforward search's list over the model's values
// in the model's fields, 14 neighbours per molecule, every pair once in the list of each
// molecule with opposite shifts.
TEST(NeighborSearch, TheModelsListOnARealCrystal) {
  SiteEnergy m;
  load(m, "anthracene.cif", "");
  m.post_data_read_treatment(false);
  testing::internal::CaptureStdout();
  m.build_neighbor_list(false, true);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\n**** KAVRI Build Neighbor List ****\n"
            "  Neighbor rcutoff distance: 4\n"
            "  Neighbor search cell (-/+): 3 3 3\n"
            "**** End of KAVRI Build Neighbor List ****\n\n");
  ASSERT_EQ(m.get_nmols_uc(), 2);
  const NeighborList list = search_neighbor_list_reference(m.neighbor_search(m.centres()));
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(m.get_nei_count(i), 14);
    for (int k = 0; k < m.get_nei_count(i); ++k) {
      const NeighborImage& im = list.of[i][k];
      int s[3];
      m.get_nei_shift(i, k, s);
      const int j = m.get_nei_mol(i, k);
      EXPECT_EQ(j, im.mol);
      for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(s[c], im.shift[c]);
        EXPECT_EQ(m.get_nei_disp(i)[3 * k + c], im.disp[c]);
        EXPECT_EQ(m.get_nei_com(i)[3 * k + c], im.centre[c]);
      }
      int found = 0;
      for (int q = 0; q < m.get_nei_count(j); ++q) {
        int t[3];
        m.get_nei_shift(j, q, t);
        if (m.get_nei_mol(j, q) == i && t[0] == -s[0] && t[1] == -s[1] && t[2] == -s[2]) ++found;
      }
      EXPECT_EQ(found, 1);
    }
  }
}

// A model whose loading drops the cell's arrays as it goes (the site-energy run) has the same
// molecules, molecular data and neighbour list as one that keeps them, and still the atom rows
// of its crystal file.
TEST(NeighborSearch, TheListDoesNotNeedTheStructureArrays) {
  for (const char* crystal : {"tipge_pentacene_pbca.cif", "anthracene_3x3x2_p1.cif"}) {
    SCOPED_TRACE(crystal);
    SiteEnergy kept, dropped;
    dropped.set_structure_arrays_kept(false);
    load(kept, crystal, "");
    load(dropped, crystal, "");
    EXPECT_EQ(dropped.get_cif_mol_sizes(), kept.get_cif_mol_sizes());
    EXPECT_EQ(dropped.get_cif_mol_atoms(), kept.get_cif_mol_atoms());
    EXPECT_EQ(dropped.get_cif_natoms(), kept.get_cif_natoms());
    EXPECT_EQ(dropped.get_cif_atom_symbol(0), kept.get_cif_atom_symbol(0));
    for (SiteEnergy* m : {&kept, &dropped}) {
      m->post_data_read_treatment(false);
      m->build_neighbor_list(false, false);
    }
    EXPECT_EQ(dropped.get_mol_mass(), kept.get_mol_mass());
    EXPECT_EQ(dropped.get_x_com(), kept.get_x_com());
    EXPECT_EQ(dropped.get_homo(), kept.get_homo());
    ASSERT_EQ(dropped.get_nmols_uc(), kept.get_nmols_uc());
    for (int i = 0; i < kept.get_nmols_uc(); ++i) {
      ASSERT_EQ(dropped.get_nei_count(i), kept.get_nei_count(i));
      EXPECT_EQ(dropped.get_nei_com(i), kept.get_nei_com(i));
      EXPECT_EQ(dropped.get_nei_disp(i), kept.get_nei_disp(i));
      for (int k = 0; k < kept.get_nei_count(i); ++k) {
        int a[3], b[3];
        kept.get_nei_shift(i, k, a);
        dropped.get_nei_shift(i, k, b);
        EXPECT_EQ(dropped.get_nei_mol(i, k), kept.get_nei_mol(i, k));
        EXPECT_TRUE(a[0] == b[0] && a[1] == b[1] && a[2] == b[2]);
      }
    }
  }
}

// Tables keep what the list needs and stop reading after its last value; the text of the
// site energies sums the multipole part when given.
TEST(SiteEnergyStages, TablesAndText) {
  const std::vector<int> counts = {2, 0};
  const EnergyTable t = read_energy_table_text("3\n3\n-1.5\n2.25x\n9\n1\n7\n0\n", 2, counts);
  EXPECT_EQ(t, (EnergyTable{{-1.5, 2.25}, {}}));
  // A text that ends inside a block keeps what it holds.
  EXPECT_EQ(read_energy_table_text("2\n4\n1\n", 2, counts), (EnergyTable{{1.0}}));
  EXPECT_EQ(site_energy_text(2, counts, t, nullptr),
            "2\n2 1\n  -1.50000  meV\n   2.25000  meV\n0 2\n");
  const EnergyTable mp = {{0.5, -0.25}, {}};
  EXPECT_EQ(site_energy_text(2, counts, t, &mp), "2\n2 1\n  -1.00000  meV\n   2.00000  meV\n0 2\n");
  EXPECT_EXIT(
      {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        check_energy_table(EnergyTable(2, {1.0}), "data/SE_einternal-h.dat", 2, counts);
      },
      testing::ExitedWithCode(255),
      "line 262 : \nNot enough values in data/SE_einternal-h.dat for molecule 1: found 1, "
      "needed 2\n");
}
