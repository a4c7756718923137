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

std::vector<std::vector<int>> FileIO::cif_bond_graph() const {
  const int n = natoms_cif;
  std::vector<std::vector<int>> adj(n);
  std::vector<int> normal, big;
  double rmax = 0.0;
  for (int i = 0; i < n; ++i) {
    if (!finite3(&x_s[3 * i])) continue;  // a non-finite position bonds to nothing
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
      adj[i].push_back(j);
      adj[j].push_back(i);
    }
  };

  // Reach in fractional units of the longest possible bond along each axis.
  const double reach_cart = 2.0 * rmax * bond_dis_scale;
  if (reach_cart > 0.0) {
    double reach[3];
    for (int k = 0; k < 3; ++k) {
      const double row = std::sqrt(latt_inv[k][0] * latt_inv[k][0] +
                                   latt_inv[k][1] * latt_inv[k][1] +
                                   latt_inv[k][2] * latt_inv[k][2]);
      reach[k] = std::isfinite(row) ? row * reach_cart : INFINITY;
    }
    const fileio_grid::PeriodicGrid grid(x_s, normal, reach);
    for (int i : normal)
      grid.for_each_near(&x_s[3 * i], [&](int j) {
        if (j > i) test(i, j);
      });
  }
  for (size_t b = 0; b < big.size(); ++b) {
    const int i = big[b];
    for (int j : normal) test(i, j);
    for (size_t c = b + 1; c < big.size(); ++c) test(i, big[c]);
  }
  return adj;
}

void FileIO::separate_cif_molecules(bool verbose) {
  cif_mol_natoms.clear();
  cif_mol_atoms.clear();
  const int n = natoms_cif;
  const std::vector<std::vector<int>> adj = cif_bond_graph();
  std::vector<char> assigned(n, 0);
  std::priority_queue<int, std::vector<int>, std::greater<int>> frontier;
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
      for (int b : adj[a])
        if (!assigned[b]) frontier.push(b);
    }
    const int size = static_cast<int>(cif_mol_atoms.size() - first);
    cif_mol_natoms.push_back(size);
    placed += size;
  }
  print_partition(verbose);
}
