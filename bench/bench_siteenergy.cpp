// Stage timings of a site-energy run on real crystals: CIF reading with symmetry expansion and
// molecule partition, whole molecules, molecular data, and the neighbour list; each fast stage
// beside the straightforward path it replaces, measured in the same run.
//
//   cmake --preset bench && cmake --build --preset bench && build-bench/bench/bench_siteenergy
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "pr_siteenergy.h"

namespace {

class Run : public SiteEnergy {
 public:
  using FileIO::natoms_cif;
  using FileIO::radius;
  using FileIO::struct_source;
  using FileIO::x_s;
  using Transport::search_neighbors;
  using Transport::search_neighbors_reference;
};

std::string crystal_path(const std::string& name) {
  if (name.find("_p1") != std::string::npos) return std::string(KAVRI_LARGE_DIR) + "/" + name;
  return std::string(KAVRI_DATA_DIR) + "/crystals/" + name;
}

void load(Run& run, const std::string& name) {
  run.read_data_cif(crystal_path(name).c_str(), false);
  run.struct_source = 2;
  run.read_crystal_strcuture_files(false, false);
  run.post_data_read_treatment(false);
}

void BM_ReadCif(benchmark::State& state, const std::string& name) {
  for (auto _ : state) {
    Run run;
    run.read_data_cif(crystal_path(name).c_str(), false);
    benchmark::DoNotOptimize(run.get_cif_natoms());
  }
}

void BM_WholeMoleculesAndData(benchmark::State& state, const std::string& name) {
  for (auto _ : state) {
    Run run;
    load(run, name);
    benchmark::DoNotOptimize(run.get_natoms_total());
  }
}

void BM_NeighborSearch(benchmark::State& state, const std::string& name, bool reference) {
  Run run;
  load(run, name);
  run.build_neighbor_list(false, false);
  std::vector<int> cand;
  std::vector<double> key;
  for (auto _ : state) {
    for (int i = 0; i < run.get_nmols_uc(); ++i) {
      if (reference)
        run.search_neighbors_reference(i, 16.0, cand, key);
      else
        run.search_neighbors(i, 16.0, cand, key);
      benchmark::DoNotOptimize(key.data());
    }
  }
  state.counters["molecules"] = run.get_nmols_uc();
}

void BM_Partition(benchmark::State& state, const std::string& name, bool reference) {
  Run run;
  run.read_data_cif(crystal_path(name).c_str(), false);
  // The radii are released after the read; restore them for the partition alone.
  run.radius.assign(run.natoms_cif, 0.0);
  for (int i = 0; i < run.natoms_cif; ++i) {
    char sym[3];
    run.find_element_name_from_index(run.get_cif_atypes()[i], sym);
    run.radius[i] = run.find_element_radius_from_name(sym);
  }
  for (auto _ : state) {
    if (reference)
      run.separate_cif_molecules_reference(false);
    else
      run.separate_cif_molecules(false);
    benchmark::ClobberMemory();
  }
  state.counters["atoms"] = run.natoms_cif;
}

// A whole run up to the site energies (the table reading and writing are a few milliseconds):
// CIF reading with expansion and partition, whole molecules, molecular data, neighbour list.
void BM_WholeRun(benchmark::State& state, const std::string& name, bool reference) {
  const std::string path = crystal_path(name);
  if (std::FILE* f = std::fopen(path.c_str(), "r")) {
    std::fclose(f);
  } else {
    state.SkipWithError(("missing " + path).c_str());
    return;
  }
  int molecules = 0, atoms = 0;
  for (auto _ : state) {
    Run run;
    run.set_reference_paths(reference);
    load(run, name);
    run.build_neighbor_list(false, false);
    molecules = run.get_nmols_uc();
    atoms = run.get_natoms_total();
  }
  state.counters["atoms"] = atoms;
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
