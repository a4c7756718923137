// Symmetry operations of a crystal file: parsing an operation text into a rotation and a
// translation, and expanding the asymmetric unit to the full cell (space group P1) with
// removal of generated atoms that fall on top of each other.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include "fileio.h"
#include "fileio_grid.h"
#include "search_margin.h"
#include "util.h"

namespace {

// Largest cell the expansion builds (about 60 bytes per atom); far above any molecular crystal.
constexpr size_t MAX_EXPANDED_ATOMS = 4000000;

// Brings a translation or fractional component into [0, 1) by one shift.
double shift_into_cell(double v) {
  if (v < 0.0) return v + 1.0;
  if (v >= 1.0) return v - 1.0;
  return v;
}

// One component of an operation such as "-y+1/2": sets row `r` of R and returns t_k.
double parse_component(const std::string& comp, double r[3], double t) {
  bool negative = false;
  bool fraction = false;
  double numerator = 0.0;
  const char* s = comp.c_str();
  const char* end = s + comp.size();
  for (const char* p = s; p < end && *p;) {
    const char c = *p;
    if (c == '+') {
      negative = false;
    } else if (c == '-') {
      negative = true;
    } else if (c == 'x' || c == 'X') {
      r[0] = negative ? -1.0 : 1.0;
    } else if (c == 'y' || c == 'Y') {
      r[1] = negative ? -1.0 : 1.0;
    } else if (c == 'z' || c == 'Z') {
      r[2] = negative ? -1.0 : 1.0;
    } else if (c == '/') {
      fraction = true;
    } else if (c >= '1' && c <= '9') {
      char* stop = nullptr;
      const double number = std::strtod(p, &stop);
      if (fraction) {
        t = numerator / number;
        if (negative) t = -t;
        fraction = false;
      } else {
        t = number;  // a whole number is taken without its sign
        numerator = number;
      }
      p = stop > p ? stop : p + 1;
      continue;
    } else if (c == '.' || c == '0') {
      char* stop = nullptr;
      const double number = std::strtod(p, &stop);
      t = negative ? -number : number;
      p = stop > p ? stop : p + 1;
      continue;
    }
    ++p;
  }
  return t;
}

}  // namespace

void FileIO::ParseTransformString(const std::string& op, double R[3][3], double t[3]) const {
  if (op.find(',') == std::string::npos) {
    if (op.find(' ') != std::string::npos) {
      std::istringstream in(op);
      in.imbue(std::locale::classic());
      for (int k = 0; k < 3; ++k) in >> R[k][0] >> R[k][1] >> R[k][2] >> t[k];
    }
  } else {
    const std::string text = RemoveWhiteSpaceUnderscore(op);
    size_t start = 0;
    for (int k = 0; k < 3; ++k) {
      if (start > text.size()) break;
      size_t comma = text.find(',', start);
      if (comma == std::string::npos) comma = text.size();
      t[k] = parse_component(text.substr(start, comma - start), R[k], t[k]);
      start = comma + 1;
    }
  }
  for (int k = 0; k < 3; ++k) t[k] = shift_into_cell(t[k]);
}

void FileIO::make_spacegroup_P1(int fractional_flag) {
  sg_triml(spacegroup_name);
  sg_trimr(spacegroup_name);
  if (iequals(spacegroup_name, "P1")) return;

  const size_t n = static_cast<size_t>(natoms_cif);
  const size_t m = symm_ops.size();
  const size_t total = n * m;
  if (total > MAX_EXPANDED_ATOMS)
    fatal_error("fileio", fileio_lines::TOO_MANY_ATOMS, FatalStream::Out,
                format_string("Too many atoms after symmetry expansion in %s: %zu atoms x %zu "
                              "operations is more than %zu!\n",
                              cif_file.c_str(), n, m, MAX_EXPANDED_ATOMS),
                -1);
  std::vector<int> new_types(total);
  std::vector<double> new_radius(total);
  std::vector<double> new_xs(3 * total, 0.0);
  std::vector<double> new_x(3 * total, 0.0);

  for (size_t op = 0; op < m; ++op) {
    double R[3][3] = {};
    double t[3] = {};
    ParseTransformString(symm_ops[op], R, t);
    if (debug) {
      std::printf(">> operations: %s\n", symm_ops[op].c_str());
      std::printf("matrix:\n");
      for (int k = 0; k < 3; ++k) std::printf("%4g%4g%4g\n", R[k][0], R[k][1], R[k][2]);
      std::printf("vector: \n  %g  %g  %g\n-------------------\n", t[0], t[1], t[2]);
    }
    for (size_t i = 0; i < n; ++i) {
      const size_t c = op * n + i;
      new_types[c] = atypes[i];
      new_radius[c] = radius.size() > i ? radius[i] : 0.0;
      const double* s = fractional_flag ? &x_s[3 * i] : &x[3 * i];
      double img[3];
      for (int k = 0; k < 3; ++k)
        img[k] = shift_into_cell(R[k][0] * s[0] + R[k][1] * s[1] + R[k][2] * s[2] + t[k]);
      double* dst = fractional_flag ? &new_xs[3 * c] : &new_x[3 * c];
      for (int k = 0; k < 3; ++k) dst[k] = img[k];
      if (!fractional_flag) coord_c2f(&new_x[3 * c], &new_xs[3 * c]);
    }
  }

  std::vector<char> removed;
  const int noverlap = reference_paths ? mark_overlapped_atoms_reference(new_xs, removed)
                                       : mark_overlapped_atoms(new_xs, removed);

  if (noverlap > 0) {
    std::printf("WARNING: Overlapped atoms detected and to be removed\n");
    std::printf("         Number of overlapped atoms is %d\n", noverlap);
    std::printf("         Number of remaining atoms is %d\n", static_cast<int>(total) - noverlap);
    size_t kept = 0;
    for (size_t i = 0; i < total; ++i) {
      if (removed[i]) continue;
      new_types[kept] = new_types[i];
      new_radius[kept] = new_radius[i];
      for (int k = 0; k < 3; ++k) {
        new_xs[3 * kept + k] = new_xs[3 * i + k];
        new_x[3 * kept + k] = new_x[3 * i + k];
      }
      ++kept;
    }
    new_types.resize(kept);
    new_radius.resize(kept);
    new_xs.resize(3 * kept);
    new_x.resize(3 * kept);
  }
  atypes = std::move(new_types);
  radius = std::move(new_radius);
  x_s = std::move(new_xs);
  x = std::move(new_x);
  natoms_cif = static_cast<int>(atypes.size());
}

namespace {

constexpr double OVERLAP_TOLERANCE_SQ = 0.0001;  // squared fractional distance

// Squared fractional distance of b from a after the minimum-image shift.
double overlap_distance_sq(const double* a, const double* b) {
  double d[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
  FileIO::PBC_scaled_disp_wrap(d);
  return d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
}

}  // namespace

void FileIO::print_overlap(size_t i, size_t j, const std::vector<double>& frac) const {
  if (!debug) return;
  const double* a = &frac[3 * i];
  const double* b = &frac[3 * j];
  std::printf(" overlapped atoms: %3d %.4f %.4f %.4f  |  %3d %.4f %.4f %.4f\n",
              static_cast<int>(i), a[0], a[1], a[2], static_cast<int>(j), b[0], b[1], b[2]);
}

int FileIO::mark_overlapped_atoms_reference(const std::vector<double>& frac,
                                            std::vector<char>& removed) const {
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
        print_overlap(i, j, frac);
      }
    }
  }
  return count;
}

int FileIO::mark_overlapped_atoms(const std::vector<double>& frac,
                                  std::vector<char>& removed) const {
  const size_t total = frac.size() / 3;
  removed.assign(total, 0);
  // Positions that are not finite never coincide with anything: leave them out of the grid.
  std::vector<int> binned;
  double magnitude = 1.0;  // the wrap adds or takes one cell
  for (size_t i = 0; i < total; ++i)
    if (fileio_grid::finite3(&frac[3 * i])) {
      binned.push_back(static_cast<int>(i));
      for (int k = 0; k < 3; ++k)
        magnitude = std::max(magnitude, 2.0 * std::fabs(frac[3 * i + k]));
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
      print_overlap(i, j, frac);
    }
  }
  return count;
}
