// The checks of kavri_crystal, one small function each: what the utility made of a crystal
// that a user should look at before quantum-chemistry jobs are planned from it.
#include "crystal_checks.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <set>
#include <tuple>

#include "util.h"

namespace {

// A warning: first line after "WARNING: ", continuation lines indented by nine blanks.
std::string warning(const std::vector<std::string>& lines) {
  std::string w = "WARNING: " + lines.front();
  for (size_t k = 1; k < lines.size(); ++k) w += "\n         " + lines[k];
  return w;
}

// Each pair is listed from both sides; this picks one: j > i, or for images of the molecule
// itself the shift that comes first.
bool first_side(size_t i, const NeighbourImage& n) {
  const int mol = static_cast<int>(i);
  if (n.mol != mol) return n.mol > mol;
  return std::make_tuple(n.shift[0], n.shift[1], n.shift[2]) > std::make_tuple(0, 0, 0);
}

bool contains_element(const std::vector<int>& types, int z) {
  return std::find(types.begin(), types.end(), z) != types.end();
}

}  // namespace

Warnings check_zero_atoms(const CrystalModel& m, const CifNotes& notes) {
  if (m.atoms_in_cell > 0) return {};
  std::vector<std::string> lines = {"No atoms were read from " + m.source + "."};
  if (notes.symmetry_runs_into_loop) {
    lines.push_back(format_string("The symmetry-operation loop runs into the loop_ line %d, "
                                  "which is taken as one more operation,",
                                  notes.symmetry_runs_into_loop));
    lines.push_back("so the atom-site loop that it opens is skipped. Put an empty line "
                    "before that loop_ line.");
  } else if (!notes.atom_loop_missing.empty()) {
    std::string cols;
    for (const std::string& c : notes.atom_loop_missing) cols += " " + c;
    lines.push_back("The atom-site loop lacks the column(s)" + cols + " and is skipped.");
  } else {
    lines.push_back("Check that the cell, the symmetry operations and the atom-site loop "
                    "(with label, type symbol and fractional x, y, z) are present.");
  }
  return {warning(lines)};
}

Warnings check_formula_units(const CrystalModel& m, const CifNotes& notes) {
  const int z = notes.formula_units_z;
  const int n = static_cast<int>(m.molecules.size());
  if (z <= 0 || (n >= z && n % z == 0)) return {};
  return {warning({format_string("%d molecules found, but _cell_formula_units_Z is %d.", n, z),
                   "Molecules may be split (missing bonds) or joined (atoms too close); "
                   "check the formulas and the bond_dis_scale setting."})};
}

Warnings check_formulas(const CrystalModel& m) {
  Warnings out;
  std::map<std::string, int> groups;
  size_t largest = 0;
  for (const CrystalMolecule& mol : m.molecules) {
    ++groups[mol.formula];
    largest = std::max(largest, mol.types.size());
  }
  if (groups.size() > 1) {
    std::string list;
    for (const auto& [formula, count] : groups)
      list += format_string("%s%d x %s", list.empty() ? "" : ", ", count, formula.c_str());
    out.push_back(warning({"The molecules have different formulas: " + list + ".",
                           "If the crystal holds one compound, atoms are assigned to the wrong "
                           "molecule; check the bond_dis_scale",
                           "setting and the atom positions of the file."}));
  }
  for (size_t i = 0; i < m.molecules.size(); ++i) {
    const size_t n = m.molecules[i].types.size();
    if (2 * n < largest) {
      out.push_back(warning({format_string("Molecule %zu (%s, %zu atoms) is a fragment much "
                                           "smaller than the largest molecule (%zu atoms).",
                                           i + 1, m.molecules[i].formula.c_str(), n, largest),
                             "Check for missing bonds, counter-ions or solvent that should be "
                             "removed from the file."}));
    }
  }
  return out;
}

Warnings check_missing_hydrogen(const CrystalModel& m) {
  std::vector<size_t> bare;
  for (size_t i = 0; i < m.molecules.size(); ++i)
    if (contains_element(m.molecules[i].types, 6) && !contains_element(m.molecules[i].types, 1))
      bare.push_back(i + 1);
  if (bare.empty()) return {};
  std::string ids;
  for (size_t id : bare) ids += (ids.empty() ? "" : " ") + std::to_string(id);
  return {warning({"Molecule(s) " + ids + " contain carbon but no hydrogen.",
                   "X-ray structures often omit hydrogen atoms; add them before the "
                   "quantum-chemistry jobs (ignore this if the compound has none)."})};
}

Warnings check_occupancy(const CifNotes& notes) {
  Warnings out;
  if (notes.partial_occupancy)
    out.push_back(warning({format_string("%d atom site(s) have an occupancy below 1 (or a partial-occupancy flag P).",
                                         notes.partial_occupancy),
                           "Every site is taken as a whole atom; keep one orientation of the "
                           "disordered part and remove the others."}));
  if (notes.disorder_rows)
    out.push_back(warning({format_string("%d atom site(s) belong to a disorder group.",
                                         notes.disorder_rows),
                           "All disorder groups are read together; keep one of them."}));
  return out;
}

Warnings check_unknown_elements(const CrystalModel& m) {
  int count = 0;
  for (const CrystalMolecule& mol : m.molecules)
    for (int t : mol.types) count += t < 1;
  if (m.unknown_symbols.empty() && count == 0) return {};
  std::string list;
  for (const std::string& s : m.unknown_symbols) list += " " + s;
  return {warning({format_string("%d atom(s) of the cell have an unknown element symbol%s%s.",
                                 count, list.empty() ? "" : ":", list.c_str()),
                   "Such an atom bonds to every atom in reach; write the element symbol "
                   "(C, H, Cl, ...) in the type-symbol column."})};
}

Warnings check_unread_coordinates(const CrystalModel& m) {
  const int count = m.unread_coordinates;
  if (!count) return {};
  return {warning({format_string("%d fractional coordinate(s) are written as ? or . and are "
                                 "read as 0.", count),
                   "Give every atom its coordinates, or remove the atoms without them."})};
}

Warnings check_close_atoms(const CrystalModel& m) {
  const double limit = 0.5;
  int within = 0;
  for (const CrystalMolecule& mol : m.molecules) {
    const size_t n = mol.types.size();
    for (size_t p = 0; p < n; ++p)
      for (size_t q = p + 1; q < n; ++q) {
        double r2 = 0;
        for (int k = 0; k < 3; ++k) r2 += std::pow(mol.cart[3 * q + k] - mol.cart[3 * p + k], 2);
        within += r2 < limit * limit;
      }
  }
  int between = 0;
  for (size_t i = 0; i < m.molecules.size(); ++i)
    for (const NeighbourImage& n : m.molecules[i].neighbours)
      between += first_side(i, n) && n.contact < limit;
  if (!within && !between) return {};
  return {warning({format_string("%d atom pair(s) inside molecules and %d neighbour pair(s) "
                                 "are closer than 0.5 A.", within, between),
                   "Overlapping sites (disorder, symmetry copies not taken as duplicates, "
                   "or a cell too small for its molecules) must be removed."})};
}

Warnings check_isolated_molecules(const CrystalModel& m) {
  std::string ids;
  for (size_t i = 0; i < m.molecules.size(); ++i)
    if (m.molecules[i].neighbours.empty()) ids += (ids.empty() ? "" : " ") + std::to_string(i + 1);
  if (ids.empty()) return {};
  return {warning({"Molecule(s) " + ids + format_string(" have no neighbour within the "
                                                        "cut-off of %g A.", m.cutoff),
                   "A charge cannot hop from them; raise lattice_cutoff (-cutoff) or "
                   "neighbor_scell (-scell)."})};
}

Warnings check_search_reach(const CrystalModel& m) {
  Warnings out;
  // A neighbour on the face of the searched block of cells means that images one cell
  // further out may be within the cut-off too, and they were not searched.
  std::string axes;
  for (int k = 0; k < 3; ++k) {
    bool edge = false;
    for (const CrystalMolecule& mol : m.molecules)
      for (const NeighbourImage& n : mol.neighbours) edge |= std::abs(n.shift[k]) >= m.scell[k];
    if (edge) axes += format_string(" %c (searched -%d to +%d)", "abc"[k], m.scell[k], m.scell[k]);
  }
  if (!axes.empty())
    out.push_back(warning({"Neighbours were found at the edge of the search range along" + axes +
                               ".",
                           "Images further out may be within the cut-off as well; raise "
                           "neighbor_scell (-scell) until no neighbour lies on the edge."}));
  // Every pair must appear from both sides: j with image s of i, and i with image -s of j.
  std::set<std::tuple<int, int, int, int, int>> pairs;
  for (size_t i = 0; i < m.molecules.size(); ++i)
    for (const NeighbourImage& n : m.molecules[i].neighbours)
      pairs.emplace(static_cast<int>(i), n.mol, n.shift[0], n.shift[1], n.shift[2]);
  int one_sided = 0;
  for (const auto& [i, j, a, b, c] : pairs) one_sided += !pairs.count({j, i, -a, -b, -c});
  if (one_sided)
    out.push_back(warning({format_string("%d neighbour pair(s) appear in one molecule's list "
                                         "but not in the other's.", one_sided),
                           "The search range cuts the neighbour shell; raise neighbor_scell "
                           "(-scell)."}));
  return out;
}

Warnings run_checks(const CrystalModel& m, const CifNotes& notes) {
  Warnings all;
  for (Warnings w :
       {check_zero_atoms(m, notes), check_formula_units(m, notes), check_formulas(m),
        check_missing_hydrogen(m), check_occupancy(notes), check_unknown_elements(m),
        check_unread_coordinates(m), check_close_atoms(m), check_isolated_molecules(m),
        check_search_reach(m)})
    all.insert(all.end(), w.begin(), w.end());
  return all;
}
