// The bond partition and whole molecules as stages: the fast paths against their references on
// generated cells (skewed cells, atoms on faces and special positions, unknown elements, bond
// scales changed between the partition and the whole molecules) and on real supercells, and
// the round-off margin of following the partition's joins where the two bond thresholds meet.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bond_partition.h"
#include "fileio.h"
#include "whole_molecules.h"

namespace {

struct Cell {
  Lattice lattice;
  std::vector<int> types;
  std::vector<Fractional> sites;
  std::vector<double> radii;  // bond radii of the partition
};

Lattice lattice_of(double a, double b, double c, double alpha, double beta, double gamma) {
  const double p[6] = {a, b, c, alpha, beta, gamma};
  return Lattice::from_parameters(p);
}

double partition_radius(int type) {
  const FileIO table;
  char symbol[3];
  table.find_element_name_from_index(type, symbol);
  return table.find_element_radius_from_name(symbol);
}

// A random cell holding copies of a random chain-like molecule, some atoms on faces or on
// special positions, and now and then an atom of unknown element. A tiny cell packs every atom
// within bonding reach of every other.
Cell random_cell(std::mt19937& rng, bool tiny) {
  std::uniform_real_distribution<double> len(tiny ? 1.0 : 3.0, tiny ? 2.0 : 14.0), ang(65.0, 115.0),
      u(0.0, 1.0);
  Cell cell;
  const double a = len(rng), b = len(rng), c = len(rng);
  const double alpha = ang(rng), beta = ang(rng), gamma = ang(rng);
  cell.lattice = lattice_of(a, b, c, alpha, beta, gamma);
  const int kinds[] = {1, 6, 7, 8, 16, 17, 32};
  const int template_atoms = 1 + static_cast<int>(u(rng) * 8);
  std::vector<Fractional> shape;
  Cartesian pos;
  for (int k = 0; k < template_atoms; ++k) {
    for (double& v : pos.v) v += (u(rng) - 0.5) * 2.4;
    shape.push_back(cell.lattice.to_fractional(pos));
  }
  std::vector<int> shape_types(template_atoms);
  for (int& t : shape_types) t = kinds[static_cast<int>(u(rng) * 7)];
  const bool crowded = u(rng) < 0.15;
  const int copies =
      crowded ? 20 + static_cast<int>(u(rng) * 30) : 1 + static_cast<int>(u(rng) * 6);
  for (int n = 0; n < copies; ++n) {
    Fractional origin(u(rng), u(rng), u(rng));
    if (u(rng) < 0.3) origin[static_cast<int>(u(rng) * 3)] = u(rng) < 0.5 ? 0.0 : 0.5;
    for (int k = 0; k < template_atoms; ++k) {
      Fractional f;
      for (int c = 0; c < 3; ++c) f[c] = shape[k][c] + origin[c];
      if (u(rng) < 0.1) f[static_cast<int>(u(rng) * 3)] = 0.0;  // on a cell face
      const bool unknown = u(rng) < 0.02;
      cell.types.push_back(unknown ? -1 : shape_types[k]);
      cell.radii.push_back(unknown ? 9999.99 : partition_radius(shape_types[k]));
      cell.sites.push_back(f);
    }
  }
  return cell;
}

// Molecule m of a partition, starting at `first` in its atom list, with the joins when the
// partition recorded them.
MoleculeSites molecule_of(const Cell& cell, const Partition& p, size_t first, int n) {
  MoleculeSites m;
  for (int k = 0; k < n; ++k) {
    const int a = p.atoms[first + k];
    m.types.push_back(cell.types[a]);
    m.sites.push_back(cell.sites[a]);
  }
  if (!p.joined.empty()) {
    m.joined.assign(p.joined.begin() + first, p.joined.begin() + first + n);
    m.partition_radius.assign(p.radius.begin() + first, p.radius.begin() + first + n);
    m.partition_scale = p.scale;
  }
  return m;
}

// Positions equal to the last bit (signed zeros included).
template <class Position>
bool same_bits(const std::vector<Position>& a, const std::vector<Position>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(Position)) == 0);
}

// Makes molecule `sites` whole by the fast path and by the reference; both must give the same
// bits, the same count of bonded atoms and the same centre. Returns whether the fast path
// followed the joins.
bool whole_matches(const MoleculeSites& sites, const Lattice& lattice, double scale,
                   const std::string& what) {
  const Molecule fast = make_whole(sites, lattice, scale);
  const Molecule ref = make_whole_reference(sites, lattice, scale);
  EXPECT_TRUE(same_bits(fast.frac, ref.frac)) << what;
  EXPECT_TRUE(same_bits(fast.cart, ref.cart)) << what;
  EXPECT_EQ(fast.bonded, ref.bonded) << what;
  EXPECT_EQ(std::memcmp(&fast.centre, &ref.centre, sizeof(Fractional)), 0) << what;
  EXPECT_EQ(fast.types, sites.types) << what;
  return fast.followed_joins;
}

}  // namespace

// Partition and whole molecules on generated cells: the fast partition gives the reference's
// molecules and records consistent joins; every molecule, and the whole cell taken as one
// molecule (long growth chains), is made whole alike, with the bond scale changed after the
// partition both ways. Both outcomes occur: molecules that follow the joins and ones whose
// bonds the partition does not cover.
TEST(MoleculeStages, FastPathsMatchTheReferencesOnGeneratedCells) {
  std::mt19937 rng(2026);
  const double later_scales[] = {1.15, 1.0, 1.25, 3.0, 0.5};
  int followed = 0, molecules = 0;
  for (int trial = 0; trial < 300; ++trial) {
    const Cell cell = random_cell(rng, trial % 11 == 0);
    const std::string what = "trial " + std::to_string(trial);
    const double scale = trial % 17 == 0 ? 3.0 : 1.15;
    const Partition fast = partition_cell(cell.sites, cell.radii, cell.lattice, scale);
    const Partition ref = partition_cell_reference(cell.sites, cell.radii, cell.lattice, scale);
    ASSERT_EQ(fast.sizes, ref.sizes) << what;
    ASSERT_EQ(fast.atoms, ref.atoms) << what;
    ASSERT_EQ(fast.joined.size(), fast.atoms.size()) << what;
    EXPECT_TRUE(ref.joined.empty() && ref.radius.empty()) << what;
    size_t first = 0;
    for (int n : fast.sizes) {
      EXPECT_EQ(fast.joined[first], -1) << what;
      for (int k = 0; k < n; ++k) {
        EXPECT_LT(fast.joined[first + k], k) << what;
        EXPECT_EQ(fast.radius[first + k], cell.radii[fast.atoms[first + k]]) << what;
      }
      first += n;
    }

    const double later = later_scales[trial % 5];
    first = 0;
    for (size_t m = 0; m < fast.sizes.size(); ++m) {
      const int n = fast.sizes[m];
      followed += whole_matches(molecule_of(cell, fast, first, n), cell.lattice, later,
                                what + ", molecule " + std::to_string(m));
      first += n;
    }
    molecules += static_cast<int>(fast.sizes.size());
    MoleculeSites all;
    all.types = cell.types;
    all.sites = cell.sites;
    whole_matches(all, cell.lattice, later, what + ", whole cell");
  }
  EXPECT_GT(followed, 100);
  EXPECT_LT(followed, molecules);
}

// The round-off margins of following the joins, where they are needed. Atom 0 sits just inside
// the a face; atoms 1 and 3 lie past it and are moved by a cell, atom 2 stays. Atom 3 is bonded
// to atom 2 and lies from atom 1 at a distance swept in ulps across a bond threshold. The
// partition measures 1-3 on the stored positions, the whole-molecule test on atom 1 moved by a
// cell: along a long a axis the rounding of that move is hundreds of ulps of the bond length.
// Where the partition leaves 1-3 unbonded (3 joins through 2) and the whole-molecule test
// bonds it, the reference places 3 next to 1, whose displacement to 3 rounds on a finer grid
// than 2's (1 lies beyond 3 along a, 2 before it), and the positions part in the last bit.
//  * C-C: the whole-molecule threshold is put a swept number of ulps below the partition's,
//    and 1-3 swept across the partition's: the check of the two thresholds must refuse the
//    joins near their meeting point.
//  * O-O (1 and 3 oxygen): the whole-molecule threshold exceeds the partition's, and 1-3 is
//    swept across the whole-molecule one: the check of that pair must refuse the joins near it.
// With a margin below a few hundred ulps of the bond length the fast and reference molecules
// differ here. Far enough from the thresholds, the joins are followed.
TEST(MoleculeStages, JoinsMarginHoldsWhereBondThresholdsMeet) {
  const double partition_scale = 1.15, a = 1000.0, b = 10.0;
  const Lattice lattice = lattice_of(a, b, b, 90.0, 90.0, 90.0);
  int followed = 0, joined_through_2 = 0;
  // Sweeps 1-3 across `centre` with the whole-molecule scale `later`.
  auto sweep = [&](int pair_type, double centre, double later, const std::string& what) {
    for (int t = -512; t <= 512; t += 4)
      for (int k = 0; k < 16; ++k) {
        const double gap = centre * (1.0 + t * 0x1p-52);
        const double x3 = 0.05 + 0.0137 * k, x1 = x3 + 0.6 * centre;
        const double y3 = -std::sqrt(gap * gap - 0.36 * centre * centre);
        Cell cell{lattice,
                  {6, pair_type, 6, pair_type},
                  {{1.0 - 0.1 / a, 0.5 + 0.5 / b, 0.5},
                   {x1 / a, 0.5, 0.5},
                   {1.0 - (0.55 - x3) / a, 0.5 - 0.9 / b, 0.5},
                   {x3 / a, 0.5 + y3 / b, 0.5}},
                  {}};
        for (int type : cell.types) cell.radii.push_back(partition_radius(type));
        const Partition p = partition_cell(cell.sites, cell.radii, lattice, partition_scale);
        ASSERT_EQ(p.atoms, (std::vector<int>{0, 1, 2, 3})) << what;
        joined_through_2 += p.joined[3] == 2;
        followed += whole_matches(
            molecule_of(cell, p, 0, 4), lattice, later,
            what + ", gap step " + std::to_string(t) + ", shift " + std::to_string(k));
      }
  };
  const double partition_cc = 2.0 * partition_radius(6) * partition_scale;
  const double whole_c = FileIO().find_element_radius_from_index(6);
  for (int v : {1 << 22, 1, 2, 4, 8, 16, 32, 64, 128, 256})
    sweep(6, partition_cc, partition_cc / (2.0 * whole_c) * (1.0 - v * 0x1p-52),
          "C-C, ulps below " + std::to_string(v));
  const double whole_oo = 2.0 * FileIO().find_element_radius_from_index(8) * partition_scale;
  sweep(8, whole_oo, partition_scale, "O-O");
  EXPECT_GT(joined_through_2, 20000);
  EXPECT_GT(followed, 3000);
}

// Real cells read from crystal files, some repeated into supercells: the fast partition gives
// the reference's molecules, with the counts of the crystal, and every molecule is made whole
// as the reference makes it, along the joins where the partition's bonds cover the
// whole-molecule ones. In a thin cell (an axis shorter than twice the longest bond) they are
// not followed; in its supercell they are, also where the whole-molecule radii exceed the
// partition's (O-O, Cl-Cl pairs, checked one by one).
TEST(MoleculeStages, RealSupercellsMatchTheReferences) {
  const struct {
    const char* file;
    int repeat[3];
    int natoms, molecules, molecule_size, followed;
  } crystals[] = {
      {"anthracene_3x3x2_p1.cif", {1, 1, 1}, 864, 36, 24, 36},
      {"tipge_pentacene_pbca.cif", {1, 1, 1}, 400, 4, 100, 4},
      {"hexachlorobenzene.cif", {1, 1, 1}, 24, 2, 12, 0},
      {"hexachlorobenzene.cif", {1, 3, 1}, 72, 6, 12, 6},
      {"nitrothiophene_carbaldehyde.cif", {1, 1, 3}, 159, 12, 0, 12},
  };
  for (const auto& c : crystals) {
    FileIO io;
    testing::internal::CaptureStdout();
    io.read_data_cif((std::string(KAVRI_TEST_DATA) + "/crystals/" + c.file).c_str(), false);
    testing::internal::GetCapturedStdout();
    const std::string what = std::string(c.file) + " x" + std::to_string(c.repeat[0]) +
                             std::to_string(c.repeat[1]) + std::to_string(c.repeat[2]);
    const Lattice unit = io.lattice();
    Cell cell;
    cell.lattice = lattice_of(unit.cell[0] * c.repeat[0], unit.cell[1] * c.repeat[1],
                              unit.cell[2] * c.repeat[2], unit.cell[3], unit.cell[4], unit.cell[5]);
    for (int r0 = 0; r0 < c.repeat[0]; ++r0)
      for (int r1 = 0; r1 < c.repeat[1]; ++r1)
        for (int r2 = 0; r2 < c.repeat[2]; ++r2)
          for (int i = 0; i < io.get_cif_natoms(); ++i) {
            const double* f = io.get_cif_x_s() + 3 * i;
            cell.types.push_back(io.get_cif_atypes()[i]);
            cell.sites.emplace_back((f[0] + r0) / c.repeat[0], (f[1] + r1) / c.repeat[1],
                                    (f[2] + r2) / c.repeat[2]);
            cell.radii.push_back(partition_radius(cell.types.back()));
          }
    EXPECT_EQ(static_cast<int>(cell.sites.size()), c.natoms) << what;
    const double scale = io.get_bond_dis_scale();
    const Partition fast = partition_cell(cell.sites, cell.radii, cell.lattice, scale);
    const Partition ref = partition_cell_reference(cell.sites, cell.radii, cell.lattice, scale);
    EXPECT_EQ(fast.sizes, ref.sizes) << what;
    EXPECT_EQ(fast.atoms, ref.atoms) << what;
    EXPECT_EQ(static_cast<int>(fast.sizes.size()), c.molecules) << what;
    if (c.molecule_size) {  // 0: molecules of more than one size
      EXPECT_EQ(fast.sizes, std::vector<int>(c.molecules, c.molecule_size)) << what;
    }
    int followed = 0;
    size_t first = 0;
    for (int size : fast.sizes) {
      followed += whole_matches(molecule_of(cell, fast, first, size), cell.lattice, scale, what);
      first += size;
    }
    EXPECT_EQ(followed, c.followed) << what;
  }
}
