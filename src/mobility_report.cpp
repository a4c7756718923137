// Diffusion tensor and mobility from the summed samples, the comparison with the exact tensor,
// and the report (standard output and "mobility.json").
//
// The fit uses the second half of the samples. The charge starts on molecule 0, not spread
// over the sites as the stationary walk is, and the covariance carries an offset from the
// corrector of the exact tensor that settles over the network's relaxation time; dropping the
// first half lets that transient die out while half the samples remain for the slope, and the
// late samples are those with the largest diffusive signal.
#include "mobility_report.h"

#include <cmath>
#include <cstdio>
#include <string>

#include "util.h"

namespace mobility_lines {
constexpr int FIT_SAMPLES = 103;  // too few samples for the late-time fit
constexpr int JSON_OPEN = 104;    // mobility.json cannot be written
}  // namespace mobility_lines

namespace {

constexpr double kSquareAngstromPerNsInCm2PerS = 1e-7;
constexpr double kBoltzmannOverCharge = 8.617333262e-5;  // V/K
constexpr double kDisagreement = 4.0;                    // standard errors
constexpr double kZeroComponent = 1e-9;                  // relative to tr D / 3
constexpr int kPairs[6][2] = {{0, 0}, {1, 1}, {2, 2}, {0, 1}, {0, 2}, {1, 2}};
const char* const kPairNames[6] = {"xx", "yy", "zz", "xy", "xz", "yz"};

// D from the products summed in `s` over samples first..last, against the mean times and
// mean positions of all runs (`all`). The slope is linear in the products, so the slopes of
// the blocks, weighted by their runs, average to the slope of all runs.
void fit_tensor(const BlockSums& s, const BlockSums& all, int first, int last, double D[3][3]) {
  const int n = last - first + 1;
  const double inv = 1.0 / s.runs, inv_all = 1.0 / all.runs;
  std::vector<double> t(n), y(n);
  for (int p = 0; p < 6; ++p) {
    const int a = kPairs[p][0], b = kPairs[p][1];
    for (int k = 0; k < n; ++k) {
      const int r = first + k;
      t[k] = all.time[r] * inv_all;
      y[k] = s.prod[6 * r + p] * inv -
             (all.pos[3 * r + a] * inv_all) * (all.pos[3 * r + b] * inv_all);
    }
    double intercept = 0, slope = 0, sd = 0;
    LinearRegression(t.data(), y.data(), n, &intercept, &slope, &sd);
    D[a][b] = D[b][a] = 0.5 * slope;
  }
}

struct Principal {
  double value[3];
  double axis[3][3];  // axis[k] is the unit vector of value[k]
};

Principal principal(const double T[3][3]) {
  double a[3][3], v[3][3], d[3];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) a[i][j] = T[i][j];
  int nrot = 0;
  jacobi_nr(a, 3, d, v, nrot);
  eigsrt_nr(d, v, 3);
  Principal p;
  for (int k = 0; k < 3; ++k) {
    p.value[k] = d[k];
    // Sign fixed so that the largest component is positive.
    int big = 0;
    for (int i = 1; i < 3; ++i)
      if (std::fabs(v[i][k]) > std::fabs(v[big][k])) big = i;
    const double s = v[big][k] < 0 ? -1.0 : 1.0;
    for (int i = 0; i < 3; ++i) p.axis[k][i] = s * v[i][k] + 0.0;
  }
  return p;
}

// u^T T u for the unit vector along column c of the cell matrix.
double along_cell_vector(const double T[3][3], const double latt[3][3], int c) {
  double u[3], n = 0;
  for (int i = 0; i < 3; ++i) n += latt[i][c] * latt[i][c];
  n = std::sqrt(n);
  for (int i = 0; i < 3; ++i) u[i] = n > 0 ? latt[i][c] / n : 0.0;
  double s = 0;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) s += u[i] * T[i][j] * u[j];
  return s;
}

void scaled(const double T[3][3], double f, double out[3][3]) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) out[i][j] = T[i][j] * f;
}

std::string json_tensor(const double T[3][3]) {
  return format_string("[[%.9e, %.9e, %.9e], [%.9e, %.9e, %.9e], [%.9e, %.9e, %.9e]]", T[0][0],
                       T[0][1], T[0][2], T[1][0], T[1][1], T[1][2], T[2][0], T[2][1], T[2][2]);
}

std::string json_vector(const double v[3]) {
  return format_string("[%.9e, %.9e, %.9e]", v[0], v[1], v[2]);
}

std::string json_principal(const Principal& p) {
  return format_string("{\"values\": %s, \"axes\": [%s, %s, %s]}", json_vector(p.value).c_str(),
                       json_vector(p.axis[0]).c_str(), json_vector(p.axis[1]).c_str(),
                       json_vector(p.axis[2]).c_str());
}

std::string text_principal(const char* label, const Principal& p) {
  std::string s;
  for (int k = 0; k < 3; ++k)
    s += format_string("  %-8s %13.5e  along (%8.5f, %8.5f, %8.5f)\n", k == 0 ? label : "",
                       p.value[k], p.axis[k][0], p.axis[k][1], p.axis[k][2]);
  return s;
}

}  // namespace

BlockSums total_of(const std::vector<BlockSums>& blocks, int nrec) {
  BlockSums total(nrec, 0);
  for (const BlockSums& b : blocks) total.add(b);
  return total;
}

SampledDiffusion sampled_diffusion(const std::vector<BlockSums>& blocks, int runs) {
  SampledDiffusion out;
  const int nrec = blocks.empty() ? 0 : blocks.front().samples() - 1;
  out.fit_first = (nrec + 1) / 2;
  out.fit_last = nrec;
  out.blocks = static_cast<int>(blocks.size());
  if (out.fit_last - out.fit_first + 1 < 3)
    fatal_error("mobility", mobility_lines::FIT_SAMPLES, FatalStream::Err,
                format_string("Too few samples for the diffusion fit: nrec = %d (tsimu / tsnap "
                              "must give at least 4)!\n",
                              nrec),
                1);
  const BlockSums all = total_of(blocks, nrec);
  fit_tensor(all, all, out.fit_first, out.fit_last, out.D);
  if (blocks.size() < 2) return out;

  // Standard error of the weighted mean of the block slopes, weights runs_b / N.
  double mean[3][3] = {}, var[3][3] = {};
  std::vector<std::vector<double>> per_block;
  for (const BlockSums& b : blocks) {
    double Db[3][3];
    fit_tensor(b, all, out.fit_first, out.fit_last, Db);
    per_block.emplace_back(&Db[0][0], &Db[0][0] + 9);
    const double w = static_cast<double>(b.runs) / runs;
    for (int i = 0; i < 9; ++i) (&mean[0][0])[i] += w * per_block.back()[i];
  }
  double var_iso = 0.0;
  for (size_t k = 0; k < blocks.size(); ++k) {
    const double w = static_cast<double>(blocks[k].runs) / runs;
    for (int i = 0; i < 9; ++i) {
      const double d = per_block[k][i] - (&mean[0][0])[i];
      (&var[0][0])[i] += w * w * d * d;
    }
    const double d_iso = (per_block[k][0] + per_block[k][4] + per_block[k][8] - mean[0][0] -
                          mean[1][1] - mean[2][2]) / 3.0;
    var_iso += w * w * d_iso * d_iso;
  }
  const double nb = static_cast<double>(blocks.size());
  for (int i = 0; i < 9; ++i) (&out.err[0][0])[i] = std::sqrt((&var[0][0])[i] * nb / (nb - 1.0));
  out.err_iso = std::sqrt(var_iso * nb / (nb - 1.0));
  return out;
}

void report_mobility(const MobilitySetup& setup, const SampledDiffusion& sampled,
                     const ExactDiffusion& exact, const std::string& dir) {
  const double to_cgs = kSquareAngstromPerNsInCm2PerS;
  const double to_mu = to_cgs / (kBoltzmannOverCharge * setup.temp);
  double Ds[3][3], Es[3][3], De[3][3], Ms[3][3], Me[3][3];
  scaled(sampled.D, to_cgs, Ds);
  scaled(sampled.err, to_cgs, Es);
  scaled(exact.D, to_cgs, De);
  scaled(sampled.D, to_mu, Ms);
  scaled(exact.D, to_mu, Me);
  const Principal ps = principal(Ds), pe = principal(De), mps = principal(Ms), mpe = principal(Me);
  const bool applies = exact.solved && !exact.drift;
  const double iso_s = (Ds[0][0] + Ds[1][1] + Ds[2][2]) / 3.0;
  const double iso_e = (De[0][0] + De[1][1] + De[2][2]) / 3.0;
  const double iso_err = sampled.err_iso * to_cgs;
  const double t_first = sampled.fit_first * setup.tsnap, t_last = sampled.fit_last * setup.tsnap;

  std::string text = format_string(
      "Mobility of the charge (chargetype = %s) at %g K: %d runs of %g ns sampled every %g ns "
      "(%d samples), seed %s\n",
      setup.chargetype.c_str(), setup.temp, setup.runs, setup.tsimu, setup.tsnap, setup.nrec,
      setup.seeded ? std::to_string(setup.seed).c_str() : "from the random device");
  text += format_string(
      "Diffusion tensor D, cm^2/s, Cartesian frame of the tracks; sampled: half the slope of the "
      "displacement covariance over samples %d..%d (about %g..%g ns), error from %d blocks\n",
      sampled.fit_first, sampled.fit_last, t_first, t_last, sampled.blocks);
  text += "  component       sampled      error         exact  sampled/exact\n";
  std::string warnings;
  int nwarnings = 0;
  for (int p = 0; p < 6; ++p) {
    const int a = kPairs[p][0], b = kPairs[p][1];
    // A component zero to rounding (by symmetry) has no meaningful ratio.
    const bool nonzero = std::fabs(De[a][b]) > kZeroComponent * std::fabs(iso_e);
    text += format_string("  D_%s      %13.5e %10.2e %13.5e  %s\n", kPairNames[p], Ds[a][b],
                          Es[a][b], De[a][b],
                          nonzero ? format_string("%.5f", Ds[a][b] / De[a][b]).c_str() : "-");
    const double gap = std::fabs(Ds[a][b] - De[a][b]);
    if (applies && Es[a][b] > 0.0 && gap > kDisagreement * Es[a][b])
      warnings += format_string(
          "WARNING: sampled and exact D_%s differ by %.1f standard errors: the runs may be too "
          "short for the charge to forget its start, or tsnap too coarse; raise tsimu (and the "
          "number of runs) or lower tsnap.\n",
          kPairNames[p], gap / Es[a][b]);
    nwarnings += applies && Es[a][b] > 0.0 && gap > kDisagreement * Es[a][b];
  }
  text += format_string("  D = tr/3   %13.5e %10.2e %13.5e  %s\n", iso_s, iso_err, iso_e,
                        iso_e != 0.0 ? format_string("%.5f", iso_s / iso_e).c_str() : "-");
  text += "Principal values of D, cm^2/s\n" + text_principal("sampled", ps) +
          text_principal("exact", pe);
  text += format_string("Mean drift velocity v = (%.6e, %.6e, %.6e) angstrom/ns\n", exact.v[0],
                        exact.v[1], exact.v[2]);
  if (!exact.solved)
    text += "The exact tensor did not converge; it is shown for reference only.\n";
  else if (exact.drift)
    text += "The walk drifts: the exact tensor holds for exponential residence times, not for "
            "the engine's fixed 1/K, and is not compared.\n";
  text += format_string("Mobility mu = e D / (k_B T), cm^2/(V s), at %g K\n", setup.temp);
  for (int i = 0; i < 3; ++i)
    text += format_string("  %-8s %13.5e %13.5e %13.5e\n", i == 0 ? "sampled" : "", Ms[i][0],
                          Ms[i][1], Ms[i][2]);
  for (int i = 0; i < 3; ++i)
    text += format_string("  %-8s %13.5e %13.5e %13.5e\n", i == 0 ? "exact" : "", Me[i][0],
                          Me[i][1], Me[i][2]);
  text += "  principal values\n" + text_principal("sampled", mps) + text_principal("exact", mpe);
  double along_s[3], along_e[3];
  for (int c = 0; c < 3; ++c) {
    along_s[c] = along_cell_vector(Ms, setup.latt, c);
    along_e[c] = along_cell_vector(Me, setup.latt, c);
  }
  text += format_string("  along a, b, c: sampled %13.5e %13.5e %13.5e\n", along_s[0],
                        along_s[1], along_s[2]);
  text += format_string("                 exact   %13.5e %13.5e %13.5e\n", along_e[0],
                        along_e[1], along_e[2]);
  text += warnings;
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);

  // The same as JSON.
  std::string json = "{\n";
  json += format_string(
      "  \"settings\": {\"chargetype\": \"%s\", \"temp\": %.9g, \"tsimu\": %.9g, \"tsnap\": "
      "%.9g, \"nrec\": %d, \"runs\": %d, \"seed\": %s, \"fit_samples\": [%d, %d], \"blocks\": "
      "%d},\n",
      setup.chargetype.c_str(), setup.temp, setup.tsimu, setup.tsnap, setup.nrec, setup.runs,
      setup.seeded ? std::to_string(setup.seed).c_str() : "null", sampled.fit_first,
      sampled.fit_last, sampled.blocks);
  json += "  \"diffusion_cm2_per_s\": {\n";
  json += "    \"sampled\": " + json_tensor(Ds) + ",\n";
  json += "    \"sampled_error\": " + json_tensor(Es) + ",\n";
  json += "    \"exact\": " + json_tensor(De) + ",\n";
  json += format_string("    \"isotropic\": {\"sampled\": %.9e, \"error\": %.9e, \"exact\": %.9e},\n",
                        iso_s, iso_err, iso_e);
  json += "    \"principal_sampled\": " + json_principal(ps) + ",\n";
  json += "    \"principal_exact\": " + json_principal(pe) + "\n  },\n";
  json += format_string("  \"drift_velocity_angstrom_per_ns\": %s,\n", json_vector(exact.v).c_str());
  json += format_string("  \"exact_applies\": %s,\n", applies ? "true" : "false");
  json += "  \"mobility_cm2_per_V_s\": {\n";
  json += "    \"sampled\": " + json_tensor(Ms) + ",\n";
  json += "    \"exact\": " + json_tensor(Me) + ",\n";
  json += "    \"principal_sampled\": " + json_principal(mps) + ",\n";
  json += "    \"principal_exact\": " + json_principal(mpe) + ",\n";
  json += "    \"along_abc_sampled\": " + json_vector(along_s) + ",\n";
  json += "    \"along_abc_exact\": " + json_vector(along_e) + "\n  },\n";
  json += format_string("  \"warnings\": %d\n}\n", nwarnings);
  const std::string name = dir + "/mobility.json";
  std::FILE* f = std::fopen(name.c_str(), "w");
  if (!f)
    fatal_error("mobility", mobility_lines::JSON_OPEN, FatalStream::Err,
                format_string("Failed to open output file %s\n", name.c_str()), 1);
  std::fputs(json.c_str(), f);
  std::fclose(f);
}
