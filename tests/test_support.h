// Small helpers shared by the tests: whole files as text, line search.
#pragma once
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

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

}  // namespace test_support
