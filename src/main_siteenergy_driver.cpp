// The site-energy driver: parses the options, prints the usage and version texts, and runs
// input reading, structure loading, molecular data, neighbour list and site-energy output
// once, in that order, on one model object.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "main_siteenergy.h"
#include "pr_siteenergy.h"
#include "util.h"

const char* const KAVRI_VERSION = "2022A (2.3.3)";
const char* const KAVRI_BUILD_DATE = "Apr 14 2022";

namespace {

const char* const ATTRIBUTION = "KAVRI charge-transport suite: organic crystal mobility workflow";

// True when `arg` begins with the first `n` characters of `option` (prefix comparison).
bool option_is(const std::string& arg, const char* option, size_t n) {
  return arg.compare(0, n, option, n) == 0;
}

std::string program_name_of(const char* path) {
  std::string p = path ? path : "";
  const size_t cut = p.find_last_of("/\\");
  return cut == std::string::npos ? p : p.substr(cut + 1);
}

void print_usage(const std::string& prog) {
  print_KAVRI_title();
  std::printf("Transport Site Energy Calculation Utility\n\n");
  std::fflush(stdout);
  std::printf("Usage: %s [opts]\n", prog.c_str());
  std::fflush(stdout);
  std::printf("  -config s : set config file, default to 'kavri.inp'\n\n");
  std::fflush(stdout);
  std::printf("e.g.: %s\n", prog.c_str());
  std::fflush(stdout);
  std::printf("  %s -config kavri.inp\n\n", prog.c_str());
  std::fflush(stdout);
}

}  // namespace

void print_KAVRI_title() {
  const std::string lines[2] = {
      format_string("%s %s build on %s", "KAVRI Calculation Utility, Version", KAVRI_VERSION,
                    KAVRI_BUILD_DATE),
      ATTRIBUTION};
  const size_t m = std::max(lines[0].size(), lines[1].size());
  const std::string border(m + 6, '*');
  std::printf("%s\n", border.c_str());
  for (const std::string& text : lines) {
    std::string row = "*  " + text;
    row.resize(m + 5, ' ');
    row += '*';
    std::printf("%s\n", row.c_str());
  }
  std::printf("%s\n", border.c_str());
  std::fflush(stdout);
}

void print_KAVRI_version() {
  std::printf("KAVRI version %s, build on %s\n", KAVRI_VERSION, KAVRI_BUILD_DATE);
  std::fflush(stdout);
}

void print_KAVRI_build() {
  std::printf("KAVRI build on %s\n", KAVRI_BUILD_DATE);
  std::fflush(stdout);
}

std::string get_OS_str() { return "Linux"; }
std::string get_OS_sub_str() { return "linux"; }

int kavri_siteenergy_main(int argc, char** argv) {
  const std::string prog = program_name_of(argc > 0 ? argv[0] : nullptr);
  std::string input_file = "kavri.inp";
  bool verbose = false;

  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (option_is(arg, "-config", 7)) {
      if (i + 1 >= argc) {
        std::printf("ERROR: %s option -config needs a file name!\n", prog.c_str());
        print_usage(prog);
        return 1;
      }
      input_file = argv[++i];
      if (!file_exists(input_file.c_str())) {
        std::printf("ERROR: %s input config file %s not found!\n", prog.c_str(),
                    input_file.c_str());
        std::fflush(stdout);
        return 0;
      }
      std::printf("  %s input config file is %s\n", prog.c_str(), input_file.c_str());
      std::fflush(stdout);
    } else if (option_is(arg, "-verbose", 8)) {
      verbose = true;
    } else if (option_is(arg, "-h", 2) || option_is(arg, "--help", 6)) {
      print_usage(prog);
      return 0;
    } else if (option_is(arg, "--version", 9)) {
      print_KAVRI_version();
      return 0;
    } else {
      std::printf("WARNING: Unknown option: %s\n", arg.c_str());
      std::fflush(stdout);
    }
  }

  std::printf("*** Perform Transport Site Energy Calculation...\n");
  {
    auto se = std::make_unique<SiteEnergy>();
    // The site energies go on from the molecules alone.
    se->set_structure_arrays_kept(false);
    se->read_kavri_inp(input_file.c_str(), verbose);
    se->read_crystal_strcuture_files(verbose, false);
    se->post_data_read_treatment(verbose);
    se->build_neighbor_list(false, verbose);
    se->write_site_energies(verbose);
  }
  std::printf("*** Successfully done.\n");
  return 0;
}
