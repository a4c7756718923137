// Trajectories for the mobility on threads, and the partial sums of a slice of the runs.
//
// Every run owns its generator and its samples; the hop loop touches nothing shared. A run's
// samples are then added to the sums of its block strictly in run order: finished runs wait
// in a queue until all runs before them are added (a thread running far ahead of the oldest
// unfinished run pauses, which bounds the queue). Floating-point sums therefore come out the
// same for any number of threads, and blocks are summed whole, so a block is never split
// between two machines.
#include "mobility_runs.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <random>
#include <sstream>
#include <thread>

#include "util.h"

namespace mobility_lines {
constexpr int PART_OPEN = 101;    // a partial-sum file cannot be written or read
constexpr int PART_FORMAT = 102;  // a partial-sum file is not one kavri_mobility wrote
}  // namespace mobility_lines

namespace {

constexpr const char* kPartialMagic = "kavri_mobility partial sums 1";

[[noreturn]] void bad_part(const std::string& name, const char* what) {
  fatal_error("mobility", mobility_lines::PART_FORMAT, FatalStream::Err,
              format_string("Partial sums in '%s' unusable: %s!\n", name.c_str(), what), 1);
}

}  // namespace

BlockSums::BlockSums(int nrec, int block)
    : index(block),
      time(static_cast<size_t>(nrec) + 1, 0.0),
      pos(3 * (static_cast<size_t>(nrec) + 1), 0.0),
      r2(static_cast<size_t>(nrec) + 1, 0.0),
      prod(6 * (static_cast<size_t>(nrec) + 1), 0.0) {}

void BlockSums::add(const Transport::MCSamples& s) {
  static constexpr int kPairs[6][2] = {{0, 0}, {1, 1}, {2, 2}, {0, 1}, {0, 2}, {1, 2}};
  for (size_t r = 0; r < time.size(); ++r) {
    const double* P = &s.pos[3 * r];
    time[r] += s.time[r];
    r2[r] += s.r2[r];
    for (int k = 0; k < 3; ++k) pos[3 * r + k] += P[k];
    for (int p = 0; p < 6; ++p) prod[6 * r + p] += P[kPairs[p][0]] * P[kPairs[p][1]];
  }
  ++runs;
}

void BlockSums::add(const BlockSums& other) {
  for (size_t r = 0; r < time.size(); ++r) time[r] += other.time[r];
  for (size_t r = 0; r < r2.size(); ++r) r2[r] += other.r2[r];
  for (size_t r = 0; r < pos.size(); ++r) pos[r] += other.pos[r];
  for (size_t r = 0; r < prod.size(); ++r) prod[r] += other.prod[r];
  runs += other.runs;
}

RunBlocks::RunBlocks(int nruns)
    : runs(std::max(nruns, 0)), count(std::min(std::max(nruns, 0), kMaxBlocks)) {}

std::vector<BlockSums> run_mobility_blocks(const Transport& model, const RunPlan& plan,
                                           long long* hops) {
  const RunBlocks layout(plan.runs);
  const int nrec = model.get_MC_nrec();
  std::vector<BlockSums> blocks;
  for (int b = plan.first_block; b < plan.end_block; ++b) blocks.emplace_back(nrec, b);
  if (blocks.empty()) {
    *hops = 0;
    return blocks;
  }
  const int begin = layout.first_run(plan.first_block), end = layout.first_run(plan.end_block);
  create_directory(plan.dir.c_str());

  // Without a seed every run takes a seed from the random device, drawn here in run order
  // (the device is not shared between threads).
  std::vector<std::uint32_t> device_seeds;
  if (!plan.seeded) {
    std::random_device device("default");
    for (int i = begin; i < end; ++i) device_seeds.push_back(device());
  }

  const int threads = std::max(1, std::min(plan.threads, end - begin));
  const int window = 4 * threads;  // runs a thread may finish ahead of the oldest unadded one
  std::atomic<int> next_run{begin};
  std::atomic<long long> hop_count{0};
  std::mutex lock;
  std::condition_variable changed;
  std::map<int, Transport::MCSamples> finished;
  int next_add = begin;  // guarded by lock
  size_t current = 0;    // block receiving run next_add

  auto worker = [&]() {
    for (;;) {
      const int i = next_run.fetch_add(1);
      if (i >= end) return;
      {
        std::unique_lock<std::mutex> guard(lock);
        changed.wait(guard, [&] { return i - next_add < window; });
      }
      MCGenerator gen = plan.seeded ? model.MC_seeded_generator(i + 1)
                                    : MCGenerator(device_seeds[i - begin]);
      Transport::MCSamples samples = model.MC_new_samples();
      hop_count += model.MC_trajectory_into(gen, samples);
      model.output_track(i + 1, plan.dir.c_str(), samples);

      std::lock_guard<std::mutex> guard(lock);
      finished.emplace(i, std::move(samples));
      for (auto it = finished.find(next_add); it != finished.end(); it = finished.find(next_add)) {
        while (next_add >= layout.first_run(blocks[current].index + 1)) ++current;
        blocks[current].add(it->second);
        finished.erase(it);
        ++next_add;
      }
      changed.notify_all();
    }
  };

  const auto start = std::chrono::steady_clock::now();
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; ++t) pool.emplace_back(worker);
  if (plan.progress) {
    std::unique_lock<std::mutex> guard(lock);
    while (next_add < end) {
      changed.wait_for(guard, std::chrono::seconds(1));
      const double secs =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      const int done = next_add - begin, total = end - begin;
      const double left = done > 0 ? secs * (total - done) / done : 0.0;
      std::fprintf(stderr, "\r  runs %d/%d  %.3g hops/s  %.0f s left   ", done, total,
                   secs > 0 ? static_cast<double>(hop_count.load()) / secs : 0.0, left);
    }
    std::fputc('\n', stderr);
  }
  for (std::thread& t : pool) t.join();
  *hops = hop_count.load();
  return blocks;
}

// ---------------------------------------------------------------- partial sums

void write_partial_sums(const std::string& name, const PartialHeader& h,
                        const std::vector<BlockSums>& blocks) {
  std::FILE* f = std::fopen(name.c_str(), "w");
  if (!f)
    fatal_error("mobility", mobility_lines::PART_OPEN, FatalStream::Err,
                format_string("Failed to open output file %s\n", name.c_str()), 1);
  std::fprintf(f, "%s\nruns %d blocks %d nrec %d seed %s %llu tsimu %a tsnap %a parts %d\n",
               kPartialMagic, h.runs, h.blocks, h.nrec, h.seeded ? "set" : "none",
               static_cast<unsigned long long>(h.seed), h.tsimu, h.tsnap,
               static_cast<int>(blocks.size()));
  for (const BlockSums& b : blocks) {
    std::fprintf(f, "block %d runs %d\n", b.index, b.runs);
    for (int r = 0; r < b.samples(); ++r) {
      std::fprintf(f, "%a %a %a %a %a", b.time[r], b.pos[3 * r], b.pos[3 * r + 1],
                   b.pos[3 * r + 2], b.r2[r]);
      for (int p = 0; p < 6; ++p) std::fprintf(f, " %a", b.prod[6 * r + p]);
      std::fputc('\n', f);
    }
  }
  std::fclose(f);
}

std::vector<BlockSums> read_partial_sums(const std::string& name, PartialHeader& h) {
  std::ifstream in(name);
  if (!in)
    fatal_error("mobility", mobility_lines::PART_OPEN, FatalStream::Err,
                format_string("Failed to open input file %s\n", name.c_str()), 1);
  std::string line, word, seeded;
  if (!std::getline(in, line) || line != kPartialMagic) bad_part(name, "not a partial-sum file");
  std::string k[8], tsimu, tsnap;
  unsigned long long seed = 0;
  int nblocks = 0;
  if (!(in >> k[0] >> h.runs >> k[1] >> h.blocks >> k[2] >> h.nrec >> k[3] >> seeded >> seed >>
        k[4] >> tsimu >> k[5] >> tsnap >> k[6] >> nblocks) ||
      h.runs < 1 || h.blocks < 1 || h.nrec < 0 || nblocks < 0 || nblocks > h.blocks)
    bad_part(name, "bad header");
  h.seeded = seeded == "set";
  h.seed = seed;
  h.tsimu = std::strtod(tsimu.c_str(), nullptr);
  h.tsnap = std::strtod(tsnap.c_str(), nullptr);
  std::vector<BlockSums> blocks;
  for (int n = 0; n < nblocks; ++n) {
    int index = -1, runs = -1;
    if (!(in >> word >> index >> k[7] >> runs) || word != "block" || index < 0 ||
        index >= h.blocks || runs < 0)
      bad_part(name, "bad block line");
    BlockSums b(h.nrec, index);
    b.runs = runs;
    for (int r = 0; r <= h.nrec; ++r) {
      double v[11];
      for (double& x : v) {
        if (!(in >> word)) bad_part(name, "file ends inside a block");
        char* stop = nullptr;
        x = std::strtod(word.c_str(), &stop);
        if (*stop != '\0') bad_part(name, "not a number");
      }
      b.time[r] = v[0];
      for (int c = 0; c < 3; ++c) b.pos[3 * r + c] = v[1 + c];
      b.r2[r] = v[4];
      for (int p = 0; p < 6; ++p) b.prod[6 * r + p] = v[5 + p];
    }
    blocks.push_back(std::move(b));
  }
  return blocks;
}
