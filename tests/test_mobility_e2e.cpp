// kavri_mobility end to end on the anthracene example (2 molecules, 14 hops each, rates from
// a distance law): the sampled tensor against the exact one, identical output for any thread
// count and for a run split into parts and merged, and the engine's messages for bad inputs.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include "test_support.h"

namespace fs = std::filesystem;

using test_support::has_line;
using test_support::slurp;

namespace {


struct Outcome {
  int status;
  std::string out, err;
};

// A copy of the example with short runs: 50 ns sampled every 1 ns (about 2e4 hops a run).
class Mobility : public testing::Test {
 protected:
  void SetUp() override {
    std::string templ = (fs::temp_directory_path() / "kavri-mobility-XXXXXX").string();
    ASSERT_NE(mkdtemp(templ.data()), nullptr);
    dir_ = templ;
    for (const char* f : {"anthracene.cif", "WH.dat"})
      fs::copy_file(fs::path(KAVRI_MOBILITY_EXAMPLE) / f, dir_ / f);
    std::ofstream(dir_ / "kavri.inp") << "&transport\n  crystal = anthracene.cif\n"
                                         "  chargetype = h\n  lattice_cutoff = 4.0\n"
                                         "  neighbor_scell = 3 3 3\n  temp = 300\n"
                                         "  tsimu = 50\n  tsnap = 1\n  nsimu = 40\n/\n";
  }
  void TearDown() override { fs::remove_all(dir_); }

  Outcome run(const std::string& args, const fs::path& where = {}) {
    const fs::path in = where.empty() ? dir_ : where;
    const std::string cmd = "cd '" + in.string() + "' && '" + KAVRI_MOBILITY_EXE + "' " + args +
                            " > .out 2> .err";
    const int ws = std::system(cmd.c_str());
    Outcome r{WIFEXITED(ws) ? WEXITSTATUS(ws) : -1, slurp(in / ".out"), slurp(in / ".err")};
    fs::remove(in / ".out");
    fs::remove(in / ".err");
    return r;
  }

  // Every file of a result directory, by name.
  std::map<std::string, std::string> files(const fs::path& d) {
    std::map<std::string, std::string> m;
    for (const auto& e : fs::directory_iterator(d)) m[e.path().filename()] = slurp(e.path());
    return m;
  }

  fs::path dir_;
};

// The tensor component D_<c> sampled, its error and exact value from the report.
void component(const std::string& report, const std::string& c, double v[3]) {
  std::smatch m;
  ASSERT_TRUE(std::regex_search(report, m, std::regex("D_" + c + " +(\\S+) +(\\S+) +(\\S+)")));
  for (int k = 0; k < 3; ++k) v[k] = std::stod(m[k + 1]);
}

TEST_F(Mobility, SampledTensorAgreesWithExactWithinItsError) {
  const Outcome r = run("-seed 11 -runs 400 -threads 2");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.find("WARNING"), std::string::npos) << r.out;
  for (const char* c : {"xx", "yy", "zz", "xz"}) {
    double v[3];
    component(r.out, c, v);
    EXPECT_GT(v[1], 0.0) << c;
    EXPECT_LT(std::fabs(v[0] - v[2]), 4.0 * v[1]) << c << ": " << v[0] << " vs " << v[2];
    EXPECT_LT(v[1], 0.2 * std::fabs(v[2])) << c;  // the error is a real bound
  }
  // Monoclinic b is a two-fold axis: one principal axis of the exact tensor lies along it.
  EXPECT_TRUE(std::regex_search(
      r.out, std::regex("along \\( *-?0\\.00000, +1\\.00000, +-?0\\.00000\\)")))
      << r.out;
  EXPECT_NE(slurp(dir_ / "mobility.json").find("\"seed\": 11"), std::string::npos);
}

TEST_F(Mobility, SameFilesForAnyThreadCountAndForMergedParts) {
  const Outcome one = run("-seed 3 -runs 12 -threads 1 -out res");
  ASSERT_EQ(one.status, 0) << one.err;
  const auto single = files(dir_ / "res");
  EXPECT_EQ(single.size(), 12u + 2u);  // tracks, track_ave.dat, mobility.json
  EXPECT_EQ(single.at("track_0012.dat").substr(0, 9), "#      t,");

  fs::rename(dir_ / "res", dir_ / "res1");
  const Outcome three = run("-seed 3 -runs 12 -threads 3 -out res");
  ASSERT_EQ(three.status, 0) << three.err;
  EXPECT_EQ(three.out, one.out);
  EXPECT_EQ(files(dir_ / "res"), single);

  // Three slices of the same runs, merged in another order.
  fs::remove_all(dir_ / "res");
  for (int k = 1; k <= 3; ++k) {
    const Outcome p = run("-seed 3 -runs 12 -threads 2 -part " + std::to_string(k) + "/3 -out p" +
                      std::to_string(k));
    ASSERT_EQ(p.status, 0) << p.err;
  }
  const Outcome merged = run("-seed 3 -merge p3 p1 p2 -out res");
  ASSERT_EQ(merged.status, 0) << merged.err;
  EXPECT_EQ(merged.out, one.out);
  EXPECT_EQ(slurp(dir_ / "res/track_ave.dat"), single.at("track_ave.dat"));
  EXPECT_EQ(slurp(dir_ / "res/mobility.json"), single.at("mobility.json"));
  for (int run = 1; run <= 12; ++run) {
    const std::string name = "track_00" + std::string(run < 10 ? "0" : "") + std::to_string(run) + ".dat";
    const int part = run <= 4 ? 1 : run <= 8 ? 2 : 3;
    EXPECT_EQ(slurp(dir_ / ("p" + std::to_string(part)) / name), single.at(name)) << name;
  }

  // A part missing, or the parts of another seed, are refused.
  const Outcome missing = run("-seed 3 -merge p1 p2 -out res");
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("every run exactly once"), std::string::npos) << missing.err;
  const Outcome other_seed = run("-seed 4 -merge p1 p2 p3 -out res");
  EXPECT_EQ(other_seed.status, 1);
  const std::string part = slurp(dir_ / "p2/mobility_part.dat");
  std::ofstream(dir_ / "p2/mobility_part.dat") << part.substr(0, part.size() / 2);
  const Outcome truncated = run("-seed 3 -merge p1 p2 p3 -out res");
  EXPECT_EQ(truncated.status, 1);
  EXPECT_NE(truncated.err.find("Partial sums in 'p2/mobility_part.dat' unusable"),
            std::string::npos)
      << truncated.err;
}

TEST_F(Mobility, BadRateFilesAndSettingsGetTheEngineMessages) {
  std::string wh = slurp(dir_ / "WH.dat");
  std::ofstream(dir_ / "WH.dat") << "3\n" << wh.substr(2);
  Outcome r = run("-runs 2");
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.out.find("Data in 'WH.dat' incomptible: 3 : 2 should be equal!"), std::string::npos)
      << r.out;

  fs::remove(dir_ / "WH.dat");
  r = run("-runs 2");
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.out.find("Failed to open input file WH.dat"), std::string::npos) << r.out;

  std::ofstream(dir_ / "WH.dat") << wh;
  const std::string inp = slurp(dir_ / "kavri.inp");
  std::ofstream(dir_ / "kavri.inp") << std::regex_replace(inp, std::regex("chargetype = h"),
                                                          "chargetype = a");
  r = run("-runs 2");
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.out.find("CHARGETYPE IS NOT SET CORRECTLY!"), std::string::npos) << r.out;
  std::ofstream(dir_ / "kavri.inp") << std::regex_replace(inp, std::regex("tsimu = 50"),
                                                          "tsimu = 3");
  r = run("-runs 2");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Too few samples for the diffusion fit: nrec = 3"), std::string::npos)
      << r.err;
  std::ofstream(dir_ / "kavri.inp") << inp;
  for (const char* bad : {"-part 0/3", "-part 2", "-part 1/65", "-threads 0", "-runs x", "-bogus"}) {
    r = run(bad);
    EXPECT_EQ(r.status, 1) << bad;
    EXPECT_NE(r.err.find("Usage"), std::string::npos) << bad << ": " << r.err;
  }
  EXPECT_EQ(run("-runs 2 -config none.inp").status, 1);
}

}  // namespace
