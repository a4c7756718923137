// Fast cell partition and whole-molecule growth: bonded atoms are found through a periodic
// grid in fractional space as the molecule grows, and the lowest-index free atom bonded to the
// molecule always joins next, which is exactly the order of the straightforward bond search.
// The partition records through which member each atom joined; where its bonds cover those of
// the whole-molecule test, whole molecules follow these joins in one pass.
#include <algorithm>
#include <cmath>
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


}  // namespace

void FileIO::bond_grid_reach(double reach_cart, const std::vector<double>& frac,
                             const std::vector<int>& atoms, double reach[3]) const {
  // A bonded pair's minimum-image displacement d has |L d| below reach_cart, so along axis k
  // |d_k| <= |row k of L^-1| |L d|; d is a difference of stored positions wrapped by one
  // cell, which bounds its absolute round-off.
  double magnitude = 1.0;
  for (int a : atoms)
    for (int k = 0; k < 3; ++k)
      magnitude = std::max(magnitude, 2.0 * std::fabs(frac[3 * a + k]));
  const double condition = search_margin::lattice_condition(latt, latt_inv);
  inverse_row_lengths(reach);
  for (int k = 0; k < 3; ++k) {
    const double r = search_margin::widened(reach[k] * reach_cart, condition, magnitude);
    reach[k] = std::isfinite(r) && reach_cart > 0.0 ? r : INFINITY;
  }
}

void FileIO::separate_cif_molecules(bool verbose) {
  cif_mol_natoms.clear();
  cif_mol_atoms.clear();
  cif_mol_joined.clear();
  cif_mol_radius.clear();
  cif_partition_scale = bond_dis_scale;
  const int n = natoms_cif;
  enum Kind : char { NONFINITE, NORMAL, BIG, UNIVERSAL };
  std::vector<char> kind(n, NONFINITE), in_cell(n, 0);
  std::vector<int> normal, bigs, universal, outside;
  double rmax = 0.0, rmin = INFINITY;
  for (int i = 0; i < n; ++i) {
    const double* f = &x_s[3 * i];
    if (!finite3(f)) continue;  // a non-finite position bonds to nothing
    in_cell[i] = f[0] >= 0.0 && f[0] <= 1.0 && f[1] >= 0.0 && f[1] <= 1.0 && f[2] >= 0.0 &&
                 f[2] <= 1.0;
    if (!in_cell[i]) outside.push_back(i);
    rmin = std::min(rmin, radius[i]);
    if (radius[i] >= BIG_RADIUS || !std::isfinite(radius[i])) {
      kind[i] = BIG;
    } else {
      kind[i] = NORMAL;
      normal.push_back(i);
      rmax = std::max(rmax, radius[i]);
    }
  }
  // An atom of unknown element inside the cell whose radius reaches across any minimum-image
  // displacement bonds to every atom inside the cell: those bonds need no test.
  double dmax = 0.0;
  for (int k = 0; k < 3; ++k)
    dmax += 0.5 * std::sqrt(latt[0][k] * latt[0][k] + latt[1][k] * latt[1][k] +
                            latt[2][k] * latt[2][k]);
  for (int i = 0; i < n; ++i) {
    if (kind[i] != BIG) continue;
    if (in_cell[i] && std::isfinite(dmax) &&
        (radius[i] + rmin) * bond_dis_scale > search_margin::widened(dmax, 1.0, dmax)) {
      kind[i] = UNIVERSAL;
      universal.push_back(i);
    } else {
      bigs.push_back(i);
    }
  }

  // Normal atoms are found through a grid sized by the longest possible bond along each axis.
  const double reach_cart = 2.0 * rmax * bond_dis_scale;
  const bool normal_bonds = reach_cart > 0.0;
  double reach[3];
  bond_grid_reach(reach_cart, x_s, normal, reach);
  fileio_grid::RemovableGrid grid(x_s, normal, reach, n);

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
    PBC_scaled_disp_wrap(d);
    double dist;
    return bonded(d, radius[i], radius[j], dist);
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
    const size_t first = cif_mol_atoms.size();
    queue(seed, -1);
    while (!ready.empty()) {
      const int a = ready.top();
      ready.pop();
      local[a] = static_cast<int>(cif_mol_atoms.size() - first);
      cif_mol_atoms.push_back(a);
      // Queued during the join of a placed atom, which is the first in placing order that
      // bonds to a: the partner of the straightforward search.
      cif_mol_joined.push_back(joined_by[a] < 0 ? -1 : local[joined_by[a]]);
      cif_mol_radius.push_back(radius[a]);
      join(a);
    }
    const int size = static_cast<int>(cif_mol_atoms.size() - first);
    cif_mol_natoms.push_back(size);
    placed += size;
  }
  print_partition(verbose);
}

int FileIO::grow_whole_molecule(int natoms, double* fx, const double* radii) const {
  std::vector<int> finite;
  double rmax = 0.0;
  for (int i = 0; i < natoms; ++i)
    if (finite3(&fx[3 * i])) {
      finite.push_back(i);
      rmax = std::max(rmax, radii[i]);
    }
  const double reach_cart = 2.0 * rmax * bond_dis_scale;
  if (!(reach_cart > 0.0)) return 1;  // no pair can pass the bond test
  std::vector<double> positions(fx, fx + 3 * natoms);
  double reach[3];
  bond_grid_reach(reach_cart, positions, finite, reach);
  fileio_grid::RemovableGrid grid(positions, finite, reach, natoms);

  // Each free atom remembers the first placed atom (in placing order) it bonds to, directly or
  // through the minimum image; the lowest-index such atom is placed next, next to that partner.
  std::vector<int> partner(natoms, -1);
  std::vector<char> placed(natoms, 0);
  std::priority_queue<int, std::vector<int>, std::greater<int>> ready;
  int count = 0;
  std::vector<int> found;
  auto bonds = [&](int i, int j, double d[3]) { return whole_bond(i, j, fx, radii, d); };
  auto place = [&](int j) {
    placed[j] = 1;
    grid.remove(j);
    ++count;
    if (!finite3(&fx[3 * j])) return;
    found.clear();
    grid.for_each_near(&fx[3 * j], [&](int i) {
      double d[3];
      if (!placed[i] && partner[i] < 0 && bonds(i, j, d)) found.push_back(i);
    });
    for (int i : found) {
      partner[i] = j;
      grid.remove(i);  // its first partner is known: it need not be found again
      ready.push(i);
    }
  };
  place(0);
  while (!ready.empty()) {
    const int i = ready.top();
    ready.pop();
    const int j = partner[i];
    double d[3];
    if (bonds(i, j, d) == 2)
      for (int c = 0; c < 3; ++c) fx[3 * i + c] = fx[3 * j + c] - d[c];
    place(i);
  }
  return count;
}

int FileIO::whole_bond(int i, int j, const double* fx, const double* radii, double d[3]) const {
  double dist;
  for (int c = 0; c < 3; ++c) d[c] = fx[3 * j + c] - fx[3 * i + c];
  if (bonded(d, radii[i], radii[j], dist)) return 1;
  for (int c = 0; c < 3; ++c) d[c] = reduce_to_half_cell(d[c]);
  return bonded(d, radii[i], radii[j], dist) ? 2 : 0;
}

bool FileIO::partition_covers_whole_bonds(int natoms, const double* fx, const double* radii,
                                          const double* partition_radii) const {
  // The partition tested the single-wrapped displacement of the stored positions, all inside
  // the cell here. The whole-molecule test measures a displacement of the current positions,
  // as it stands or reduced: it differs from an exact whole-cell image g of the stored
  // displacement by the drift of the placed atom. Each join moves an atom within half a cell
  // of its partner, so no component exceeds 1 + n/2, and rounds at most 4 times: the drift
  // stays below 4 n u (1 + n/2) per component, below that times ||L||_F in length. With that
  // and the round-off of both tests (search_margin.h) in the reach, a pair the whole-molecule
  // test bonds has |L g| below the widened reach; when that reach spans less than half a cell
  // along every axis, g is the single-wrapped displacement the partition measured, and the
  // partition bonded the pair whenever its threshold exceeds the widened one.
  double norm_l = 0.0;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) norm_l += latt[r][c] * latt[r][c];
  const double n = natoms;
  const double magnitude = std::sqrt(norm_l) * (n + 1.0) * (1.0 + 0.5 * n);
  const double condition = search_margin::lattice_condition(latt, latt_inv);
  auto widened = [&](double r) { return search_margin::widened(r, condition, magnitude); };

  struct Kind {
    double whole, partition;
    int count;
  };
  constexpr size_t MAX_KINDS = 16;  // beyond this the pair check is not worth it
  std::vector<Kind> kinds;
  double rmax = 0.0;
  std::vector<int> atoms(natoms);
  for (int k = 0; k < natoms; ++k) {
    const double* f = &fx[3 * k];
    for (int c = 0; c < 3; ++c)
      if (!(f[c] >= 0.0 && f[c] <= 1.0)) return false;  // outside the cell, or not finite
    auto same = [&](const Kind& s) {
      return s.whole == radii[k] && s.partition == partition_radii[k];
    };
    auto it = std::find_if(kinds.begin(), kinds.end(), same);
    if (it != kinds.end()) {
      ++it->count;
    } else {
      if (kinds.size() == MAX_KINDS) return false;
      kinds.push_back({radii[k], partition_radii[k], 1});
    }
    rmax = std::max(rmax, radii[k]);
    atoms[k] = k;
  }
  for (size_t a = 0; a < kinds.size(); ++a)
    for (size_t b = a; b < kinds.size(); ++b) {
      if (a == b && kinds[a].count < 2) continue;
      const double whole = (kinds[a].whole + kinds[b].whole) * bond_dis_scale;
      const double partition = (kinds[a].partition + kinds[b].partition) * cif_partition_scale;
      if (!(widened(whole) < partition)) return false;
    }
  double reach[3];
  bond_grid_reach(widened(2.0 * rmax * bond_dis_scale), std::vector<double>(fx, fx + 3 * natoms),
                  atoms, reach);
  return reach[0] < 0.5 && reach[1] < 0.5 && reach[2] < 0.5;
}

bool FileIO::grow_whole_molecule_joined(int natoms, double* fx, const double* radii,
                                        const int* joined) const {
  // With the partition's bonds covering the whole-molecule ones, the members bonded to atom k
  // are among those the partition bonded to it, the first of which in placing order is its
  // partner: when the partner bonds, it is the first bonded member, and k is the lowest free
  // atom bonded to the molecule, so the straightforward growth places k next, there.
  for (int k = 1; k < natoms; ++k) {
    const int j = joined[k];
    if (j < 0 || j >= k) return false;
    double d[3];
    const int bond = whole_bond(k, j, fx, radii, d);
    if (bond == 0) return false;
    if (bond == 2)
      for (int c = 0; c < 3; ++c) fx[3 * k + c] = fx[3 * j + c] - d[c];
  }
  return true;
}
