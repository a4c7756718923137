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

const std::string kLargestReal = "tipge_pentacene_pbca.cif";
const std::string kSupercell = "anthracene_5x6x4_p1.cif";

}  // namespace

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
