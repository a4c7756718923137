// Expansion to the whole cell: the candidates of every symmetry operation, the duplicate
// search over them (grid and pairwise) and the compaction to the kept atoms.
#include "p1_expansion.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "fileio.h"
#include "fileio_grid.h"
#include "search_margin.h"
#include "symmetry_operation.h"
#include "util.h"

namespace {

// Largest cell the expansion builds (about 60 bytes per atom); far above any molecular crystal.
constexpr size_t MAX_EXPANDED_ATOMS = 4000000;

constexpr double OVERLAP_TOLERANCE_SQ = 0.0001;  // squared fractional distance

// Squared fractional distance of b from a after the minimum-image shift.
double overlap_distance_sq(const double* a, const double* b) {
  double d[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
  FileIO::PBC_scaled_disp_wrap(d);
  return d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
}

void print_overlap(size_t i, size_t j, const std::vector<double>& frac) {
  const double* a = &frac[3 * i];
  const double* b = &frac[3 * j];
  std::printf(" overlapped atoms: %3d %.4f %.4f %.4f  |  %3d %.4f %.4f %.4f\n", static_cast<int>(i),
              a[0], a[1], a[2], static_cast<int>(j), b[0], b[1], b[2]);
}

using OverlapSearch = int (*)(const std::vector<double>&, std::vector<char>&, bool);

// Every atom under every operation (operation by operation), then the duplicate removal.
AtomSites expand(const AtomSites& unit, const std::vector<std::string>& operations,
                 const Lattice& lattice, int fractional_flag, const std::string& file_name,
                 bool debug, OverlapSearch mark) {
  const size_t n = unit.types.size();
  const size_t m = operations.size();
  const size_t total = n * m;
  if (total > MAX_EXPANDED_ATOMS)
    fatal_error("fileio", fileio_lines::TOO_MANY_ATOMS, FatalStream::Out,
                format_string("Too many atoms after symmetry expansion in %s: %zu atoms x %zu "
                              "operations is more than %zu!\n",
                              file_name.c_str(), n, m, MAX_EXPANDED_ATOMS),
                -1);
  AtomSites cell;
  cell.types.resize(total);
  cell.radius.resize(total);
  cell.frac.assign(3 * total, 0.0);
  cell.cart.assign(3 * total, 0.0);

  for (size_t op = 0; op < m; ++op) {
    const SymmetryOperation s = parse_symmetry_operation(operations[op]);
    if (debug) {
      std::printf(">> operations: %s\n", operations[op].c_str());
      std::printf("matrix:\n");
      for (int k = 0; k < 3; ++k) std::printf("%4g%4g%4g\n", s.R[k][0], s.R[k][1], s.R[k][2]);
      std::printf("vector: \n  %g  %g  %g\n-------------------\n", s.t[0], s.t[1], s.t[2]);
    }
    for (size_t i = 0; i < n; ++i) {
      const size_t c = op * n + i;
      cell.types[c] = unit.types[i];
      cell.radius[c] = unit.radius.size() > i ? unit.radius[i] : 0.0;
      const double* p = fractional_flag ? &unit.frac[3 * i] : &unit.cart[3 * i];
      double* dst = fractional_flag ? &cell.frac[3 * c] : &cell.cart[3 * c];
      for (int k = 0; k < 3; ++k)
        dst[k] = shift_into_cell(s.R[k][0] * p[0] + s.R[k][1] * p[1] + s.R[k][2] * p[2] + s.t[k]);
      if (!fractional_flag) lattice_product(lattice.inv, &cell.cart[3 * c], &cell.frac[3 * c]);
    }
  }

  std::vector<char> removed;
  const int noverlap = mark(cell.frac, removed, debug);
  if (noverlap > 0) {
    std::printf("WARNING: Overlapped atoms detected and to be removed\n");
    std::printf("         Number of overlapped atoms is %d\n", noverlap);
    std::printf("         Number of remaining atoms is %d\n", static_cast<int>(total) - noverlap);
    size_t kept = 0;
    for (size_t i = 0; i < total; ++i) {
      if (removed[i]) continue;
      cell.types[kept] = cell.types[i];
      cell.radius[kept] = cell.radius[i];
      for (int k = 0; k < 3; ++k) {
        cell.frac[3 * kept + k] = cell.frac[3 * i + k];
        cell.cart[3 * kept + k] = cell.cart[3 * i + k];
      }
      ++kept;
    }
    cell.types.resize(kept);
    cell.radius.resize(kept);
    cell.frac.resize(3 * kept);
    cell.cart.resize(3 * kept);
  }
  return cell;
}

}  // namespace

int mark_overlaps_reference(const std::vector<double>& frac, std::vector<char>& removed,
                            bool debug) {
  const size_t total = frac.size() / 3;
  removed.assign(total, 0);
  int count = 0;
  for (size_t i = 0; i < total; ++i) {
    if (removed[i]) continue;
    for (size_t j = i + 1; j < total; ++j) {
      if (removed[j]) continue;
      if (overlap_distance_sq(&frac[3 * i], &frac[3 * j]) < OVERLAP_TOLERANCE_SQ) {
        removed[j] = 1;
        ++count;
        if (debug) print_overlap(i, j, frac);
      }
    }
  }
  return count;
}

int mark_overlaps(const std::vector<double>& frac, std::vector<char>& removed, bool debug) {
  const size_t total = frac.size() / 3;
  removed.assign(total, 0);
  // Positions that are not finite never coincide with anything: leave them out of the grid.
  std::vector<int> binned;
  double magnitude = 1.0;  // the wrap adds or takes one cell
  for (size_t i = 0; i < total; ++i)
    if (fileio_grid::finite3(&frac[3 * i])) {
      binned.push_back(static_cast<int>(i));
      for (int k = 0; k < 3; ++k) magnitude = std::max(magnitude, 2.0 * std::fabs(frac[3 * i + k]));
    }
  // Two positions coincide when their squared minimum-image distance is below the tolerance,
  // so along each axis they lie closer than its square root (no lattice is involved).
  const double along = search_margin::widened(std::sqrt(OVERLAP_TOLERANCE_SQ), 1.0, magnitude);
  const double reach[3] = {along, along, along};
  const fileio_grid::PeriodicGrid grid(frac, binned, reach);
  int count = 0;
  std::vector<int> hits;
  for (int i : binned) {
    if (removed[i]) continue;
    hits.clear();
    grid.for_each_near(&frac[3 * i], [&](int j) {
      if (j > i && !removed[j] &&
          overlap_distance_sq(&frac[3 * i], &frac[3 * j]) < OVERLAP_TOLERANCE_SQ)
        hits.push_back(j);
    });
    std::sort(hits.begin(), hits.end());
    for (int j : hits) {
      removed[j] = 1;
      ++count;
      if (debug) print_overlap(i, j, frac);
    }
  }
  return count;
}

AtomSites expand_to_p1(const AtomSites& unit, const std::vector<std::string>& operations,
                       const Lattice& lattice, int fractional_flag, const std::string& file_name,
                       bool debug) {
  return expand(unit, operations, lattice, fractional_flag, file_name, debug, mark_overlaps);
}

AtomSites expand_to_p1_reference(const AtomSites& unit, const std::vector<std::string>& operations,
                                 const Lattice& lattice, int fractional_flag,
                                 const std::string& file_name, bool debug) {
  return expand(unit, operations, lattice, fractional_flag, file_name, debug,
                mark_overlaps_reference);
}
