// The plain-text report of kavri_crystal: one section per loading stage, the neighbour lists
// in the order of EH.dat and EL.dat, then the warnings.
#include <cmath>
#include <cstdio>
#include <string>

#include "crystal_report.h"
#include "util.h"

std::vector<std::pair<std::string, std::vector<int>>> formula_groups(const CrystalModel& m) {
  std::vector<std::pair<std::string, std::vector<int>>> groups;
  for (size_t i = 0; i < m.molecules.size(); ++i) {
    const std::string& f = m.molecules[i].formula;
    size_t g = 0;
    while (g < groups.size() && groups[g].first != f) ++g;
    if (g == groups.size()) groups.push_back({f, {}});
    groups[g].second.push_back(static_cast<int>(i) + 1);
  }
  return groups;
}

void write_text_report(std::ostream& out, const CrystalModel& m, const Warnings& warnings) {
  out << "Crystal: " << m.source << "\n";
  if (!m.identifier.empty()) out << "Identifier: " << m.identifier << "\n";
  out << format_string("Cell: a = %.4f  b = %.4f  c = %.4f  alpha = %.3f  beta = %.3f  "
                       "gamma = %.3f\n",
                       m.cell[0], m.cell[1], m.cell[2], m.cell[3], m.cell[4], m.cell[5]);
  for (int v = 0; v < 3; ++v)
    out << format_string("  vector %c: %12.6f %12.6f %12.6f\n", "abc"[v], tidy_zero(m.latt[0][v]),
                         tidy_zero(m.latt[1][v]), tidy_zero(m.latt[2][v]));
  if (m.from_cif) {
    out << "Space group: " << (m.spacegroup.empty() ? "(none)" : m.spacegroup) << "\n";
    out << "Symmetry operations: " << m.operations.size() << "\n";
    for (const std::string& op : m.operations) out << "  " << op << "\n";
    out << format_string("Atoms: %d in the file, %d after expansion, %d duplicates removed, "
                         "%d in the cell%s\n",
                         m.atoms_in_file, m.atoms_generated,
                         m.atoms_generated - m.atoms_in_cell, m.atoms_in_cell,
                         m.expanded ? "" : " (P1: taken as read)");
  } else {
    out << format_string("Atoms: %d in %zu MOL file(s)\n", m.atoms_in_cell, m.molecules.size());
  }
  out << format_string("Settings: lattice_cutoff %g A, neighbor_scell %d %d %d, "
                       "bond_dis_scale %g\n",
                       m.cutoff, m.scell[0], m.scell[1], m.scell[2], m.bond_scale);

  out << format_string("\nMolecules: %zu\n", m.molecules.size());
  for (const auto& [formula, ids] : formula_groups(m)) {
    out << format_string("  %-14s x %zu:", formula.c_str(), ids.size());
    for (int id : ids) out << ' ' << id;
    out << '\n';
  }
  if (!m.molecules.empty())
    out << "   mol  formula         atoms        mass    centre of mass (fractional)"
           "        centre of mass (Cartesian, A)\n";
  for (size_t i = 0; i < m.molecules.size(); ++i) {
    const CrystalMolecule& mol = m.molecules[i];
    out << format_string("  %4zu  %-14s %6zu %11.4f  %10.6f %10.6f %10.6f  %11.5f %11.5f "
                         "%11.5f\n",
                         i + 1, mol.formula.c_str(), mol.types.size(), mol.mass,
                         mol.com_frac[0], mol.com_frac[1], mol.com_frac[2], mol.com_cart[0],
                         mol.com_cart[1], mol.com_cart[2]);
  }

  out << "\nNeighbours of each molecule, in the order of its lines in EH.dat and EL.dat:\n";
  for (size_t i = 0; i < m.molecules.size(); ++i) {
    const CrystalMolecule& mol = m.molecules[i];
    out << format_string("  molecule %zu: %zu neighbours\n", i + 1, mol.neighbours.size());
    if (mol.neighbours.empty()) continue;
    out << "       k   mol   image a  b  c   COM dist   contact   atoms of the contact\n";
    for (size_t k = 0; k < mol.neighbours.size(); ++k) {
      const NeighbourImage& n = mol.neighbours[k];
      const CrystalMolecule& other = m.molecules[n.mol];
      out << format_string("    %4zu  %4d   %6d %2d %2d  %9.4f %9.4f   %d %s - %d %s\n", k + 1,
                           n.mol + 1, n.shift[0], n.shift[1], n.shift[2], n.com_distance,
                           n.contact, n.atom_i + 1, element_symbol(mol.types[n.atom_i]).c_str(),
                           n.atom_j + 1, element_symbol(other.types[n.atom_j]).c_str());
    }
  }

  out << format_string("\nChecks: %zu warning(s)\n", warnings.size());
  for (const std::string& w : warnings) out << w << "\n";
}
