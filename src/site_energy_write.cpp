// The text of the site-energy files, "%10.5f  meV" per pair.
#include "site_energy_write.h"

#include <cstdio>

#include "util.h"

std::string site_energy_text(int nmols, const std::vector<int>& neighbor_counts,
                             const EnergyTable& internal, const EnergyTable* multipole) {
  std::string text = format_string("%d\n", nmols);
  char buf[64];
  for (int i = 0; i < nmols; ++i) {
    text += format_string("%d %d\n", neighbor_counts[i], i + 1);
    for (int k = 0; k < neighbor_counts[i]; ++k) {
      double value = internal[i][k];
      if (multipole) value = internal[i][k] + (*multipole)[i][k];
      const int n = std::snprintf(buf, sizeof buf, "%10.5f  meV\n", value);
      if (n > 0 && n < static_cast<int>(sizeof buf))
        text.append(buf, static_cast<std::size_t>(n));
      else
        text += format_string("%10.5f  meV\n", value);
    }
  }
  return text;
}
