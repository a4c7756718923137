// kavri_jobscript: writes the job script that runs the site-energy utility under the
// scheduler named in the input file (sched_type: pbs, slurm, lsf or local), with the queue,
// node and process counts (qc_nodes, qc_ppn), wall time, node list and modules read the same
// way the utility reads them, so the utility itself can be submitted with qsub, sbatch or bsub.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "kavri_inp.h"
#include "util.h"

namespace {

const char* const kUsage =
    "Usage: kavri_jobscript [-config file] [-script name] [-job name] [-marker file]\n"
    "                       [-outdir dir] [-workdir dir] [-command text] [-verbose]\n"
    "  -config   input file to read (default kavri.inp)\n"
    "  -script   base name of the script; the scheduler's extension is added (siteenergy)\n"
    "  -job      job name, also in the standard-output file name (siteenergy)\n"
    "  -marker   file in the work directory that the job removes when it ends\n"
    "            (siteenergy.running)\n"
    "  -outdir   directory of the job's standard output (.)\n"
    "  -workdir  directory of the marker file (the current directory)\n"
    "  -command  command the job runs (kavri_siteenergy -config <file>)\n";

// The input-file layer with the scheduler's submit command exposed to this program.
class JobWriter : public KavriInp {
 public:
  std::string submit_line(const std::string& file) const {
    const std::string& cmd = submit_cmds[get_job_sched_type()];
    return cmd + (cmd.back() == ' ' ? "" : " ") + file;
  }
};

}  // namespace

int main(int argc, char** argv) {
  std::string config = "kavri.inp", script = "siteenergy", job = "siteenergy";
  std::string marker = "siteenergy.running", out_dir = ".", workdir, command;
  bool verbose = false;
  for (int i = 1; i < argc; ++i) {
    const std::string opt = argv[i];
    if (opt == "-h" || opt == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (opt == "-verbose") {
      verbose = true;
      continue;
    }
    std::string* target = opt == "-config"    ? &config
                          : opt == "-script"  ? &script
                          : opt == "-job"     ? &job
                          : opt == "-marker"  ? &marker
                          : opt == "-outdir"  ? &out_dir
                          : opt == "-workdir" ? &workdir
                          : opt == "-command" ? &command
                                              : nullptr;
    if (!target || i + 1 >= argc) {
      std::fprintf(stderr, "%s option: %s\n%s", target ? "Missing value of" : "Unknown",
                   opt.c_str(), kUsage);
      return 1;
    }
    *target = argv[++i];
  }
  if (!file_exists(config.c_str())) {
    std::fprintf(stderr, "Input file %s not found.\n", config.c_str());
    return 1;
  }

  auto writer = std::make_unique<JobWriter>();
  writer->read_kavri_inp(config.c_str(), verbose);
  writer->parse_scheduling_type();
  if (workdir.empty()) get_workdir(workdir);
  if (command.empty()) command = "kavri_siteenergy -config " + config;
  writer->set_job_scripts_workdir(workdir);
  writer->set_job_scripts_verbose(verbose);
  writer->write_calc_siteEner_job(script, writer->get_run_nodes(), writer->get_run_ppn(), job,
                                  marker, command, out_dir);
  const std::string file = script + "." + writer->get_job_script_ext();
  std::printf("Wrote %s; submit it with: %s\n", file.c_str(), writer->submit_line(file).c_str());
  return 0;
}
