// The structure-file formats of kavri_crystal: extended XYZ (Lattice and a molecule column),
// PDB (CRYST1, one residue per molecule, CONECT from the bond graph), P1 CIF of whole molecules
// that the utility reads back with the same partition, POSCAR and MOL V2000.
#include <cmath>
#include <fstream>
#include <map>

#include "structure_writers.h"
#include "util.h"

namespace {

bool ends_with(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

double length(const double (&latt)[3][3], int c) {
  return std::sqrt(latt[0][c] * latt[0][c] + latt[1][c] * latt[1][c] + latt[2][c] * latt[2][c]);
}

// a, b, c and alpha, beta, gamma (degrees) of the cell vectors.
void cell_parameters(const Structure& s, double cell[6]) {
  for (int c = 0; c < 3; ++c) cell[c] = length(s.latt, c);
  auto angle = [&s, &cell](int u, int v) {
    double dot = 0;
    for (int r = 0; r < 3; ++r) dot += s.latt[r][u] * s.latt[r][v];
    return std::acos(dot / (cell[u] * cell[v])) * 180.0 / M_PI;
  };
  cell[3] = angle(1, 2);
  cell[4] = angle(0, 2);
  cell[5] = angle(0, 1);
}

void require_cell(const Structure& s, const char* format) {
  if (s.periodic) return;
  fatal_error("kavri_crystal", crystal_lines::USAGE, FatalStream::Err,
              std::string("A cluster has no cell to write as ") + format +
                  "; write it as .xyz, .pdb or .mol\n",
              1);
}

}  // namespace

void write_xyz(std::ostream& out, const Structure& s) {
  out << s.types.size() << "\n";
  if (s.periodic) {
    out << "Lattice=\"";
    for (int c = 0; c < 3; ++c)
      for (int r = 0; r < 3; ++r)
        out << format_string("%s%.8f", c + r ? " " : "", tidy_zero(s.latt[r][c]));
    out << "\" ";
  }
  out << "Properties=species:S:1:pos:R:3:molecule:I:1 pbc=\"" << (s.periodic ? "T T T" : "F F F")
      << "\"\n";
  for (size_t a = 0; a < s.types.size(); ++a)
    out << format_string("%-2s %14.8f %14.8f %14.8f %d\n", element_symbol(s.types[a]).c_str(),
                         s.cart[3 * a], s.cart[3 * a + 1], s.cart[3 * a + 2],
                         s.molecule[a] + 1);
}

void write_pdb(std::ostream& out, const Structure& s) {
  if (s.types.size() > 99999) {
    fatal_error("kavri_crystal", crystal_lines::USAGE, FatalStream::Err,
                format_string("%zu atoms do not fit in a PDB file (99999 at most); write .cif "
                              "or .xyz\n", s.types.size()),
                1);
  }
  out << "REMARK   1 " << s.title << "\n";
  if (s.periodic) {
    double cell[6];
    cell_parameters(s, cell);
    out << format_string("CRYST1%9.3f%9.3f%9.3f%7.2f%7.2f%7.2f P 1           1\n", cell[0],
                         cell[1], cell[2], cell[3], cell[4], cell[5]);
  }
  std::vector<int> in_molecule(s.types.size());
  for (size_t a = 0, n = 0; a < s.types.size(); ++a) {
    n = a > 0 && s.molecule[a] == s.molecule[a - 1] ? n + 1 : 1;
    in_molecule[a] = static_cast<int>(n);
  }
  for (size_t a = 0; a < s.types.size(); ++a) {
    const std::string sym = element_symbol(s.types[a]);
    std::string name = sym + std::to_string(in_molecule[a] % 1000);
    if (sym.size() == 1 && name.size() < 4) name = " " + name;
    const int mol = s.molecule[a];
    out << format_string("HETATM%5zu %-4s MOL %c%4d    %8.3f%8.3f%8.3f  1.00  0.00          %2s\n",
                         a + 1, name.c_str(), 'A' + (mol / 9999) % 26, mol % 9999 + 1,
                         s.cart[3 * a], s.cart[3 * a + 1], s.cart[3 * a + 2], sym.c_str());
  }
  std::map<int, std::vector<int>> partners;
  for (const auto& [p, q] : bond_graph(s)) {
    partners[p].push_back(q);
    partners[q].push_back(p);
  }
  for (const auto& [p, list] : partners)
    for (size_t k = 0; k < list.size(); k += 4) {
      out << format_string("CONECT%5d", p + 1);
      for (size_t j = k; j < list.size() && j < k + 4; ++j) out << format_string("%5d", list[j] + 1);
      out << "\n";
    }
  out << "END\n";
}

void write_cif(std::ostream& out, const Structure& s) {
  require_cell(s, "CIF");
  double cell[6];
  cell_parameters(s, cell);
  double L[3][3], Linv[3][3];
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) L[r][c] = s.latt[r][c];
  invert(L, Linv);
  std::string name;
  for (char ch : s.title) name += std::isgraph(static_cast<unsigned char>(ch)) ? ch : '_';
  out << "data_" << (name.empty() ? "kavri" : name) << "\n";
  out << "_symmetry_space_group_name_H-M 'P1'\n_space_group_IT_number 1\n";
  const char* tags[6] = {"_cell_length_a", "_cell_length_b", "_cell_length_c",
                         "_cell_angle_alpha", "_cell_angle_beta", "_cell_angle_gamma"};
  for (int k = 0; k < 6; ++k) out << format_string("%-18s %.6f\n", tags[k], cell[k]);
  // The empty line ends the operation rows before the next loop_.
  out << "\nloop_\n_symmetry_equiv_pos_as_xyz\nx,y,z\n\n";
  out << "loop_\n_atom_site_label\n_atom_site_type_symbol\n_atom_site_fract_x\n"
         "_atom_site_fract_y\n_atom_site_fract_z\n";
  std::map<std::string, int> serial;
  for (size_t a = 0; a < s.types.size(); ++a) {
    const std::string sym = element_symbol(s.types[a]);
    double f[3];
    mat_vec_mul(Linv, &s.cart[3 * a], f);
    out << format_string("%s%d %s %.8f %.8f %.8f\n", sym.c_str(), ++serial[sym], sym.c_str(),
                         f[0], f[1], f[2]);
  }
}

void write_poscar(std::ostream& out, const Structure& s) {
  require_cell(s, "POSCAR");
  std::vector<int> order;  // element indices in order of first appearance
  std::map<int, int> count;
  for (int t : s.types)
    if (count[t]++ == 0) order.push_back(t);
  out << s.title << "\n1.0\n";
  for (int c = 0; c < 3; ++c)
    out << format_string("  %16.10f %16.10f %16.10f\n", tidy_zero(s.latt[0][c]),
                         tidy_zero(s.latt[1][c]), tidy_zero(s.latt[2][c]));
  for (int t : order) out << " " << element_symbol(t);
  out << "\n";
  for (int t : order) out << " " << count[t];
  out << "\nCartesian\n";
  for (int t : order)
    for (size_t a = 0; a < s.types.size(); ++a)
      if (s.types[a] == t)
        out << format_string("  %16.10f %16.10f %16.10f\n", s.cart[3 * a], s.cart[3 * a + 1],
                             s.cart[3 * a + 2]);
}

void write_mol(std::ostream& out, const Structure& s) {
  Structure one = s;
  size_t n = 0;
  while (n < s.types.size() && s.molecule[n] == s.molecule[0]) ++n;
  if (n > 999) {
    fatal_error("kavri_crystal", crystal_lines::USAGE, FatalStream::Err,
                format_string("A molecule of %zu atoms does not fit in a V2000 MOL file\n", n), 1);
  }
  one.types.resize(n);
  one.cart.resize(3 * n);
  one.molecule.resize(n);
  const std::vector<std::pair<int, int>> bonds = bond_graph(one);
  out << s.title << "\n  kavri_crystal\n\n";
  out << format_string("%3zu%3zu  0  0  0  0  0  0  0  0999 V2000\n", n, bonds.size());
  for (size_t a = 0; a < n; ++a)
    out << format_string("%10.4f%10.4f%10.4f %-3s 0  0  0  0  0  0  0  0  0  0  0  0\n",
                         one.cart[3 * a], one.cart[3 * a + 1], one.cart[3 * a + 2],
                         element_symbol(one.types[a]).c_str());
  for (const auto& [p, q] : bonds) out << format_string("%3d%3d  1  0  0  0  0\n", p + 1, q + 1);
  out << "M  END\n";
}

void write_structure_file(const std::string& path, const Structure& s) {
  const std::string base = path.substr(path.find_last_of('/') == std::string::npos
                                           ? 0 : path.find_last_of('/') + 1);
  void (*writer)(std::ostream&, const Structure&) =
      ends_with(path, ".xyz")                            ? write_xyz
      : ends_with(path, ".pdb")                          ? write_pdb
      : ends_with(path, ".cif")                          ? write_cif
      : ends_with(path, ".vasp") || base == "POSCAR"     ? write_poscar
      : ends_with(path, ".mol")                          ? write_mol
                                                         : nullptr;
  if (!writer) {
    fatal_error("kavri_crystal", crystal_lines::USAGE, FatalStream::Err,
                "Unknown structure format of " + path +
                    " (.xyz, .pdb, .cif, .vasp, POSCAR or .mol)\n",
                1);
  }
  std::ofstream out(path);
  if (!out) {
    fatal_error("kavri_crystal", crystal_lines::OUTPUT_OPEN, FatalStream::Err,
                "Failed to open output file " + path + "\n", -1);
  }
  writer(out, s);
}
