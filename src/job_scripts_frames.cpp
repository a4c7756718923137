// The frames of the job scripts for the four back-ends (PBS, SLURM, LSF, a local shell):
// the scheduler directives, the change to the submission directory, the module lines, the
// start stamp, the job's body, the removal of the marker file and the end stamp. Every job
// family fills the same frame with its own body (job_scripts_families.cpp).
#include <cstdio>
#include <memory>

#include "job_scripts.h"
#include "util.h"

namespace {

// Names of the back-ends in the progress line; "gaussian" in that line stands for every
// job kind.
const char* const kBackendNames[4] = {"PBS", "SLURM", "LSF", "LOCAL"};

std::string module_line(bool on, const std::string& name) {
  return on ? format_string("module load %s\n\n", name.c_str()) : std::string();
}

// A local run has no scheduler to expand an array: the tasks run one after another.
std::string local_task_loop(const std::vector<int>& tasks, int ntasks) {
  std::string list;
  if (tasks.empty()) {
    list = format_string("$(seq 1 %d)", ntasks);
  } else {
    for (int t : tasks) list += format_string("%d ", t);
    list.pop_back();
  }
  return format_string("for KAVRI_TASK_ID in %s; do\n", list.c_str());
}

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};

}  // namespace

std::string Jobscript::job_array_task_list(const std::vector<int>& tasks, int ntasks) {
  if (tasks.empty()) return format_string("1-%d", ntasks);
  std::string list;
  for (int t : tasks) list += format_string("%d,", t);
  list.pop_back();  // the trailing comma
  return list;
}

const char* Jobscript::job_id_var(int backend) {
  static const char* const vars[4] = {"$PBS_JOBID", "$SLURM_JOB_ID", "$LSB_JOBID", "$$"};
  return vars[backend];
}

const char* Jobscript::job_task_var(int backend) {
  static const char* const vars[4] = {"${PBS_ARRAYID}", "${SLURM_ARRAY_TASK_ID}",
                                      "${LSB_JOBINDEX}", "${KAVRI_TASK_ID}"};
  return vars[backend];
}

int job_backend(int sched_index, int line) {
  if (sched_index < kPbs || sched_index > kLocal)
    fatal_error("job_scripts", line, FatalStream::Err, "Unknown job scheduling type!\n", -1);
  return sched_index;
}

int Jobscript::job_backend_or_fail(int line) const { return job_backend(sched_index, line); }

std::string Jobscript::job_script_text(int backend, const JobFrame& f,
                                       const std::string& body) const {
  const std::string tasks = f.array ? job_array_task_list(f.task_ids, f.ntasks) : std::string();
  const bool limited = job_slot_limit > 0;
  const char* job = f.job_name.c_str();
  const char* out = f.out_dir.c_str();
  std::string s;

  switch (backend) {
    case kPbs:
      s += "#PBS -S /bin/bash\n";
      // The days of the wall time are left out of the PBS limit on purpose.
      s += format_string("#PBS -l walltime=%d:%02d:%02d\n", walltime_hours, walltime_minutes,
                         walltime_seconds);
      s += format_string("#PBS -l nodes=%d:ppn=%d\n", f.nodes, f.ppn);
      s += format_string("#PBS -q %s\n", queue_name.c_str());
      if (f.array)
        s += limited ? format_string("#PBS -t %s%%%d\n", tasks.c_str(), job_slot_limit)
                     : format_string("#PBS -t %s\n", tasks.c_str());
      s += format_string("#PBS -o %s/stdout-%s\n", out, job);
      s += "#PBS -j oe\n\n";
      s += "echo \"Working directory is ${PBS_O_WORKDIR}\"\n";
      s += "cd ${PBS_O_WORKDIR}\n\n";
      break;
    case kSlurm:
      s += "#!/bin/bash\n\n";
      s += format_string("#SBATCH --time=%d-%02d:%02d:%02d\n", walltime_days, walltime_hours,
                         walltime_minutes, walltime_seconds);
      s += format_string("#SBATCH --nodes=%d --ntasks-per-node=%d\n", f.nodes, f.ppn);
      s += format_string("#SBATCH -p %s\n", queue_name.c_str());
      if (f.array) {
        s += limited ? format_string("#SBATCH --array=%s%%%d\n", tasks.c_str(), job_slot_limit)
                     : format_string("#SBATCH --array=%s\n", tasks.c_str());
        s += format_string("#SBATCH --output=stdout-%s-%%a\n", job);
      } else {
        s += format_string("#SBATCH --output=%s/stdout-%s\n", out, job);
      }
      if (!nodelist.empty()) s += format_string("#SBATCH --nodelist=%s\n", nodelist.c_str());
      s += "\n";
      s += "echo \"Working directory is $SLURM_SUBMIT_DIR\"\n";
      s += "cd ${SLURM_SUBMIT_DIR}\n\n";
      break;
    case kLsf:
      // LSF limits take hours and minutes only.
      s += format_string("#BSUB -W %d:%02d\n", walltime_hours, walltime_minutes);
      if (f.array) {
        s += limited ? format_string("#BSUB -J %s[%s]%%%d\n", job, tasks.c_str(), job_slot_limit)
                     : format_string("#BSUB -J %s[%s]\n", job, tasks.c_str());
        s += format_string("#BSUB -oo stdout-%s-%%I\n", job);
      } else {
        s += format_string("#BSUB -J %s\n", job);
        s += format_string("#BSUB -oo %s/stdout-%s\n", out, job);
      }
      s += format_string("#BSUB -n %d\n", f.nodes * f.ppn);
      s += format_string("#BSUB -R 'span[ptile=%d]'\n", f.ppn);
      s += format_string("#BSUB -q %s\n", queue_name.c_str());
      if (!nodelist.empty()) s += format_string("#BSUB -m '%s'\n", nodelist.c_str());
      s += "echo \"Working directory is ${LS_SUBCWD}\"\n";
      s += "cd ${LS_SUBCWD}\n\n";
      break;
    default:
      s += "#!/bin/sh\n\n";
      break;
  }

  // Batch jobs load the MPI (or quantum-chemistry) module and the suite's module; a local
  // run loads only the module its program needs.
  if (backend == kLocal) {
    s += f.qc_job ? module_line(module_qc_flag, module_qc)
                  : module_line(module_kavri_flag, module_kavri);
  } else {
    s += f.qc_job ? module_line(module_qc_flag, module_qc)
                  : module_line(module_mpich2_flag, module_mpich2);
    s += module_line(module_kavri_flag, module_kavri);
  }

  s += "echo \"Starting job run at `date`\"\n\n";
  if (backend == kLocal && f.array)
    s += local_task_loop(f.task_ids, f.ntasks) + body + "done\n\n";
  else
    s += body;
  s += format_string("rm -f %s/%s\n\n", job_workdir.c_str(), f.marker.c_str());
  s += "echo \"Ending job run at `date`\"\n\n";
  return s;
}

void Jobscript::write_job_script(int backend, const JobFrame& f, const std::string& body) const {
  const std::string file =
      format_string("%s.%s", f.script.c_str(), get_job_script_ext().c_str());
  if (job_verbose)
    std::printf("Writing gaussian job %s script %s...", kBackendNames[backend], file.c_str());
  const std::string text = job_script_text(backend, f, body);
  std::unique_ptr<std::FILE, FileCloser> fp(std::fopen(file.c_str(), "wt"));
  if (!fp)
    fatal_error("job_scripts", job_scripts_lines::OPEN_SCRIPT, FatalStream::Err,
                "Failed to open output file " + file + "\n", -1);
  std::fputs(text.c_str(), fp.get());
}
