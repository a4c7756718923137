// Replays the hostile inputs kept in fuzz/regressions (found by the fuzz programs or
// written by hand) through the same entries the fuzzers use: each must end normally or on a
// reported fatal error, never with a crash, a hang or a sanitizer report.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "fuzz_targets.h"
#include "util_error.h"

namespace fs = std::filesystem;

namespace {

using Entry = void (*)(const uint8_t*, size_t);

const std::map<std::string, Entry>& entries() {
  static const std::map<std::string, Entry> m = {
      {"input", fuzz_targets::input_file},     {"cif", fuzz_targets::cif_file},
      {"mol", fuzz_targets::mol_file},         {"tables", fuzz_targets::energy_tables},
      {"neighbor", fuzz_targets::neighbor_file}};
  return m;
}

// Runs one entry on one file in the scratch directory (the entries keep their fixture files
// there, as in a fuzzing process).
void replay(const std::string& reader, const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                   std::istreambuf_iterator<char>());
  static const std::string dir = [] {
    char d[] = "/tmp/kavri-replay-XXXXXX";
    return std::string(mkdtemp(d) ? d : "/tmp");
  }();
  const fs::path home = fs::current_path();
  fs::current_path(dir);
  fuzz_targets::install_fatal_seam();
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  entries().at(reader)(bytes.data(), bytes.size());
  testing::internal::GetCapturedStdout();
  testing::internal::GetCapturedStderr();
  set_fatal_handler(nullptr);
  fs::current_path(home);
}

}  // namespace

TEST(HostileInputs, EveryKeptInputEndsCleanly) {
  const fs::path root = KAVRI_FUZZ_REGRESSIONS;
  int replayed = 0;
  for (const auto& [reader, entry] : entries()) {
    (void)entry;
    std::vector<fs::path> files;
    for (const auto& e : fs::directory_iterator(root / reader)) files.push_back(e.path());
    std::sort(files.begin(), files.end());
    for (const fs::path& f : files) {
      SCOPED_TRACE(reader + "/" + f.filename().string());
      replay(reader, f);
      ++replayed;
    }
  }
  EXPECT_GE(replayed, 20);
}
