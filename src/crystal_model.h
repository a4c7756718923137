// What the site-energy utility makes of a crystal, as plain values for kavri_crystal: the cell
// and symmetry as read, the atom counts of each loading stage, the whole molecules of one unit
// cell and every molecule's neighbour images in the order of EH.dat and EL.dat.
#pragma once
#include <cmath>
#include <string>
#include <vector>

// Error-site line numbers of kavri_crystal.
namespace crystal_lines {
constexpr int CONFIG_MISSING = 150;
constexpr int TEMP_FILE = 46;
constexpr int OUTPUT_OPEN = 210;
constexpr int USAGE = 230;
}  // namespace crystal_lines

// Where the crystal comes from and which settings override the input file.
struct CrystalRequest {
  std::string config;                // keyword file, read as the utility reads it
  std::string cif;                   // a CIF file named on the command line
  std::vector<std::string> mols;     // MOL files named on the command line
  std::vector<std::string> vectors;  // nine cell-vector components (a, b, c) for MOL files
  std::string cutoff, scell, bond_scale;  // overrides, as given (empty: the input's value)
};

// One neighbour image of a molecule: entry k of its list is line k of its block in EH.dat.
struct NeighbourImage {
  int mol = 0;                // neighbour molecule, counted from 0
  int shift[3] = {0, 0, 0};   // lattice image (a, b, c)
  double com_distance = 0.0;  // centre-of-mass distance, angstrom
  double contact = 0.0;       // closest atom-atom contact, angstrom
  int atom_i = 0, atom_j = 0; // the two atoms of that contact, counted from 0 in each molecule
};

struct CrystalMolecule {
  std::vector<int> types;     // element index per atom (-1 unknown)
  std::vector<double> frac;   // whole, 3 per atom
  std::vector<double> cart;   // angstrom, 3 per atom
  double mass = 0.0;
  double com_frac[3] = {0, 0, 0};
  double com_cart[3] = {0, 0, 0};
  std::string formula;        // Hill order
  std::vector<NeighbourImage> neighbours;
};

struct CrystalModel {
  std::string source;          // the CIF file, or the MOL files joined by blanks
  bool from_cif = false;
  std::string identifier;
  double cell[6] = {0, 0, 0, 0, 0, 0};  // a, b, c, alpha, beta, gamma
  double latt[3][3] = {};               // columns are the cell vectors
  std::string spacegroup;
  std::vector<std::string> operations;
  bool expanded = false;           // false when the group is P1 and the atoms are taken as read
  int atoms_in_file = 0;           // atom-site rows read
  int atoms_generated = 0;         // candidates of the expansion (rows x operations)
  int atoms_in_cell = 0;           // after duplicate removal
  std::vector<std::string> unknown_symbols;  // type symbols as read that name no element, sorted
  int unread_coordinates = 0;                // coordinate texts written as ? or .
  double cutoff = 0.0;
  int scell[3] = {0, 0, 0};
  double bond_scale = 0.0;
  std::vector<CrystalMolecule> molecules;
};

// Runs the utility's loading stages (input file, structure files, molecular data, neighbour
// list) and returns what they made, with the closest contact of every neighbour pair. The
// stages' own messages go where they always go; fatal errors end the run as in the utility.
CrystalModel load_crystal(const CrystalRequest& request);

// A value printed as 0 when it is round-off (such as -3.7e-16 for cos 90 in a cell vector).
inline double tidy_zero(double v) { return std::fabs(v) < 5e-9 ? 0.0 : v; }

// Element symbol of an index ("X" for an unknown element), and a Hill-order formula.
std::string element_symbol(int type);
std::string hill_formula(const std::vector<int>& types);
