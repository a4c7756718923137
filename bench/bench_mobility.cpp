// Trajectories of kavri_mobility on 1 .. cores threads, on the anthracene example network
// (rates from its distance law): 16 runs of about 8e5 hops each per iteration, track files
// written as the command writes them. Each thread count reports hops/s and its speed-up over
// one thread measured in the same run; "engine_one_thread" is the engine's own sequential
// trajectory loop on the same network, the per-core rate to keep. "exact_tensor" solves the
// exact diffusion tensor of anthracene supercells (240 and 4,320 molecules, the same law).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "mobility_runs.h"
#include "mobility_tensor.h"
#include "transport.h"

namespace {

namespace fs = std::filesystem;

constexpr int kRuns = 16;

// The example calculation read and initialised as kavri_mobility does it.
class Network {
 public:
  Network() {
    dir_ = fs::temp_directory_path() / ("kavri-bench-mobility-" + std::to_string(getpid()));
    fs::create_directories(dir_);
    for (const char* f : {"anthracene.cif", "WH.dat"})
      fs::copy_file(fs::path(KAVRI_MOBILITY_EXAMPLE) / f, dir_ / f,
                    fs::copy_options::overwrite_existing);
    std::ofstream(dir_ / "kavri.inp") << "&transport\n  crystal = anthracene.cif\n"
                                         "  chargetype = h\n  lattice_cutoff = 4.0\n"
                                         "  neighbor_scell = 3 3 3\n  temp = 300\n"
                                         "  tsimu = 2000\n  tsnap = 100\n/\n";
    fs::current_path(dir_);
    // The engine's progress lines go to /dev/null, not between the benchmark rows.
    std::fflush(stdout);
    const int saved = dup(1), null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    model.read_kavri_inp("kavri.inp", false);
    model.read_crystal_strcuture_files(false, false);
    model.post_data_read_treatment(false);
    model.set_MC_seed(1);
    model.MC_init();
    std::fflush(stdout);
    dup2(saved, 1);
    close(saved);
    close(null);
  }
  ~Network() { fs::remove_all(dir_); }

  Transport model;

 private:
  fs::path dir_;
};

Network& network() {
  static Network n;
  return n;
}

double one_thread_seconds = 0.0;  // per iteration, from the 1-thread case of this run

void BM_MobilityThreads(benchmark::State& state) {
  Network& net = network();
  RunPlan plan;
  plan.runs = kRuns;
  plan.first_block = 0;
  plan.end_block = RunBlocks(kRuns).count;
  plan.threads = static_cast<int>(state.range(0));
  plan.seeded = true;
  plan.seed = 1;
  plan.dir = "tracks";
  long long hops = 0, total = 0;
  double seconds = 0.0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    run_mobility_blocks(net.model, plan, &hops);
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    total += hops;
  }
  const double per_iteration = seconds / static_cast<double>(state.iterations());
  if (plan.threads == 1) one_thread_seconds = per_iteration;
  state.counters["hops_per_s"] = static_cast<double>(total) / seconds;
  if (one_thread_seconds > 0.0) state.counters["speedup"] = one_thread_seconds / per_iteration;
}

void BM_EngineOneThread(benchmark::State& state) {
  Network& net = network();
  const HopEngine& engine = net.model.MC_engine();
  const MCSettings settings = net.model.MC_settings(true);
  MCSamples out(settings.nrec);
  long long hops = 0;
  int run = 0;
  for (auto _ : state) {
    MCGenerator gen(static_cast<std::uint32_t>(++run));
    hops += engine.trajectory(MCEngine::Static, gen, settings, out);
  }
  state.counters["hops_per_s"] = benchmark::Counter(static_cast<double>(hops), benchmark::Counter::kIsRate);
}

// The hop network of a P1 supercell with rates k = 1000 exp(-2 (r - 4)) 1/ns by the Cartesian
// hop length r, straight from the neighbour list.
struct Supercell {
  explicit Supercell(const std::string& cif) {
    Transport t;
    t.apply_keyword("crystal", cif);
    t.read_crystal_strcuture_files(false, false);
    t.post_data_read_treatment(false);
    t.build_neighbor_list(false, false);
    const Lattice lattice = t.lattice();
    net.nsites = t.get_nmols_uc();
    for (int i = 0; i < net.nsites; ++i)
      for (int k = 0; k < t.get_nei_count(i); ++k) {
        NetworkHop h{i, t.get_nei_mol(i, k), 0.0, {0, 0, 0}};
        double r2 = 0.0;
        for (int a = 0; a < 3; ++a) {
          for (int c = 0; c < 3; ++c) h.d[a] += lattice.m[a][c] * t.get_nei_disp(i)[3 * k + c];
          r2 += h.d[a] * h.d[a];
        }
        h.rate = 1000.0 * std::exp(-2.0 * (std::sqrt(r2) - 4.0));
        net.hops.push_back(h);
      }
  }
  HopNetwork net;
};

void BM_ExactTensor(benchmark::State& state) {
  static const char* const files[2] = {"anthracene_5x6x4_p1.cif", "anthracene_10x18x12_p1.cif"};
  static std::unique_ptr<Supercell> cells[2];
  const int which = static_cast<int>(state.range(0));
  if (!cells[which])
    cells[which] = std::make_unique<Supercell>(std::string(KAVRI_LARGE_DIR) + "/" + files[which]);
  double trace = 0.0;
  for (auto _ : state) {
    const ExactDiffusion e = exact_diffusion(cells[which]->net);
    trace = e.D[0][0] + e.D[1][1] + e.D[2][2];
  }
  state.counters["molecules"] = cells[which]->net.nsites;
  state.counters["trD_A2_per_ns"] = trace;
}

void thread_counts(benchmark::internal::Benchmark* b) {
  const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  for (int t = 1; t <= cores; ++t) b->Arg(t);
}

}  // namespace

BENCHMARK(BM_EngineOneThread)->Name("engine_one_thread")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MobilityThreads)
    ->Name("mobility_threads")
    ->Apply(thread_counts)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_ExactTensor)->Name("exact_tensor")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
