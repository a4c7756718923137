// Hops per second of the hopping engine on the neighbour network of real crystals, with
// rates from a simple distance law, k = 1000 exp(-2 (r - 4)) 1/ns for a centre-of-mass
// distance r in angstrom. Each iteration runs one trajectory of about a million hops.
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <utility>

#include "hop_network.h"
#include "transport.h"
#include "util.h"

namespace {

// The hop network of a crystal's neighbour list with rates by distance; the mean residence
// time sets the simulated time of ~1e6 hops, sampled 100 times.
struct Crystal {
  HopEngine engine;
  MCSettings settings;
  size_t neighbours = 0;

  explicit Crystal(const std::string& cif) {
    Transport t;
    t.apply_keyword("crystal", cif);
    t.read_crystal_strcuture_files(false, false);
    t.post_data_read_treatment(false);
    t.build_neighbor_list(false, false);

    MCNetwork net;
    net.lattice = t.lattice();
    const int nmol = t.get_nmols_uc();
    net.hops.resize(nmol);
    double mean_dt = 0.0;
    for (int i = 0; i < nmol; ++i) {
      double K = 0.0;
      for (int k = 0; k < t.get_nei_count(i); ++k) {
        MCHop h;
        h.target = t.get_nei_mol(i, k);
        int shift[3];
        t.get_nei_shift(i, k, shift);
        h.a = shift[0];
        h.b = shift[1];
        h.c = shift[2];
        h.d = Fractional(&t.get_nei_disp(i)[3 * k]);
        const Cartesian p = net.lattice.to_cartesian(h.d);
        const double r = std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]);
        h.rate = 1000.0 * std::exp(-2.0 * (r - 4.0));
        K += h.rate;
        net.hops[i].push_back(h);
      }
      mean_dt += 1.0 / K / nmol;
      neighbours += net.hops[i].size();
    }
    engine = HopEngine(std::move(net));
    const double tsimu = 1e6 * mean_dt;
    settings.tsnap = tsimu / 100;
    settings.nrec = static_cast<int>(tsimu / settings.tsnap + 0.5);
  }
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
  MCGenerator gen(12345);
  MCSamples out(m.settings.nrec);
  long long hops = 0;
  for (auto _ : state) hops += m.engine.trajectory(MCEngine::Static, gen, m.settings, out);
  report(state, m, hops);
}

// The process-wide ran2 stream, as the single-trajectory engine uses.
void BM_KmcHopsRan2(benchmark::State& state) {
  Crystal& m = model(static_cast<int>(state.range(0)));
  idum = -1;
  MCSettings cell_r2 = m.settings;
  cell_r2.cartesian_r2 = false;
  MCSamples out(cell_r2.nrec);
  long long hops = 0;
  for (auto _ : state) hops += m.engine.trajectory_ran2(MCEngine::Static, cell_r2, out);
  report(state, m, hops);
}

}  // namespace

// 0: anthracene (2 molecules per cell), 1: TIPGe-pentacene Pbca (4 molecules per cell).
BENCHMARK(BM_KmcHopsMT)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KmcHopsRan2)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
