// The reading mode of the neighbour list: the list given by "neighbor.dat" instead of the
// search, taken in file order, with the error lines of that file.
#pragma once
#include <functional>
#include <string_view>

#include "neighbor_search.h"

namespace transport_lines {
constexpr int NEIGHBOR_OPEN = 3546;      // the file cannot be opened
constexpr int NEIGHBOR_NMOLS = 3560;     // its molecule count is not the cell's
constexpr int NEIGHBOR_NCOL = 3587;      // a neighbour line without exactly 8 columns
constexpr int NEIGHBOR_VALUE = 3590;     // a column that is not a whole 32-bit integer
constexpr int NEIGHBOR_MOLECULE = 3592;  // a neighbour molecule outside 1 .. nmols
}  // namespace transport_lines

// The neighbour images (molecule and shift; displacements and centres not yet placed) of the
// `nmols` molecules of the cell from the text of "neighbor.dat". Lines are taken as std::fgets
// takes them into a 256-byte buffer. A header that does not fit the cell, a neighbour line
// without 8 columns, a column that is not a whole integer, a molecule outside the cell and a
// full list end the run.
NeighborList read_neighbor_text(std::string_view text, int nmols);

// The same reading over lines given as std::fgets gives them (false at the end of the input).
NeighborList read_neighbor_lines(const std::function<bool(char*, int)>& gets, int nmols);
