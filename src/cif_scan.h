// The CIF line scanner: the text of a crystal file in, what the structure layer reads from it
// out (identifier, chemical and space-group names, cell parameters, symmetry-operation texts,
// the atom-site rows with their positions as numbers, the bond-table rows). It is a scanner
// for a few fixed tags, not a general CIF parser.
#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "lattice.h"

// The atom-site rows of a crystal file: what later stages read of them, not the row texts.
// Each distinct type-symbol text is kept once and every row points to its entry.
struct CifAtoms {
  std::vector<Fractional> positions;  // the three coordinate texts read as numbers
  std::vector<std::uint32_t> symbol;  // per row, its entry in `symbols`
  std::vector<std::string> symbols;   // distinct type symbols, in order of first use
  std::string first_row, last_row;    // label, symbol, x, y, z texts joined by single blanks
  int unread_coordinates = 0;         // coordinate texts written as "?" or "."

  size_t size() const { return positions.size(); }
  const std::string& symbol_text(size_t i) const { return symbols[symbol[i]]; }
};

// The five recognised columns of the bond loop, as texts.
struct CifBonds {
  std::vector<std::string> label1, label2, distance, symmetry2, type;
};

struct CifScan {
  std::string identifier;  // after "data_", or the chemical name while still empty
  std::string chemical_name;
  std::string spacegroup_name;  // trimmed of blanks only: quotes stay
  int spacegroup_number = 0;
  double cell[6] = {0, 0, 0, 0, 0, 0};  // a, b, c, alpha, beta, gamma; 0 unless given
  std::vector<std::string> operations;  // symmetry-operation texts, trimmed of quotes
  CifAtoms atoms;
  CifBonds bonds;
};

// Scans the lines of `text` on top of `earlier` (what a previous read of the same structure
// left): each tag found replaces its value, a tag not found keeps it, and operations, atom
// rows and bond rows are appended. The atom-site loop ends the scan. A short atom or bond row
// ends the run with its error.
CifScan scan_cif(std::string_view text, CifScan earlier = CifScan());
