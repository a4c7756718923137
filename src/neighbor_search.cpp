// The neighbour search: the straightforward loops over every image of the search range, and
// the fast search that proposes only the images whose bounding spheres come within reach and
// tests their contacts through Cartesian positions computed once (an atom grid for large
// molecules), only from the atoms that come within reach of the other molecule's sphere, and
// each pair of molecules from the lower-numbered one only. Both give the same candidates in the
// same order.
#include "neighbor_search.h"

#include <algorithm>
#include <cmath>

#include "fileio_grid.h"
#include "search_margin.h"
#include "util.h"

using fileio_grid::finite3;

namespace {

// Squared Cartesian length of the fractional vector d under the lattice L.
inline double cart_length_sq(const double L[3][3], const double d[3]) {
  double c[3];
  for (int k = 0; k < 3; ++k) c[k] = L[k][0] * d[0] + L[k][1] * d[1] + L[k][2] * d[2];
  return c[0] * c[0] + c[1] * c[1] + c[2] * c[2];
}

void add_candidate(const NeighborSearch& s, int i, int j, int a, int b, int c,
                   NeighborCandidates& out) {
  const int shift[3] = {a, b, c};
  out.images.insert(out.images.end(), {j, a, b, c});
  out.key.push_back(centre_distance_sq(s.centres, s.lattice, i, j, shift));
  if (static_cast<int>(out.key.size()) == kNeighborCapacity)
    fatal_error("transport", transport_lines::NNEIMAX_REACHED, FatalStream::Err,
                format_string("Need to boost NNEIMAX (NumNeigh=%d)\n", kNeighborCapacity), 1);
}

// The fast search over one cell, prepared once for all its molecules.
class FastSearch {
 public:
  explicit FastSearch(const NeighborSearch& search);
  // The candidates of molecule i. With `in_order` (molecules 0, 1, 2, ... in turn) only the
  // molecules j >= i are tested: the images of j < i in contact with i were found by the
  // search of j, which keeps them for i.
  NeighborCandidates candidates(int i, bool in_order);

 private:
  struct BoundingSphere {
    double centre[3];       // fractional
    double radius;          // angstrom
    bool any;               // false when the molecule has no atom with finite coordinates
    double cart_centre[3];  // L * centre
    // L * position of each atom (NaN where not finite), by axis: the x of every atom, then
    // every y, then every z, so that the distances from one point to all atoms vectorise.
    std::vector<double> cart;
  };
  struct Image {
    long c, b, a;
    int j;
  };
  // The atoms of one molecule binned in Cartesian space, so that each atom of another
  // molecule meets only the atoms within reach.
  struct AtomGrid {
    bool built = false;
    double origin[3] = {0, 0, 0};
    double h = 1.0;
    double extent = 0.0;
    int n[3] = {1, 1, 1};
    std::vector<int> start, order;
    std::vector<double> cart;  // Cartesian positions of the atoms, 3 per atom
    std::vector<double> box;   // per bin: lowest then highest corner of its atoms, 6 per bin
  };

  // Reach of the contact test between two spheres, widened by its round-off.
  double sphere_reach(double rc, double ri, double rj) const {
    return search_margin::widened(rc + ri + rj, lattice_kappa, coordinate_scale);
  }
  void build_atom_grid(int j, double rc);
  // The atoms of i whose squared distance from the image centre of j (Cartesian) is at most
  // `atom_reach2`, in atom order, into `close`; `move` is the Cartesian shift of the image.
  void atoms_near_image(int i, int j, const double move[3], double atom_reach2);
  // Contact tests with the same answer as molecules_within_cutoff (whether some atom pair
  // passes the exact test; the search needs no more), over the atoms in `close`: through the
  // atom grid of j, and through the Cartesian positions with a bound before the exact test.
  bool within_rcut_grid(int i, int j, const int shift[3], double rc2);
  bool within_rcut_cart(int i, int j, const int shift[3], const double move[3], double rc2,
                        double pair_reach2);

  const NeighborSearch& s;
  const double (&latt)[3][3];
  std::vector<BoundingSphere> spheres;
  // Round-off bounds of the contact tests (search_margin.h): the lattice's condition number,
  // and a bound on the Cartesian magnitudes entering them (atom positions, each through the
  // absolute values of the lattice, and the farthest image shift).
  double lattice_kappa = 1.0;
  double coordinate_scale = 0.0;
  double largest_sphere = 0.0;
  double centre_magnitude = 1.0;  // at least 1 and twice the largest |component| of a centre
  fileio_grid::PeriodicGrid centre_grid;  // molecule centres, binned for the cut-off reach
  std::vector<AtomGrid> atom_grids;
  // Work space of one molecule's search, kept between molecules.
  std::vector<int> near, close;
  std::vector<double> dist2;  // squared distances, one per atom of the largest molecule
  std::vector<Image> found;
  // Per molecule, the images of it found by the searches of earlier molecules (in_order).
  std::vector<std::vector<Image>> found_earlier;
};

// out[q] = squared Cartesian distance from `point` to atom q of the n atoms of `cart` (laid
// out by axis), as the difference of the two products and its sum of squares.
void squared_distances(const double* cart, int n, const double point[3], double* out) {
  const double* x = cart;
  const double* y = cart + n;
  const double* z = cart + 2 * static_cast<size_t>(n);
  const double px = point[0], py = point[1], pz = point[2];
  for (int q = 0; q < n; ++q) {
    const double dx = x[q] - px, dy = y[q] - py, dz = z[q] - pz;
    out[q] = dx * dx + dy * dy + dz * dz;
  }
}

FastSearch::FastSearch(const NeighborSearch& search) : s(search), latt(search.lattice.m) {
  const CellMolecules& m = s.molecules;
  const int nmols = m.count;
  spheres.assign(nmols, BoundingSphere{{0, 0, 0}, 0.0, false, {0, 0, 0}, {}});
  coordinate_scale = 0.0;
  for (int i = 0; i < nmols; ++i) {
    BoundingSphere& b = spheres[i];
    const std::vector<double>& x = m.frac[i];
    int n = 0;
    for (int p = 0; p < m.natoms[i]; ++p) {
      const double* f = &x[3 * p];
      if (!finite3(f)) continue;
      for (int k = 0; k < 3; ++k) b.centre[k] += f[k];
      ++n;
    }
    if (n == 0) continue;
    for (double& v : b.centre) v /= n;
    for (int p = 0; p < m.natoms[i]; ++p) {
      const double* f = &x[3 * p];
      if (!finite3(f)) continue;
      const double d[3] = {f[0] - b.centre[0], f[1] - b.centre[1], f[2] - b.centre[2]};
      b.radius = std::max(b.radius, std::sqrt(cart_length_sq(latt, d)));
      double cart[3];
      lattice_product(latt, f, cart);
      for (double v : cart) coordinate_scale = std::max(coordinate_scale, std::fabs(v));
    }
    b.any = std::isfinite(b.radius);
    lattice_product(latt, b.centre, b.cart_centre);
    const size_t na = static_cast<size_t>(m.natoms[i]);
    b.cart.assign(3 * na, NAN);
    for (size_t p = 0; p < na; ++p) {
      if (!finite3(&x[3 * p])) continue;
      double cart[3];
      lattice_product(latt, &x[3 * p], cart);
      for (size_t k = 0; k < 3; ++k) b.cart[k * na + p] = cart[k];
    }
  }
  int most_atoms = 0;
  for (int i = 0; i < nmols; ++i) most_atoms = std::max(most_atoms, m.natoms[i]);
  dist2.assign(static_cast<size_t>(most_atoms), 0.0);
  lattice_kappa = search_margin::lattice_condition(latt, s.lattice.inv);
  double lattice_norm = 0.0;
  for (int r = 0; r < 3; ++r)
    lattice_norm = std::max(
        lattice_norm,
        std::sqrt(latt[r][0] * latt[r][0] + latt[r][1] * latt[r][1] + latt[r][2] * latt[r][2]));
  double farthest_shift = 1.0;
  for (int k = 0; k < 3; ++k)
    farthest_shift = std::max(farthest_shift, 1.0 + std::fabs(static_cast<double>(s.range[k])));
  coordinate_scale = coordinate_scale * lattice_kappa + 3.0 * lattice_norm * farthest_shift;
  atom_grids.assign(nmols, AtomGrid());
  largest_sphere = 0.0;
  std::vector<double> centres(3 * static_cast<size_t>(nmols), 0.0);
  std::vector<int> binned;
  for (int i = 0; i < nmols; ++i) {
    if (!spheres[i].any) continue;
    largest_sphere = std::max(largest_sphere, spheres[i].radius);
    for (int k = 0; k < 3; ++k) centres[3 * i + k] = spheres[i].centre[k];
    binned.push_back(i);
  }
  // Two molecules can only be in contact through some image when their centres lie within
  // this reach of each other modulo the cell.
  const double reach = sphere_reach(std::sqrt(s.cutoff_sq), largest_sphere, largest_sphere);
  // Along axis k the centres then differ by at most |row k of L^-1| times that reach; the
  // centres are binned by their fractional parts.
  centre_magnitude = 1.0;
  for (int i : binned)
    for (int k = 0; k < 3; ++k)
      centre_magnitude = std::max(centre_magnitude, 2.0 * std::fabs(centres[3 * i + k]));
  double frac_reach[3];
  s.lattice.inverse_row_lengths(frac_reach);
  for (double& r : frac_reach) {
    r = search_margin::widened(r * reach, lattice_kappa, centre_magnitude);
    if (!std::isfinite(r)) r = INFINITY;
  }
  centre_grid = fileio_grid::PeriodicGrid(centres, binned, frac_reach);
}

void FastSearch::build_atom_grid(int j, double rc) {
  AtomGrid& g = atom_grids[j];
  g = AtomGrid();
  g.built = true;
  const int n = s.molecules.natoms[j];
  const std::vector<double>& x = s.molecules.frac[j];
  g.cart.assign(3 * static_cast<size_t>(n), NAN);
  double lo[3] = {INFINITY, INFINITY, INFINITY}, hi[3] = {-INFINITY, -INFINITY, -INFINITY};
  std::vector<int> finite_atoms;
  for (int q = 0; q < n; ++q) {
    const double* f = &x[3 * q];
    if (!finite3(f)) continue;
    lattice_product(latt, f, &g.cart[3 * q]);
    for (int k = 0; k < 3; ++k) {
      lo[k] = std::min(lo[k], g.cart[3 * q + k]);
      hi[k] = std::max(hi[k], g.cart[3 * q + k]);
    }
    finite_atoms.push_back(q);
  }
  if (finite_atoms.empty()) {
    g.start.assign(2, 0);
    return;
  }
  double span = 0.0;
  for (int k = 0; k < 3; ++k) {
    g.origin[k] = lo[k];
    span = std::max(span, hi[k] - lo[k]);
  }
  g.extent = span;
  // Bins no smaller than the cut-off and no more than a few per atom.
  g.h = std::max({rc, span / 64.0, 1e-6});
  if (!std::isfinite(g.h)) g.h = std::max(span, 1.0);
  for (int k = 0; k < 3; ++k)
    g.n[k] = std::clamp(static_cast<int>((hi[k] - lo[k]) / g.h) + 1, 1, 64);
  const int nbins = g.n[0] * g.n[1] * g.n[2];
  auto bin_of = [&](const double* c) {
    int b[3];
    for (int k = 0; k < 3; ++k)
      b[k] = std::clamp(static_cast<int>((c[k] - g.origin[k]) / g.h), 0, g.n[k] - 1);
    return (b[0] * g.n[1] + b[1]) * g.n[2] + b[2];
  };
  g.start.assign(nbins + 1, 0);
  for (int q : finite_atoms) ++g.start[bin_of(&g.cart[3 * q]) + 1];
  for (int b = 0; b < nbins; ++b) g.start[b + 1] += g.start[b];
  g.order.resize(finite_atoms.size());
  std::vector<int> fill(g.start.begin(), g.start.end() - 1);
  g.box.assign(6 * static_cast<size_t>(nbins), 0.0);
  for (int b = 0; b < nbins; ++b)
    for (int k = 0; k < 3; ++k) {
      g.box[6 * b + k] = INFINITY;
      g.box[6 * b + 3 + k] = -INFINITY;
    }
  for (int q : finite_atoms) {
    const int b = bin_of(&g.cart[3 * q]);
    g.order[fill[b]++] = q;
    for (int k = 0; k < 3; ++k) {
      g.box[6 * b + k] = std::min(g.box[6 * b + k], g.cart[3 * q + k]);
      g.box[6 * b + 3 + k] = std::max(g.box[6 * b + 3 + k], g.cart[3 * q + k]);
    }
  }
}

void FastSearch::atoms_near_image(int i, int j, const double move[3], double atom_reach2) {
  const int ni = s.molecules.natoms[i];
  const double* cj = spheres[j].cart_centre;
  const double image_centre[3] = {cj[0] + move[0], cj[1] + move[1], cj[2] + move[2]};
  squared_distances(spheres[i].cart.data(), ni, image_centre, dist2.data());
  close.clear();
  // Atoms with a non-finite coordinate never pass the exact test (NaN compares false).
  for (int p = 0; p < ni; ++p)
    if (dist2[p] <= atom_reach2) close.push_back(p);
}

bool FastSearch::within_rcut_grid(int i, int j, const int shift[3], double rc2) {
  const double rc = std::sqrt(rc2);
  if (!atom_grids[j].built) build_atom_grid(j, rc);
  const AtomGrid& g = atom_grids[j];
  const double* pi = s.molecules.frac[i].data();
  const double* pj = s.molecules.frac[j].data();
  const double sh[3] = {static_cast<double>(shift[0]), static_cast<double>(shift[1]),
                        static_cast<double>(shift[2])};
  for (int p : close) {
    const double* fp = &pi[3 * p];
    if (!finite3(fp)) continue;  // such an atom never comes within the cut-off
    // Atom p seen from the home cell of molecule j.
    const double back[3] = {fp[0] - sh[0], fp[1] - sh[1], fp[2] - sh[2]};
    double q_point[3];
    lattice_product(latt, back, q_point);
    const double scale =
        std::max({std::fabs(q_point[0]), std::fabs(q_point[1]), std::fabs(q_point[2]),
                  std::fabs(g.origin[0]), std::fabs(g.origin[1]), std::fabs(g.origin[2])}) +
        g.extent;
    // Bins hold products L f of single positions, the contact test a product of their
    // difference: the two differ by the round-off of products of size |L| |f| <= kappa |L f|.
    const double r = search_margin::widened(rc, lattice_kappa, lattice_kappa * scale);
    int lo[3], hi[3];
    bool outside = false;
    for (int k = 0; k < 3; ++k) {
      const double a = std::floor((q_point[k] - r - g.origin[k]) / g.h);
      const double b = std::floor((q_point[k] + r - g.origin[k]) / g.h);
      if (!(b >= 0.0) || !(a < g.n[k])) {
        outside = true;
        break;
      }
      lo[k] = a < 0.0 ? 0 : static_cast<int>(a);
      hi[k] = b >= g.n[k] ? g.n[k] - 1 : static_cast<int>(b);
    }
    if (outside) continue;
    for (int x = lo[0]; x <= hi[0]; ++x)
      for (int y = lo[1]; y <= hi[1]; ++y)
        for (int z = lo[2]; z <= hi[2]; ++z) {
          const int b = (x * g.n[1] + y) * g.n[2] + z;
          // A bin whose atoms all lie beyond the reach of this atom is passed over.
          double gap2 = 0.0;
          for (int k = 0; k < 3; ++k) {
            const double below = g.box[6 * b + k] - q_point[k];
            const double above = q_point[k] - g.box[6 * b + 3 + k];
            const double gap = std::max({below, above, 0.0});
            gap2 += gap * gap;
          }
          if (gap2 > r * r) continue;
          for (int t = g.start[b]; t < g.start[b + 1]; ++t) {
            const int q = g.order[t];
            double d[3];
            for (int c = 0; c < 3; ++c) d[c] = pj[3 * q + c] - fp[c] + sh[c];
            if (cart_length_sq(latt, d) < rc2) return true;
          }
        }
  }
  return false;
}

bool FastSearch::within_rcut_cart(int i, int j, const int shift[3], const double move[3],
                                  double rc2, double pair_reach2) {
  const int nj = s.molecules.natoms[j];
  const double sh[3] = {static_cast<double>(shift[0]), static_cast<double>(shift[1]),
                        static_cast<double>(shift[2])};
  const double* ci = spheres[i].cart.data();
  const size_t ni = static_cast<size_t>(s.molecules.natoms[i]);
  const double* pi = s.molecules.frac[i].data();
  const double* pj = s.molecules.frac[j].data();
  for (int p : close) {
    // Atom p seen from the home cell of molecule j, against every atom of j at once.
    const double at[3] = {ci[p] - move[0], ci[ni + p] - move[1], ci[2 * ni + p] - move[2]};
    squared_distances(spheres[j].cart.data(), nj, at, dist2.data());
    for (int q = 0; q < nj; ++q) {
      if (!(dist2[q] <= pair_reach2)) continue;
      double d[3];
      for (int k = 0; k < 3; ++k) d[k] = pj[3 * q + k] - pi[3 * p + k] + sh[k];
      if (cart_length_sq(latt, d) < rc2) return true;
    }
  }
  return false;
}

NeighborCandidates FastSearch::candidates(int i, bool in_order) {
  NeighborCandidates out;
  const double rc2 = s.cutoff_sq;
  // An atom pair with a non-finite coordinate or lattice entry never passes the contact test,
  // so such atoms (and such a lattice) take no part in the search.
  if (!(rc2 >= 0.0) || !spheres[i].any) return out;
  for (int r = 0; r < 3; ++r)
    if (!finite3(latt[r]) || !finite3(s.lattice.inv[r])) return out;
  const double rc = std::sqrt(rc2);
  const long N[3] = {s.range[0], s.range[1], s.range[2]};
  double inv_row[3];
  s.lattice.inverse_row_lengths(inv_row);

  found.clear();
  const BoundingSphere& si = spheres[i];
  near.clear();
  centre_grid.for_each_near(si.centre, [&](int j) {
    if (!in_order || j >= i) near.push_back(j);
  });
  // The contact test is symmetric to the last bit: the image of j shifted by s touches i
  // exactly when the image of i shifted by -s touches j, since every difference, sum and
  // product of the two tests is the negation of the other's (rounding is symmetric) and the
  // squares agree. So the images of j < i that touch i are those the search of j found.
  if (in_order) {
    if (found_earlier.empty()) found_earlier.resize(spheres.size());
    found.assign(found_earlier[i].begin(), found_earlier[i].end());
    std::vector<Image>().swap(found_earlier[i]);
  }
  // Most molecules of the neighbouring bins lie beyond any contact. Their image ranges below
  // are empty along some axis: no whole number of cells brings the centres within the span of
  // the pair. The span grows with the pair's reach and with |v| (at most centre_magnitude), so
  // the widest span, computed once, lets them be passed over with one rounding-free test per
  // axis (v minus its nearest integer is exact).
  const double widest = sphere_reach(rc, si.radius, largest_sphere);
  double span_max[3];
  for (int k = 0; k < 3; ++k)
    span_max[k] = search_margin::widened(inv_row[k] * widest, lattice_kappa,
                                         centre_magnitude + static_cast<double>(N[k]) + 1.0);
  // Differences of products L f stand for products of differences in the contact tests' bounds
  // (an atom pair, and an atom against the sphere of the other molecule): the same round-off
  // bound as the atom grid's (search_margin.h).
  const double pair_reach = search_margin::widened(rc, lattice_kappa, coordinate_scale);
  const double pair_reach2 = pair_reach * pair_reach;
  for (int j : near) {
    const BoundingSphere& sj = spheres[j];
    bool apart = false;
    for (int k = 0; k < 3; ++k) {
      const double v = sj.centre[k] - si.centre[k];
      apart = apart || std::fabs(v - std::nearbyint(v)) > span_max[k];
    }
    if (apart) continue;
    // Any contact closer than the cut-off needs the centres within this reach.
    const double reach = sphere_reach(rc, si.radius, sj.radius);
    const double v[3] = {sj.centre[0] - si.centre[0], sj.centre[1] - si.centre[1],
                         sj.centre[2] - si.centre[2]};
    long lo[3], hi[3];
    bool empty = false;
    for (int k = 0; k < 3; ++k) {
      const double span = search_margin::widened(inv_row[k] * reach, lattice_kappa,
                                                 std::fabs(v[k]) + static_cast<double>(N[k]) + 1.0);
      const double first = std::ceil(-v[k] - span), last = std::floor(-v[k] + span);
      lo[k] = first <= -static_cast<double>(N[k]) ? -N[k]
              : first > static_cast<double>(N[k]) ? N[k] + 1
                                                  : static_cast<long>(first);
      hi[k] = last >= static_cast<double>(N[k])   ? N[k]
              : last < -static_cast<double>(N[k]) ? -N[k] - 1
                                                  : static_cast<long>(last);
      empty = empty || lo[k] > hi[k];
    }
    if (empty) continue;
    const bool large =
        static_cast<long>(s.molecules.natoms[i]) * s.molecules.natoms[j] > s.contact_grid_threshold;
    // An atom of i closer than the cut-off to an atom of the image of j lies within the
    // cut-off plus the radius of j from the image's centre.
    const double atom_reach = search_margin::widened(rc + sj.radius, lattice_kappa, coordinate_scale);
    const double atom_reach2 = atom_reach * atom_reach;
    for (long c = lo[2]; c <= hi[2]; ++c)
      for (long b = lo[1]; b <= hi[1]; ++b)
        for (long a = lo[0]; a <= hi[0]; ++a) {
          if (j == i && a == 0 && b == 0 && c == 0) continue;
          const double d[3] = {v[0] + a, v[1] + b, v[2] + c};
          if (cart_length_sq(latt, d) >= reach * reach) continue;
          const int shift[3] = {static_cast<int>(a), static_cast<int>(b), static_cast<int>(c)};
          const double sh[3] = {static_cast<double>(a), static_cast<double>(b),
                                static_cast<double>(c)};
          double move[3];  // Cartesian translation of the image
          for (int k = 0; k < 3; ++k)
            move[k] = latt[k][0] * sh[0] + latt[k][1] * sh[1] + latt[k][2] * sh[2];
          atoms_near_image(i, j, move, atom_reach2);
          if (close.empty()) continue;
          if (large ? !within_rcut_grid(i, j, shift, rc2)
                    : !within_rcut_cart(i, j, shift, move, rc2, pair_reach2))
            continue;
          found.push_back({c, b, a, j});
          if (in_order && j > i) found_earlier[j].push_back({-c, -b, -a, i});
          if (static_cast<int>(found.size()) >= kNeighborCapacity) break;
        }
    if (static_cast<int>(found.size()) >= kNeighborCapacity) break;
  }
  // Back into the order of the straightforward loops, which decides ties in the sort.
  std::sort(found.begin(), found.end(), [](const Image& x, const Image& y) {
    if (x.c != y.c) return x.c < y.c;
    if (x.b != y.b) return x.b < y.b;
    if (x.a != y.a) return x.a < y.a;
    return x.j < y.j;
  });
  for (const Image& im : found)
    add_candidate(s, i, im.j, static_cast<int>(im.a), static_cast<int>(im.b),
                  static_cast<int>(im.c), out);
  return out;
}

// Sorts the candidates of every molecule by their key and places the images.
template <class Candidates>
NeighborList sorted_list(const NeighborSearch& s, Candidates candidates) {
  NeighborList list;
  list.of.assign(s.molecules.count, {});
  std::vector<int> idx;
  for (int i = 0; i < s.molecules.count; ++i) {
    NeighborCandidates cand = candidates(i);
    const int n = static_cast<int>(cand.key.size());
    idx.resize(n);
    for (int k = 0; k < n; ++k) idx[k] = k;
    quickSort_d(cand.key.data(), idx.data(), n);
    list.of[i].resize(n);
    for (int k = 0; k < n; ++k) {
      const int* e = &cand.images[4 * idx[k]];
      NeighborImage& im = list.of[i][k];
      im.mol = e[0];
      for (int c = 0; c < 3; ++c) im.shift[c] = e[1 + c];
    }
  }
  place_neighbor_images(list, s.centres, s.lattice);
  return list;
}

}  // namespace

bool molecules_within_cutoff(const CellMolecules& molecules, const Lattice& lattice, int i, int j,
                             const int shift[3], double cutoff_sq, double* dsq) {
  const int ni = molecules.natoms[i];
  const int nj = molecules.natoms[j];
  if (ni <= 0) return false;
  const double* pi = molecules.frac[i].data();
  const double* pj = molecules.frac[j].data();
  const double s[3] = {static_cast<double>(shift[0]), static_cast<double>(shift[1]),
                       static_cast<double>(shift[2])};
  for (int p = 0; p < ni; ++p) {
    for (int q = 0; q < nj; ++q) {
      double d[3];
      for (int c = 0; c < 3; ++c) d[c] = pj[3 * q + c] - pi[3 * p + c] + s[c];
      const double d2 = cart_length_sq(lattice.m, d);
      if (d2 < cutoff_sq) {
        *dsq = d2;
        return true;
      }
    }
  }
  return false;
}

double centre_distance_sq(const std::vector<Fractional>& centres, const Lattice& lattice, int i,
                          int k, const int shift[3]) {
  double d[3];
  for (int c = 0; c < 3; ++c) d[c] = (shift[c] + centres[k][c]) - centres[i][c];
  return cart_length_sq(lattice.m, d);
}

NeighborCandidates neighbor_candidates_reference(const NeighborSearch& s, int i) {
  NeighborCandidates out;
  const long Na = s.range[0], Nb = s.range[1], Nc = s.range[2];
  for (long c = -Nc; c <= Nc; ++c)
    for (long b = -Nb; b <= Nb; ++b)
      for (long a = -Na; a <= Na; ++a)
        for (int j = 0; j < s.molecules.count; ++j) {
          if (j == i && a == 0 && b == 0 && c == 0) continue;
          const int shift[3] = {static_cast<int>(a), static_cast<int>(b), static_cast<int>(c)};
          double dsq = 1000000.0;
          if (molecules_within_cutoff(s.molecules, s.lattice, i, j, shift, s.cutoff_sq, &dsq))
            add_candidate(s, i, j, shift[0], shift[1], shift[2], out);
        }
  return out;
}

NeighborCandidates neighbor_candidates(const NeighborSearch& s, int i) {
  return FastSearch(s).candidates(i, false);
}

NeighborList search_neighbor_list(const NeighborSearch& s) {
  FastSearch fast(s);
  return sorted_list(s, [&fast](int i) { return fast.candidates(i, true); });
}

NeighborList search_neighbor_list_reference(const NeighborSearch& s) {
  return sorted_list(s, [&s](int i) { return neighbor_candidates_reference(s, i); });
}

void place_neighbor_images(NeighborList& list, const std::vector<Fractional>& centres,
                           const Lattice& lattice) {
  for (size_t i = 0; i < list.of.size(); ++i)
    for (NeighborImage& im : list.of[i]) {
      const int j = im.mol;
      Fractional image;
      for (int c = 0; c < 3; ++c) {
        image[c] = centres[j][c] + im.shift[c];
        im.disp[c] = (im.shift[c] + centres[j][c]) - centres[i][c];
      }
      im.centre = lattice.to_cartesian(image);
    }
}
