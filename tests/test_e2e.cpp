// End-to-end tests: the real kavri_siteenergy executable run in its own temporary calculation
// directory, with standard output, standard error, exit status and the site-energy files
// compared byte for byte.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>
#include "test_support.h"

namespace fs = std::filesystem;

using test_support::has_line;
using test_support::slurp;

namespace {

struct RunResult {
  int status = -1;
  std::string out, err;
};


void write_file(const fs::path& p, const std::string& text) {
  fs::create_directories(p.parent_path());
  std::ofstream(p, std::ios::binary) << text;
}

// A fresh calculation directory under the system's temporary directory.
fs::path make_workdir() {
  std::string templ = (fs::temp_directory_path() / "kavri-e2e-XXXXXX").string();
  const char* made = mkdtemp(templ.data());
  if (!made) throw std::runtime_error("mkdtemp failed");
  return fs::path(made);
}

// Starts the executable in `dir` with `args`, no KAVRI_* variables in its environment, its
// streams sent to `out` and `err`.
pid_t start_in(const fs::path& dir, const std::vector<std::string>& args, const fs::path& out,
               const fs::path& err, const std::string& exe = KAVRI_EXE) {
  const pid_t pid = fork();
  if (pid == 0) {
    if (chdir(dir.c_str()) != 0) _exit(127);
    for (const char* v : {"KAVRI_JOB_SCHED", "KAVRI_JOB_QUEUE", "KAVRI_QC_EXE", "KAVRI_QC_NODES",
                          "KAVRI_QC_PPN", "KAVRI_MODULE_QC", "KAVRI_MODULE_KAVRI",
                          "KAVRI_MODULE_MPICH2"})
      unsetenv(v);
    if (!freopen(out.c_str(), "w", stdout) || !freopen(err.c_str(), "w", stderr)) _exit(127);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(exe.c_str()));
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(exe.c_str(), argv.data());
    _exit(127);
  }
  return pid;
}

// The exit status of a started run, 1000 + the signal for one that was killed.
int wait_for(pid_t pid) {
  int wstatus = 0;
  waitpid(pid, &wstatus, 0);
  return WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 1000 + WTERMSIG(wstatus);
}

// Runs the executable in `dir` with `args` and collects its status and streams.
RunResult run_in(const fs::path& dir, const std::vector<std::string>& args,
                 const std::string& exe = KAVRI_EXE) {
  const fs::path out = dir / ".stdout", err = dir / ".stderr";
  RunResult r;
  r.status = wait_for(start_in(dir, args, out, err, exe));
  r.out = slurp(out);
  r.err = slurp(err);
  fs::remove(out);
  fs::remove(err);
  return r;
}

std::vector<std::string> split_args(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> v;
  for (std::string w; in >> w;) v.push_back(w);
  return v;
}

const fs::path kGolden = fs::path(KAVRI_TEST_DATA) / "golden";

std::vector<std::string> golden_cases() {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(kGolden))
    if (fs::exists(e.path() / "input")) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

// The reference calculation directories: status, both streams and both output files.
class GoldenRun : public ::testing::TestWithParam<std::string> {};

TEST_P(GoldenRun, MatchesReferenceByteForByte) {
  const fs::path cse = kGolden / GetParam();
  const fs::path work = make_workdir();
  fs::copy(cse / "input", work, fs::copy_options::recursive);
  const RunResult r = run_in(work, split_args(slurp(cse / "args")));
  EXPECT_EQ(r.status, std::stoi(slurp(cse / "expected" / "status")));
  EXPECT_EQ(r.out, slurp(cse / "expected" / "stdout"));
  EXPECT_EQ(r.err, slurp(cse / "expected" / "stderr"));
  for (const char* f : {"EH.dat", "EL.dat"}) {
    const fs::path want = cse / "expected" / "data" / f, got = work / "data" / f;
    ASSERT_EQ(fs::exists(want), fs::exists(got)) << f;
    if (fs::exists(want)) {
      EXPECT_EQ(slurp(got), slurp(want)) << f;
    }
  }
  fs::remove_all(work);
}

INSTANTIATE_TEST_SUITE_P(Reference, GoldenRun, ::testing::ValuesIn(golden_cases()),
                         [](const auto& info) {
                           std::string n = info.param;
                           for (char& c : n)
                             if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                           return n;
                         });

// Options are prefix-compared in a fixed order; help and version end the run with status 0.
TEST(CommandLine, OptionsHelpVersionAndWarnings) {
  const fs::path work = make_workdir();

  RunResult help = run_in(work, {"-hello", "--version"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("KAVRI Calculation Utility, Version 2022A (2.3.3) build on Apr 14 2022"),
            std::string::npos);
  EXPECT_NE(help.out.find("Usage: kavri_siteenergy [opts]\n"
                          "  -config s : set config file, default to 'kavri.inp'\n\n"
                          "e.g.: kavri_siteenergy\n  kavri_siteenergy -config kavri.inp\n\n"),
            std::string::npos);
  EXPECT_EQ(help.out.find("KAVRI version"), std::string::npos);
  EXPECT_EQ(help.out.rfind(std::string(75, '*') + "\n*  KAVRI Calculation Utility", 0), 0u);

  RunResult version = run_in(work, {"--version", "-h"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out, "KAVRI version 2022A (2.3.3), build on Apr 14 2022\n");

  // An unknown option warns and the run goes on (here to the missing default input file).
  RunResult unknown = run_in(work, {"-v", "-verbosely"});
  EXPECT_EQ(unknown.status, 255);
  EXPECT_EQ(unknown.out.rfind("WARNING: Unknown option: -v\n"
                              "*** Perform Transport Site Energy Calculation...\n",
                              0),
            0u);
  EXPECT_NE(unknown.out.find("Failed to open input file: kavri.inp\n"), std::string::npos);

  RunResult missing = run_in(work, {"-config", "nothere.inp"});
  EXPECT_EQ(missing.status, 0);
  EXPECT_EQ(missing.out, "ERROR: kavri_siteenergy input config file nothere.inp not found!\n");

  RunResult novalue = run_in(work, {"-verbose", "-config"});
  EXPECT_NE(novalue.status, 0);
  EXPECT_NE(novalue.out.find("-config"), std::string::npos);

  // Two -config pairs: each is tested in turn and the last one is read.
  write_file(work / "a.inp", "&transport\n/\n");
  write_file(work / "b.inp", "&transport\n chargetype = q\n/\n");
  RunResult two = run_in(work, {"-config", "a.inp", "-configfile", "b.inp"});
  EXPECT_EQ(two.status, 1);
  EXPECT_EQ(two.out.rfind("  kavri_siteenergy input config file is a.inp\n"
                          "  kavri_siteenergy input config file is b.inp\n",
                          0),
            0u);
  EXPECT_NE(two.out.find("chargetype in kavri.inp is 'q'"), std::string::npos);
  fs::remove_all(work);
}

namespace {

// A cell of 4.5 x 6 x 7 angstrom holding one H2 molecule along a: with the cut-off of 4 only
// its own images at -a and +a come within reach (closest contact 4.5 - 0.70 = 3.80).
const char* kH2Cif =
    "data_h2\n"
    "_symmetry_space_group_name_H-M 'P 1'\n"
    "_cell_length_a 4.5\n_cell_length_b 6.0\n_cell_length_c 7.0\n"
    "_cell_angle_alpha 90\n_cell_angle_beta 90\n_cell_angle_gamma 90\n"
    "loop_\n_symmetry_equiv_pos_as_xyz\nx,y,z\n\n"
    "loop_\n_atom_site_label\n_atom_site_type_symbol\n"
    "_atom_site_fract_x\n_atom_site_fract_y\n_atom_site_fract_z\n"
    "H1 H 0.40 0.5 0.5\n"
    "H2 H 0.5555555556 0.5 0.5\n";

void write_h2_case(const fs::path& work, const std::string& extra) {
  write_file(work / "h2.cif", kH2Cif);
  write_file(work / "kavri.inp", "&transport\n crystal = h2.cif\n neighbor_scell = 2 2 2\n" +
                                     extra + "/\n");
  write_file(work / "data" / "SE_einternal-h.dat", "1\n2\n1.25\n-7\n");
  write_file(work / "data" / "SE_einternal-e.dat", "1\n2\n 3.5 meV\nx\n");
  write_file(work / "data" / "SE_emultipole-h.dat", "1\n2\n-2.75\n0.00004\n");
  write_file(work / "data" / "SE_emultipole-e.dat", "1\n3\n1\n2\n3\n");
}

}  // namespace

// Site energies of a cell whose neighbours can be counted by hand, for each charge type and
// with and without the dielectric model adding the multipole energies.
TEST(SiteEnergies, HandCountedNeighboursAndValues) {
  const fs::path work = make_workdir();

  write_h2_case(work, " chargetype = H\n");
  RunResult holes = run_in(work, {});
  EXPECT_EQ(holes.status, 0);
  EXPECT_EQ(slurp(work / "data" / "EH.dat"), "1\n2 1\n   1.25000  meV\n  -7.00000  meV\n");
  EXPECT_FALSE(fs::exists(work / "data" / "EL.dat"));

  write_h2_case(work, " chargetype = e\n reorg_outer = constant 0.1\n");
  fs::remove(work / "data" / "EH.dat");
  RunResult electrons = run_in(work, {});
  EXPECT_EQ(electrons.status, 0);
  EXPECT_FALSE(fs::exists(work / "data" / "EH.dat"));
  EXPECT_EQ(slurp(work / "data" / "EL.dat"), "1\n2 1\n   3.50000  meV\n   0.00000  meV\n");

  write_h2_case(work, " chargetype = a\n reorg_outer = dielectric 2.5 9\n");
  RunResult both = run_in(work, {"-verbose"});
  EXPECT_EQ(both.status, 0);
  EXPECT_EQ(slurp(work / "data" / "EH.dat"), "1\n2 1\n  -1.50000  meV\n  -6.99996  meV\n");
  EXPECT_EQ(slurp(work / "data" / "EL.dat"), "1\n2 1\n   4.50000  meV\n   2.00000  meV\n");
  EXPECT_NE(both.out.find("Reading reorganization multipole energies...\n"), std::string::npos);

  // A cut-off below the closest contact leaves the molecule without neighbours.
  write_h2_case(work, " lattice_cutoff = 3.79\n chargetype = h\n");
  EXPECT_EQ(run_in(work, {}).status, 0);
  EXPECT_EQ(slurp(work / "data" / "EH.dat"), "1\n0 1\n");
  fs::remove_all(work);
}

// A table shorter than the neighbour list ends the run before anything is written, and a
// good "EH.dat" from an earlier run survives.
TEST(SiteEnergies, ShortTablesEndTheRunAndLeaveOutputsAlone) {
  const fs::path work = make_workdir();
  write_h2_case(work, " chargetype = a\n");
  write_file(work / "data" / "EH.dat", "previous good result\n");
  write_file(work / "data" / "SE_einternal-e.dat", "1\n1\n3.5\n");
  RunResult r = run_in(work, {});
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.out.find("ERROR  transport : pr_siteenergy : line"), std::string::npos);
  EXPECT_NE(r.out.find("data/SE_einternal-e.dat for molecule 1: found 1, needed 2"),
            std::string::npos);
  EXPECT_EQ(slurp(work / "data" / "EH.dat"), "previous good result\n");
  EXPECT_FALSE(fs::exists(work / "data" / "EL.dat"));

  fs::remove_all(work);
}

// Inputs that are not regular files (a FIFO without a writer, an endless device) end the run
// with the reader's open error instead of waiting or reading for ever; nothing is written.
TEST(SiteEnergies, InputsThatAreNotRegularFilesEndTheRun) {
  const fs::path work = make_workdir();
  ASSERT_EQ(mkfifo((work / "fifo").c_str(), 0600), 0);

  RunResult config = run_in(work, {"-config", "fifo"});
  EXPECT_EQ(config.status, 255);
  EXPECT_NE(config.out.find("kavri_inp : line 228 : \nInput file fifo is not a regular file\n"),
            std::string::npos) << config.out;

  write_h2_case(work, " chargetype = a\n");
  fs::remove(work / "data" / "SE_einternal-e.dat");
  ASSERT_EQ(mkfifo((work / "data" / "SE_einternal-e.dat").c_str(), 0600), 0);
  RunResult table = run_in(work, {});
  EXPECT_EQ(table.status, 255);
  EXPECT_NE(table.out.find("pr_siteenergy : line 138 : \nInput file data/SE_einternal-e.dat is "
                           "not a regular file\n"),
            std::string::npos) << table.out;
  EXPECT_FALSE(fs::exists(work / "data" / "EH.dat"));

  write_file(work / "kavri.inp", "&transport\n crystal = fifo\n/\n");
  RunResult cif = run_in(work, {});
  EXPECT_EQ(cif.status, 255);
  EXPECT_EQ(cif.err, "Input file \"fifo\" is not a regular file");
  fs::remove_all(work);
}

// Several runs at once in one calculation directory, and runs killed at random moments, on
// the 100k-atom cell: every EH.dat / EL.dat left is one run's complete file, and nothing else
// is left in the data directory. Two configurations (holes only at the default cut-off, both
// carriers at a shorter one) write different files under the same names.
TEST(SiteEnergies, ConcurrentAndKilledRunsLeaveOneRunsCompleteFile) {
  const fs::path cell = fs::path(KAVRI_LARGE_DATA) / "anthracene_10x18x12_p1.cif";
  if (!fs::exists(cell)) GTEST_SKIP() << "large test cell not found: " << cell;
  const fs::path work = make_workdir();
  const int nmols = 4320, nvalues = 60;  // 60 values cover every neighbour list of the cell
  std::string table = std::to_string(nmols) + "\n";
  for (int m = 0; m < nmols; ++m) {
    table += std::to_string(nvalues) + "\n";
    for (int v = 0; v < nvalues; ++v) table += std::to_string((m * 7 + v) % 100 - 50) + ".25\n";
  }
  write_file(work / "data" / "SE_einternal-h.dat", table);
  write_file(work / "data" / "SE_einternal-e.dat", table);
  const std::string crystal = " crystal = " + cell.string() + "\n";
  write_file(work / "h.inp", "&transport\n" + crystal + " chargetype = h\n/\n");
  write_file(work / "a.inp", "&transport\n" + crystal + " chargetype = a\n lattice_cutoff = 3.0\n/\n");

  // Each configuration alone gives the reference files.
  std::vector<std::string> complete;
  for (const char* config : {"h.inp", "a.inp"}) {
    ASSERT_EQ(run_in(work, {"-config", config}).status, 0) << config;
    complete.push_back(slurp(work / "data" / "EH.dat"));
  }
  const std::string electrons = slurp(work / "data" / "EL.dat");
  ASSERT_NE(complete[0], complete[1]);
  const auto check_data_dir = [&](const std::string& when) {
    const std::string eh = slurp(work / "data" / "EH.dat");
    EXPECT_TRUE(eh == complete[0] || eh == complete[1]) << when << ": EH.dat of " << eh.size()
                                                        << " bytes is no run's complete file";
    EXPECT_EQ(slurp(work / "data" / "EL.dat"), electrons) << when;
    for (const auto& e : fs::directory_iterator(work / "data")) {
      const std::string name = e.path().filename().string();
      EXPECT_TRUE(name == "EH.dat" || name == "EL.dat" || name.rfind("SE_einternal-", 0) == 0)
          << when << ": left behind " << name;
    }
  };

  for (int round = 0; round < 3; ++round) {
    std::vector<pid_t> runs;
    for (int k = 0; k < 4; ++k)
      runs.push_back(start_in(work, {"-config", k % 2 ? "a.inp" : "h.inp"}, "/dev/null",
                              "/dev/null"));
    for (pid_t pid : runs) EXPECT_EQ(wait_for(pid), 0);
    check_data_dir("round " + std::to_string(round));
  }

  // Kills spread over the length of a run, the writing of the outputs included.
  for (int k = 0; k < 8; ++k) {
    const pid_t pid = start_in(work, {"-config", k % 2 ? "a.inp" : "h.inp"}, "/dev/null",
                               "/dev/null");
    usleep(150000 * (k + 1));
    kill(pid, SIGKILL);
    wait_for(pid);
    check_data_dir("kill " + std::to_string(k));
  }
  fs::remove_all(work);
}

// Outputs never go through a path that already exists: a symbolic link or a FIFO under the
// names an older version wrote to is neither followed nor waited on.
TEST(SiteEnergies, OutputsIgnorePathsThatAlreadyExist) {
  const fs::path work = make_workdir();
  write_h2_case(work, " chargetype = a\n");
  write_file(work / "victim", "untouched\n");
  fs::create_symlink(work / "victim", work / "data" / "EH.dat.partial");
  ASSERT_EQ(mkfifo((work / "data" / "EL.dat.partial").c_str(), 0600), 0);
  EXPECT_EQ(run_in(work, {}).status, 0);
  EXPECT_EQ(slurp(work / "victim"), "untouched\n");
  EXPECT_EQ(slurp(work / "data" / "EH.dat"), "1\n2 1\n   1.25000  meV\n  -7.00000  meV\n");
  EXPECT_EQ(slurp(work / "data" / "EL.dat"), "1\n2 1\n   3.50000  meV\n   0.00000  meV\n");
  fs::remove_all(work);
}
