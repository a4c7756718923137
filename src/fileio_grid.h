// A periodic grid over fractional positions, used by the fast duplicate removal and the fast
// bond search: nearby positions (modulo one cell) fall into the same or adjacent bins.
#pragma once
#include <algorithm>
#include <cmath>
#include <vector>

namespace fileio_grid {

// A position with three finite coordinates: only such positions are binned, and a position
// with a non-finite coordinate never passes a distance test.
inline bool finite3(const double* v) {
  return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]);
}

constexpr int MAX_GRID = 256;

// Periodic grid of fractional positions: cells per axis chosen so that any two positions
// closer than `reach[k]` along axis k (modulo one cell) lie in the same or adjacent bins.
// `reach` already holds the round-off margin of the test it serves (search_margin.h), and
// that margin covers the binning's own rounding (one u per axis), so a bin is never
// narrower than the reach.
struct PeriodicGrid {
  int n[3] = {1, 1, 1};
  std::vector<int> start;  // bin b holds order[start[b] .. start[b+1])
  std::vector<int> order;

  PeriodicGrid() : start(2, 0) {}
  PeriodicGrid(const std::vector<double>& frac, const std::vector<int>& atoms,
               const double reach[3]) {
    const double total_limit = 4.0 * static_cast<double>(atoms.size()) + 64.0;
    for (int k = 0; k < 3; ++k) {
      const double w = reach[k];
      double cells = w > 0.0 && std::isfinite(w) ? std::floor(1.0 / w) : 1.0;
      n[k] = static_cast<int>(std::clamp(cells, 1.0, static_cast<double>(MAX_GRID)));
    }
    while (static_cast<double>(n[0]) * n[1] * n[2] > total_limit) {
      int k = n[0] >= n[1] && n[0] >= n[2] ? 0 : (n[1] >= n[2] ? 1 : 2);
      n[k] = std::max(1, n[k] / 2);
    }
    const int nbins = n[0] * n[1] * n[2];
    std::vector<int> bin_of(atoms.size());
    start.assign(nbins + 1, 0);
    for (size_t a = 0; a < atoms.size(); ++a) {
      bin_of[a] = bin(&frac[3 * atoms[a]]);
      ++start[bin_of[a] + 1];
    }
    for (int b = 0; b < nbins; ++b) start[b + 1] += start[b];
    order.resize(atoms.size());
    std::vector<int> fill(start.begin(), start.end() - 1);
    for (size_t a = 0; a < atoms.size(); ++a) order[fill[bin_of[a]]++] = atoms[a];
  }

  int cell_index(double v, int k) const {
    const double f = v - std::floor(v);
    const int c = static_cast<int>(f * n[k]);
    return std::clamp(c, 0, n[k] - 1);
  }
  int bin(const double* f) const {
    return (cell_index(f[0], 0) * n[1] + cell_index(f[1], 1)) * n[2] + cell_index(f[2], 2);
  }

  // Calls visit_bin(b) for every distinct bin adjacent (periodically) to position f, bins
  // ordered by their a, b, c cells.
  template <class VisitBin>
  void for_each_near_bin(const double* f, VisitBin visit_bin) const {
    int cells[3][3], count[3];
    for (int k = 0; k < 3; ++k) {
      const int c = cell_index(f[k], k);
      count[k] = 0;
      for (int o = -1; o <= 1; ++o) {
        const int v = ((c + o) % n[k] + n[k]) % n[k];
        if (std::find(cells[k], cells[k] + count[k], v) == cells[k] + count[k])
          cells[k][count[k]++] = v;
      }
    }
    for (int x = 0; x < count[0]; ++x)
      for (int y = 0; y < count[1]; ++y)
        for (int z = 0; z < count[2]; ++z)
          visit_bin((cells[0][x] * n[1] + cells[1][y]) * n[2] + cells[2][z]);
  }

  // Calls visit(j) for every atom in the bins adjacent (periodically) to position f.
  template <class Visit>
  void for_each_near(const double* f, Visit visit) const {
    for_each_near_bin(f, [&](int b) {
      for (int q = start[b]; q < start[b + 1]; ++q) visit(order[q]);
    });
  }
};

// The same bins, from which atoms can be taken out once they need not be found again, so that
// a dense cluster is scanned once rather than once per atom.
struct RemovableGrid {
  PeriodicGrid shape;
  std::vector<std::vector<int>> bins;
  std::vector<int> bin_of, slot;  // per atom: its bin (-1 when not in the grid), its place there

  RemovableGrid(const std::vector<double>& frac, const std::vector<int>& atoms,
                const double reach[3], int natoms)
      : shape(frac, atoms, reach), bin_of(natoms, -1), slot(natoms, -1) {
    bins.resize(shape.start.size() - 1);
    for (size_t b = 0; b + 1 < shape.start.size(); ++b)
      for (int q = shape.start[b]; q < shape.start[b + 1]; ++q) {
        const int a = shape.order[q];
        bin_of[a] = static_cast<int>(b);
        slot[a] = static_cast<int>(bins[b].size());
        bins[b].push_back(a);
      }
  }

  void remove(int a) {
    const int b = bin_of[a];
    if (b < 0) return;
    std::vector<int>& bin = bins[b];
    const int last = bin.back();
    bin[slot[a]] = last;
    slot[last] = slot[a];
    bin.pop_back();
    bin_of[a] = slot[a] = -1;
  }

  // Calls visit(j) for every atom still in the bins adjacent (periodically) to position f.
  template <class Visit>
  void for_each_near(const double* f, Visit visit) const {
    shape.for_each_near_bin(f, [&](int b) {
      for (int a : bins[b]) visit(a);
    });
  }

  template <class Visit>
  void for_each(Visit visit) const {
    for (const std::vector<int>& bin : bins)
      for (int a : bin) visit(a);
  }
};

}  // namespace fileio_grid
