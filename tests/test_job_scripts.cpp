// Tests of the job-script writers: the site-energy script of each back-end as the input-file
// reader sets it up, array directives, the fixed texts of the quantum-chemistry bodies, the
// progress line and the fatal paths, the shell syntax of the scripts, and local scripts
// actually run under sh.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "kavri_inp.h"
#include "test_support.h"

using test_support::has_line;
using test_support::slurp;

namespace {

// The scheduler type as the input file's key sets it.
void use(KavriInp& jobs, const char* type) {
  jobs.apply_keyword("sched_type", type);
  jobs.parse_scheduling_type();
}

int run(const std::string& command) { return std::system(command.c_str()); }

class JobScripts : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(dir);
    jobs.set_job_scripts_workdir("/calc");
  }
  void TearDown() override { std::filesystem::remove_all(dir); }

  // The text of the script `name` of the current scheduler type.
  std::string text(const std::string& name) {
    return slurp(dir + "/" + name + "." + jobs.get_job_script_ext());
  }

  const std::string dir = ::testing::TempDir() + "kavri-jobs-" + std::to_string(getpid());
  KavriInp jobs;
};

// The input-file reader feeds the site-energy script of each back-end: its SLURM day split,
// its LSF node list with blanks for commas, the node and process counts, the module.
TEST_F(JobScripts, SiteEnergyScriptOfEachBackend) {
  for (const char* v : {"KAVRI_MODULE_QC", "KAVRI_MODULE_KAVRI", "KAVRI_MODULE_MPICH2"})
    unsetenv(v);
  const auto script = [&](const std::string& keys) {
    std::ofstream(dir + "/kavri.inp") << "&transport\n" << keys << "walltime = 51:04:05\n"
                                      << "queue_name = short\nqc_nodes = 2\nqc_ppn = 12\n/\n";
    KavriInp inp;
    inp.read_kavri_inp((dir + "/kavri.inp").c_str(), false);
    inp.parse_scheduling_type();
    inp.set_job_scripts_workdir("/calc");
    inp.write_calc_siteEner_job(dir + "/se", inp.get_run_nodes(), inp.get_run_ppn(), "se",
                                "se.run", "kavri_siteenergy -verbose", "/out");
    return slurp(dir + "/se." + inp.get_job_script_ext());
  };
  const std::string run = R"S(echo "Starting job run at `date`"

kavri_siteenergy -verbose

rm -f /calc/se.run

echo "Ending job run at `date`"

)S";
  // PBS takes the hours as they stand and no node list.
  EXPECT_EQ(script("sched_type = pbs\nnodelist = n1,n2\nmodule_kavri = kavri/t\n"),
            R"S(#PBS -S /bin/bash
#PBS -l walltime=51:04:05
#PBS -l nodes=2:ppn=12
#PBS -q short
#PBS -o /out/stdout-se
#PBS -j oe

echo "Working directory is ${PBS_O_WORKDIR}"
cd ${PBS_O_WORKDIR}

module load kavri/t

)S" + run);
  EXPECT_EQ(script("sched_type = slurm\nnodelist = n1,n2\n"), R"S(#!/bin/bash

#SBATCH --time=2-03:04:05
#SBATCH --nodes=2 --ntasks-per-node=12
#SBATCH -p short
#SBATCH --output=/out/stdout-se
#SBATCH --nodelist=n1,n2

echo "Working directory is $SLURM_SUBMIT_DIR"
cd ${SLURM_SUBMIT_DIR}

)S" + run);
  // LSF: hours and minutes only; slots are nodes times processes per node.
  EXPECT_EQ(script("sched_type = lsf\nnodelist = n1,n2\n"), R"S(#BSUB -W 51:04
#BSUB -J se
#BSUB -oo /out/stdout-se
#BSUB -n 24
#BSUB -R 'span[ptile=12]'
#BSUB -q short
#BSUB -m 'n1 n2'
echo "Working directory is ${LS_SUBCWD}"
cd ${LS_SUBCWD}

)S" + run);
  EXPECT_EQ(script("sched_type = local\nmodule_kavri = kavri/t\n"),
            "#!/bin/sh\n\nmodule load kavri/t\n\n" + run);
  EXPECT_EQ(script("sched_type = lsf\n").find("#BSUB -m"), std::string::npos);
  EXPECT_EQ(script("sched_type = slurm\n").find("--nodelist"), std::string::npos);
}

TEST_F(JobScripts, ArrayDirectivesAndTaskBodies) {
  const auto array = [&](const char* type, const std::vector<int>& tasks, int ntasks) {
    use(jobs, type);
    jobs.write_calc_transint_job_array(dir + "/ta", 1, 8, "ti", "r", tasks, ntasks, "ti.x", "/out");
    return text("ta");
  };
  EXPECT_TRUE(has_line(array("pbs", {3, 7, 9}, 0), "#PBS -t 3,7,9"));
  jobs.apply_keyword("job_slot_limit", "2");
  EXPECT_TRUE(has_line(array("pbs", {}, 5), "#PBS -t 1-5%2"));
  const std::string lsf = array("lsf", {}, 5);
  EXPECT_TRUE(has_line(lsf, "#BSUB -J ti[1-5]%2") && has_line(lsf, "#BSUB -oo stdout-ti-%I"));
  const std::string slurm = array("slurm", {3, 7, 9}, 0);
  for (const char* line : {"#SBATCH --array=3,7,9%2", "#SBATCH --output=stdout-ti-%a",
                           "ti.x -batch mol${SLURM_ARRAY_TASK_ID}_trans_int_files.dat -prefix V "
                           "-postfix ${SLURM_ARRAY_TASK_ID}"})
    EXPECT_TRUE(has_line(slurm, line)) << line;
  jobs.set_job_moo_flag(true);
  EXPECT_TRUE(has_line(array("pbs", {}, 4),
                       "ti.x --mols moo_map.xml --pos1 moo_mol${PBS_ARRAYID}_uc.pos --pos2 "
                       "moo_mol${PBS_ARRAYID}_nei.pos --postfix ${PBS_ARRAYID}"));

  // The quantum-chemistry bodies keep their historical texts: the single ORCA job has blanks
  // around "=" and returns to "${DataDIR}"; SLURM Gaussian arrays mark a failed task with
  // the PBS task variable.
  jobs.write_orca_HL_job(dir + "/o", 1, 8, "o", "o.run", "m1", "/out");
  EXPECT_TRUE(has_line(text("o"), "DataDir = /calc/HL"));
  EXPECT_TRUE(has_line(text("o"), "    cd ${DataDIR}"));
  use(jobs, "slurm");
  jobs.write_gaussian_HL_job_array(dir + "/ga", 1, 8, "ga", "ga.run", {}, 3, "mol", "/out");
  EXPECT_TRUE(has_line(text("ga"), "        touch /calc/HL/ERROR-HL_mol-${PBS_ARRAYID}"));
}

// The header goes to standard output, the message to standard error; the status is -1. Every
// dispatcher takes its back-end from job_backend with its own line (no scheduler name gives a
// type outside 0..3).
TEST_F(JobScripts, FatalPaths) {
  const std::string unknown = "Unknown job scheduling type!\n", missing = dir + "/none/job";
  EXPECT_EXIT((std::fflush(stdout), dup2(2, 1), job_backend(4, job_scripts_lines::SCHED_SITEENER)),
              testing::ExitedWithCode(255),
              testing::Eq("\nERROR  transport : job_scripts : line 131 : \n" + unknown));
  EXPECT_EXIT((dup2(open("/dev/null", O_WRONLY), 1), job_backend(-1, 0)),
              testing::ExitedWithCode(255), testing::Eq(unknown));
  // The progress words ("gaussian" for every kind of job, no line end) come before the file
  // is opened.
  use(jobs, "lsf");
  jobs.set_job_scripts_verbose(true);
  EXPECT_EXIT(
      (std::fflush(stdout), dup2(2, 1), jobs.write_MC_job(missing, 1, 1, "j", "m", "c", ".")),
      testing::ExitedWithCode(255),
      testing::Eq("Writing gaussian job LSF script " + missing +
                  ".lsf...\nERROR  "
                  "transport : job_scripts : line 64 : \nFailed to open output file " +
                  missing + ".lsf\n"));
}

// Every family on every back-end, through its dispatcher and through its back-end writer,
// writes the kept script of tests/data/job_scripts (module, MOO and node-list settings on, so
// that every optional line appears). A missing kept file is written to the temporary
// directory for review.
TEST_F(JobScripts, EveryFamilyOnEveryBackendMatchesItsKeptScript) {
  const std::string kept = std::string(KAVRI_TEST_DATA) + "/job_scripts/";
  jobs.set_environment_module_gau_flag(true);
  jobs.set_environment_module_kavri_flag(true);
  jobs.set_environment_module_mpich2_gnu_flag(true);
  jobs.set_job_moo_flag(true);
  // Each family's dispatcher, then its PBS, SLURM, LSF and local writers.
  using J = Jobscript;
  using Frame7 = void (J::*)(const std::string&, int, int, const std::string&, const std::string&,
                             const std::string&, const std::string&);
  using Frame8 = void (J::*)(const std::string&, int, int, const std::string&, const std::string&,
                             const std::string&, const std::string&, const std::string&);
  using Array = void (J::*)(const std::string&, int, int, const std::string&, const std::string&,
                            const std::vector<int>&, int, const std::string&, const std::string&);
  // One command (or molecule name) after the frame arguments.
  const struct {
    const char* name;
    Frame7 w[5];
    const char* arg;
  } sevens[] = {
      {"siteEner",
       {&J::write_calc_siteEner_job, &J::write_calc_siteEner_job_pbs,
        &J::write_calc_siteEner_job_slurm, &J::write_calc_siteEner_job_lsf,
        &J::write_calc_siteEner_job_local},
       "kavri_siteenergy"},
      {"MC",
       {&J::write_MC_job, &J::write_MC_job_pbs, &J::write_MC_job_slurm, &J::write_MC_job_lsf,
        &J::write_MC_job_local},
       "prog -x"},
      {"ME",
       {&J::write_ME_job, &J::write_ME_job_pbs, &J::write_ME_job_slurm, &J::write_ME_job_lsf,
        &J::write_ME_job_local},
       "prog -x"},
      {"mob",
       {&J::write_calc_mob_job, &J::write_calc_mob_job_pbs, &J::write_calc_mob_job_slurm,
        &J::write_calc_mob_job_lsf, &J::write_calc_mob_job_local},
       "prog -x"},
      {"getRE",
       {&J::write_calc_getRE_job, &J::write_calc_getRE_job_pbs, &J::write_calc_getRE_job_slurm,
        &J::write_calc_getRE_job_lsf, &J::write_calc_getRE_job_local},
       "prog -x"},
      {"gaussianRE",
       {&J::write_gaussian_RE_job, &J::write_gaussian_RE_job_pbs, &J::write_gaussian_RE_job_slurm,
        &J::write_gaussian_RE_job_lsf, &J::write_gaussian_RE_job_local},
       "prog -x"},
      {"REmps",
       {&J::write_RE_mps_job, &J::write_RE_mps_job_pbs, &J::write_RE_mps_job_slurm,
        &J::write_RE_mps_job_lsf, &J::write_RE_mps_job_local},
       "prog -x"},
      {"gaussianHL",
       {&J::write_gaussian_HL_job, &J::write_gaussian_HL_job_pbs, &J::write_gaussian_HL_job_slurm,
        &J::write_gaussian_HL_job_lsf, &J::write_gaussian_HL_job_local},
       "mol1"},
      {"orcaHL",
       {&J::write_orca_HL_job, &J::write_orca_HL_job_pbs, &J::write_orca_HL_job_slurm,
        &J::write_orca_HL_job_lsf, &J::write_orca_HL_job_local},
       "mol1"},
      {"qchemHL",
       {&J::write_qchem_HL_job, &J::write_qchem_HL_job_pbs, &J::write_qchem_HL_job_slurm,
        &J::write_qchem_HL_job_lsf, &J::write_qchem_HL_job_local},
       "mol1"},
  };
  // A name (molecule or pair directory), then the command.
  const struct {
    const char* name;
    Frame8 w[5];
  } eights[] = {
      {"orcaRE",
       {&J::write_orca_RE_job, &J::write_orca_RE_job_pbs, &J::write_orca_RE_job_slurm,
        &J::write_orca_RE_job_lsf, &J::write_orca_RE_job_local}},
      {"qchemRE",
       {&J::write_qchem_RE_job, &J::write_qchem_RE_job_pbs, &J::write_qchem_RE_job_slurm,
        &J::write_qchem_RE_job_lsf, &J::write_qchem_RE_job_local}},
      {"transint",
       {&J::write_calc_transint_job, &J::write_calc_transint_job_pbs,
        &J::write_calc_transint_job_slurm, &J::write_calc_transint_job_lsf,
        &J::write_calc_transint_job_local}},
  };
  // Arrays: the task list or count, then the program or molecule prefix.
  const struct {
    const char* name;
    Array w[5];
    std::vector<int> tasks;
    int ntasks;
  } arrays[] = {
      {"transintArray",
       {&J::write_calc_transint_job_array, &J::write_calc_transint_job_array_pbs,
        &J::write_calc_transint_job_array_slurm, &J::write_calc_transint_job_array_lsf,
        &J::write_calc_transint_job_array_local},
       {3, 7},
       0},
      {"gaussianHLArray",
       {&J::write_gaussian_HL_job_array, &J::write_gaussian_HL_job_array_pbs,
        &J::write_gaussian_HL_job_array_slurm, &J::write_gaussian_HL_job_array_lsf,
        &J::write_gaussian_HL_job_array_local},
       {},
       5},
      {"orcaHLArray",
       {&J::write_orca_HL_job_array, &J::write_orca_HL_job_array_pbs,
        &J::write_orca_HL_job_array_slurm, &J::write_orca_HL_job_array_lsf,
        &J::write_orca_HL_job_array_local},
       {},
       5},
      {"qchemHLArray",
       {&J::write_qchem_HL_job_array, &J::write_qchem_HL_job_array_pbs,
        &J::write_qchem_HL_job_array_slurm, &J::write_qchem_HL_job_array_lsf,
        &J::write_qchem_HL_job_array_local},
       {},
       5},
  };
  const std::string o = "/out";
  const char* const types[] = {"pbs", "slurm", "lsf", "local"};
  // Writes `name` through the dispatcher and through back-end b's writer (write(k): writer k,
  // 0 the dispatcher), and compares both with the kept script.
  auto check = [&](const std::string& name, int b,
                   const std::function<void(int, const std::string&)>& write) {
    const std::string direct = dir + "/" + name + "_direct", chosen = dir + "/" + name;
    write(b + 1, direct);
    write(0, chosen);
    const std::string ext = std::string(".") + types[b];
    const std::string text = slurp(chosen + ext);
    EXPECT_EQ(slurp(direct + ext), text) << name << ext;
    if (!std::filesystem::exists(kept + name + ext)) {
      std::filesystem::copy_file(chosen + ext, ::testing::TempDir() + name + ext,
                                 std::filesystem::copy_options::overwrite_existing);
      ADD_FAILURE() << "no kept script " << name << ext << "; written to " << ::testing::TempDir();
      return;
    }
    EXPECT_EQ(text, slurp(kept + name + ext)) << name << ext;
  };
  for (int b = 0; b < 4; ++b) {
    use(jobs, types[b]);
    for (const auto& f : sevens) {
      const bool se = std::string(f.name) == "siteEner";
      check(f.name, b, [&](int k, const std::string& file) {
        (jobs.*f.w[k])(file, 2, 4, se ? "se" : "j", se ? "se.run" : "j.run", f.arg, o);
      });
    }
    for (const auto& f : eights)
      check(f.name, b, [&](int k, const std::string& file) {
        (jobs.*f.w[k])(file, 2, 4, "j", "j.run", "m1", "prog -x", o);
      });
    for (const auto& f : arrays)
      check(f.name, b, [&](int k, const std::string& file) {
        (jobs.*f.w[k])(file, 2, 4, "j", "j.run", f.tasks, f.ntasks, "mol", o);
      });
  }
}

// bash finds no syntax error in the bodies of every back-end, nor shellcheck a warning beyond
// the texts the ORCA HOMO/LUMO and Q-Chem RE scripts must keep (" = " assignments, the unset
// ${DataDIR}). A job goes on after a failed cd so that it still removes its marker, hence
// SC2164 is not checked.
TEST_F(JobScripts, ScriptsAreValidShell) {
  const bool shellcheck = run("command -v shellcheck >/dev/null 2>&1") == 0;
  const std::string d = dir + "/", out = "/out";
  for (const char* type : {"pbs", "slurm", "lsf", "local"}) {
    use(jobs, type);
    jobs.write_calc_siteEner_job(d + "se", 1, 4, "se", "se.run", "kavri_siteenergy", out);
    jobs.write_orca_RE_job(d + "ore", 1, 4, "ore", "ore.run", "m1", "orca re.inp", out);
    jobs.write_qchem_RE_job(d + "qre", 1, 4, "qre", "qre.run", "m1", "qchem re.inp", out);
    jobs.write_calc_transint_job_array(d + "tia", 1, 4, "tia", "r", {3, 7}, 0, "kavri_ti", out);
    jobs.write_orca_HL_job(d + "ohl", 1, 4, "ohl", "ohl.run", "mol1", out);
    jobs.write_gaussian_HL_job_array(d + "ghla", 1, 4, "ghla", "r", {3, 7}, 0, "mol", out);
    jobs.write_orca_HL_job_array(d + "ohla", 1, 4, "ohla", "r", {}, 4, "mol", out);
    jobs.write_qchem_HL_job_array(d + "qhla", 1, 4, "qhla", "r", {}, 4, "mol", out);
    for (const std::string name : {"se", "ore", "qre", "tia", "ohl", "ghla", "ohla", "qhla"}) {
      const std::string file = d + name + "." + jobs.get_job_script_ext();
      EXPECT_EQ(run("bash -n " + file), 0) << slurp(file);
      const std::string excluded = name == "ohl" || name == "qre" ? ",SC2283,SC2154 " : " ";
      EXPECT_TRUE(!shellcheck ||
                  run("shellcheck -s bash -S warning -e SC2164" + excluded + file) == 0);
    }
  }
  if (!shellcheck) GTEST_SKIP() << "shellcheck not installed; only bash -n was checked";
}

// A local script runs its command, then removes the marker in the work directory; a local
// array runs its command once per task.
TEST_F(JobScripts, LocalScriptsRunUnderSh) {
  use(jobs, "local");
  jobs.set_job_scripts_workdir(dir);
  std::ofstream(dir + "/se.run") << "running\n";
  std::ofstream(dir + "/record.sh") << "echo \"$*\" >> tasks.txt\n";
  jobs.write_calc_siteEner_job(dir + "/se", 1, 1, "se", "se.run", "echo $((6 * 7)) > answer", ".");
  jobs.write_calc_transint_job_array(dir + "/ta", 1, 1, "ta", "r", {2, 5}, 0, "sh record.sh", ".");
  jobs.write_calc_transint_job_array(dir + "/tb", 1, 1, "tb", "r", {}, 2, "sh record.sh", ".");
  ASSERT_EQ(run("cd " + dir + " && sh se.local >log && sh ta.local >log && sh tb.local >log"), 0);
  EXPECT_EQ(slurp(dir + "/answer"), "42\n");
  EXPECT_FALSE(std::filesystem::exists(dir + "/se.run")) << "marker file not removed";
  EXPECT_EQ(slurp(dir + "/tasks.txt"),
            "-batch mol2_trans_int_files.dat -prefix V -postfix 2\n"
            "-batch mol5_trans_int_files.dat -prefix V -postfix 5\n"
            "-batch mol1_trans_int_files.dat -prefix V -postfix 1\n"
            "-batch mol2_trans_int_files.dat -prefix V -postfix 2\n");
}

}  // namespace
