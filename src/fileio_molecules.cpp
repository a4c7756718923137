// Bond detection and whole molecules of the structure layer: the three bond searches over the
// object's arrays, and the cell partition and whole molecules, which run the stages of
// bond_partition.h and whole_molecules.h on the object's values and keep their results.
#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "bond_partition.h"
#include "fileio.h"
#include "util.h"
#include "whole_molecules.h"

double reduce_to_half_cell(double d) {
  // Same result as subtracting (adding) 1 while above 0.5 (below -0.5), which is exact for
  // every displacement a cell can hold, but in one step, so that absurd values cannot hang.
  if (d > 0.5) return d - std::ceil(d - 0.5);
  if (d < -0.5) return d + std::ceil(-d - 0.5);
  return d;
}

void FileIO::bond_grid_reach(double reach_cart, const std::vector<double>& frac,
                             const std::vector<int>& atoms, double reach[3]) const {
  ::bond_grid_reach(lattice(), reach_cart, frac, atoms, reach);
}

void FileIO::find_bond_atom(int natoms, std::vector<int>& unassigned, int nlist,
                            const std::vector<int>& list, int& atom, int& partner,
                            double& distance) const {
  const Lattice l = lattice();
  const BondTest bonded{l, bond_dis_scale};
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
  const Lattice l = lattice();
  const BondTest bonded{l, bond_dis_scale};
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

void FileIO::separate_cif_molecules(bool verbose) {
  store_partition(partition_cell(x_s, radius, lattice(), bond_dis_scale), verbose);
}

void FileIO::store_partition(Partition partition, bool verbose) {
  print_partition(partition, verbose);
  cif_mol_natoms = std::move(partition.sizes);
  cif_mol_atoms = std::move(partition.atoms);
  cif_mol_joined = std::move(partition.joined);
  cif_mol_radius = std::move(partition.radius);
  cif_partition_scale = partition.scale;
}

MoleculeSites FileIO::molecule_sites(int natoms, const int* types, const double* fx,
                                     const int* joined, const double* partition_radii) const {
  MoleculeSites m;
  m.types.assign(types, types + natoms);
  m.sites.resize(natoms);
  for (int k = 0; k < natoms; ++k) m.sites[k] = Fractional(&fx[3 * k]);
  if (joined && partition_radii) {
    m.joined.assign(joined, joined + natoms);
    m.partition_radius.assign(partition_radii, partition_radii + natoms);
    m.partition_scale = cif_partition_scale;
  }
  return m;
}

void FileIO::store_whole_molecule(int mol_number, const Molecule& molecule, double* fx,
                                  bool verbose) {
  print_whole_molecule(mol_number, molecule, verbose);
  for (size_t k = 0; k < molecule.frac.size(); ++k)
    for (int c = 0; c < 3; ++c) fx[3 * k + c] = molecule.frac[k][c];
}

void FileIO::make_whole_molecule(int mol_number, int natoms, const int* types, double* fx,
                                 bool verbose) {
  if (natoms <= 0) return;
  store_whole_molecule(
      mol_number,
      make_whole(molecule_sites(natoms, types, fx, nullptr, nullptr), lattice(), bond_dis_scale),
      fx, verbose);
}

bool FileIO::make_whole_molecule_joined(int mol_number, int natoms, const int* types,
                                        double* fx, const int* joined,
                                        const double* partition_radii, bool verbose) {
  if (natoms <= 0) return true;
  const Molecule m = make_whole(molecule_sites(natoms, types, fx, joined, partition_radii),
                                lattice(), bond_dis_scale);
  store_whole_molecule(mol_number, m, fx, verbose);
  return m.followed_joins;
}
