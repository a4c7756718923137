// Whole molecules: one molecule of the cell partition moved, atom by atom, to the periodic
// images that make it whole, then brought with its centre of mass into the home cell. The fast
// path follows the partition's record of the joins where the partition's bonds cover those of
// the whole-molecule test and otherwise grows the molecule through a periodic grid; the
// straightforward growth (one bond search per placed atom) is kept beside it. Both give the
// same positions.
#pragma once
#include <vector>

#include "lattice.h"

// One molecule's atoms as the cell holds them, in partition order.
struct MoleculeSites {
  std::vector<int> types;         // element indices (-1 unknown)
  std::vector<Fractional> sites;  // stored fractional positions
  // From the fast partition (empty otherwise): the member, counted in the molecule, through
  // which each atom joined it, the atoms' bond radii there, and the bond scale it used.
  std::vector<int> joined;
  std::vector<double> partition_radius;
  double partition_scale = 0.0;
};

// A whole molecule of the model.
struct Molecule {
  std::vector<int> types;
  std::vector<Fractional> frac;  // whole, centre of mass in the home cell
  std::vector<Cartesian> cart;   // L * frac
  int bonded = 0;                // atoms the growth placed (all of them when it is whole)
  Fractional centre;             // centre of mass before the shift into the home cell
  bool followed_joins = false;   // whether the partition's joins were followed
};

// The molecule made whole with the bond scale `scale` (radius code A of each element / 250):
// from atom 0, the lowest-index free atom bonded to a placed one (as the displacement stands,
// else through the minimum image, to which it then moves) is placed next, until none bonds.
// Then the centre of mass (element masses) is shifted by one cell along each axis where it
// lies outside [0, 1] by more than a float's tolerance.
Molecule make_whole(const MoleculeSites& atoms, const Lattice& lattice, double scale);
// The same by one straightforward bond search per placed atom (joins not used).
Molecule make_whole_reference(const MoleculeSites& atoms, const Lattice& lattice, double scale);

// The warning about atoms left unbonded and, when verbose, the centre of mass of molecule
// `number` (counted from 1); nothing for a molecule without atoms.
void print_whole_molecule(int number, const Molecule& molecule, bool verbose);
