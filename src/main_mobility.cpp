// kavri_mobility: runs the hopping engine over the neighbour network of the crystal named in
// the input file, on threads or as slices of an array job, and turns the tracks into the
// diffusion tensor and the mobility, side by side with the exact tensor of the same walk.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "cli_options.h"
#include "mobility_report.h"
#include "mobility_runs.h"
#include "mobility_tensor.h"
#include "transport.h"
#include "util.h"

namespace {

const CliCommand kCommand{
    "kavri_mobility",
    "charge-carrier mobility from hopping trajectories, sampled and exact",
    "[-config file] [-runs N] [-threads T] [-seed S] [-out DIR] [-part K/N | -merge DIR... | "
    "-jobscript ARRAYSIZE]",
    {
        {"-config", 1, "file", "input file to read (default kavri.inp)"},
        {"-runs", 1, "N", "number of trajectories (default nsimu)"},
        {"-threads", 1, "T", "threads running trajectories (default: the cores available)"},
        {"-seed", 1, "S", "seed every run from (S, run number): output independent of T"},
        {"-out", 1, "DIR", "directory of the tracks, partial sums and mobility.json (.)"},
        {"-part", 1, "K/N", "run the K-th of N equal slices of the runs, write partial sums"},
        {"-merge", kRestOfValues, "DIR...", "combine the partial sums found in DIR..."},
        {"-jobscript", 1, "ARRAYSIZE", "write the array job script and its merge step"},
    },
    "Exit status 0 on success, 1 on a bad option or setting; the hopping engine's own\n"
    "statuses for bad rate files. With -seed the track files, the report and mobility.json\n"
    "are the same for any -threads and for any -part split merged with -merge.\n"};

// The model with the settings the command reads.
class MobilityModel : public Transport {
 public:
  HopNetwork network() const { return hop_network_of(*this, latt); }
  int runs_setting() const { return nsimu; }
  MobilitySetup setup(int runs, bool seeded, std::uint64_t seed) const {
    MobilitySetup s;
    s.chargetype = chargetype;
    s.temp = temp;
    s.tsimu = tsimu;
    s.tsnap = tsnap;
    s.nrec = get_MC_nrec();
    s.runs = runs;
    s.seeded = seeded;
    s.seed = seed;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) s.latt[i][j] = latt[i][j];
    return s;
  }
  PartialHeader partial_header(int runs, bool seeded, std::uint64_t seed) const {
    PartialHeader h;
    h.runs = runs;
    h.blocks = RunBlocks(runs).count;
    h.nrec = get_MC_nrec();
    h.seeded = seeded;
    h.seed = seed;
    h.tsimu = tsimu;
    h.tsnap = tsnap;
    return h;
  }
};

// The array job of `tasks` slices and the job that merges them, for the scheduler of the
// input file; every task runs on qc_ppn threads.
void write_job_scripts(MobilityModel& model, const std::string& config, const std::string& out,
                       int runs, int tasks, bool seeded, std::uint64_t seed) {
  model.parse_scheduling_type();
  std::string workdir;
  get_workdir(workdir);
  model.set_job_scripts_workdir(workdir);
  std::string exe(4096, '\0');
  const ssize_t len = readlink("/proc/self/exe", exe.data(), exe.size() - 1);
  exe = len > 0 ? exe.substr(0, static_cast<size_t>(len)) : std::string("kavri_mobility");
  const std::string common =
      exe + " -config " + config + (seeded ? " -seed " + std::to_string(seed) : "");
  const std::string part_dir = out + "/part-";
  model.write_MC_job_array("mobility_parts", model.get_run_nodes(), model.get_run_ppn(),
                           "kavri-mob", "mobility_parts.running", {}, tasks,
                           format_string("%s -runs %d -threads %d -part @TASK@/%d -out %s@TASK@",
                                         common.c_str(), runs, model.get_run_ppn(), tasks,
                                         part_dir.c_str()),
                           ".");
  std::string merge = common + " -merge";
  for (int k = 1; k <= tasks; ++k) merge += " " + part_dir + std::to_string(k);
  model.write_MC_job("mobility_merge", model.get_run_nodes(), 1, "kavri-mob-merge",
                     "mobility_merge.running", merge + " -out " + out, ".");
  const std::string ext = model.get_job_script_ext();
  std::printf("Wrote mobility_parts.%s (array of %d slices of %d runs) and mobility_merge.%s; "
              "submit the merge once the array has ended (SLURM: sbatch "
              "--dependency=afterok:<array job id> mobility_merge.%s).\n",
              ext.c_str(), tasks, runs, ext.c_str(), ext.c_str());
}

[[noreturn]] void usage_error(const std::string& message) {
  std::fprintf(stderr, "kavri_mobility: %s\n%s", message.c_str(), cli_usage(kCommand).c_str());
  fatal_exit(1);
}

long long parse_count(const std::string& text, const char* what, long long lo, long long hi) {
  char* stop = nullptr;
  const long long v = std::strtoll(text.c_str(), &stop, 10);
  if (text.empty() || *stop != '\0' || v < lo || v > hi)
    usage_error(format_string("%s must be an integer from %lld to %lld, not '%s'", what, lo, hi,
                              text.c_str()));
  return v;
}

// Reads the partial sums of every directory; they must cover each block once, with the same
// settings as each other and as this run.
std::vector<BlockSums> merge_parts(const std::vector<std::string>& dirs, int nrec,
                                   PartialHeader& common) {
  std::vector<BlockSums> blocks;
  for (size_t k = 0; k < dirs.size(); ++k) {
    PartialHeader h;
    std::vector<BlockSums> part = read_partial_sums(dirs[k] + "/" + kPartialSumsFile, h);
    if (k == 0) common = h;
    if (h.runs != common.runs || h.blocks != common.blocks || h.nrec != common.nrec ||
        h.seeded != common.seeded || h.seed != common.seed || h.tsimu != common.tsimu ||
        h.tsnap != common.tsnap)
      usage_error("partial sums in " + dirs[k] + " come from other settings than " + dirs[0]);
    for (BlockSums& b : part) blocks.push_back(std::move(b));
  }
  if (dirs.empty() || common.nrec != nrec)
    usage_error("-merge needs the partial sums of runs with this input's tsimu and tsnap");
  std::sort(blocks.begin(), blocks.end(),
            [](const BlockSums& a, const BlockSums& b) { return a.index < b.index; });
  const RunBlocks layout(common.runs);
  bool complete = static_cast<int>(blocks.size()) == layout.count;
  for (size_t b = 0; complete && b < blocks.size(); ++b)
    complete = blocks[b].index == static_cast<int>(b) &&
               blocks[b].runs == layout.first_run(static_cast<int>(b) + 1) -
                                     layout.first_run(static_cast<int>(b));
  if (!complete) usage_error("the partial sums do not hold every run exactly once");
  return blocks;
}

}  // namespace

int main(int argc, char** argv) {
  CliArgs args;
  std::string error;
  if (!parse_cli(kCommand, argc, argv, args, error)) usage_error(error);
  if (cli_answer_standard(kCommand, args)) return 0;
  const std::string config = args.value("-config", "kavri.inp");
  const std::string out = args.value("-out", ".");
  if (!file_exists(config.c_str())) usage_error("input file " + config + " not found");
  const bool seeded = args.has("-seed");
  const std::uint64_t seed =
      seeded ? static_cast<std::uint64_t>(parse_count(args.value("-seed"), "-seed", 0,
                                                      (1LL << 62)))
             : 0;
  const int cores = std::max(1u, std::thread::hardware_concurrency());
  const int threads = args.has("-threads")
                          ? static_cast<int>(parse_count(args.value("-threads"), "-threads", 1, 4096))
                          : cores;

  MobilityModel model;
  model.read_kavri_inp(config.c_str(), false);
  const int runs = args.has("-runs")
                       ? static_cast<int>(parse_count(args.value("-runs"), "-runs", 1, 1 << 30))
                       : model.runs_setting();
  if (runs < 1) usage_error("nsimu must be at least 1");
  if (args.has("-jobscript")) {
    const int tasks = static_cast<int>(
        parse_count(args.value("-jobscript"), "-jobscript", 1, RunBlocks(runs).count));
    write_job_scripts(model, config, out, runs, tasks, seeded, seed);
    return 0;
  }
  model.read_crystal_strcuture_files(false, false);
  model.post_data_read_treatment(false);
  if (seeded) model.set_MC_seed(seed);
  model.MC_init();
  const auto exact_start = std::chrono::steady_clock::now();
  const ExactDiffusion exact = exact_diffusion(model.network());
  std::error_code ignored;  // a directory that cannot be made fails where it is written
  std::filesystem::create_directories(out, ignored);
  std::fprintf(stderr, "kavri_mobility: exact tensor of %d molecules in %.3g s\n",
               model.get_nmols_uc(),
               std::chrono::duration<double>(std::chrono::steady_clock::now() - exact_start).count());

  std::vector<BlockSums> blocks;
  int total_runs = runs;
  if (args.has("-merge")) {
    PartialHeader h;
    blocks = merge_parts(args.last("-merge"), model.get_MC_nrec(), h);
    total_runs = h.runs;
    if (h.seeded != seeded || h.seed != seed)
      usage_error("-seed of the merge must be that of the parts");
  } else {
    const RunBlocks layout(runs);
    RunPlan plan;
    plan.runs = runs;
    plan.threads = threads;
    plan.seeded = seeded;
    plan.seed = seed;
    plan.dir = out;
    plan.progress = isatty(2) != 0;
    plan.first_block = 0;
    plan.end_block = layout.count;
    int part = 0, parts = 0;
    if (args.has("-part")) {
      const std::string slice = args.value("-part");
      const size_t slash = slice.find('/');
      if (slash == std::string::npos) usage_error("-part needs K/N, not '" + slice + "'");
      parts = static_cast<int>(parse_count(slice.substr(slash + 1), "N of -part", 1, layout.count));
      part = static_cast<int>(parse_count(slice.substr(0, slash), "K of -part", 1, parts));
      plan.first_block = (part - 1) * layout.count / parts;
      plan.end_block = part * layout.count / parts;
    }
    const auto start = std::chrono::steady_clock::now();
    long long hops = 0;
    blocks = run_mobility_blocks(model, plan, &hops);
    const double secs =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::fprintf(stderr, "kavri_mobility: %lld hops in %.3g s on %d threads (%.3g hops/s)\n",
                 hops, secs, threads, secs > 0 ? hops / secs : 0.0);
    if (parts > 0) {
      const std::string name = out + "/" + kPartialSumsFile;
      write_partial_sums(name, model.partial_header(runs, seeded, seed), blocks);
      std::printf("Part %d/%d: runs %d..%d; partial sums in %s\n", part, parts,
                  layout.first_run(plan.first_block) + 1, layout.first_run(plan.end_block),
                  name.c_str());
      return 0;
    }
  }

  // Average track of all runs, then the report.
  const BlockSums total = total_of(blocks, model.get_MC_nrec());
  Transport::MCSamples ave = model.MC_new_samples();
  const double n = static_cast<double>(total_runs);
  for (size_t r = 0; r < ave.time.size(); ++r) {
    ave.time[r] = total.time[r] / n;
    ave.r2[r] = total.r2[r] / n;
    for (int k = 0; k < 3; ++k) ave.pos[3 * r + k] = total.pos[3 * r + k] / n;
  }
  model.output_track_ave(out.c_str(), ave);
  report_mobility(model.setup(total_runs, seeded, seed), sampled_diffusion(blocks, total_runs),
                  exact, out);
  std::printf("All data are in directory: %s\n", out.c_str());
  return 0;
}
