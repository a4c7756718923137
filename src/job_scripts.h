// Jobscript: the batch-scheduler settings of the model object (scheduler kind, queue,
// nodes, wall time, environment modules, executables, working-directory names).
// The job-script writers for PBS, SLURM, LSF and a local shell build on these settings.
#pragma once
#include <string>

class Jobscript {
 public:
  Jobscript();

  void parse_scheduling_type();
  int get_job_sched_type() const { return sched_index; }
  std::string get_job_script_ext() const;
  int get_run_nodes() const { return qc_nodes; }
  int get_run_ppn() const { return qc_ppn; }
  std::string getFileName(const std::string& path) const;

  void set_environment_module_gau_flag(bool on) { module_qc_flag = on; }
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

 protected:
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
};
