// The neighbour search of the transport model: for every molecule of the unit cell, every
// molecule image (a molecule of the cell shifted by whole cells) with an atom closer than the
// cut-off to one of its atoms, sorted by centre-of-mass distance. The fast search and the
// straightforward one it must reproduce exactly take the same values and give the same list.
#pragma once
#include <vector>

#include "lattice.h"
#include "molecular_data.h"

// Capacity of one molecule's list: reaching it ends the run (line NNEIMAX_REACHED).
constexpr int kNeighborCapacity = 300;

namespace transport_lines {
constexpr int NNEIMAX_REACHED = 3658;
}  // namespace transport_lines

// One neighbour image of a molecule i: molecule j of the cell shifted by (a, b, c) cells.
struct NeighborImage {
  int mol = 0;               // j
  int shift[3] = {0, 0, 0};  // a, b, c
  Fractional disp;           // (a, b, c) + centre of j - centre of i
  Cartesian centre;          // L * (centre of j + (a, b, c))
};

// The neighbour images of every molecule of the cell, nearest centre first.
struct NeighborList {
  std::vector<std::vector<NeighborImage>> of;  // per molecule
};

// What the search looks at: the molecules, their fractional centres of mass, the lattice, the
// squared atom-atom cut-off and the search range (images from -range to +range cells along
// each axis). Molecule pairs with more atom pairs than `contact_grid_threshold` are tested
// through a grid of the second molecule's atoms in the fast search.
struct NeighborSearch {
  CellMolecules molecules;
  const std::vector<Fractional>& centres;
  Lattice lattice;
  double cutoff_sq;
  int range[3];
  long contact_grid_threshold = 2048;
};

// The images of one molecule within the cut-off, in the order of the straightforward loops (c,
// then b, then a, then j ascending): (j, a, b, c) per image and its squared centre-of-mass
// distance. The 300th image ends the run.
struct NeighborCandidates {
  std::vector<int> images;  // 4 per image
  std::vector<double> key;  // squared centre distance, angstrom^2
};
NeighborCandidates neighbor_candidates(const NeighborSearch& search, int i);
NeighborCandidates neighbor_candidates_reference(const NeighborSearch& search, int i);

// The whole list: candidates of every molecule sorted by their key (quickSort_d), then placed
// (place_neighbor_images). The fast search proposes only images whose bounding spheres come
// within reach; the reference tests every image of the search range.
NeighborList search_neighbor_list(const NeighborSearch& search);
NeighborList search_neighbor_list_reference(const NeighborSearch& search);

// Fills the displacement and the Cartesian centre of every image of `list` from the centres.
void place_neighbor_images(NeighborList& list, const std::vector<Fractional>& centres,
                           const Lattice& lattice);

// The contact test of the straightforward search: whether an atom of the image of j shifted
// by `shift` lies closer than the cut-off to an atom of i (atoms of i outer, of j inner, in
// atom order); `dsq` then gets the squared distance of that first pair.
bool molecules_within_cutoff(const CellMolecules& molecules, const Lattice& lattice, int i, int j,
                             const int shift[3], double cutoff_sq, double* dsq);

// Squared Cartesian length of the centre displacement from molecule i to the image of k.
double centre_distance_sq(const std::vector<Fractional>& centres, const Lattice& lattice, int i,
                          int k, const int shift[3]);
