// Molecular data of the transport model: the molecules of one unit cell as the loading driver
// leaves them, and what the model derives from them before the neighbour search (masses,
// fractional and Cartesian centres of mass, HOMO indices).
#pragma once
#include <vector>

#include "lattice.h"

// The whole molecules of one unit cell, viewed where the loading driver keeps them: per
// molecule its atom count, element indices and fractional positions (3 per atom, unwrapped so
// that the molecule is whole). It owns nothing and lives no longer than those arrays.
struct CellMolecules {
  int count;                                     // molecules of the cell
  const std::vector<int>& natoms;                // atoms per molecule
  const std::vector<std::vector<int>>& types;    // element index per atom
  const std::vector<std::vector<double>>& frac;  // fractional positions, 3 per atom
};

// Masses (atomic mass units) and centres of mass of every molecule, in cell order.
struct MolecularCentres {
  std::vector<double> mass;
  std::vector<Fractional> centre;      // mass-weighted mean of the fractional positions
  std::vector<Cartesian> centre_cart;  // L * centre
};

// Masses and centres of mass. An element index outside the table counts as the dummy atom.
MolecularCentres molecular_centres(const CellMolecules& molecules, const Lattice& lattice);

// HOMO index of every molecule: half its electron count, remainder dropped. With
// `valence_only` (the semi-empirical jobs) atoms of period 2 count 2 electrons fewer and atoms
// of period 3 count 10 fewer; heavier atoms keep all of theirs.
std::vector<int> homo_indices(const CellMolecules& molecules, bool valence_only);
