// Symmetry operations of a crystal file on the model object: the operation parser and the
// expansion of the asymmetric unit to the full cell, over the stages of symmetry_operation.h
// and p1_expansion.h.
#include <string>
#include <utility>
#include <vector>

#include "fileio.h"
#include "p1_expansion.h"
#include "symmetry_operation.h"
#include "util.h"

void FileIO::ParseTransformString(const std::string& op, double R[3][3], double t[3]) const {
  SymmetryOperation start;
  for (int k = 0; k < 3; ++k) {
    for (int j = 0; j < 3; ++j) start.R[k][j] = R[k][j];
    start.t[k] = t[k];
  }
  const SymmetryOperation s = parse_symmetry_operation(op, start);
  for (int k = 0; k < 3; ++k) {
    for (int j = 0; j < 3; ++j) R[k][j] = s.R[k][j];
    t[k] = s.t[k];
  }
}

void FileIO::make_spacegroup_P1(int fractional_flag) {
  sg_triml(spacegroup_name);
  sg_trimr(spacegroup_name);
  if (iequals(spacegroup_name, "P1")) return;

  const AtomSites unit{std::move(atypes), std::move(radius), std::move(x_s), std::move(x)};
  AtomSites cell = expand_to_p1(unit, symm_ops, lattice(), fractional_flag, cif_file, debug);
  atypes = std::move(cell.types);
  radius = std::move(cell.radius);
  x_s = std::move(cell.frac);
  x = std::move(cell.cart);
  natoms_cif = static_cast<int>(atypes.size());
}

int FileIO::mark_overlapped_atoms(const std::vector<double>& frac,
                                  std::vector<char>& removed) const {
  return mark_overlaps(frac, removed, debug);
}
