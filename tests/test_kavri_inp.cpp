// Tests of the input-file layer: sections and line handling of the reader, the conversion of
// each kind of key, the keys with their own syntax, the environment and scheduler settings,
// and every fatal path with its exact output, stream and exit status.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>

#include "kavri_inp.h"

namespace {

// Opens the model object's settings to the tests.
class Inp : public KavriInp {
 public:
  using KavriInp::app_elec_F, KavriInp::appE_flag, KavriInp::cell_vectors, KavriInp::chargetype;
  using KavriInp::data_mol_output_level, KavriInp::emultipole_scale1, KavriInp::HL_unique_mol_flags;
  using KavriInp::homo_adjustment, KavriInp::kavri_dat_file, KavriInp::KeyType;
  using KavriInp::keyword_count, KavriInp::keyword_table, KavriInp::lattice_cutoff;
  using KavriInp::mater_name, KavriInp::module_qc, KavriInp::module_qc_flag;
  using KavriInp::mol_file_names, KavriInp::neighbor_scell, KavriInp::nlines, KavriInp::nodelist;
  using KavriInp::nsimu, KavriInp::qc_basis_re, KavriInp::qc_es_mult, KavriInp::qc_exe;
  using KavriInp::qc_inp_append, KavriInp::qc_nodes, KavriInp::RE_calc_lambda_4P;
  using KavriInp::read_neighbor_dat, KavriInp::reorg_outer_const, KavriInp::reorg_outer_cutoff;
  using KavriInp::reorg_outer_param, KavriInp::reorg_outer_radii, KavriInp::sched_type;
  using KavriInp::scratch, KavriInp::struct_source, KavriInp::super_cell, KavriInp::temp;
  using KavriInp::thinfilm_dir, KavriInp::thinfilm_flag, KavriInp::thinfilm_ncell;
  using KavriInp::use_moo, KavriInp::walltime_days, KavriInp::walltime_hours;
  using KavriInp::walltime_minutes, KavriInp::walltime_seconds;
};

const char* const kEnvVars[] = {"KAVRI_JOB_SCHED", "KAVRI_JOB_QUEUE",    "KAVRI_QC_EXE",
                                "KAVRI_QC_NODES",  "KAVRI_QC_PPN",       "KAVRI_MODULE_QC",
                                "KAVRI_MODULE_KAVRI", "KAVRI_MODULE_MPICH2"};

// In a death test's child: standard output goes where the parent reads, standard error
// nowhere, so matching the expected text also proves the stream.
void capture_stdout_only() {
  std::fflush(stdout);
  dup2(dup(STDERR_FILENO), STDOUT_FILENO);
  dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
}

// An anchored regular expression matching exactly the error header and `message`.
std::string exact_error(int line, const std::string& message) {
  const std::string text =
      "\nERROR  transport : kavri_inp : line " + std::to_string(line) + " : \n" + message;
  std::string re = "^";
  for (char c : text) {
    if (std::string(".[]()*+?{}|^$\\").find(c) != std::string::npos) re += '\\';
    re += c;
  }
  return re + "$";
}

class KavriInpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* v : kEnvVars) unsetenv(v);
    char pattern[] = "/tmp/kavri_inp_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    path_ = dir_ + "/kavri.inp";
  }
  void TearDown() override {
    for (const char* v : kEnvVars) unsetenv(v);
    std::filesystem::remove_all(dir_);
  }

  void write(const std::string& text) { std::ofstream(path_, std::ios::binary) << text; }
  std::unique_ptr<Inp> read(const std::string& text) {
    write(text);
    auto inp = std::make_unique<Inp>();
    EXPECT_EQ(inp->read_kavri_inp(path_.c_str(), false), 1);
    return inp;
  }
  std::unique_ptr<Inp> section(const std::string& body) {
    return read("&transport\n" + body + "/\n");
  }

  void expect_fatal(const std::string& body, int status, int line, const std::string& message) {
    write("&transport\n" + body + "/\n");
    Inp inp;
    EXPECT_EXIT(
        {
          capture_stdout_only();
          inp.read_kavri_inp(path_.c_str(), false);
        },
        ::testing::ExitedWithCode(status), exact_error(line, message))
        << body;
  }

  std::string dir_, path_;
};

TEST_F(KavriInpTest, DefaultsPostReadStepsAndASecondRead) {
  auto inp = read("! no section\ntemp = 1\n");
  EXPECT_EQ(inp->sched_type, "slurm");  // the constructor's "pbs" is replaced on every read
  EXPECT_EQ(Inp().sched_type, "pbs");
  EXPECT_EQ(inp->temp, 300);
  EXPECT_EQ(inp->cell_vectors[2][0], -4.888095);
  EXPECT_EQ(inp->scratch, "/tmp");
  EXPECT_EQ(inp->kavri_dat_file, "kavri-quantum.dat");
  EXPECT_EQ(inp->walltime_days, 6);  // slurm: 160 hours are 6 days 16 hours
  EXPECT_EQ(inp->walltime_hours, 16);
  EXPECT_EQ(inp->nlines(), 0);
  EXPECT_TRUE(inp->get_input_read());
  EXPECT_FALSE(Inp().get_input_read());

  inp = section("temp = 10\nqc_es_mult = 3\nmolecule = 1 a.mol\n");
  write("");
  inp->read_kavri_inp(path_.c_str(), false);
  EXPECT_EQ(inp->temp, 300);
  EXPECT_TRUE(inp->mol_file_names.empty());
  EXPECT_EQ(inp->qc_es_mult, 3);  // a constructor default is not restored
}

TEST_F(KavriInpTest, SectionsCommentsBlocksAndLongLines) {
  auto inp = read(
      "temp = 1\n&TRANSPORT!start\n  ! comment\n  LAT_CUTOFF = 5   ! comment\n"
      "  nsimu = 7 # comment\r\n  no equals sign\n  # temp = 2\n/\ntemp = 3\n"
      "&qc_inp_append\n  first\n / indented\n/ end\n&Gaussian.Append\nsecond\r\n/\n"
      "&transport ! a blank before the comment hides the marker\nmater_name = x\n/\n");
  EXPECT_EQ(inp->lattice_cutoff, 5);
  EXPECT_EQ(inp->nsimu, 7);
  EXPECT_EQ(inp->temp, 300);
  EXPECT_EQ(inp->mater_name, "");
  EXPECT_EQ(inp->qc_inp_append, "  first\n / indented\nsecond\r\n");

  // 1023 characters fill one read; the rest of the physical line is read as a line of its
  // own. A section without "/" ends with the file.
  inp = read("&transport\n! " + std::string(1021, 'x') + "temp = 9\nnsimu = 4");
  EXPECT_EQ(inp->temp, 9);
  EXPECT_EQ(inp->nsimu, 4);
}

TEST_F(KavriInpTest, ValueConversions) {
  auto inp = section(
      "nsimu = 12abc\ntemp = 2.5e2K\nuse_moo = 1\nuse_moo = 0\nread_neighbor_dat = 1\n"
      "read_neighbor_dat = 0\nRE_calc_lambda_4P = 0\nmater_name = 'an\"thr'acene'\n"
      "kavri_dat_file = 'x.dat'\nscratch = /data\nneighbor_scell = 1 2\nsuper-cell = 2 3 4\n"
      "vector_b = 1.5 11\nhomo_adjustment = 1\t2   3\nhomo_adjustment = 4\n"
      "emultipole_scale1 = 0.5 0.25\nbond_dis_scale = 1.3\n");
  EXPECT_EQ(inp->nsimu, 12);
  EXPECT_EQ(inp->temp, 250);
  EXPECT_FALSE(inp->use_moo);           // bool keys clear
  EXPECT_TRUE(inp->read_neighbor_dat);  // set-flags do not
  EXPECT_TRUE(inp->RE_calc_lambda_4P);
  EXPECT_EQ(inp->mater_name, "anthracene");
  EXPECT_EQ(inp->kavri_dat_file, "'x.dat'");
  EXPECT_EQ(inp->scratch, " /data");
  EXPECT_EQ(inp->neighbor_scell[1], 2);
  EXPECT_EQ(inp->neighbor_scell[2], 3);
  EXPECT_EQ(inp->super_cell[2], 4);
  EXPECT_EQ(inp->cell_vectors[1][1], 11);
  EXPECT_EQ(inp->cell_vectors[1][2], 0);
  EXPECT_EQ(inp->homo_adjustment, (std::vector<int>{1, 2, 3, 4}));
  EXPECT_EQ(inp->emultipole_scale1, (std::vector<double>{0.5, 0.25}));
  EXPECT_EQ(inp->get_bond_dis_scale(), 1.3);
  EXPECT_EQ(section("nsimu = abc\n")->nsimu, 0);
}

TEST_F(KavriInpTest, KeysWithTheirOwnHandling) {
  auto inp = section(
      "sched_type = pbs\nwalltime = 3725\nchargetype = 'h'\nratetype = Marcus-Hush\n"
      "molecule = 2  a.mol   b.mol c.mol\nreorg_outer = Spheres 0.1 3.4 4.2\nthinfilm = 2 5\n"
      "oniom_output_flag = 1\ndata_mol_output_level = 3\nbasis_name_re = early\n"
      "qc_basis = b3lyp cc-pvdz\nmodule_gaussian = g/16\ncompute_engine = 2\n"
      "app_elec_F = 0 0 1e5\n");
  EXPECT_EQ(inp->walltime_hours * 10000 + inp->walltime_minutes * 100 + inp->walltime_seconds,
            10205);
  EXPECT_EQ(inp->chargetype, "h");
  EXPECT_EQ(inp->kavri_dat_file, "kavri-Marcus-Hush.dat");
  EXPECT_EQ(inp->mol_file_names, (std::vector<std::string>{"a.mol", "b.mol"}));
  EXPECT_EQ(inp->struct_source, 1);
  EXPECT_EQ(inp->get_reorg_outer_flag(), 2);
  EXPECT_EQ(inp->reorg_outer_param, 0.1);
  EXPECT_EQ(inp->reorg_outer_radii, (std::vector<double>{3.4 * 0.1, 4.2 * 0.1}));
  EXPECT_TRUE(inp->thinfilm_flag);
  EXPECT_EQ(inp->thinfilm_dir * 10 + inp->thinfilm_ncell, 25);
  EXPECT_EQ(inp->data_mol_output_level, 11);
  EXPECT_EQ(inp->qc_basis_re, "b3lyp cc-pvdz");
  EXPECT_EQ(inp->module_qc, "g/16");
  EXPECT_TRUE(inp->module_qc_flag);
  EXPECT_EQ(inp->qc_exe, "fullpath/orca");
  EXPECT_TRUE(inp->get_appE_flag());

  inp = section(
      "walltime = '50:00:00'\nCHARGETYPE = H\nratetype = quanta\nreorg_outer = dielectric 2.5 9\n"
      "qc_basis = a\nqc_basis_re = b\ncompute_engine = 2\nqc_exe = my-orca\napp_elec_F = 0\n"
      "HL_unique_mol = 0\n");
  EXPECT_EQ(inp->walltime_days * 100 + inp->walltime_hours, 202);
  EXPECT_EQ(inp->chargetype, "H");
  EXPECT_EQ(inp->get_reorg_outer_flag(), 3);
  EXPECT_EQ(inp->reorg_outer_cutoff, 9 * 0.1);
  EXPECT_EQ(inp->qc_basis_re, "b");
  EXPECT_EQ(inp->qc_exe, "my-orca");
  EXPECT_FALSE(inp->get_appE_flag());
  EXPECT_FALSE(inp->HL_unique_mol_flags[0]);

  inp = section("reorg_outer = constant 0.15\n");
  EXPECT_EQ(inp->reorg_outer_const, 0.15);
  EXPECT_EQ(inp->get_reorg_outer_flag(), 1);
}

TEST_F(KavriInpTest, SchedulerSettingsAndEnvironment) {
  EXPECT_EQ(section("sched_type = lsf\nnodelist = n1,n2\n")->nodelist, "n1 n2");
  auto inp = section("queue_type = LSF\nnodelist = n1,n2\n");
  EXPECT_EQ(inp->nodelist, "n1,n2");  // the post-read tests are case-sensitive
  inp->parse_scheduling_type();
  EXPECT_EQ(inp->get_job_sched_type(), 2);
  inp = section("sched_type = SLURM\n");
  EXPECT_EQ(inp->walltime_hours, 160);
  inp->parse_scheduling_type();
  EXPECT_EQ(inp->get_job_script_ext(), "slurm");
  inp = section("sched_type = condor\n");
  inp->parse_scheduling_type();
  EXPECT_EQ(inp->get_job_sched_type(), 0);
  EXPECT_EQ(inp->get_job_script_ext(), "pbs");
  EXPECT_EQ(inp->getFileName("a/b/c.log"), "c.log");
  EXPECT_EQ(inp->getFileName("c.log"), "");

  setenv("KAVRI_JOB_SCHED", "lsf", 1);
  setenv("KAVRI_QC_NODES", "abc", 1);
  setenv("KAVRI_QC_EXE", " g09 ", 1);
  setenv("KAVRI_MODULE_QC", "", 1);
  inp = read("");
  EXPECT_EQ(inp->sched_type, "lsf");
  EXPECT_EQ(inp->qc_nodes, 0);
  EXPECT_EQ(inp->qc_exe, " g09 ");
  EXPECT_EQ(inp->module_qc, "");
  EXPECT_TRUE(inp->module_qc_flag);
  EXPECT_EQ(section("sched_type = pbs\n")->sched_type, "pbs");  // the file wins
}

TEST_F(KavriInpTest, CrystalIsLoadedWhenItsLineIsMet) {
  const std::string cif = dir_ + "/t.cif";
  std::ofstream(cif) << "data_t\n_cell_length_a 5\n_cell_length_b 6\n_cell_length_c 7\n"
                        "_cell_angle_alpha 90\n_cell_angle_beta 90\n_cell_angle_gamma 90\n"
                        "loop_\n_symmetry_equiv_pos_as_xyz\nx,y,z\n\nloop_\n_atom_site_label\n"
                        "_atom_site_type_symbol\n_atom_site_fract_x\n_atom_site_fract_y\n"
                        "_atom_site_fract_z\nH1 H 0.1 0.1 0.1\nH2 H 0.1 0.1 0.2\n";
  write("&transport\ncrystal = " + cif + "\n/\n");
  Inp inp;
  ::testing::internal::CaptureStdout();
  inp.read_kavri_inp(path_.c_str(), true);
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.rfind("Reading config file \"" + path_ + "\"... \nReading crystal file", 0), 0u);
  EXPECT_EQ(inp.struct_source, 2);
  EXPECT_EQ(inp.get_cif_natoms(), 2);
}

// Each row converts into a field of the kind its type needs, and no spelling appears twice.
TEST_F(KavriInpTest, KeywordTableIsConsistent) {
  // FieldRef alternative expected for each KeyType, in declaration order
  const std::size_t alternative[] = {0, 1, 2, 2, 3, 3, 3, 4, 5, 6, 7};
  Inp inp;
  std::set<std::string> spellings;
  for (std::size_t i = 0; i < Inp::keyword_count; ++i) {
    const auto& row = Inp::keyword_table[i];
    for (const char* name : {row.key, row.alias}) {
      if (!name) continue;
      std::string lower(name);
      for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      EXPECT_TRUE(spellings.insert(lower).second) << name;
    }
    if (row.type == Inp::KeyType::Special) {
      EXPECT_TRUE(row.field == nullptr && row.action != nullptr) << row.key;
    } else {
      ASSERT_NE(row.field, nullptr) << row.key;
      EXPECT_EQ(row.field(inp).index(), alternative[static_cast<int>(row.type)]) << row.key;
    }
  }
  EXPECT_EQ(spellings.size(), Inp::keyword_count + 11);  // eleven older spellings
}

TEST_F(KavriInpTest, FatalPaths) {
  const std::string missing = dir_ + "/none.inp";
  EXPECT_EXIT(
      {
        capture_stdout_only();
        Inp().read_kavri_inp(missing.c_str(), false);
      },
      ::testing::ExitedWithCode(255),
      exact_error(228, "Failed to open input file: " + missing + "\n"));

  const std::string walltime =
      "Walltime format incorrect!\nIt should be either in ssssss seconds or in hh:mm:ss\n";
  const auto rate = [](const std::string& v) {
    return "The current ratetype in kavri.inp is '" + v +
           "', while the supported ratetype's are: marcus, quantum\n";
  };
  const auto engine = [](int n, const std::string& exe) {
    return "Incomptiable settings:\n  The compute_engine = " + std::to_string(n) +
           ", while qc_exe is set to " + exe + "\n  1 - Gaussian, 2 - ORCA, 3 - QCHEM\n";
  };
  const auto molecule = [](const std::string& n, int found) {
    return "\nThe molecule key in file kavri.inp expects " + n + " MOL file names but names " +
           std::to_string(found) + "!!!\n\n";
  };
  const struct {
    std::string body;
    int status, line;
    std::string message;
  } cases[] = {
      {"walltime = 1:30\n", 1, 611, walltime},
      {"walltime =\n", 1, 611, walltime},
      {"chargetype = x\n", 1, 642,
       "The current chargetype in kavri.inp is 'x', while the supported chargetype's are: "
       "'e', 'h', 'a'\n"},
      {"evc_type = 'dint'\n", 1, 658,
       "The current evc_type in kavri.inp is 'dint', while the supported evc_type's are: "
       "'cart', 'int'\n"},
      {"ratetype = qua\n", 1, 738, rate("qua")},
      {"ratetype = hopping\n", 1, 738, rate("hopping")},
      {"ratetype = 'marcus'\n", 1, 738, rate("'marcus'")},
      {"molecule = 3 a.mol\tb.mol c.mol\n", 255, 775, molecule("3", 2)},
      {"molecule = -1\n", 255, 775, molecule("-1", 0)},
      {"molecule = 2000000000 a.mol\n", 255, 775, molecule("2000000000", 1)},
      {"reorg_outer = sphere 0.1 3\n", 255, 894,
       "\nUnknown reorg_outer method \"sphere\" in file kavri.inp!!!\n\n"},
      {"thinfilm = 3 4\n", 255, 947, "\nthinfilm dir not in range [0-2]: \"3 4\n\n"},
      {"thinfilm = -1 4\n", 255, 947, "\nthinfilm dir not in range [0-2]: \"-1 4\n\n"},
      {"x = 1 = 2\n", 255, 1008, "\nUnknown parameter \"x\" in file kavri.inp!!!\n\n"},
      {"qc_exe = orca\n", 1, 1075, engine(1, "orca")},
      {"compute_engine = 2\nqc_exe = g16\n", 1, 1087, engine(2, "g16")},
      {"compute_engine = 3\n", 1, 1099, engine(3, "g16")},
  };
  for (const auto& c : cases) expect_fatal(c.body, c.status, c.line, c.message);
  EXPECT_EQ(section("compute_engine = 4\nqc_exe = x\n")->qc_exe, "x");  // not checked
}

}  // namespace
