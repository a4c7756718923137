// Diffusion tensor and mobility from the summed samples of the hopping engine, compared with
// the exact tensor of the same walk: the report on standard output and "mobility.json".
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "mobility_runs.h"
#include "mobility_tensor.h"

// What the report states about the calculation.
struct MobilitySetup {
  std::string chargetype;
  double temp = 0, tsimu = 0, tsnap = 0;
  int nrec = 0, runs = 0;
  bool seeded = false;
  std::uint64_t seed = 0;
  double latt[3][3] = {};  // columns are the cell vectors a, b, c (angstrom)
};

// The sampled tensor. Samples from the second half of the run on (index nrec/2 rounded up to
// nrec) enter a least-squares line of the displacement covariance
// <P_a P_b> - <P_a><P_b> against the mean sample time; D_ab is half its slope. The error of
// each component is the standard error of the same slope taken block by block.
struct SampledDiffusion {
  double D[3][3] = {};    // angstrom^2/ns
  double err[3][3] = {};  // standard error, angstrom^2/ns (0 with a single block)
  double err_iso = 0.0;   // standard error of tr D / 3
  int fit_first = 0, fit_last = 0;
  int blocks = 0;
};

// Samples below 5 leave no late part to fit: fatal.
SampledDiffusion sampled_diffusion(const std::vector<BlockSums>& blocks, int runs);

// Sums the blocks in block order into the totals of all runs.
BlockSums total_of(const std::vector<BlockSums>& blocks, int nrec);

// Prints the report and writes "mobility.json" into `dir`.
void report_mobility(const MobilitySetup& setup, const SampledDiffusion& sampled,
                     const ExactDiffusion& exact, const std::string& dir);
