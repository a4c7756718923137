// Structure files of a loaded crystal for the viewers and libraries of the field: extended XYZ,
// PDB, P1 CIF, POSCAR and MOL (V2000), of the unit cell, a P1 supercell of whole molecules or
// the cluster of one molecule with every neighbour image of its list.
#pragma once
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "crystal_model.h"

// Atoms in Cartesian coordinates with the molecule of each, and the cell (none for a cluster).
struct Structure {
  std::string title;
  bool periodic = true;
  double latt[3][3] = {};       // columns are the cell vectors
  double bond_scale = 1.15;
  std::vector<int> types;       // element index per atom
  std::vector<double> cart;     // angstrom, 3 per atom
  std::vector<int> molecule;    // molecule of each atom, counted from 0, ascending
  size_t molecule_count() const { return molecule.empty() ? 0 : molecule.back() + 1; }
};

struct StructureChoice {
  int cluster = 0;                // molecule counted from 1; 0: no cluster
  int supercell[3] = {1, 1, 1};
};

// The unit cell, a supercell (repetitions along a, b, c) or the cluster of one molecule.
Structure select_structure(const CrystalModel& m, const StructureChoice& choice);

// Bonded atom pairs inside each molecule: (r1 + r2) * bond scale above the distance, with the
// bond radii of the cell partition.
std::vector<std::pair<int, int>> bond_graph(const Structure& s);

// Writes by the file's extension (.xyz .pdb .cif .vasp, a name POSCAR, .mol); the run ends with
// an error for an unknown extension, a file that cannot be written or a format that needs a
// cell given a cluster.
void write_structure_file(const std::string& path, const Structure& s);

void write_xyz(std::ostream& out, const Structure& s);
void write_pdb(std::ostream& out, const Structure& s);
void write_cif(std::ostream& out, const Structure& s);
void write_poscar(std::ostream& out, const Structure& s);
void write_mol(std::ostream& out, const Structure& s);  // the first molecule
