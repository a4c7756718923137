// Kinetic Monte Carlo of charge hopping on hand-made networks: each molecule is one atom in
// a cubic 10 angstrom cell and its hops are given through "neighbor.dat", so targets, image
// shifts and hop vectors are known exactly.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "transport.h"
#include "util.h"

namespace fs = std::filesystem;

namespace {

struct Hop {
  int target, a, b, c;
  double rate;
};
using Network = std::vector<std::vector<Hop>>;

// Runs each test in a fresh directory, since the engine reads and writes in the working one.
class Kmc : public testing::Test {
 protected:
  void SetUp() override {
    old_ = fs::current_path();
    dir_ = fs::temp_directory_path() / ("kavri-kmc-" + std::to_string(getpid()) + "-" +
                                        testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    fs::current_path(dir_);
  }
  void TearDown() override {
    fs::current_path(old_);
    fs::remove_all(dir_);
  }
  fs::path old_, dir_;
};

class Model : public Transport {
 public:
  using KavriInp::chargetype, KavriInp::tsimu, KavriInp::tsnap, KavriInp::thinfilm_dir,
      KavriInp::thinfilm_ncell, KavriInp::V_dynamic_disorder;
  using Transport::MC_build_hop_tables, Transport::mc_rates;

  // One carbon atom per molecule at the given fractional sites; writes "neighbor.dat" and
  // the rate file for `net` (rates with `unit`).
  Model(const std::vector<std::array<double, 3>>& sites, const Network& net,
        const char* unit = "1/ns", const char* rate_file = "WH.dat") {
    for (int k = 0; k < 3; ++k) latt[k][k] = 10.0;
    for (const auto& s : sites) {
      ++nmols;
      mol_natoms.push_back(1);
      mol_atypes.push_back({6});
      mol_x_s.push_back({s[0], s[1], s[2]});
      mol_x.push_back({10 * s[0], 10 * s[1], 10 * s[2]});
    }
    read_neighbor_dat = true;
    chargetype = "h";
    tsimu = 1.0;
    tsnap = 0.1;
    std::ofstream nb("neighbor.dat"), w(rate_file);
    nb << net.size() << "\nheader\nheader\n";
    w << net.size() << "\n";
    for (const auto& hops : net) {
      nb << "molecule\n" << hops.size() << "\n";
      w << hops.size() << "\n";
      for (const Hop& h : hops) {
        nb << h.target + 1 << " 0 0 0 0 " << h.a << " " << h.b << " " << h.c << "\n";
        char line[128];
        std::snprintf(line, sizeof line, "3.5 A %.17g %s 0.01 eV\n", h.rate, unit);
        w << line;
      }
    }
  }
  std::string init() {
    post_data_read_treatment(false);
    testing::internal::CaptureStdout();
    MC_init();
    return testing::internal::GetCapturedStdout();
  }
};

std::string slurp(const fs::path& p) {
  std::ifstream in(p);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

std::string row(double t, double x, double r2, int steps) {
  char buf[128];
  std::snprintf(buf, sizeof buf, "%14.6e %14.6e %14.6e %14.6e %14.6e  %d\n", t, x, 0.0, 0.0, r2,
                steps);
  return buf;
}

const std::string kHeader =
    "#      t,ns         x,angs         y,angs         z,angs         r2,A^2     istep\n";

// A single molecule hopping to its own images along +a, +b, +c with the given rates.
Model star(double ka, double kb, double kc) {
  return Model({{0, 0, 0}}, {{{0, 1, 0, 0, ka}, {0, 0, 1, 0, kb}, {0, 0, 0, 1, kc}}});
}

}  // namespace

TEST_F(Kmc, RatesUnitsAndInitOutputs) {
  // The unit of a molecule's first hop line scales all its hops; unknown units scale by 1.
  Model m({{0, 0, 0}, {0.5, 0, 0}}, {{{1, 0, 0, 0, 2.5e9}, {1, -1, 0, 0, 4e9}},
                                     {{0, 0, 0, 0, 0.5}, {0, 1, 0, 0, 0.25}}},
          "1/S");
  std::ofstream("WH.dat") << "2\n2\n 1 x 2.5e9 1/S 0 y\n1 x 4e9 1/ps\n2\n1 x 0.5 1/PS\n"
                             "1 x 0.25 1/s\n";
  m.V_dynamic_disorder = true;
  EXPECT_EQ(m.init(),
            "Initializing MC...\nReading file 'neighbor.dat'\nReading W files...\n"
            "Initializing dynamic disorder...\n"
            "  V_dynamic_disorder  = 1\n  HL_dynamic_disorder = 0\n"
            "  chargetype = h\n  temp       = 300\n");
  EXPECT_EQ(slurp("w0.dat"),
            "2\n2\n   2.500000e+00 1/ns\n   4.000000e+00 1/ns\n2\n   5.000000e+02 1/ns\n"
            "   2.500000e+02 1/ns\n");
  EXPECT_EQ(m.get_MC_nrec(), 10);
  EXPECT_EQ(m.get_MC_max_nhops(), 2);
  EXPECT_DOUBLE_EQ(m.get_MC_residence_time(1), 1.0 / 750.0);
  const std::string rates = slurp("hoprates.dat");
  EXPECT_NE(rates.find("     1     2       2    -1     0     0      5.000000   4.000000e+00"
                       "   6.153846e-01   6.500000e+00\n"),
            std::string::npos)
      << rates;
  EXPECT_NE(slurp("hoprates-dyn.dat").find("   5.000000e+02   5.450000e+02\n"), std::string::npos);

  // Electrons read WL.dat; a unit that is not a rate leaves the factor at 1.
  Model e({{0, 0, 0}}, {{{0, 1, 0, 0, 7.0}}}, "Hz", "WL.dat");
  e.chargetype = "Electron";
  e.init();
  EXPECT_EQ(e.get_MC_rate(0, 0), 7.0);
}

TEST_F(Kmc, RateAndTrackFileFailuresDeath) {
  auto run = [](const char* chargetype, const char* rates, const char* track_dir = nullptr) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    Model m({{0, 0, 0}, {0.5, 0, 0}}, {{{1, 0, 0, 0, 1.0}}, {{0, 0, 0, 0, 1.0}}});
    if (rates) std::ofstream("WH.dat") << rates;
    else fs::remove("WH.dat");
    m.chargetype = chargetype;
    m.post_data_read_treatment(false);
    m.MC_init();
    if (track_dir) m.MC_simulation_one(0, track_dir);
  };
  const auto status = testing::ExitedWithCode(255);
  EXPECT_EXIT(run("a", nullptr), status,
              "\nReading W files...\nINFO: MC chargetype = a\nCHARGETYPE IS NOT SET CORRECTLY!\n");
  EXPECT_EXIT(run("h", nullptr), status, "Failed to open input file WH.dat\n");
  EXPECT_EXIT(run("h", "3\n"), status, "Data in 'WH.dat' incomptible: 3 : 2 should be equal!\n");
  // Counts far beyond the data are refused before anything is stored (atoi narrowing).
  EXPECT_EXIT(run("h", "2\n2147483647\n"), status, "incomptible: 2147483647 : 1 should");
  EXPECT_EXIT(run("h", "2\n1\n1 a 1 1/ns\n99999999999\n"), status, "incomptible: 1215752191 : 1");
  EXPECT_EXIT(run("h", ""), status, "incomptible: 0 : 2 should");
  // A truncated file reads missing hop lines as rate 0; an unwritable table is fatal.
  EXPECT_EXIT(
      {
        fs::create_directory("w0.dat");
        run("h", "2\n1\n\n1\n");
      },
      status, "\nERROR  transport : transport : line 5213 : \nFailed to open output file w0.dat\n");
  EXPECT_EXIT(
      {
        fs::remove("w0.dat");
        std::ofstream("plain") << "x";
        run("h", "2\n1\n1 x 1 1/ns\n1\n1 x 1 1/ns\n", "plain");
      },
      status, "line 5213 : \nFailed to open output file plain/track_0001.dat\n");
}

TEST_F(Kmc, HopChoiceSweepsTheUniformVariate) {
  Model m = star(1, 2, 3);
  m.init();
  EXPECT_EQ(m.get_MC_residence_time(0), 1.0 / 6.0);
  const double c0 = 1.0 / 6.0, c1 = c0 + 2.0 / 6.0;
  for (double u = 0.0; u < 1.0; u += 1.0 / 512)
    EXPECT_EQ(m.MC_select_hop(0, u), u < c0 ? 0 : u < c1 ? 1 : 2) << u;
  EXPECT_EQ(m.MC_select_hop(0, c0), 1);  // strictly greater
  EXPECT_EQ(m.MC_select_hop(0, std::nextafter(c0, 0.0)), 0);
  EXPECT_EQ(m.MC_select_hop(0, 1.0), 0);  // no running sum exceeds u: hop 0, not the last

  // The tabulated choice equals the literal running-sum test for arbitrary rates: ties,
  // zeros, negative rates (sums that do not ascend), sums rounding below 1.
  std::mt19937 gen(7);
  std::vector<double> pool = {0.0, 1.0, 0.1, 3.0, 1e-12, 7.25, -0.5, 0.3};
  for (int trial = 0; trial < 300; ++trial) {
    std::vector<double>& k = m.mc_rates[0];
    for (double& v : k) v = trial % 3 ? pool[gen() % pool.size()] : gen() % 1000 / 7.0;
    m.MC_build_hop_tables();
    const double K = k[0] + k[1] + k[2];
    std::vector<double> probes = {0.0, 1.0, 0.5};
    double s = 0;
    for (double v : k) {
      s += v / K;
      probes.insert(probes.end(), {s, std::nextafter(s, 0.0), std::nextafter(s, 2.0)});
    }
    for (double u : probes) {
      int expect = 0;
      double run = 0;
      for (int j = 0; j < 3; ++j)
        if ((run += k[j] / K) > u) {
          expect = j;
          break;
        }
      ASSERT_EQ(m.MC_select_hop(0, u), expect) << k[0] << " " << k[1] << " " << k[2] << " " << u;
    }
  }
}

TEST_F(Kmc, TracksOfOneHopChainAreExact) {
  // One hop of 16/ns along +a: dt = 1/16 ns; with tsnap = 0.25 every third hop samples
  // (dt >= tsnap - tau with tau already holding dt), recording the step count and time
  // before that hop and the position after it.
  Model m({{0, 0, 0}}, {{{0, 1, 0, 0, 16.0}}});
  m.tsnap = 0.25;
  m.set_MC_seed(3);
  m.init();
  m.MC_simulation_one(0, "out");
  std::string cell = kHeader + row(0, 0, 0, 0), cart = cell;
  for (int r = 0; r < 4; ++r) {
    cell += row((3 * r + 2) / 16.0, 30.0 * (r + 1), 9.0 * (r + 1) * (r + 1), 3 * r + 2);
    cart += row((3 * r + 2) / 16.0, 30.0 * (r + 1), 900.0 * (r + 1) * (r + 1), 3 * r + 2);
  }
  EXPECT_EQ(slurp("out/track_0001.dat"), cell);  // |D|^2 in cell units

  testing::internal::CaptureStdout();
  m.MC_run_openMP("out", 0, 2);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "MC simulation...\nAll data are in directory: out\n");
  EXPECT_EQ(slurp("out/track_0002.dat"), cart);  // |M.D|^2 in angstrom^2
  std::string ave = kHeader + row(0, 0, 0, 0);
  for (int r = 0; r < 4; ++r)
    ave += row((3 * r + 2) / 16.0, 30.0 * (r + 1), 900.0 * (r + 1) * (r + 1), 0);
  EXPECT_EQ(slurp("out/track_ave.dat"), ave);

  m.output_track(12345, "out");
  EXPECT_EQ(slurp("out/track_12345.dat"), cart);

  // A molecule without hops: infinite residence time, so it samples on every step.
  Model lone({{0, 0, 0}}, {{}});
  lone.init();
  lone.MC_simulation_one(1, "lone");
  std::string expect = kHeader + row(0, 0, 0, 0) + row(0, 0, 0, 0);
  for (int r = 1; r < 10; ++r) expect += row(INFINITY, 0, 0, r);
  EXPECT_EQ(slurp("lone/track_0002.dat"), expect);
}

TEST_F(Kmc, HopFrequenciesDiffusionAndSeeds) {
  // Rates 1, 2, 3 along +a, +b, +c: the position counts the hops of each kind. Both engines
  // choose them in proportion to the rates, and time advances by exactly 1/6 ns per hop.
  Model m = star(1, 2, 3);
  m.tsimu = 2000;
  m.tsnap = 200;
  m.set_MC_seed(11);
  m.init();
  for (int engine = 0; engine < 2; ++engine) {
    testing::internal::CaptureStdout();
    if (engine == 0) m.MC_simulation_one(0, "f");
    else m.MC_run_openMP("f", 0, 1);
    testing::internal::GetCapturedStdout();
    const int r = m.get_MC_nrec();
    const double n = m.get_MC_steps()[r] + 1.0;
    const double* p = &m.get_MC_pos()[3 * r];
    EXPECT_DOUBLE_EQ((p[0] + p[1] + p[2]) / 10, n);
    for (int k = 0; k < 3; ++k) {
      const double q = (k + 1) / 6.0;
      EXPECT_NEAR(p[k] / 10 / n, q, 5 * std::sqrt(q * (1 - q) / n)) << engine << k;
    }
    EXPECT_NEAR(m.get_MC_time()[r], (n - 1) / 6, 1e-9 * n);
  }

  // A seeded stream depends on the seed and the run number only.
  Model a = star(1, 2, 3);
  a.set_MC_seed(5);
  a.init();
  for (const char* dir : {"a", "b"}) a.MC_simulation_one(0, dir);
  a.MC_simulation_one(7, "a");
  EXPECT_EQ(slurp("a/track_0001.dat"), slurp("b/track_0001.dat"));
  EXPECT_NE(slurp("a/track_0001.dat"), slurp("a/track_0008.dat"));

  // Isotropic cubic lattice, 6 hops of 1/ns: <r^2> = (hops made) a^2. Dynamic disorder with
  // both switches off is the static engine.
  Model c({{0, 0, 0}}, {{{0, 1, 0, 0, 1}, {0, -1, 0, 0, 1}, {0, 0, 1, 0, 1},
                         {0, 0, -1, 0, 1}, {0, 0, 0, 1, 1}, {0, 0, 0, -1, 1}}});
  c.tsimu = 20;
  c.tsnap = 2;
  c.set_MC_seed(1);
  c.init();
  testing::internal::CaptureStdout();
  c.MC_run_openMP("iso", 0, 300);
  c.MC_run_openMP_dyn_disorder("dyn", 0, 300);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(slurp("iso/track_ave.dat"), slurp("dyn/track_ave.dat"));
  for (int r = 1; r < c.get_MC_nrec(); r += 4) {
    const double hops = c.get_MC_steps()[r] + 1.0;
    EXPECT_NEAR(c.get_MC_sum_r2()[r] / (100 * hops), 1.0, 0.25) << r;
    EXPECT_NEAR(c.get_MC_sum_pos()[3 * r] / 10, 0.0, 0.25 * std::sqrt(hops)) << r;
  }
}

TEST_F(Kmc, ThinFilmChoice) {
  // Four hops of rate 1 with a-offsets (1, 0, 2, 0) and c-offsets (5, 0, 0, 0); the film is
  // normal to c. Hop j's film coordinate is read from the tables at its a-offset.
  Model m({{0, 0, 0}}, {{{0, 1, 0, 5, 1}, {0, 0, 0, 0, 1}, {0, 2, 0, 0, 1}, {0, 0, 0, 0, 1}}});
  m.thinfilm_dir = 2;
  m.thinfilm_ncell = 1;
  m.init();
  double K = -1;
  const double at0[3] = {0, 0, 0}, below[3] = {0, 0, -5};
  // Allowed {0, 2}: after failing hop 0 the sum adds p[1] = 0, so hop 2 is never chosen.
  for (double u : {0.0, 0.49, 0.5, 0.99}) EXPECT_EQ(m.MC_select_hop_thinfilm(0, at0, u, &K), 0);
  EXPECT_EQ(K, 2.0);
  // Allowed {1, 3} (5 - 5 = 0 is in the film): hop 1 either way.
  for (double u : {0.2, 0.7}) EXPECT_EQ(m.MC_select_hop_thinfilm(0, below, u, &K), 1);
  // A thick film allows all four: plain roulette.
  m.thinfilm_ncell = 10;
  for (int q = 0; q < 4; ++q) EXPECT_EQ(m.MC_select_hop_thinfilm(0, at0, q * 0.25 + 0.1, &K), q);
  EXPECT_EQ(m.MC_select_hop_thinfilm(0, at0, 0.25, &K), 1);  // strictly greater
  // No hop in the film: K = 0 and hop 0.
  m.thinfilm_ncell = 0;
  EXPECT_EQ(m.MC_select_hop_thinfilm(0, at0, 0.7, &K), 0);
  EXPECT_EQ(K, 0.0);

  m.thinfilm_ncell = 10;
  m.set_MC_seed(2);
  testing::internal::CaptureStdout();
  m.MC_simulation_one_thinfilm(2, "tf");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "MC simulation (3)...\n");
  EXPECT_TRUE(fs::exists("tf/track_0003.dat"));
}
