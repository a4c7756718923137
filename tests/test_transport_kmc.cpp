// Kinetic Monte Carlo of charge hopping on hand-made networks in a cubic 10 angstrom cell,
// where molecule i sits at (i / 4, 0, 0) in cell units, so that targets, hop vectors and
// residence times are known exactly. The hopping engine is run on network values; the model's
// operations run from real files (input file, MOL files, neighbor.dat, WH.dat) to the rate
// tables and track files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "hop_network.h"
#include "test_support.h"
#include "transport.h"
#include "util.h"

namespace fs = std::filesystem;
using test_support::slurp;

namespace {

struct Hop {
  int target, a, b, c;
  double rate;
};
using Net = std::vector<std::vector<Hop>>;

MCNetwork network(const Net& net) {
  MCNetwork n;
  for (int k = 0; k < 3; ++k) n.lattice.m[k][k] = 10.0;
  n.hops.resize(net.size());
  for (size_t i = 0; i < net.size(); ++i)
    for (const Hop& h : net[i])
      n.hops[i].push_back(MCHop{h.target, h.a, h.b, h.c,
                                Fractional(0.25 * h.target + h.a - 0.25 * i, h.b, h.c), h.rate});
  return n;
}

MCSettings sampling(double tsnap, int nrec, bool cartesian_r2 = true) {
  MCSettings s;
  s.tsnap = tsnap;
  s.nrec = nrec;
  s.cartesian_r2 = cartesian_r2;
  return s;
}

bool same(const MCSamples& x, const MCSamples& y) {
  return x.steps == y.steps && x.time == y.time && x.pos == y.pos && x.r2 == y.r2;
}

// Molecule 0 hops to its own images along +a, +b, +c with rates 1, 2, 3. Molecule 1 (never
// reached) has rates 1, 0, 2, 1, 4: two blocks of the hop table and a zero rate.
const Net kAxes = {
    {{0, 1, 0, 0, 1}, {0, 0, 1, 0, 2}, {0, 0, 0, 1, 3}},
    {{1, 1, 0, 0, 1}, {1, 0, 1, 0, 0}, {0, 0, 0, 0, 2}, {1, 0, 0, 1, 1}, {1, -1, 0, 0, 4}}};
// Two molecules hopping to each other's images; rates 1, 3 out of molecule 0, 2 out of 1.
const Net kPair = {{{1, 0, 0, 0, 1.0}, {1, 1, 0, 0, 3.0}}, {{0, 0, 0, 0, 2.0}}};

}  // namespace

TEST(HopEngine, HopChoiceSweepsTheVariate) {
  const HopEngine e(network(kAxes));
  const double c0 = 1.0 / 6.0, c1 = c0 + 2.0 / 6.0;
  for (double u = 0.0; u < 1.0; u += 1.0 / 512) {
    EXPECT_EQ(e.select_hop(0, u), u < c0 ? 0 : u < c1 ? 1 : 2) << u;
    EXPECT_EQ(e.select_hop(1, u), u < 0.125 ? 0 : u < 0.375 ? 2 : u < 0.5 ? 3 : 4) << u;
  }
  EXPECT_EQ(e.select_hop(0, c0), 1);   // strictly greater
  EXPECT_EQ(e.select_hop(0, 1.0), 0);  // no running sum exceeds u: hop 0, not the last
  EXPECT_EQ(std::make_tuple(e.residence_time(0), e.residence_time(1), e.max_nhops()),
            std::make_tuple(1.0 / 6.0, 1.0 / 8.0, 5));
  EXPECT_EQ(std::make_tuple(e.select_hop(2, 0.5), e.select_hop(-1, 0.5)), std::make_tuple(-1, -1));

  // Rates 2, -1, 3 (K = 4): running sums 1/2, 1/4, 1; hop 1 is never the first above u.
  // Rates 3, -1 (K = 2): sums 3/2, 1; hop 0 always. No hops: hop 0 and an infinite stay.
  const HopEngine neg(network({{{0, 1, 0, 0, 2}, {0, 0, 1, 0, -1}, {0, 0, 0, 1, 3}},
                               {{1, 1, 0, 0, 3}, {1, 0, 1, 0, -1}},
                               {}}));
  for (double u = 0.0; u < 1.0; u += 1.0 / 512) {
    EXPECT_EQ(neg.select_hop(0, u), u < 0.5 ? 0 : 2) << u;
    EXPECT_EQ(neg.select_hop(1, u), 0) << u;
    EXPECT_EQ(neg.select_hop(2, u), 0) << u;
  }
  EXPECT_EQ(neg.residence_time(2), INFINITY);
}

TEST(HopEngine, ThinFilmChoice) {
  // Four hops of rate 1 with a-shifts (1, 0, 2, 0) and c-shifts (5, 0, 0, 0); the film is
  // normal to c and one cell thick. Hop j's film coordinate is read at index a-shift(j).
  const HopEngine e(
      network({{{0, 1, 0, 5, 1}, {0, 0, 0, 0, 1}, {0, 2, 0, 0, 1}, {0, 0, 0, 0, 1}}}));
  MCSettings film;
  film.thinfilm_dir = 2;
  film.thinfilm_ncell = 1;
  double K = -1;
  const double at0[3] = {0, 0, 0};
  // Allowed {0, 2}: after failing hop 0 the sum adds p[1] = 0, so hop 2 is never chosen.
  for (double u = 0.0; u < 1.0; u += 1.0 / 64)
    EXPECT_EQ(e.select_hop_thinfilm(0, at0, u, film, &K), 0);
  EXPECT_EQ(K, 2.0);
  // 4.5 cells below: hops 1 and 3 (read at hop 0's c-shift 5) are in, but hop 3 is never
  // chosen, since the sum adds p[2] = 0 before testing it.
  const double below[3] = {0, 0, -4.5};
  for (double u = 0.0; u < 1.0; u += 1.0 / 64)
    EXPECT_EQ(e.select_hop_thinfilm(0, below, u, film, &K), 1);
  EXPECT_EQ(K, 2.0);
  // No hop in the film: K = 0 and hop 0.
  film.thinfilm_ncell = 0;
  EXPECT_EQ(e.select_hop_thinfilm(0, at0, 0.7, film, &K), 0);
  EXPECT_EQ(K, 0.0);
}

TEST(HopEngine, AMoleculeWithoutHopsEndsTheTrajectory) {
  MCGenerator gen(1);
  // One hop to a molecule without hops: its residence time is infinite, so every step from
  // there samples and the trajectory ends. Too few samples given: nothing runs.
  const HopEngine z(network({{{1, 0, 0, 0, 1}}, {}}));
  MCSamples s(10);
  EXPECT_EQ(z.trajectory(MCEngine::Static, gen, sampling(0.1, 10), s), 11);
  EXPECT_EQ(std::make_tuple(s.time[10], s.pos[30], s.steps[10]),
            std::make_tuple(INFINITY, 2.5, 10));
  MCSamples few(9);
  EXPECT_EQ(z.trajectory(MCEngine::Static, gen, sampling(0.1, 10), few), 0);
}

TEST(HopEngine, HopsFollowTheRatesAndSeedsRepeat) {
  // From molecule 0 of kAxes the position counts the hops of each kind: chosen in proportion
  // to the rates, while time advances by exactly 1/6 ns per hop.
  const HopEngine e(network(kAxes));
  const MCSettings s = sampling(200, 10, false);
  MCSamples a(10), b(10), c(10);
  mc_seed_ran2(11, 0);
  e.trajectory_ran2(MCEngine::Static, s, a);
  const double n = a.steps[10] + 1.0;
  for (int k = 0; k < 3; ++k) {
    const double q = (k + 1) / 6.0;
    EXPECT_NEAR(a.pos[30 + k] / 10 / n, q, 5 * std::sqrt(q * (1 - q) / n)) << k;
  }
  EXPECT_NEAR(a.time[10], (n - 1) / 6, 1e-9 * n);
  // A seeded generator depends on the seed, both of its words, and the run number only.
  MCGenerator g1 = mc_seeded_generator(11, 3), g2 = mc_seeded_generator(11, 3),
              g3 = mc_seeded_generator(11ULL << 32, 3);
  e.trajectory(MCEngine::Static, g1, s, a);
  e.trajectory(MCEngine::Static, g2, s, b);
  e.trajectory(MCEngine::Static, g3, s, c);
  EXPECT_TRUE(same(a, b));
  EXPECT_FALSE(same(a, c));  // the high word of the seed counts
}

TEST(HopEngine, GeneratorIsTheStandardMersenneTwister) {
  // Word for word, then canonical double for double, across regenerations of the state, for
  // seeds given as an integer and as a seed sequence.
  const auto check = [](MCGenerator mine, std::mt19937 reference) {
    for (int i = 0; i < 1500; ++i) ASSERT_EQ(mine(), reference()) << i;
    for (int i = 0; i < 1500; ++i)
      ASSERT_EQ(mine.canonical(), (std::generate_canonical<double, 53>(reference))) << i;
  };
  for (std::uint32_t seed : {0u, 1u, 5489u, 0xffffffffu})
    check(MCGenerator(seed), std::mt19937(seed));
  std::seed_seq mine{11u, 0u, 3u}, reference{11u, 0u, 3u};
  check(MCGenerator(mine), std::mt19937(reference));
}

TEST(HopEngine, EnginesAgreeWhereTheirRulesDo) {
  // Where every hop stays in the film, and without fluctuations, the thin-film and the
  // dynamic-disorder engines choose every hop and step as the static one, draw for draw.
  const HopEngine e(network(kPair));
  MCSettings s = sampling(1.0, 20);
  s.thinfilm_dir = 1;  // a film normal to b, one cell thick
  s.thinfilm_ncell = 1;
  s.temp = 300;
  const auto run = [&](MCEngine engine, const MCSettings& how, std::uint64_t seed) {
    MCSamples out(how.nrec);
    MCGenerator gen = mc_seeded_generator(seed, 1);
    e.trajectory(engine, gen, how, out);
    return out;
  };
  const MCSamples ref = run(MCEngine::Static, s, 5);
  EXPECT_TRUE(same(run(MCEngine::ThinFilm, s, 5), ref));
  EXPECT_TRUE(same(run(MCEngine::DynamicDisorder, s, 5), ref));
  EXPECT_FALSE(same(run(MCEngine::Static, s, 6), ref));

  // Fluctuating transfer integrals or site energies move the trajectory; a seed repeats it.
  for (bool v : {true, false}) {
    MCSettings d = s;
    d.V_dynamic_disorder = v;
    d.HOMOLUMO_dynamic_disorder = !v;
    const MCSamples dyn = run(MCEngine::DynamicDisorder, d, 5);
    EXPECT_FALSE(same(dyn, ref)) << v;
    EXPECT_TRUE(same(run(MCEngine::DynamicDisorder, d, 5), dyn)) << v;
  }
  // A film that no hop stays in: K = 0, so every step samples, and hop 0 is still taken.
  MCSettings closed = s;
  closed.thinfilm_ncell = 0;
  const MCSamples stuck = run(MCEngine::ThinFilm, closed, 5);
  EXPECT_EQ(std::make_tuple(stuck.steps[20], stuck.time[20], stuck.r2[20]),
            std::make_tuple(20, INFINITY, 6.25));
}

// ---------------------------------------------------------------- the model's operations

namespace {

// Each test runs in a fresh directory, since the model reads and writes in the working one.
class KmcRun : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(dir_);
    fs::current_path(dir_);
  }
  void TearDown() override {
    fs::current_path(old_);
    fs::remove_all(dir_);
  }

  // Writes the calculation of `net` (one carbon atom per MOL file, "neighbor.dat", "WH.dat"
  // in 1/ns) and reads it with the input-file keys `keys` after the structure keys.
  std::unique_ptr<Transport> model(const Net& net, const std::string& keys = "") {
    std::ofstream nb("neighbor.dat"), w("WH.dat");
    nb << net.size() << "\nheader\nheader\n";
    w << net.size() << "\n";
    std::string files;
    for (size_t i = 0; i < net.size(); ++i) {
      const std::string mol = "m" + std::to_string(i + 1) + ".mol";
      files += " " + mol;
      std::ofstream(mol) << "m\n\n\n  1  0  0  0  0  0  0  0  0  0999 V2000\n"
                         << format_string(
                                "%10.4f%10.4f%10.4f C   0  0  0  0  0  0  0  0  0  0  0  0\n",
                                2.5 * i, 0.0, 0.0)
                         << "M  END\n";
      nb << "molecule\n" << net[i].size() << "\n";
      w << net[i].size() << "\n";
      for (const Hop& h : net[i]) {
        nb << h.target + 1 << " 0 0 0 0 " << h.a << " " << h.b << " " << h.c << "\n";
        w << "3.5 A " << h.rate << " 1/ns 0.01 eV\n";
      }
    }
    auto t = std::make_unique<Transport>();
    t->read_kavri_inp_text("&transport\nmolecule = " + std::to_string(net.size()) + files +
                               "\nvector_a = 10 0 0\nvector_b = 0 10 0\nvector_c = 0 0 10\n"
                               "read_neighbor_dat = 1\nchargetype = h\n" +
                               keys + "/\n",
                           "kavri.inp", false);
    t->read_crystal_strcuture_files(false, false);
    t->post_data_read_treatment(false);
    return t;
  }
  static void quietly(const std::function<void()>& f) {
    testing::internal::CaptureStdout();
    f();
    testing::internal::GetCapturedStdout();
  }

  fs::path old_ = fs::current_path();
  fs::path dir_ = fs::temp_directory_path() / ("kavri-kmc-" + std::to_string(getpid()));
};

const std::string kHeader =
    "#      t,ns         x,angs         y,angs         z,angs         r2,A^2     istep\n";

std::string row(double t, double x, double r2, int steps) {
  return format_string("%14.6e %14.6e %14.6e %14.6e %14.6e  %d\n", t, x, 0.0, 0.0, r2, steps);
}

}  // namespace

TEST_F(KmcRun, RateTablesAndHopRateReports) {
  // The unit of a molecule's first hop line scales all its hops (1/s, 1/ps, 1/ns in any case;
  // anything else by 1). Electrons read WL.dat.
  auto m = model({{{1, 0, 0, 0, 0}, {1, -1, 0, 0, 0}}, {{2, 0, 0, 0, 0}}, {{0, 0, 0, 0, 0}}},
                 "chargetype = e\n");
  std::ofstream("WL.dat") << "3\n2\n 1 x 2.5e9 1/S 0 y\n1 x 4e9 1/ps\n"
                             "1\n1 x 0.5 1/PS\n1\n1 x 7 Hz\n";
  quietly([&] { m->MC_init(); });
  EXPECT_EQ(slurp("w0.dat"),
            "3\n2\n   2.500000e+00 1/ns\n   4.000000e+00 1/ns\n"
            "1\n   5.000000e+02 1/ns\n1\n   7.000000e+00 1/ns\n");

  // The hop-rate report: molecule, hop, target, shift, distance, rate, k/K and K; with
  // dynamic disorder also the mean rates.
  m = model(kPair, "V_dynamic_disorder = 1\n");
  quietly([&] { m->MC_init(); });
  const std::string line = "%6d %5d %7d %5d %5d %5d %13.6f %14.6e %14.6e %14.6e\n";
  EXPECT_EQ(slurp("hoprates.dat"),
            "# hop rates of the charge (chargetype = h)\n"
            "#  mol   hop  target     a     b     c     dist,angs      rate,1/ns"
            "    probability    ktotal,1/ns\n" +
                format_string(line.c_str(), 1, 1, 2, 0, 0, 0, 2.5, 1.0, 0.25, 4.0) +
                format_string(line.c_str(), 1, 2, 2, 1, 0, 0, 12.5, 3.0, 0.75, 4.0) +
                format_string(line.c_str(), 2, 1, 1, 0, 0, 0, 2.5, 2.0, 1.0, 2.0));
  const std::string dyn = slurp("hoprates-dyn.dat");
  EXPECT_EQ(dyn.substr(0, dyn.find('\n')),
            "# dynamic disorder: V_dynamic_disorder = 1 (sigma_V = 0.3), HL_dynamic_disorder = 0 "
            "(sigma_E = 25 meV), temp = 300 K");
  EXPECT_NE(dyn.find(format_string("%13.6f %14.6e %14.6e\n", 12.5, 3.0, 3.0 * 1.09)),
            std::string::npos)
      << dyn;
}

TEST_F(KmcRun, RateFileFailuresDeath) {
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
       "residence time 1/K must be positive and finite for a trajectory to advance!\n",
       1},
      {"2\n1\n1 x 0 1/ns\n1\n1 x 1 1/ns\n", "total hopping rate K = 0 1/ns of molecule 1", 1},
      {"2\n1\n1 x nan 1/ns\n1\n1 x 1 1/ns\n",
       "Invalid hopping rate nan 1/ns for molecule 1 hop 1 in WH.dat: rates must be finite", 1},
      {"2\n1\n1 x 1 1/ns\n1\n1 x 1e306 1/ps\n", "Invalid hopping rate inf 1/ns for molecule 2", 1},
      {"2\n1\n1 x 1 1/ns\n1\n1 x 1e12 1/ns\n", "line 5255 : \nHopping rates of molecule 2", 1},
  };
  auto m = model({{{1, 0, 0, 0, 1.0}}, {{0, 0, 0, 0, 1.0}}});
  for (const auto& [rates, message, status] : cases) {
    if (rates)
      std::ofstream("WH.dat") << rates;
    else
      fs::remove("WH.dat");
    EXPECT_EXIT((dup2(STDERR_FILENO, STDOUT_FILENO), m->MC_init()), testing::ExitedWithCode(status),
                message);
  }
  // A zero interval and sample counts below -1 have no meaning.
  const std::tuple<const char*, const char*> refused[] = {
      {"tsimu = 1\ntsnap = 0\n",
       "line 5247 : \nMC sampling interval tsnap = 0 ns: the number "
       "of samples tsimu / tsnap \\(tsimu = 1\\) is undefined!\n"},
      {"tsimu = -2.5\ntsnap = 1\n",
       "line 5247 : \nMC sampling out of range: tsimu = -2.5, tsnap "
       "= 1 give -2 samples \\(from -1 to 10000000\\)!\n"},
  };
  for (const auto& [keys, message] : refused) {
    auto r = model({{{0, 1, 0, 0, 16.0}}}, keys);
    EXPECT_EXIT((dup2(STDERR_FILENO, STDOUT_FILENO), r->MC_init()), testing::ExitedWithCode(1),
                message);
  }
}

TEST_F(KmcRun, TrackFiles) {
  // One hop of 16/ns along +a sampled every 0.25 ns for 1 ns: the clock-seeded engine writes
  // |D|^2 in cell units, the multi-trajectory runs |M.D|^2 and the average without steps.
  auto m = model({{{0, 1, 0, 0, 16.0}}}, "tsimu = 1\ntsnap = 0.25\n");
  quietly([&] { m->MC_init(); });
  std::string cell = kHeader + row(0, 0, 0, 0), cart = cell, ave = cell;
  for (int r = 1; r <= 4; ++r) {
    const double t = (3 * r - 1) / 16.0;
    cell += row(t, 30.0 * r, 9.0 * r * r, 3 * r - 1);
    cart += row(t, 30.0 * r, 900.0 * r * r, 3 * r - 1);
    ave += row(t, 30.0 * r, 900.0 * r * r, 0);
  }
  m->MC_simulation_one(0, "out");
  EXPECT_EQ(slurp("out/track_0001.dat"), cell);
  quietly([&] { m->MC_run_openMP("out", 0, 2); });
  EXPECT_EQ(slurp("out/track_0002.dat"), cart);
  EXPECT_EQ(slurp("out/track_ave.dat"), ave);

  // tsimu / tsnap + 0.5 truncated to -1: the trajectory ends at once, and every track holds
  // the header and the zero line.
  m = model({{{0, 1, 0, 0, 16.0}}}, "tsimu = -2\ntsnap = 1\n");
  quietly([&] { m->MC_init(); });
  EXPECT_EQ(m->get_MC_nrec(), -1);
  m->MC_simulation_one(0, "one");
  quietly([&] { m->MC_run_openMP("all", 0, 2); });
  for (const char* f : {"one/track_0001.dat", "all/track_0002.dat", "all/track_ave.dat"})
    EXPECT_EQ(slurp(f), kHeader + row(0, 0, 0, 0)) << f;

  // Without trajectories the average divides the cleared sums by 0: 0 / 0 prints as -nan.
  m = model({{{0, 1, 0, 0, 16.0}}}, "tsimu = 2\ntsnap = 1\n");
  quietly([&] { m->MC_run_openMP("none", 0, 0); });
  const std::string nan_row =
      format_string("%14s %14s %14s %14s %14s  0\n", "-nan", "-nan", "-nan", "-nan", "-nan");
  EXPECT_EQ(slurp("none/track_ave.dat"), kHeader + row(0, 0, 0, 0) + nan_row + nan_row);
  EXPECT_FALSE(fs::exists("none/track_0001.dat"));
}

TEST_F(KmcRun, SeededRunsOfEveryEngineRepeat) {
  // Each run operation, twice with the same seed over three trajectories, writes the same
  // tracks and average; another seed moves them. The clock-seeded engines seed by run.
  using Run = void (Transport::*)(const char*, int, int);
  const std::pair<const char*, Run> engines[] = {
      {"static", &Transport::MC_run_openMP},
      {"serial", &Transport::MC_run},
      {"film", &Transport::MC_run_openMP_thinfilm},
      {"dynamic", &Transport::MC_run_openMP_dyn_disorder}};
  for (const auto& [name, run] : engines) {
    std::string tracks[3];
    for (int trial = 0; trial < 3; ++trial) {
      auto m = model(kPair, "tsimu = 20\ntsnap = 1\nthinfilm = 1 1\nV_dynamic_disorder = 1\n");
      m->set_MC_seed(trial < 2 ? 5 : 6);
      const std::string dir = std::string(name) + std::to_string(trial);
      quietly([&] { ((*m).*run)(dir.c_str(), 0, 3); });
      for (const char* f : {"/track_0001.dat", "/track_0003.dat", "/track_ave.dat"})
        tracks[trial] += slurp(dir + f);
      EXPECT_EQ(std::count(tracks[trial].begin(), tracks[trial].end(), '\n'), 3 * 22) << name;
    }
    EXPECT_EQ(tracks[0], tracks[1]) << name;
    EXPECT_NE(tracks[0], tracks[2]) << name;
  }
  // On ran2 the same: and a film that every hop stays in changes no draw.
  auto m = model(kPair, "tsimu = 20\ntsnap = 1\nthinfilm = 1 1\n");
  m->set_MC_seed(5);
  quietly([&] {
    m->MC_simulation_one(0, "a");
    m->MC_simulation_one(7, "a");
    m->MC_simulation_one_thinfilm(0, "b");
  });
  EXPECT_EQ(slurp("a/track_0001.dat"), slurp("b/track_0001.dat"));
  EXPECT_NE(slurp("a/track_0001.dat"), slurp("a/track_0008.dat"));
}
