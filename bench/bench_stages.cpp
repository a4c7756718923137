// Each stage of a site-energy run on the large P1 cells beside a minimal program doing the same
// work, measured in the same run: how far each stage is from the plain cost of its work.
//
//   read     CIF reading, expansion and partition  vs  one pass over the numbers of the file
//   bonds    the cell partition alone               vs  a periodic cell list and a breadth-first
//                                                      labelling of its bond graph
//   whole    whole molecules (loading driver)       vs  breadth-first unwrapping over that graph
//   contacts molecular data and neighbour list      vs  an atom-level cell-list search of the
//                                                      molecule-image pairs closer than 4 A
//
// Counters: stage and minimal time per run (s) and their ratio. The 705,024-atom cell is made by
//   bench/make_supercell.py tests/data/crystals/anthracene.cif 24 36 17 DIR/anthracene_24x36x17_p1.cif
// and found through KAVRI_HUGE_CIF=DIR/anthracene_24x36x17_p1.cif (skipped without it).
//
//   cmake --preset bench && cmake --build --preset bench && build-bench/bench/bench_stages
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "bond_partition.h"
#include "pr_siteenergy.h"

namespace {

using Run = SiteEnergy;

// What the minimal programs work on: the cell and the atoms' fractional positions and radii.
struct Atoms {
  double L[3][3] = {};  // cell vectors as columns
  std::vector<double> f;
  std::vector<double> r;
};

double seconds(const std::function<void()>& work) {
  const auto t0 = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// One pass over the numbers: cell lengths and angles, then symbol and three coordinates per
// atom line (P1 files: no expansion).
Atoms minimal_read(const std::string& path, const Run& table) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  const std::string text = ss.str();
  Atoms a;
  double cell[6] = {};
  const char* keys[6] = {"_cell_length_a", "_cell_length_b", "_cell_length_c",
                         "_cell_angle_alpha", "_cell_angle_beta", "_cell_angle_gamma"};
  for (int k = 0; k < 6; ++k)
    cell[k] = std::strtod(text.c_str() + text.find(keys[k]) + std::strlen(keys[k]), nullptr);
  const double d2r = M_PI / 180.0, ca = std::cos(cell[3] * d2r), cb = std::cos(cell[4] * d2r),
               cg = std::cos(cell[5] * d2r), sg = std::sin(cell[5] * d2r);
  const double v[3][3] = {{cell[0], 0, 0},
                          {cell[1] * cg, cell[1] * sg, 0},
                          {cell[2] * cb, cell[2] * (ca - cb * cg) / sg, 0}};
  double c[3][3];
  std::memcpy(c, v, sizeof v);
  c[2][2] = std::sqrt(cell[2] * cell[2] - c[2][0] * c[2][0] - c[2][1] * c[2][1]);
  for (int r = 0; r < 3; ++r)
    for (int k = 0; k < 3; ++k) a.L[r][k] = c[k][r];
  const char* p = text.c_str() + text.find("_atom_site_fract_z");
  p = std::strchr(p, '\n');
  while (p && *++p && *p != '_' && *p != '#') {
    const char* sym = std::strchr(p, ' ') + 1;
    char s[3] = {sym[0], sym[1] == ' ' ? '\0' : sym[1], '\0'};
    char* end = const_cast<char*>(std::strchr(sym, ' '));
    for (int k = 0; k < 3; ++k) a.f.push_back(std::strtod(end, &end));
    a.r.push_back(table.find_element_radius_from_name(s));
    p = std::strchr(end, '\n');
  }
  return a;
}

// Periodic cell list of bins at least `reach` wide (3 or more per axis, or one).
struct CellList {
  int n[3];
  std::vector<int> start, order;
  CellList(const Atoms& a, double reach) {
    for (int k = 0; k < 3; ++k) {
      const double len = std::sqrt(a.L[0][k] * a.L[0][k] + a.L[1][k] * a.L[1][k] +
                                   a.L[2][k] * a.L[2][k]);
      // Bins wide enough along the cell's height (skewed cells: use the height, not the length).
      n[k] = std::max(1, static_cast<int>(std::floor(len * 0.8 / reach)));
      if (n[k] < 3) n[k] = 1;
    }
    const int natoms = static_cast<int>(a.r.size());
    start.assign(n[0] * n[1] * n[2] + 1, 0);
    std::vector<int> bin(natoms);
    for (int i = 0; i < natoms; ++i) ++start[(bin[i] = bin_of(&a.f[3 * i])) + 1];
    for (size_t b = 1; b < start.size(); ++b) start[b] += start[b - 1];
    order.resize(natoms);
    std::vector<int> fill(start.begin(), start.end() - 1);
    for (int i = 0; i < natoms; ++i) order[fill[bin[i]]++] = i;
  }
  int axis(double v, int k) const {
    return std::min(n[k] - 1, static_cast<int>((v - std::floor(v)) * n[k]));
  }
  int bin_of(const double* f) const {
    return (axis(f[0], 0) * n[1] + axis(f[1], 1)) * n[2] + axis(f[2], 2);
  }
  template <class Visit>
  void near(const double* f, Visit visit) const {
    const int c[3] = {axis(f[0], 0), axis(f[1], 1), axis(f[2], 2)};
    for (int dx = n[0] > 1 ? -1 : 0; dx <= (n[0] > 1 ? 1 : 0); ++dx)
      for (int dy = n[1] > 1 ? -1 : 0; dy <= (n[1] > 1 ? 1 : 0); ++dy)
        for (int dz = n[2] > 1 ? -1 : 0; dz <= (n[2] > 1 ? 1 : 0); ++dz) {
          const int b = (((c[0] + dx + n[0]) % n[0]) * n[1] + (c[1] + dy + n[1]) % n[1]) * n[2] +
                        (c[2] + dz + n[2]) % n[2];
          for (int q = start[b]; q < start[b + 1]; ++q) visit(order[q]);
        }
  }
};

double cart_length(const double L[3][3], const double d[3]) {
  double s = 0.0;
  for (int r = 0; r < 3; ++r) {
    const double c = L[r][0] * d[0] + L[r][1] * d[1] + L[r][2] * d[2];
    s += c * c;
  }
  return std::sqrt(s);
}

// Bond graph (CSR) through the cell list, then molecules by breadth-first labelling.
struct Graph {
  std::vector<int> start, to, mol;
};

Graph minimal_bonds(const Atoms& a, double scale) {
  const int n = static_cast<int>(a.r.size());
  const double rmax = *std::max_element(a.r.begin(), a.r.end());
  const CellList cells(a, 2.0 * rmax * scale);
  Graph g;
  g.start.assign(n + 1, 0);
  for (int i = 0; i < n; ++i) {
    cells.near(&a.f[3 * i], [&](int j) {
      if (j == i) return;
      double d[3];
      for (int k = 0; k < 3; ++k) d[k] = a.f[3 * j + k] - a.f[3 * i + k] - std::nearbyint(a.f[3 * j + k] - a.f[3 * i + k]);
      if (cart_length(a.L, d) < (a.r[i] + a.r[j]) * scale) g.to.push_back(j);
    });
    g.start[i + 1] = static_cast<int>(g.to.size());
  }
  g.mol.assign(n, -1);
  std::vector<int> queue;
  int nmol = 0;
  for (int s = 0; s < n; ++s) {
    if (g.mol[s] >= 0) continue;
    queue.assign(1, s);
    g.mol[s] = nmol;
    for (size_t h = 0; h < queue.size(); ++h)
      for (int e = g.start[queue[h]]; e < g.start[queue[h] + 1]; ++e)
        if (g.mol[g.to[e]] < 0) {
          g.mol[g.to[e]] = nmol;
          queue.push_back(g.to[e]);
        }
    ++nmol;
  }
  return g;
}

// Whole molecules: each atom reached over a bond is put at the minimum image next to the atom
// it was reached from.
std::vector<double> minimal_whole(const Atoms& a, const Graph& g) {
  const int n = static_cast<int>(a.r.size());
  std::vector<double> w(a.f);
  std::vector<char> seen(n, 0);
  std::vector<int> queue;
  for (int s = 0; s < n; ++s) {
    if (seen[s]) continue;
    seen[s] = 1;
    queue.assign(1, s);
    for (size_t h = 0; h < queue.size(); ++h) {
      const int i = queue[h];
      for (int e = g.start[i]; e < g.start[i + 1]; ++e) {
        const int j = g.to[e];
        if (seen[j]) continue;
        seen[j] = 1;
        for (int k = 0; k < 3; ++k) {
          const double d = a.f[3 * j + k] - w[3 * i + k];
          w[3 * j + k] = w[3 * i + k] + d - std::nearbyint(d);
        }
        queue.push_back(j);
      }
    }
  }
  return w;
}

// Molecule-image pairs with an atom contact under `cutoff`: every atom against the atoms of
// its neighbouring bins, the image of the partner from the whole positions, pairs deduplicated.
size_t minimal_contacts(const Atoms& a, const Graph& g, const std::vector<double>& whole,
                        double cutoff) {
  const CellList cells(a, cutoff);
  std::vector<uint64_t> pairs;
  const int n = static_cast<int>(a.r.size());
  for (int i = 0; i < n; ++i)
    cells.near(&a.f[3 * i], [&](int j) {
      if (g.mol[j] == g.mol[i] && j != i) return;
      double d[3];
      int64_t image[3];
      for (int k = 0; k < 3; ++k) {
        const double raw = whole[3 * j + k] - whole[3 * i + k];
        d[k] = raw - std::nearbyint(raw);
        image[k] = static_cast<int64_t>(std::nearbyint(d[k] - raw)) + 8;
      }
      if (j == i || cart_length(a.L, d) >= cutoff) return;
      pairs.push_back((static_cast<uint64_t>(g.mol[i]) << 44) |
                      (static_cast<uint64_t>(g.mol[j]) << 20) |
                      static_cast<uint64_t>((image[0] * 16 + image[1]) * 16 + image[2]));
    });
  std::sort(pairs.begin(), pairs.end());
  return static_cast<size_t>(std::unique(pairs.begin(), pairs.end()) - pairs.begin());
}

std::string cell_path(const std::string& name) {
  if (name == "huge") {
    const char* p = std::getenv("KAVRI_HUGE_CIF");
    return p ? p : "";
  }
  return std::string(KAVRI_LARGE_DIR) + "/" + name;
}

void report(benchmark::State& state, double stage, double minimal, int runs) {
  state.counters["stage_s"] = stage / runs;
  state.counters["minimal_s"] = minimal / runs;
  state.counters["ratio"] = stage / minimal;
}

void BM_Stages(benchmark::State& state, const std::string& name, int which) {
  const std::string path = cell_path(name);
  if (path.empty() || !std::ifstream(path)) {
    state.SkipWithError(("no cell " + name + " (KAVRI_HUGE_CIF for the largest)").c_str());
    return;
  }
  double stage = 0.0, minimal = 0.0;
  int runs = 0;
  Run loaded;
  // The crystal read as the utility reads it: the `crystal` line of an input file.
  loaded.read_kavri_inp_text("&transport\n  crystal = " + path + "\n/\n", "kavri.inp", false);
  const Atoms atoms = minimal_read(path, loaded);
  const Graph graph = minimal_bonds(atoms, 1.15);
  const std::vector<double> whole = minimal_whole(atoms, graph);
  if (which == 2 || which == 3) loaded.read_crystal_strcuture_files(false, false);
  for (auto _ : state) {
    ++runs;
    switch (which) {
      case 0:
        stage += seconds([&] {
          Run r;
          r.read_data_cif(path.c_str(), false);
          benchmark::DoNotOptimize(r.get_cif_natoms());
        });
        minimal += seconds([&] {
          const Atoms a = minimal_read(path, loaded);
          benchmark::DoNotOptimize(minimal_bonds(a, 1.15).mol.data());
        });
        break;
      case 1: {
        std::vector<Fractional> sites;
        for (int i = 0; i < loaded.get_cif_natoms(); ++i)
          sites.emplace_back(loaded.get_cif_x_s() + 3 * i);
        const Lattice cell = loaded.lattice();
        stage += seconds([&] {
          benchmark::DoNotOptimize(partition_cell(sites, atoms.r, cell, 1.15).atoms.data());
        });
        minimal += seconds([&] { benchmark::DoNotOptimize(minimal_bonds(atoms, 1.15).mol.data()); });
        break;
      }
      case 2:
        stage += seconds([&] { loaded.read_crystal_strcuture_files(false, false); });
        minimal += seconds([&] { benchmark::DoNotOptimize(minimal_whole(atoms, graph).data()); });
        break;
      default: {
        stage += seconds([&] {
          loaded.post_data_read_treatment(false);
          loaded.build_neighbor_list(false, false);
          benchmark::DoNotOptimize(loaded.get_nei_count(0));
        });
        size_t npairs = 0;
        minimal += seconds([&] { npairs = minimal_contacts(atoms, graph, whole, 4.0); });
        state.counters["pairs"] = static_cast<double>(npairs);
        break;
      }
    }
  }
  state.counters["atoms"] = loaded.get_cif_natoms();
  report(state, stage, minimal, runs);
}

const char* kCells[] = {"anthracene_5x6x4_p1.cif", "tipge_pbca_4x4x3_p1.cif",
                        "anthracene_10x18x12_p1.cif", "huge"};
const char* kStages[] = {"read", "bonds", "whole", "contacts"};

int register_all() {
  for (const char* cell : kCells)
    for (int s = 0; s < 4; ++s)
      benchmark::RegisterBenchmark((std::string(kStages[s]) + "/" + cell).c_str(), BM_Stages,
                                   std::string(cell), s)
          ->Unit(benchmark::kMillisecond)
          ->Iterations(std::string(cell) == "huge" ? 2 : 5);
  return 0;
}
const int kRegistered = register_all();

}  // namespace
