// The checks of kavri_crystal: each looks at one thing the utility made of a crystal (or one
// thing of the CIF file that the utility does not read) and returns the WARNING lines that
// say what was seen and what to do. An empty result means nothing to report.
#pragma once
#include <string>
#include <vector>

#include "crystal_model.h"

// What the report reads from a CIF file beyond the utility's scanner, only to explain it.
struct CifNotes {
  int formula_units_z = 0;          // _cell_formula_units_Z, 0 when absent
  int symmetry_runs_into_loop = 0;  // line (from 1) of a loop_ taken as a symmetry row, or 0
  std::vector<std::string> atom_loop_missing;  // required atom-site columns not found
  int partial_occupancy = 0;        // atom-site rows with _atom_site_occupancy below 1
  int disorder_rows = 0;            // rows with a _atom_site_disorder_group other than . or ?
};

CifNotes read_cif_notes(const std::string& path);

using Warnings = std::vector<std::string>;

Warnings check_zero_atoms(const CrystalModel& m, const CifNotes& notes);
Warnings check_formula_units(const CrystalModel& m, const CifNotes& notes);
Warnings check_formulas(const CrystalModel& m);
Warnings check_missing_hydrogen(const CrystalModel& m);
Warnings check_occupancy(const CifNotes& notes);
Warnings check_unknown_elements(const CrystalModel& m);
Warnings check_unread_coordinates(const CrystalModel& m);
Warnings check_close_atoms(const CrystalModel& m);
Warnings check_isolated_molecules(const CrystalModel& m);
Warnings check_search_reach(const CrystalModel& m);

// Every check above, in this order.
Warnings run_checks(const CrystalModel& m, const CifNotes& notes);
