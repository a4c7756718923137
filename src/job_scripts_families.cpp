// The job families of the suite's workflow: what each job runs inside the common frame
// (job_scripts_frames.cpp), with the four back-end writers and the dispatcher of each family.
#include "job_scripts.h"
#include "util.h"

namespace {

std::string command_body(const std::string& command) { return command + "\n\n"; }

// What a HOMO/LUMO body refers to: the data directory <workdir>/<HLdir>, the helper scripts
// in <workdir>/<JOBSdir>, the stem of the molecule's files and the stem of its error marker.
struct HLJob {
  std::string workdir;
  std::string hl_dir;
  std::string jobs_dir;
  std::string name;
  std::string fail_name;
};

// The checker leaves "<name>.ok" when the log shows a normal termination.
std::string hl_check(const HLJob& j, const char* checker, const char* indent) {
  return format_string("%spython %s/%s/%s %s\n", indent, j.workdir.c_str(), j.jobs_dir.c_str(),
                       checker, j.name.c_str());
}

std::string hl_error_marker(const HLJob& j) {
  return format_string("        touch %s/%s/ERROR-HL_%s\n", j.workdir.c_str(), j.hl_dir.c_str(),
                       j.fail_name.c_str());
}

std::string hl_skip(const HLJob& j, const char* program) {
  return format_string("if [ -f %s.ok ]; then\n", j.name.c_str()) +
         format_string("    echo \"Normal termination of %s detected, skip the current %s run.\"\n",
                       program, program) +
         "else\n";
}

std::string gaussian_hl_body(const HLJob& j, const std::string& exe, const std::string& formchk,
                             const std::string& orbital_converter) {
  const char* n = j.name.c_str();
  std::string s = format_string("DataDir=%s/%s\n", j.workdir.c_str(), j.hl_dir.c_str());
  s += "cd ${DataDir}\n\n";
  s += hl_check(j, "gaussian_log_check.py", "");
  s += hl_skip(j, "Gaussian");
  s += format_string("    %s %s.com\n", exe.c_str(), n);
  s += hl_check(j, "gaussian_log_check.py", "    ");
  s += format_string("    if [ -f %s.ok ]; then\n", n);
  s += format_string("        %s %s.chk\n", formchk.c_str(), n);
  s += format_string("        %s %s.fchk -orb -xyz\n", orbital_converter.c_str(), n);
  s += "    else\n";
  s += hl_error_marker(j);
  s += "    fi\n";
  s += "fi\n\n";
  return s;
}

// Q-Chem writes its formatted checkpoint itself, so only the orbital conversion follows.
std::string qchem_hl_body(const HLJob& j, const std::string& exe, int threads,
                          const std::string& orbital_converter) {
  const char* n = j.name.c_str();
  std::string s = format_string("DataDir=%s/%s\n", j.workdir.c_str(), j.hl_dir.c_str());
  s += "cd ${DataDir}\n\n";
  s += hl_check(j, "qchem_out_check.py", "");
  s += hl_skip(j, "Q-Chem");
  s += format_string("    %s -nt %d %s.inp > %s.out\n\n", exe.c_str(), threads, n, n);
  s += hl_check(j, "qchem_out_check.py", "    ");
  s += format_string("    if [ -f %s.ok ]; then\n", n);
  s += format_string("        %s %s.fchk -orb -xyz\n", orbital_converter.c_str(), n);
  s += "    else\n";
  s += hl_error_marker(j);
  s += "    fi\n";
  s += "fi\n\n";
  return s;
}

// ORCA runs in a scratch directory per job (per task in an array); the output and the
// orbital file are moved back to the data directory. The single-job script keeps its
// historical text: blanks around "=" in DataDir and SCRDIR, and "cd ${DataDIR}" at the end.
std::string orca_hl_body(const HLJob& j, bool array, const std::string& scratch,
                         const char* job_id, const char* task, const std::string& exe,
                         const std::string& exe_options, const std::string& mkl_converter) {
  const char* n = j.name.c_str();
  const char* data = j.workdir.c_str();
  const char* hl = j.hl_dir.c_str();
  std::string s;
  if (array) {
    s += format_string("DataDir=%s/%s\n", data, hl);
    s += "cd ${DataDir}\n";
    s += format_string("SCRDIR=%s/kavri-HL-%s-%s\n\n", scratch.c_str(), job_id, task);
  } else {
    s += format_string("DataDir = %s/%s\n", data, hl);
    s += "cd ${DataDir}\n\n";
  }
  s += hl_check(j, "orca_out_check.py", "");
  s += hl_skip(j, "ORCA");
  if (!array) s += format_string("    SCRDIR = %s/kavri-HL-%s\n", scratch.c_str(), job_id);
  s += "    if [ ! -a $SCRDIR ]; then\n";
  s += "        mkdir -p $SCRDIR\n";
  s += "        echo \"Scratch directory $SCRDIR created.\"\n";
  s += "    fi\n";
  s += format_string("    cp %s.inp $SCRDIR\n", n);
  s += "    cd $SCRDIR\n";
  s += format_string("    %s %s.inp %s > %s.out\n", exe.c_str(), n, exe_options.c_str(), n);
  s += format_string("    %s %s\n\n", mkl_converter.c_str(), n);
  s += hl_check(j, "orca_out_check.py", "    ");
  s += format_string("    if [ -f %s.ok ]; then\n", n);
  s += "        echo \"Copy data back to HL directory...\"\n";
  s += format_string("        mv %s.out %s.mkl %s.ok %s/%s/\n", n, n, n, data, hl);
  s += "    else\n";
  s += format_string("        mv %s.out %s/%s/\n", n, data, hl);
  s += hl_error_marker(j);
  s += "    fi\n";
  s += array ? "    cd ${DataDir}\n" : "    cd ${DataDIR}\n";
  s += "    rm -rf $SCRDIR\n";
  s += "fi\n\n";
  return s;
}

// One task of a transfer-integral array: the MOO program over the task's molecule pair
// files, or the batch mode over the task's list of pair calculations.
std::string transint_task_body(bool moo, const std::string& exe, const std::string& list_file,
                               const char* t) {
  if (moo)
    return format_string(
        "%s --mols moo_map.xml --pos1 moo_mol%s_uc.pos --pos2 moo_mol%s_nei.pos --postfix %s\n\n",
        exe.c_str(), t, t, t);
  return format_string("%s -batch mol%s_%s -prefix V -postfix %s\n\n", exe.c_str(), t,
                       list_file.c_str(), t);
}

// A command of an array task: "@TASK@" stands for the task index.
std::string task_command(const std::string& command, const char* task) {
  std::string s = command;
  for (size_t at = s.find("@TASK@"); at != std::string::npos; at = s.find("@TASK@", at))
    s.replace(at, 6, task);
  return s + "\n\n";
}

}  // namespace

// Each family defines its four back-end writers and its dispatcher from one parameter list
// (PARAMS, with the matching ARGS), the frame of the job (FRAME) and its body (BODY); FRAME
// and BODY are expressions of the writer's arguments, the settings and `backend`.
#define KAVRI_JOB_BACKEND(name, index, params, frame, body) \
  void Jobscript::name params {                             \
    const int backend = index;                              \
    write_job_script(backend, frame, body);                 \
  }

#define KAVRI_JOB_FAMILY(name, line, params, args, frame, body) \
  KAVRI_JOB_BACKEND(name##_pbs, 0, params, frame, body)         \
  KAVRI_JOB_BACKEND(name##_slurm, 1, params, frame, body)       \
  KAVRI_JOB_BACKEND(name##_lsf, 2, params, frame, body)         \
  KAVRI_JOB_BACKEND(name##_local, 3, params, frame, body)       \
  void Jobscript::name params {                                 \
    switch (job_backend_or_fail(line)) {                        \
      case 0: name##_pbs args; break;                           \
      case 1: name##_slurm args; break;                         \
      case 2: name##_lsf args; break;                           \
      default: name##_local args; break;                        \
    }                                                           \
  }

// Parameter lists shared by the families, each with its argument list for the dispatcher.
#define KAVRI_FRAME_PARAMS \
  const std::string& script, int nodes, int ppn, const std::string& job_name, \
      const std::string& marker
#define KAVRI_FRAME_ARGS script, nodes, ppn, job_name, marker
#define KAVRI_CMD_PARAMS \
  (KAVRI_FRAME_PARAMS, const std::string& command, const std::string& out_dir)
#define KAVRI_CMD_ARGS (KAVRI_FRAME_ARGS, command, out_dir)
#define KAVRI_NAMED_CMD_PARAMS(first)                                          \
  (KAVRI_FRAME_PARAMS, const std::string& first, const std::string& command, \
   const std::string& out_dir)
#define KAVRI_NAMED_CMD_ARGS(first) (KAVRI_FRAME_ARGS, first, command, out_dir)
#define KAVRI_HL_PARAMS (KAVRI_FRAME_PARAMS, const std::string& name, const std::string& out_dir)
#define KAVRI_HL_ARGS (KAVRI_FRAME_ARGS, name, out_dir)
#define KAVRI_ARRAY_PARAMS(last)                                                      \
  (KAVRI_FRAME_PARAMS, const std::vector<int>& tasks, int ntasks, const std::string& last, \
   const std::string& out_dir)
#define KAVRI_ARRAY_ARGS(last) (KAVRI_FRAME_ARGS, tasks, ntasks, last, out_dir)

// Frames: a suite program (MPI and suite modules) or a quantum-chemistry job, single or array.
#define KAVRI_PROGRAM_FRAME \
  (JobFrame{script, nodes, ppn, job_name, marker, out_dir, false, false, {}, 0})
#define KAVRI_QC_FRAME \
  (JobFrame{script, nodes, ppn, job_name, marker, out_dir, true, false, {}, 0})
#define KAVRI_QC_ARRAY_FRAME \
  (JobFrame{script, nodes, ppn, job_name, marker, out_dir, true, true, tasks, ntasks})
#define KAVRI_PROGRAM_ARRAY_FRAME \
  (JobFrame{script, nodes, ppn, job_name, marker, out_dir, false, true, tasks, ntasks})

// HOMO/LUMO job of one molecule, and of task i of an array ("<prefix>-<i>", with the error
// marker named after `fail_task_var`).
#define KAVRI_HL_JOB (HLJob{job_workdir, HLdir, JOBSdir, name, name})
#define KAVRI_HL_TASK(fail_task_var)                                        \
  (HLJob{job_workdir, HLdir, JOBSdir, prefix + "-" + job_task_var(backend), \
         prefix + "-" + (fail_task_var)})

namespace L = job_scripts_lines;

// ---------------------------------------------------------------- one-command jobs

KAVRI_JOB_FAMILY(write_calc_siteEner_job, L::SCHED_SITEENER, KAVRI_CMD_PARAMS, KAVRI_CMD_ARGS,
                 KAVRI_PROGRAM_FRAME, command_body(command))
KAVRI_JOB_FAMILY(write_MC_job, L::SCHED_MC, KAVRI_CMD_PARAMS, KAVRI_CMD_ARGS,
                 KAVRI_PROGRAM_FRAME, command_body(command))
KAVRI_JOB_FAMILY(write_MC_job_array, L::SCHED_MC_ARRAY, KAVRI_ARRAY_PARAMS(command),
                 KAVRI_ARRAY_ARGS(command), KAVRI_PROGRAM_ARRAY_FRAME,
                 task_command(command, job_task_var(backend)))
KAVRI_JOB_FAMILY(write_ME_job, L::SCHED_ME, KAVRI_CMD_PARAMS, KAVRI_CMD_ARGS,
                 KAVRI_PROGRAM_FRAME, command_body(command))
KAVRI_JOB_FAMILY(write_calc_mob_job, L::SCHED_MOB, KAVRI_CMD_PARAMS, KAVRI_CMD_ARGS,
                 KAVRI_PROGRAM_FRAME, command_body(command))
KAVRI_JOB_FAMILY(write_calc_getRE_job, L::SCHED_GETRE, KAVRI_CMD_PARAMS, KAVRI_CMD_ARGS,
                 KAVRI_PROGRAM_FRAME, command_body(command))

// ---------------------------------------------------------------- reorganisation energies

KAVRI_JOB_FAMILY(write_gaussian_RE_job, L::SCHED_GAUSSIAN_RE, KAVRI_CMD_PARAMS, KAVRI_CMD_ARGS,
                 KAVRI_QC_FRAME,
                 format_string("DataDir=%s/%s\n\n", job_workdir.c_str(), REdir.c_str()) +
                     command_body(command))
KAVRI_JOB_FAMILY(write_RE_mps_job, L::SCHED_RE_MPS, KAVRI_CMD_PARAMS, KAVRI_CMD_ARGS,
                 KAVRI_PROGRAM_FRAME,
                 format_string("DataDir=%s/%s\n", job_workdir.c_str(), REdir.c_str()) +
                     "cd ${DataDir}\n\n" + command_body(command))
KAVRI_JOB_FAMILY(write_orca_RE_job, L::SCHED_ORCA_RE, KAVRI_NAMED_CMD_PARAMS(re_name),
                 KAVRI_NAMED_CMD_ARGS(re_name), KAVRI_QC_FRAME,
                 format_string("DataDir=%s/%s\n", job_workdir.c_str(), REdir.c_str()) +
                     format_string("SCRDIR=%s/kavri-RE-%s-%s\n\n", scratch.c_str(),
                                   re_name.c_str(), job_id_var(backend)) +
                     command_body(command) + "cd ${DataDir}\nrm -rf $SCRDIR\n\n")
KAVRI_JOB_FAMILY(write_qchem_RE_job, L::SCHED_QCHEM_RE, KAVRI_NAMED_CMD_PARAMS(re_name),
                 KAVRI_NAMED_CMD_ARGS(re_name), KAVRI_QC_FRAME,
                 format_string("SCRDIR=%s/kavri-RE-%s-%s\n", scratch.c_str(), re_name.c_str(),
                               job_id_var(backend)) +
                     "mkdir -p $SCRDIR\n\n" + command_body(command) +
                     "cd ${DataDIR}\nrm -rf $SCRDIR\n\n")

// ---------------------------------------------------------------- transfer integrals

KAVRI_JOB_FAMILY(write_calc_transint_job, L::SCHED_TRANSINT, KAVRI_NAMED_CMD_PARAMS(pair_dir),
                 KAVRI_NAMED_CMD_ARGS(pair_dir), KAVRI_PROGRAM_FRAME,
                 format_string("cd %s\n%s\ncd %s\n\n", pair_dir.c_str(), command.c_str(),
                               job_workdir.c_str()))
KAVRI_JOB_FAMILY(write_calc_transint_job_array, L::SCHED_TRANSINT_ARRAY, KAVRI_ARRAY_PARAMS(exe),
                 KAVRI_ARRAY_ARGS(exe), KAVRI_PROGRAM_ARRAY_FRAME,
                 transint_task_body(moo_flag != 0, exe, trans_int_list_file,
                                    job_task_var(backend)))

// ---------------------------------------------------------------- HOMO/LUMO calculations

KAVRI_JOB_FAMILY(write_gaussian_HL_job, L::SCHED_GAUSSIAN_HL, KAVRI_HL_PARAMS, KAVRI_HL_ARGS,
                 KAVRI_QC_FRAME,
                 gaussian_hl_body(KAVRI_HL_JOB, qc_exe, chk_formatter, orbital_file_converter))
KAVRI_JOB_FAMILY(write_orca_HL_job, L::SCHED_ORCA_HL, KAVRI_HL_PARAMS, KAVRI_HL_ARGS,
                 KAVRI_QC_FRAME,
                 orca_hl_body(KAVRI_HL_JOB, false, scratch, job_id_var(backend), "", qc_exe,
                              unnamed_string, orca_orbital_converter))
KAVRI_JOB_FAMILY(write_qchem_HL_job, L::SCHED_QCHEM_HL, KAVRI_HL_PARAMS, KAVRI_HL_ARGS,
                 KAVRI_QC_FRAME, qchem_hl_body(KAVRI_HL_JOB, qc_exe, ppn, orbital_file_converter))

// The SLURM Gaussian array marks failed tasks with the PBS task variable, as its scripts
// always have; the other back-ends use their own.
KAVRI_JOB_FAMILY(write_gaussian_HL_job_array, L::SCHED_GAUSSIAN_HL_ARRAY,
                 KAVRI_ARRAY_PARAMS(prefix), KAVRI_ARRAY_ARGS(prefix), KAVRI_QC_ARRAY_FRAME,
                 gaussian_hl_body(KAVRI_HL_TASK(job_task_var(backend == 1 ? 0 : backend)),
                                  qc_exe, chk_formatter, orbital_file_converter))
KAVRI_JOB_FAMILY(write_orca_HL_job_array, L::SCHED_ORCA_HL_ARRAY, KAVRI_ARRAY_PARAMS(prefix),
                 KAVRI_ARRAY_ARGS(prefix), KAVRI_QC_ARRAY_FRAME,
                 orca_hl_body(KAVRI_HL_TASK(job_task_var(backend)), true, scratch,
                              job_id_var(backend), job_task_var(backend), qc_exe,
                              unnamed_string, orca_orbital_converter))
KAVRI_JOB_FAMILY(write_qchem_HL_job_array, L::SCHED_QCHEM_HL_ARRAY, KAVRI_ARRAY_PARAMS(prefix),
                 KAVRI_ARRAY_ARGS(prefix), KAVRI_QC_ARRAY_FRAME,
                 qchem_hl_body(KAVRI_HL_TASK(job_task_var(backend)), qc_exe, ppn,
                               orbital_file_converter))
