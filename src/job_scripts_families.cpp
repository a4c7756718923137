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
std::string orca_hl_body(const HLJob& j, bool array, const std::string& scratch, const char* job_id,
                         const char* task, const std::string& exe, const std::string& exe_options,
                         const std::string& mkl_converter) {
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

namespace L = job_scripts_lines;

Jobscript::JobFrame Jobscript::program_frame(const std::string& script, int nodes, int ppn,
                                             const std::string& job_name, const std::string& marker,
                                             const std::string& out_dir) {
  return JobFrame{script, nodes, ppn, job_name, marker, out_dir, false, false, {}, 0};
}

Jobscript::JobFrame Jobscript::qc_frame(const std::string& script, int nodes, int ppn,
                                        const std::string& job_name, const std::string& marker,
                                        const std::string& out_dir) {
  return JobFrame{script, nodes, ppn, job_name, marker, out_dir, true, false, {}, 0};
}

Jobscript::JobFrame Jobscript::program_array_frame(const std::string& script, int nodes, int ppn,
                                                   const std::string& job_name,
                                                   const std::string& marker,
                                                   const std::vector<int>& tasks, int ntasks,
                                                   const std::string& out_dir) {
  return JobFrame{script, nodes, ppn, job_name, marker, out_dir, false, true, tasks, ntasks};
}

Jobscript::JobFrame Jobscript::qc_array_frame(const std::string& script, int nodes, int ppn,
                                              const std::string& job_name,
                                              const std::string& marker,
                                              const std::vector<int>& tasks, int ntasks,
                                              const std::string& out_dir) {
  return JobFrame{script, nodes, ppn, job_name, marker, out_dir, true, true, tasks, ntasks};
}

// ---------------------------------------------------------------- one-command jobs

// The one-command jobs share one script: the program frame around the command.
void Jobscript::write_command_job_on(int backend, const std::string& script, int nodes, int ppn,
                                     const std::string& job_name, const std::string& marker,
                                     const std::string& command, const std::string& out_dir) const {
  write_job_script(backend, program_frame(script, nodes, ppn, job_name, marker, out_dir),
                   command_body(command));
}
void Jobscript::write_calc_siteEner_job(const std::string& script, int nodes, int ppn,
                                        const std::string& job_name, const std::string& marker,
                                        const std::string& command, const std::string& out_dir) {
  write_command_job_on(job_backend_or_fail(L::SCHED_SITEENER), script, nodes, ppn, job_name, marker,
                       command, out_dir);
}
void Jobscript::write_calc_siteEner_job_pbs(const std::string& script, int nodes, int ppn,
                                            const std::string& job_name, const std::string& marker,
                                            const std::string& command,
                                            const std::string& out_dir) {
  write_command_job_on(kPbs, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_calc_siteEner_job_slurm(const std::string& script, int nodes, int ppn,
                                              const std::string& job_name,
                                              const std::string& marker, const std::string& command,
                                              const std::string& out_dir) {
  write_command_job_on(kSlurm, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_calc_siteEner_job_lsf(const std::string& script, int nodes, int ppn,
                                            const std::string& job_name, const std::string& marker,
                                            const std::string& command,
                                            const std::string& out_dir) {
  write_command_job_on(kLsf, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_calc_siteEner_job_local(const std::string& script, int nodes, int ppn,
                                              const std::string& job_name,
                                              const std::string& marker, const std::string& command,
                                              const std::string& out_dir) {
  write_command_job_on(kLocal, script, nodes, ppn, job_name, marker, command, out_dir);
}

void Jobscript::write_MC_job(const std::string& script, int nodes, int ppn,
                             const std::string& job_name, const std::string& marker,
                             const std::string& command, const std::string& out_dir) {
  write_command_job_on(job_backend_or_fail(L::SCHED_MC), script, nodes, ppn, job_name, marker,
                       command, out_dir);
}
void Jobscript::write_MC_job_pbs(const std::string& script, int nodes, int ppn,
                                 const std::string& job_name, const std::string& marker,
                                 const std::string& command, const std::string& out_dir) {
  write_command_job_on(kPbs, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_MC_job_slurm(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& command, const std::string& out_dir) {
  write_command_job_on(kSlurm, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_MC_job_lsf(const std::string& script, int nodes, int ppn,
                                 const std::string& job_name, const std::string& marker,
                                 const std::string& command, const std::string& out_dir) {
  write_command_job_on(kLsf, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_MC_job_local(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& command, const std::string& out_dir) {
  write_command_job_on(kLocal, script, nodes, ppn, job_name, marker, command, out_dir);
}

void Jobscript::write_MC_job_array_on(int backend, const std::string& script, int nodes, int ppn,
                                      const std::string& job_name, const std::string& marker,
                                      const std::vector<int>& tasks, int ntasks,
                                      const std::string& command,
                                      const std::string& out_dir) const {
  write_job_script(
      backend, program_array_frame(script, nodes, ppn, job_name, marker, tasks, ntasks, out_dir),
      task_command(command, job_task_var(backend)));
}
void Jobscript::write_MC_job_array(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::vector<int>& tasks, int ntasks,
                                   const std::string& command, const std::string& out_dir) {
  write_MC_job_array_on(job_backend_or_fail(L::SCHED_MC_ARRAY), script, nodes, ppn, job_name,
                        marker, tasks, ntasks, command, out_dir);
}
void Jobscript::write_MC_job_array_pbs(const std::string& script, int nodes, int ppn,
                                       const std::string& job_name, const std::string& marker,
                                       const std::vector<int>& tasks, int ntasks,
                                       const std::string& command, const std::string& out_dir) {
  write_MC_job_array_on(kPbs, script, nodes, ppn, job_name, marker, tasks, ntasks, command,
                        out_dir);
}
void Jobscript::write_MC_job_array_slurm(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::vector<int>& tasks, int ntasks,
                                         const std::string& command, const std::string& out_dir) {
  write_MC_job_array_on(kSlurm, script, nodes, ppn, job_name, marker, tasks, ntasks, command,
                        out_dir);
}
void Jobscript::write_MC_job_array_lsf(const std::string& script, int nodes, int ppn,
                                       const std::string& job_name, const std::string& marker,
                                       const std::vector<int>& tasks, int ntasks,
                                       const std::string& command, const std::string& out_dir) {
  write_MC_job_array_on(kLsf, script, nodes, ppn, job_name, marker, tasks, ntasks, command,
                        out_dir);
}
void Jobscript::write_MC_job_array_local(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::vector<int>& tasks, int ntasks,
                                         const std::string& command, const std::string& out_dir) {
  write_MC_job_array_on(kLocal, script, nodes, ppn, job_name, marker, tasks, ntasks, command,
                        out_dir);
}

void Jobscript::write_ME_job(const std::string& script, int nodes, int ppn,
                             const std::string& job_name, const std::string& marker,
                             const std::string& command, const std::string& out_dir) {
  write_command_job_on(job_backend_or_fail(L::SCHED_ME), script, nodes, ppn, job_name, marker,
                       command, out_dir);
}
void Jobscript::write_ME_job_pbs(const std::string& script, int nodes, int ppn,
                                 const std::string& job_name, const std::string& marker,
                                 const std::string& command, const std::string& out_dir) {
  write_command_job_on(kPbs, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_ME_job_slurm(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& command, const std::string& out_dir) {
  write_command_job_on(kSlurm, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_ME_job_lsf(const std::string& script, int nodes, int ppn,
                                 const std::string& job_name, const std::string& marker,
                                 const std::string& command, const std::string& out_dir) {
  write_command_job_on(kLsf, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_ME_job_local(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& command, const std::string& out_dir) {
  write_command_job_on(kLocal, script, nodes, ppn, job_name, marker, command, out_dir);
}

void Jobscript::write_calc_mob_job(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& command, const std::string& out_dir) {
  write_command_job_on(job_backend_or_fail(L::SCHED_MOB), script, nodes, ppn, job_name, marker,
                       command, out_dir);
}
void Jobscript::write_calc_mob_job_pbs(const std::string& script, int nodes, int ppn,
                                       const std::string& job_name, const std::string& marker,
                                       const std::string& command, const std::string& out_dir) {
  write_command_job_on(kPbs, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_calc_mob_job_slurm(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::string& command, const std::string& out_dir) {
  write_command_job_on(kSlurm, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_calc_mob_job_lsf(const std::string& script, int nodes, int ppn,
                                       const std::string& job_name, const std::string& marker,
                                       const std::string& command, const std::string& out_dir) {
  write_command_job_on(kLsf, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_calc_mob_job_local(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::string& command, const std::string& out_dir) {
  write_command_job_on(kLocal, script, nodes, ppn, job_name, marker, command, out_dir);
}

void Jobscript::write_calc_getRE_job(const std::string& script, int nodes, int ppn,
                                     const std::string& job_name, const std::string& marker,
                                     const std::string& command, const std::string& out_dir) {
  write_command_job_on(job_backend_or_fail(L::SCHED_GETRE), script, nodes, ppn, job_name, marker,
                       command, out_dir);
}
void Jobscript::write_calc_getRE_job_pbs(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::string& command, const std::string& out_dir) {
  write_command_job_on(kPbs, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_calc_getRE_job_slurm(const std::string& script, int nodes, int ppn,
                                           const std::string& job_name, const std::string& marker,
                                           const std::string& command, const std::string& out_dir) {
  write_command_job_on(kSlurm, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_calc_getRE_job_lsf(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::string& command, const std::string& out_dir) {
  write_command_job_on(kLsf, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_calc_getRE_job_local(const std::string& script, int nodes, int ppn,
                                           const std::string& job_name, const std::string& marker,
                                           const std::string& command, const std::string& out_dir) {
  write_command_job_on(kLocal, script, nodes, ppn, job_name, marker, command, out_dir);
}

// ---------------------------------------------------------------- reorganisation energies

void Jobscript::write_gaussian_RE_job_on(int backend, const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::string& command,
                                         const std::string& out_dir) const {
  write_job_script(backend, qc_frame(script, nodes, ppn, job_name, marker, out_dir),
                   format_string("DataDir=%s/%s\n\n", job_workdir.c_str(), REdir.c_str()) +
                       command_body(command));
}
void Jobscript::write_gaussian_RE_job(const std::string& script, int nodes, int ppn,
                                      const std::string& job_name, const std::string& marker,
                                      const std::string& command, const std::string& out_dir) {
  write_gaussian_RE_job_on(job_backend_or_fail(L::SCHED_GAUSSIAN_RE), script, nodes, ppn, job_name,
                           marker, command, out_dir);
}
void Jobscript::write_gaussian_RE_job_pbs(const std::string& script, int nodes, int ppn,
                                          const std::string& job_name, const std::string& marker,
                                          const std::string& command, const std::string& out_dir) {
  write_gaussian_RE_job_on(kPbs, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_gaussian_RE_job_slurm(const std::string& script, int nodes, int ppn,
                                            const std::string& job_name, const std::string& marker,
                                            const std::string& command,
                                            const std::string& out_dir) {
  write_gaussian_RE_job_on(kSlurm, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_gaussian_RE_job_lsf(const std::string& script, int nodes, int ppn,
                                          const std::string& job_name, const std::string& marker,
                                          const std::string& command, const std::string& out_dir) {
  write_gaussian_RE_job_on(kLsf, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_gaussian_RE_job_local(const std::string& script, int nodes, int ppn,
                                            const std::string& job_name, const std::string& marker,
                                            const std::string& command,
                                            const std::string& out_dir) {
  write_gaussian_RE_job_on(kLocal, script, nodes, ppn, job_name, marker, command, out_dir);
}

void Jobscript::write_RE_mps_job_on(int backend, const std::string& script, int nodes, int ppn,
                                    const std::string& job_name, const std::string& marker,
                                    const std::string& command, const std::string& out_dir) const {
  write_job_script(backend, program_frame(script, nodes, ppn, job_name, marker, out_dir),
                   format_string("DataDir=%s/%s\n", job_workdir.c_str(), REdir.c_str()) +
                       "cd ${DataDir}\n\n" + command_body(command));
}
void Jobscript::write_RE_mps_job(const std::string& script, int nodes, int ppn,
                                 const std::string& job_name, const std::string& marker,
                                 const std::string& command, const std::string& out_dir) {
  write_RE_mps_job_on(job_backend_or_fail(L::SCHED_RE_MPS), script, nodes, ppn, job_name, marker,
                      command, out_dir);
}
void Jobscript::write_RE_mps_job_pbs(const std::string& script, int nodes, int ppn,
                                     const std::string& job_name, const std::string& marker,
                                     const std::string& command, const std::string& out_dir) {
  write_RE_mps_job_on(kPbs, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_RE_mps_job_slurm(const std::string& script, int nodes, int ppn,
                                       const std::string& job_name, const std::string& marker,
                                       const std::string& command, const std::string& out_dir) {
  write_RE_mps_job_on(kSlurm, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_RE_mps_job_lsf(const std::string& script, int nodes, int ppn,
                                     const std::string& job_name, const std::string& marker,
                                     const std::string& command, const std::string& out_dir) {
  write_RE_mps_job_on(kLsf, script, nodes, ppn, job_name, marker, command, out_dir);
}
void Jobscript::write_RE_mps_job_local(const std::string& script, int nodes, int ppn,
                                       const std::string& job_name, const std::string& marker,
                                       const std::string& command, const std::string& out_dir) {
  write_RE_mps_job_on(kLocal, script, nodes, ppn, job_name, marker, command, out_dir);
}

void Jobscript::write_orca_RE_job_on(int backend, const std::string& script, int nodes, int ppn,
                                     const std::string& job_name, const std::string& marker,
                                     const std::string& re_name, const std::string& command,
                                     const std::string& out_dir) const {
  write_job_script(backend, qc_frame(script, nodes, ppn, job_name, marker, out_dir),
                   format_string("DataDir=%s/%s\n", job_workdir.c_str(), REdir.c_str()) +
                       format_string("SCRDIR=%s/kavri-RE-%s-%s\n\n", scratch.c_str(),
                                     re_name.c_str(), job_id_var(backend)) +
                       command_body(command) + "cd ${DataDir}\nrm -rf $SCRDIR\n\n");
}
void Jobscript::write_orca_RE_job(const std::string& script, int nodes, int ppn,
                                  const std::string& job_name, const std::string& marker,
                                  const std::string& re_name, const std::string& command,
                                  const std::string& out_dir) {
  write_orca_RE_job_on(job_backend_or_fail(L::SCHED_ORCA_RE), script, nodes, ppn, job_name, marker,
                       re_name, command, out_dir);
}
void Jobscript::write_orca_RE_job_pbs(const std::string& script, int nodes, int ppn,
                                      const std::string& job_name, const std::string& marker,
                                      const std::string& re_name, const std::string& command,
                                      const std::string& out_dir) {
  write_orca_RE_job_on(kPbs, script, nodes, ppn, job_name, marker, re_name, command, out_dir);
}
void Jobscript::write_orca_RE_job_slurm(const std::string& script, int nodes, int ppn,
                                        const std::string& job_name, const std::string& marker,
                                        const std::string& re_name, const std::string& command,
                                        const std::string& out_dir) {
  write_orca_RE_job_on(kSlurm, script, nodes, ppn, job_name, marker, re_name, command, out_dir);
}
void Jobscript::write_orca_RE_job_lsf(const std::string& script, int nodes, int ppn,
                                      const std::string& job_name, const std::string& marker,
                                      const std::string& re_name, const std::string& command,
                                      const std::string& out_dir) {
  write_orca_RE_job_on(kLsf, script, nodes, ppn, job_name, marker, re_name, command, out_dir);
}
void Jobscript::write_orca_RE_job_local(const std::string& script, int nodes, int ppn,
                                        const std::string& job_name, const std::string& marker,
                                        const std::string& re_name, const std::string& command,
                                        const std::string& out_dir) {
  write_orca_RE_job_on(kLocal, script, nodes, ppn, job_name, marker, re_name, command, out_dir);
}

void Jobscript::write_qchem_RE_job_on(int backend, const std::string& script, int nodes, int ppn,
                                      const std::string& job_name, const std::string& marker,
                                      const std::string& re_name, const std::string& command,
                                      const std::string& out_dir) const {
  write_job_script(backend, qc_frame(script, nodes, ppn, job_name, marker, out_dir),
                   format_string("SCRDIR=%s/kavri-RE-%s-%s\n", scratch.c_str(), re_name.c_str(),
                                 job_id_var(backend)) +
                       "mkdir -p $SCRDIR\n\n" + command_body(command) +
                       "cd ${DataDIR}\nrm -rf $SCRDIR\n\n");
}
void Jobscript::write_qchem_RE_job(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& re_name, const std::string& command,
                                   const std::string& out_dir) {
  write_qchem_RE_job_on(job_backend_or_fail(L::SCHED_QCHEM_RE), script, nodes, ppn, job_name,
                        marker, re_name, command, out_dir);
}
void Jobscript::write_qchem_RE_job_pbs(const std::string& script, int nodes, int ppn,
                                       const std::string& job_name, const std::string& marker,
                                       const std::string& re_name, const std::string& command,
                                       const std::string& out_dir) {
  write_qchem_RE_job_on(kPbs, script, nodes, ppn, job_name, marker, re_name, command, out_dir);
}
void Jobscript::write_qchem_RE_job_slurm(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::string& re_name, const std::string& command,
                                         const std::string& out_dir) {
  write_qchem_RE_job_on(kSlurm, script, nodes, ppn, job_name, marker, re_name, command, out_dir);
}
void Jobscript::write_qchem_RE_job_lsf(const std::string& script, int nodes, int ppn,
                                       const std::string& job_name, const std::string& marker,
                                       const std::string& re_name, const std::string& command,
                                       const std::string& out_dir) {
  write_qchem_RE_job_on(kLsf, script, nodes, ppn, job_name, marker, re_name, command, out_dir);
}
void Jobscript::write_qchem_RE_job_local(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::string& re_name, const std::string& command,
                                         const std::string& out_dir) {
  write_qchem_RE_job_on(kLocal, script, nodes, ppn, job_name, marker, re_name, command, out_dir);
}

// ---------------------------------------------------------------- transfer integrals

void Jobscript::write_calc_transint_job_on(int backend, const std::string& script, int nodes,
                                           int ppn, const std::string& job_name,
                                           const std::string& marker, const std::string& pair_dir,
                                           const std::string& command,
                                           const std::string& out_dir) const {
  write_job_script(backend, program_frame(script, nodes, ppn, job_name, marker, out_dir),
                   format_string("cd %s\n%s\ncd %s\n\n", pair_dir.c_str(), command.c_str(),
                                 job_workdir.c_str()));
}
void Jobscript::write_calc_transint_job(const std::string& script, int nodes, int ppn,
                                        const std::string& job_name, const std::string& marker,
                                        const std::string& pair_dir, const std::string& command,
                                        const std::string& out_dir) {
  write_calc_transint_job_on(job_backend_or_fail(L::SCHED_TRANSINT), script, nodes, ppn, job_name,
                             marker, pair_dir, command, out_dir);
}
void Jobscript::write_calc_transint_job_pbs(const std::string& script, int nodes, int ppn,
                                            const std::string& job_name, const std::string& marker,
                                            const std::string& pair_dir, const std::string& command,
                                            const std::string& out_dir) {
  write_calc_transint_job_on(kPbs, script, nodes, ppn, job_name, marker, pair_dir, command,
                             out_dir);
}
void Jobscript::write_calc_transint_job_slurm(const std::string& script, int nodes, int ppn,
                                              const std::string& job_name,
                                              const std::string& marker,
                                              const std::string& pair_dir,
                                              const std::string& command,
                                              const std::string& out_dir) {
  write_calc_transint_job_on(kSlurm, script, nodes, ppn, job_name, marker, pair_dir, command,
                             out_dir);
}
void Jobscript::write_calc_transint_job_lsf(const std::string& script, int nodes, int ppn,
                                            const std::string& job_name, const std::string& marker,
                                            const std::string& pair_dir, const std::string& command,
                                            const std::string& out_dir) {
  write_calc_transint_job_on(kLsf, script, nodes, ppn, job_name, marker, pair_dir, command,
                             out_dir);
}
void Jobscript::write_calc_transint_job_local(const std::string& script, int nodes, int ppn,
                                              const std::string& job_name,
                                              const std::string& marker,
                                              const std::string& pair_dir,
                                              const std::string& command,
                                              const std::string& out_dir) {
  write_calc_transint_job_on(kLocal, script, nodes, ppn, job_name, marker, pair_dir, command,
                             out_dir);
}

void Jobscript::write_calc_transint_job_array_on(int backend, const std::string& script, int nodes,
                                                 int ppn, const std::string& job_name,
                                                 const std::string& marker,
                                                 const std::vector<int>& tasks, int ntasks,
                                                 const std::string& exe,
                                                 const std::string& out_dir) const {
  write_job_script(
      backend, program_array_frame(script, nodes, ppn, job_name, marker, tasks, ntasks, out_dir),
      transint_task_body(moo_flag != 0, exe, trans_int_list_file, job_task_var(backend)));
}
void Jobscript::write_calc_transint_job_array(const std::string& script, int nodes, int ppn,
                                              const std::string& job_name,
                                              const std::string& marker,
                                              const std::vector<int>& tasks, int ntasks,
                                              const std::string& exe, const std::string& out_dir) {
  write_calc_transint_job_array_on(job_backend_or_fail(L::SCHED_TRANSINT_ARRAY), script, nodes, ppn,
                                   job_name, marker, tasks, ntasks, exe, out_dir);
}
void Jobscript::write_calc_transint_job_array_pbs(const std::string& script, int nodes, int ppn,
                                                  const std::string& job_name,
                                                  const std::string& marker,
                                                  const std::vector<int>& tasks, int ntasks,
                                                  const std::string& exe,
                                                  const std::string& out_dir) {
  write_calc_transint_job_array_on(kPbs, script, nodes, ppn, job_name, marker, tasks, ntasks, exe,
                                   out_dir);
}
void Jobscript::write_calc_transint_job_array_slurm(const std::string& script, int nodes, int ppn,
                                                    const std::string& job_name,
                                                    const std::string& marker,
                                                    const std::vector<int>& tasks, int ntasks,
                                                    const std::string& exe,
                                                    const std::string& out_dir) {
  write_calc_transint_job_array_on(kSlurm, script, nodes, ppn, job_name, marker, tasks, ntasks, exe,
                                   out_dir);
}
void Jobscript::write_calc_transint_job_array_lsf(const std::string& script, int nodes, int ppn,
                                                  const std::string& job_name,
                                                  const std::string& marker,
                                                  const std::vector<int>& tasks, int ntasks,
                                                  const std::string& exe,
                                                  const std::string& out_dir) {
  write_calc_transint_job_array_on(kLsf, script, nodes, ppn, job_name, marker, tasks, ntasks, exe,
                                   out_dir);
}
void Jobscript::write_calc_transint_job_array_local(const std::string& script, int nodes, int ppn,
                                                    const std::string& job_name,
                                                    const std::string& marker,
                                                    const std::vector<int>& tasks, int ntasks,
                                                    const std::string& exe,
                                                    const std::string& out_dir) {
  write_calc_transint_job_array_on(kLocal, script, nodes, ppn, job_name, marker, tasks, ntasks, exe,
                                   out_dir);
}

// ---------------------------------------------------------------- HOMO/LUMO calculations

void Jobscript::write_gaussian_HL_job_on(int backend, const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::string& name,
                                         const std::string& out_dir) const {
  write_job_script(backend, qc_frame(script, nodes, ppn, job_name, marker, out_dir),
                   gaussian_hl_body(HLJob{job_workdir, HLdir, JOBSdir, name, name}, qc_exe,
                                    chk_formatter, orbital_file_converter));
}
void Jobscript::write_gaussian_HL_job(const std::string& script, int nodes, int ppn,
                                      const std::string& job_name, const std::string& marker,
                                      const std::string& name, const std::string& out_dir) {
  write_gaussian_HL_job_on(job_backend_or_fail(L::SCHED_GAUSSIAN_HL), script, nodes, ppn, job_name,
                           marker, name, out_dir);
}
void Jobscript::write_gaussian_HL_job_pbs(const std::string& script, int nodes, int ppn,
                                          const std::string& job_name, const std::string& marker,
                                          const std::string& name, const std::string& out_dir) {
  write_gaussian_HL_job_on(kPbs, script, nodes, ppn, job_name, marker, name, out_dir);
}
void Jobscript::write_gaussian_HL_job_slurm(const std::string& script, int nodes, int ppn,
                                            const std::string& job_name, const std::string& marker,
                                            const std::string& name, const std::string& out_dir) {
  write_gaussian_HL_job_on(kSlurm, script, nodes, ppn, job_name, marker, name, out_dir);
}
void Jobscript::write_gaussian_HL_job_lsf(const std::string& script, int nodes, int ppn,
                                          const std::string& job_name, const std::string& marker,
                                          const std::string& name, const std::string& out_dir) {
  write_gaussian_HL_job_on(kLsf, script, nodes, ppn, job_name, marker, name, out_dir);
}
void Jobscript::write_gaussian_HL_job_local(const std::string& script, int nodes, int ppn,
                                            const std::string& job_name, const std::string& marker,
                                            const std::string& name, const std::string& out_dir) {
  write_gaussian_HL_job_on(kLocal, script, nodes, ppn, job_name, marker, name, out_dir);
}

void Jobscript::write_orca_HL_job_on(int backend, const std::string& script, int nodes, int ppn,
                                     const std::string& job_name, const std::string& marker,
                                     const std::string& name, const std::string& out_dir) const {
  write_job_script(
      backend, qc_frame(script, nodes, ppn, job_name, marker, out_dir),
      orca_hl_body(HLJob{job_workdir, HLdir, JOBSdir, name, name}, false, scratch,
                   job_id_var(backend), "", qc_exe, unnamed_string, orca_orbital_converter));
}
void Jobscript::write_orca_HL_job(const std::string& script, int nodes, int ppn,
                                  const std::string& job_name, const std::string& marker,
                                  const std::string& name, const std::string& out_dir) {
  write_orca_HL_job_on(job_backend_or_fail(L::SCHED_ORCA_HL), script, nodes, ppn, job_name, marker,
                       name, out_dir);
}
void Jobscript::write_orca_HL_job_pbs(const std::string& script, int nodes, int ppn,
                                      const std::string& job_name, const std::string& marker,
                                      const std::string& name, const std::string& out_dir) {
  write_orca_HL_job_on(kPbs, script, nodes, ppn, job_name, marker, name, out_dir);
}
void Jobscript::write_orca_HL_job_slurm(const std::string& script, int nodes, int ppn,
                                        const std::string& job_name, const std::string& marker,
                                        const std::string& name, const std::string& out_dir) {
  write_orca_HL_job_on(kSlurm, script, nodes, ppn, job_name, marker, name, out_dir);
}
void Jobscript::write_orca_HL_job_lsf(const std::string& script, int nodes, int ppn,
                                      const std::string& job_name, const std::string& marker,
                                      const std::string& name, const std::string& out_dir) {
  write_orca_HL_job_on(kLsf, script, nodes, ppn, job_name, marker, name, out_dir);
}
void Jobscript::write_orca_HL_job_local(const std::string& script, int nodes, int ppn,
                                        const std::string& job_name, const std::string& marker,
                                        const std::string& name, const std::string& out_dir) {
  write_orca_HL_job_on(kLocal, script, nodes, ppn, job_name, marker, name, out_dir);
}

void Jobscript::write_qchem_HL_job_on(int backend, const std::string& script, int nodes, int ppn,
                                      const std::string& job_name, const std::string& marker,
                                      const std::string& name, const std::string& out_dir) const {
  write_job_script(backend, qc_frame(script, nodes, ppn, job_name, marker, out_dir),
                   qchem_hl_body(HLJob{job_workdir, HLdir, JOBSdir, name, name}, qc_exe, ppn,
                                 orbital_file_converter));
}
void Jobscript::write_qchem_HL_job(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& name, const std::string& out_dir) {
  write_qchem_HL_job_on(job_backend_or_fail(L::SCHED_QCHEM_HL), script, nodes, ppn, job_name,
                        marker, name, out_dir);
}
void Jobscript::write_qchem_HL_job_pbs(const std::string& script, int nodes, int ppn,
                                       const std::string& job_name, const std::string& marker,
                                       const std::string& name, const std::string& out_dir) {
  write_qchem_HL_job_on(kPbs, script, nodes, ppn, job_name, marker, name, out_dir);
}
void Jobscript::write_qchem_HL_job_slurm(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::string& name, const std::string& out_dir) {
  write_qchem_HL_job_on(kSlurm, script, nodes, ppn, job_name, marker, name, out_dir);
}
void Jobscript::write_qchem_HL_job_lsf(const std::string& script, int nodes, int ppn,
                                       const std::string& job_name, const std::string& marker,
                                       const std::string& name, const std::string& out_dir) {
  write_qchem_HL_job_on(kLsf, script, nodes, ppn, job_name, marker, name, out_dir);
}
void Jobscript::write_qchem_HL_job_local(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::string& name, const std::string& out_dir) {
  write_qchem_HL_job_on(kLocal, script, nodes, ppn, job_name, marker, name, out_dir);
}

// ---------------------------------------------------------------- HOMO/LUMO job arrays

// The SLURM Gaussian array marks failed tasks with the PBS task variable, as its scripts
// always have; the other back-ends use their own.
void Jobscript::write_gaussian_HL_job_array_on(int backend, const std::string& script, int nodes,
                                               int ppn, const std::string& job_name,
                                               const std::string& marker,
                                               const std::vector<int>& tasks, int ntasks,
                                               const std::string& prefix,
                                               const std::string& out_dir) const {
  write_job_script(
      backend, qc_array_frame(script, nodes, ppn, job_name, marker, tasks, ntasks, out_dir),
      gaussian_hl_body(HLJob{job_workdir, HLdir, JOBSdir, prefix + "-" + job_task_var(backend),
                             prefix + "-" + job_task_var(backend == kSlurm ? kPbs : backend)},
                       qc_exe, chk_formatter, orbital_file_converter));
}
void Jobscript::write_gaussian_HL_job_array(const std::string& script, int nodes, int ppn,
                                            const std::string& job_name, const std::string& marker,
                                            const std::vector<int>& tasks, int ntasks,
                                            const std::string& prefix, const std::string& out_dir) {
  write_gaussian_HL_job_array_on(job_backend_or_fail(L::SCHED_GAUSSIAN_HL_ARRAY), script, nodes,
                                 ppn, job_name, marker, tasks, ntasks, prefix, out_dir);
}
void Jobscript::write_gaussian_HL_job_array_pbs(const std::string& script, int nodes, int ppn,
                                                const std::string& job_name,
                                                const std::string& marker,
                                                const std::vector<int>& tasks, int ntasks,
                                                const std::string& prefix,
                                                const std::string& out_dir) {
  write_gaussian_HL_job_array_on(kPbs, script, nodes, ppn, job_name, marker, tasks, ntasks, prefix,
                                 out_dir);
}
void Jobscript::write_gaussian_HL_job_array_slurm(const std::string& script, int nodes, int ppn,
                                                  const std::string& job_name,
                                                  const std::string& marker,
                                                  const std::vector<int>& tasks, int ntasks,
                                                  const std::string& prefix,
                                                  const std::string& out_dir) {
  write_gaussian_HL_job_array_on(kSlurm, script, nodes, ppn, job_name, marker, tasks, ntasks,
                                 prefix, out_dir);
}
void Jobscript::write_gaussian_HL_job_array_lsf(const std::string& script, int nodes, int ppn,
                                                const std::string& job_name,
                                                const std::string& marker,
                                                const std::vector<int>& tasks, int ntasks,
                                                const std::string& prefix,
                                                const std::string& out_dir) {
  write_gaussian_HL_job_array_on(kLsf, script, nodes, ppn, job_name, marker, tasks, ntasks, prefix,
                                 out_dir);
}
void Jobscript::write_gaussian_HL_job_array_local(const std::string& script, int nodes, int ppn,
                                                  const std::string& job_name,
                                                  const std::string& marker,
                                                  const std::vector<int>& tasks, int ntasks,
                                                  const std::string& prefix,
                                                  const std::string& out_dir) {
  write_gaussian_HL_job_array_on(kLocal, script, nodes, ppn, job_name, marker, tasks, ntasks,
                                 prefix, out_dir);
}

void Jobscript::write_orca_HL_job_array_on(int backend, const std::string& script, int nodes,
                                           int ppn, const std::string& job_name,
                                           const std::string& marker, const std::vector<int>& tasks,
                                           int ntasks, const std::string& prefix,
                                           const std::string& out_dir) const {
  write_job_script(
      backend, qc_array_frame(script, nodes, ppn, job_name, marker, tasks, ntasks, out_dir),
      orca_hl_body(HLJob{job_workdir, HLdir, JOBSdir, prefix + "-" + job_task_var(backend),
                         prefix + "-" + job_task_var(backend)},
                   true, scratch, job_id_var(backend), job_task_var(backend), qc_exe,
                   unnamed_string, orca_orbital_converter));
}
void Jobscript::write_orca_HL_job_array(const std::string& script, int nodes, int ppn,
                                        const std::string& job_name, const std::string& marker,
                                        const std::vector<int>& tasks, int ntasks,
                                        const std::string& prefix, const std::string& out_dir) {
  write_orca_HL_job_array_on(job_backend_or_fail(L::SCHED_ORCA_HL_ARRAY), script, nodes, ppn,
                             job_name, marker, tasks, ntasks, prefix, out_dir);
}
void Jobscript::write_orca_HL_job_array_pbs(const std::string& script, int nodes, int ppn,
                                            const std::string& job_name, const std::string& marker,
                                            const std::vector<int>& tasks, int ntasks,
                                            const std::string& prefix, const std::string& out_dir) {
  write_orca_HL_job_array_on(kPbs, script, nodes, ppn, job_name, marker, tasks, ntasks, prefix,
                             out_dir);
}
void Jobscript::write_orca_HL_job_array_slurm(const std::string& script, int nodes, int ppn,
                                              const std::string& job_name,
                                              const std::string& marker,
                                              const std::vector<int>& tasks, int ntasks,
                                              const std::string& prefix,
                                              const std::string& out_dir) {
  write_orca_HL_job_array_on(kSlurm, script, nodes, ppn, job_name, marker, tasks, ntasks, prefix,
                             out_dir);
}
void Jobscript::write_orca_HL_job_array_lsf(const std::string& script, int nodes, int ppn,
                                            const std::string& job_name, const std::string& marker,
                                            const std::vector<int>& tasks, int ntasks,
                                            const std::string& prefix, const std::string& out_dir) {
  write_orca_HL_job_array_on(kLsf, script, nodes, ppn, job_name, marker, tasks, ntasks, prefix,
                             out_dir);
}
void Jobscript::write_orca_HL_job_array_local(const std::string& script, int nodes, int ppn,
                                              const std::string& job_name,
                                              const std::string& marker,
                                              const std::vector<int>& tasks, int ntasks,
                                              const std::string& prefix,
                                              const std::string& out_dir) {
  write_orca_HL_job_array_on(kLocal, script, nodes, ppn, job_name, marker, tasks, ntasks, prefix,
                             out_dir);
}

void Jobscript::write_qchem_HL_job_array_on(int backend, const std::string& script, int nodes,
                                            int ppn, const std::string& job_name,
                                            const std::string& marker,
                                            const std::vector<int>& tasks, int ntasks,
                                            const std::string& prefix,
                                            const std::string& out_dir) const {
  write_job_script(
      backend, qc_array_frame(script, nodes, ppn, job_name, marker, tasks, ntasks, out_dir),
      qchem_hl_body(HLJob{job_workdir, HLdir, JOBSdir, prefix + "-" + job_task_var(backend),
                          prefix + "-" + job_task_var(backend)},
                    qc_exe, ppn, orbital_file_converter));
}
void Jobscript::write_qchem_HL_job_array(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::vector<int>& tasks, int ntasks,
                                         const std::string& prefix, const std::string& out_dir) {
  write_qchem_HL_job_array_on(job_backend_or_fail(L::SCHED_QCHEM_HL_ARRAY), script, nodes, ppn,
                              job_name, marker, tasks, ntasks, prefix, out_dir);
}
void Jobscript::write_qchem_HL_job_array_pbs(const std::string& script, int nodes, int ppn,
                                             const std::string& job_name, const std::string& marker,
                                             const std::vector<int>& tasks, int ntasks,
                                             const std::string& prefix,
                                             const std::string& out_dir) {
  write_qchem_HL_job_array_on(kPbs, script, nodes, ppn, job_name, marker, tasks, ntasks, prefix,
                              out_dir);
}
void Jobscript::write_qchem_HL_job_array_slurm(const std::string& script, int nodes, int ppn,
                                               const std::string& job_name,
                                               const std::string& marker,
                                               const std::vector<int>& tasks, int ntasks,
                                               const std::string& prefix,
                                               const std::string& out_dir) {
  write_qchem_HL_job_array_on(kSlurm, script, nodes, ppn, job_name, marker, tasks, ntasks, prefix,
                              out_dir);
}
void Jobscript::write_qchem_HL_job_array_lsf(const std::string& script, int nodes, int ppn,
                                             const std::string& job_name, const std::string& marker,
                                             const std::vector<int>& tasks, int ntasks,
                                             const std::string& prefix,
                                             const std::string& out_dir) {
  write_qchem_HL_job_array_on(kLsf, script, nodes, ppn, job_name, marker, tasks, ntasks, prefix,
                              out_dir);
}
void Jobscript::write_qchem_HL_job_array_local(const std::string& script, int nodes, int ppn,
                                               const std::string& job_name,
                                               const std::string& marker,
                                               const std::vector<int>& tasks, int ntasks,
                                               const std::string& prefix,
                                               const std::string& out_dir) {
  write_qchem_HL_job_array_on(kLocal, script, nodes, ppn, job_name, marker, tasks, ntasks, prefix,
                              out_dir);
}
