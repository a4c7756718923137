// Expansion of a crystal's asymmetric unit to the whole cell (space group P1): every atom under
// every symmetry operation, then removal of generated atoms that fall on top of an earlier one.
#pragma once
#include <string>
#include <vector>

#include "lattice.h"

// The atoms of a cell as the structure layer holds them, one entry per atom.
struct AtomSites {
  std::vector<int> types;      // element index (-1 for an unknown symbol)
  std::vector<double> radius;  // bond radius, angstrom
  std::vector<double> frac;    // fractional position, 3 per atom
  std::vector<double> cart;    // Cartesian position, 3 per atom
};

// Marks the candidates that coincide with an earlier kept one: squared fractional distance
// under 0.0001 after the minimum-image shift. Returns how many were marked; with `debug` each
// mark prints the pair. The fast path bins positions in a periodic grid; the reference is the
// plain pairwise scan.
int mark_overlaps(const std::vector<double>& frac, std::vector<char>& removed, bool debug);
int mark_overlaps_reference(const std::vector<double>& frac, std::vector<char>& removed,
                            bool debug);

// The cell of `unit` under `operations`, candidate m*N + i being atom i under operation m, each
// position brought into [0, 1) by one shift, with the coinciding candidates removed (a warning
// counts them). A non-zero `fractional_flag` applies the operations to the fractional
// positions; zero applies them to the Cartesian ones and converts through `lattice`. A cell of
// more candidates than the expansion builds ends the run, naming `file_name`; `debug` prints
// every operation and every removed pair. The two forms differ only in the duplicate search.
AtomSites expand_to_p1(const AtomSites& unit, const std::vector<std::string>& operations,
                       const Lattice& lattice, int fractional_flag, const std::string& file_name,
                       bool debug);
AtomSites expand_to_p1_reference(const AtomSites& unit, const std::vector<std::string>& operations,
                                 const Lattice& lattice, int fractional_flag,
                                 const std::string& file_name, bool debug);
