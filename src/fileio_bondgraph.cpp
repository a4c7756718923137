// Fast cell partition: the bond graph of the expanded cell from a periodic grid in fractional
// space, then molecule growth that always takes the lowest-index free atom bonded to the
// molecule, which is exactly the order of the straightforward bond search.
#include <algorithm>
#include <cmath>
#include <functional>
#include <queue>
#include <vector>

#include "fileio.h"
#include "fileio_grid.h"
#include "util.h"

namespace {

// Atoms whose bond radius is this large (unknown elements) are tested against every atom.
constexpr double BIG_RADIUS = 50.0;

bool finite3(const double* f) {
  return std::isfinite(f[0]) && std::isfinite(f[1]) && std::isfinite(f[2]);
}

}  // namespace

FileIO::BondGraph FileIO::cif_bond_graph() const {
  const int n = natoms_cif;
  BondGraph g;
  g.adj.resize(n);
  g.in_cell.assign(n, 0);
  std::vector<int> normal, big, outside;
  double rmax = 0.0, rmin = INFINITY;
  for (int i = 0; i < n; ++i) {
    const double* f = &x_s[3 * i];
    if (!finite3(f)) continue;  // a non-finite position bonds to nothing
    g.in_cell[i] = f[0] >= 0.0 && f[0] <= 1.0 && f[1] >= 0.0 && f[1] <= 1.0 && f[2] >= 0.0 &&
                   f[2] <= 1.0;
    if (!g.in_cell[i]) outside.push_back(i);
    rmin = std::min(rmin, radius[i]);
    if (radius[i] >= BIG_RADIUS || !std::isfinite(radius[i])) {
      big.push_back(i);
    } else {
      normal.push_back(i);
      rmax = std::max(rmax, radius[i]);
    }
  }
  auto test = [&](int i, int j) {
    double d[3];
    for (int c = 0; c < 3; ++c) d[c] = x_s[3 * j + c] - x_s[3 * i + c];
    PBC_scaled_disp_wrap(d);
    double dist;
    if (bonded(d, radius[i], radius[j], dist)) {
      g.adj[i].push_back(j);
      g.adj[j].push_back(i);
    }
  };

  // Reach in fractional units of the longest possible bond along each axis.
  const double reach_cart = 2.0 * rmax * bond_dis_scale;
  if (reach_cart > 0.0) {
    double reach[3];
    inverse_row_lengths(reach);
    for (double& r : reach) r = std::isfinite(r) ? r * reach_cart : INFINITY;
    const fileio_grid::PeriodicGrid grid(x_s, normal, reach);
    for (int i : normal)
      grid.for_each_near(&x_s[3 * i], [&](int j) {
        if (j > i) test(i, j);
      });
  }

  // An atom of unknown element inside the cell whose radius reaches across any minimum-image
  // displacement bonds to every atom inside the cell: those bonds are implied, not listed.
  double dmax = 0.0;
  for (int k = 0; k < 3; ++k)
    dmax += 0.5 * std::sqrt(latt[0][k] * latt[0][k] + latt[1][k] * latt[1][k] +
                            latt[2][k] * latt[2][k]);
  std::vector<int> others;  // big atoms that list their bonds
  for (int i : big) {
    const bool universal = g.in_cell[i] && std::isfinite(dmax) &&
                           (radius[i] + rmin) * bond_dis_scale > dmax * (1.0 + 1e-6) + 1e-9;
    if (universal)
      g.universal.push_back(i);
    else
      others.push_back(i);
  }
  for (int i : g.universal)
    for (int j : outside) test(i, j);
  for (size_t b = 0; b < others.size(); ++b) {
    const int i = others[b];
    for (int j : normal) test(i, j);
    for (size_t c = b + 1; c < others.size(); ++c) test(i, others[c]);
  }
  return g;
}

void FileIO::separate_cif_molecules(bool verbose) {
  cif_mol_natoms.clear();
  cif_mol_atoms.clear();
  const int n = natoms_cif;
  const BondGraph g = cif_bond_graph();
  std::vector<char> assigned(n, 0);
  std::priority_queue<int, std::vector<int>, std::greater<int>> frontier;
  bool cell_pushed = false, universal_pushed = false;
  int seed = 0;
  int placed = 0;
  while (placed < n) {
    while (assigned[seed]) ++seed;
    const size_t first = cif_mol_atoms.size();
    frontier.push(seed);
    while (!frontier.empty()) {
      const int a = frontier.top();
      frontier.pop();
      if (assigned[a]) continue;
      assigned[a] = 1;
      cif_mol_atoms.push_back(a);
      for (int b : g.adj[a])
        if (!assigned[b]) frontier.push(b);
      const bool is_universal = std::binary_search(g.universal.begin(), g.universal.end(), a);
      if (is_universal && !cell_pushed) {
        cell_pushed = true;
        for (int b = 0; b < n; ++b)
          if (g.in_cell[b] && !assigned[b]) frontier.push(b);
      }
      if (g.in_cell[a] && !universal_pushed && !g.universal.empty()) {
        universal_pushed = true;
        for (int u : g.universal)
          if (!assigned[u]) frontier.push(u);
      }
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
  double reach[3];
  inverse_row_lengths(reach);
  for (double& r : reach) r = std::isfinite(r) ? r * reach_cart : INFINITY;
  const fileio_grid::PeriodicGrid grid(std::vector<double>(fx, fx + 3 * natoms), finite, reach);

  // Each free atom remembers the first placed atom (in placing order) it bonds to, directly or
  // through the minimum image; the lowest-index such atom is placed next, next to that partner.
  std::vector<int> partner(natoms, -1);
  std::vector<char> placed(natoms, 0);
  std::priority_queue<int, std::vector<int>, std::greater<int>> ready;
  int count = 0;
  auto bonds = [&](int i, int j, double d[3]) {
    double dist;
    for (int c = 0; c < 3; ++c) d[c] = fx[3 * j + c] - fx[3 * i + c];
    if (bonded(d, radii[i], radii[j], dist)) return 1;
    for (int c = 0; c < 3; ++c) d[c] = reduce_to_half_cell(d[c]);
    return bonded(d, radii[i], radii[j], dist) ? 2 : 0;
  };
  auto place = [&](int j) {
    placed[j] = 1;
    ++count;
    if (!finite3(&fx[3 * j])) return;
    grid.for_each_near(&fx[3 * j], [&](int i) {
      double d[3];
      if (!placed[i] && partner[i] < 0 && bonds(i, j, d)) {
        partner[i] = j;
        ready.push(i);
      }
    });
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
