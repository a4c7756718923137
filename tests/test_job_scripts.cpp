// Tests of the job-script writers: the site-energy script of each back-end line by line, the
// settings that flow into the directives (also through the input-file reader), array
// directives, the fixed texts of the other families, the progress line, the fatal paths,
// shell syntax of every script, and a local script actually run under sh.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "kavri_inp.h"

namespace {

// Opens the scheduler settings to the tests.
class Jobs : public Jobscript {
 public:
  using Jobscript::job_slot_limit, Jobscript::moo_flag, Jobscript::module_kavri_flag;
  using Jobscript::module_mpich2_flag, Jobscript::module_qc_flag, Jobscript::nodelist;
  using Jobscript::queue_name, Jobscript::sched_index, Jobscript::sched_type;
  using Jobscript::walltime_days, Jobscript::walltime_hours, Jobscript::walltime_minutes;
  using Jobscript::walltime_seconds;

  void use(const char* type) {
    sched_type = type;
    parse_scheduling_type();
  }
};

std::string slurp(const std::string& path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool has_line(const std::string& text, const std::string& line) {
  return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

class JobScripts : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/kavri-jobs-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir = tmpl;
    jobs.walltime_days = 2;
    jobs.walltime_hours = 3;
    jobs.walltime_minutes = 4;
    jobs.walltime_seconds = 5;
    jobs.queue_name = "short";
    jobs.set_job_scripts_workdir("/calc");
  }
  void TearDown() override { std::system(("rm -rf " + dir).c_str()); }

  // The site-energy script of the current scheduler type, as written to its file.
  std::string site_energy(const std::string& command = "kavri_siteenergy -verbose") {
    jobs.write_calc_siteEner_job(dir + "/se", 2, 12, "se", "se.run", command, "/out");
    return slurp(dir + "/se." + jobs.get_job_script_ext());
  }

  std::string dir;
  Jobs jobs;
};

// ---------------------------------------------------------------- site-energy scripts

TEST_F(JobScripts, PbsSiteEnergyScriptDropsDaysAndNodeList) {
  jobs.use("pbs");
  jobs.nodelist = "n1,n2";
  jobs.module_mpich2_flag = true;
  jobs.module_kavri_flag = true;
  EXPECT_EQ(site_energy(), R"S(#PBS -S /bin/bash
#PBS -l walltime=3:04:05
#PBS -l nodes=2:ppn=12
#PBS -q short
#PBS -o /out/stdout-se
#PBS -j oe

echo "Working directory is ${PBS_O_WORKDIR}"
cd ${PBS_O_WORKDIR}

module load mpich2/1.5-gnu-7.5.0

module load kavri/2021B-mpich2

echo "Starting job run at `date`"

kavri_siteenergy -verbose

rm -f /calc/se.run

echo "Ending job run at `date`"

)S");
  // Hours are written as they stand, however many.
  jobs.walltime_hours = 160;
  EXPECT_TRUE(has_line(site_energy(), "#PBS -l walltime=160:04:05"));
}

TEST_F(JobScripts, SlurmSiteEnergyScriptWithAndWithoutNodeList) {
  jobs.use("slurm");
  jobs.nodelist = "n1,n2";
  jobs.module_kavri_flag = true;
  EXPECT_EQ(site_energy(), R"S(#!/bin/bash

#SBATCH --time=2-03:04:05
#SBATCH --nodes=2 --ntasks-per-node=12
#SBATCH -p short
#SBATCH --output=/out/stdout-se
#SBATCH --nodelist=n1,n2

echo "Working directory is $SLURM_SUBMIT_DIR"
cd ${SLURM_SUBMIT_DIR}

module load kavri/2021B-mpich2

echo "Starting job run at `date`"

kavri_siteenergy -verbose

rm -f /calc/se.run

echo "Ending job run at `date`"

)S");
  jobs.nodelist.clear();
  jobs.module_kavri_flag = false;
  const std::string text = site_energy();
  EXPECT_EQ(text.find("--nodelist"), std::string::npos);
  EXPECT_EQ(text.find("module"), std::string::npos);
  EXPECT_NE(text.find("#SBATCH --output=/out/stdout-se\n\necho"), std::string::npos);
}

TEST_F(JobScripts, LsfSiteEnergyScriptCountsSlotsAndKeepsHoursMinutes) {
  jobs.use("lsf");
  jobs.nodelist = "n1 n2";
  EXPECT_EQ(site_energy(), R"S(#BSUB -W 3:04
#BSUB -J se
#BSUB -oo /out/stdout-se
#BSUB -n 24
#BSUB -R 'span[ptile=12]'
#BSUB -q short
#BSUB -m 'n1 n2'
echo "Working directory is ${LS_SUBCWD}"
cd ${LS_SUBCWD}

echo "Starting job run at `date`"

kavri_siteenergy -verbose

rm -f /calc/se.run

echo "Ending job run at `date`"

)S");
  jobs.nodelist.clear();
  EXPECT_EQ(site_energy().find("#BSUB -m"), std::string::npos);
}

TEST_F(JobScripts, LocalSiteEnergyScriptLoadsOnlyItsModule) {
  jobs.use("local");
  jobs.module_mpich2_flag = true;
  jobs.module_kavri_flag = true;
  EXPECT_EQ(site_energy(), R"S(#!/bin/sh

module load kavri/2021B-mpich2

echo "Starting job run at `date`"

kavri_siteenergy -verbose

rm -f /calc/se.run

echo "Ending job run at `date`"

)S");
}

// The reader's adjustments show in the scripts: the SLURM day split (only for "slurm" in
// lower case) and the LSF node list with blanks for commas.
TEST_F(JobScripts, SettingsReadFromInputFileReachTheDirectives) {
  for (const char* var : {"KAVRI_JOB_SCHED", "KAVRI_JOB_QUEUE", "KAVRI_QC_NODES", "KAVRI_QC_PPN",
                          "KAVRI_MODULE_QC", "KAVRI_MODULE_KAVRI", "KAVRI_MODULE_MPICH2"})
    unsetenv(var);
  struct Case {
    const char* keys;
    const char* ext;
    std::vector<std::string> lines;
  };
  const Case cases[] = {
      {"sched_type = slurm\nwalltime_hour = 30\nqueue_name = debug\nqc_nodes = 3\nqc_ppn = 4\n",
       "slurm",
       {"#SBATCH --time=1-06:00:00", "#SBATCH -p debug", "#SBATCH --nodes=3 --ntasks-per-node=4"}},
      {"sched_type = SLURM\nwalltime = 30:15:00\n", "slurm", {"#SBATCH --time=0-30:15:00"}},
      {"sched_type = lsf\nnodelist = a,b,c\nwalltime = 7:30:09\nmodule_kavri = kavri/test\n",
       "lsf",
       {"#BSUB -m 'a b c'", "#BSUB -W 7:30", "module load kavri/test"}},
  };
  for (const Case& c : cases) {
    const std::string inp = dir + "/kavri.inp";
    std::ofstream(inp) << "&transport\n" << c.keys << "/\n";
    KavriInp reader;
    reader.read_kavri_inp(inp.c_str(), false);
    reader.parse_scheduling_type();
    reader.write_calc_siteEner_job(dir + "/read", reader.get_run_nodes(), reader.get_run_ppn(),
                                   "se", "m", "run", ".");
    const std::string text = slurp(dir + "/read." + c.ext);
    for (const std::string& line : c.lines) EXPECT_TRUE(has_line(text, line)) << c.keys << line;
  }
}

// ---------------------------------------------------------------- arrays and other families

TEST_F(JobScripts, ArrayTaskListsAndDirectives) {
  EXPECT_EQ(Jobscript::job_array_task_list({3, 7, 9}, 99), "3,7,9");
  EXPECT_EQ(Jobscript::job_array_task_list({4}, 0), "4");
  EXPECT_EQ(Jobscript::job_array_task_list({}, 5), "1-5");

  const auto array = [&](const char* type, const std::vector<int>& tasks, int ntasks) {
    jobs.use(type);
    jobs.write_calc_transint_job_array(dir + "/ta", 1, 8, "ti", "ti.run", tasks, ntasks, "ti.x",
                                       "/out");
    return slurp(dir + "/ta." + jobs.get_job_script_ext());
  };
  EXPECT_TRUE(has_line(array("pbs", {3, 7, 9}, 0), "#PBS -t 3,7,9"));
  jobs.job_slot_limit = 2;
  EXPECT_TRUE(has_line(array("pbs", {}, 5), "#PBS -t 1-5%2"));
  std::string slurm = array("slurm", {3, 7, 9}, 0);
  EXPECT_TRUE(has_line(slurm, "#SBATCH --array=3,7,9%2"));
  EXPECT_TRUE(has_line(slurm, "#SBATCH --output=stdout-ti-%a"));
  EXPECT_EQ(slurm.find("/out/stdout"), std::string::npos);
  EXPECT_TRUE(has_line(slurm, "ti.x -batch mol${SLURM_ARRAY_TASK_ID}_trans_int_files.dat "
                              "-prefix V -postfix ${SLURM_ARRAY_TASK_ID}"));
  const std::string lsf = array("lsf", {}, 5);
  EXPECT_TRUE(has_line(lsf, "#BSUB -J ti[1-5]%2"));
  EXPECT_TRUE(has_line(lsf, "#BSUB -oo stdout-ti-%I"));
  jobs.job_slot_limit = 0;
  EXPECT_TRUE(has_line(array("slurm", {}, 4), "#SBATCH --array=1-4"));
  jobs.moo_flag = 1;
  EXPECT_TRUE(has_line(array("pbs", {}, 4),
                       "ti.x --mols moo_map.xml --pos1 moo_mol${PBS_ARRAYID}_uc.pos --pos2 "
                       "moo_mol${PBS_ARRAYID}_nei.pos --postfix ${PBS_ARRAYID}"));
}

TEST_F(JobScripts, QuantumChemistryBodiesKeepTheirFixedTexts) {
  jobs.use("pbs");
  jobs.module_qc_flag = true;
  jobs.write_gaussian_HL_job(dir + "/g", 1, 8, "g", "g.run", "mol1", "/out");
  const std::string g = slurp(dir + "/g.pbs");
  for (const char* line :
       {"module load gaussian/g16.c01-avx2", "DataDir=/calc/HL",
        "python /calc/jobs/gaussian_log_check.py mol1", "if [ -f mol1.ok ]; then",
        "    echo \"Normal termination of Gaussian detected, skip the current Gaussian run.\"",
        "    g16 mol1.com", "        formchk mol1.chk",
        "        kavri_fchk2orb.exe mol1.fchk -orb -xyz",
        "        touch /calc/HL/ERROR-HL_mol1"})
    EXPECT_TRUE(has_line(g, line)) << line;

  // The ORCA single job keeps its blanks around "=" and its "${DataDIR}"; the array does not.
  jobs.write_orca_HL_job(dir + "/o", 1, 8, "o", "o.run", "mol1", "/out");
  const std::string o = slurp(dir + "/o.pbs");
  for (const char* line : {"DataDir = /calc/HL", "    SCRDIR = /tmp/kavri-HL-$PBS_JOBID",
                           "    if [ ! -a $SCRDIR ]; then", "        mkdir -p $SCRDIR",
                           "    g16 mol1.inp  > mol1.out", "    orca_2mkl mol1",
                           "        echo \"Copy data back to HL directory...\"",
                           "    cd ${DataDIR}", "    rm -rf $SCRDIR"})
    EXPECT_TRUE(has_line(o, line)) << line;
  jobs.write_orca_HL_job_array(dir + "/oa", 1, 8, "oa", "oa.run", {1, 2}, 0, "mol", "/out");
  const std::string oa = slurp(dir + "/oa.pbs");
  EXPECT_NE(oa.find("\nSCRDIR=/tmp/kavri-HL-$PBS_JOBID-${PBS_ARRAYID}\n\n"), std::string::npos);
  EXPECT_TRUE(has_line(oa, "    cd ${DataDir}"));
  EXPECT_EQ(oa.find("DataDIR"), std::string::npos);

  jobs.write_qchem_HL_job(dir + "/q", 1, 6, "q", "q.run", "mol1", "/out");
  const std::string q = slurp(dir + "/q.pbs");
  EXPECT_NE(q.find("\n    g16 -nt 6 mol1.inp > mol1.out\n\n"), std::string::npos);
  EXPECT_TRUE(has_line(q, "    echo \"Normal termination of Q-Chem detected, skip the current "
                          "Q-Chem run.\""));
  jobs.write_qchem_RE_job(dir + "/qr", 1, 6, "qr", "qr.run", "m1", "qchem re", "/out");
  const std::string qr = slurp(dir + "/qr.pbs");
  EXPECT_TRUE(has_line(qr, "SCRDIR=/tmp/kavri-RE-m1-$PBS_JOBID"));
  EXPECT_NE(qr.find("cd ${DataDIR}\nrm -rf $SCRDIR\n"), std::string::npos);

  // SLURM Gaussian arrays run each task under its SLURM index but mark failures with the
  // PBS one.
  jobs.use("slurm");
  jobs.write_gaussian_HL_job_array(dir + "/ga", 1, 8, "ga", "ga.run", {}, 3, "mol", "/out");
  const std::string ga = slurp(dir + "/ga.slurm");
  EXPECT_TRUE(has_line(ga, "    g16 mol-${SLURM_ARRAY_TASK_ID}.com"));
  EXPECT_TRUE(has_line(ga, "        touch /calc/HL/ERROR-HL_mol-${PBS_ARRAYID}"));
}

// ---------------------------------------------------------------- file, progress line, errors

TEST_F(JobScripts, FileExtensionAndProgressLineFollowTheSchedulerType) {
  const char* types[] = {"pbs", "slurm", "lsf", "local", "nonsense"};
  const char* exts[] = {"pbs", "slurm", "lsf", "local", "pbs"};
  const char* names[] = {"PBS", "SLURM", "LSF", "LOCAL", "PBS"};
  jobs.set_job_scripts_verbose(true);
  for (int i = 0; i < 5; ++i) {
    jobs.use(types[i]);
    testing::internal::CaptureStdout();
    jobs.write_MC_job(dir + "/mc", 1, 1, "mc", "m", "run", ".");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              std::string("Writing gaussian job ") + names[i] + " script " + dir + "/mc." +
                  exts[i] + "...\n");
    EXPECT_FALSE(slurp(dir + "/mc." + exts[i]).empty()) << types[i];
  }
  jobs.set_job_scripts_verbose(false);
  testing::internal::CaptureStdout();
  jobs.write_MC_job(dir + "/mc", 1, 1, "mc", "m", "run", ".");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

// In a death test's child: standard output goes where the parent reads, standard error
// nowhere, so a match proves the stream as well as the text.
void stdout_only() {
  std::fflush(stdout);
  dup2(dup(STDERR_FILENO), STDOUT_FILENO);
  dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
}

// The other way round: standard output goes nowhere, standard error is read.
void stderr_only() {
  std::fflush(stdout);
  dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
}

TEST_F(JobScripts, FatalPathsReportTheirLineAndEndWithStatusMinusOne) {
  jobs.sched_index = 4;
  EXPECT_EXIT((stderr_only(), jobs.write_calc_siteEner_job(dir + "/x", 1, 1, "j", "m", "c", ".")),
              testing::ExitedWithCode(255), "^Unknown job scheduling type!\n$");
  EXPECT_EXIT((stdout_only(), jobs.write_calc_siteEner_job(dir + "/x", 1, 1, "j", "m", "c", ".")),
              testing::ExitedWithCode(255), "^\nERROR  transport : job_scripts : line 131 : \n$");
  EXPECT_EXIT((stdout_only(), jobs.write_gaussian_HL_job_array(dir + "/x", 1, 1, "j", "m", {}, 2,
                                                               "p", ".")),
              testing::ExitedWithCode(255), "^\nERROR  transport : job_scripts : line 352 : \n$");
  jobs.sched_index = -1;
  EXPECT_EXIT((stderr_only(), jobs.write_orca_RE_job(dir + "/x", 1, 1, "j", "m", "r", "c", ".")),
              testing::ExitedWithCode(255), "^Unknown job scheduling type!\n$");

  jobs.use("lsf");
  const std::string missing = dir + "/no-such-dir/job";
  EXPECT_EXIT((stderr_only(), jobs.write_calc_siteEner_job(missing, 1, 1, "j", "m", "c", ".")),
              testing::ExitedWithCode(255), "^Failed to open output file " + missing + ".lsf\n$");
  EXPECT_EXIT((stdout_only(), jobs.write_calc_siteEner_job_pbs(missing, 1, 1, "j", "m", "c", ".")),
              testing::ExitedWithCode(255), "^\nERROR  transport : job_scripts : line 64 : \n$");
}

// ---------------------------------------------------------------- the scripts as shell code

int run(const std::string& command) {
  const int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Writes every family's script for one back-end into `dir`; returns the file names.
std::vector<std::string> write_all_families(Jobs& j, const std::string& dir) {
  const std::string d = dir + "/";
  const std::vector<int> tasks = {3, 7, 9};
  j.write_calc_siteEner_job(d + "se", 1, 4, "se", "se.run", "kavri_siteenergy -verbose", "/out");
  j.write_MC_job(d + "mc", 1, 4, "mc", "mc.run", "kavri_mc", "/out");
  j.write_ME_job(d + "me", 1, 4, "me", "me.run", "kavri_me", "/out");
  j.write_calc_mob_job(d + "mob", 1, 4, "mob", "mob.run", "kavri_mob", "/out");
  j.write_calc_getRE_job(d + "getre", 1, 4, "getre", "getre.run", "kavri_getre", "/out");
  j.write_gaussian_RE_job(d + "gre", 1, 4, "gre", "gre.run", "cd ${DataDir} && g16 re.com", "/out");
  j.write_RE_mps_job(d + "mps", 1, 4, "mps", "mps.run", "kavri_re_mps", "/out");
  j.write_orca_RE_job(d + "ore", 1, 4, "ore", "ore.run", "m1", "orca re.inp > re.out", "/out");
  j.write_qchem_RE_job(d + "qre", 1, 4, "qre", "qre.run", "m1", "qchem re.inp re.out", "/out");
  j.write_calc_transint_job(d + "ti", 1, 4, "ti", "ti.run", "pair_1_2", "kavri_ti", "/out");
  j.write_calc_transint_job_array(d + "tia", 1, 4, "tia", "tia.run", tasks, 0, "kavri_ti", "/out");
  j.write_gaussian_HL_job(d + "ghl", 1, 4, "ghl", "ghl.run", "mol1", "/out");
  j.write_orca_HL_job(d + "ohl", 1, 4, "ohl", "ohl.run", "mol1", "/out");
  j.write_qchem_HL_job(d + "qhl", 1, 4, "qhl", "qhl.run", "mol1", "/out");
  j.write_gaussian_HL_job_array(d + "ghla", 1, 4, "ghla", "ghla.run", tasks, 0, "mol", "/out");
  j.write_orca_HL_job_array(d + "ohla", 1, 4, "ohla", "ohla.run", {}, 4, "mol", "/out");
  j.write_qchem_HL_job_array(d + "qhla", 1, 4, "qhla", "qhla.run", tasks, 0, "mol", "/out");
  std::vector<std::string> files;
  for (const char* n : {"se", "mc", "me", "mob", "getre", "gre", "mps", "ore", "qre", "ti", "tia",
                        "ghl", "ohl", "qhl", "ghla", "ohla", "qhla"})
    files.push_back(d + n + "." + j.get_job_script_ext());
  return files;
}

// shellcheck findings that are not faults of the writers: the required texts of the single
// ORCA script ("DataDir = ", "SCRDIR = ", "${DataDIR}" and the DataDir it leaves unset) and
// of the Q-Chem RE script ("${DataDIR}"). Warnings about "cd" without "|| exit" are not
// checked at all: a job goes on after a failed cd so that it still removes its marker file.
bool literal_finding(const std::string& file, const std::string& code, const std::string& line) {
  if (code == "SC2283") return line.find(" = ") != std::string::npos;
  if (code == "SC2154")
    return line.find("DataDIR") != std::string::npos ||
           (file.find("/ohl.") != std::string::npos && line.find("DataDir") != std::string::npos);
  return false;
}

TEST_F(JobScripts, EveryScriptIsValidShellAndPassesShellcheck) {
  const bool shellcheck = run("command -v shellcheck >/dev/null 2>&1") == 0;
  jobs.nodelist = "n1";
  jobs.job_slot_limit = 2;
  jobs.module_qc_flag = jobs.module_kavri_flag = jobs.module_mpich2_flag = true;
  for (const char* type : {"pbs", "slurm", "lsf", "local"}) {
    for (int moo = 0; moo < 2; ++moo) {
      jobs.use(type);
      jobs.moo_flag = moo;
      for (const std::string& file : write_all_families(jobs, dir)) {
        EXPECT_EQ(run("bash -n " + file), 0) << slurp(file);
        if (!shellcheck) continue;
        const std::string report = file + ".sc";
        run("shellcheck -s bash -S warning -e SC2164 -f gcc " + file + " > " + report);
        std::ifstream findings(report);
        std::vector<std::string> lines;
        std::istringstream script(slurp(file));
        for (std::string l; std::getline(script, l);) lines.push_back(l);
        for (std::string f; std::getline(findings, f);) {
          // file:line:column: severity: message [SCnnnn]
          const std::size_t a = f.find(':', file.size()), b = f.find(':', a + 1);
          const int n = std::atoi(f.substr(a + 1, b - a - 1).c_str());
          const std::string code = f.substr(f.rfind('[') + 1, 6);
          const std::string text =
              n >= 1 && n <= static_cast<int>(lines.size()) ? lines[n - 1] : "";
          EXPECT_TRUE(literal_finding(file, code, text)) << f << "\n  " << text;
        }
      }
    }
  }
  if (!shellcheck) GTEST_SKIP() << "shellcheck not installed; only bash -n was checked";
}

// A local script runs its command, then removes the marker in the work directory; a local
// array runs its command once per listed task.
TEST_F(JobScripts, LocalScriptsRunUnderSh) {
  jobs.use("local");
  jobs.set_job_scripts_workdir(dir);
  std::ofstream(dir + "/se.run") << "running\n";
  jobs.write_calc_siteEner_job(dir + "/se", 1, 1, "se", "se.run", "echo \"$((6 * 7))\" > answer",
                               "/out");
  ASSERT_EQ(run("cd " + dir + " && sh se.local > se.log 2>&1"), 0) << slurp(dir + "/se.log");
  EXPECT_EQ(slurp(dir + "/answer"), "42\n");
  EXPECT_NE(access((dir + "/se.run").c_str(), F_OK), 0) << "marker file not removed";
  const std::string log = slurp(dir + "/se.log");
  EXPECT_LT(log.find("Starting job run at "), log.find("Ending job run at "));
  EXPECT_NE(log.find("Ending job run at "), std::string::npos);

  std::ofstream(dir + "/record.sh") << "echo \"$*\" >> tasks.txt\n";
  jobs.write_calc_transint_job_array(dir + "/ta", 1, 1, "ta", "ta.run", {2, 5}, 0,
                                     "sh record.sh", ".");
  jobs.write_calc_transint_job_array(dir + "/tb", 1, 1, "tb", "tb.run", {}, 2, "sh record.sh",
                                     ".");
  ASSERT_EQ(run("cd " + dir + " && sh ta.local >/dev/null && sh tb.local >/dev/null"), 0);
  EXPECT_EQ(slurp(dir + "/tasks.txt"),
            "-batch mol2_trans_int_files.dat -prefix V -postfix 2\n"
            "-batch mol5_trans_int_files.dat -prefix V -postfix 5\n"
            "-batch mol1_trans_int_files.dat -prefix V -postfix 1\n"
            "-batch mol2_trans_int_files.dat -prefix V -postfix 2\n");
}

}  // namespace
