// Exact diffusion tensor of the hopping walk, from the rates alone: the periodic network of
// the cell's molecules (sites) with every hop folded onto its target molecule and carrying
// its Cartesian hop vector; no sampling.
#pragma once
#include <vector>

class Transport;

// One hop of the periodic network: from site `from` to site `to` (an image of it, possibly
// `from` itself) with rate k (1/ns) and Cartesian hop vector d (angstrom).
struct NetworkHop {
  int from, to;
  double rate;
  double d[3];
};

struct HopNetwork {
  int nsites = 0;
  std::vector<NetworkHop> hops;
};

struct ExactDiffusion {
  std::vector<double> pi;    // stationary occupation of each site, summing to 1
  double v[3] = {0, 0, 0};   // mean drift velocity, angstrom/ns
  double D[3][3] = {};       // diffusion tensor, angstrom^2/ns
  // A drift that matters: the walk's residence times then enter the spread of positions, so
  // the tensor holds for exponential residence times but not for the engine's fixed 1/K.
  bool drift = false;
  bool solved = false;       // the linear systems reached their tolerance
};

// The hop network of an initialised hopping engine (after MC_init): its rates, targets and
// hop vectors turned Cartesian by the cell matrix.
HopNetwork hop_network_of(const Transport& model, const double latt[3][3]);

ExactDiffusion exact_diffusion(const HopNetwork& net);

// Solves A x = b for the (n-1) x (n-1) system that the tensor needs, exposed so that the dense
// and the iterative route can be compared: dense elimination below `dense_limit` unknowns,
// preconditioned BiCGSTAB above. Returns false when the iteration did not converge.
struct SparseRows {
  int n = 0;
  std::vector<int> start;  // n + 1
  std::vector<int> col;
  std::vector<double> val;
};
bool solve_sparse(const SparseRows& A, const std::vector<double>& b, std::vector<double>& x,
                  int dense_limit);
