// Kinetic Monte Carlo of charge hopping on hand-made networks: each molecule is one atom in
// a cubic 10 angstrom cell and its hops come from "neighbor.dat", so targets, image shifts
// and hop vectors are known exactly.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "transport.h"
#include "util.h"

namespace fs = std::filesystem;

namespace {

struct Hop {
  int target, a, b, c;
  double rate;
};

// Each test runs in a fresh directory, since the engine reads and writes in the working one.
class Kmc : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(dir_);
    fs::current_path(dir_);
  }
  void TearDown() override {
    fs::current_path(old_);
    fs::remove_all(dir_);
  }
  fs::path old_ = fs::current_path();
  fs::path dir_ = fs::temp_directory_path() / ("kavri-kmc-" + std::to_string(getpid()));
};

// Molecule i is one carbon atom at (i / 4, 0, 0) in cell units; writes "neighbor.dat" and
// "WH.dat" (rates in 1/ns) for `net`; holes.
class Model : public Transport {
 public:
  using KavriInp::chargetype, KavriInp::tsimu, KavriInp::tsnap, KavriInp::thinfilm_dir,
      KavriInp::thinfilm_ncell, KavriInp::V_dynamic_disorder, KavriInp::HOMOLUMO_dynamic_disorder,
      KavriInp::temp;

  explicit Model(const std::vector<std::vector<Hop>>& net) {
    for (int k = 0; k < 3; ++k) latt[k][k] = 10.0;
    nmols = static_cast<int>(net.size());
    mol_natoms.assign(nmols, 1);
    mol_atypes.assign(nmols, {6});
    for (int i = 0; i < nmols; ++i) mol_x_s.push_back({0.25 * i, 0, 0});
    read_neighbor_dat = true;
    chargetype = "h";
    std::ofstream nb("neighbor.dat"), w("WH.dat");
    nb << net.size() << "\nheader\nheader\n";
    w << net.size() << "\n";
    for (const auto& hops : net) {
      nb << "molecule\n" << hops.size() << "\n";
      w << hops.size() << "\n";
      for (const Hop& h : hops) {
        nb << h.target + 1 << " 0 0 0 0 " << h.a << " " << h.b << " " << h.c << "\n";
        w << "3.5 A " << h.rate << " 1/ns 0.01 eV\n";
      }
    }
    post_data_read_treatment(false);
  }
  void init() {
    testing::internal::CaptureStdout();
    MC_init();
    testing::internal::GetCapturedStdout();
  }
};

std::string slurp(const char* name) {
  std::ifstream in(name);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

const std::string kHeader =
    "#      t,ns         x,angs         y,angs         z,angs         r2,A^2     istep\n";

std::string row(double t, double x, double r2, int steps) {
  return format_string("%14.6e %14.6e %14.6e %14.6e %14.6e  %d\n", t, x, 0.0, 0.0, r2, steps);
}

}  // namespace

TEST_F(Kmc, RateUnitsAndRateTable) {
  // The unit of a molecule's first hop line scales all its hops (1/s, 1/ps, 1/ns in any case;
  // anything else by 1). Electrons read WL.dat.
  Model m({{{1, 0, 0, 0, 0}, {1, -1, 0, 0, 0}}, {{2, 0, 0, 0, 0}}, {{0, 0, 0, 0, 0}}});
  std::ofstream("WL.dat") << "3\n2\n 1 x 2.5e9 1/S 0 y\n1 x 4e9 1/ps\n"
                             "1\n1 x 0.5 1/PS\n1\n1 x 7 Hz\n";
  m.chargetype = "Electron";
  m.init();
  EXPECT_EQ(slurp("w0.dat"), "3\n2\n   2.500000e+00 1/ns\n   4.000000e+00 1/ns\n"
                             "1\n   5.000000e+02 1/ns\n1\n   7.000000e+00 1/ns\n");
}

TEST_F(Kmc, RateFileFailuresDeath) {
  // Counts that disagree with the neighbour list end with 255 (a huge one before anything is
  // stored for it). NaN or infinite rates (also after the unit conversion), a molecule with
  // hops whose total rate is not positive (time would stall or run backwards) and rates that
  // need over 1e10 hops per sampling interval end with 1.
  const std::tuple<const char*, const char*, int> cases[] = {
      {nullptr, "Failed to open input file WH.dat\n", 255},
      {"3\n", "Data in 'WH.dat' incomptible: 3 : 2 should be equal!\n", 255},
      {"2\n2147483647\n", "incomptible: 2147483647 : 1 should", 255},
      {"2\n1\n1 x 1 1/ns\n1\n1 x -2 1/ns\n",
       "line 5129 : \nInvalid total hopping rate K = -2 1/ns of molecule 2 in WH.dat: the "
       "residence time 1/K must be positive and finite for a trajectory to advance!\n", 1},
      {"2\n1\n1 x 0 1/ns\n1\n1 x 1 1/ns\n", "total hopping rate K = 0 1/ns of molecule 1", 1},
      {"2\n1\n1 x nan 1/ns\n1\n1 x 1 1/ns\n",
       "Invalid hopping rate nan 1/ns for molecule 1 hop 1 in WH.dat: rates must be finite", 1},
      {"2\n1\n1 x 1 1/ns\n1\n1 x 1e306 1/ps\n", "Invalid hopping rate inf 1/ns for molecule 2", 1},
      {"2\n1\n1 x 1 1/ns\n1\n1 x 1e12 1/ns\n", "line 5255 : \nHopping rates of molecule 2", 1},
  };
  Model m({{{1, 0, 0, 0, 1.0}}, {{0, 0, 0, 0, 1.0}}});
  for (const auto& [rates, message, status] : cases) {
    if (rates) std::ofstream("WH.dat") << rates;
    else fs::remove("WH.dat");
    EXPECT_EXIT((dup2(STDERR_FILENO, STDOUT_FILENO), m.MC_init()), testing::ExitedWithCode(status),
                message);
  }
}

TEST_F(Kmc, HopChoiceFrequenciesAndSeeds) {
  // Molecule 1 hops to its own images along +a, +b, +c with rates 1, 2, 3. Molecule 2 (never
  // reached) has rates 1, 0, 2, 1, 4: two blocks of the hop table and a zero rate.
  Model m({{{0, 1, 0, 0, 1}, {0, 0, 1, 0, 2}, {0, 0, 0, 1, 3}},
           {{1, 1, 0, 0, 1}, {1, 0, 1, 0, 0}, {0, 0, 0, 0, 2}, {1, 0, 0, 1, 1}, {1, -1, 0, 0, 4}}});
  m.tsimu = 2000;
  m.tsnap = 200;
  m.set_MC_seed(11);
  m.init();
  const double c0 = 1.0 / 6.0, c1 = c0 + 2.0 / 6.0;
  for (double u = 0.0; u < 1.0; u += 1.0 / 512) {
    EXPECT_EQ(m.MC_select_hop(0, u), u < c0 ? 0 : u < c1 ? 1 : 2) << u;
    EXPECT_EQ(m.MC_select_hop(1, u), u < 0.125 ? 0 : u < 0.375 ? 2 : u < 0.5 ? 3 : 4) << u;
  }
  EXPECT_EQ(m.MC_select_hop(0, c0), 1);  // strictly greater
  EXPECT_EQ(m.MC_select_hop(0, 1.0), 0);  // no running sum exceeds u: hop 0, not the last

  // Rates 2, -1, 3 (K = 4): running sums 1/2, 1/4, 1; hop 1 is never the first above u.
  // Rates 3, -1 (K = 2): sums 3/2, 1; hop 0 always.
  Model neg({{{0, 1, 0, 0, 2}, {0, 0, 1, 0, -1}, {0, 0, 0, 1, 3}},
             {{1, 1, 0, 0, 3}, {1, 0, 1, 0, -1}}});
  neg.init();
  for (double u = 0.0; u < 1.0; u += 1.0 / 512) {
    EXPECT_EQ(neg.MC_select_hop(0, u), u < 0.5 ? 0 : 2) << u;
    EXPECT_EQ(neg.MC_select_hop(1, u), 0) << u;
  }

  // The position counts the hops of each kind: chosen in proportion to the rates, while
  // time advances by exactly 1/6 ns per hop.
  m.MC_simulation_one(0, "a");
  const int r = m.get_MC_nrec();
  const double n = m.get_MC_steps()[r] + 1.0;
  const double* p = &m.get_MC_pos()[3 * r];
  for (int k = 0; k < 3; ++k) {
    const double q = (k + 1) / 6.0;
    EXPECT_NEAR(p[k] / 10 / n, q, 5 * std::sqrt(q * (1 - q) / n)) << k;
  }
  EXPECT_NEAR(m.get_MC_time()[r], (n - 1) / 6, 1e-9 * n);

  // A seeded stream depends on the seed and the run number only.
  m.MC_simulation_one(0, "b");
  m.MC_simulation_one(7, "a");
  EXPECT_EQ(slurp("a/track_0001.dat"), slurp("b/track_0001.dat"));
  EXPECT_NE(slurp("a/track_0001.dat"), slurp("a/track_0008.dat"));
}

TEST_F(Kmc, TracksOfDeterministicNetworksAreExact) {
  // One hop of 16/ns along +a: dt = 1/16 ns; with tsnap = 0.25 every third hop samples,
  // recording the step count and time before that hop and the position after it.
  Model m({{{0, 1, 0, 0, 16.0}}});
  m.tsimu = 1.0;
  m.tsnap = 0.25;
  m.init();
  std::string cell = kHeader + row(0, 0, 0, 0), cart = cell, ave = cell;
  for (int r = 1; r <= 4; ++r) {
    const double t = (3 * r - 1) / 16.0;
    cell += row(t, 30.0 * r, 9.0 * r * r, 3 * r - 1);  // |D|^2 in cell units
    cart += row(t, 30.0 * r, 900.0 * r * r, 3 * r - 1);  // |M.D|^2 in angstrom^2
    ave += row(t, 30.0 * r, 900.0 * r * r, 0);
  }
  m.MC_simulation_one(0, "out");
  EXPECT_EQ(slurp("out/track_0001.dat"), cell);
  testing::internal::CaptureStdout();
  m.MC_run_openMP("out", 0, 2);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(slurp("out/track_0002.dat"), cart);
  EXPECT_EQ(slurp("out/track_ave.dat"), ave);

  // One hop to a molecule without hops: its residence time is infinite, so every step from
  // there samples and the trajectory ends.
  Model z({{{1, 0, 0, 0, 1}}, {}});
  z.tsimu = 1.0;
  z.tsnap = 0.1;
  z.init();
  z.MC_simulation_one(1, "z");
  EXPECT_EQ(z.get_MC_time()[z.get_MC_nrec()], INFINITY);
  EXPECT_EQ(z.get_MC_pos()[3 * z.get_MC_nrec()], 2.5);
}

TEST_F(Kmc, ThinFilmChoice) {
  // Four hops of rate 1 with a-offsets (1, 0, 2, 0) and c-offsets (5, 0, 0, 0); the film is
  // normal to c and one cell thick. Hop j's film coordinate is read at index a-offset(j).
  Model m({{{0, 1, 0, 5, 1}, {0, 0, 0, 0, 1}, {0, 2, 0, 0, 1}, {0, 0, 0, 0, 1}}});
  m.thinfilm_dir = 2;
  m.thinfilm_ncell = 1;
  m.init();
  double K = -1;
  const double at0[3] = {0, 0, 0};
  // Allowed {0, 2}: after failing hop 0 the sum adds p[1] = 0, so hop 2 is never chosen.
  for (double u : {0.0, 0.5, 0.99}) EXPECT_EQ(m.MC_select_hop_thinfilm(0, at0, u, &K), 0);
  EXPECT_EQ(K, 2.0);
  // No hop in the film: K = 0 and hop 0.
  m.thinfilm_ncell = 0;
  EXPECT_EQ(m.MC_select_hop_thinfilm(0, at0, 0.7, &K), 0);
  EXPECT_EQ(K, 0.0);
}

TEST_F(Kmc, SampleAndTrajectoryCountsAtTheEdges) {
  // tsimu / tsnap + 0.5 truncated to -1: the trajectory ends at once, and every track holds
  // the header and the zero line.
  Model m({{{0, 1, 0, 0, 16.0}}});
  m.tsimu = -2.0;
  m.tsnap = 1.0;
  m.init();
  EXPECT_EQ(m.get_MC_nrec(), -1);
  m.MC_simulation_one(0, "one");
  EXPECT_EQ(slurp("one/track_0001.dat"), kHeader + row(0, 0, 0, 0));
  testing::internal::CaptureStdout();
  m.MC_run_openMP("all", 0, 2);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(slurp("all/track_0002.dat"), kHeader + row(0, 0, 0, 0));
  EXPECT_EQ(slurp("all/track_ave.dat"), kHeader + row(0, 0, 0, 0));

  // Without trajectories the average divides the cleared sums by 0: 0 / 0 prints as -nan.
  Model none({{{0, 1, 0, 0, 16.0}}});
  none.tsimu = 2.0;
  none.tsnap = 1.0;
  none.init();
  testing::internal::CaptureStdout();
  none.MC_run_openMP("none", 0, 0);
  testing::internal::GetCapturedStdout();
  const std::string nan_row =
      format_string("%14s %14s %14s %14s %14s  0\n", "-nan", "-nan", "-nan", "-nan", "-nan");
  EXPECT_EQ(slurp("none/track_ave.dat"), kHeader + row(0, 0, 0, 0) + nan_row + nan_row);
  EXPECT_FALSE(fs::exists("none/track_0001.dat"));

  // A zero interval and counts below -1 have no meaning.
  const std::tuple<double, double, const char*> refused[] = {
      {1.0, 0.0, "line 5247 : \nMC sampling interval tsnap = 0 ns: the number of samples "
                 "tsimu / tsnap \\(tsimu = 1\\) is undefined!\n"},
      {-2.5, 1.0, "line 5247 : \nMC sampling out of range: tsimu = -2.5, tsnap = 1 give -2 "
                  "samples \\(from -1 to 10000000\\)!\n"},
  };
  for (const auto& [tsimu, tsnap, message] : refused) {
    Model r({{{0, 1, 0, 0, 16.0}}});
    r.tsimu = tsimu;
    r.tsnap = tsnap;
    EXPECT_EXIT((dup2(STDERR_FILENO, STDOUT_FILENO), r.MC_init()), testing::ExitedWithCode(1),
                message);
  }
}

TEST_F(Kmc, EveryEngineRunsSeededTrajectoriesReproducibly) {
  // Two molecules hopping to each other's images; rates 1, 3 out of molecule 1, 2 out of 2.
  const std::vector<std::vector<Hop>> net = {{{1, 0, 0, 0, 1.0}, {1, 1, 0, 0, 3.0}},
                                             {{0, 0, 0, 0, 2.0}}};
  // The rate table: molecule, hop, target, shift, distance, rate, k/K and K.
  {
    Model m(net);
    m.init();
    EXPECT_EQ(slurp("hoprates.dat"),
              "# hop rates of the charge (chargetype = h)\n"
              "#  mol   hop  target     a     b     c     dist,angs      rate,1/ns"
              "    probability    ktotal,1/ns\n" +
                  format_string("%6d %5d %7d %5d %5d %5d %13.6f %14.6e %14.6e %14.6e\n", 1, 1, 2,
                                0, 0, 0, 2.5, 1.0, 0.25, 4.0) +
                  format_string("%6d %5d %7d %5d %5d %5d %13.6f %14.6e %14.6e %14.6e\n", 1, 2, 2,
                                1, 0, 0, 12.5, 3.0, 0.75, 4.0) +
                  format_string("%6d %5d %7d %5d %5d %5d %13.6f %14.6e %14.6e %14.6e\n", 2, 1, 1,
                                0, 0, 0, 2.5, 2.0, 1.0, 2.0));
  }
  // Each engine, run twice with the same seed over three trajectories, writes the same tracks
  // and average; another seed moves them. Dynamic disorder also writes its mean rates.
  using Run = void (Transport::*)(const char*, int, int);
  const std::pair<const char*, Run> engines[] = {
      {"static", &Transport::MC_run_openMP},
      {"serial", &Transport::MC_run},
      {"film", &Transport::MC_run_openMP_thinfilm},
      {"dynamic", &Transport::MC_run_openMP_dyn_disorder}};
  for (const auto& [name, run] : engines) {
    std::string tracks[3];
    for (int trial = 0; trial < 3; ++trial) {
      Model m(net);
      m.tsimu = 20.0;
      m.tsnap = 1.0;
      m.thinfilm_dir = 1;  // a film normal to b, one cell thick: every hop here stays in it
      m.thinfilm_ncell = 1;
      m.V_dynamic_disorder = m.HOMOLUMO_dynamic_disorder = std::string(name) == "dynamic";
      m.temp = 300.0;
      m.set_MC_seed(trial < 2 ? 5 : 6);
      m.init();
      const std::string dir = std::string(name) + std::to_string(trial);
      testing::internal::CaptureStdout();
      (m.*run)(dir.c_str(), 0, 3);
      testing::internal::GetCapturedStdout();
      for (const char* f : {"/track_0001.dat", "/track_0003.dat", "/track_ave.dat"})
        tracks[trial] += slurp((dir + f).c_str());
      EXPECT_EQ(std::count(tracks[trial].begin(), tracks[trial].end(), '\n'), 3 * 22) << name;
    }
    EXPECT_EQ(tracks[0], tracks[1]) << name;
    EXPECT_NE(tracks[0], tracks[2]) << name;
    if (std::string(name) == "dynamic") {
      const std::string dyn = slurp("hoprates-dyn.dat");
      EXPECT_EQ(dyn.rfind("# dynamic disorder: V_dynamic_disorder = 1", 0), 0u) << dyn;
      EXPECT_EQ(std::count(dyn.begin(), dyn.end(), '\n'), 2 + 3);
    }
  }
}
