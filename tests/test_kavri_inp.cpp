// Tests of the input-file reader: sections and line handling, the conversion of each kind of
// key, the keys with their own syntax, the post-read steps, the environment, and every fatal
// path with its exact output, stream and exit status.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "kavri_inp.h"

namespace {

using Int3 = std::array<int, 3>;
using Real3 = std::array<double, 3>;
using Walltime = std::array<int, 4>;  // days, hours, minutes, seconds

// The value of a table key's setting; a key without one fails the test.
template <class T>
T value(const KavriInp& inp, const char* key) {
  const std::optional<T> v = inp.setting<T>(key);
  EXPECT_TRUE(v.has_value()) << key;
  return v.value_or(T{});
}
double real(const KavriInp& inp, const char* key) { return value<double>(inp, key); }
int integer(const KavriInp& inp, const char* key) { return value<int>(inp, key); }
std::string text(const KavriInp& inp, const char* key) { return value<std::string>(inp, key); }

// Whether a row's setting holds 1 in its own type (the whole list, the first component).
struct HoldsOne {
  bool operator()(const int* v) const { return *v == 1; }
  bool operator()(const double* v) const { return *v == 1.0; }
  bool operator()(const bool* v) const { return *v; }
  bool operator()(const std::string* v) const { return *v == "1"; }
  bool operator()(const int (*v)[3]) const { return (*v)[0] == 1; }
  bool operator()(const double (*v)[3]) const { return (*v)[0] == 1.0; }
  bool operator()(const std::vector<int>* v) const { return *v == std::vector<int>{1}; }
  bool operator()(const std::vector<double>* v) const { return *v == std::vector<double>{1.0}; }
};

class KavriInpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* v : {"JOB_SCHED", "JOB_QUEUE", "QC_EXE", "QC_NODES", "MODULE_QC"})
      unsetenv((std::string("KAVRI_") + v).c_str());
  }
  void TearDown() override { std::remove(path_.c_str()); }

  void write(const std::string& text) { std::ofstream(path_, std::ios::binary) << text; }
  std::unique_ptr<KavriInp> read(const std::string& text) {
    write(text);
    auto inp = std::make_unique<KavriInp>();
    inp->read_kavri_inp(path_.c_str(), false);
    return inp;
  }
  std::unique_ptr<KavriInp> section(const std::string& k) {
    return read("&transport\n" + k + "/\n");
  }

  std::string path_ = ::testing::TempDir() + "kavri_inp_" + std::to_string(getpid()) + ".inp";
};

TEST_F(KavriInpTest, SectionsDefaultsPostReadStepsAndEnvironment) {
  auto inp = read(
      "temp = 1\n&TRANSPORT!start\n  ! comment\n  LAT_CUTOFF = 5   ! comment\n"
      "  nsimu = 7 # comment\r\n  no equals sign\n  # temp = 2\n/\ntemp = 3\n"
      "&qc_inp_append\n  first\n / indented\n/ end\n&Gaussian.Append\nsecond\r\n/\n"
      "&transport ! a blank before the comment hides the marker\nmater_name = x\n/\n");
  EXPECT_EQ(std::make_tuple(real(*inp, "lattice_cutoff"), integer(*inp, "nsimu"),
                            real(*inp, "temp")),
            std::make_tuple(5.0, 7, 300.0));
  EXPECT_EQ(std::make_tuple(text(*inp, "mater_name"), inp->get_qc_inp_append()),
            std::make_tuple("", "  first\n / indented\nsecond\r\n"));
  // Every read replaces the constructor's "pbs"; SLURM's 160 hours are 6 days 16 hours.
  EXPECT_EQ(text(*inp, "sched_type"), "slurm");
  EXPECT_EQ(inp->get_walltime(), (Walltime{6, 16, 0, 0}));

  // 1023 characters fill one read; the rest of the physical line is a line of its own. A
  // section without "/" ends with the file.
  inp = read("&transport\n! " + std::string(1021, 'x') + "temp = 9\nnsimu = 4");
  EXPECT_EQ(std::make_tuple(real(*inp, "temp"), integer(*inp, "nsimu")), std::make_tuple(9.0, 4));
  write("");  // a new read starts again from the built-in defaults
  inp->read_kavri_inp(path_.c_str(), false);
  EXPECT_EQ(std::make_tuple(real(*inp, "temp"), integer(*inp, "nsimu")),
            std::make_tuple(300.0, 2000));

  // Both post-read tests are case-sensitive.
  EXPECT_EQ(text(*section("sched_type = lsf\nnodelist = n1,n2\n"), "nodelist"), "n1 n2");
  EXPECT_EQ(text(*section("queue_type = LSF\nnodelist = n1,n2\n"), "nodelist"), "n1,n2");
  EXPECT_EQ(section("sched_type = SLURM\n")->get_walltime()[1], 160);

  // Variables replace the defaults as they are, even when empty; the file still wins.
  for (const auto& [name, value] : {std::pair{"KAVRI_JOB_SCHED", "lsf"}, {"KAVRI_QC_NODES", "abc"},
                                     {"KAVRI_QC_EXE", " g09 "}, {"KAVRI_MODULE_QC", ""}})
    setenv(name, value, 1);
  inp = read("");
  EXPECT_EQ(std::make_tuple(text(*inp, "sched_type"), text(*inp, "qc_exe"), inp->get_run_nodes(),
                            text(*inp, "module_qc"), inp->get_environment_module_gau_flag()),
            std::make_tuple("lsf", " g09 ", 0, "", true));
  EXPECT_EQ(text(*section("sched_type = pbs\n"), "sched_type"), "pbs");
}

TEST_F(KavriInpTest, KeywordTableAndConversions) {
  // Every spelling, in any case, finds its own row and fills the row's setting in the row's
  // conversion (rows with an action of their own are tested below).
  for (std::size_t i = 0; i < KavriInp::keyword_count; ++i) {
    const KavriInp::KeywordRow& row = KavriInp::keyword_table[i];
    EXPECT_EQ(row.field == nullptr, row.type == KavriInp::KeyType::Special) << row.key;
    for (const char* name : {row.key, row.alias ? row.alias : row.key}) {
      std::string upper = name;
      for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      EXPECT_EQ(KavriInp::find_keyword(upper), &row) << name;
      if (!row.field || row.action) continue;
      KavriInp k;
      k.apply_keyword(upper, "1");
      EXPECT_TRUE(std::visit(HoldsOne(), row.field(k))) << name;
    }
  }

  auto inp = section(
      "nsimu = 12abc\ntemp = 2.5e2K\nuse_moo = 1\nuse_moo = 0\nread_neighbor_dat = 1\n"
      "read_neighbor_dat = 0\nRE_calc_lambda_4P = 0\nmater_name = 'an\"thr'acene'\n"
      "kavri_dat_file = 'x.dat'\nscratch = /data\nnei_scell = 1 2\nvector_b = 1.5 11\n"
      "homo_adjustment = 1\t2   3\nhomo_adjustment = 4\n");
  // Bool keys clear, set-only flags do not.
  EXPECT_EQ(std::make_tuple(integer(*inp, "nsimu"), real(*inp, "temp"), inp->get_moo_flag(),
                            inp->get_read_neighbor_flag(), value<bool>(*inp, "RE_calc_lambda_4P")),
            std::make_tuple(12, 250.0, false, true, true));
  EXPECT_EQ(std::make_tuple(text(*inp, "mater_name"), text(*inp, "kavri_dat_file"),
                            text(*inp, "scratch")),
            std::make_tuple("anthracene", "'x.dat'", " /data"));  // only String drops quotes
  // The unread third component is kept.
  EXPECT_EQ(value<Int3>(*inp, "nei_scell"), (Int3{1, 2, 3}));
  EXPECT_EQ(value<Real3>(*inp, "vector_b")[1], 11.0);
  EXPECT_EQ(value<std::vector<int>>(*inp, "homo_adjustment"), (std::vector<int>{1, 2, 3, 4}));

  inp = section(
      "sched_type = pbs\nwalltime = 3725\nchargetype = 'h'\nratetype = Marcus-Hush\n"
      "reorg_outer = Spheres 0.1 3.4 4.2\nthinfilm = 2 5\n"
      "oniom_output_flag = 1\ndata_mol_output_level = 3\nbasis_name_re = early\n"
      "qc_basis = b3lyp cc-pvdz\nmodule_gaussian = g/16\ncompute_engine = 2\n"
      "app_elec_F = 0 0 1e5\n");
  EXPECT_EQ(inp->get_walltime(), (Walltime{0, 1, 2, 5}));
  EXPECT_EQ(text(*inp, "kavri_dat_file"), "kavri-Marcus-Hush.dat");
  EXPECT_EQ(inp->get_reorg_outer_radii(), (std::vector<double>{3.4 * 0.1, 4.2 * 0.1}));
  EXPECT_EQ(std::make_tuple(inp->get_reorg_outer_flag(), inp->get_thinfilm_flag(),
                            inp->get_thinfilm_dir(), integer(*inp, "data_mol_output_level")),
            std::make_tuple(2, true, 2, 11));
  EXPECT_EQ(std::make_tuple(text(*inp, "qc_basis_re"), text(*inp, "module_qc"),
                            inp->get_environment_module_gau_flag(), text(*inp, "qc_exe"),
                            inp->get_appE_flag()),
            std::make_tuple("b3lyp cc-pvdz", "g/16", true, "fullpath/orca", true));

  inp = section(
      "walltime = '50:00:00'\nCHARGETYPE = H\nreorg_outer = dielectric 2.5 9\nqc_basis = a\n"
      "qc_basis_re = b\ncompute_engine = 2\nqc_exe = my-orca\napp_elec_F = 0\nratetype = quanta\n");
  EXPECT_EQ(inp->get_walltime(), (Walltime{2, 2, 0, 0}));
  EXPECT_EQ(std::make_tuple(inp->get_reorg_outer_flag(), inp->get_reorg_outer_cutoff()),
            std::make_tuple(3, 9 * 0.1));
  EXPECT_EQ(std::make_tuple(text(*inp, "qc_basis_re"), text(*inp, "qc_exe"), inp->get_appE_flag()),
            std::make_tuple("b", "my-orca", false));

  // molecule = <n> <files>: the first n words after the count, split at runs of blanks; the
  // crystal key loads its CIF at once. Either names the structure that the loading reads.
  const std::string d = KAVRI_TEST_DATA "/";
  inp = section("molecule = 2  " + d + "anthracene_cif_v2000.mol   " + d +
                "naphthalene_gen3d_v3000.mol none.mol\n");
  inp->read_crystal_strcuture_files(false, false);
  EXPECT_EQ(inp->get_nmols(), 2);
  inp = section("crystal = " + d + "crystals/anthracene.cif\n");
  EXPECT_GT(inp->get_cif_natoms(), 0);
  inp->read_crystal_strcuture_files(false, false);
  EXPECT_EQ(inp->get_nmols(), 2);
}

TEST_F(KavriInpTest, FatalPathsPrintOnStandardOutputAndExit) {
  const auto current = [](const std::string& key, const std::string& v, const std::string& ok) {
    return "The current " + key + " in kavri.inp is '" + v + "', while the supported " + key +
           "'s are: " + ok + "\n";
  };
  const auto engine = [](int n, const std::string& exe) {
    return "Incomptiable settings:\n  The compute_engine = " + std::to_string(n) +
           ", while qc_exe is set to " + exe + "\n  1 - Gaussian, 2 - ORCA, 3 - QCHEM\n";
  };
  const std::string missing = ::testing::TempDir() + "no/such.inp";
  const struct { std::string keys; int status, line; std::string message; } cases[] = {
      {"", 255, 228, "Failed to open input file: " + missing + "\n"},
      {"walltime = 1:30\n", 1, 611,
       "Walltime format incorrect!\nIt should be either in ssssss seconds or in hh:mm:ss\n"},
      {"chargetype = x\n", 1, 642, current("chargetype", "x", "'e', 'h', 'a'")},
      {"evc_type = 'dint'\n", 1, 658, current("evc_type", "dint", "'cart', 'int'")},
      {"ratetype = qua\n", 1, 738, current("ratetype", "qua", "marcus, quantum")},
      {"ratetype = 'marcus'\n", 1, 738, current("ratetype", "'marcus'", "marcus, quantum")},
      {"molecule = 3 a.mol\tb.mol c.mol\n", 255, 775,
       "\nThe molecule key in file kavri.inp expects 3 MOL file names but names 2!!!\n\n"},
      {"reorg_outer = sphere 0.1 3\n", 255, 894,
       "\nUnknown reorg_outer method \"sphere\" in file kavri.inp!!!\n\n"},
      {"reorg_outer = dielectric 2.5\n", 255, 899,
       "\nThe reorg_outer method \"dielectric\" in file kavri.inp expects 2 numbers but gives "
       "1!!!\n\n"},
      {"reorg_outer = Constant\n", 255, 899,
       "\nThe reorg_outer method \"Constant\" in file kavri.inp expects 1 number but gives "
       "0!!!\n\n"},
      {"thinfilm = -1 4\n", 255, 947, "\nthinfilm dir not in range [0-2]: \"-1 4\n\n"},
      {"x = 1 = 2\n", 255, 1008, "\nUnknown parameter \"x\" in file kavri.inp!!!\n\n"},
      {"qc_exe = orca\n", 1, 1075, engine(1, "orca")},
      {"compute_engine = 2\nqc_exe = g16\n", 1, 1087, engine(2, "g16")},
      {"compute_engine = 3\n", 1, 1099, engine(3, "g16")},
  };
  for (const auto& c : cases) {
    write("&transport\n" + c.keys + "/\n");
    // Standard output is read and standard error discarded, so the match proves the stream.
    EXPECT_EXIT((std::fflush(stdout), dup2(dup(2), 1), dup2(open("/dev/null", O_WRONLY), 2),
                 KavriInp().read_kavri_inp((c.keys.empty() ? missing : path_).c_str(), false)),
                ::testing::ExitedWithCode(c.status),
                ::testing::Eq("\nERROR  transport : kavri_inp : line " + std::to_string(c.line) +
                              " : \n" + c.message)) << c.keys;
  }
}

}  // namespace
