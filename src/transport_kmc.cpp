// Kinetic Monte Carlo of charge hopping over the neighbour network: the rate files, the hop
// network built from the neighbour list and the rates, the runs of the hopping engine
// (hop_network.h) with their generators, and the track files. A charge starts on molecule 0
// and hops with the rates of "WH.dat" (holes) or "WL.dat" (electrons); trajectories are
// sampled every tsnap ns up to tsimu ns, written as track files and averaged over
// trajectories for the mobility programs.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
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

// ---------------------------------------------------------------- the hop network

MCNetwork Transport::MC_network() const {
  MCNetwork net;
  net.lattice = lattice();
  net.hops.resize(mc_rates.size());
  for (size_t i = 0; i < mc_rates.size(); ++i) {
    for (size_t j = 0; j < mc_rates[i].size(); ++j) {
      MCHop h;
      h.target = nei_mol[i][j];
      h.a = nei_a[i][j];
      h.b = nei_b[i][j];
      h.c = nei_c[i][j];
      h.d = Fractional(&nei_disp[i][3 * j]);
      h.rate = mc_rates[i][j];
      net.hops[i].push_back(h);
    }
  }
  return net;
}

MCSettings Transport::MC_settings(bool cartesian_r2) const {
  MCSettings s;
  s.tsnap = tsnap;
  s.nrec = mc_nrec;
  s.cartesian_r2 = cartesian_r2;
  s.thinfilm_dir = thinfilm_dir;
  s.thinfilm_ncell = thinfilm_ncell;
  s.V_dynamic_disorder = V_dynamic_disorder;
  s.HOMOLUMO_dynamic_disorder = HOMOLUMO_dynamic_disorder;
  s.sigma_V = mc_dd_sigma_V;
  s.sigma_E = mc_dd_sigma_E;
  s.temp = mc_temp;
  return s;
}

void Transport::MC_write_hoprates(const char* name, bool dynamic) const {
  std::FILE* f = open_output(name);
  const double kT = kMCBoltzmannMeV * temp;
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
    const int n = mc_engine.nhops(i);
    const double K = 1.0 / mc_engine.residence_time(i);
    for (int j = 0; j < n; ++j) {
      const MCHop& h = mc_engine.network().hops[i][j];
      const double* d = h.d.data();
      double P[3];
      for (int k = 0; k < 3; ++k)
        P[k] = latt[k][0] * d[0] + latt[k][1] * d[1] + latt[k][2] * d[2];
      const double dist = std::sqrt(P[0] * P[0] + P[1] * P[1] + P[2] * P[2]);
      const double k = mc_rates[i][j];
      std::fprintf(f, "%6d %5d %7d %5d %5d %5d %13.6f %14.6e %14.6e", i + 1, j + 1,
                   mc_engine.target(i, j) + 1, h.a, h.b, h.c, dist, k,
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

  mc_engine = HopEngine(MC_network());
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
    const double dt = mc_engine.residence_time(i);
    if (mc_engine.nhops(i) >= 1 && tsnap > 0.0 && !(dt * kMaxHopsPerSample >= tsnap))
      fatal_error("transport", kmc_lines::TIME_STEP, FatalStream::Err,
                  format_string("Hopping rates of molecule %d too fast for tsnap = %g ns: "
                                "residence time %g ns, more than %g hops per sample!\n",
                                i + 1, tsnap, dt, kMaxHopsPerSample),
                  1);
  }
  const size_t ns = static_cast<size_t>(mc_nrec) + 1;
  mc_samples = MCSamples(mc_nrec);
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

int Transport::MC_select_hop(int mol, double u) const { return mc_engine.select_hop(mol, u); }

int Transport::MC_select_hop_thinfilm(int mol, const double D[3], double u,
                                      double* ktotal) const {
  return mc_engine.select_hop_thinfilm(mol, D, u, MC_settings(false), ktotal);
}

// ---------------------------------------------------------------- sums

void Transport::MC_add_to_sums() {
  const size_t ns = static_cast<size_t>(mc_nrec) + 1;
  if (mc_sum_time.size() < ns) return;
  for (size_t r = 0; r < ns; ++r) {
    mc_sum_steps[r] += mc_samples.steps[r];
    mc_sum_time[r] += mc_samples.time[r];
    mc_sum_r2[r] += mc_samples.r2[r];
    for (int k = 0; k < 3; ++k) mc_sum_pos[3 * r + k] += mc_samples.pos[3 * r + k];
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
  if (mc_samples.steps.size() < static_cast<size_t>(mc_nrec) + 1) return;
  write_track(name, mc_nrec, mc_samples.steps.data(), mc_samples.time.data(),
              mc_samples.pos.data(), mc_samples.r2.data());
}

void Transport::output_track_ave(const char* dir) const {
  const std::string name = track_ave_file(dir);
  if (mc_sum_time.size() < static_cast<size_t>(mc_nrec) + 1) return;
  write_track(name, mc_nrec, nullptr, mc_sum_time.data(), mc_sum_pos.data(), mc_sum_r2.data());
}

// ---------------------------------------------------------------- runs

// The clock-seeded engines share the process-wide ran2 stream, re-seeded from the clock in
// whole seconds at the start of each trajectory unless a seed is set.
void Transport::MC_run_ran2_trajectory(int run, const char* dir, MCEngine engine) {
  if (mc_seeded) mc_seed_ran2(mc_seed, run);
  else init_random_seed();
  mc_engine.trajectory_ran2(engine, MC_settings(false), mc_samples);
  output_track(run + 1, dir);
  MC_add_to_sums();
}

void Transport::MC_simulation_one(int run, const char* dir) {
  if (!mc_initialized) MC_init();
  MC_run_ran2_trajectory(run, dir, MCEngine::Static);
}

void Transport::MC_simulation_one_thinfilm(int run, const char* dir) {
  if (!mc_initialized) MC_init();
  std::printf("MC simulation (%d)...\n", run + 1);
  MC_run_ran2_trajectory(run, dir, MCEngine::ThinFilm);
}

// Each trajectory owns a Mersenne Twister seeded from the random device, or from (seed, run)
// when a seed is set.
void Transport::MC_run_trajectories(const char* dir, int nruns, MCEngine engine) {
  if (!mc_initialized) MC_init();
  std::printf("MC simulation...\n");
  MC_reset_sums();
  std::optional<std::random_device> device;
  if (!mc_seeded) device.emplace("default");
  const MCSettings settings = MC_settings(true);
  for (int run = 1; run <= nruns; ++run) {
    MCGenerator gen = device ? MCGenerator((*device)()) : mc_seeded_generator(mc_seed, run);
    mc_engine.trajectory(engine, gen, settings, mc_samples);
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

long long Transport::MC_trajectory_into(MCGenerator& gen, MCSamples& out) const {
  if (!mc_initialized) return 0;
  return mc_engine.trajectory(MCEngine::Static, gen, MC_settings(true), out);
}

void Transport::output_track(int run, const char* dir, const MCSamples& s) const {
  write_track(track_file(dir, run), mc_nrec, s.steps.data(), s.time.data(), s.pos.data(),
              s.r2.data());
}

void Transport::output_track_ave(const char* dir, const MCSamples& ave) const {
  write_track(track_ave_file(dir), mc_nrec, nullptr, ave.time.data(), ave.pos.data(),
              ave.r2.data());
}
