// The hopping engine of the kinetic Monte Carlo: the hop network of the cell's molecules as a
// value (per molecule its hops with target, image shift, hop vector and rate, and the lattice
// that turns hop vectors into angstrom), the hop tables built from it, the hop choice and the
// trajectory loops of the static, thin-film and dynamic-disorder engines. The engines draw from
// the generator they are handed; nothing here reads files or global settings.
#pragma once
#include <cstdint>
#include <vector>

#include "lattice.h"
#include "mc_generator.h"

// Error-site line numbers of the kinetic Monte Carlo (transport_kmc.cpp).
namespace kmc_lines {
constexpr int RATE_VALUE = 5129;   // a NaN or infinite rate, or a total rate K <= 0 or inf
constexpr int OUTPUT_OPEN = 5213;  // a track, rate-table or hop-rate report cannot be written
constexpr int NREC_RANGE = 5247;   // tsimu / tsnap gives no usable number of samples
constexpr int TIME_STEP = 5255;    // a residence time too short for the sampling interval
}  // namespace kmc_lines

// One hop out of a molecule: the molecule reached, the lattice translation (a, b, c) of the
// image it reaches, the displacement of the charge in cell coordinates and the rate (1/ns).
struct MCHop {
  int target = 0;
  int a = 0, b = 0, c = 0;
  Fractional d;
  double rate = 0.0;
};

// The network a charge hops over: hops[i] are the hops out of molecule i, in the order of the
// neighbour list. Only lattice.m is used (positions P = M . D).
struct MCNetwork {
  Lattice lattice;
  std::vector<std::vector<MCHop>> hops;
};

// Boltzmann's constant in meV/K, for the site-energy fluctuations of dynamic disorder.
constexpr double kMCBoltzmannMeV = 8.617333262e-2;

enum class MCEngine { Static, ThinFilm, DynamicDisorder };

// How a trajectory runs: the sampling interval tsnap (ns) and the sample count (samples 0 ..
// nrec are taken), the squared displacement stored (|M.D|^2 in angstrom^2 when cartesian_r2,
// else |D|^2 in cell units), the film of the thin-film engine (normal axis 0..2, thickness in
// cells) and the fluctuations of the dynamic-disorder engine (relative spread of the transfer
// integrals, spread of the site energies in meV, temperature in K).
struct MCSettings {
  double tsnap = 0.0;
  int nrec = 0;
  bool cartesian_r2 = true;
  int thinfilm_dir = 0;
  int thinfilm_ncell = 0;
  bool V_dynamic_disorder = false;
  bool HOMOLUMO_dynamic_disorder = false;
  double sigma_V = 0.3;
  double sigma_E = 25.0;
  double temp = 0.0;
};

// Samples of one trajectory, nrec + 1 of each.
struct MCSamples {
  std::vector<int> steps;
  std::vector<double> time, pos, r2;  // ns; angstrom, 3 per sample; angstrom^2 or cell units

  explicit MCSamples(int nrec = -1);
};

// The hop tables of a network and the trajectories over them. Every step costs one uniform
// draw and a look-up: the running sums of the hop probabilities, the residence times, targets
// and hop vectors are tabulated once per molecule, summed in the order the hop choice defines
// them, so a look-up selects exactly the hop that summing on the fly would select. The tables
// are only read, so threads can run trajectories over one engine at the same time.
class HopEngine {
 public:
  HopEngine() : HopEngine(MCNetwork{}) {}
  explicit HopEngine(MCNetwork network);

  const MCNetwork& network() const { return net_; }
  int nhops(int mol) const;
  int max_nhops() const { return max_nhops_; }
  // Residence time 1/K of a molecule, ns (infinite for K = 0).
  double residence_time(int mol) const { return sites_[mol].dt; }
  int target(int mol, int hop) const { return target_[sites_[mol].begin + hop]; }

  // The hop that a uniform variate u selects from molecule `mol`: the smallest j whose running
  // sum p_0 + ... + p_j exceeds u, hop 0 when none does or the molecule has no hop (-1 for a
  // molecule outside the network).
  int select_hop(int mol, double u) const;
  // The same restricted to the film of `s`, for the hop-vector sum D; *ktotal is the total
  // allowed rate.
  int select_hop_thinfilm(int mol, const double D[3], double u, const MCSettings& s,
                          double* ktotal) const;

  // One trajectory from molecule 0 into `out` (nrec + 1 samples); returns the number of hops.
  // Uniform numbers are canonical doubles of `gen` (two 32-bit draws each) or the process-wide
  // ran2 stream.
  long long trajectory(MCEngine engine, MCGenerator& gen, const MCSettings& s,
                       MCSamples& out) const;
  long long trajectory_ran2(MCEngine engine, const MCSettings& s, MCSamples& out) const;

 private:
  // Molecule i owns the block of table entries from sites_[i].begin, its hops first, padded to
  // a multiple of four entries with running sums of +inf (one empty molecule stands in for a
  // network without molecules). The rates are finite, so the running maxima ascend; a molecule
  // whose rates are all 0 has sums of NaN, which no variate exceeds.
  struct Site {
    int begin;
    int nhops;
    double dt;
  };
  template <class Uniform>
  long long run(Uniform& uniform, MCEngine engine, const MCSettings& s, MCSamples& out) const;

  MCNetwork net_;
  int max_nhops_ = 0;
  std::vector<Site> sites_;
  std::vector<int> target_;
  std::vector<double> cum_;   // running sums of the hop probabilities
  std::vector<double> disp_;  // hop vectors, cell coordinates, 3 per entry
};

// Reproducible streams of run number `run`: a Mersenne Twister seeded by (seed, run), and the
// process-wide ran2 started from a fresh shuffle table seeded by (seed, run).
MCGenerator mc_seeded_generator(std::uint64_t seed, int run);
void mc_seed_ran2(std::uint64_t seed, int run);
