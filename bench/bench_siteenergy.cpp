// Stage timings of a site-energy run on real crystals: CIF reading with symmetry expansion and
// molecule partition, whole molecules, molecular data, and the neighbour list; each fast stage
// beside the straightforward path it replaces, measured in the same run.
//
//   cmake --preset bench && cmake --build --preset bench && build-bench/bench/bench_siteenergy
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bond_partition.h"
#include "molecular_data.h"
#include "neighbor_search.h"
#include "pr_siteenergy.h"
#include "whole_molecules.h"

namespace {

std::string crystal_path(const std::string& name) {
  if (name.find("_p1") != std::string::npos) return std::string(KAVRI_LARGE_DIR) + "/" + name;
  return std::string(KAVRI_DATA_DIR) + "/crystals/" + name;
}

// The crystal read as the utility reads it: the `crystal` line of an input file.
void read(SiteEnergy& run, const std::string& name) {
  run.read_kavri_inp_text("&transport\n  crystal = " + crystal_path(name) + "\n/\n", "kavri.inp",
                          false);
}

void load(SiteEnergy& run, const std::string& name) {
  read(run, name);
  run.read_crystal_strcuture_files(false, false);
  run.post_data_read_treatment(false);
}

// The expanded cell of a read crystal: fractional positions and bond radii.
struct CellAtoms {
  std::vector<int> types;
  std::vector<Fractional> sites;
  std::vector<double> radii;
};

CellAtoms cell_atoms(const SiteEnergy& run) {
  CellAtoms c;
  const int n = run.get_cif_natoms();
  c.types.assign(run.get_cif_atypes(), run.get_cif_atypes() + n);
  for (int i = 0; i < n; ++i) {
    c.sites.emplace_back(run.get_cif_x_s() + 3 * i);
    char symbol[3];
    run.find_element_name_from_index(c.types[i], symbol);
    c.radii.push_back(run.find_element_radius_from_name(symbol));
  }
  return c;
}

void BM_ReadCif(benchmark::State& state, const std::string& name) {
  for (auto _ : state) {
    SiteEnergy run;
    read(run, name);
    benchmark::DoNotOptimize(run.get_cif_natoms());
  }
}

void BM_WholeMoleculesAndData(benchmark::State& state, const std::string& name) {
  for (auto _ : state) {
    SiteEnergy run;
    load(run, name);
    benchmark::DoNotOptimize(run.get_natoms_total());
  }
}

void BM_NeighborSearch(benchmark::State& state, const std::string& name, bool reference) {
  SiteEnergy run;
  load(run, name);
  run.build_neighbor_list(false, false);
  const std::vector<Fractional> centres = run.centres();
  const NeighborSearch search = run.neighbor_search(centres);
  for (auto _ : state) {
    NeighborList list =
        reference ? search_neighbor_list_reference(search) : search_neighbor_list(search);
    benchmark::DoNotOptimize(list.of.data());
  }
  state.counters["molecules"] = run.get_nmols_uc();
}

void BM_Partition(benchmark::State& state, const std::string& name, bool reference) {
  SiteEnergy run;
  read(run, name);
  const CellAtoms c = cell_atoms(run);
  const Lattice cell = run.lattice();
  for (auto _ : state) {
    Partition p = reference ? partition_cell_reference(c.sites, c.radii, cell, 1.15)
                            : partition_cell(c.sites, c.radii, cell, 1.15);
    benchmark::DoNotOptimize(p.atoms.data());
  }
  state.counters["atoms"] = static_cast<double>(c.sites.size());
}

// The straightforward stages after the read: partition, whole molecules, molecular data and
// neighbour list from the crystal the model read.
int straightforward_stages(const SiteEnergy& run) {
  const CellAtoms c = cell_atoms(run);
  const Lattice cell = run.lattice();
  const Partition p = partition_cell_reference(c.sites, c.radii, cell, 1.15);
  std::vector<int> natoms;
  std::vector<std::vector<int>> types;
  std::vector<std::vector<double>> frac;
  size_t first = 0;
  for (int size : p.sizes) {
    MoleculeSites m;
    for (int k = 0; k < size; ++k) {
      m.types.push_back(c.types[p.atoms[first + k]]);
      m.sites.push_back(c.sites[p.atoms[first + k]]);
    }
    first += static_cast<size_t>(size);
    const Molecule whole = make_whole_reference(m, cell, 1.15);
    natoms.push_back(size);
    types.push_back(whole.types);
    frac.push_back(flat_positions(whole.frac));
  }
  const CellMolecules molecules{static_cast<int>(natoms.size()), natoms, types, frac};
  const MolecularCentres centres = molecular_centres(molecules, cell);
  const NeighborSearch search{molecules, centres.centre, cell, 16.0, {3, 3, 3}};  // the defaults
  return static_cast<int>(search_neighbor_list_reference(search).of.size());
}

// A whole run up to the site energies (the table reading and writing are a few milliseconds):
// CIF reading with expansion and partition, whole molecules, molecular data, neighbour list;
// the reference reads the crystal the same way and runs the straightforward stages after it.
void BM_WholeRun(benchmark::State& state, const std::string& name, bool reference) {
  const std::string path = crystal_path(name);
  if (std::FILE* f = std::fopen(path.c_str(), "r")) {
    std::fclose(f);
  } else {
    state.SkipWithError(("missing " + path).c_str());
    return;
  }
  int molecules = 0;
  for (auto _ : state) {
    SiteEnergy run;
    if (reference) {
      read(run, name);
      molecules = straightforward_stages(run);
    } else {
      load(run, name);
      run.build_neighbor_list(false, false);
      molecules = run.get_nmols_uc();
    }
  }
  state.counters["molecules"] = molecules;
}

const std::string kLargestReal = "tipge_pentacene_pbca.cif";
const std::string kSupercell = "anthracene_5x6x4_p1.cif";

}  // namespace

// Whole runs: real crystals and the P1 supercells, each beside the straightforward path where
// that finishes within minutes (one iteration).
BENCHMARK_CAPTURE(BM_WholeRun, anthracene, std::string("anthracene.cif"), false)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WholeRun, anthracene_reference, std::string("anthracene.cif"), true)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WholeRun, tipge_pbca, kLargestReal, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WholeRun, tipge_pbca_reference, kLargestReal, true)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_WholeRun, p1_864, std::string("anthracene_3x3x2_p1.cif"), false)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WholeRun, p1_864_reference, std::string("anthracene_3x3x2_p1.cif"), true)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_WholeRun, p1_5760, kSupercell, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WholeRun, p1_5760_reference, kSupercell, true)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_WholeRun, p1_19200, std::string("tipge_pbca_4x4x3_p1.cif"), false)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WholeRun, p1_103680, std::string("anthracene_10x18x12_p1.cif"), false)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

// Stages on the largest real crystal and on the 5,760-atom supercell.
BENCHMARK_CAPTURE(BM_ReadCif, tipge_pbca, kLargestReal)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WholeMoleculesAndData, tipge_pbca, kLargestReal)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_NeighborSearch, tipge_pbca_fast, kLargestReal, false)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_NeighborSearch, tipge_pbca_reference, kLargestReal, true)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Partition, tipge_pbca_fast, kLargestReal, false)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Partition, tipge_pbca_reference, kLargestReal, true)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_NeighborSearch, anthracene_5x6x4_fast, kSupercell, false)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_NeighborSearch, anthracene_5x6x4_reference, kSupercell, true)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_Partition, anthracene_5x6x4_fast, kSupercell, false)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Partition, anthracene_5x6x4_reference, kSupercell, true)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);
