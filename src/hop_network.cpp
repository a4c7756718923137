// The hopping engine over a hop network: hop tables, hop choice, and the trajectory loops of
// the static, thin-film and dynamic-disorder engines. A charge starts on molecule 0; each step
// takes the mean residence time 1/K of the molecule it leaves (no random waiting time), and
// the trajectory is sampled every tsnap ns.
#include "hop_network.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "util.h"

namespace {

constexpr std::uint64_t kRan2SeedRange = 2147483562ULL;

// The first hop whose running sum exceeds u: for ascending sums, the number of sums not
// above u. The table of each molecule is padded with +inf to a multiple of four entries, so
// the count runs over whole blocks without a data-dependent branch. Hop 0 when no sum
// exceeds u.
inline int first_sum_above(const double* cum, int n, double u) {
  int c = 0;
  for (int k = 0; k < n; k += 4)
    c += (cum[k] <= u) + (cum[k + 1] <= u) + (cum[k + 2] <= u) + (cum[k + 3] <= u);
  return c >= n ? 0 : c;
}

// The step count of a sample as a 32-bit signed value (wraps like a 32-bit counter).
inline int step_count(long long s) {
  return static_cast<int>(static_cast<std::uint32_t>(static_cast<unsigned long long>(s)));
}

// Standard normal deviates by the polar method on a given uniform source.
template <class Uniform>
class Normal {
 public:
  explicit Normal(Uniform& uniform) : uniform_(uniform) {}
  double operator()() {
    if (has_spare_) {
      has_spare_ = false;
      return spare_;
    }
    double u1 = 0.0, u2 = 0.0, r = 0.0;
    do {
      u1 = 2.0 * uniform_() - 1.0;
      u2 = 2.0 * uniform_() - 1.0;
      r = u1 * u1 + u2 * u2;
    } while (r >= 1.0 || r == 0.0);
    const double f = std::sqrt(-2.0 * std::log(r) / r);
    spare_ = u2 * f;
    has_spare_ = true;
    return u1 * f;
  }

 private:
  Uniform& uniform_;
  double spare_ = 0.0;
  bool has_spare_ = false;
};

// The trajectory loop shared by all engines. `step(mol, D)` makes one hop from `mol`
// (updating mol and the hop-vector sum D) and returns its time step. A sample is taken when
// dt >= tsnap - tau with tau already including this dt; it records the step count and time
// before the hop and the position after it. The loop ends once nrec + 1 samples are taken.
// The test is written as !(dt < ...) so that a non-numeric time step (rates redrawn by
// dynamic disorder can overflow) still samples instead of never reaching the next sample.
// For static rates the caller has checked that every finite dt is large enough for tau to
// reach tsnap in a bounded number of hops.
template <class Step>
long long run_trajectory(Step& step, const double L[3][3], const MCSettings& s, MCSamples& out) {
  int mol = 0;
  double t = 0.0, tau = 0.0;
  long long n = 0;
  double D[3] = {0.0, 0.0, 0.0};
  const double tsnap = s.tsnap;
  for (int r = 0; r <= s.nrec;) {
    const double dt = step(mol, D);
    tau += dt;
    if (!(dt < tsnap - tau)) {
      double P[3];  // L * D, written out so that D stays in registers between samples
      for (int k = 0; k < 3; ++k) P[k] = L[k][0] * D[0] + L[k][1] * D[1] + L[k][2] * D[2];
      out.steps[r] = step_count(n);
      out.time[r] = t;
      for (int k = 0; k < 3; ++k) out.pos[3 * r + k] = P[k];
      out.r2[r] = s.cartesian_r2 ? P[0] * P[0] + P[1] * P[1] + P[2] * P[2]
                                 : D[0] * D[0] + D[1] * D[1] + D[2] * D[2];
      tau = 0.0;
      ++r;
    }
    t += dt;
    ++n;
  }
  return n;
}

// One hop from the tabulated running sums: a draw and a look-up.
template <class Uniform, class Site>
struct TableStep {
  Uniform& uniform;
  const Site* sites;
  const int* target;
  const double* cum;
  const double* disp;

  double operator()(int& mol, double D[3]) {
    const double u = uniform();
    const Site& site = sites[mol];
    const int n = site.nhops;
    if (n >= 1) {
      const int b = site.begin;
      const int j = first_sum_above(cum + b, n, u);
      const double* d = disp + 3 * static_cast<size_t>(b + j);
      D[0] += d[0];
      D[1] += d[1];
      D[2] += d[2];
      mol = target[b + j];
    }
    return site.dt;
  }
};

}  // namespace

MCSamples::MCSamples(int nrec) {
  const size_t ns = static_cast<size_t>(std::max(nrec + 1, 0));
  steps.assign(ns, 0);
  time.assign(ns, 0.0);
  pos.assign(3 * ns, 0.0);
  r2.assign(ns, 0.0);
}

// ---------------------------------------------------------------- hop tables

HopEngine::HopEngine(MCNetwork network) : net_(std::move(network)) {
  const int nmol = std::max(static_cast<int>(net_.hops.size()), 1);
  sites_.assign(nmol, Site{0, 0, 0.0});
  int total = 0;
  for (int i = 0; i < nmol; ++i) {
    const int n =
        i < static_cast<int>(net_.hops.size()) ? static_cast<int>(net_.hops[i].size()) : 0;
    sites_[i].begin = total;
    sites_[i].nhops = n;
    max_nhops_ = std::max(max_nhops_, n);
    total += (n + 3) / 4 * 4;
  }
  target_.assign(total, 0);
  cum_.assign(total, std::numeric_limits<double>::infinity());
  disp_.assign(3 * static_cast<size_t>(total), 0.0);
  for (int i = 0; i < nmol; ++i) {
    Site& site = sites_[i];
    const int b = site.begin;
    const int n = site.nhops;
    double K = 0.0;
    for (int j = 0; j < n; ++j) K += net_.hops[i][j].rate;
    site.dt = 1.0 / K;  // K = 0 (no hops): an infinite residence time
    // The first hop whose running sum exceeds u is the first whose largest running sum so
    // far does; those maxima ascend even where a rate below 0 lowers the sum.
    double sum = 0.0, highest = -std::numeric_limits<double>::infinity();
    for (int j = 0; j < n; ++j) {
      const MCHop& h = net_.hops[i][j];
      sum += h.rate / K;
      highest = std::max(highest, sum);
      cum_[b + j] = highest;
      target_[b + j] = h.target;
      for (int k = 0; k < 3; ++k) disp_[3 * static_cast<size_t>(b + j) + k] = h.d[k];
    }
    for (int j = n; j < (n + 3) / 4 * 4; ++j) target_[b + j] = i;
  }
}

int HopEngine::nhops(int mol) const {
  if (mol < 0 || mol >= static_cast<int>(sites_.size())) return 0;
  return sites_[mol].nhops;
}

// ---------------------------------------------------------------- hop choice

int HopEngine::select_hop(int mol, double u) const {
  if (mol < 0 || mol >= static_cast<int>(sites_.size())) return -1;
  const Site& site = sites_[mol];
  if (site.nhops < 1) return 0;
  return first_sum_above(&cum_[site.begin], site.nhops, u);
}

// Hops leaving the film are excluded. The film-normal coordinate of hop j's target is taken
// from the image shifts at the index given by hop j's a-shift, and the running sum adds the
// probability at position j + 1 after testing hop j, allowed or not (excluded hops have
// probability 0). If no hop is chosen the first allowed hop is taken, hop 0 if none is.
int HopEngine::select_hop_thinfilm(int mol, const double D[3], double u, const MCSettings& s,
                                   double* ktotal) const {
  const int n = nhops(mol);
  const int axis = (s.thinfilm_dir >= 0 && s.thinfilm_dir <= 2) ? s.thinfilm_dir : 0;
  if (n < 1) {
    *ktotal = 0.0;
    return 0;
  }
  const std::vector<MCHop>& hops = net_.hops[mol];
  const double thickness = static_cast<double>(s.thinfilm_ncell);
  auto allowed = [&](int j) {
    const int k = hops[j].a;
    int offset = 0;  // outside the table: no offset
    if (k >= 0 && k < n) offset = axis == 0 ? hops[k].a : axis == 1 ? hops[k].b : hops[k].c;
    const double c = std::trunc(static_cast<double>(offset) + D[axis]);
    return c >= 0.0 && c < thickness;
  };

  double K = 0.0;
  int first = -1;
  for (int j = 0; j < n; ++j) {
    if (!allowed(j)) continue;
    K += hops[j].rate;
    if (first < 0) first = j;
  }
  *ktotal = K;
  if (first < 0) return 0;
  auto prob = [&](int j) { return allowed(j) ? hops[j].rate / K : 0.0; };
  double sum = prob(first);
  for (int j = first; j < n; ++j) {
    if (!allowed(j)) continue;
    if (sum > u) return j;
    if (j + 1 < n) sum += prob(j + 1);
  }
  return first;
}

// ---------------------------------------------------------------- trajectories

template <class Uniform>
long long HopEngine::run(Uniform& uniform, MCEngine engine, const MCSettings& s,
                         MCSamples& out) const {
  if (out.steps.size() < static_cast<size_t>(s.nrec) + 1) return 0;
  const double(*L)[3] = net_.lattice.m;

  if (engine == MCEngine::Static) {
    TableStep<Uniform, Site> step{uniform, sites_.data(), target_.data(), cum_.data(),
                                  disp_.data()};
    return run_trajectory(step, L, s, out);
  }

  auto apply_hop = [this](int& mol, int j, double D[3]) {
    const size_t h = static_cast<size_t>(sites_[mol].begin + j);
    for (int k = 0; k < 3; ++k) D[k] += disp_[3 * h + k];
    mol = target_[h];
  };

  if (engine == MCEngine::ThinFilm) {
    auto step = [&](int& mol, double D[3]) {
      const double u = uniform();
      double K = 0.0;
      const int j = select_hop_thinfilm(mol, D, u, s, &K);
      if (nhops(mol) >= 1) apply_hop(mol, j, D);
      return 1.0 / K;
    };
    return run_trajectory(step, L, s, out);
  }

  // Dynamic disorder: before each hop the rates out of the current molecule are redrawn.
  // The transfer integral of every hop fluctuates as V(1 + sigma_V x) with x standard
  // normal, so its rate scales by (1 + sigma_V x)^2; the site energies of the molecule and
  // of each target fluctuate by Gaussian e_i, e_j of width sigma_E, which scales the rate by
  // exp(-(e_j - e_i) / 2kT). The hop is then chosen from the redrawn rates as above.
  Normal<Uniform> normal(uniform);
  std::vector<double> work(static_cast<size_t>(std::max(max_nhops_, 1)), 0.0);
  const bool vary_V = s.V_dynamic_disorder;
  const double kT = kMCBoltzmannMeV * s.temp;
  const bool vary_E = s.HOMOLUMO_dynamic_disorder && kT > 0.0;
  auto step = [&](int& mol, double D[3]) {
    const int n = nhops(mol);
    const double e_i = vary_E ? s.sigma_E * normal() : 0.0;
    double K = 0.0;
    for (int j = 0; j < n; ++j) {
      double k = net_.hops[mol][j].rate;
      if (vary_V) {
        const double x = 1.0 + s.sigma_V * normal();
        k *= x * x;
      }
      if (vary_E) k *= std::exp(-(s.sigma_E * normal() - e_i) / (2.0 * kT));
      work[j] = k;
      K += k;
    }
    const double u = uniform();
    if (n >= 1) {
      int chosen = 0;
      double sum = 0.0;
      for (int j = 0; j < n; ++j) {
        sum += work[j] / K;
        if (sum > u) {
          chosen = j;
          break;
        }
      }
      apply_hop(mol, chosen, D);
    }
    return 1.0 / K;
  };
  return run_trajectory(step, L, s, out);
}

long long HopEngine::trajectory(MCEngine engine, MCGenerator& gen, const MCSettings& s,
                                MCSamples& out) const {
  auto uniform = [&gen]() { return gen.canonical(); };
  return run(uniform, engine, s, out);
}

long long HopEngine::trajectory_ran2(MCEngine engine, const MCSettings& s, MCSamples& out) const {
  auto uniform = []() { return randUniform(); };
  return run(uniform, engine, s, out);
}

// ---------------------------------------------------------------- seeds

MCGenerator mc_seeded_generator(std::uint64_t seed, int run) {
  std::seed_seq seq{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32),
                    static_cast<std::uint32_t>(run)};
  return MCGenerator(seq);
}

// A negative state word rebuilds the shuffle table, so the stream depends on nothing drawn
// before.
void mc_seed_ran2(std::uint64_t seed, int run) {
  const std::uint64_t v =
      (seed + static_cast<std::uint64_t>(static_cast<std::int64_t>(run))) % kRan2SeedRange;
  idum = -static_cast<long>(v + 1);
}
