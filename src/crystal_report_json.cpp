// The JSON report of kavri_crystal, written to the stream element by element as it is made,
// so a cell of a hundred thousand atoms is never held a second time as text.
#include <cstdio>
#include <string>

#include "crystal_report.h"
#include "util.h"

namespace {

std::string quoted(const std::string& s) {
  std::string q = "\"";
  for (unsigned char c : s) {
    if (c == '"' || c == '\\') {
      q += '\\';
      q += static_cast<char>(c);
    } else if (c < 0x20) {
      q += format_string("\\u%04x", c);
    } else {
      q += static_cast<char>(c);
    }
  }
  return q + "\"";
}

std::string triple(const double v[3], const char* fmt) {
  return "[" + format_string(fmt, v[0]) + ", " + format_string(fmt, v[1]) + ", " +
         format_string(fmt, v[2]) + "]";
}

}  // namespace

void write_json_report(std::ostream& out, const CrystalModel& m, const Warnings& warnings) {
  out << "{\n  \"source\": " << quoted(m.source) << ",\n  \"identifier\": "
      << quoted(m.identifier) << ",\n";
  out << format_string("  \"cell\": {\"a\": %.6f, \"b\": %.6f, \"c\": %.6f, \"alpha\": %.6f, "
                       "\"beta\": %.6f, \"gamma\": %.6f},\n",
                       m.cell[0], m.cell[1], m.cell[2], m.cell[3], m.cell[4], m.cell[5]);
  out << "  \"vectors\": [";
  for (int v = 0; v < 3; ++v) {
    const double col[3] = {m.latt[0][v], m.latt[1][v], m.latt[2][v]};
    out << (v ? ", " : "") << triple(col, "%.6f");
  }
  out << "],\n  \"space_group\": " << quoted(m.spacegroup) << ",\n  \"operations\": [";
  for (size_t k = 0; k < m.operations.size(); ++k)
    out << (k ? ", " : "") << quoted(m.operations[k]);
  out << "],\n";
  out << format_string("  \"atoms\": {\"in_file\": %d, \"after_expansion\": %d, "
                       "\"duplicates_removed\": %d, \"in_cell\": %d},\n",
                       m.atoms_in_file, m.atoms_generated, m.atoms_generated - m.atoms_in_cell,
                       m.atoms_in_cell);
  out << format_string("  \"settings\": {\"lattice_cutoff\": %g, \"neighbor_scell\": [%d, %d, "
                       "%d], \"bond_dis_scale\": %g},\n",
                       m.cutoff, m.scell[0], m.scell[1], m.scell[2], m.bond_scale);
  out << "  \"formulas\": [";
  bool first = true;
  for (const auto& [formula, ids] : formula_groups(m)) {
    out << (first ? "" : ", ") << "{\"formula\": " << quoted(formula) << ", \"molecules\": [";
    for (size_t k = 0; k < ids.size(); ++k) out << (k ? ", " : "") << ids[k];
    out << "]}";
    first = false;
  }
  out << "],\n  \"molecules\": [";
  for (size_t i = 0; i < m.molecules.size(); ++i) {
    const CrystalMolecule& mol = m.molecules[i];
    out << (i ? ",\n" : "\n")
        << format_string("    {\"id\": %zu, \"formula\": ", i + 1) << quoted(mol.formula)
        << format_string(", \"atoms\": %zu, \"mass\": %.4f, ", mol.types.size(), mol.mass)
        << "\"com_fractional\": " << triple(mol.com_frac, "%.6f")
        << ", \"com_cartesian\": " << triple(mol.com_cart, "%.5f") << ",\n     \"neighbours\": [";
    for (size_t k = 0; k < mol.neighbours.size(); ++k) {
      const NeighbourImage& n = mol.neighbours[k];
      out << (k ? ",\n       " : "\n       ")
          << format_string("{\"k\": %zu, \"mol\": %d, \"image\": [%d, %d, %d], "
                           "\"com_distance\": %.4f, \"contact\": %.4f, \"atom_i\": %d, "
                           "\"element_i\": \"%s\", \"atom_j\": %d, \"element_j\": \"%s\"}",
                           k + 1, n.mol + 1, n.shift[0], n.shift[1], n.shift[2],
                           n.com_distance, n.contact, n.atom_i + 1,
                           element_symbol(mol.types[n.atom_i]).c_str(), n.atom_j + 1,
                           element_symbol(m.molecules[n.mol].types[n.atom_j]).c_str());
    }
    out << "]}";
  }
  out << (m.molecules.empty() ? "],\n" : "\n  ],\n") << "  \"warnings\": [";
  for (size_t k = 0; k < warnings.size(); ++k)
    out << (k ? ",\n    " : "\n    ") << quoted(warnings[k]);
  out << (warnings.empty() ? "]\n}\n" : "\n  ]\n}\n");
}
