// Whole molecules: the growth from atom 0 along the partition's joins or through a periodic
// grid (fast path), the straightforward growth (reference), and the centre of mass brought
// into the home cell.
#include "whole_molecules.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <queue>
#include <vector>

#include "bond_partition.h"
#include "fileio.h"
#include "fileio_grid.h"
#include "search_margin.h"

using fileio_grid::finite3;

namespace {

using Positions = std::vector<Fractional>;

// Pairs of kinds whose whole-molecule threshold the partition's does not cover are checked
// one pair at a time, up to this many pairs per atom (plus a constant), for bond radii below
// this (unknown elements have larger ones).
constexpr double MAX_PAIR_TESTS_PER_ATOM = 8.0;
constexpr double MAX_PAIR_TESTS = 256.0;
constexpr double MAX_PAIR_RADIUS = 50.0;

// Molecules of up to this many atoms keep their work arrays on the stack: most molecules are
// made whole in one pass, and arrays from the heap would cost more than that pass.
constexpr size_t LOCAL_ATOMS = 128;

// n values, on the stack for a molecule of up to LOCAL_ATOMS atoms.
template <class T>
class WorkArray {
 public:
  explicit WorkArray(size_t n) : data_(n <= LOCAL_ATOMS ? local_ : grow_heap(n)) {}
  WorkArray(const WorkArray&) = delete;
  WorkArray& operator=(const WorkArray&) = delete;
  T* data() { return data_; }
  T& operator[](size_t k) { return data_[k]; }

 private:
  T* grow_heap(size_t n) {
    heap_.resize(n);
    return heap_.data();
  }
  T local_[LOCAL_ATOMS];
  std::vector<T> heap_;
  T* data_;
};

// Element record for an index from a file; an unknown element (-1) uses the dummy record.
const Element& element_record(int index) {
  return Elements_m[(index >= 0 && index < NELEMENTS) ? index : 0];
}

void whole_molecule_radii(const std::vector<int>& types, double* radii) {
  // Radius code A / 250 of every element (the dummy's for unknown ones), divided once.
  static const std::vector<double> table = [] {
    std::vector<double> r(NELEMENTS);
    for (int e = 0; e < NELEMENTS; ++e) r[e] = Elements_m[e].radius_a / 250.0;
    return r;
  }();
  for (size_t k = 0; k < types.size(); ++k)
    radii[k] = table[(types[k] >= 0 && types[k] < NELEMENTS) ? types[k] : 0];
}

// The bond test of the growth, free atom i against placed atom j: 1 when the displacement
// bonds as it stands, 2 when it bonds through the minimum image (d then holds that image),
// 0 when not bonded.
int whole_bond(const BondTest& bonded, int i, int j, const Positions& fx, const double* radii,
               double d[3]) {
  double dist;
  for (int c = 0; c < 3; ++c) d[c] = fx[j][c] - fx[i][c];
  if (bonded(d, radii[i], radii[j], dist)) return 1;
  for (int c = 0; c < 3; ++c) d[c] = reduce_to_half_cell(d[c]);
  return bonded(d, radii[i], radii[j], dist) ? 2 : 0;
}

// Grid growth; returns the number of atoms placed and moves atoms to the bonded images.
int grow(const BondTest& bonded, Positions& fx, const double* radii) {
  const int natoms = static_cast<int>(fx.size());
  std::vector<int> finite;
  double rmax = 0.0;
  for (int i = 0; i < natoms; ++i)
    if (finite3(fx[i].data())) {
      finite.push_back(i);
      rmax = std::max(rmax, radii[i]);
    }
  const double reach_cart = 2.0 * rmax * bonded.scale;
  if (!(reach_cart > 0.0)) return 1;  // no pair can pass the bond test
  const std::vector<double> positions = flat_positions(fx);
  double reach[3];
  bond_grid_reach(bonded.lattice, reach_cart, positions, finite, reach);
  fileio_grid::RemovableGrid grid(positions, finite, reach, natoms);

  // Each free atom remembers the first placed atom (in placing order) it bonds to, directly or
  // through the minimum image; the lowest-index such atom is placed next, next to that partner.
  std::vector<int> partner(natoms, -1);
  std::vector<char> placed(natoms, 0);
  std::priority_queue<int, std::vector<int>, std::greater<int>> ready;
  int count = 0;
  std::vector<int> found;
  auto bonds = [&](int i, int j, double d[3]) { return whole_bond(bonded, i, j, fx, radii, d); };
  auto place = [&](int j) {
    placed[j] = 1;
    grid.remove(j);
    ++count;
    if (!finite3(fx[j].data())) return;
    found.clear();
    grid.for_each_near(fx[j].data(), [&](int i) {
      double d[3];
      if (!placed[i] && partner[i] < 0 && bonds(i, j, d)) found.push_back(i);
    });
    for (int i : found) {
      partner[i] = j;
      grid.remove(i);  // its first partner is known: it need not be found again
      ready.push(i);
    }
  };
  place(0);
  while (!ready.empty()) {
    const int i = ready.top();
    ready.pop();
    const int j = partner[i];
    double d[3];
    if (bonds(i, j, d) == 2)
      for (int c = 0; c < 3; ++c) fx[i][c] = fx[j][c] - d[c];
    place(i);
  }
  return count;
}

// Whether every pair that the whole-molecule test (radii `radii`, its scale) can bond in this
// molecule was bonded by the partition (radii `partition_radii`, scale `partition_scale`)
// through the same image, round-off included.
bool partition_covers_whole_bonds(const BondTest& bonded, const Positions& fx,
                                  const double* radii, const std::vector<double>& partition_radii,
                                  double partition_scale) {
  // The partition tested the single-wrapped displacement of the stored positions, all inside
  // the cell here. The whole-molecule test measures a displacement of the current positions,
  // as it stands or reduced: it differs from an exact whole-cell image g of the stored
  // displacement by the drift of the placed atom. Each join moves an atom within half a cell
  // of its partner, so no component exceeds 1 + n/2, and rounds at most 4 times: the drift
  // stays below 4 n u (1 + n/2) per component, below that times ||L||_F in length. With that
  // and the round-off of both tests (search_margin.h) in the reach, a pair the whole-molecule
  // test bonds has |L g| below the widened reach; when that reach spans less than half a cell
  // along every axis, g is the single-wrapped displacement the partition measured, and the
  // partition bonded the pair whenever its threshold exceeds the widened one.
  const Lattice& lattice = bonded.lattice;
  const int natoms = static_cast<int>(fx.size());
  double norm_l = 0.0;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) norm_l += lattice.m[r][c] * lattice.m[r][c];
  const double n = natoms;
  const double magnitude = std::sqrt(norm_l) * (n + 1.0) * (1.0 + 0.5 * n);
  const double condition = search_margin::lattice_condition(lattice.m, lattice.inv);
  auto widened = [&](double r) { return search_margin::widened(r, condition, magnitude); };

  struct Kind {
    double whole, partition;
    int count;
  };
  constexpr size_t MAX_KINDS = 16;  // beyond this the pair check is not worth it
  Kind kinds[MAX_KINDS];
  size_t nkinds = 0;
  WorkArray<unsigned char> kind_of(static_cast<size_t>(natoms));
  double rmax = 0.0;
  double largest = 0.0;  // largest coordinate
  for (int k = 0; k < natoms; ++k) {
    for (int c = 0; c < 3; ++c) {
      const double f = fx[k][c];
      if (!(f >= 0.0 && f <= 1.0)) return false;  // outside the cell, or not finite
      largest = f > largest ? f : largest;
    }
    // The kind of atom k, compared with every kind at once (no branch per kind).
    unsigned match = 0;
    for (size_t q = 0; q < nkinds; ++q)
      match |= static_cast<unsigned>((kinds[q].whole == radii[k]) &
                                     (kinds[q].partition == partition_radii[k]))
               << q;
    size_t kind = nkinds;
    if (match != 0) kind = static_cast<size_t>(__builtin_ctz(match));
    if (kind < nkinds) {
      ++kinds[kind].count;
    } else {
      if (nkinds == MAX_KINDS) return false;
      kinds[nkinds++] = {radii[k], partition_radii[k], 1};
    }
    kind_of[k] = static_cast<unsigned char>(kind);
    rmax = std::max(rmax, radii[k]);
  }
  // Kinds whose whole-molecule threshold the partition's does not cover (O-O, Cl-Cl, ...):
  // their pairs are checked one by one below, when there are few.
  char uncovered[MAX_KINDS * MAX_KINDS] = {};
  double pairs = 0.0;
  for (size_t a = 0; a < nkinds; ++a)
    for (size_t b = a; b < nkinds; ++b) {
      if (a == b && kinds[a].count < 2) continue;
      const double whole = (kinds[a].whole + kinds[b].whole) * bonded.scale;
      const double partition = (kinds[a].partition + kinds[b].partition) * partition_scale;
      if (widened(whole) < partition) continue;
      if (!(kinds[a].partition < MAX_PAIR_RADIUS && kinds[b].partition < MAX_PAIR_RADIUS))
        return false;
      uncovered[a * nkinds + b] = uncovered[b * nkinds + a] = 1;
      pairs += a == b ? 0.5 * kinds[a].count * (kinds[a].count - 1.0)
                      : static_cast<double>(kinds[a].count) * kinds[b].count;
    }
  if (pairs > MAX_PAIR_TESTS_PER_ATOM * natoms + MAX_PAIR_TESTS) return false;
  // The reach of the bond grid over these positions (bond_grid_reach, with the magnitude
  // of positions in [0, 1] taken above).
  const double grid_magnitude = std::max(1.0, 2.0 * largest);
  const double reach_cart = widened(2.0 * rmax * bonded.scale);
  double reach[3];
  lattice.inverse_row_lengths(reach);
  for (int k = 0; k < 3; ++k) {
    const double r = search_margin::widened(reach[k] * reach_cart, condition, grid_magnitude);
    reach[k] = std::isfinite(r) && reach_cart > 0.0 ? r : INFINITY;
  }
  if (!(reach[0] < 0.5 && reach[1] < 0.5 && reach[2] < 0.5)) return false;
  if (pairs == 0.0) return true;

  // A pair of such kinds is covered when the partition bonded it, or when the length the
  // partition measured (the same single-wrapped displacement of the same stored positions)
  // is not below the widened whole-molecule threshold, which the length the partition
  // measures for any pair that the whole-molecule test bonds stays below.
  const BondTest partition_bond{lattice, partition_scale};
  for (int i = 0; i < natoms; ++i)
    for (int j = i + 1; j < natoms; ++j) {
      if (!uncovered[kind_of[i] * nkinds + kind_of[j]]) continue;
      double d[3], dist;
      for (int c = 0; c < 3; ++c) d[c] = fx[j][c] - fx[i][c];
      FileIO::PBC_scaled_disp_wrap(d);
      if (partition_bond(d, partition_radii[i], partition_radii[j], dist)) continue;
      if (!(dist >= widened((radii[i] + radii[j]) * bonded.scale))) return false;
    }
  return true;
}

// Places atom k next to joined[k] for k = 1, 2, ...; returns false at the first atom that the
// whole-molecule test does not bond to its partner (fx is then partly moved).
bool grow_joined(const BondTest& bonded, Positions& fx, const double* radii,
                 const std::vector<int>& joined) {
  // With the partition's bonds covering the whole-molecule ones, the members bonded to atom k
  // are among those the partition bonded to it, the first of which in placing order is its
  // partner: when the partner bonds, it is the first bonded member, and k is the lowest free
  // atom bonded to the molecule, so the straightforward growth places k next, there.
  const size_t natoms = fx.size();
  for (size_t k = 1; k < natoms; ++k)
    if (joined[k] < 0 || static_cast<size_t>(joined[k]) >= k) return false;
  // The length of each atom's displacement to its partner as the positions stand, for all
  // atoms at once (independent products and square roots), as the bond test computes it. It
  // is the length the test measures for atom k unless its partner has moved before it.
  WorkArray<double> length(natoms), x(natoms), y(natoms), z(natoms);
  for (size_t k = 1; k < natoms; ++k) {
    const Fractional& fk = fx[k];
    const Fractional& fj = fx[joined[k]];
    x[k] = fj[0] - fk[0];
    y[k] = fj[1] - fk[1];
    z[k] = fj[2] - fk[2];
  }
  for (size_t k = 1; k < natoms; ++k) {
    const double d[3] = {x[k], y[k], z[k]};
    length[k] = cartesian_length(bonded.lattice.m, d);
  }
  WorkArray<char> moved(natoms);
  moved[0] = 0;
  for (size_t k = 1; k < natoms; ++k) {
    const size_t j = static_cast<size_t>(joined[k]);
    moved[k] = 0;
    if (!moved[j] && (radii[k] + radii[j]) * bonded.scale > length[k]) continue;  // stays
    double d[3];
    const int bond = whole_bond(bonded, static_cast<int>(k), static_cast<int>(j), fx, radii, d);
    if (bond == 0) return false;
    if (bond == 2) {
      for (int c = 0; c < 3; ++c) fx[k][c] = fx[j][c] - d[c];
      moved[k] = 1;
    }
  }
  return true;
}

// Straightforward growth: one bond search per placed atom; returns the number placed.
int grow_reference(const BondTest& bonded, Positions& fx, const double* radii) {
  const int natoms = static_cast<int>(fx.size());
  // Tested as the displacement stands, then through the minimum image, where a bond moves
  // atom i next to j.
  auto test = [&](int i, int j, double& dist) {
    double d[3];
    for (int c = 0; c < 3; ++c) d[c] = fx[j][c] - fx[i][c];
    if (bonded(d, radii[i], radii[j], dist)) return true;
    for (int c = 0; c < 3; ++c) d[c] = reduce_to_half_cell(d[c]);
    if (!bonded(d, radii[i], radii[j], dist)) return false;
    for (int c = 0; c < 3; ++c) fx[i][c] = fx[j][c] - d[c];
    return true;
  };
  std::vector<int> unassigned(natoms, 1);
  std::vector<int> list;
  unassigned[0] = 0;
  list.push_back(0);
  while (static_cast<int>(list.size()) < natoms) {
    int atom, partner;
    double dist;
    search_bond(natoms, unassigned, static_cast<int>(list.size()), list, test, atom, partner, dist);
    if (atom < 0) break;
    unassigned[atom] = 0;
    list.push_back(atom);
  }
  return static_cast<int>(list.size());
}

// The centre of mass of the grown molecule, the shift into the home cell and the Cartesian
// positions.
void finish(Molecule& m, const Lattice& lattice) {
  const size_t natoms = m.types.size();
  double mass = 0.0;
  double sum[3] = {0.0, 0.0, 0.0};
  for (size_t k = 0; k < natoms; ++k) {
    const double w = element_record(m.types[k]).mass;
    mass += w;
    for (int c = 0; c < 3; ++c) sum[c] += w * m.frac[k][c];
  }
  for (int c = 0; c < 3; ++c) m.centre[c] = sum[c] / mass;

  constexpr double lower = -5.96046448e-08;
  constexpr double upper = 1.0000000596046448;
  double shift[3] = {0.0, 0.0, 0.0};
  bool outside = false;
  for (int c = 0; c < 3; ++c) {
    if (m.centre[c] < lower) shift[c] = 1.0;
    if (m.centre[c] > upper) shift[c] = -1.0;
    outside = outside || shift[c] != 0.0;
  }
  if (outside)
    for (size_t k = 0; k < natoms; ++k)
      for (int c = 0; c < 3; ++c)
        if (shift[c] != 0.0) m.frac[k][c] += shift[c];
  m.cart.resize(natoms);
  for (size_t k = 0; k < natoms; ++k) m.cart[k] = lattice.to_cartesian(m.frac[k]);
}

}  // namespace

Molecule make_whole(const MoleculeSites& atoms, const Lattice& lattice, double scale) {
  Molecule m;
  m.types = atoms.types;
  m.frac = atoms.sites;
  if (m.types.empty()) return m;
  const BondTest bonded{lattice, scale};
  const size_t natoms = m.types.size();
  WorkArray<double> radii(natoms);
  whole_molecule_radii(m.types, radii.data());
  if (atoms.joined.size() == natoms && atoms.partition_radius.size() == natoms &&
      partition_covers_whole_bonds(bonded, m.frac, radii.data(), atoms.partition_radius,
                                   atoms.partition_scale)) {
    m.followed_joins = grow_joined(bonded, m.frac, radii.data(), atoms.joined);
    if (!m.followed_joins) m.frac = atoms.sites;
  }
  m.bonded = m.followed_joins ? static_cast<int>(natoms) : grow(bonded, m.frac, radii.data());
  finish(m, lattice);
  return m;
}

Molecule make_whole_reference(const MoleculeSites& atoms, const Lattice& lattice, double scale) {
  Molecule m;
  m.types = atoms.types;
  m.frac = atoms.sites;
  if (m.types.empty()) return m;
  std::vector<double> radii(m.types.size());
  whole_molecule_radii(m.types, radii.data());
  m.bonded = grow_reference(BondTest{lattice, scale}, m.frac, radii.data());
  finish(m, lattice);
  return m;
}

void print_whole_molecule(int number, const Molecule& molecule, bool verbose) {
  const int natoms = static_cast<int>(molecule.types.size());
  if (natoms == 0) return;
  if (molecule.bonded < natoms) {
    std::printf("WARNING: Not all atoms are bonded in the molecule!\n");
    std::printf("         nat_bonded = %d, natoms = %d\n", molecule.bonded, natoms);
  }
  if (verbose)
    std::printf("  molecule %d COM = %9.6f %9.6f %9.6f\n", number, molecule.centre[0],
                molecule.centre[1], molecule.centre[2]);
}
