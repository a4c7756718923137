// Jobscript settings: the scheduler kind chosen by `sched_type`, the script extension that
// goes with it, and the file-name helper the job-script writers use.
#include "job_scripts.h"

#include "util.h"

// Every setting starts from its field initialiser; the input file and the environment
// override them through KavriInp.
Jobscript::Jobscript() = default;

// Case-insensitive match against "pbs", "slurm", "lsf", "local"; an unknown name means PBS.
void Jobscript::parse_scheduling_type() {
  sched_index = 0;
  for (int i = 0; i < 4; ++i) {
    if (iequals(sched_type, sched_names[i])) {
      sched_index = i;
      return;
    }
  }
}

std::string Jobscript::get_job_script_ext() const {
  return sched_index >= 0 && sched_index < 4 ? script_exts[sched_index] : script_exts[0];
}

// The text after the last "/"; a bare name (no "/") gives an empty text.
std::string Jobscript::getFileName(const std::string& path) const {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(slash + 1);
}
