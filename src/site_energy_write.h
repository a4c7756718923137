// The site energies of one carrier as the text of "EH.dat" (holes) or "EL.dat" (electrons):
// the molecule count, then per molecule its neighbour count and number and one value per
// neighbour in neighbour-list order.
#pragma once
#include <string>
#include <vector>

#include "energy_table.h"

// Whether a charge type (lower case) asks for the hole file ("h", "a") and for the electron
// file ("a", "e": the two differ only in the bit of value 4).
inline bool carries_holes(char c) { return c == 'h' || c == 'a'; }
inline bool carries_electrons(char c) { return (c & ~4) == 'a'; }

// The text for the `nmols` molecules with neighbor_counts[i] neighbours each: the internal
// energy of every pair, plus its multipole energy when `multipole` is given (the dielectric
// outer model). The tables hold at least the values the counts ask for.
std::string site_energy_text(int nmols, const std::vector<int>& neighbor_counts,
                             const EnergyTable& internal, const EnergyTable* multipole);
