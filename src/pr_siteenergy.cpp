// Site energies: the internal-energy and multipole-energy tables read from the data directory
// (energy_table.h), and "EH.dat" (holes) and "EL.dat" (electrons) written from their text
// (site_energy_write.h) through a file of this run alone.
#include <cstdio>
#include <string>
#include <string_view>

#include "pr_siteenergy.h"
#include "site_energy_write.h"
#include "util.h"

EnergyTable SiteEnergy::read_table(const char* name, int line) const {
  const std::string path = format_string("%s/%s", data_dir.c_str(), name);
  if (exists_not_regular(path.c_str()))
    fatal_error("pr_siteenergy", line, FatalStream::Out,
                "Input file " + path + " is not a regular file\n", -1);
  std::FILE* f = std::fopen(path.c_str(), "r");
  if (!f)
    fatal_error("pr_siteenergy", line, FatalStream::Out,
                "Failed to open input file " + path + "\n", -1);
  EnergyTable table = read_energy_table_lines(
      [f](char* buf, int size) { return std::fgets(buf, size, f) != nullptr; }, nmols_uc,
      nei_count);
  std::fclose(f);
  return table;
}

EnergyTable SiteEnergy::read_table_text(std::string_view text) const {
  return read_energy_table_text(text, nmols_uc, nei_count);
}

void SiteEnergy::read_carrier_tables(bool verbose, const char* what, const char* hole_file,
                                     int hole_line, EnergyTable& holes, const char* electron_file,
                                     int electron_line, EnergyTable& electrons) {
  if (verbose) {
    std::printf("Reading reorganization %s energies...\n", what);
    std::fflush(stdout);
  }
  const char c = charge_carrier();
  if (carries_holes(c)) holes = read_table(hole_file, hole_line);
  if (carries_electrons(c)) electrons = read_table(electron_file, electron_line);
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
  check_energy_table(table, format_string("%s/%s", data_dir.c_str(), name), nmols_uc, nei_count);
}

std::string SiteEnergy::site_energy_text(char carrier) const {
  const bool dielectric = reorg_outer_code == 3;
  const EnergyTable& internal = carrier == 'h' ? se_int_h : se_int_e;
  const EnergyTable& multipole = carrier == 'h' ? se_mp_h : se_mp_e;
  return ::site_energy_text(nmols_uc, nei_count, internal, dielectric ? &multipole : nullptr);
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
  if (carries_holes(c)) {
    check_table(se_int_h, "SE_einternal-h.dat");
    if (dielectric) check_table(se_mp_h, "SE_emultipole-h.dat");
  }
  if (carries_electrons(c)) {
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
  if (carries_holes(c)) write_carrier('h', "EH.dat", siteenergy_lines::EH_OPEN);
  if (carries_electrons(c)) write_carrier('e', "EL.dat", siteenergy_lines::EL_OPEN);
  if (verbose) std::printf("done.\n");
}
