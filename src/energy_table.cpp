// Reading the per-pair energy tables and checking them against the neighbour list.
#include "energy_table.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "util.h"
#include "util_text_reads.h"

namespace {

constexpr int kLineBuffer = 255;  // at most 254 characters per read

// Leading decimal integer of a line, clamped to the 32-bit range; 0 when there is none.
long leading_count(const char* line) {
  const long v = std::strtol(line, nullptr, 10);
  return v < 0 ? 0 : (v > INT_MAX ? INT_MAX : v);
}

}  // namespace

EnergyTable read_energy_table_lines(const std::function<bool(char*, int)>& gets, int nmols,
                                    const std::vector<int>& neighbor_counts) {
  // Value lines beyond the needed ones are read past while a later block is still needed;
  // what lies after the last needed value is never read. A count larger than the data present
  // never allocates ahead of it.
  EnergyTable table;
  char buf[kLineBuffer];
  if (gets(buf, kLineBuffer)) {
    const long nblocks = std::min<long>(leading_count(buf), nmols);
    table.reserve(static_cast<size_t>(std::max<long>(nblocks, 0)));
    for (long b = 0; b < nblocks; ++b) {
      if (!gets(buf, kLineBuffer)) break;
      const long nvalues = leading_count(buf);
      const long needed = b < static_cast<long>(neighbor_counts.size()) ? neighbor_counts[b] : 0;
      const bool last = b + 1 == nblocks;
      std::vector<double> values;
      values.reserve(static_cast<size_t>(std::max<long>(std::min(nvalues, needed), 0)));
      long held = 0;  // value lines read of the nvalues announced
      while (held < nvalues && (held < needed || !last) && gets(buf, kLineBuffer)) {
        if (held < needed) values.push_back(std::strtod(buf, nullptr));
        ++held;
      }
      table.push_back(std::move(values));
      if (held < nvalues && !last) break;  // the text ended inside this block
    }
  }
  return table;
}

EnergyTable read_energy_table_text(std::string_view text, int nmols,
                                   const std::vector<int>& neighbor_counts) {
  TextReads reads(text);
  return read_energy_table_lines([&reads](char* buf, int size) { return reads.gets(buf, size); },
                                 nmols, neighbor_counts);
}

void check_energy_table(const EnergyTable& table, const std::string& path, int nmols,
                        const std::vector<int>& neighbor_counts) {
  if (static_cast<int>(table.size()) < nmols)
    fatal_error("pr_siteenergy", siteenergy_lines::TABLE_SHORT, FatalStream::Out,
                format_string("Not enough molecule blocks in %s: found %d, needed %d\n",
                              path.c_str(), static_cast<int>(table.size()), nmols),
                -1);
  for (int i = 0; i < nmols; ++i)
    if (static_cast<int>(table[i].size()) < neighbor_counts[i])
      fatal_error(
          "pr_siteenergy", siteenergy_lines::TABLE_SHORT, FatalStream::Out,
          format_string("Not enough values in %s for molecule %d: found %d, needed %d\n",
                        path.c_str(), i + 1, static_cast<int>(table[i].size()), neighbor_counts[i]),
          -1);
}
