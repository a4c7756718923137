// Which atoms a structure file holds: the unit cell, a P1 supercell of whole molecules, or one
// molecule with every neighbour image of its list (the pairs of the transfer-integral jobs);
// and the bond graph inside each molecule, for the PDB and MOL connection records.
#include <cmath>

#include "fileio.h"
#include "structure_writers.h"
#include "util.h"

namespace {

// Appends molecule `mol` shifted by the lattice image (a, b, c) as molecule number `id`.
void add_molecule(Structure& s, const CrystalModel& m, int mol, const int shift[3], int id) {
  const CrystalMolecule& src = m.molecules[mol];
  double d[3];
  for (int r = 0; r < 3; ++r)
    d[r] = m.latt[r][0] * shift[0] + m.latt[r][1] * shift[1] + m.latt[r][2] * shift[2];
  for (size_t a = 0; a < src.types.size(); ++a) {
    s.types.push_back(src.types[a]);
    for (int k = 0; k < 3; ++k) s.cart.push_back(src.cart[3 * a + k] + d[k]);
    s.molecule.push_back(id);
  }
}

}  // namespace

Structure select_structure(const CrystalModel& m, const StructureChoice& choice) {
  Structure s;
  s.title = m.identifier.empty() ? m.source : m.identifier;
  s.bond_scale = m.bond_scale;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) s.latt[r][c] = m.latt[r][c] * (choice.cluster ? 1 : choice.supercell[c]);
  int id = 0;
  if (choice.cluster) {
    const int centre = choice.cluster - 1;
    if (centre < 0 || centre >= static_cast<int>(m.molecules.size())) {
      fatal_error("kavri_crystal", crystal_lines::USAGE, FatalStream::Err,
                  format_string("-cluster %d: the cell holds %zu molecules\n", choice.cluster,
                                m.molecules.size()),
                  1);
    }
    s.periodic = false;
    s.title += format_string(" cluster of molecule %d", choice.cluster);
    const int zero[3] = {0, 0, 0};
    add_molecule(s, m, centre, zero, id++);
    for (const NeighbourImage& n : m.molecules[centre].neighbours)
      add_molecule(s, m, n.mol, n.shift, id++);
    return s;
  }
  for (int c = 0; c < choice.supercell[2]; ++c)
    for (int b = 0; b < choice.supercell[1]; ++b)
      for (int a = 0; a < choice.supercell[0]; ++a)
        for (size_t i = 0; i < m.molecules.size(); ++i) {
          const int shift[3] = {a, b, c};
          add_molecule(s, m, static_cast<int>(i), shift, id++);
        }
  return s;
}

std::vector<std::pair<int, int>> bond_graph(const Structure& s) {
  std::vector<std::pair<int, int>> bonds;
  const int n = static_cast<int>(s.types.size());
  auto radius = [](int t) { return t >= 0 && t < 106 ? nw_elem_radius_m[t] : 0.0; };
  for (int first = 0, last = 0; first < n; first = last) {
    while (last < n && s.molecule[last] == s.molecule[first]) ++last;
    for (int p = first; p < last; ++p)
      for (int q = p + 1; q < last; ++q) {
        double r2 = 0;
        for (int k = 0; k < 3; ++k) r2 += std::pow(s.cart[3 * q + k] - s.cart[3 * p + k], 2);
        if ((radius(s.types[p]) + radius(s.types[q])) * s.bond_scale > std::sqrt(r2))
          bonds.emplace_back(p, q);
      }
  }
  return bonds;
}
