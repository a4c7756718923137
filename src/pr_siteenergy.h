// SiteEnergy: reads the per-pair internal-energy and multipole-energy tables that earlier
// calculations left in the data directory and writes the site energies of holes ("EH.dat")
// and electrons ("EL.dat") pair by pair in neighbour-list order.
#pragma once
#include <string>
#include <string_view>

#include "energy_table.h"
#include "transport.h"

// Error-site line numbers of the site-energy stage.
namespace siteenergy_lines {
constexpr int EINTERNAL_H_OPEN = 103;
constexpr int EINTERNAL_E_OPEN = 138;
constexpr int EMULTIPOLE_H_OPEN = 194;
constexpr int EMULTIPOLE_E_OPEN = 229;
constexpr int EH_OPEN = 288;
constexpr int EL_OPEN = 325;
}  // namespace siteenergy_lines

class SiteEnergy : public Transport {
 public:
  SiteEnergy() = default;

  void read_SE_einternal(bool verbose);
  void read_SE_emultipole(bool verbose);
  void write_site_energies(bool verbose);

  // Reads one table from the text of its file, as the file readers below read the data
  // directory's tables: only what the neighbour list needs is kept.
  EnergyTable read_table_text(std::string_view text) const;

  // Ends the run when a table the charge type and the outer model need lacks a block or a
  // value of the neighbour list; then the text of "EH.dat" ('h') or "EL.dat" ('e').
  void check_site_energy_tables() const;
  std::string site_energy_text(char carrier) const;

  const EnergyTable& get_einternal(char carrier) const { return carrier == 'h' ? se_int_h : se_int_e; }
  const EnergyTable& get_emultipole(char carrier) const { return carrier == 'h' ? se_mp_h : se_mp_e; }

 protected:
  EnergyTable se_int_h, se_int_e, se_mp_h, se_mp_e;

 private:
  std::vector<int> se_index_a, se_index_b;  // kept for the suite's later stages

  // Reads one table file; `line` is the error line reported when it cannot be opened.
  EnergyTable read_table(const char* name, int line) const;
  // Reads the hole and/or electron table of one kind, as the charge type asks.
  void read_carrier_tables(bool verbose, const char* what, const char* hole_file, int hole_line,
                           EnergyTable& holes, const char* electron_file, int electron_line,
                           EnergyTable& electrons);
  // Ends the run when `table` lacks a block or value that the neighbour list needs.
  void check_table(const EnergyTable& table, const char* name) const;
  void write_carrier(char carrier, const char* name, int line) const;
};
