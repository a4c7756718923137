// The bond partition of an expanded cell: which atoms belong together, by the distance criterion
// on covalent radii, found through a periodic grid (fast path) or by the straightforward bond
// search (reference). Both give the same molecules, in the same order, with the same atoms.
#pragma once
#include <vector>

#include "lattice.h"

// The bond criterion: atoms of radii ri and rj whose fractional displacement is d are bonded
// when (ri + rj) * scale exceeds the length of L d (strictly).
struct BondTest {
  const Lattice& lattice;
  double scale;

  // Inline: the partition and the whole molecules test one pair after another.
  bool operator()(const double d[3], double ri, double rj, double& dist) const {
    dist = cartesian_length(lattice.m, d);
    return (ri + rj) * scale > dist;
  }
};

// The molecules of a cell.
struct Partition {
  std::vector<int> sizes;  // atoms per molecule, in the order found
  std::vector<int> atoms;  // the molecules' atoms, one molecule after the other
  // Beside `atoms` (fast path only; empty after the reference): the member of its molecule,
  // counted in the molecule, through which each atom joined it (-1 for the first), and its
  // bond radius.
  std::vector<int> joined;
  std::vector<double> radius;
  double scale = 0.0;  // the bond scale used
};

// Cuts the cell's atoms (fractional positions and bond radii, one per atom) into molecules:
// each molecule grows from the lowest-index atom not yet placed by adding, one at a time, the
// lowest-index free atom bonded (through the single-wrapped minimum image) to a member. An atom
// with a non-finite position bonds to nothing.
Partition partition_cell(const std::vector<Fractional>& sites, const std::vector<double>& radii,
                         const Lattice& lattice, double scale);
// The same over positions laid out 3 per atom (`frac`, as flat_positions gives them), without
// a copy of the cell's positions.
Partition partition_cell(const std::vector<double>& frac, const std::vector<double>& radii,
                         const Lattice& lattice, double scale);
// The same by one straightforward bond search per placed atom.
Partition partition_cell_reference(const std::vector<Fractional>& sites,
                                   const std::vector<double>& radii, const Lattice& lattice,
                                   double scale);

// Fractional positions laid out 3 per atom, as the search grids take them.
std::vector<double> flat_positions(const std::vector<Fractional>& sites);

// Prints the molecule count and sizes of a partition (verbose runs).
void print_partition(const Partition& partition, bool verbose);

// Fractional reach per axis of the bond-search grid over `atoms` of `frac` (3 per atom): any
// pair closer than reach_cart lies within it, round-off included.
void bond_grid_reach(const Lattice& lattice, double reach_cart, const std::vector<double>& frac,
                     const std::vector<int>& atoms, double reach[3]);

// The straightforward bond search: with an empty molecule list the lowest-index unassigned
// atom seeds a molecule (partner 0, distance 0); otherwise the first unassigned atom i
// (ascending) that bonds to a list member j (in list order, j != i) by `bonded_pair(i, j,
// dist)`. Nothing found: atom and partner -1, distance 9999.99.
template <class BondedPair>
void search_bond(int natoms, const std::vector<int>& unassigned, int nlist,
                 const std::vector<int>& list, BondedPair bonded_pair, int& atom, int& partner,
                 double& distance) {
  atom = -1;
  partner = -1;
  distance = 9999.99;
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
