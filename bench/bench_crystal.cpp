// The kavri_crystal report on large cells beside the utility's loading stages alone, measured in
// the same run: what the report adds (closest contacts, checks, JSON) to what the utility does.
//
//   cmake --preset bench && cmake --build --preset bench && build-bench/bench/bench_crystal
#include <benchmark/benchmark.h>

#include <fstream>
#include <string>

#include "crystal_report.h"
#include "transport.h"

namespace {

std::string large(const std::string& name) { return std::string(KAVRI_LARGE_DIR) + "/" + name; }

// The utility's stages from the crystal line to the neighbour list.
void BM_UtilityStages(benchmark::State& state, const std::string& name) {
  for (auto _ : state) {
    Transport t;
    t.apply_keyword("crystal", large(name));
    t.read_crystal_strcuture_files(false, false);
    t.post_data_read_treatment(false);
    t.build_neighbor_list(false, false);
    benchmark::DoNotOptimize(t.get_nei_count(0));
  }
}

// The same stages with the report: closest contacts, the checks and the JSON output.
void BM_Report(benchmark::State& state, const std::string& name) {
  std::ofstream sink("/dev/null");
  for (auto _ : state) {
    CrystalRequest request;
    request.cif = large(name);
    const CrystalModel m = load_crystal(request);
    write_json_report(sink, m, run_checks(m, read_cif_notes(m.source)));
  }
}

const std::string k5760 = "anthracene_5x6x4_p1.cif";
const std::string k103680 = "anthracene_10x18x12_p1.cif";

}  // namespace

BENCHMARK_CAPTURE(BM_UtilityStages, p1_5760, k5760)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Report, p1_5760, k5760)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_UtilityStages, p1_103680, k103680)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Report, p1_103680, k103680)->Unit(benchmark::kMillisecond);
