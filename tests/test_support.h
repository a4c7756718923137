// Small helpers shared by the tests: whole files as text, line search, molecules held as the
// loading driver holds them.
#pragma once
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "molecular_data.h"

namespace test_support {

// The whole file as bytes (empty when it cannot be read).
inline std::string slurp(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// Whether `text` holds `line` as one whole line.
inline bool has_line(const std::string& text, const std::string& line) {
  return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

// Molecules held as the loading driver holds them (fractional positions, 3 per atom).
struct Molecules {
  std::vector<int> natoms;
  std::vector<std::vector<int>> types;
  std::vector<std::vector<double>> frac;

  void add(const std::vector<int>& t, const std::vector<double>& f) {
    natoms.push_back(static_cast<int>(t.size()));
    types.push_back(t);
    frac.push_back(f);
  }
  CellMolecules view() const {
    return CellMolecules{static_cast<int>(natoms.size()), natoms, types, frac};
  }
};

}  // namespace test_support
