// Hops per second of the hopping engine on the neighbour network of real crystals, with
// rates from a simple distance law, k = 1000 exp(-2 (r - 4)) 1/ns for a centre-of-mass
// distance r in angstrom. Each iteration runs one trajectory of about a million hops.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>

#include "transport.h"
#include "util.h"

namespace {

namespace fs = std::filesystem;

class Crystal : public Transport {
 public:
  using Transport::MC_trajectory;
  using Transport::MC_trajectory_ran2;
  using Transport::MCEngine;

  explicit Crystal(const std::string& cif) {
    const fs::path old = fs::current_path();
    const fs::path dir = fs::temp_directory_path() / ("kavri-bench-kmc-" + std::to_string(getpid()));
    fs::create_directories(dir);
    fs::current_path(dir);

    read_data_cif(cif.c_str(), false);
    struct_source = 2;
    read_crystal_strcuture_files(false, false);
    chargetype = "h";
    post_data_read_treatment(false);
    build_neighbor_list(false, false);

    // Rates by distance; the mean residence time sets the simulated time of ~1e6 hops.
    std::ofstream w("WH.dat");
    w << nmols_uc << "\n";
    double mean_dt = 0.0;
    for (int i = 0; i < nmols_uc; ++i) {
      w << nei_count[i] << "\n";
      double K = 0.0;
      for (int k = 0; k < nei_count[i]; ++k) {
        const double* d = &nei_disp[i][3 * k];
        double r2 = 0.0;
        for (int a = 0; a < 3; ++a) {
          const double c = latt[a][0] * d[0] + latt[a][1] * d[1] + latt[a][2] * d[2];
          r2 += c * c;
        }
        const double rate = 1000.0 * std::exp(-2.0 * (std::sqrt(r2) - 4.0));
        K += rate;
        char line[96];
        std::snprintf(line, sizeof line, "%.4f A %.10e 1/ns 0.0 meV\n", std::sqrt(r2), rate);
        w << line;
      }
      mean_dt += 1.0 / K / nmols_uc;
    }
    w.close();
    tsimu = 1e6 * mean_dt;
    tsnap = tsimu / 100;
    // The initialisation messages would mix with the benchmark table.
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    const int null = open("/dev/null", O_WRONLY);
    if (null >= 0) dup2(null, STDOUT_FILENO);
    MC_init();
    std::fflush(stdout);
    if (saved >= 0) dup2(saved, STDOUT_FILENO);
    if (null >= 0) close(null);
    if (saved >= 0) close(saved);
    fs::current_path(old);
    fs::remove_all(dir);
    for (const MCSite& site : mc_sites) neighbours += site.nhops;
  }
  size_t neighbours = 0;
};

std::string crystal(const char* name) {
  return std::string(KAVRI_DATA_DIR) + "/crystals/" + name;
}

Crystal& model(int which) {
  static std::unique_ptr<Crystal> models[2];
  static const char* files[2] = {"anthracene.cif", "tipge_pentacene_pbca.cif"};
  if (!models[which]) models[which] = std::make_unique<Crystal>(crystal(files[which]));
  return *models[which];
}

void report(benchmark::State& state, const Crystal& m, long long hops) {
  state.counters["hops/s"] = benchmark::Counter(static_cast<double>(hops),
                                                benchmark::Counter::kIsRate);
  state.counters["hops/traj"] = static_cast<double>(hops) / state.iterations();
  state.counters["pairs"] = static_cast<double>(m.neighbours);
}

// Per-trajectory Mersenne Twister, as the multi-trajectory runs use.
void BM_KmcHopsMT(benchmark::State& state) {
  Crystal& m = model(static_cast<int>(state.range(0)));
  std::mt19937 gen(12345);
  long long hops = 0;
  for (auto _ : state) hops += m.MC_trajectory(gen, Crystal::MCEngine::Static, true);
  report(state, m, hops);
}

// The process-wide ran2 stream, as the single-trajectory engine uses.
void BM_KmcHopsRan2(benchmark::State& state) {
  Crystal& m = model(static_cast<int>(state.range(0)));
  idum = -1;
  long long hops = 0;
  for (auto _ : state) hops += m.MC_trajectory_ran2(Crystal::MCEngine::Static);
  report(state, m, hops);
}

}  // namespace

// 0: anthracene (2 molecules per cell), 1: TIPGe-pentacene Pbca (4 molecules per cell).
BENCHMARK(BM_KmcHopsMT)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KmcHopsRan2)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
