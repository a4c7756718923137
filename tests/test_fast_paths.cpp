// The fast duplicate removal, bond partition and whole molecules against the straightforward
// stages they replace, where their grids are tightest; and real runs through the model's
// operations, the result of every fast stage checked against the straightforward stage given
// the same input, so that the whole run equals the straightforward run step by step.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "bond_partition.h"
#include "neighbor_search.h"
#include "p1_expansion.h"
#include "pr_siteenergy.h"
#include "whole_molecules.h"

namespace {

// The molecule of `partition` that starts at atom `first` of its list, as the loading driver
// hands it to the whole-molecule stage (joins only when `with_joins`).
MoleculeSites molecule_of(const Partition& partition, size_t first, int size,
                          const std::vector<int>& types, const std::vector<Fractional>& sites,
                          bool with_joins) {
  MoleculeSites m;
  for (int k = 0; k < size; ++k) {
    const int a = partition.atoms[first + k];
    m.types.push_back(types[a]);
    m.sites.push_back(sites[a]);
    if (with_joins) {
      m.joined.push_back(partition.joined[first + k]);
      m.partition_radius.push_back(partition.radius[first + k]);
    }
  }
  if (with_joins) m.partition_scale = partition.scale;
  return m;
}

std::vector<Fractional> fractional_sites(const double* x_s, int n) {
  std::vector<Fractional> s;
  for (int i = 0; i < n; ++i) s.emplace_back(x_s + 3 * i);
  return s;
}

}  // namespace

TEST(FastPaths, OverlapRemovalMatchesPairwiseScan) {
  std::mt19937 rng(12345);
  std::uniform_real_distribution<double> u(0.0, 1.0);
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
    EXPECT_EQ(mark_overlaps(frac, fast, false), mark_overlaps_reference(frac, ref, false));
    ASSERT_EQ(fast, ref) << "trial " << trial;
  }
}

// The round-off margin of the bond grid where it is tight: cells whose bond-search bins along
// a are exactly as wide as the reach allows (n bins of just over the longest bond), and a C-C
// pair just inside the longest bond swept across the bin boundaries. A reach narrower than the
// bond test's loses the pair in the fast partition or in the grid growth of whole molecules.
TEST(FastPaths, BondGridMarginHoldsWhereBinsAreAsNarrowAsTheReach) {
  const FileIO elements;
  const double rC = elements.find_element_radius_from_name("C");
  const double scale = 1.15, bond_reach = 2.0 * rC * scale, inside = 1.0 - 1e-9;
  const std::vector<int> types = {6, 6};
  for (int n : {10, 23, 40, 60}) {
    const double a = n * bond_reach * (1.0 + 1e-12);
    const double p[6] = {a, 1.5 * bond_reach, 1.5 * bond_reach, 90.0, 90.0, 90.0};
    const Lattice cell = Lattice::from_parameters(p);
    for (int sweep = 0; sweep < 120; ++sweep) {
      const double x0 = (sweep + 0.37) / 120.0;
      const std::vector<Fractional> sites = {{x0, 0.3, 0.3},
                                             {x0 + bond_reach * inside / a, 0.3, 0.3}};
      const Partition fast = partition_cell(sites, {rC, rC}, cell, scale);
      const Partition ref = partition_cell_reference(sites, {rC, rC}, cell, scale);
      ASSERT_EQ(ref.sizes, std::vector<int>{2}) << n << " bins, sweep " << sweep;
      ASSERT_EQ(fast.sizes, ref.sizes) << n << " bins, sweep " << sweep;
      ASSERT_EQ(fast.atoms, ref.atoms);
      for (bool joins : {true, false}) {
        const MoleculeSites m = molecule_of(fast, 0, 2, types, sites, joins);
        ASSERT_EQ(flat_positions(make_whole(m, cell, scale).frac),
                  flat_positions(make_whole_reference(m, cell, scale).frac))
            << n << " bins, sweep " << sweep << (joins ? ", joins" : ", growth");
      }
    }
  }
}

// Real crystals through the model's own operations (input text, loading, molecular data,
// neighbour list): the partition, every whole molecule and the neighbour list equal what the
// straightforward stages make from the same input. As each stage's input is the previous
// stage's checked result, the run equals the straightforward run.
TEST(FastPaths, RealRunsEqualTheStraightforwardStagesStepByStep) {
  for (const char* name : {"anthracene.cif", "nitrothiophene_carbaldehyde.cif",
                           "tribenzylmethanol_crlf.cif", "tipge_pentacene_p-1.cif",
                           "hexachlorobenzene.cif", "anthracene_3x3x2_p1.cif"}) {
    SiteEnergy m;
    const std::string inp = "&transport\n  crystal = " + std::string(KAVRI_TEST_DATA) +
                            "/crystals/" + name + "\n/\n";
    testing::internal::CaptureStdout();
    m.read_kavri_inp_text(inp, "kavri.inp", false);
    testing::internal::GetCapturedStdout();

    // The partition of the expanded cell.
    const Lattice cell = m.lattice();
    const int natoms = m.get_cif_natoms();
    const std::vector<Fractional> sites = fractional_sites(m.get_cif_x_s(), natoms);
    const std::vector<int> types(m.get_cif_atypes(), m.get_cif_atypes() + natoms);
    std::vector<double> radii;
    for (int t : types) {
      char symbol[3];
      m.find_element_name_from_index(t, symbol);
      radii.push_back(m.find_element_radius_from_name(symbol));
    }
    const Partition partition =
        partition_cell_reference(sites, radii, cell, m.get_bond_dis_scale());
    ASSERT_EQ(m.get_cif_mol_sizes(), partition.sizes) << name;
    ASSERT_EQ(m.get_cif_mol_atoms(), partition.atoms) << name;

    // Whole molecules.
    testing::internal::CaptureStdout();
    m.read_crystal_strcuture_files(false, false);
    m.post_data_read_treatment(false);
    m.build_neighbor_list(false, false);
    testing::internal::GetCapturedStdout();
    const CellMolecules molecules = m.cell_molecules();
    ASSERT_EQ(molecules.count, static_cast<int>(partition.sizes.size())) << name;
    size_t first = 0;
    for (int i = 0; i < molecules.count; ++i) {
      const int n = partition.sizes[i];
      const Molecule whole = make_whole_reference(
          molecule_of(partition, first, n, types, sites, false), cell, m.get_bond_dis_scale());
      EXPECT_EQ(molecules.frac[i], flat_positions(whole.frac)) << name << " molecule " << i;
      first += static_cast<size_t>(n);
    }

    // The neighbour list.
    const std::vector<Fractional> centres = m.centres();
    const NeighborList ref = search_neighbor_list_reference(m.neighbor_search(centres));
    for (int i = 0; i < m.get_nmols_uc(); ++i) {
      ASSERT_EQ(m.get_nei_count(i), static_cast<int>(ref.of[i].size())) << name << " " << i;
      for (int k = 0; k < m.get_nei_count(i); ++k) {
        const NeighborImage& im = ref.of[i][k];
        int shift[3];
        m.get_nei_shift(i, k, shift);
        EXPECT_EQ(m.get_nei_mol(i, k), im.mol);
        for (int c = 0; c < 3; ++c) {
          EXPECT_EQ(shift[c], im.shift[c]);
          EXPECT_EQ(m.get_nei_disp(i)[3 * k + c], im.disp[c]);
          EXPECT_EQ(m.get_nei_com(i)[3 * k + c], im.centre[c]);
        }
      }
    }
  }
}
