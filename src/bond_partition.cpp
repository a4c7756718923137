// The bond partition of an expanded cell. The fast path finds bonded atoms through a periodic
// grid in fractional space as a molecule grows, and the lowest-index free atom bonded to the
// molecule always joins next, which is exactly the order of the straightforward bond search
// kept beside it. The fast path records through which member each atom joined its molecule.
#include "bond_partition.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <queue>
#include <vector>

#include "fileio.h"
#include "fileio_grid.h"
#include "search_margin.h"
#include "util.h"

using fileio_grid::finite3;

namespace {

// Atoms whose bond radius is this large (unknown elements) are tested against every atom.
constexpr double BIG_RADIUS = 50.0;

// The periodic grid's bins, from which atoms are taken out once queued. Each bin keeps its
// atoms still in the grid at the front of its range of the grid's order (an atom taken out
// trades places with the bin's last one), so the grid needs two integers per bin and one per
// atom beside the bins themselves, and no storage per bin of its own.
class PartitionGrid {
 public:
  PartitionGrid(const std::vector<double>& frac, const std::vector<int>& atoms,
                const double reach[3], int natoms)
      : frac_(frac), shape_(frac, atoms, reach), place_(natoms, -1) {
    const size_t nbins = shape_.start.size() - 1;
    live_.resize(nbins);
    for (size_t b = 0; b < nbins; ++b) {
      live_[b] = shape_.start[b + 1] - shape_.start[b];
      for (int q = shape_.start[b]; q < shape_.start[b + 1]; ++q) place_[shape_.order[q]] = q;
    }
  }

  void remove(int a) {
    const int at = place_[a];
    if (at < 0) return;
    const int b = shape_.bin(&frac_[3 * static_cast<size_t>(a)]);
    const int end = shape_.start[b] + --live_[b];
    const int last = shape_.order[end];
    shape_.order[at] = last;
    place_[last] = at;
    shape_.order[end] = a;
    place_[a] = -1;
  }

  // Calls visit(j) for every atom still in the bins adjacent (periodically) to position f.
  template <class Visit>
  void for_each_near(const double* f, Visit visit) const {
    shape_.for_each_near_bin(f, [&](int b) { visit_bin(b, visit); });
  }

  template <class Visit>
  void for_each(Visit visit) const {
    for (size_t b = 0; b < live_.size(); ++b) visit_bin(static_cast<int>(b), visit);
  }

 private:
  template <class Visit>
  void visit_bin(int b, Visit& visit) const {
    const int first = shape_.start[b];
    for (int q = first; q < first + live_[b]; ++q) visit(shape_.order[q]);
  }

  const std::vector<double>& frac_;
  fileio_grid::PeriodicGrid shape_;
  std::vector<int> live_;   // per bin: atoms still in it
  std::vector<int> place_;  // per atom: its place in the order (-1 when not in the grid)
};

}  // namespace

std::vector<double> flat_positions(const std::vector<Fractional>& sites) {
  std::vector<double> flat(3 * sites.size());
  for (size_t i = 0; i < sites.size(); ++i)
    for (int c = 0; c < 3; ++c) flat[3 * i + c] = sites[i][c];
  return flat;
}

void bond_grid_reach(const Lattice& lattice, double reach_cart, const std::vector<double>& frac,
                     const std::vector<int>& atoms, double reach[3]) {
  // A bonded pair's minimum-image displacement d has |L d| below reach_cart, so along axis k
  // |d_k| <= |row k of L^-1| |L d|; d is a difference of stored positions wrapped by one
  // cell, which bounds its absolute round-off.
  double magnitude = 1.0;
  for (int a : atoms)
    for (int k = 0; k < 3; ++k) magnitude = std::max(magnitude, 2.0 * std::fabs(frac[3 * a + k]));
  const double condition = search_margin::lattice_condition(lattice.m, lattice.inv);
  lattice.inverse_row_lengths(reach);
  for (int k = 0; k < 3; ++k) {
    const double r = search_margin::widened(reach[k] * reach_cart, condition, magnitude);
    reach[k] = std::isfinite(r) && reach_cart > 0.0 ? r : INFINITY;
  }
}

Partition partition_cell(const std::vector<Fractional>& sites, const std::vector<double>& radii,
                         const Lattice& lattice, double scale) {
  return partition_cell(flat_positions(sites), radii, lattice, scale);
}

Partition partition_cell(const std::vector<double>& x_s, const std::vector<double>& radii,
                         const Lattice& lattice, double scale) {
  Partition out;
  out.scale = scale;
  const int n = static_cast<int>(x_s.size() / 3);
  // Every atom is placed exactly once.
  out.atoms.reserve(n);
  out.joined.reserve(n);
  out.radius.reserve(n);
  const BondTest bonded{lattice, scale};
  enum Kind : char { NONFINITE, NORMAL, BIG, UNIVERSAL };
  std::vector<char> kind(n, NONFINITE), in_cell(n, 0);
  std::vector<int> normal, bigs, universal, outside;
  double rmax = 0.0, rmin = INFINITY;
  for (int i = 0; i < n; ++i) {
    const double* f = &x_s[3 * i];
    if (!finite3(f)) continue;  // a non-finite position bonds to nothing
    in_cell[i] =
        f[0] >= 0.0 && f[0] <= 1.0 && f[1] >= 0.0 && f[1] <= 1.0 && f[2] >= 0.0 && f[2] <= 1.0;
    if (!in_cell[i]) outside.push_back(i);
    rmin = std::min(rmin, radii[i]);
    if (radii[i] >= BIG_RADIUS || !std::isfinite(radii[i])) {
      kind[i] = BIG;
    } else {
      kind[i] = NORMAL;
      normal.push_back(i);
      rmax = std::max(rmax, radii[i]);
    }
  }
  // An atom of unknown element inside the cell whose radius reaches across any minimum-image
  // displacement bonds to every atom inside the cell: those bonds need no test.
  const double(&latt)[3][3] = lattice.m;
  double dmax = 0.0;
  for (int k = 0; k < 3; ++k)
    dmax += 0.5 *
            std::sqrt(latt[0][k] * latt[0][k] + latt[1][k] * latt[1][k] + latt[2][k] * latt[2][k]);
  for (int i = 0; i < n; ++i) {
    if (kind[i] != BIG) continue;
    if (in_cell[i] && std::isfinite(dmax) &&
        (radii[i] + rmin) * scale > search_margin::widened(dmax, 1.0, dmax)) {
      kind[i] = UNIVERSAL;
      universal.push_back(i);
    } else {
      bigs.push_back(i);
    }
  }

  // Normal atoms are found through a grid sized by the longest possible bond along each axis.
  const double reach_cart = 2.0 * rmax * scale;
  const bool normal_bonds = reach_cart > 0.0;
  double reach[3];
  bond_grid_reach(lattice, reach_cart, x_s, normal, reach);
  PartitionGrid grid(x_s, normal, reach, n);

  // Growth: when an atom joins, every not yet queued atom bonded to it is queued (and taken
  // out of the search); the lowest-index queued atom joins next, which is the order of the
  // straightforward search, whose bond test is symmetric.
  std::vector<char> queued(n, 0);
  std::vector<int> joined_by(n, -1), local(n, 0);  // the atom whose join queued it; its place
  std::priority_queue<int, std::vector<int>, std::greater<int>> ready;
  std::vector<int> found;
  auto bonds = [&](int i, int j) {
    double d[3];
    for (int c = 0; c < 3; ++c) d[c] = x_s[3 * j + c] - x_s[3 * i + c];
    FileIO::PBC_scaled_disp_wrap(d);
    double dist;
    return bonded(d, radii[i], radii[j], dist);
  };
  auto queue = [&](int q, int by) {
    if (queued[q]) return;
    queued[q] = 1;
    joined_by[q] = by;
    grid.remove(q);
    ready.push(q);
  };
  auto test_into_found = [&](int a, int q) {
    if (!queued[q] && bonds(a, q)) found.push_back(q);
  };
  bool cell_pushed = false, universal_pushed = false;
  auto join = [&](int a) {
    found.clear();
    if (kind[a] == NORMAL && normal_bonds)
      grid.for_each_near(&x_s[3 * a], [&](int q) { test_into_found(a, q); });
    if (kind[a] == BIG) grid.for_each([&](int q) { test_into_found(a, q); });
    if (kind[a] == NORMAL || kind[a] == BIG)
      for (int q : bigs) test_into_found(a, q);
    if (kind[a] != NONFINITE && !in_cell[a])
      for (int u : universal) test_into_found(a, u);
    if (kind[a] == UNIVERSAL) {
      for (int q : outside) test_into_found(a, q);
      if (!cell_pushed) {
        cell_pushed = true;
        for (int q = 0; q < n; ++q)
          if (in_cell[q]) found.push_back(q);
      }
    }
    if (in_cell[a] && !universal_pushed && !universal.empty()) {
      universal_pushed = true;
      found.insert(found.end(), universal.begin(), universal.end());
    }
    for (int q : found) queue(q, a);
  };

  int seed = 0;
  int placed = 0;
  while (placed < n) {
    while (queued[seed]) ++seed;
    const size_t first = out.atoms.size();
    queue(seed, -1);
    while (!ready.empty()) {
      const int a = ready.top();
      ready.pop();
      local[a] = static_cast<int>(out.atoms.size() - first);
      out.atoms.push_back(a);
      // Queued during the join of a placed atom, which is the first in placing order that
      // bonds to a: the partner of the straightforward search.
      out.joined.push_back(joined_by[a] < 0 ? -1 : local[joined_by[a]]);
      out.radius.push_back(radii[a]);
      join(a);
    }
    const int size = static_cast<int>(out.atoms.size() - first);
    out.sizes.push_back(size);
    placed += size;
  }
  return out;
}

Partition partition_cell_reference(const std::vector<Fractional>& sites,
                                   const std::vector<double>& radii, const Lattice& lattice,
                                   double scale) {
  Partition out;
  out.scale = scale;  // no record of the joins: whole molecules are grown in full
  const int natoms = static_cast<int>(sites.size());
  const BondTest bonded{lattice, scale};
  auto test = [&](int i, int j, double& dist) {
    double d[3];
    for (int c = 0; c < 3; ++c) d[c] = sites[j][c] - sites[i][c];
    FileIO::PBC_scaled_disp_wrap(d);
    return bonded(d, radii[i], radii[j], dist);
  };
  std::vector<int> unassigned(natoms, 1);
  std::vector<int> list;
  int placed = 0;
  while (placed < natoms) {
    int atom, partner;
    double dist;
    search_bond(natoms, unassigned, static_cast<int>(list.size()), list, test, atom, partner, dist);
    if (list.empty()) {
      if (atom < 0) break;  // cannot happen while atoms remain; guards the loop
      unassigned[atom] = 0;
      list.push_back(atom);
    } else if (atom >= 0) {
      unassigned[atom] = 0;
      list.push_back(atom);
    } else {
      out.sizes.push_back(static_cast<int>(list.size()));
      out.atoms.insert(out.atoms.end(), list.begin(), list.end());
      placed += static_cast<int>(list.size());
      list.clear();
    }
  }
  return out;
}

void print_partition(const Partition& partition, bool verbose) {
  if (!verbose) return;
  std::printf("  Unit cell nmols  = %d\n", static_cast<int>(partition.sizes.size()));
  std::printf("  Unit cell natoms =");
  for (int n : partition.sizes) std::printf(" %d", n);
  std::printf("\n");
}
