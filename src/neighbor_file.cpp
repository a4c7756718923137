// The reader of "neighbor.dat": a molecule count and two header lines, then per molecule a
// line, the neighbour count and one line of 8 columns per neighbour (molecule number from 1,
// four unused columns, the image shifts a, b, c).
#include "neighbor_file.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>
#include <vector>

#include "util.h"
#include "util_text_reads.h"

namespace {

constexpr const char* kName = "neighbor.dat";
constexpr int kLineBuffer = 256;  // at most 255 characters per read

// One whole 32-bit integer column; anything else ends the run.
int neighbor_column(const std::string& text) {
  errno = 0;
  char* end = nullptr;
  const long v = std::strtol(text.c_str(), &end, 10);
  if (end == text.c_str() || *end != '\0' || errno == ERANGE || v < INT_MIN || v > INT_MAX)
    fatal_error("transport", transport_lines::NEIGHBOR_VALUE, FatalStream::Err,
                format_string("Invalid integer column '%s' in %s!\n", text.c_str(), kName), 1);
  return static_cast<int>(v);
}

}  // namespace

NeighborList read_neighbor_lines(const std::function<bool(char*, int)>& gets, int nmols) {
  char buf[kLineBuffer];
  // The line as the buffer holds it, up to its first NUL; empty at the end of the input.
  auto next_line = [&]() -> std::string {
    if (!gets(buf, kLineBuffer)) return std::string();
    return std::string(buf);
  };
  const long nm = std::strtol(next_line().c_str(), nullptr, 10);
  if (nm != nmols)
    fatal_error("transport", transport_lines::NEIGHBOR_NMOLS, FatalStream::Err,
                format_string("Readin nmols (%ld) in %s not equal to nmols (%d) in unitcell!\n", nm,
                              kName, nmols),
                1);
  next_line();
  next_line();
  NeighborList list;
  list.of.assign(nmols, {});
  std::vector<std::string> words;
  for (int i = 0; i < nmols; ++i) {
    next_line();
    const long n = std::strtol(next_line().c_str(), nullptr, 10);
    std::vector<NeighborImage>& images = list.of[i];
    for (long k = 0; k < n; ++k) {
      std::string line = next_line();
      trim(line);
      tokenize(words, line.c_str(), " \t");
      if (words.size() != 8)
        fatal_error("transport", transport_lines::NEIGHBOR_NCOL, FatalStream::Err,
                    format_string("ncol (%d) in %s not equal to 8!\n",
                                  static_cast<int>(words.size()), kName),
                    1);
      const int j = neighbor_column(words[0]) - 1;
      if (j < 0 || j >= nmols)
        fatal_error(
            "transport", transport_lines::NEIGHBOR_MOLECULE, FatalStream::Err,
            format_string("Neighbor molecule %d in %s is not in 1..%d!\n", j + 1, kName, nmols), 1);
      if (static_cast<int>(images.size()) == kNeighborCapacity)
        fatal_error("transport", transport_lines::NNEIMAX_REACHED, FatalStream::Err,
                    format_string("Need to boost NNEIMAX (NumNeigh=%d)\n", kNeighborCapacity), 1);
      NeighborImage im;
      im.mol = j;
      for (int c = 0; c < 3; ++c) im.shift[c] = neighbor_column(words[5 + c]);
      images.push_back(im);
    }
  }
  return list;
}

NeighborList read_neighbor_text(std::string_view text, int nmols) {
  TextReads reads(text);
  return read_neighbor_lines([&reads](char* buf, int size) { return reads.gets(buf, size); },
                             nmols);
}
