// kavri_jobscript: writes the job script that runs the site-energy utility under the
// scheduler named on the command line or in the input file (pbs, slurm, lsf or local), so the
// utility can be submitted with qsub, sbatch or bsub; with -check it reads a finished job's
// standard output and outputs and says whether the run succeeded.
//
// Settings: a command-line option wins over the input file, which wins over the KAVRI_JOB_*
// environment variables. Nodes, processes per node and wall time not named on the command
// line or in the input file take values fitting the utility (one core for an hour) instead of
// the suite's quantum-chemistry defaults.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "cli_options.h"
#include "kavri_inp.h"
#include "util.h"
#include "util_error.h"

namespace {

const CliCommand kCommand{
    "kavri_jobscript",
    "write the batch job script that runs kavri_siteenergy, or check a finished job",
    "[-check] [options]",
    {{"-config", 1, "FILE", "input file to read (kavri.inp)"},
     {"-sched", 1, "NAME", "scheduler: pbs, slurm, lsf or local (sched_type)"},
     {"-queue", 1, "NAME", "queue or partition (queue_name)"},
     {"-walltime", 1, "TIME", "D-HH:MM:SS, HH:MM:SS or whole hours (walltime; 1 hour)"},
     {"-nodes", 1, "N", "number of nodes (qc_nodes; 1)"},
     {"-ppn", 1, "N", "processes per node (qc_ppn; 1)"},
     {"-nodelist", 1, "LIST", "nodes the job may run on (nodelist; empty: any)"},
     {"-script", 1, "NAME", "base name of the script; the scheduler's extension is added "
                            "(siteenergy)"},
     {"-job", 1, "NAME", "job name, also in the standard-output file name (siteenergy)"},
     {"-marker", 1, "FILE", "file in the work directory that the job removes when it ends "
                            "(siteenergy.running)"},
     {"-outdir", 1, "DIR", "directory of the job's standard output, created when missing (.)"},
     {"-workdir", 1, "DIR", "directory of the marker file (the current directory)"},
     {"-command", 1, "TEXT", "command the job runs (kavri_siteenergy -config <file>)"},
     {"-check", 0, "", "check the ended job: <outdir>/stdout-<job> and the site-energy files"},
     {"-verbose", 0, "", "progress messages"}},
    "A command-line option overrides the input file, which overrides the environment\n"
    "(KAVRI_JOB_SCHED, KAVRI_JOB_QUEUE). Nodes, processes per node and wall time that neither\n"
    "names are 1, 1 and one hour. PBS does not pass this shell's PATH to the job: load the\n"
    "program with module_kavri or give -command an absolute path.\n"
    "\n"
    "The job ends with its own echo, so the scheduler reports it as completed even when the\n"
    "run failed; -check, run in the calculation directory with the same -job and -outdir,\n"
    "tells: exit status 0 when the job printed \"*** Successfully done.\" and its site-energy\n"
    "files exist, 1 when it failed, 2 when it has not ended (or never started).\n"
    "\n"
    "Other exit statuses: 1 for a bad option, an unknown scheduler or a missing input file.\n"};

constexpr int kCheckFailed = 1;
constexpr int kCheckNotEnded = 2;
constexpr const char* kSuccessLine = "*** Successfully done.";
constexpr const char* kEndLine = "Ending job run at";

// A refused command line or setting: message on standard error, status 1.
[[noreturn]] void refuse(const std::string& message) {
  std::fprintf(stderr, "kavri_jobscript: %s\n", message.c_str());
  fatal_exit(1);
}

// A whole positive decimal number of at most `digits` digits, or -1.
long whole_number(const std::string& text, std::size_t digits = 6) {
  if (text.empty() || text.size() > digits) return -1;
  for (char c : text)
    if (!std::isdigit(static_cast<unsigned char>(c))) return -1;
  return std::strtol(text.c_str(), nullptr, 10);
}

int count_option(const CliArgs& args, const char* name) {
  const long n = whole_number(args.value(name));
  if (n < 1) refuse(std::string("bad value of ") + name + ": '" + args.value(name) +
                    "' (a whole number of at least 1)");
  return static_cast<int>(n);
}

struct WallTime {
  long hours = 0;  // days included
  int minutes = 0;
  int seconds = 0;
};

// "D-HH:MM:SS", "HH:MM:SS" or whole hours "H".
WallTime walltime_option(const std::string& text) {
  const auto bad = [&text]() {
    refuse("bad value of -walltime: '" + text + "' (D-HH:MM:SS, HH:MM:SS or whole hours)");
  };
  WallTime t;
  std::string rest = text;
  long days = 0;
  const std::size_t dash = rest.find('-');
  if (dash != std::string::npos) {
    days = whole_number(rest.substr(0, dash), 4);
    rest = rest.substr(dash + 1);
    if (days < 0 || rest.find(':') == std::string::npos) bad();
  }
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (std::size_t colon; (colon = rest.find(':', start)) != std::string::npos;
       start = colon + 1)
    parts.push_back(rest.substr(start, colon - start));
  parts.push_back(rest.substr(start));
  if (parts.size() != 1 && parts.size() != 3) bad();
  const long hours = whole_number(parts[0]);
  if (hours < 0) bad();
  t.hours = days * 24 + hours;
  if (parts.size() == 3) {
    const long m = whole_number(parts[1], 2), s = whole_number(parts[2], 2);
    if (m < 0 || m > 59 || s < 0 || s > 59) bad();
    t.minutes = static_cast<int>(m);
    t.seconds = static_cast<int>(s);
  }
  if (t.hours == 0 && t.minutes == 0 && t.seconds == 0) bad();
  return t;
}

std::vector<std::string> read_lines(const std::string& path) {
  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The input-file layer with the scheduler settings opened to this program.
class JobWriter : public KavriInp {
 public:
  std::string submit_line(const std::string& file) const {
    const std::string& cmd = submit_cmds[get_job_sched_type()];
    return cmd + (cmd.back() == ' ' ? "" : " ") + file;
  }

  // The scheduler: -sched, else the input file or KAVRI_JOB_SCHED as read; a name outside
  // pbs, slurm, lsf and local is refused rather than taken for PBS.
  void choose_scheduler(const CliArgs& args, const std::string& config) {
    if (args.has("-sched")) sched_type = args.value("-sched");
    bool known = false;
    for (const std::string& name : sched_names) known = known || iequals(sched_type, name);
    if (!known) {
      const std::string source = args.has("-sched")          ? "-sched"
                                 : key_given("sched_type")   ? "sched_type in " + config
                                 : std::getenv("KAVRI_JOB_SCHED") ? "KAVRI_JOB_SCHED"
                                                                 : "the default";
      refuse("unknown scheduler '" + sched_type + "' (" + source +
             "); use pbs, slurm, lsf or local");
    }
    parse_scheduling_type();
  }

  // Queue, nodes, processes, wall time and node list from the options, the input file or
  // the utility's own defaults, in the form each back-end writes them.
  void choose_resources(const CliArgs& args) {
    if (args.has("-queue")) queue_name = args.value("-queue");
    if (args.has("-nodelist")) nodelist = args.value("-nodelist");
    if (args.has("-nodes")) qc_nodes = count_option(args, "-nodes");
    else if (!key_given("qc_nodes")) qc_nodes = 1;
    if (args.has("-ppn")) qc_ppn = count_option(args, "-ppn");
    else if (!key_given("qc_ppn")) qc_ppn = 1;

    WallTime t{walltime_days * 24L + walltime_hours, walltime_minutes, walltime_seconds};
    if (args.has("-walltime")) t = walltime_option(args.value("-walltime"));
    else if (!key_given("walltime") && !key_given("walltime_hour")) t = WallTime{1, 0, 0};
    // SLURM writes days and hours; PBS and LSF write the hours alone, days included.
    const bool slurm = get_job_sched_type() == 1;
    walltime_days = slurm ? static_cast<int>(t.hours / 24) : 0;
    walltime_hours = static_cast<int>(slurm ? t.hours % 24 : t.hours);
    walltime_minutes = t.minutes;
    walltime_seconds = t.seconds;
    // LSF takes the hosts of -m separated by blanks.
    if (get_job_sched_type() == 2) std::replace(nodelist.begin(), nodelist.end(), ',', ' ');
  }

  // Warnings for a submission that would likely fail on a real cluster.
  void warn_about(const CliArgs& args, const std::string& command) const {
    const int backend = get_job_sched_type();
    if (backend != 3 && !args.has("-queue") && !key_given("queue_name") &&
        !std::getenv("KAVRI_JOB_QUEUE"))
      std::fprintf(stderr,
                   "WARNING: no queue named (-queue, queue_name or KAVRI_JOB_QUEUE); the script "
                   "asks for the suite's default '%s'.\n",
                   queue_name.c_str());
    if (backend == 0 && !module_kavri_flag && !command.empty() && command[0] != '/')
      std::fprintf(stderr,
                   "WARNING: PBS jobs do not inherit this shell's PATH: load the program with "
                   "module_kavri or give -command an absolute path.\n");
  }

  // The site-energy files the run writes for the charge type of the input file.
  std::vector<std::string> expected_outputs() const {
    std::vector<std::string> files;
    const std::string dir = get_data_dir() + "/";
    const char c = charge_carrier();
    if (c == 'h' || c == 'a') files.push_back(dir + "EH.dat");
    if (c == 'e' || c == 'a') files.push_back(dir + "EL.dat");
    return files;
  }
};

// Reads the job's standard output and the outputs; prints the verdict, returns the status.
int check_job(const JobWriter& writer, const std::string& job, const std::string& stdout_file) {
  if (!file_exists(stdout_file.c_str())) {
    std::printf("Job %s has not started: no standard output %s (or it ran with another -job "
                "or -outdir).\n",
                job.c_str(), stdout_file.c_str());
    return kCheckNotEnded;
  }
  bool success = false, ended = false;
  std::vector<std::string> errors;
  const std::vector<std::string> lines = read_lines(stdout_file);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    success = success || lines[i] == kSuccessLine;
    ended = ended || lines[i].rfind(kEndLine, 0) == 0;
    if (lines[i].rfind("ERROR", 0) == 0) {
      errors.push_back(lines[i]);
      if (i + 1 < lines.size()) errors.push_back(lines[i + 1]);
    }
  }
  std::vector<std::string> missing;
  for (const std::string& f : writer.expected_outputs())
    if (!file_exists(f.c_str())) missing.push_back(f);

  if (success && missing.empty()) {
    std::printf("Job %s succeeded: \"%s\" in %s; written:", job.c_str(), kSuccessLine,
                stdout_file.c_str());
    for (const std::string& f : writer.expected_outputs()) std::printf(" %s", f.c_str());
    std::printf("\n");
    return 0;
  }
  if (!success && !ended) {
    std::printf("Job %s has not ended: %s has no \"%s\" line (still running, or stopped by "
                "the scheduler, e.g. at its wall time).\n",
                job.c_str(), stdout_file.c_str(), kEndLine);
    return kCheckNotEnded;
  }
  std::printf("Job %s FAILED:", job.c_str());
  if (!success) std::printf(" no \"%s\" in %s.", kSuccessLine, stdout_file.c_str());
  for (const std::string& f : missing) std::printf(" Missing %s.", f.c_str());
  std::printf("\n");
  for (const std::string& e : errors) std::printf("  %s\n", e.c_str());
  return kCheckFailed;
}

}  // namespace

int main(int argc, char** argv) {
  CliArgs args;
  std::string error;
  if (!parse_cli(kCommand, argc, argv, args, error))
    refuse(error + "\n" + cli_usage(kCommand));
  if (!args.positional.empty())
    refuse("unexpected argument: " + args.positional.front() + "\n" + cli_usage(kCommand));
  if (cli_answer_standard(kCommand, args)) return 0;

  const std::string config = args.value("-config", "kavri.inp");
  const std::string script = args.value("-script", "siteenergy");
  const std::string job = args.value("-job", "siteenergy");
  const std::string marker = args.value("-marker", "siteenergy.running");
  const std::string out_dir = args.value("-outdir", ".");
  std::string workdir = args.value("-workdir");
  std::string command = args.value("-command");
  const bool verbose = args.has("-verbose");
  // Bad option values are refused before the input file (and its crystal) is read.
  if (args.has("-walltime")) walltime_option(args.value("-walltime"));
  for (const char* count : {"-nodes", "-ppn"})
    if (args.has(count)) count_option(args, count);
  if (!file_exists(config.c_str())) refuse("input file " + config + " not found.");

  auto writer = std::make_unique<JobWriter>();
  writer->read_kavri_inp(config.c_str(), verbose);
  writer->choose_scheduler(args, config);
  writer->choose_resources(args);
  if (args.has("-check")) return check_job(*writer, job, out_dir + "/stdout-" + job);

  if (workdir.empty()) get_workdir(workdir);
  if (command.empty()) command = "kavri_siteenergy -config " + config;
  writer->warn_about(args, command);
  // The batch system does not create the directory of the job's standard output.
  if (writer->get_job_sched_type() != 3 && !std::filesystem::is_directory(out_dir)) {
    std::error_code ec;
    std::filesystem::create_directories(out_dir, ec);
    if (ec) refuse("cannot create the output directory " + out_dir + ": " + ec.message());
    if (verbose) std::printf("Created the output directory %s\n", out_dir.c_str());
  }
  writer->set_job_scripts_workdir(workdir);
  writer->set_job_scripts_verbose(verbose);
  writer->write_calc_siteEner_job(script, writer->get_run_nodes(), writer->get_run_ppn(), job,
                                  marker, command, out_dir);
  const std::string file = script + "." + writer->get_job_script_ext();
  if (verbose) std::printf("\n");  // the writer's progress words end without a line end
  std::printf("Wrote %s; submit it with: %s\n", file.c_str(), writer->submit_line(file).c_str());
  return 0;
}
