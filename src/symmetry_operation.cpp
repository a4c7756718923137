// Reading a symmetry operation text into its rotation and translation.
#include "symmetry_operation.h"

#include <cstdlib>
#include <locale>
#include <sstream>
#include <string>

#include "util.h"

namespace {

// One component of an operation such as "-y+1/2": sets row `r` of R and returns t_k, starting
// from `t`. A whole number is taken without its sign; a fraction or a decimal keeps it.
double parse_component(const std::string& comp, double r[3], double t) {
  bool negative = false;
  bool fraction = false;
  double numerator = 0.0;
  const char* s = comp.c_str();
  const char* end = s + comp.size();
  for (const char* p = s; p < end && *p;) {
    const char c = *p;
    if (c == '+') {
      negative = false;
    } else if (c == '-') {
      negative = true;
    } else if (c == 'x' || c == 'X') {
      r[0] = negative ? -1.0 : 1.0;
    } else if (c == 'y' || c == 'Y') {
      r[1] = negative ? -1.0 : 1.0;
    } else if (c == 'z' || c == 'Z') {
      r[2] = negative ? -1.0 : 1.0;
    } else if (c == '/') {
      fraction = true;
    } else if (c >= '1' && c <= '9') {
      char* stop = nullptr;
      const double number = std::strtod(p, &stop);
      if (fraction) {
        t = numerator / number;
        if (negative) t = -t;
        fraction = false;
      } else {
        t = number;  // a whole number is taken without its sign
        numerator = number;
      }
      p = stop > p ? stop : p + 1;
      continue;
    } else if (c == '.' || c == '0') {
      char* stop = nullptr;
      const double number = std::strtod(p, &stop);
      t = negative ? -number : number;
      p = stop > p ? stop : p + 1;
      continue;
    }
    ++p;
  }
  return t;
}

}  // namespace

SymmetryOperation parse_symmetry_operation(const std::string& text,
                                           const SymmetryOperation& start) {
  SymmetryOperation op = start;
  if (text.find(',') == std::string::npos) {
    if (text.find(' ') != std::string::npos) {
      std::istringstream in(text);
      in.imbue(std::locale::classic());
      for (int k = 0; k < 3; ++k) in >> op.R[k][0] >> op.R[k][1] >> op.R[k][2] >> op.t[k];
    }
  } else {
    const std::string plain = RemoveWhiteSpaceUnderscore(text);
    size_t begin = 0;
    for (int k = 0; k < 3; ++k) {
      if (begin > plain.size()) break;
      size_t comma = plain.find(',', begin);
      if (comma == std::string::npos) comma = plain.size();
      op.t[k] = parse_component(plain.substr(begin, comma - begin), op.R[k], op.t[k]);
      begin = comma + 1;
    }
  }
  for (int k = 0; k < 3; ++k) op.t[k] = shift_into_cell(op.t[k]);
  return op;
}
