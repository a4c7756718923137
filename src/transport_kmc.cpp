// Kinetic Monte Carlo of charge hopping over the neighbour network. A charge starts on
// molecule 0 and hops to the neighbour images of the molecule it sits on with the rates of
// "WH.dat" (holes) or "WL.dat" (electrons); each step takes the mean residence time 1/K of
// the molecule it leaves. Trajectories are sampled every tsnap ns up to tsimu ns, written as
// track files and averaged over trajectories for the mobility programs.
//
// Every step costs one uniform draw and a look-up: the running sums of the hop
// probabilities, the residence times, targets and hop vectors are tabulated once per
// molecule (MC_build_hop_tables), summed in the same order as the hop choice defines them,
// so a table look-up selects exactly the hop that summing on the fly would select.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "transport.h"
#include "util.h"

namespace {

constexpr int kLineBuffer = 255;              // rate-file lines: at most 254 characters
constexpr int kMaxSamples = 10000000;         // upper bound of tsimu / tsnap
constexpr double kMaxHopsPerSample = 1e10;    // upper bound of tsnap / (1/K) for every molecule
constexpr double kBoltzmannMeV = 8.617333262e-2;  // meV/K
constexpr std::uint64_t kRan2SeedRange = 2147483562ULL;

const char* const kTrackHeader =
    "#      t,ns         x,angs         y,angs         z,angs         r2,A^2     istep\n";

// One line of a rate file; an empty line at the end of the file.
void read_line(std::FILE* f, char* buf) {
  if (!std::fgets(buf, kLineBuffer, f)) buf[0] = '\0';
}

// The leading integer of a text, as atoi reads it (a long narrowed to int).
int leading_int(const char* s) { return static_cast<int>(std::strtol(s, nullptr, 10)); }

[[noreturn]] void count_mismatch(std::FILE* f, const char* name, int read, int expected) {
  std::fclose(f);
  std::printf("Data in '%s' incomptible: %d : %d should be equal!\n", name, read, expected);
  fatal_exit(-1);
}

[[noreturn]] void output_open_failed(const std::string& name) {
  fatal_error("transport", kmc_lines::OUTPUT_OPEN, FatalStream::Out,
              format_string("Failed to open output file %s\n", name.c_str()), -1);
}

std::FILE* open_output(const std::string& name) {
  std::FILE* f = std::fopen(name.c_str(), "w");
  if (!f) output_open_failed(name);
  return f;
}

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

// Where the samples of one trajectory go.
struct SampleArrays {
  int* steps;
  double* time;
  double* pos;
  double* r2;
};

// The trajectory loop shared by all engines. `step(mol, D)` makes one hop from `mol`
// (updating mol and the hop-vector sum D) and returns its time step. A sample is taken when
// dt >= tsnap - tau with tau already including this dt; it records the step count and time
// before the hop and the position after it. The loop ends once nrec + 1 samples are taken.
// The test is written as !(dt < ...) so that a non-numeric time step (rates redrawn by
// dynamic disorder can overflow) still samples instead of never reaching the next sample.
// For static rates MC_init has checked that every finite dt is large enough for tau to
// reach tsnap in a bounded number of hops.
template <class Step>
long long run_trajectory(Step& step, const double L[3][3], double tsnap, int nrec,
                         bool cartesian_r2, SampleArrays out) {
  int mol = 0;
  double t = 0.0, tau = 0.0;
  long long s = 0;
  double D[3] = {0.0, 0.0, 0.0};
  for (int r = 0; r <= nrec;) {
    const double dt = step(mol, D);
    tau += dt;
    if (!(dt < tsnap - tau)) {
      double P[3];
      for (int k = 0; k < 3; ++k) P[k] = L[k][0] * D[0] + L[k][1] * D[1] + L[k][2] * D[2];
      out.steps[r] = step_count(s);
      out.time[r] = t;
      for (int k = 0; k < 3; ++k) out.pos[3 * r + k] = P[k];
      out.r2[r] = cartesian_r2 ? P[0] * P[0] + P[1] * P[1] + P[2] * P[2]
                               : D[0] * D[0] + D[1] * D[1] + D[2] * D[2];
      tau = 0.0;
      ++r;
    }
    t += dt;
    ++s;
  }
  return s;
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

// Row of a track file.
void write_row(std::FILE* f, double t, const double* p, double r2, int steps) {
  std::fprintf(f, "%14.6e %14.6e %14.6e %14.6e %14.6e  %d\n", t, p[0], p[1], p[2], r2, steps);
}

// A track file: header, a line of zeros, then samples 0 .. nrec - 1. Without `steps` the
// step column is 0.
void write_track(const std::string& name, int nrec, const int* steps, const double* time,
                 const double* pos, const double* r2) {
  std::FILE* f = open_output(name);
  std::fputs(kTrackHeader, f);
  const double zero[3] = {0.0, 0.0, 0.0};
  write_row(f, 0.0, zero, 0.0, 0);
  for (int r = 0; r < nrec; ++r)
    write_row(f, time[r], pos + 3 * static_cast<size_t>(r), r2[r], steps ? steps[r] : 0);
  std::fclose(f);
}

const char* track_dir(const char* dir) { return dir ? dir : "."; }

// The track file of run number `run` in `dir` (made if missing).
std::string track_file(const char* dir, int run) {
  const char* d = track_dir(dir);
  create_directory(d);
  return run <= 9999 ? format_string("%s/track_%04d.dat", d, run)
                     : format_string("%s/track_%d.dat", d, run);
}

// The average track in `dir` (made if missing).
std::string track_ave_file(const char* dir) {
  const char* d = track_dir(dir);
  create_directory(d);
  return format_string("%s/track_ave.dat", d);
}

}  // namespace

// ---------------------------------------------------------------- settings and accessors

void Transport::set_MC_seed(std::uint64_t seed) {
  mc_seeded = true;
  mc_seed = seed;
}

void Transport::clear_MC_seed() { mc_seeded = false; }

void Transport::set_MC_dynamic_disorder_widths(double sigma_V, double sigma_E) {
  mc_dd_sigma_V = sigma_V;
  mc_dd_sigma_E = sigma_E;
}

int Transport::get_MC_nhops(int mol) const {
  if (mol < 0 || mol >= static_cast<int>(mc_sites.size())) return 0;
  return mc_sites[mol].nhops;
}

// ---------------------------------------------------------------- rates

void Transport::read_MC_w0() {
  std::printf("Reading W files...\n");
  const char c = charge_carrier();
  const char* name = nullptr;
  if (c == 'e') {
    name = "WL.dat";
  } else if (c == 'h') {
    name = "WH.dat";
  } else {
    std::printf("INFO: MC chargetype = %s\n", chargetype.c_str());
    std::printf("CHARGETYPE IS NOT SET CORRECTLY!\n");
    fatal_exit(-1);
  }
  std::FILE* f = std::fopen(name, "r");
  if (!f) {
    std::printf("Failed to open input file %s\n", name);
    fatal_exit(-1);
  }

  // Every count is checked against the neighbour list before anything is stored, so the
  // storage never exceeds what the list holds, whatever the file claims.
  char buf[kLineBuffer];
  read_line(f, buf);
  const int nmol = leading_int(buf);
  if (nmol != nmols_uc) count_mismatch(f, name, nmol, nmols_uc);
  mc_rates.assign(nmols_uc, {});
  for (int i = 0; i < nmols_uc; ++i) {
    read_line(f, buf);
    const int nhops = leading_int(buf);
    const int expected = i < static_cast<int>(nei_count.size()) ? nei_count[i] : 0;
    if (nhops != expected) count_mismatch(f, name, nhops, expected);
    mc_rates[i].resize(expected);
    double factor = 1.0;  // set by the unit of the molecule's first hop line
    for (int j = 0; j < expected; ++j) {
      read_line(f, buf);
      double v1 = 0.0, rate = 0.0, v3 = 0.0;
      char w1[kLineBuffer + 1] = "", unit[kLineBuffer + 1] = "", w3[kLineBuffer + 1] = "";
      std::sscanf(buf, "%lf%255s%lf%255s%lf%255s", &v1, w1, &rate, unit, &v3, w3);
      if (j == 0) {
        std::string u = unit;
        trim(u);
        if (iequals(u, "1/s")) factor = 1e-9;
        else if (iequals(u, "1/ps")) factor = 1000.0;
        else if (iequals(u, "1/ns")) factor = 1.0;
      }
      mc_rates[i][j] = rate * factor;
    }
  }
  std::fclose(f);

  // A trajectory advances by the residence time 1/K of the molecule it leaves and chooses
  // hops by the running sums k_j / K. A NaN or infinite rate leaves both undefined, and a
  // molecule with hops whose K is not positive and finite would stall time or run it
  // backwards. Single rates of 0 or below are otherwise well defined. Checked after the
  // conversion to 1/ns, which can overflow.
  for (int i = 0; i < nmols_uc; ++i) {
    double K = 0.0;
    for (size_t j = 0; j < mc_rates[i].size(); ++j) {
      const double k = mc_rates[i][j];
      if (!std::isfinite(k))
        fatal_error("transport", kmc_lines::RATE_VALUE, FatalStream::Err,
                    format_string("Invalid hopping rate %g 1/ns for molecule %d hop %d in %s: "
                                  "rates must be finite numbers!\n",
                                  k, i + 1, static_cast<int>(j) + 1, name),
                    1);
      K += k;
    }
    if (!mc_rates[i].empty() && !(K > 0.0 && std::isfinite(K)))
      fatal_error("transport", kmc_lines::RATE_VALUE, FatalStream::Err,
                  format_string("Invalid total hopping rate K = %g 1/ns of molecule %d in %s: "
                                "the residence time 1/K must be positive and finite for a "
                                "trajectory to advance!\n",
                                K, i + 1, name),
                  1);
  }
}

void Transport::MC_build_hop_tables() {
  const int nmol = std::max(nmols_uc, 1);
  mc_sites.assign(nmol, MCSite{0, 0, 0.0});
  int total = 0;
  for (int i = 0; i < nmol; ++i) {
    const int n = i < static_cast<int>(mc_rates.size()) ? static_cast<int>(mc_rates[i].size()) : 0;
    mc_sites[i].begin = total;
    mc_sites[i].nhops = n;
    total += (n + 3) / 4 * 4;
  }
  mc_target.assign(total, 0);
  mc_cum.assign(total, std::numeric_limits<double>::infinity());
  mc_disp.assign(3 * static_cast<size_t>(total), 0.0);
  for (int i = 0; i < nmol; ++i) {
    MCSite& site = mc_sites[i];
    const int b = site.begin;
    const int n = site.nhops;
    double K = 0.0;
    for (int j = 0; j < n; ++j) K += mc_rates[i][j];
    site.dt = 1.0 / K;  // K = 0 (no hops): an infinite residence time
    // The first hop whose running sum exceeds u is the first whose largest running sum so
    // far does; those maxima ascend even where a rate below 0 lowers the sum.
    double sum = 0.0, highest = -std::numeric_limits<double>::infinity();
    for (int j = 0; j < n; ++j) {
      sum += mc_rates[i][j] / K;
      highest = std::max(highest, sum);
      mc_cum[b + j] = highest;
      mc_target[b + j] = nei_mol[i][j];
      for (int k = 0; k < 3; ++k)
        mc_disp[3 * static_cast<size_t>(b + j) + k] = nei_disp[i][3 * j + k];
    }
    for (int j = n; j < (n + 3) / 4 * 4; ++j) mc_target[b + j] = i;
  }
}

void Transport::MC_write_hoprates(const char* name, bool dynamic) const {
  std::FILE* f = open_output(name);
  const double kT = kBoltzmannMeV * temp;
  double v_factor = 1.0, e_factor = 1.0;
  if (dynamic) {
    std::fprintf(f,
                 "# dynamic disorder: V_dynamic_disorder = %d (sigma_V = %g), "
                 "HL_dynamic_disorder = %d (sigma_E = %g meV), temp = %g K\n",
                 V_dynamic_disorder ? 1 : 0, mc_dd_sigma_V, HOMOLUMO_dynamic_disorder ? 1 : 0,
                 mc_dd_sigma_E, temp);
    if (V_dynamic_disorder) v_factor = 1.0 + mc_dd_sigma_V * mc_dd_sigma_V;
    if (HOMOLUMO_dynamic_disorder && kT > 0.0)
      e_factor = std::exp(mc_dd_sigma_E * mc_dd_sigma_E / (4.0 * kT * kT));
    std::fprintf(f,
                 "#  mol   hop  target     a     b     c     dist,angs      rate,1/ns"
                 "    <rate>,1/ns\n");
  } else {
    std::fprintf(f, "# hop rates of the charge (chargetype = %s)\n", chargetype.c_str());
    std::fprintf(f,
                 "#  mol   hop  target     a     b     c     dist,angs      rate,1/ns"
                 "    probability    ktotal,1/ns\n");
  }
  for (int i = 0; i < nmols_uc; ++i) {
    const int b = mc_sites[i].begin;
    const int n = mc_sites[i].nhops;
    const double K = 1.0 / mc_sites[i].dt;
    for (int j = 0; j < n; ++j) {
      const double* d = &mc_disp[3 * static_cast<size_t>(b + j)];
      double P[3];
      for (int k = 0; k < 3; ++k)
        P[k] = latt[k][0] * d[0] + latt[k][1] * d[1] + latt[k][2] * d[2];
      const double dist = std::sqrt(P[0] * P[0] + P[1] * P[1] + P[2] * P[2]);
      const double k = mc_rates[i][j];
      std::fprintf(f, "%6d %5d %7d %5d %5d %5d %13.6f %14.6e %14.6e", i + 1, j + 1,
                   mc_target[b + j] + 1, nei_a[i][j], nei_b[i][j], nei_c[i][j], dist, k,
                   dynamic ? k * v_factor * e_factor : K > 0.0 ? k / K : 0.0);
      if (!dynamic) std::fprintf(f, " %14.6e", K);
      std::fputc('\n', f);
    }
  }
  std::fclose(f);
}

// ---------------------------------------------------------------- initialisation

void Transport::MC_init() {
  if (mc_initialized) return;
  std::printf("Initializing MC...\n");
  build_neighbor_list(read_neighbor_dat, false);
  mc_max_nhops = 0;
  for (int i = 0; i < nmols_uc; ++i) mc_max_nhops = std::max(mc_max_nhops, nei_count[i]);
  calc_homo();
  read_MC_w0();

  std::FILE* f = open_output("w0.dat");
  std::fprintf(f, "%d\n", nmols_uc);
  for (int i = 0; i < nmols_uc; ++i) {
    std::fprintf(f, "%d\n", static_cast<int>(mc_rates[i].size()));
    for (double k : mc_rates[i]) std::fprintf(f, " %14.6e 1/ns\n", k);
  }
  std::fclose(f);

  MC_build_hop_tables();
  MC_write_hoprates("hoprates.dat", false);
  if (V_dynamic_disorder || HOMOLUMO_dynamic_disorder) {
    std::printf("Initializing dynamic disorder...\n");
    std::printf("  V_dynamic_disorder  = %d\n", V_dynamic_disorder ? 1 : 0);
    std::printf("  HL_dynamic_disorder = %d\n", HOMOLUMO_dynamic_disorder ? 1 : 0);
    MC_write_hoprates("hoprates-dyn.dat", true);
  }

  // nrec = tsimu / tsnap + 0.5, truncated. nrec = -1 is a trajectory that ends at once (its
  // track holds the header and the zero line); a zero interval and nrec <= -2 mean nothing.
  if (tsnap == 0.0)
    fatal_error("transport", kmc_lines::NREC_RANGE, FatalStream::Err,
                format_string("MC sampling interval tsnap = 0 ns: the number of samples "
                              "tsimu / tsnap (tsimu = %g) is undefined!\n",
                              tsimu),
                1);
  const double samples = tsimu / tsnap + 0.5;
  if (!(samples > -2.0 && samples < kMaxSamples + 1.0))
    fatal_error("transport", kmc_lines::NREC_RANGE, FatalStream::Err,
                format_string("MC sampling out of range: tsimu = %g, tsnap = %g give %g "
                              "samples (from -1 to %d)!\n",
                              tsimu, tsnap, std::trunc(samples), kMaxSamples),
                1);
  mc_nrec = static_cast<int>(samples);
  // Time advances by the residence time of the molecule left, so a sample needs up to
  // tsnap / dt hops; a total rate that overflows (dt = 0) or is absurdly fast for tsnap would
  // never reach it (tau + dt == tau once dt drops below the rounding of tau).
  for (int i = 0; i < nmols_uc; ++i) {
    const double dt = mc_sites[i].dt;
    if (mc_sites[i].nhops >= 1 && tsnap > 0.0 && !(dt * kMaxHopsPerSample >= tsnap))
      fatal_error("transport", kmc_lines::TIME_STEP, FatalStream::Err,
                  format_string("Hopping rates of molecule %d too fast for tsnap = %g ns: "
                                "residence time %g ns, more than %g hops per sample!\n",
                                i + 1, tsnap, dt, kMaxHopsPerSample),
                  1);
  }
  const size_t ns = static_cast<size_t>(mc_nrec) + 1;
  mc_steps.assign(ns, 0);
  mc_time.assign(ns, 0.0);
  mc_pos.assign(3 * ns, 0.0);
  mc_r2.assign(ns, 0.0);
  mc_sum_steps.assign(ns, 0.0);
  mc_sum_time.assign(ns, 0.0);
  mc_sum_pos.assign(3 * ns, 0.0);
  mc_sum_r2.assign(ns, 0.0);

  mc_temp = temp;
  std::printf("  chargetype = %s\n", chargetype.c_str());
  std::printf("  temp       = %g\n", mc_temp);
  mc_initialized = true;
}

// ---------------------------------------------------------------- hop choice

int Transport::MC_select_hop(int mol, double u) const {
  if (mol < 0 || mol >= static_cast<int>(mc_sites.size())) return -1;
  const MCSite& site = mc_sites[mol];
  if (site.nhops < 1) return 0;
  return first_sum_above(&mc_cum[site.begin], site.nhops, u);
}

// Hops leaving the film are excluded. The film-normal coordinate of hop j's target is taken
// from the offset tables at the index given by hop j's a-offset, and the running sum adds
// the probability at position j + 1 after testing hop j, allowed or not (excluded hops have
// probability 0). If no hop is chosen the first allowed hop is taken, hop 0 if none is.
int Transport::MC_select_hop_thinfilm(int mol, const double D[3], double u,
                                      double* ktotal) const {
  const int n = get_MC_nhops(mol);
  const int axis = (thinfilm_dir >= 0 && thinfilm_dir <= 2) ? thinfilm_dir : 0;
  if (n < 1) {
    *ktotal = 0.0;
    return 0;
  }
  const std::vector<int>& offsets = axis == 0 ? nei_a[mol] : axis == 1 ? nei_b[mol] : nei_c[mol];
  const std::vector<int>& index = nei_a[mol];
  const std::vector<double>& rates = mc_rates[mol];
  const double thickness = static_cast<double>(thinfilm_ncell);
  auto allowed = [&](int j) {
    const int k = index[j];
    const int offset = (k >= 0 && k < n) ? offsets[k] : 0;  // outside the table: no offset
    const double c = std::trunc(static_cast<double>(offset) + D[axis]);
    return c >= 0.0 && c < thickness;
  };

  double K = 0.0;
  int first = -1;
  for (int j = 0; j < n; ++j) {
    if (!allowed(j)) continue;
    K += rates[j];
    if (first < 0) first = j;
  }
  *ktotal = K;
  if (first < 0) return 0;
  auto prob = [&](int j) { return allowed(j) ? rates[j] / K : 0.0; };
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
long long Transport::MC_trajectory_with(Uniform& uniform, MCEngine engine, bool cartesian_r2) {
  if (mc_sites.empty()) MC_build_hop_tables();
  const SampleArrays out{mc_steps.data(), mc_time.data(), mc_pos.data(), mc_r2.data()};
  if (mc_steps.size() < static_cast<size_t>(mc_nrec) + 1) return 0;  // not initialised

  if (engine == MCEngine::Static) {
    TableStep<Uniform, MCSite> step{uniform, mc_sites.data(), mc_target.data(), mc_cum.data(),
                                    mc_disp.data()};
    return run_trajectory(step, latt, tsnap, mc_nrec, cartesian_r2, out);
  }

  auto apply_hop = [this](int& mol, int j, double D[3]) {
    const size_t h = static_cast<size_t>(mc_sites[mol].begin + j);
    for (int k = 0; k < 3; ++k) D[k] += mc_disp[3 * h + k];
    mol = mc_target[h];
  };

  if (engine == MCEngine::ThinFilm) {
    auto step = [&](int& mol, double D[3]) {
      const double u = uniform();
      double K = 0.0;
      const int j = MC_select_hop_thinfilm(mol, D, u, &K);
      if (get_MC_nhops(mol) >= 1) apply_hop(mol, j, D);
      return 1.0 / K;
    };
    return run_trajectory(step, latt, tsnap, mc_nrec, cartesian_r2, out);
  }

  // Dynamic disorder: before each hop the rates out of the current molecule are redrawn.
  // The transfer integral of every hop fluctuates as V(1 + sigma_V x) with x standard
  // normal, so its rate scales by (1 + sigma_V x)^2; the site energies of the molecule and
  // of each target fluctuate by Gaussian e_i, e_j of width sigma_E, which scales the rate by
  // exp(-(e_j - e_i) / 2kT). The hop is then chosen from the redrawn rates as above.
  Normal<Uniform> normal(uniform);
  std::vector<double> work(static_cast<size_t>(std::max(mc_max_nhops, 1)), 0.0);
  const bool vary_V = V_dynamic_disorder;
  const double kT = kBoltzmannMeV * mc_temp;
  const bool vary_E = HOMOLUMO_dynamic_disorder && kT > 0.0;
  auto step = [&](int& mol, double D[3]) {
    const int n = get_MC_nhops(mol);
    const double e_i = vary_E ? mc_dd_sigma_E * normal() : 0.0;
    double K = 0.0;
    for (int j = 0; j < n; ++j) {
      double k = mc_rates[mol][j];
      if (vary_V) {
        const double x = 1.0 + mc_dd_sigma_V * normal();
        k *= x * x;
      }
      if (vary_E) k *= std::exp(-(mc_dd_sigma_E * normal() - e_i) / (2.0 * kT));
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
  return run_trajectory(step, latt, tsnap, mc_nrec, cartesian_r2, out);
}

long long Transport::MC_trajectory(std::mt19937& gen, MCEngine engine, bool cartesian_r2) {
  auto uniform = [&gen]() {
    return std::generate_canonical<double, std::numeric_limits<double>::digits>(gen);
  };
  return MC_trajectory_with(uniform, engine, cartesian_r2);
}

long long Transport::MC_trajectory_ran2(MCEngine engine) {
  auto uniform = []() { return randUniform(); };
  return MC_trajectory_with(uniform, engine, false);
}

void Transport::MC_seed_ran2(int run) {
  if (!mc_seeded) {
    init_random_seed();
    return;
  }
  // A negative state word rebuilds the shuffle table, so the stream depends on nothing
  // drawn before.
  const std::uint64_t v = (mc_seed + static_cast<std::uint64_t>(static_cast<std::int64_t>(run))) %
                          kRan2SeedRange;
  idum = -static_cast<long>(v + 1);
}

std::mt19937 Transport::MC_trajectory_generator(std::random_device* device, int run) const {
  if (mc_seeded || !device) {
    std::seed_seq seq{static_cast<std::uint32_t>(mc_seed),
                      static_cast<std::uint32_t>(mc_seed >> 32), static_cast<std::uint32_t>(run)};
    return std::mt19937(seq);
  }
  return std::mt19937((*device)());
}

void Transport::MC_add_to_sums() {
  const size_t ns = static_cast<size_t>(mc_nrec) + 1;
  if (mc_sum_time.size() < ns) return;
  for (size_t r = 0; r < ns; ++r) {
    mc_sum_steps[r] += mc_steps[r];
    mc_sum_time[r] += mc_time[r];
    mc_sum_r2[r] += mc_r2[r];
    for (int k = 0; k < 3; ++k) mc_sum_pos[3 * r + k] += mc_pos[3 * r + k];
  }
}

void Transport::MC_reset_sums() {
  std::fill(mc_sum_steps.begin(), mc_sum_steps.end(), 0.0);
  std::fill(mc_sum_time.begin(), mc_sum_time.end(), 0.0);
  std::fill(mc_sum_pos.begin(), mc_sum_pos.end(), 0.0);
  std::fill(mc_sum_r2.begin(), mc_sum_r2.end(), 0.0);
}

// Turns the sums into averages over nruns trajectories; the step column becomes 0. Without
// trajectories the division gives what it gives (0 / 0 is NaN).
void Transport::MC_average(int nruns) {
  std::fill(mc_sum_steps.begin(), mc_sum_steps.end(), 0.0);
  const double n = static_cast<double>(nruns);
  for (double& v : mc_sum_time) v /= n;
  for (double& v : mc_sum_pos) v /= n;
  for (double& v : mc_sum_r2) v /= n;
}

// ---------------------------------------------------------------- track files

void Transport::output_track(int run, const char* dir) const {
  const std::string name = track_file(dir, run);
  if (mc_steps.size() < static_cast<size_t>(mc_nrec) + 1) return;
  write_track(name, mc_nrec, mc_steps.data(), mc_time.data(), mc_pos.data(), mc_r2.data());
}

void Transport::output_track_ave(const char* dir) const {
  const std::string name = track_ave_file(dir);
  if (mc_sum_time.size() < static_cast<size_t>(mc_nrec) + 1) return;
  write_track(name, mc_nrec, nullptr, mc_sum_time.data(), mc_sum_pos.data(), mc_sum_r2.data());
}

// ---------------------------------------------------------------- runs

void Transport::MC_simulation_one(int run, const char* dir) {
  if (!mc_initialized) MC_init();
  MC_seed_ran2(run);
  MC_trajectory_ran2(MCEngine::Static);
  output_track(run + 1, dir);
  MC_add_to_sums();
}

void Transport::MC_simulation_one_thinfilm(int run, const char* dir) {
  if (!mc_initialized) MC_init();
  std::printf("MC simulation (%d)...\n", run + 1);
  MC_seed_ran2(run);
  MC_trajectory_ran2(MCEngine::ThinFilm);
  output_track(run + 1, dir);
  MC_add_to_sums();
}

void Transport::MC_run_trajectories(const char* dir, int nruns, MCEngine engine) {
  if (!mc_initialized) MC_init();
  std::printf("MC simulation...\n");
  MC_reset_sums();
  std::optional<std::random_device> device;
  if (!mc_seeded) device.emplace("default");
  for (int run = 1; run <= nruns; ++run) {
    std::mt19937 gen = MC_trajectory_generator(device ? &*device : nullptr, run);
    MC_trajectory(gen, engine, true);
    output_track(run, dir);
    MC_add_to_sums();
  }
  MC_average(nruns);
  output_track_ave(dir);
  std::printf("All data are in directory: %s\n", track_dir(dir));
}

void Transport::MC_run_openMP(const char* dir, int /*unused*/, int nruns) {
  MC_run_trajectories(dir, nruns, MCEngine::Static);
}

void Transport::MC_run(const char* dir, int /*unused*/, int nruns) {
  MC_run_trajectories(dir, nruns, MCEngine::Static);
}

void Transport::MC_run_openMP_thinfilm(const char* dir, int /*unused*/, int nruns) {
  MC_run_trajectories(dir, nruns, MCEngine::ThinFilm);
}

void Transport::MC_run_openMP_dyn_disorder(const char* dir, int /*unused*/, int nruns) {
  MC_run_trajectories(dir, nruns, MCEngine::DynamicDisorder);
}

// ---------------------------------------------------------------- caller-owned samples

Transport::MCSamples Transport::MC_new_samples() const {
  const size_t ns = static_cast<size_t>(mc_nrec) + 1;
  MCSamples s;
  s.steps.assign(ns, 0);
  s.time.assign(ns, 0.0);
  s.pos.assign(3 * ns, 0.0);
  s.r2.assign(ns, 0.0);
  return s;
}

long long Transport::MC_trajectory_into(std::mt19937& gen, MCSamples& out) const {
  if (mc_sites.empty() || out.steps.size() < static_cast<size_t>(mc_nrec) + 1) return 0;
  auto uniform = [&gen]() {
    return std::generate_canonical<double, std::numeric_limits<double>::digits>(gen);
  };
  TableStep<decltype(uniform), MCSite> step{uniform, mc_sites.data(), mc_target.data(),
                                            mc_cum.data(), mc_disp.data()};
  return run_trajectory(step, latt, tsnap, mc_nrec, true,
                        SampleArrays{out.steps.data(), out.time.data(), out.pos.data(),
                                     out.r2.data()});
}

void Transport::output_track(int run, const char* dir, const MCSamples& s) const {
  write_track(track_file(dir, run), mc_nrec, s.steps.data(), s.time.data(), s.pos.data(),
              s.r2.data());
}

void Transport::output_track_ave(const char* dir, const MCSamples& ave) const {
  write_track(track_ave_file(dir), mc_nrec, nullptr, ave.time.data(), ave.pos.data(),
              ave.r2.data());
}
