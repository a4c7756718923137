// The fast neighbour search against the straightforward one, as stage functions over values:
// identical lists (molecules, shifts, displacements, centres, order) or the same fatal status,
// on generated cells that take every branch of the fast contact test, and where the round-off
// margins are tight: centre bins exactly as wide as the reach allows and molecules placed at
// the reach.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "molecular_data.h"
#include "neighbor_search.h"
#include "test_support.h"
#include "util_error.h"

namespace {

using test_support::Molecules;

struct FatalCaught : std::runtime_error {
  explicit FatalCaught(int s) : std::runtime_error("fatal"), status(s) {}
  int status;
};
[[noreturn]] void throw_on_fatal(int status) { throw FatalCaught(status); }


// The bits of every number of a list in order (NaN included), or the fatal status it ended
// with.
std::vector<std::uint64_t> flat(NeighborList (*search)(const NeighborSearch&),
                                const NeighborSearch& s) {
  constexpr std::uint64_t kMolecule = ~0ull, kFatal = ~1ull;
  auto bits = [](double v) {
    std::uint64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
  };
  set_fatal_handler(throw_on_fatal);
  std::vector<std::uint64_t> out;
  testing::internal::CaptureStdout();  // the report of a fatal end
  testing::internal::CaptureStderr();
  try {
    const NeighborList list = search(s);
    for (const std::vector<NeighborImage>& images : list.of) {
      out.push_back(kMolecule);
      for (const NeighborImage& im : images) {
        out.push_back(static_cast<std::uint64_t>(im.mol));
        for (int k = 0; k < 3; ++k) out.push_back(static_cast<std::uint64_t>(im.shift[k]));
        for (int k = 0; k < 3; ++k) out.push_back(bits(im.disp[k]));
        for (int k = 0; k < 3; ++k) out.push_back(bits(im.centre[k]));
      }
    }
  } catch (const FatalCaught& e) {
    out = {kFatal, static_cast<std::uint64_t>(e.status)};
  }
  testing::internal::GetCapturedStderr();
  testing::internal::GetCapturedStdout();
  set_fatal_handler(nullptr);
  return out;
}

// Runs both searches; returns how many images the reference found (-1 on a fatal end).
int searches_agree(const NeighborSearch& s, const std::string& what) {
  const std::vector<std::uint64_t> fast = flat(search_neighbor_list, s);
  const std::vector<std::uint64_t> ref = flat(search_neighbor_list_reference, s);
  EXPECT_EQ(fast, ref) << what;
  if (ref.size() == 2 && ref[0] == ~1ull) return -1;
  return static_cast<int>((ref.size() - s.molecules.count) / 10);
}

}  // namespace

// Random skewed cells holding copies of a random chain molecule, some of them large enough for
// the atom grid (above contact_grid_threshold, or with the threshold lowered to 0) and others
// taking the Cartesian test, with atoms of non-finite coordinates now and then, cut-offs from
// 0 to beyond the cell, search ranges from 0 to 3 and lists that reach the capacity.
TEST(NeighborSearchStage, FastMatchesStraightforwardOnGeneratedCells) {
  std::mt19937 rng(2026);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  const double cutoffs[] = {0.0, 0.5, 2.0, 4.0, 6.5, 3.0};
  int grid_pairs = 0, lists = 0, fatal = 0;
  for (int trial = 0; trial < 400; ++trial) {
    // Large molecules in wide cells; now and then a crowded tiny cell that fills the list.
    const bool large = trial % 5 == 0, crowded = trial % 25 == 3;
    std::uniform_real_distribution<double> len(large     ? 6.0
                                               : crowded ? 1.5
                                                         : 3.0,
                                               large     ? 20.0
                                               : crowded ? 2.5
                                                         : 14.0),
        ang(65.0, 115.0);
    const double p[6] = {len(rng), len(rng), len(rng), ang(rng), ang(rng), ang(rng)};
    const Lattice l = Lattice::from_parameters(p);
    const int atoms = large ? 50 + static_cast<int>(u(rng) * 30) : 1 + static_cast<int>(u(rng) * 8);
    std::vector<double> shape;  // Cartesian offsets of a chain
    double pos[3] = {0, 0, 0};
    for (int a = 0; a < atoms; ++a) {
      for (double& v : pos) v += (u(rng) - 0.5) * 2.4;
      shape.insert(shape.end(), pos, pos + 3);
    }
    Molecules m;
    const int copies = 1 + static_cast<int>(u(rng) * (large ? 3 : 7));
    for (int c = 0; c < copies; ++c) {
      const double origin[3] = {u(rng), u(rng), u(rng)};
      std::vector<double> frac;
      for (int a = 0; a < atoms; ++a) {
        Fractional f = l.to_fractional(Cartesian(&shape[3 * a]));
        for (int k = 0; k < 3; ++k) f[k] += origin[k];
        if (u(rng) < 0.01) f[static_cast<int>(u(rng) * 3)] = u(rng) < 0.5 ? NAN : INFINITY;
        frac.insert(frac.end(), f.v, f.v + 3);
      }
      m.add(std::vector<int>(atoms, 6), frac);
    }
    const MolecularCentres centres = molecular_centres(m.view(), l);
    const int range = crowded ? 3 : trial % 7 == 0 ? 0 : 1 + static_cast<int>(u(rng) * 3);
    const double rc = crowded ? 6.5 : cutoffs[trial % 6];
    NeighborSearch s{m.view(), centres.centre, l, rc * rc, {range, range, range}};
    if (!large && trial % 2) s.contact_grid_threshold = 0;  // every pair on the grid
    grid_pairs += static_cast<long>(atoms) * atoms > s.contact_grid_threshold;
    const int found = searches_agree(s, "trial " + std::to_string(trial));
    fatal += found < 0;
    lists += found > 0;
  }
  EXPECT_GT(grid_pairs, 150);
  EXPECT_GT(lists, 200);
  EXPECT_GT(fatal, 0);
}

// Two C2 dimers along a, their inner atoms a cut-off apart, so that their centres lie at the
// cut-off plus both sphere radii: exactly at the reach of the centre grid and of the per-axis
// span test that passes over molecules no image brings within reach. The a axis holds n centre
// bins just wider than that reach. The squared cut-off is the inner atoms' squared distance as
// the contact test computes it, or the next double above: the contact fails (the test is
// strict) or passes by the least amount. Swept over the position of the pair, fast and
// straightforward lists agree, and every contact that passes is found.
TEST(NeighborSearchStage, MarginsHoldWhereBinsAndSpansAreAsNarrowAsTheReach) {
  const double rc = 4.0, bond = 1.4;
  for (int n : {10, 23, 40, 60}) {
    const double a = n * (rc + bond) * (1.0 + 1e-12);
    const double p[6] = {a, 1.5 * (rc + bond), 1.5 * (rc + bond), 90.0, 90.0, 90.0};
    const Lattice l = Lattice::from_parameters(p);
    int contacts = 0;
    for (int sweep = 0; sweep < 200; ++sweep) {
      const double x0 = (sweep + 0.61) / 200.0;
      const double inner = x0 + bond / a, outer = x0 + (bond + rc) / a;
      Molecules m;
      m.add({6, 6}, {x0, 0.2, 0.2, inner, 0.2, 0.2});
      m.add({6, 6}, {outer, 0.2, 0.2, x0 + (2 * bond + rc) / a, 0.2, 0.2});
      const Cartesian d = l.to_cartesian(Fractional(outer - inner, 0.2 - 0.2, 0.2 - 0.2));
      const double d2 = d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
      const MolecularCentres centres = molecular_centres(m.view(), l);
      for (double cutoff_sq : {d2, std::nextafter(d2, INFINITY)}) {
        NeighborSearch s{m.view(), centres.centre, l, cutoff_sq, {1, 1, 1}};
        s.contact_grid_threshold = sweep % 2 ? 0 : 2048;
        const int found =
            searches_agree(s, std::to_string(n) + " bins, sweep " + std::to_string(sweep));
        EXPECT_EQ(found, cutoff_sq == d2 ? 0 : 2);
        contacts += found;
      }
    }
    EXPECT_EQ(contacts, 2 * 200) << n << " bins";
  }
}
