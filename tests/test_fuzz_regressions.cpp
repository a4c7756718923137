// Replays the hostile inputs kept in fuzz/regressions (found by the fuzz programs or
// written by hand) through the same entries the fuzzers use, and checks how each run ends:
// normally, or on the fatal error of the expected module, line and exit status. Every kept
// file has its row, and every row of the README's "Bad inputs" table has its case here.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "fuzz_targets.h"
#include "pr_siteenergy.h"
#include "util_error.h"

namespace fs = std::filesystem;

namespace {

using Entry = fuzz_targets::Outcome (*)(const uint8_t*, size_t);

const std::map<std::string, Entry>& entries() {
  static const std::map<std::string, Entry> m = {
      {"input", fuzz_targets::input_file},     {"cif", fuzz_targets::cif_file},
      {"mol", fuzz_targets::mol_file},         {"tables", fuzz_targets::energy_tables},
      {"neighbor", fuzz_targets::neighbor_file}};
  return m;
}

// How a run ended as the user sees it: the module and line of the error header (empty and 0
// for a run that ended normally) and the exit status.
struct Ending {
  std::string source;
  int line = 0;
  int status = 0;
  bool operator==(const Ending& o) const {
    return source == o.source && line == o.line && status == o.status;
  }
};

std::ostream& operator<<(std::ostream& os, const Ending& e) {
  if (e.source.empty()) return os << "no error header, status " << e.status;
  return os << e.source << " : line " << e.line << ", status " << e.status;
}

const Ending kNormal{};

// The last error header of a run's standard output.
Ending ending_of(bool fatal, int status, const std::string& out) {
  Ending e;
  if (!fatal) return e;
  e.status = status;
  static const std::regex header("ERROR  transport : (\\w+) : line (\\d+) :");
  for (std::sregex_iterator it(out.begin(), out.end(), header), end; it != end; ++it) {
    e.source = (*it)[1];
    e.line = std::stoi((*it)[2]);
  }
  return e;
}

// The scratch directory the entries keep their fixture files in, as in a fuzzing process.
const std::string& scratch() {
  static const std::string dir = [] {
    char d[] = "/tmp/kavri-replay-XXXXXX";
    return std::string(mkdtemp(d) ? d : "/tmp");
  }();
  return dir;
}

Ending replay(const std::string& reader, const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                   std::istreambuf_iterator<char>());
  const fs::path home = fs::current_path();
  fs::current_path(scratch());
  fuzz_targets::install_fatal_seam();
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const fuzz_targets::Outcome o = entries().at(reader)(bytes.data(), bytes.size());
  const std::string out = testing::internal::GetCapturedStdout();
  testing::internal::GetCapturedStderr();
  set_fatal_handler(nullptr);
  fs::current_path(home);
  return ending_of(o.fatal, o.status, out);
}

struct Kept {
  const char* reader;
  const char* file;
  Ending ending;
};

// Every file of fuzz/regressions and how its run ends, in the order of the README's
// "Bad inputs" rows.
const std::vector<Kept> kKept = {
    // unknown key, binary key text
    {"input", "unknown-key-binary.inp", {"kavri_inp", 1008, 255}},
    // more MOL files announced than named, or a negative count
    {"input", "molecule-count-huge.inp", {"kavri_inp", 775, 255}},
    {"input", "molecule-count-negative.inp", {"kavri_inp", 775, 255}},
    {"input", "molecule-value-of-nul-bytes.inp", kNormal},
    // bad chargetype, evc_type, ratetype, walltime
    {"input", "chargetype-unknown.inp", {"kavri_inp", 642, 1}},
    {"input", "evc-type-unknown.inp", {"kavri_inp", 658, 1}},
    {"input", "ratetype-unknown.inp", {"kavri_inp", 738, 1}},
    {"input", "walltime-empty.inp", {"kavri_inp", 611, 1}},
    // reorg_outer without its numbers
    {"input", "reorg-outer-dielectric-one-number.inp", {"kavri_inp", 899, 255}},
    {"input", "reorg-outer-constant-no-number.inp", {"kavri_inp", 899, 255}},
    // no structure named
    {"input", "empty.inp", {"fileio", 4627, 255}},
    {"input", "no-structure.inp", {"fileio", 4627, 255}},
    // zero cell vectors with MOL files: "Determinant of matrix is zero.", no header
    {"input", "zero-cell-vectors.inp", {"", 0, 255}},
    // CIF missing (a name cut from an overlong line included)
    {"input", "crystal-missing.inp", {"fileio", 3180, 255}},
    {"input", "long-lines.inp", {"fileio", 3180, 255}},
    // CIF rows with fewer columns than the loop needs
    {"cif", "short-atom-row.cif", {"fileio", 3279, 255}},
    {"cif", "short-bond-row.cif", {"fileio", 3530, 255}},
    // expansion beyond 4,000,000 atoms
    {"cif", "symmetry-expansion-too-large.cif", {"fileio", 3695, 255}},
    // binary or empty CIF, CIF without cell
    {"cif", "binary.cif", kNormal},
    {"cif", "empty.cif", kNormal},
    {"cif", "zero-cell.cif", kNormal},
    // nan, inf, 1e300 coordinates (the first file also has a molecule of an unknown element)
    {"cif", "nan-and-inf-known-elements.cif", kNormal},
    {"cif", "nan-and-inf-coordinates.cif", {"fileio", 4641, 255}},
    // unknown elements beside known ones; crowded and giant molecules
    {"cif", "unknown-elements-everywhere.cif", kNormal},
    {"cif", "dense-cluster-one-molecule.cif", kNormal},
    {"cif", "giant-molecules-many-images.cif", kNormal},
    // MOL: short counts line, atom lists, too few atom lines, no element symbol
    {"mol", "counts-line-short.mol", {"fileio", 4047, 1}},
    {"mol", "empty.mol", {"fileio", 4047, 1}},
    {"mol", "atom-lists.mol", {"fileio", 4077, 1}},
    {"mol", "atom-lines-too-few.mol", {"fileio", 4106, 1}},
    {"mol", "atom-count-999.mol", {"fileio", 4113, 1}},
    {"mol", "binary-after-counts.mol", {"fileio", 4113, 1}},
    // MOL V3000: absurd COUNTS, blocks cut short, many atoms in one place
    {"mol", "v3000-absurd-count.mol", kNormal},
    {"mol", "v3000-cut-in-atom-block.mol", kNormal},
    {"mol", "v3000-many-coincident-atoms.mol", kNormal},
    // search range and cut-off out of proportion
    {"input", "search-range-huge.inp", kNormal},
    {"input", "search-range-most-negative.inp", kNormal},
    {"input", "cutoff-nan.inp", kNormal},
    {"input", "bond-scale-inf.inp", kNormal},
    {"input", "cutoff-huge.inp", {"transport", 3658, 1}},
    // energy tables with too few blocks or values
    {"tables", "block-count-huge.dat", {"pr_siteenergy", 262, 255}},
    {"tables", "negative-counts.dat", {"pr_siteenergy", 262, 255}},
    {"tables", "long-value-lines.dat", {"pr_siteenergy", 262, 255}},
    // energy tables larger than the neighbour list, a last block announcing more than it holds
    {"tables", "blocks-beyond-the-cell.dat", kNormal},
    {"tables", "last-block-announces-more.dat", kNormal},
    // neighbor.dat reading mode
    {"neighbor", "count-huge.dat", {"transport", 3587, 1}},
    {"neighbor", "column-out-of-range.dat", {"transport", 3590, 1}},
    {"neighbor", "molecule-out-of-range.dat", {"transport", 3592, 1}},
};

}  // namespace

TEST(HostileInputs, EveryKeptInputEndsAsExpected) {
  const fs::path root = KAVRI_FUZZ_REGRESSIONS;
  std::set<std::string> listed;
  for (const Kept& k : kKept) {
    const std::string name = std::string(k.reader) + "/" + k.file;
    listed.insert(name);
    SCOPED_TRACE(name);
    ASSERT_TRUE(fs::exists(root / k.reader / k.file));
    EXPECT_EQ(replay(k.reader, root / k.reader / k.file), k.ending);
  }
  for (const auto& [reader, entry] : entries()) {
    (void)entry;
    for (const auto& e : fs::directory_iterator(root / reader)) {
      const std::string name = reader + "/" + e.path().filename().string();
      if (!listed.count(name))
        ADD_FAILURE() << name << " has no expected ending; it gives: " << replay(reader, e.path());
    }
  }
}

namespace {

struct FatalEnd {
  int status;
};
[[noreturn]] void throw_fatal(int status) { throw FatalEnd{status}; }

// Runs one step of the program through the fatal seam and tells how it ended.
template <class F>
Ending ending_of_step(F step) {
  set_fatal_handler(throw_fatal);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  bool fatal = false;
  int status = 0;
  try {
    step();
  } catch (const FatalEnd& end) {
    fatal = true;
    status = end.status & 0xff;
  }
  const std::string out = testing::internal::GetCapturedStdout();
  testing::internal::GetCapturedStderr();
  set_fatal_handler(nullptr);
  return ending_of(fatal, status, out);
}

}  // namespace

// The rows of "Bad inputs" that are about files rather than their bytes: a file that is
// missing or not a regular file, and a MOL molecule of unknown elements only (found by the
// loading driver, after the reader).
TEST(HostileInputs, FilesMissingOrNotRegularEndOnTheirReadersLines) {
  const fs::path dir = fs::path(scratch()) / "file-cases";
  fs::create_directories(dir / "dir.cif");
  const std::string absent = (dir / "absent").string();
  const std::string a_dir = (dir / "dir.cif").string();
  const Ending open_inp{"kavri_inp", 228, 255};
  EXPECT_EQ(ending_of_step([&] { SiteEnergy().read_kavri_inp(absent.c_str(), false); }), open_inp);
  EXPECT_EQ(ending_of_step([&] { SiteEnergy().read_kavri_inp(a_dir.c_str(), false); }), open_inp);
  const Ending open_cif{"fileio", 3180, 255};
  EXPECT_EQ(ending_of_step([&] { SiteEnergy().read_data_cif(absent.c_str(), false); }), open_cif);
  EXPECT_EQ(ending_of_step([&] { SiteEnergy().read_data_cif(a_dir.c_str(), false); }), open_cif);
  const Ending open_mol{"fileio", 4026, 255};
  EXPECT_EQ(ending_of_step([&] { SiteEnergy().read_data_mol(absent.c_str(), 0, false); }),
            open_mol);
  EXPECT_EQ(ending_of_step([&] { SiteEnergy().read_data_mol(a_dir.c_str(), 0, false); }), open_mol);

  // Energy tables: each of the four names missing, and one that is a directory.
  const fs::path data = dir / "data";
  fs::create_directories(data);
  const auto tables_ending = [&](const char* chargetype, bool dielectric) {
    return ending_of_step([&] {
      SiteEnergy p;
      p.set_data_dir(data.string());
      p.apply_keyword("chargetype", chargetype);
      if (dielectric) p.apply_keyword("reorg_outer", "dielectric 1 1");
      p.write_site_energies(false);
    });
  };
  EXPECT_EQ(tables_ending("h", false), (Ending{"pr_siteenergy", 103, 255}));
  EXPECT_EQ(tables_ending("e", false), (Ending{"pr_siteenergy", 138, 255}));
  std::ofstream(data / "SE_einternal-h.dat") << "0\n";
  std::ofstream(data / "SE_einternal-e.dat") << "0\n";
  EXPECT_EQ(tables_ending("h", true), (Ending{"pr_siteenergy", 194, 255}));
  EXPECT_EQ(tables_ending("e", true), (Ending{"pr_siteenergy", 229, 255}));
  fs::create_directories(data / "SE_emultipole-h.dat");
  EXPECT_EQ(tables_ending("h", true), (Ending{"pr_siteenergy", 194, 255}));
  EXPECT_EQ(tables_ending("h", false), kNormal);

  const fs::path mol = dir / "unknown.mol";
  std::ofstream(mol) << "x\n\n\n  1  0  0  0  0  0  0  0  0  0999 V2000\n"
                        "    0.0000    0.0000    0.0000 Xx  0  0  0  0  0  0  0  0  0  0  0  0\n";
  EXPECT_EQ(ending_of_step([&] {
              SiteEnergy p;
              p.apply_keyword("molecule", "1 " + mol.string());
              p.read_crystal_strcuture_files(false, false);
            }),
            (Ending{"fileio", 4652, 1}));
}
