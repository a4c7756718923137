// Site energies: reading the internal-energy and multipole-energy tables of the data
// directory and writing "EH.dat" (holes) and "EL.dat" (electrons).
#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "pr_siteenergy.h"
#include "util.h"
#include "util_text_reads.h"

namespace {

constexpr int LINE_BUFFER = 255;  // at most 254 characters per read

// Leading decimal integer of a line, clamped to the 32-bit range; 0 when there is none.
long leading_count(const char* line) {
  const long v = std::strtol(line, nullptr, 10);
  return v < 0 ? 0 : (v > INT_MAX ? INT_MAX : v);
}

bool has_holes(char c) { return c == 'h' || c == 'a'; }
// True for exactly "a" and "e": they differ only in the bit of value 4.
bool has_electrons(char c) { return (c & ~4) == 'a'; }

}  // namespace

EnergyTable SiteEnergy::read_table(const char* name, int line) const {
  const std::string path = format_string("%s/%s", data_dir.c_str(), name);
  if (exists_not_regular(path.c_str()))
    fatal_error("pr_siteenergy", line, FatalStream::Out,
                "Input file " + path + " is not a regular file\n", -1);
  std::FILE* f = std::fopen(path.c_str(), "r");
  if (!f)
    fatal_error("pr_siteenergy", line, FatalStream::Out,
                "Failed to open input file " + path + "\n", -1);
  EnergyTable table = read_table_lines([f](char* buf, int size) {
    return std::fgets(buf, size, f) != nullptr;
  });
  std::fclose(f);
  return table;
}

EnergyTable SiteEnergy::read_table_text(std::string_view text) const {
  TextReads reads(text);
  return read_table_lines([&reads](char* buf, int size) { return reads.gets(buf, size); });
}

EnergyTable SiteEnergy::read_table_lines(const std::function<bool(char*, int)>& gets) const {
  // Only the blocks of the cell's molecules and, in each, the values of its neighbours are
  // kept, so memory follows the neighbour list and not the file. Value lines beyond those
  // are read past while a later block is still needed; what lies after the last needed
  // value is never read. A count larger than the data present never allocates ahead of it.
  EnergyTable table;
  char buf[LINE_BUFFER];
  if (gets(buf, LINE_BUFFER)) {
    const long nblocks = std::min<long>(leading_count(buf), nmols_uc);
    for (long b = 0; b < nblocks; ++b) {
      if (!gets(buf, LINE_BUFFER)) break;
      const long nvalues = leading_count(buf);
      const long needed = b < static_cast<long>(nei_count.size()) ? nei_count[b] : 0;
      const bool last = b + 1 == nblocks;
      std::vector<double> values;
      long held = 0;  // value lines read of the nvalues announced
      while (held < nvalues && (held < needed || !last) && gets(buf, LINE_BUFFER)) {
        if (held < needed) values.push_back(std::strtod(buf, nullptr));
        ++held;
      }
      table.push_back(std::move(values));
      if (held < nvalues && !last) break;  // the file ended inside this block
    }
  }
  return table;
}

void SiteEnergy::read_carrier_tables(bool verbose, const char* what, const char* hole_file,
                                     int hole_line, EnergyTable& holes, const char* electron_file,
                                     int electron_line, EnergyTable& electrons) {
  if (verbose) {
    std::printf("Reading reorganization %s energies...\n", what);
    std::fflush(stdout);
  }
  const char c = charge_carrier();
  if (has_holes(c)) holes = read_table(hole_file, hole_line);
  if (has_electrons(c)) electrons = read_table(electron_file, electron_line);
  if (verbose) std::printf("done.\n");
}

void SiteEnergy::read_SE_einternal(bool verbose) {
  read_carrier_tables(verbose, "internal", "SE_einternal-h.dat",
                      siteenergy_lines::EINTERNAL_H_OPEN, se_int_h, "SE_einternal-e.dat",
                      siteenergy_lines::EINTERNAL_E_OPEN, se_int_e);
}

void SiteEnergy::read_SE_emultipole(bool verbose) {
  read_carrier_tables(verbose, "multipole", "SE_emultipole-h.dat",
                      siteenergy_lines::EMULTIPOLE_H_OPEN, se_mp_h, "SE_emultipole-e.dat",
                      siteenergy_lines::EMULTIPOLE_E_OPEN, se_mp_e);
}

void SiteEnergy::check_table(const EnergyTable& table, const char* name) const {
  const std::string path = format_string("%s/%s", data_dir.c_str(), name);
  if (static_cast<int>(table.size()) < nmols_uc)
    fatal_error("pr_siteenergy", siteenergy_lines::TABLE_SHORT, FatalStream::Out,
                format_string("Not enough molecule blocks in %s: found %d, needed %d\n",
                              path.c_str(), static_cast<int>(table.size()), nmols_uc),
                -1);
  for (int i = 0; i < nmols_uc; ++i)
    if (static_cast<int>(table[i].size()) < nei_count[i])
      fatal_error("pr_siteenergy", siteenergy_lines::TABLE_SHORT, FatalStream::Out,
                  format_string("Not enough values in %s for molecule %d: found %d, needed %d\n",
                                path.c_str(), i + 1, static_cast<int>(table[i].size()),
                                nei_count[i]),
                  -1);
}

std::string SiteEnergy::site_energy_text(char carrier) const {
  const bool dielectric = reorg_outer_code == 3;
  const EnergyTable& internal = carrier == 'h' ? se_int_h : se_int_e;
  const EnergyTable& multipole = carrier == 'h' ? se_mp_h : se_mp_e;
  std::string text = format_string("%d\n", nmols_uc);
  char buf[64];
  for (int i = 0; i < nmols_uc; ++i) {
    text += format_string("%d %d\n", nei_count[i], i + 1);
    for (int k = 0; k < nei_count[i]; ++k) {
      double value = internal[i][k];
      if (dielectric) value = internal[i][k] + multipole[i][k];
      const int n = std::snprintf(buf, sizeof buf, "%10.5f  meV\n", value);
      if (n > 0 && n < static_cast<int>(sizeof buf))
        text.append(buf, static_cast<std::size_t>(n));
      else
        text += format_string("%10.5f  meV\n", value);
    }
  }
  return text;
}

void SiteEnergy::write_carrier(char carrier, const char* name, int line) const {
  const std::string path = format_string("%s/%s", data_dir.c_str(), name);
  // Written into a file of this run alone and renamed over the target once complete, so a
  // failed, killed or concurrent run never leaves a truncated or mixed file in its place.
  ReplacingOutput out(path);
  std::FILE* f = out.file();
  if (!f)
    fatal_error("pr_siteenergy", line, FatalStream::Out,
                "Failed to open output file " + path + "\n", -1);
  const std::string text = site_energy_text(carrier);
  std::fwrite(text.data(), 1, text.size(), f);
  if (!out.commit())
    fatal_error("pr_siteenergy", line, FatalStream::Out,
                "Failed to open output file " + path + "\n", -1);
}

void SiteEnergy::check_site_energy_tables() const {
  const bool dielectric = reorg_outer_code == 3;
  const char c = charge_carrier();
  if (has_holes(c)) {
    check_table(se_int_h, "SE_einternal-h.dat");
    if (dielectric) check_table(se_mp_h, "SE_emultipole-h.dat");
  }
  if (has_electrons(c)) {
    check_table(se_int_e, "SE_einternal-e.dat");
    if (dielectric) check_table(se_mp_e, "SE_emultipole-e.dat");
  }
}

void SiteEnergy::write_site_energies(bool verbose) {
  read_SE_einternal(verbose);
  const bool dielectric = reorg_outer_code == 3;
  if (dielectric) read_SE_emultipole(verbose);
  if (verbose) {
    std::printf("Writing site energies...\n");
    std::fflush(stdout);
  }
  // Every table the output needs is checked before either file is written.
  check_site_energy_tables();
  const char c = charge_carrier();
  if (has_holes(c)) write_carrier('h', "EH.dat", siteenergy_lines::EH_OPEN);
  if (has_electrons(c)) write_carrier('e', "EL.dat", siteenergy_lines::EL_OPEN);
  if (verbose) std::printf("done.\n");
}
