// The report of kavri_crystal, as plain text or as JSON, written straight to a stream: the
// cell and symmetry, the atom counts of the loading stages, the molecules, every molecule's
// neighbour images in the order of EH.dat and EL.dat, and the warnings of the checks.
#pragma once
#include <ostream>

#include "crystal_checks.h"
#include "crystal_model.h"

void write_text_report(std::ostream& out, const CrystalModel& m, const Warnings& warnings);
void write_json_report(std::ostream& out, const CrystalModel& m, const Warnings& warnings);

// Molecules (counted from 1) grouped by formula, formulas in order of first appearance.
std::vector<std::pair<std::string, std::vector<int>>> formula_groups(const CrystalModel& m);
