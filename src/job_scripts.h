// Jobscript: the batch-scheduler settings of the model object (scheduler kind, queue,
// nodes, wall time, environment modules, executables, working-directory names).
// The job-script writers for PBS, SLURM, LSF and a local shell build on these settings.
#pragma once
#include <array>
#include <string>
#include <vector>

// Error-site line numbers of the job-script writers: the script file that cannot be opened,
// and one per dispatcher for a scheduler type outside 0..3.
namespace job_scripts_lines {
constexpr int OPEN_SCRIPT = 64;
constexpr int SCHED_SITEENER = 131;
constexpr int SCHED_MC = 148;
constexpr int SCHED_ME = 165;
constexpr int SCHED_MOB = 182;
constexpr int SCHED_GETRE = 199;
constexpr int SCHED_GAUSSIAN_RE = 216;
constexpr int SCHED_RE_MPS = 233;
constexpr int SCHED_ORCA_RE = 250;
constexpr int SCHED_QCHEM_RE = 267;
constexpr int SCHED_TRANSINT = 284;
constexpr int SCHED_GAUSSIAN_HL = 301;
constexpr int SCHED_ORCA_HL = 318;
constexpr int SCHED_QCHEM_HL = 335;
constexpr int SCHED_GAUSSIAN_HL_ARRAY = 352;
constexpr int SCHED_ORCA_HL_ARRAY = 369;
constexpr int SCHED_QCHEM_HL_ARRAY = 386;
constexpr int SCHED_TRANSINT_ARRAY = 403;
constexpr int SCHED_MC_ARRAY = 420;
}  // namespace job_scripts_lines

// Back-ends of the job-script writers, in the order of the scheduler types.
enum JobBackend : int { kPbs = 0, kSlurm = 1, kLsf = 2, kLocal = 3 };
// The back-end of scheduler type `sched_index`; outside 0..3 fatal at the dispatcher's `line`
// ("Unknown job scheduling type!" on standard error, status -1).
int job_backend(int sched_index, int line);

class Jobscript {
 public:
  Jobscript();

  void parse_scheduling_type();
  int get_job_sched_type() const { return sched_index; }
  std::string get_job_script_ext() const;
  int get_run_nodes() const { return qc_nodes; }
  int get_run_ppn() const { return qc_ppn; }
  // The wall time as days, hours, minutes, seconds.
  std::array<int, 4> get_walltime() const {
    return {walltime_days, walltime_hours, walltime_minutes, walltime_seconds};
  }
  std::string getFileName(const std::string& path) const;

  void set_environment_module_gau_flag(bool on) { module_qc_flag = on; }
  bool get_environment_module_gau_flag() const { return module_qc_flag; }
  void set_environment_module_kavri_flag(bool on) { module_kavri_flag = on; }
  void set_environment_module_mpich2_gnu_flag(bool on) { module_mpich2_flag = on; }
  void set_job_moo_flag(bool on) { moo_flag = on ? 1 : 0; }
  int get_job_moo_flag() const { return moo_flag; }
  void set_reorg_outer_flag(int code) { reorg_outer_flag = code; }
  int get_reorg_outer_flag() const { return reorg_outer_flag; }
  void set_job_scripts_HLdir(const std::string& d) { HLdir = d; }
  void set_job_scripts_REdir(const std::string& d) { REdir = d; }
  void set_job_scripts_RUNdir(const std::string& d) { RUNdir = d; }
  void set_job_scripts_SCRdir(const std::string& d) { SCRdir = d; }
  void set_job_scripts_JOBSdir(const std::string& d) { JOBSdir = d; }

  // Directory of the marker file that a job removes when it ends, and the base of the data
  // directories (HLdir, REdir) and helper scripts (JOBSdir) that job bodies refer to.
  void set_job_scripts_workdir(const std::string& d) { job_workdir = d; }
  const std::string& get_job_scripts_workdir() const { return job_workdir; }
  // Prints "Writing gaussian job <BACKEND> script <file>..." (no line end) before each script
  // is written.
  void set_job_scripts_verbose(bool on) { job_verbose = on; }

  // ---- job-script writers. Every family `name` has five: `name_pbs`, `name_slurm`,
  // `name_lsf`, `name_local` write the script of one back-end, and `name` that of the current
  // scheduler type (sched_index 0..3; any other value is fatal). Arguments every family shares:
  //   script   base name; the file is "<script>.<extension of the current scheduler type>"
  //   nodes    node count; ppn processes per node
  //   job_name name used in the job-name and standard-output directives
  //   marker   file in the work directory that the job removes when it ends
  //   out_dir  directory where the batch system writes the job's standard output
  // `command` lines are written as they stand. Array writers take an optional list of task
  // indices (empty: tasks 1..ntasks); job_slot_limit > 0 caps the tasks running at once.

  // Jobs that run one command: site energies, Monte Carlo, master equation, mobility,
  // collection of reorganisation energies.
  void write_calc_siteEner_job(const std::string& script, int nodes, int ppn,
                               const std::string& job_name, const std::string& marker,
                               const std::string& command, const std::string& out_dir);
  void write_calc_siteEner_job_pbs(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& command, const std::string& out_dir);
  void write_calc_siteEner_job_slurm(const std::string& script, int nodes, int ppn,
                                     const std::string& job_name, const std::string& marker,
                                     const std::string& command, const std::string& out_dir);
  void write_calc_siteEner_job_lsf(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& command, const std::string& out_dir);
  void write_calc_siteEner_job_local(const std::string& script, int nodes, int ppn,
                                     const std::string& job_name, const std::string& marker,
                                     const std::string& command, const std::string& out_dir);
  void write_MC_job(const std::string& script, int nodes, int ppn, const std::string& job_name,
                    const std::string& marker, const std::string& command,
                    const std::string& out_dir);
  void write_MC_job_pbs(const std::string& script, int nodes, int ppn, const std::string& job_name,
                        const std::string& marker, const std::string& command,
                        const std::string& out_dir);
  void write_MC_job_slurm(const std::string& script, int nodes, int ppn,
                          const std::string& job_name, const std::string& marker,
                          const std::string& command, const std::string& out_dir);
  void write_MC_job_lsf(const std::string& script, int nodes, int ppn, const std::string& job_name,
                        const std::string& marker, const std::string& command,
                        const std::string& out_dir);
  void write_MC_job_local(const std::string& script, int nodes, int ppn,
                          const std::string& job_name, const std::string& marker,
                          const std::string& command, const std::string& out_dir);
  // Monte Carlo slices as an array job: task i runs `command` with every "@TASK@" in it
  // replaced by the scheduler's task index.
  void write_MC_job_array(const std::string& script, int nodes, int ppn,
                          const std::string& job_name, const std::string& marker,
                          const std::vector<int>& tasks, int ntasks, const std::string& command,
                          const std::string& out_dir);
  void write_MC_job_array_pbs(const std::string& script, int nodes, int ppn,
                              const std::string& job_name, const std::string& marker,
                              const std::vector<int>& tasks, int ntasks, const std::string& command,
                              const std::string& out_dir);
  void write_MC_job_array_slurm(const std::string& script, int nodes, int ppn,
                                const std::string& job_name, const std::string& marker,
                                const std::vector<int>& tasks, int ntasks,
                                const std::string& command, const std::string& out_dir);
  void write_MC_job_array_lsf(const std::string& script, int nodes, int ppn,
                              const std::string& job_name, const std::string& marker,
                              const std::vector<int>& tasks, int ntasks, const std::string& command,
                              const std::string& out_dir);
  void write_MC_job_array_local(const std::string& script, int nodes, int ppn,
                                const std::string& job_name, const std::string& marker,
                                const std::vector<int>& tasks, int ntasks,
                                const std::string& command, const std::string& out_dir);
  void write_ME_job(const std::string& script, int nodes, int ppn, const std::string& job_name,
                    const std::string& marker, const std::string& command,
                    const std::string& out_dir);
  void write_ME_job_pbs(const std::string& script, int nodes, int ppn, const std::string& job_name,
                        const std::string& marker, const std::string& command,
                        const std::string& out_dir);
  void write_ME_job_slurm(const std::string& script, int nodes, int ppn,
                          const std::string& job_name, const std::string& marker,
                          const std::string& command, const std::string& out_dir);
  void write_ME_job_lsf(const std::string& script, int nodes, int ppn, const std::string& job_name,
                        const std::string& marker, const std::string& command,
                        const std::string& out_dir);
  void write_ME_job_local(const std::string& script, int nodes, int ppn,
                          const std::string& job_name, const std::string& marker,
                          const std::string& command, const std::string& out_dir);
  void write_calc_mob_job(const std::string& script, int nodes, int ppn,
                          const std::string& job_name, const std::string& marker,
                          const std::string& command, const std::string& out_dir);
  void write_calc_mob_job_pbs(const std::string& script, int nodes, int ppn,
                              const std::string& job_name, const std::string& marker,
                              const std::string& command, const std::string& out_dir);
  void write_calc_mob_job_slurm(const std::string& script, int nodes, int ppn,
                                const std::string& job_name, const std::string& marker,
                                const std::string& command, const std::string& out_dir);
  void write_calc_mob_job_lsf(const std::string& script, int nodes, int ppn,
                              const std::string& job_name, const std::string& marker,
                              const std::string& command, const std::string& out_dir);
  void write_calc_mob_job_local(const std::string& script, int nodes, int ppn,
                                const std::string& job_name, const std::string& marker,
                                const std::string& command, const std::string& out_dir);
  void write_calc_getRE_job(const std::string& script, int nodes, int ppn,
                            const std::string& job_name, const std::string& marker,
                            const std::string& command, const std::string& out_dir);
  void write_calc_getRE_job_pbs(const std::string& script, int nodes, int ppn,
                                const std::string& job_name, const std::string& marker,
                                const std::string& command, const std::string& out_dir);
  void write_calc_getRE_job_slurm(const std::string& script, int nodes, int ppn,
                                  const std::string& job_name, const std::string& marker,
                                  const std::string& command, const std::string& out_dir);
  void write_calc_getRE_job_lsf(const std::string& script, int nodes, int ppn,
                                const std::string& job_name, const std::string& marker,
                                const std::string& command, const std::string& out_dir);
  void write_calc_getRE_job_local(const std::string& script, int nodes, int ppn,
                                  const std::string& job_name, const std::string& marker,
                                  const std::string& command, const std::string& out_dir);
  // Reorganisation-energy jobs run `command` for the data directory <workdir>/<REdir>;
  // the ORCA and Q-Chem ones use a scratch directory named after `re_name` and the job id.
  void write_gaussian_RE_job(const std::string& script, int nodes, int ppn,
                             const std::string& job_name, const std::string& marker,
                             const std::string& command, const std::string& out_dir);
  void write_gaussian_RE_job_pbs(const std::string& script, int nodes, int ppn,
                                 const std::string& job_name, const std::string& marker,
                                 const std::string& command, const std::string& out_dir);
  void write_gaussian_RE_job_slurm(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& command, const std::string& out_dir);
  void write_gaussian_RE_job_lsf(const std::string& script, int nodes, int ppn,
                                 const std::string& job_name, const std::string& marker,
                                 const std::string& command, const std::string& out_dir);
  void write_gaussian_RE_job_local(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& command, const std::string& out_dir);
  void write_RE_mps_job(const std::string& script, int nodes, int ppn, const std::string& job_name,
                        const std::string& marker, const std::string& command,
                        const std::string& out_dir);
  void write_RE_mps_job_pbs(const std::string& script, int nodes, int ppn,
                            const std::string& job_name, const std::string& marker,
                            const std::string& command, const std::string& out_dir);
  void write_RE_mps_job_slurm(const std::string& script, int nodes, int ppn,
                              const std::string& job_name, const std::string& marker,
                              const std::string& command, const std::string& out_dir);
  void write_RE_mps_job_lsf(const std::string& script, int nodes, int ppn,
                            const std::string& job_name, const std::string& marker,
                            const std::string& command, const std::string& out_dir);
  void write_RE_mps_job_local(const std::string& script, int nodes, int ppn,
                              const std::string& job_name, const std::string& marker,
                              const std::string& command, const std::string& out_dir);
  void write_orca_RE_job(const std::string& script, int nodes, int ppn, const std::string& job_name,
                         const std::string& marker, const std::string& re_name,
                         const std::string& command, const std::string& out_dir);
  void write_orca_RE_job_pbs(const std::string& script, int nodes, int ppn,
                             const std::string& job_name, const std::string& marker,
                             const std::string& re_name, const std::string& command,
                             const std::string& out_dir);
  void write_orca_RE_job_slurm(const std::string& script, int nodes, int ppn,
                               const std::string& job_name, const std::string& marker,
                               const std::string& re_name, const std::string& command,
                               const std::string& out_dir);
  void write_orca_RE_job_lsf(const std::string& script, int nodes, int ppn,
                             const std::string& job_name, const std::string& marker,
                             const std::string& re_name, const std::string& command,
                             const std::string& out_dir);
  void write_orca_RE_job_local(const std::string& script, int nodes, int ppn,
                               const std::string& job_name, const std::string& marker,
                               const std::string& re_name, const std::string& command,
                               const std::string& out_dir);
  void write_qchem_RE_job(const std::string& script, int nodes, int ppn,
                          const std::string& job_name, const std::string& marker,
                          const std::string& re_name, const std::string& command,
                          const std::string& out_dir);
  void write_qchem_RE_job_pbs(const std::string& script, int nodes, int ppn,
                              const std::string& job_name, const std::string& marker,
                              const std::string& re_name, const std::string& command,
                              const std::string& out_dir);
  void write_qchem_RE_job_slurm(const std::string& script, int nodes, int ppn,
                                const std::string& job_name, const std::string& marker,
                                const std::string& re_name, const std::string& command,
                                const std::string& out_dir);
  void write_qchem_RE_job_lsf(const std::string& script, int nodes, int ppn,
                              const std::string& job_name, const std::string& marker,
                              const std::string& re_name, const std::string& command,
                              const std::string& out_dir);
  void write_qchem_RE_job_local(const std::string& script, int nodes, int ppn,
                                const std::string& job_name, const std::string& marker,
                                const std::string& re_name, const std::string& command,
                                const std::string& out_dir);
  // Transfer integral of one pair: `command` runs inside `pair_dir`.
  void write_calc_transint_job(const std::string& script, int nodes, int ppn,
                               const std::string& job_name, const std::string& marker,
                               const std::string& pair_dir, const std::string& command,
                               const std::string& out_dir);
  void write_calc_transint_job_pbs(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& pair_dir, const std::string& command,
                                   const std::string& out_dir);
  void write_calc_transint_job_slurm(const std::string& script, int nodes, int ppn,
                                     const std::string& job_name, const std::string& marker,
                                     const std::string& pair_dir, const std::string& command,
                                     const std::string& out_dir);
  void write_calc_transint_job_lsf(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& pair_dir, const std::string& command,
                                   const std::string& out_dir);
  void write_calc_transint_job_local(const std::string& script, int nodes, int ppn,
                                     const std::string& job_name, const std::string& marker,
                                     const std::string& pair_dir, const std::string& command,
                                     const std::string& out_dir);
  // HOMO/LUMO calculation of one molecule: input "<name>.com" (Gaussian) or "<name>.inp"
  // (ORCA, Q-Chem) in <workdir>/<HLdir>, checked by the helper scripts in <workdir>/<JOBSdir>.
  void write_calc_transint_job_array(const std::string& script, int nodes, int ppn,
                                     const std::string& job_name, const std::string& marker,
                                     const std::vector<int>& tasks, int ntasks,
                                     const std::string& exe, const std::string& out_dir);
  void write_calc_transint_job_array_pbs(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::vector<int>& tasks, int ntasks,
                                         const std::string& exe, const std::string& out_dir);
  void write_calc_transint_job_array_slurm(const std::string& script, int nodes, int ppn,
                                           const std::string& job_name, const std::string& marker,
                                           const std::vector<int>& tasks, int ntasks,
                                           const std::string& exe, const std::string& out_dir);
  void write_calc_transint_job_array_lsf(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::vector<int>& tasks, int ntasks,
                                         const std::string& exe, const std::string& out_dir);
  void write_calc_transint_job_array_local(const std::string& script, int nodes, int ppn,
                                           const std::string& job_name, const std::string& marker,
                                           const std::vector<int>& tasks, int ntasks,
                                           const std::string& exe, const std::string& out_dir);
  void write_gaussian_HL_job(const std::string& script, int nodes, int ppn,
                             const std::string& job_name, const std::string& marker,
                             const std::string& name, const std::string& out_dir);
  void write_gaussian_HL_job_pbs(const std::string& script, int nodes, int ppn,
                                 const std::string& job_name, const std::string& marker,
                                 const std::string& name, const std::string& out_dir);
  void write_gaussian_HL_job_slurm(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& name, const std::string& out_dir);
  void write_gaussian_HL_job_lsf(const std::string& script, int nodes, int ppn,
                                 const std::string& job_name, const std::string& marker,
                                 const std::string& name, const std::string& out_dir);
  void write_gaussian_HL_job_local(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::string& name, const std::string& out_dir);
  void write_orca_HL_job(const std::string& script, int nodes, int ppn, const std::string& job_name,
                         const std::string& marker, const std::string& name,
                         const std::string& out_dir);
  void write_orca_HL_job_pbs(const std::string& script, int nodes, int ppn,
                             const std::string& job_name, const std::string& marker,
                             const std::string& name, const std::string& out_dir);
  void write_orca_HL_job_slurm(const std::string& script, int nodes, int ppn,
                               const std::string& job_name, const std::string& marker,
                               const std::string& name, const std::string& out_dir);
  void write_orca_HL_job_lsf(const std::string& script, int nodes, int ppn,
                             const std::string& job_name, const std::string& marker,
                             const std::string& name, const std::string& out_dir);
  void write_orca_HL_job_local(const std::string& script, int nodes, int ppn,
                               const std::string& job_name, const std::string& marker,
                               const std::string& name, const std::string& out_dir);
  // The same as array jobs: task i works on "<prefix>-<i>".
  void write_qchem_HL_job(const std::string& script, int nodes, int ppn,
                          const std::string& job_name, const std::string& marker,
                          const std::string& name, const std::string& out_dir);
  void write_qchem_HL_job_pbs(const std::string& script, int nodes, int ppn,
                              const std::string& job_name, const std::string& marker,
                              const std::string& name, const std::string& out_dir);
  void write_qchem_HL_job_slurm(const std::string& script, int nodes, int ppn,
                                const std::string& job_name, const std::string& marker,
                                const std::string& name, const std::string& out_dir);
  void write_qchem_HL_job_lsf(const std::string& script, int nodes, int ppn,
                              const std::string& job_name, const std::string& marker,
                              const std::string& name, const std::string& out_dir);
  void write_qchem_HL_job_local(const std::string& script, int nodes, int ppn,
                                const std::string& job_name, const std::string& marker,
                                const std::string& name, const std::string& out_dir);
  void write_gaussian_HL_job_array(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::vector<int>& tasks, int ntasks,
                                   const std::string& prefix, const std::string& out_dir);
  void write_gaussian_HL_job_array_pbs(const std::string& script, int nodes, int ppn,
                                       const std::string& job_name, const std::string& marker,
                                       const std::vector<int>& tasks, int ntasks,
                                       const std::string& prefix, const std::string& out_dir);
  void write_gaussian_HL_job_array_slurm(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::vector<int>& tasks, int ntasks,
                                         const std::string& prefix, const std::string& out_dir);
  void write_gaussian_HL_job_array_lsf(const std::string& script, int nodes, int ppn,
                                       const std::string& job_name, const std::string& marker,
                                       const std::vector<int>& tasks, int ntasks,
                                       const std::string& prefix, const std::string& out_dir);
  void write_gaussian_HL_job_array_local(const std::string& script, int nodes, int ppn,
                                         const std::string& job_name, const std::string& marker,
                                         const std::vector<int>& tasks, int ntasks,
                                         const std::string& prefix, const std::string& out_dir);
  void write_orca_HL_job_array(const std::string& script, int nodes, int ppn,
                               const std::string& job_name, const std::string& marker,
                               const std::vector<int>& tasks, int ntasks, const std::string& prefix,
                               const std::string& out_dir);
  void write_orca_HL_job_array_pbs(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::vector<int>& tasks, int ntasks,
                                   const std::string& prefix, const std::string& out_dir);
  void write_orca_HL_job_array_slurm(const std::string& script, int nodes, int ppn,
                                     const std::string& job_name, const std::string& marker,
                                     const std::vector<int>& tasks, int ntasks,
                                     const std::string& prefix, const std::string& out_dir);
  void write_orca_HL_job_array_lsf(const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::vector<int>& tasks, int ntasks,
                                   const std::string& prefix, const std::string& out_dir);
  void write_orca_HL_job_array_local(const std::string& script, int nodes, int ppn,
                                     const std::string& job_name, const std::string& marker,
                                     const std::vector<int>& tasks, int ntasks,
                                     const std::string& prefix, const std::string& out_dir);
  // Transfer integrals of molecule i's pairs per task: `exe` with the MOO arguments when the
  // MOO flag is set, otherwise in batch mode over "mol<i>_<transfer-integral list file>".
  void write_qchem_HL_job_array(const std::string& script, int nodes, int ppn,
                                const std::string& job_name, const std::string& marker,
                                const std::vector<int>& tasks, int ntasks,
                                const std::string& prefix, const std::string& out_dir);
  void write_qchem_HL_job_array_pbs(const std::string& script, int nodes, int ppn,
                                    const std::string& job_name, const std::string& marker,
                                    const std::vector<int>& tasks, int ntasks,
                                    const std::string& prefix, const std::string& out_dir);
  void write_qchem_HL_job_array_slurm(const std::string& script, int nodes, int ppn,
                                      const std::string& job_name, const std::string& marker,
                                      const std::vector<int>& tasks, int ntasks,
                                      const std::string& prefix, const std::string& out_dir);
  void write_qchem_HL_job_array_lsf(const std::string& script, int nodes, int ppn,
                                    const std::string& job_name, const std::string& marker,
                                    const std::vector<int>& tasks, int ntasks,
                                    const std::string& prefix, const std::string& out_dir);
  void write_qchem_HL_job_array_local(const std::string& script, int nodes, int ppn,
                                      const std::string& job_name, const std::string& marker,
                                      const std::vector<int>& tasks, int ntasks,
                                      const std::string& prefix, const std::string& out_dir);

  // The task list of an array job: the indices joined by commas, or "1-<ntasks>" without.
  static std::string job_array_task_list(const std::vector<int>& tasks, int ntasks);

 protected:
  // One job script apart from its body: the directives, the modules and the marker file.
  struct JobFrame {
    std::string script;
    int nodes = 1;
    int ppn = 1;
    std::string job_name;
    std::string marker;
    std::string out_dir;
    bool qc_job = false;  // quantum-chemistry job: loads module_qc instead of module_mpich2
    bool array = false;   // array job over task_ids, or 1..ntasks when that is empty
    std::vector<int> task_ids;
    int ntasks = 0;
  };
  // Frames of a suite program (MPI and suite modules) or a quantum-chemistry job, single or
  // array.
  static JobFrame program_frame(const std::string& script, int nodes, int ppn,
                                const std::string& job_name, const std::string& marker,
                                const std::string& out_dir);
  static JobFrame qc_frame(const std::string& script, int nodes, int ppn,
                           const std::string& job_name, const std::string& marker,
                           const std::string& out_dir);
  static JobFrame program_array_frame(const std::string& script, int nodes, int ppn,
                                      const std::string& job_name, const std::string& marker,
                                      const std::vector<int>& tasks, int ntasks,
                                      const std::string& out_dir);
  static JobFrame qc_array_frame(const std::string& script, int nodes, int ppn,
                                 const std::string& job_name, const std::string& marker,
                                 const std::vector<int>& tasks, int ntasks,
                                 const std::string& out_dir);
  // Each family's script on a given back-end: its frame around its body.
  void write_command_job_on(int backend, const std::string& script, int nodes, int ppn,
                            const std::string& job_name, const std::string& marker,
                            const std::string& command, const std::string& out_dir) const;
  void write_MC_job_array_on(int backend, const std::string& script, int nodes, int ppn,
                             const std::string& job_name, const std::string& marker,
                             const std::vector<int>& tasks, int ntasks, const std::string& command,
                             const std::string& out_dir) const;
  void write_gaussian_RE_job_on(int backend, const std::string& script, int nodes, int ppn,
                                const std::string& job_name, const std::string& marker,
                                const std::string& command, const std::string& out_dir) const;
  void write_RE_mps_job_on(int backend, const std::string& script, int nodes, int ppn,
                           const std::string& job_name, const std::string& marker,
                           const std::string& command, const std::string& out_dir) const;
  void write_orca_RE_job_on(int backend, const std::string& script, int nodes, int ppn,
                            const std::string& job_name, const std::string& marker,
                            const std::string& re_name, const std::string& command,
                            const std::string& out_dir) const;
  void write_qchem_RE_job_on(int backend, const std::string& script, int nodes, int ppn,
                             const std::string& job_name, const std::string& marker,
                             const std::string& re_name, const std::string& command,
                             const std::string& out_dir) const;
  void write_calc_transint_job_on(int backend, const std::string& script, int nodes, int ppn,
                                  const std::string& job_name, const std::string& marker,
                                  const std::string& pair_dir, const std::string& command,
                                  const std::string& out_dir) const;
  void write_calc_transint_job_array_on(int backend, const std::string& script, int nodes, int ppn,
                                        const std::string& job_name, const std::string& marker,
                                        const std::vector<int>& tasks, int ntasks,
                                        const std::string& exe, const std::string& out_dir) const;
  void write_gaussian_HL_job_on(int backend, const std::string& script, int nodes, int ppn,
                                const std::string& job_name, const std::string& marker,
                                const std::string& name, const std::string& out_dir) const;
  void write_orca_HL_job_on(int backend, const std::string& script, int nodes, int ppn,
                            const std::string& job_name, const std::string& marker,
                            const std::string& name, const std::string& out_dir) const;
  void write_qchem_HL_job_on(int backend, const std::string& script, int nodes, int ppn,
                             const std::string& job_name, const std::string& marker,
                             const std::string& name, const std::string& out_dir) const;
  void write_gaussian_HL_job_array_on(int backend, const std::string& script, int nodes, int ppn,
                                      const std::string& job_name, const std::string& marker,
                                      const std::vector<int>& tasks, int ntasks,
                                      const std::string& prefix, const std::string& out_dir) const;
  void write_orca_HL_job_array_on(int backend, const std::string& script, int nodes, int ppn,
                                  const std::string& job_name, const std::string& marker,
                                  const std::vector<int>& tasks, int ntasks,
                                  const std::string& prefix, const std::string& out_dir) const;
  void write_qchem_HL_job_array_on(int backend, const std::string& script, int nodes, int ppn,
                                   const std::string& job_name, const std::string& marker,
                                   const std::vector<int>& tasks, int ntasks,
                                   const std::string& prefix, const std::string& out_dir) const;
  // The full script text for back-end 0..3 around `body`, and writing it to its file.
  std::string job_script_text(int backend, const JobFrame& frame, const std::string& body) const;
  void write_job_script(int backend, const JobFrame& frame, const std::string& body) const;
  // The back-end of the current scheduler type; fatal (at `line`) outside 0..3.
  int job_backend_or_fail(int line) const;
  // Shell text of the running job's id and of its array-task index, per back-end.
  static const char* job_id_var(int backend);
  static const char* job_task_var(int backend);

  int sched_index = 0;
  std::string log_name = "log";
  std::string trans_int_list_file = "trans_int_files.dat";
  int moo_flag = 0;
  int reorg_outer_flag = 0;
  std::string HLdir = "HL";
  std::string REdir = "RE";
  std::string RUNdir = "RUN";
  std::string SCRdir = "scr";
  std::string JOBSdir = "jobs";
  std::string mater_name;
  std::string sched_type = "pbs";
  std::string queue_name = "workq";
  std::string scratch = "/tmp";
  std::string sched_names[4] = {"pbs", "slurm", "lsf", "local"};
  std::string script_exts[4] = {"pbs", "slurm", "lsf", "local"};
  std::string submit_cmds[4] = {"qsub", "sbatch", "bsub < ", "sh"};
  int walltime_days = 0;
  int walltime_hours = 160;
  int walltime_minutes = 0;
  int walltime_seconds = 0;
  bool module_qc_flag = false;
  std::string module_qc = "gaussian/g16.c01-avx2";
  std::string qc_exe = "g16";
  int qc_nodes = 1;
  int qc_ppn = 8;
  std::string unnamed_string;
  std::string nodelist;
  int job_slot_limit = 0;
  std::string chk_formatter = "formchk";
  std::string orca_orbital_converter = "orca_2mkl";
  std::string orbital_file_converter = "kavri_fchk2orb.exe";
  bool module_mpich2_flag = false;
  std::string module_mpich2 = "mpich2/1.5-gnu-7.5.0";
  bool module_kavri_flag = false;
  std::string module_kavri = "kavri/2021B-mpich2";
  bool sched_job_array = true;
  std::string job_workdir = ".";
  bool job_verbose = false;
};
