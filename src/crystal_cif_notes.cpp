// What kavri_crystal reads from a CIF file beyond the utility's line scanner, only to explain
// what the scanner made of it: the formula units Z, a symmetry loop that swallows the next
// loop_ line, the atom-site columns that are missing, partial occupancy and disorder groups.
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "crystal_checks.h"
#include "util.h"

namespace {

bool has(const std::string& s, const char* text) { return s.find(text) != std::string::npos; }

// Column (from 0) of the header containing `tag`, -1 when none does.
int column_of(const std::vector<std::string>& headers, const char* tag) {
  for (size_t k = 0; k < headers.size(); ++k)
    if (has(headers[k], tag)) return static_cast<int>(k);
  return -1;
}

}  // namespace

CifNotes read_cif_notes(const std::string& path) {
  CifNotes notes;
  std::ifstream in(path, std::ios::binary);
  std::vector<std::string> lines;
  for (std::string l; std::getline(in, l);) lines.push_back(trim(l));

  bool atom_loop_seen = false;
  for (size_t k = 0; k < lines.size(); ++k) {
    const std::string& line = lines[k];
    if (has(line, "_cell_formula_units_Z")) {
      const size_t blank = line.find(' ');
      if (blank != std::string::npos)
        notes.formula_units_z = std::atoi(line.c_str() + blank + 1);
      continue;
    }
    if (line.compare(0, 5, "loop_") != 0) continue;
    std::vector<std::string> headers;
    size_t r = k + 1;
    for (; r < lines.size() && !lines[r].empty() && lines[r][0] == '_'; ++r)
      headers.push_back(lines[r]);
    if (headers.empty()) continue;
    const std::string& first = headers[0];

    if ((has(first, "_symmetry") || has(first, "_space_group")) &&
        (column_of(headers, "_symmetry_equiv_pos_as_xyz") >= 0 ||
         column_of(headers, "_space_group_symop_operation_xyz") >= 0)) {
      // The scanner takes rows up to an empty line or a tag line; a loop_ among them is a row.
      for (; r < lines.size() && !lines[r].empty() && lines[r][0] != '_'; ++r) {
        if (lines[r].compare(0, 5, "loop_") == 0 && !notes.symmetry_runs_into_loop)
          notes.symmetry_runs_into_loop = static_cast<int>(r) + 1;
      }
      continue;
    }
    if (atom_loop_seen || !has(first, "_atom_site") || has(first, "_atom_site_aniso")) continue;
    atom_loop_seen = true;
    static const char* const required[5] = {"_atom_site_label", "_atom_site_type_symbol",
                                            "_atom_site_fract_x", "_atom_site_fract_y",
                                            "_atom_site_fract_z"};
    for (const char* tag : required)
      if (column_of(headers, tag) < 0) notes.atom_loop_missing.push_back(tag);
    const int occ = column_of(headers, "_atom_site_occupancy");
    const int dis = column_of(headers, "_atom_site_disorder_group");
    // The refinement flag P marks a site refined with a partial-occupancy constraint.
    const int flags = column_of(headers, "_atom_site_refinement_flags");
    std::vector<std::string> tok;
    for (; r < lines.size(); ++r) {
      const std::string& row = lines[r];
      if (row.empty() || row[0] == '_' || row[0] == '#' || row.compare(0, 5, "loop_") == 0) break;
      tokenize(tok, row.c_str(), " \t\r\n");
      auto value = [&tok](int col) { return col >= 0 && col < static_cast<int>(tok.size())
                                                ? tok[col] : std::string("."); };
      const std::string o = value(occ);
      const bool flagged = flags >= 0 && value(flags).find('P') != std::string::npos;
      if (flagged || (o != "." && o != "?" && std::strtod(o.c_str(), nullptr) < 1.0))
        ++notes.partial_occupancy;
      const std::string d = value(dis);
      if (d != "." && d != "?") ++notes.disorder_rows;
    }
  }
  return notes;
}
