// The fast duplicate removal, bond partition, whole molecules and neighbour search against the
// straightforward algorithms they replace: identical results on real supercells and on many
// generated cells (skewed cells, atoms on faces and special positions, unknown elements,
// extreme cut-offs, bond scales changed between the partition and the whole molecules).
#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "pr_siteenergy.h"
#include "util.h"

namespace {

class Cell : public SiteEnergy {
 public:
  using FileIO::atypes;
  using FileIO::cif_mol_atoms;
  using FileIO::cif_mol_joined;
  using FileIO::cif_mol_natoms;
  using FileIO::cif_mol_radius;
  using FileIO::mol_x_s;
  using FileIO::natoms_cif;
  using FileIO::radius;
  using FileIO::struct_source;
  using FileIO::x;
  using FileIO::x_s;
  using KavriInp::lattice_cutoff;
  using KavriInp::neighbor_scell;
  using Transport::search_neighbors;
  using Transport::search_neighbors_reference;

  void set_cell(const double cell[6]) {
    double L[3][3];
    convert_cell6_to_latt3x3(cell, L);
  }
};

struct FatalCaught : std::runtime_error {
  explicit FatalCaught(int s) : std::runtime_error("fatal"), status(s) {}
  int status;
};
[[noreturn]] void throw_on_fatal(int status) { throw FatalCaught(status); }

// Runs f and returns the fatal status it ended with, or -1000 when it returned normally.
template <class F>
int fatal_status(F f) {
  set_fatal_handler(throw_on_fatal);
  int status = -1000;
  try {
    f();
  } catch (const FatalCaught& e) {
    status = e.status;
  }
  set_fatal_handler(nullptr);
  return status;
}

// A random cell holding copies of a random rigid molecule, some atoms on faces or on special
// positions, and now and then an atom of unknown element.
void fill_random_cell(Cell& cell, std::mt19937& rng, bool tiny = false) {
  // A tiny cell packs every atom within bonding reach of every other (dense bond graphs).
  std::uniform_real_distribution<double> len(tiny ? 1.0 : 3.0, tiny ? 2.0 : 14.0),
      ang(65.0, 115.0), u(0.0, 1.0);
  const double p[6] = {len(rng), len(rng), len(rng), ang(rng), ang(rng), ang(rng)};
  cell.set_cell(p);
  const int types[] = {1, 6, 7, 8, 16, 17, 32};
  const int template_atoms = 1 + static_cast<int>(u(rng) * 8);
  std::vector<double> shape;  // Cartesian offsets of a chain-like molecule
  double pos[3] = {0, 0, 0};
  for (int a = 0; a < template_atoms; ++a) {
    for (double& v : pos) v += (u(rng) - 0.5) * 2.4;
    shape.insert(shape.end(), pos, pos + 3);
  }
  std::vector<int> shape_types(template_atoms);
  for (int& t : shape_types) t = types[static_cast<int>(u(rng) * 7)];
  const bool crowded = u(rng) < 0.15;
  const int copies = crowded ? 20 + static_cast<int>(u(rng) * 30) : 1 + static_cast<int>(u(rng) * 6);
  cell.atypes.clear();
  cell.radius.clear();
  cell.x_s.clear();
  for (int c = 0; c < copies; ++c) {
    double origin[3] = {u(rng), u(rng), u(rng)};
    if (u(rng) < 0.3) origin[static_cast<int>(u(rng) * 3)] = u(rng) < 0.5 ? 0.0 : 0.5;
    for (int a = 0; a < template_atoms; ++a) {
      double f[3];
      cell.coord_c2f(&shape[3 * a], f);
      for (int k = 0; k < 3; ++k) f[k] += origin[k];
      if (u(rng) < 0.1) f[static_cast<int>(u(rng) * 3)] = 0.0;  // on a cell face
      const bool unknown = u(rng) < 0.02;
      cell.atypes.push_back(unknown ? -1 : shape_types[a]);
      char sym[3];
      cell.find_element_name_from_index(shape_types[a], sym);
      cell.radius.push_back(unknown ? 9999.99 : cell.find_element_radius_from_name(sym));
      cell.x_s.insert(cell.x_s.end(), f, f + 3);
    }
  }
  cell.natoms_cif = static_cast<int>(cell.atypes.size());
  cell.x.assign(cell.x_s.size(), 0.0);
}

}  // namespace

TEST(FastPaths, OverlapRemovalMatchesPairwiseScan) {
  std::mt19937 rng(12345);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  Cell cell;
  for (int trial = 0; trial < 300; ++trial) {
    std::vector<double> frac;
    const int n = 1 + static_cast<int>(u(rng) * 400);
    for (int i = 0; i < n; ++i) {
      double f[3] = {u(rng), u(rng), u(rng)};
      if (i > 0 && u(rng) < 0.4) {  // near an earlier position, across faces too
        const int j = static_cast<int>(u(rng) * i);
        for (int k = 0; k < 3; ++k) {
          f[k] = frac[3 * j + k] + (u(rng) - 0.5) * 0.03;
          if (u(rng) < 0.2) f[k] = f[k] < 0.5 ? f[k] + 1.0 : f[k] - 1.0;
        }
      }
      if (u(rng) < 0.05) f[0] = u(rng) < 0.5 ? 0.0001 : 0.9999;
      if (u(rng) < 0.01) f[1] = NAN;
      frac.insert(frac.end(), f, f + 3);
    }
    std::vector<char> fast, ref;
    EXPECT_EQ(cell.mark_overlapped_atoms(frac, fast),
              cell.mark_overlapped_atoms_reference(frac, ref));
    ASSERT_EQ(fast, ref) << "trial " << trial;
  }
}

TEST(FastPaths, PartitionAndNeighboursMatchOnGeneratedCells) {
  std::mt19937 rng(2026);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  const double cutoffs[] = {0.0, 0.5, 2.0, 4.0, 6.5, -3.0};
  for (int trial = 0; trial < 150; ++trial) {
    Cell ref, fast;
    std::mt19937 copy = rng;
    fill_random_cell(ref, rng, trial % 13 == 0);
    fill_random_cell(fast, copy, trial % 13 == 0);
    const double scale = trial % 10 == 0 ? 3.0 : 1.15;
    ref.set_bond_dis_scale(scale);
    fast.set_bond_dis_scale(scale);
    ref.separate_cif_molecules_reference(false);
    fast.separate_cif_molecules(false);
    ASSERT_EQ(fast.cif_mol_natoms, ref.cif_mol_natoms) << "trial " << trial;
    ASSERT_EQ(fast.cif_mol_atoms, ref.cif_mol_atoms) << "trial " << trial;

    // Whole molecules: the whole cell as one molecule exercises long growth chains.
    std::vector<int> types = fast.atypes;
    std::vector<double> f1 = fast.x_s, f2 = fast.x_s;
    testing::internal::CaptureStdout();
    fast.make_whole_molecule(1, fast.natoms_cif, types.data(), f1.data(), true);
    const std::string out1 = testing::internal::GetCapturedStdout();
    testing::internal::CaptureStdout();
    ref.make_whole_molecule_reference(1, ref.natoms_cif, types.data(), f2.data(), true);
    ASSERT_EQ(out1, testing::internal::GetCapturedStdout()) << "trial " << trial;
    ASSERT_EQ(f1, f2) << "trial " << trial;

    // Neighbour candidates of every molecule, in the order that reaches the sort.
    // (A molecule of unknown atoms only ends the loading; such cells stop here.)
    fast.struct_source = 2;
    testing::internal::CaptureStdout();
    const int loaded = fatal_status([&] {
      fast.read_crystal_strcuture_files(false, false);
      fast.post_data_read_treatment(false);
    });
    testing::internal::GetCapturedStdout();
    if (loaded != -1000) {
      EXPECT_EQ(loaded, -1) << "trial " << trial;
      continue;
    }
    fast.lattice_cutoff = cutoffs[trial % 6];
    const int range = trial % 7 == 0 ? 0 : 1 + static_cast<int>(u(rng) * 3);
    for (int& n : fast.neighbor_scell) n = range;
    fast.contact_grid_threshold = trial % 2 ? 0 : 2048;  // odd trials: every pair on the grid
    const int status = fatal_status([&] { fast.build_neighbor_list(false, false); });
    const double rc2 = fast.lattice_cutoff * fast.lattice_cutoff;
    for (int i = 0; i < fast.get_nmols_uc(); ++i) {
      std::vector<int> c1, c2;
      std::vector<double> k1, k2;
      const int s1 = fatal_status([&] { fast.search_neighbors(i, rc2, c1, k1); });
      const int s2 = fatal_status([&] { fast.search_neighbors_reference(i, rc2, c2, k2); });
      ASSERT_EQ(s1, s2) << "trial " << trial << " molecule " << i;
      ASSERT_EQ(c1, c2) << "trial " << trial << " molecule " << i;
      ASSERT_EQ(k1, k2) << "trial " << trial << " molecule " << i;
    }
    EXPECT_TRUE(status == -1000 || status == 1);
  }
}

namespace {

// Makes every molecule of a partitioned cell whole through the partition's joins and through
// the straightforward growth (same coordinates, same printed lines); returns how many followed
// the joins.
int whole_molecules_match(Cell& cell, const std::string& what) {
  int followed = 0;
  size_t first = 0;
  for (size_t m = 0; m < cell.cif_mol_natoms.size(); ++m) {
    const int n = cell.cif_mol_natoms[m];
    std::vector<int> types(n);
    std::vector<double> f1(3 * n), f2(3 * n);
    for (int k = 0; k < n; ++k) {
      const int a = cell.cif_mol_atoms[first + k];
      types[k] = cell.atypes[a];
      for (int c = 0; c < 3; ++c) f1[3 * k + c] = f2[3 * k + c] = cell.x_s[3 * a + c];
    }
    testing::internal::CaptureStdout();
    followed += cell.make_whole_molecule_joined(static_cast<int>(m) + 1, n, types.data(),
                                                f1.data(), &cell.cif_mol_joined[first],
                                                &cell.cif_mol_radius[first], true);
    const std::string out1 = testing::internal::GetCapturedStdout();
    testing::internal::CaptureStdout();
    cell.make_whole_molecule_reference(static_cast<int>(m) + 1, n, types.data(), f2.data(), true);
    EXPECT_EQ(out1, testing::internal::GetCapturedStdout()) << what << ", molecule " << m;
    EXPECT_EQ(f1, f2) << what << ", molecule " << m;
    first += n;
  }
  return followed;
}

}  // namespace

// Whole molecules through the partition's record of the joins, against the straightforward
// growth: generated cells (atoms on faces, unknown elements, crowded and tiny cells) with the
// bond scale changed between the partition and the whole molecules, both ways. Both outcomes
// occur: molecules that follow the joins and ones whose bonds the partition does not cover.
TEST(FastPaths, WholeMoleculesThroughTheJoinsMatchTheGrowth) {
  std::mt19937 rng(777);
  const double later_scales[] = {1.15, 1.0, 1.25, 3.0, 0.5};
  int followed = 0, molecules = 0;
  for (int trial = 0; trial < 200; ++trial) {
    Cell cell;
    fill_random_cell(cell, rng, trial % 11 == 0);
    Cell ref = cell;
    cell.set_bond_dis_scale(trial % 17 == 0 ? 3.0 : 1.15);
    cell.separate_cif_molecules(false);
    ASSERT_EQ(cell.cif_mol_joined.size(), cell.cif_mol_atoms.size());
    cell.set_bond_dis_scale(later_scales[trial % 5]);
    followed += whole_molecules_match(cell, "trial " + std::to_string(trial));
    molecules += static_cast<int>(cell.cif_mol_natoms.size());

    // The loading driver takes the same path: its molecules equal those of the reference run.
    ref.set_bond_dis_scale(trial % 17 == 0 ? 3.0 : 1.15);
    ref.separate_cif_molecules_reference(false);
    ref.set_bond_dis_scale(later_scales[trial % 5]);
    ref.set_reference_paths(true);
    std::string outputs[2];
    int status[2];
    Cell* cells[2] = {&cell, &ref};
    for (int r = 0; r < 2; ++r) {
      cells[r]->struct_source = 2;
      testing::internal::CaptureStdout();
      status[r] = fatal_status([&] { cells[r]->read_crystal_strcuture_files(true, false); });
      outputs[r] = testing::internal::GetCapturedStdout();
    }
    ASSERT_EQ(status[0], status[1]) << "trial " << trial;
    ASSERT_EQ(outputs[0], outputs[1]) << "trial " << trial;
    if (status[0] == -1000) {
      ASSERT_EQ(cell.mol_x_s, ref.mol_x_s) << "trial " << trial;
    }
  }
  EXPECT_GT(followed, 50);
  EXPECT_LT(followed, molecules);
}

// The round-off margin of whole molecules through the joins, where it is tight: the later bond
// scale puts the whole-molecule threshold of C-C within a few ulps of the partition's, and a
// C-C pair sits at the partition threshold along the axis across which its first atom was
// moved, so that the two tests measure it through different roundings. The pair joins through
// a third atom in the partition; were it bonded in the whole-molecule test, the joins would
// place the last atom next to another partner than the straightforward growth does. Scales
// far enough below the meeting point follow the joins.
TEST(FastPaths, JoinsMarginHoldsWhereBondThresholdsMeet) {
  Cell probe;
  const double rC = probe.find_element_radius_from_name("C");
  const double partition_scale = 1.15, threshold = 2.0 * rC * partition_scale;
  const double whole_c = probe.find_element_radius_from_index(6);
  const double a = 20.0, b = 10.0;
  const double p[6] = {a, b, b, 90.0, 90.0, 90.0};
  int followed = 0;
  std::vector<int> steps = {-65536};  // far enough below to follow the joins
  for (int v = -16; v <= 16; ++v) steps.push_back(v);
  for (int v : steps) {
    const double later_scale = threshold / (2.0 * whole_c) * (1.0 + v * 0x1p-52);
    for (int t = -48; t <= 48; ++t) {
      const double gap = threshold * (1.0 + t * 0x1p-52);
      const double x0 = 0.975 + 0.0003 * ((t + 48) % 37), x1 = x0 + 1.4 / a - 1.0;
      Cell cell;
      cell.set_cell(p);
      cell.set_bond_dis_scale(partition_scale);
      cell.atypes = {6, 6, 6, 6};
      cell.radius.assign(4, rC);
      cell.x_s = {x0, 0.5, 0.5, x1, 0.5, 0.5, x1 + 0.5 * gap / a, 0.5 + 1.0 / b, 0.5,
                  x1 + gap / a, 0.5, 0.5};
      cell.natoms_cif = 4;
      cell.x.assign(12, 0.0);
      cell.separate_cif_molecules(false);
      ASSERT_EQ(cell.cif_mol_natoms, std::vector<int>{4});
      cell.set_bond_dis_scale(later_scale);
      followed += whole_molecules_match(
          cell, "scale step " + std::to_string(v) + ", gap step " + std::to_string(t));
    }
  }
  EXPECT_GT(followed, 0);
}

// The round-off margins of the fast searches, where they are tight: cells whose search bins
// are exactly as wide as the reach allows (one axis N bins of just over the reach), pairs
// placed just inside the reach of the exact test and swept across bin boundaries, and
// contacts collinear with the molecule centres, so that the triangle-inequality bound meets
// the reach. A reach narrower than the exact one, in the grids or the sphere bound, loses
// pairs here and the fast results leave the straightforward ones.
TEST(FastPaths, MarginsHoldWhereBinsAreAsNarrowAsTheReach) {
  Cell probe;
  const double rC = probe.find_element_radius_from_name("C");
  const double scale = 1.15, bond_reach = 2.0 * rC * scale, inside = 1.0 - 1e-9;
  for (int n : {10, 23, 40, 60}) {
    // Bond partition and whole molecules: one C-C pair at the longest bond, bond grid of n
    // bins along a.
    for (int sweep = 0; sweep < 120; ++sweep) {
      Cell ref, fast;
      const double a = n * bond_reach * (1.0 + 1e-12);
      const double p[6] = {a, 1.5 * bond_reach, 1.5 * bond_reach, 90.0, 90.0, 90.0};
      for (Cell* c : {&ref, &fast}) {
        c->set_cell(p);
        c->set_bond_dis_scale(scale);
        const double x0 = (sweep + 0.37) / 120.0;
        c->atypes = {6, 6};
        c->radius = {rC, rC};
        c->x_s = {x0, 0.3, 0.3, x0 + bond_reach * inside / a, 0.3, 0.3};
        c->natoms_cif = 2;
        c->x.assign(6, 0.0);
      }
      ref.separate_cif_molecules_reference(false);
      fast.separate_cif_molecules(false);
      ASSERT_EQ(fast.cif_mol_natoms, ref.cif_mol_natoms) << n << " bins, sweep " << sweep;
      ASSERT_EQ(ref.cif_mol_natoms, std::vector<int>{2});
      std::vector<double> f1 = fast.x_s, f2 = fast.x_s;
      std::vector<int> types = fast.atypes;
      testing::internal::CaptureStdout();
      fast.make_whole_molecule(1, 2, types.data(), f1.data(), false);
      ref.make_whole_molecule_reference(1, 2, types.data(), f2.data(), false);
      testing::internal::GetCapturedStdout();
      ASSERT_EQ(f1, f2) << n << " bins, sweep " << sweep;
    }
    // Neighbour search: two C2 dimers along a whose inner atoms are at the cut-off,
    // so centre distance = cut-off + both sphere radii; centre grid of n bins along a.
    const double rc = 4.0, bond = 1.4;
    int contacts = 0;
    for (int sweep = 0; sweep < 60; ++sweep) {
      Cell cell;
      const double a = n * (rc + bond) * (1.0 + 1e-12);
      const double p[6] = {a, 1.5 * (rc + bond), 1.5 * (rc + bond), 90.0, 90.0, 90.0};
      cell.set_cell(p);
      // The gap a few ulps inside the cut-off: the contact test itself decides.
      const double x0 = (sweep + 0.61) / 60.0, gap = rc * (1.0 - (sweep % 8) * 0x1p-52);
      cell.atypes = {6, 6, 6, 6};
      cell.radius.assign(4, rC);
      cell.x_s = {x0, 0.2, 0.2, x0 + bond / a, 0.2, 0.2, x0 + (bond + gap) / a, 0.2, 0.2,
                  x0 + (2 * bond + gap) / a, 0.2, 0.2};
      cell.natoms_cif = 4;
      cell.x.assign(12, 0.0);
      cell.separate_cif_molecules(false);
      cell.struct_source = 2;
      testing::internal::CaptureStdout();
      cell.read_crystal_strcuture_files(false, false);
      cell.post_data_read_treatment(false);
      testing::internal::GetCapturedStdout();
      ASSERT_EQ(cell.get_nmols_uc(), 2);
      cell.lattice_cutoff = rc;
      for (int& s : cell.neighbor_scell) s = 1;
      cell.contact_grid_threshold = sweep % 2 ? 0 : 2048;
      cell.build_neighbor_list(false, false);
      for (int i = 0; i < 2; ++i) {
        std::vector<int> c1, c2;
        std::vector<double> k1, k2;
        cell.search_neighbors(i, rc * rc, c1, k1);
        cell.search_neighbors_reference(i, rc * rc, c2, k2);
        contacts += !c2.empty();
        ASSERT_EQ(c1, c2) << n << " bins, sweep " << sweep << ", molecule " << i;
        ASSERT_EQ(k1, k2);
      }
    }
    EXPECT_GT(contacts, 60) << n << " bins";
  }
}

TEST(FastPaths, RealSupercellGivesReferencePartitionAndNeighbours) {
  for (const char* name : {"anthracene_3x3x2_p1.cif", "tipge_pentacene_pbca.cif"}) {
    Cell ref, fast;
    const std::string path = std::string(KAVRI_TEST_DATA) + "/crystals/" + name;
    testing::internal::CaptureStdout();
    ref.read_data_cif(path.c_str(), false);
    fast.read_data_cif(path.c_str(), false);
    testing::internal::GetCapturedStdout();
    // Rebuild the reference partition from the same expanded cell.
    ref.radius.assign(ref.natoms_cif, 0.0);
    for (int i = 0; i < ref.natoms_cif; ++i) {
      char sym[3];
      ref.find_element_name_from_index(ref.atypes[i], sym);
      ref.radius[i] = ref.find_element_radius_from_name(sym);
    }
    ref.separate_cif_molecules_reference(false);
    EXPECT_EQ(fast.cif_mol_natoms, ref.cif_mol_natoms) << name;
    EXPECT_EQ(fast.cif_mol_atoms, ref.cif_mol_atoms) << name;
    // Every molecule of these crystals (C, H, Ge) is made whole along the partition's joins.
    EXPECT_EQ(whole_molecules_match(fast, name), static_cast<int>(fast.cif_mol_natoms.size()))
        << name;

    fast.struct_source = 2;
    testing::internal::CaptureStdout();
    fast.read_crystal_strcuture_files(false, false);
    fast.post_data_read_treatment(false);
    fast.build_neighbor_list(false, false);
    testing::internal::GetCapturedStdout();
    const double rc2 = 16.0;
    for (int i = 0; i < fast.get_nmols_uc(); ++i) {
      std::vector<int> c1, c2;
      std::vector<double> k1, k2;
      fast.search_neighbors(i, rc2, c1, k1);
      fast.search_neighbors_reference(i, rc2, c2, k2);
      EXPECT_EQ(c1, c2) << name << " molecule " << i;
      EXPECT_EQ(k1, k2) << name << " molecule " << i;
    }
  }
}

// Whole runs on real crystals, through the same object calls as the utility: the fast paths
// and the straightforward ones print the same report and write the same site-energy files.
TEST(FastPaths, WholeRunsGiveIdenticalOutput) {
  namespace fs = std::filesystem;
  char dir[] = "/tmp/kavri-whole-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const fs::path home = fs::current_path();
  fs::current_path(dir);
  fs::create_directory("data");
  for (const char* name : {"SE_einternal-h.dat", "SE_einternal-e.dat"}) {
    std::ofstream t(std::string("data/") + name);
    t << 64 << "\n";
    for (int b = 0; b < 64; ++b) {
      t << 299 << "\n";
      for (int v = 0; v < 299; ++v) t << (b * 0.37 - v * 1.1) << "\n";
    }
  }
  auto run = [](const std::string& cif, bool reference) {
    Cell m;
    m.set_reference_paths(reference);
    testing::internal::CaptureStdout();
    m.read_data_cif(cif.c_str(), true);
    m.struct_source = 2;
    m.read_crystal_strcuture_files(true, false);
    m.post_data_read_treatment(true);
    m.build_neighbor_list(false, true);
    m.write_site_energies(true);
    std::string out = testing::internal::GetCapturedStdout();
    for (const char* f : {"data/EH.dat", "data/EL.dat"}) {
      std::ifstream in(f);
      std::stringstream ss;
      ss << in.rdbuf();
      out += ss.str();
    }
    return out;
  };
  for (const char* name : {"anthracene.cif", "nitrothiophene_carbaldehyde.cif",
                           "tribenzylmethanol_crlf.cif", "tipge_pentacene_p-1.cif",
                           "hexachlorobenzene.cif"}) {
    const std::string cif = std::string(KAVRI_TEST_DATA) + "/crystals/" + name;
    EXPECT_EQ(run(cif, false), run(cif, true)) << name;
  }
  fs::current_path(home);
  fs::remove_all(dir);
}
