// Trajectories of the hopping engine for the mobility: N runs cut into fixed blocks, run on
// T threads, their samples summed per block in run order, and the partial sums of a slice of
// the blocks written to and read from a file, so that any thread count and any split over
// machines give the same sums, bit for bit.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "transport.h"

// Sums over the trajectories of one block, per sample (nrec + 1 samples): time, position
// (3), |P|^2 and the six products P_a P_b in the order xx, yy, zz, xy, xz, yz.
struct BlockSums {
  int index = 0;  // block number
  int runs = 0;   // trajectories summed
  std::vector<double> time, pos, r2, prod;

  explicit BlockSums(int nrec = 0, int block = 0);
  int samples() const { return static_cast<int>(time.size()); }
  void add(const Transport::MCSamples& s);
  void add(const BlockSums& other);
};

// The N runs (numbered from 1) in `count` blocks of consecutive runs: at most kMaxBlocks,
// fixed by N alone, so that neither the thread count nor the split over machines moves a run
// into another block.
struct RunBlocks {
  static constexpr int kMaxBlocks = 64;
  int runs = 0, count = 0;
  explicit RunBlocks(int nruns);
  int first_run(int block) const {  // 0-based index of the block's first run
    return static_cast<int>(static_cast<long long>(block) * runs / count);
  }
};

struct RunPlan {
  int runs = 1;                   // N, all runs of the calculation
  int first_block = 0, end_block = 0;  // the blocks run here
  int threads = 1;
  bool seeded = false;
  std::uint64_t seed = 0;
  std::string dir = ".";          // track files
  bool progress = false;          // progress lines on standard error
};

// Blocks [first_block, end_block) of the plan on `threads` threads; each run writes its track
// file. Returns the block sums in block order and the number of hops made.
std::vector<BlockSums> run_mobility_blocks(const Transport& model, const RunPlan& plan,
                                           long long* hops);

// Partial sums of a slice, exact to the bit (hexadecimal floating point).
struct PartialHeader {
  int runs = 0, blocks = 0, nrec = 0;
  bool seeded = false;
  std::uint64_t seed = 0;
  double tsimu = 0, tsnap = 0;
};
void write_partial_sums(const std::string& name, const PartialHeader& h,
                        const std::vector<BlockSums>& blocks);
// Reads a partial-sum file; a missing or malformed file is fatal.
std::vector<BlockSums> read_partial_sums(const std::string& name, PartialHeader& h);

constexpr const char* kPartialSumsFile = "mobility_part.dat";
