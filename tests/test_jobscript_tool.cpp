// End-to-end tests of kavri_jobscript in a copy of the bundled example: its options reach the
// script's directives over the input file, the utility's own defaults apply when neither
// names a setting, an unknown scheduler is refused, and -check tells a finished job's result.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include "test_support.h"

namespace fs = std::filesystem;

using test_support::has_line;
using test_support::slurp;

namespace {



class JobscriptTool : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string templ = (fs::temp_directory_path() / "kavri-jobtool-XXXXXX").string();
    ASSERT_NE(mkdtemp(templ.data()), nullptr);
    dir = templ;
    fs::copy(fs::path(KAVRI_EXAMPLE), dir, fs::copy_options::recursive);
  }
  void TearDown() override { fs::remove_all(dir); }

  // Runs kavri_jobscript in the example copy without KAVRI_* variables; returns its status.
  int run(const std::string& args) {
    const std::string cmd = "cd '" + dir.string() +
                            "' && env -u KAVRI_JOB_SCHED -u KAVRI_JOB_QUEUE -u KAVRI_QC_NODES "
                            "-u KAVRI_QC_PPN " KAVRI_JOBSCRIPT_EXE " " + args +
                            " >.out 2>.err";
    const int status = std::system(cmd.c_str());
    out = slurp(dir / ".out");
    err = slurp(dir / ".err");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  // Adds `lines` to the &transport section of the example's kavri.inp.
  void add_keys(const std::string& lines) {
    std::string inp = slurp(dir / "kavri.inp");
    inp.insert(inp.rfind("/\n"), lines);
    std::ofstream(dir / "kavri.inp") << inp;
  }
  std::string script(const std::string& name) { return slurp(dir / name); }

  fs::path dir;
  std::string out, err;
};

// Every option reaches its directive of every back-end; -sched overrides sched_type.
TEST_F(JobscriptTool, OptionsReachTheDirectives) {
  add_keys("  sched_type = pbs\n  queue_name = fileq\n  qc_ppn = 8\n  walltime_hour = 160\n");
  ASSERT_EQ(run("-sched slurm -queue short -walltime 1-06:30:15 -nodes 2 -ppn 4 "
                "-nodelist n1,n2 -outdir logs/se"),
            0)
      << err;
  const std::string slurm = script("siteenergy.slurm");
  for (const char* line : {"#SBATCH --time=1-06:30:15", "#SBATCH --nodes=2 --ntasks-per-node=4",
                           "#SBATCH -p short", "#SBATCH --output=logs/se/stdout-siteenergy",
                           "#SBATCH --nodelist=n1,n2"})
    EXPECT_TRUE(has_line(slurm, line)) << line << "\n" << slurm;
  EXPECT_TRUE(fs::is_directory(dir / "logs" / "se"));
  EXPECT_EQ(out, "Wrote siteenergy.slurm; submit it with: sbatch siteenergy.slurm\n");
  // The writer's progress words end without a line end; the tool ends the line.
  ASSERT_EQ(run("-sched slurm -verbose"), 0) << err;
  EXPECT_TRUE(has_line(out, "Writing gaussian job SLURM script siteenergy.slurm...")) << out;

  // Whole hours; PBS and LSF write the days as hours; LSF separates hosts by blanks.
  ASSERT_EQ(run("-sched PBS -walltime 30 -nodes 3 -ppn 2"), 0) << err;
  const std::string pbs = script("siteenergy.pbs");
  for (const char* line : {"#PBS -l walltime=30:00:00", "#PBS -l nodes=3:ppn=2", "#PBS -q fileq"})
    EXPECT_TRUE(has_line(pbs, line)) << line << "\n" << pbs;
  EXPECT_NE(err.find("PATH"), std::string::npos);  // the PBS PATH warning
  ASSERT_EQ(run("-sched lsf -walltime 2-01:30:00 -nodelist a,b"), 0) << err;
  const std::string lsf = script("siteenergy.lsf");
  for (const char* line : {"#BSUB -W 49:30", "#BSUB -n 8", "#BSUB -m 'a b'"})
    EXPECT_TRUE(has_line(lsf, line)) << line << "\n" << lsf;
}

// Nodes, processes and wall time that neither the options nor the file name are the
// utility's one core for an hour; values the file names are kept.
TEST_F(JobscriptTool, UtilityDefaultsOnlyWhereNothingNamesTheSetting) {
  ASSERT_EQ(run(""), 0) << err;
  std::string slurm = script("siteenergy.slurm");
  EXPECT_TRUE(has_line(slurm, "#SBATCH --time=0-01:00:00")) << slurm;
  EXPECT_TRUE(has_line(slurm, "#SBATCH --nodes=1 --ntasks-per-node=1")) << slurm;
  EXPECT_NE(err.find("no queue named"), std::string::npos);

  add_keys("  qc_nodes = 2\n  qc_ppn = 6\n  walltime_hour = 30\n  queue_name = q\n");
  ASSERT_EQ(run(""), 0) << err;
  slurm = script("siteenergy.slurm");
  EXPECT_TRUE(has_line(slurm, "#SBATCH --time=1-06:00:00")) << slurm;
  EXPECT_TRUE(has_line(slurm, "#SBATCH --nodes=2 --ntasks-per-node=6")) << slurm;
  EXPECT_EQ(err, "");
}

// A scheduler outside pbs, slurm, lsf and local, from either source, and bad option values
// are refused with status 1 and no script.
TEST_F(JobscriptTool, RefusesUnknownSchedulerAndBadValues) {
  EXPECT_EQ(run("-sched sge"), 1);
  EXPECT_NE(err.find("unknown scheduler 'sge' (-sched); use pbs, slurm, lsf or local"),
            std::string::npos)
      << err;
  add_keys("  sched_type = sge\n");
  EXPECT_EQ(run(""), 1);
  EXPECT_NE(err.find("'sge' (sched_type in kavri.inp)"), std::string::npos) << err;
  for (const char* bad : {"-walltime 1:60:00", "-walltime 0", "-walltime 1-2", "-nodes 0",
                          "-ppn x", "-queue", "-bogus", "stray"})
    EXPECT_EQ(run(std::string("-sched slurm ") + bad), 1) << bad;
  EXPECT_FALSE(fs::exists(dir / "siteenergy.slurm"));
  EXPECT_FALSE(fs::exists(dir / "siteenergy.pbs"));
}

// -check reads <outdir>/stdout-<job>: success needs the success line and the outputs.
TEST_F(JobscriptTool, CheckTellsSucceededFailedAndNotEnded) {
  EXPECT_EQ(run("-check -job se -outdir logs"), 2) << out;
  fs::create_directories(dir / "logs");
  const fs::path log = dir / "logs" / "stdout-se";
  std::ofstream(log) << "Starting job run at now\n*** Perform Transport Site Energy "
                        "Calculation...\n";
  EXPECT_EQ(run("-check -job se -outdir logs"), 2) << out;  // still running

  std::ofstream(log, std::ios::app) << "\nERROR  transport : fileio : line 3180 : \n"
                                       "Ending job run at later\n";
  EXPECT_EQ(run("-check -job se -outdir logs"), 1) << out;
  EXPECT_NE(out.find("FAILED"), std::string::npos) << out;
  EXPECT_NE(out.find("ERROR  transport : fileio : line 3180"), std::string::npos) << out;

  std::ofstream(log) << "*** Successfully done.\nEnding job run at later\n";
  EXPECT_EQ(run("-check -job se -outdir logs"), 1) << out;  // no EH.dat, EL.dat yet
  EXPECT_NE(out.find("Missing data/EH.dat"), std::string::npos) << out;
  std::ofstream(dir / "data" / "EH.dat") << "2\n";
  std::ofstream(dir / "data" / "EL.dat") << "2\n";
  EXPECT_EQ(run("-check -job se -outdir logs"), 0) << out;
  EXPECT_NE(out.find("succeeded"), std::string::npos) << out;

  // The carrier in either case: "H" asks for EH.dat alone.
  fs::remove(dir / "data" / "EL.dat");
  add_keys("  chargetype = H\n");
  EXPECT_EQ(run("-check -job se -outdir logs"), 0) << out;
}

}  // namespace
