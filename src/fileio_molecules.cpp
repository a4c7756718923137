// Bond detection and whole molecules: the distance criterion on covalent radii, the
// partition of an expanded cell into molecules, and the unwrapping of one molecule across
// the cell faces with its centre of mass brought back into the home cell.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "fileio.h"
#include "util.h"

namespace {

// Element record for an index from a file; an unknown element (-1) uses the dummy record.
const Element& element_record(int index) {
  return Elements_m[(index >= 0 && index < NELEMENTS) ? index : 0];
}

constexpr double NOT_FOUND_DISTANCE = 9999.99;

}  // namespace

double reduce_to_half_cell(double d) {
  // Same result as subtracting (adding) 1 while above 0.5 (below -0.5), which is exact for
  // every displacement a cell can hold, but in one step, so that absurd values cannot hang.
  if (d > 0.5) return d - std::ceil(d - 0.5);
  if (d < -0.5) return d + std::ceil(-d - 0.5);
  return d;
}

bool FileIO::bonded(const double d[3], double ri, double rj, double& dist) const {
  double c[3];
  coord_f2c(d, c);
  dist = get_magnitude(c);
  return (ri + rj) * bond_dis_scale > dist;
}

namespace {

// The search shared by the three bond searches: with an empty molecule list the lowest-index
// unassigned atom seeds a molecule; otherwise the first unassigned atom i (ascending) that
// bonds to a list member j (in list order) by `bonded_pair(i, j, dist)`.
template <class BondTest>
void search_bond(int natoms, const std::vector<int>& unassigned, int nlist,
                 const std::vector<int>& list, BondTest bonded_pair, int& atom, int& partner,
                 double& distance) {
  atom = -1;
  partner = -1;
  distance = NOT_FOUND_DISTANCE;
  for (int i = 0; i < natoms; ++i) {
    if (!unassigned[i]) continue;
    if (nlist == 0) {
      atom = i;
      partner = 0;
      distance = 0.0;
      return;
    }
    for (int k = 0; k < nlist; ++k) {
      const int j = list[k];
      double dist;
      if (j != i && bonded_pair(i, j, dist)) {
        atom = i;
        partner = j;
        distance = dist;
        return;
      }
    }
  }
}

}  // namespace

void FileIO::find_bond_atom(int natoms, std::vector<int>& unassigned, int nlist,
                            const std::vector<int>& list, int& atom, int& partner,
                            double& distance) const {
  auto test = [&](int i, int j, double& dist) {
    double d[3];
    for (int c = 0; c < 3; ++c) d[c] = x_s[3 * j + c] - x_s[3 * i + c];
    PBC_scaled_disp_wrap(d);
    return bonded(d, radius[i], radius[j], dist);
  };
  search_bond(natoms, unassigned, nlist, list, test, atom, partner, distance);
}

void FileIO::find_bond_atom_cart(int natoms, std::vector<int>& unassigned, int nlist,
                                 const std::vector<int>& list, int& atom, int& partner,
                                 double& distance) const {
  auto test = [&](int i, int j, double& dist) {
    double d[3];
    for (int c = 0; c < 3; ++c) d[c] = x[3 * j + c] - x[3 * i + c];
    dist = get_magnitude(d);
    return (radius[i] + radius[j]) * bond_dis_scale > dist;
  };
  search_bond(natoms, unassigned, nlist, list, test, atom, partner, distance);
}

void FileIO::find_bond_atom_one(int natoms, double* fx, const double* radii,
                                std::vector<int>& unassigned, int nlist,
                                const std::vector<int>& list, int& atom, int& partner,
                                double& distance) const {
  // Tested as the displacement stands, then through the minimum image, where a bond moves
  // atom i next to j.
  auto test = [&](int i, int j, double& dist) {
    double d[3];
    for (int c = 0; c < 3; ++c) d[c] = fx[3 * j + c] - fx[3 * i + c];
    if (bonded(d, radii[i], radii[j], dist)) return true;
    for (int c = 0; c < 3; ++c) d[c] = reduce_to_half_cell(d[c]);
    if (!bonded(d, radii[i], radii[j], dist)) return false;
    for (int c = 0; c < 3; ++c) fx[3 * i + c] = fx[3 * j + c] - d[c];
    return true;
  };
  search_bond(natoms, unassigned, nlist, list, test, atom, partner, distance);
}

void FileIO::separate_cif_molecules_reference(bool verbose) {
  cif_mol_natoms.clear();
  cif_mol_atoms.clear();
  cif_mol_joined.clear();  // no record of the joins: molecules are grown in full
  cif_mol_radius.clear();
  std::vector<int> unassigned(natoms_cif, 1);
  std::vector<int> list;
  int placed = 0;
  while (placed < natoms_cif) {
    int atom, partner;
    double dist;
    find_bond_atom(natoms_cif, unassigned, static_cast<int>(list.size()), list, atom, partner,
                   dist);
    if (list.empty()) {
      if (atom < 0) break;  // cannot happen while atoms remain; guards the loop
      unassigned[atom] = 0;
      list.push_back(atom);
    } else if (atom >= 0) {
      unassigned[atom] = 0;
      list.push_back(atom);
    } else {
      cif_mol_natoms.push_back(static_cast<int>(list.size()));
      cif_mol_atoms.insert(cif_mol_atoms.end(), list.begin(), list.end());
      placed += static_cast<int>(list.size());
      list.clear();
    }
  }
  print_partition(verbose);
}

void FileIO::print_partition(bool verbose) const {
  if (!verbose) return;
  std::printf("  Unit cell nmols  = %d\n", static_cast<int>(cif_mol_natoms.size()));
  std::printf("  Unit cell natoms =");
  for (int n : cif_mol_natoms) std::printf(" %d", n);
  std::printf("\n");
}

std::vector<double> FileIO::whole_molecule_radii(int natoms, const int* types) const {
  std::vector<double> radii(natoms);
  for (int k = 0; k < natoms; ++k) radii[k] = element_record(types[k]).radius_a / 250.0;
  return radii;
}

int FileIO::grow_whole_molecule_reference(int natoms, double* fx, const double* radii) const {
  std::vector<int> unassigned(natoms, 1);
  std::vector<int> list;
  unassigned[0] = 0;
  list.push_back(0);
  while (static_cast<int>(list.size()) < natoms) {
    int atom, partner;
    double dist;
    find_bond_atom_one(natoms, fx, radii, unassigned, static_cast<int>(list.size()), list, atom,
                       partner, dist);
    if (atom < 0) break;
    unassigned[atom] = 0;
    list.push_back(atom);
  }
  return static_cast<int>(list.size());
}

void FileIO::make_whole_molecule(int mol_number, int natoms, const int* types, double* fx,
                                 bool verbose) {
  if (natoms <= 0) return;
  const std::vector<double> radii = whole_molecule_radii(natoms, types);
  finish_whole_molecule(mol_number, natoms, types, fx, grow_whole_molecule(natoms, fx, radii.data()),
                        verbose);
}

bool FileIO::make_whole_molecule_joined(int mol_number, int natoms, const int* types,
                                        double* fx, const int* joined,
                                        const double* partition_radii, bool verbose) {
  if (natoms <= 0) return true;
  const std::vector<double> radii = whole_molecule_radii(natoms, types);
  bool followed = partition_covers_whole_bonds(natoms, fx, radii.data(), partition_radii);
  if (followed) {
    const std::vector<double> start(fx, fx + 3 * natoms);
    followed = grow_whole_molecule_joined(natoms, fx, radii.data(), joined);
    if (!followed) std::copy(start.begin(), start.end(), fx);
  }
  const int nbonded = followed ? natoms : grow_whole_molecule(natoms, fx, radii.data());
  finish_whole_molecule(mol_number, natoms, types, fx, nbonded, verbose);
  return followed;
}

void FileIO::make_whole_molecule_reference(int mol_number, int natoms, const int* types,
                                           double* fx, bool verbose) {
  if (natoms <= 0) return;
  const std::vector<double> radii = whole_molecule_radii(natoms, types);
  finish_whole_molecule(mol_number, natoms, types, fx,
                        grow_whole_molecule_reference(natoms, fx, radii.data()), verbose);
}

void FileIO::finish_whole_molecule(int mol_number, int natoms, const int* types, double* fx,
                                   int nbonded, bool verbose) const {
  if (nbonded < natoms) {
    std::printf("WARNING: Not all atoms are bonded in the molecule!\n");
    std::printf("         nat_bonded = %d, natoms = %d\n", nbonded, natoms);
  }

  double mass = 0.0;
  double sum[3] = {0.0, 0.0, 0.0};
  for (int k = 0; k < natoms; ++k) {
    const double m = element_record(types[k]).mass;
    mass += m;
    for (int c = 0; c < 3; ++c) sum[c] += m * fx[3 * k + c];
  }
  double com[3];
  for (int c = 0; c < 3; ++c) com[c] = sum[c] / mass;
  if (verbose)
    std::printf("  molecule %d COM = %9.6f %9.6f %9.6f\n", mol_number, com[0], com[1], com[2]);

  constexpr double lower = -5.96046448e-08;
  constexpr double upper = 1.0000000596046448;
  double shift[3] = {0.0, 0.0, 0.0};
  bool outside = false;
  for (int c = 0; c < 3; ++c) {
    if (com[c] < lower) shift[c] = 1.0;
    if (com[c] > upper) shift[c] = -1.0;
    outside = outside || shift[c] != 0.0;
  }
  if (outside)
    for (int k = 0; k < natoms; ++k)
      for (int c = 0; c < 3; ++c)
        if (shift[c] != 0.0) fx[3 * k + c] += shift[c];
}
