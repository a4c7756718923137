// The per-pair energy tables that earlier calculations leave in the data directory (internal
// and multipole energies, meV): one block per molecule of the cell, one value per neighbour in
// neighbour-list order.
#pragma once
#include <functional>
#include <string>
#include <string_view>
#include <vector>

using EnergyTable = std::vector<std::vector<double>>;

namespace siteenergy_lines {
constexpr int TABLE_SHORT = 262;  // a table lacks a block or a value the list needs
}  // namespace siteenergy_lines

// Reads one table from its text: a block count, then per block a value count and one value
// per line (lines of at most 254 characters, numbers converted from the start of the line).
// Only the blocks of the `nmols` molecules and, in block i, the first neighbor_counts[i]
// values are kept, so memory follows the neighbour list and not the text.
EnergyTable read_energy_table_text(std::string_view text, int nmols,
                                   const std::vector<int>& neighbor_counts);

// The same reading over lines given as std::fgets gives them (false at the end of the input).
EnergyTable read_energy_table_lines(const std::function<bool(char*, int)>& gets, int nmols,
                                    const std::vector<int>& neighbor_counts);

// Ends the run when `table` (read from `path`) lacks a block of the `nmols` molecules or, in
// block i, one of the neighbor_counts[i] values the site energies need.
void check_energy_table(const EnergyTable& table, const std::string& path, int nmols,
                        const std::vector<int>& neighbor_counts);
