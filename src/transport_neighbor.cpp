// The neighbour list of the transport model: every molecule image within the atom-atom
// cut-off of each molecule of the unit cell, sorted by centre-of-mass distance; or, in the
// reading mode, the list given by "neighbor.dat".
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "search_margin.h"
#include "transport.h"
#include "util.h"

using fileio_grid::finite3;

namespace {

// Squared Cartesian length of the fractional vector d under the lattice L.
inline double cart_length_sq(const double L[3][3], const double d[3]) {
  double c[3];
  for (int k = 0; k < 3; ++k) c[k] = L[k][0] * d[0] + L[k][1] * d[1] + L[k][2] * d[2];
  return c[0] * c[0] + c[1] * c[1] + c[2] * c[2];
}

}  // namespace

void Transport::get_nei_shift(int i, int k, int shift[3]) const {
  shift[0] = nei_a[i][k];
  shift[1] = nei_b[i][k];
  shift[2] = nei_c[i][k];
}

bool Transport::check_if_molecule_within_rcut(int i, int j, const int shift[3],
                                              double rcut_squared, double* dsq) const {
  const int ni = mol_natoms[i];
  const int nj = mol_natoms[j];
  if (ni <= 0) return false;
  const double* pi = mol_x_s[i].data();
  const double* pj = mol_x_s[j].data();
  const double s[3] = {static_cast<double>(shift[0]), static_cast<double>(shift[1]),
                       static_cast<double>(shift[2])};
  for (int p = 0; p < ni; ++p) {
    for (int q = 0; q < nj; ++q) {
      double d[3];
      for (int c = 0; c < 3; ++c) d[c] = pj[3 * q + c] - pi[3 * p + c] + s[c];
      const double d2 = cart_length_sq(latt, d);
      if (d2 < rcut_squared) {
        *dsq = d2;
        return true;
      }
    }
  }
  return false;
}

double Transport::found_two_molecules_min_distance(int i, int j, const int shift[3]) const {
  const int ni = mol_natoms[i];
  const int nj = mol_natoms[j];
  if (ni <= 0) return 1e15;
  double best = 1e30;
  for (int p = 0; p < ni; ++p)
    for (int q = 0; q < nj; ++q) {
      double d[3];
      for (int c = 0; c < 3; ++c)
        d[c] = mol_x_s[j][3 * q + c] - mol_x_s[i][3 * p + c] + shift[c];
      const double d2 = cart_length_sq(latt, d);
      if (d2 < best) best = d2;
    }
  return std::sqrt(best);
}

double Transport::calc_neighbor_com_rsq(int i, int k, const int shift[3]) const {
  double d[3];
  for (int c = 0; c < 3; ++c) d[c] = (shift[c] + x_com[3 * k + c]) - x_com[3 * i + c];
  return cart_length_sq(latt, d);
}

void Transport::add_candidate(int i, int j, int a, int b, int c, std::vector<int>& cand,
                              std::vector<double>& key) const {
  const int shift[3] = {a, b, c};
  cand.insert(cand.end(), {j, a, b, c});
  key.push_back(calc_neighbor_com_rsq(i, j, shift));
  if (static_cast<int>(key.size()) == NNEIMAX)
    fatal_error("transport", transport_lines::NNEIMAX_REACHED, FatalStream::Err,
                format_string("Need to boost NNEIMAX (NumNeigh=%d)\n", NNEIMAX), 1);
}

void Transport::search_neighbors_reference(int i, double rc2, std::vector<int>& cand,
                                           std::vector<double>& key) {
  const long Na = neighbor_scell[0], Nb = neighbor_scell[1], Nc = neighbor_scell[2];
  cand.clear();
  key.clear();
  for (long c = -Nc; c <= Nc; ++c)
    for (long b = -Nb; b <= Nb; ++b)
      for (long a = -Na; a <= Na; ++a)
        for (int j = 0; j < nmols_uc; ++j) {
          if (j == i && a == 0 && b == 0 && c == 0) continue;
          const int shift[3] = {static_cast<int>(a), static_cast<int>(b), static_cast<int>(c)};
          double dsq = 1000000.0;
          if (check_if_molecule_within_rcut(i, j, shift, rc2, &dsq))
            add_candidate(i, j, shift[0], shift[1], shift[2], cand, key);
        }
}


void Transport::prepare_bounding_spheres(double rc2) {
  spheres.assign(nmols_uc, BoundingSphere{{0, 0, 0}, 0.0, false, {0, 0, 0}, {}});
  coordinate_scale = 0.0;
  for (int i = 0; i < nmols_uc; ++i) {
    BoundingSphere& s = spheres[i];
    int n = 0;
    for (int p = 0; p < mol_natoms[i]; ++p) {
      const double* f = &mol_x_s[i][3 * p];
      if (!finite3(f)) continue;
      for (int k = 0; k < 3; ++k) s.centre[k] += f[k];
      ++n;
    }
    if (n == 0) continue;
    for (double& v : s.centre) v /= n;
    for (int p = 0; p < mol_natoms[i]; ++p) {
      const double* f = &mol_x_s[i][3 * p];
      if (!finite3(f)) continue;
      const double d[3] = {f[0] - s.centre[0], f[1] - s.centre[1], f[2] - s.centre[2]};
      s.radius = std::max(s.radius, std::sqrt(cart_length_sq(latt, d)));
      double cart[3];
      mat_vec_mul(latt, f, cart);
      for (double v : cart) coordinate_scale = std::max(coordinate_scale, std::fabs(v));
    }
    s.any = std::isfinite(s.radius);
    mat_vec_mul(latt, s.centre, s.cart_centre);
    s.cart.assign(3 * static_cast<size_t>(mol_natoms[i]), NAN);
    for (int p = 0; p < mol_natoms[i]; ++p)
      if (finite3(&mol_x_s[i][3 * p])) mat_vec_mul(latt, &mol_x_s[i][3 * p], &s.cart[3 * p]);
  }
  lattice_kappa = search_margin::lattice_condition(latt, latt_inv);
  double lattice_norm = 0.0;
  for (int r = 0; r < 3; ++r)
    lattice_norm = std::max(lattice_norm, std::sqrt(latt[r][0] * latt[r][0] +
                                                    latt[r][1] * latt[r][1] +
                                                    latt[r][2] * latt[r][2]));
  double farthest_shift = 1.0;
  for (int k = 0; k < 3; ++k)
    farthest_shift =
        std::max(farthest_shift, 1.0 + std::fabs(static_cast<double>(neighbor_scell[k])));
  coordinate_scale = coordinate_scale * lattice_kappa + 3.0 * lattice_norm * farthest_shift;
  atom_grids.assign(nmols_uc, AtomGrid());
  largest_sphere = 0.0;
  std::vector<double> centres(3 * static_cast<size_t>(nmols_uc), 0.0);
  std::vector<int> binned;
  for (int i = 0; i < nmols_uc; ++i) {
    if (!spheres[i].any) continue;
    largest_sphere = std::max(largest_sphere, spheres[i].radius);
    for (int k = 0; k < 3; ++k) centres[3 * i + k] = spheres[i].centre[k];
    binned.push_back(i);
  }
  // Two molecules can only be in contact through some image when their centres lie within
  // this reach of each other modulo the cell.
  const double reach = sphere_reach(std::sqrt(rc2), largest_sphere, largest_sphere);
  // Along axis k the centres then differ by at most |row k of L^-1| times that reach; the
  // centres are binned by their fractional parts.
  centre_magnitude = 1.0;
  for (int i : binned)
    for (int k = 0; k < 3; ++k)
      centre_magnitude = std::max(centre_magnitude, 2.0 * std::fabs(centres[3 * i + k]));
  double frac_reach[3];
  inverse_row_lengths(frac_reach);
  for (double& r : frac_reach) {
    r = search_margin::widened(r * reach, lattice_kappa, centre_magnitude);
    if (!std::isfinite(r)) r = INFINITY;
  }
  centre_grid = fileio_grid::PeriodicGrid(centres, binned, frac_reach);
}

double Transport::sphere_reach(double rc, double ri, double rj) const {
  return search_margin::widened(rc + ri + rj, lattice_kappa, coordinate_scale);
}

void Transport::build_atom_grid(int j, double rc) {
  AtomGrid& g = atom_grids[j];
  g = AtomGrid();
  g.built = true;
  const int n = mol_natoms[j];
  g.cart.assign(3 * static_cast<size_t>(n), NAN);
  double lo[3] = {INFINITY, INFINITY, INFINITY}, hi[3] = {-INFINITY, -INFINITY, -INFINITY};
  std::vector<int> finite_atoms;
  for (int q = 0; q < n; ++q) {
    const double* f = &mol_x_s[j][3 * q];
    if (!finite3(f)) continue;
    mat_vec_mul(latt, f, &g.cart[3 * q]);
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

bool Transport::within_rcut_grid(int i, int j, const int shift[3], double rc2, double* dsq) {
  const int ni = mol_natoms[i];
  if (ni <= 0) return false;
  const double rc = std::sqrt(rc2);
  if (!atom_grids[j].built) build_atom_grid(j, rc);
  const AtomGrid& g = atom_grids[j];
  const double* pi = mol_x_s[i].data();
  const double* pj = mol_x_s[j].data();
  const double s[3] = {static_cast<double>(shift[0]), static_cast<double>(shift[1]),
                       static_cast<double>(shift[2])};
  for (int p = 0; p < ni; ++p) {
    const double* fp = &pi[3 * p];
    if (!finite3(fp)) continue;  // such an atom never comes within the cut-off
    // Atom p seen from the home cell of molecule j.
    const double back[3] = {fp[0] - s[0], fp[1] - s[1], fp[2] - s[2]};
    double q_point[3];
    mat_vec_mul(latt, back, q_point);
    const double scale = std::max({std::fabs(q_point[0]), std::fabs(q_point[1]),
                                   std::fabs(q_point[2]), std::fabs(g.origin[0]),
                                   std::fabs(g.origin[1]), std::fabs(g.origin[2])}) + g.extent;
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
    int first = -1;
    double first_d2 = 0.0;
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
            if (first >= 0 && q > first) continue;
            double d[3];
            for (int c = 0; c < 3; ++c) d[c] = pj[3 * q + c] - fp[c] + s[c];
            const double d2 = cart_length_sq(latt, d);
            if (d2 < rc2) {
              first = q;
              first_d2 = d2;
            }
          }
        }
    if (first >= 0) {
      *dsq = first_d2;
      return true;
    }
  }
  return false;
}

bool Transport::within_rcut_cart(int i, int j, const int shift[3], double rc2,
                                 double* dsq) const {
  const int ni = mol_natoms[i];
  const int nj = mol_natoms[j];
  if (ni <= 0) return false;
  const BoundingSphere& si = spheres[i];
  const BoundingSphere& sj = spheres[j];
  const double s[3] = {static_cast<double>(shift[0]), static_cast<double>(shift[1]),
                       static_cast<double>(shift[2])};
  double move[3];  // Cartesian translation of the image
  for (int k = 0; k < 3; ++k) move[k] = latt[k][0] * s[0] + latt[k][1] * s[1] + latt[k][2] * s[2];
  const double image_centre[3] = {sj.cart_centre[0] + move[0], sj.cart_centre[1] + move[1],
                                  sj.cart_centre[2] + move[2]};
  // Differences of products L f stand for products of differences: the same round-off bound
  // as the atom grid's (search_margin.h).
  const double pair_reach = search_margin::widened(std::sqrt(rc2), lattice_kappa,
                                                   coordinate_scale);
  const double atom_reach = search_margin::widened(std::sqrt(rc2) + sj.radius, lattice_kappa,
                                                   coordinate_scale);
  const double pair_reach2 = pair_reach * pair_reach, atom_reach2 = atom_reach * atom_reach;
  const double* pi = mol_x_s[i].data();
  const double* pj = mol_x_s[j].data();
  for (int p = 0; p < ni; ++p) {
    const double* cp = &si.cart[3 * p];
    // Atoms with a non-finite coordinate never pass the exact test (NaN compares false).
    const double e[3] = {cp[0] - image_centre[0], cp[1] - image_centre[1],
                         cp[2] - image_centre[2]};
    if (!(e[0] * e[0] + e[1] * e[1] + e[2] * e[2] <= atom_reach2)) continue;
    const double at[3] = {cp[0] - move[0], cp[1] - move[1], cp[2] - move[2]};
    for (int q = 0; q < nj; ++q) {
      const double* cq = &sj.cart[3 * q];
      const double c[3] = {cq[0] - at[0], cq[1] - at[1], cq[2] - at[2]};
      if (!(c[0] * c[0] + c[1] * c[1] + c[2] * c[2] <= pair_reach2)) continue;
      double d[3];
      for (int k = 0; k < 3; ++k) d[k] = pj[3 * q + k] - pi[3 * p + k] + s[k];
      const double d2 = cart_length_sq(latt, d);
      if (d2 < rc2) {
        *dsq = d2;
        return true;
      }
    }
  }
  return false;
}

void Transport::search_neighbors(int i, double rc2, std::vector<int>& cand,
                                 std::vector<double>& key) {
  cand.clear();
  key.clear();
  // An atom pair with a non-finite coordinate or lattice entry never passes the contact test,
  // so such atoms (and such a lattice) take no part in the search.
  if (!(rc2 >= 0.0) || !spheres[i].any) return;
  for (int r = 0; r < 3; ++r)
    if (!finite3(latt[r]) || !finite3(latt_inv[r])) return;
  const double rc = std::sqrt(rc2);
  const long N[3] = {neighbor_scell[0], neighbor_scell[1], neighbor_scell[2]};
  double inv_row[3];
  inverse_row_lengths(inv_row);

  struct Image {
    long c, b, a;
    int j;
  };
  std::vector<Image> found;
  const BoundingSphere& si = spheres[i];
  std::vector<int> near;
  centre_grid.for_each_near(si.centre, [&](int j) { near.push_back(j); });
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
      const double span = search_margin::widened(
          inv_row[k] * reach, lattice_kappa, std::fabs(v[k]) + static_cast<double>(N[k]) + 1.0);
      const double first = std::ceil(-v[k] - span), last = std::floor(-v[k] + span);
      lo[k] = first <= -static_cast<double>(N[k]) ? -N[k]
              : first > static_cast<double>(N[k]) ? N[k] + 1 : static_cast<long>(first);
      hi[k] = last >= static_cast<double>(N[k]) ? N[k]
              : last < -static_cast<double>(N[k]) ? -N[k] - 1 : static_cast<long>(last);
      empty = empty || lo[k] > hi[k];
    }
    if (empty) continue;
    for (long c = lo[2]; c <= hi[2]; ++c)
      for (long b = lo[1]; b <= hi[1]; ++b)
        for (long a = lo[0]; a <= hi[0]; ++a) {
          if (j == i && a == 0 && b == 0 && c == 0) continue;
          const double d[3] = {v[0] + a, v[1] + b, v[2] + c};
          if (cart_length_sq(latt, d) >= reach * reach) continue;
          const int shift[3] = {static_cast<int>(a), static_cast<int>(b), static_cast<int>(c)};
          double dsq = 1000000.0;
          const bool large = static_cast<long>(mol_natoms[i]) * mol_natoms[j] >
                             contact_grid_threshold;
          if (large ? !within_rcut_grid(i, j, shift, rc2, &dsq)
                    : !within_rcut_cart(i, j, shift, rc2, &dsq))
            continue;
          found.push_back({c, b, a, j});
          if (static_cast<int>(found.size()) >= NNEIMAX) break;
        }
    if (static_cast<int>(found.size()) >= NNEIMAX) break;
  }
  // Back into the order of the straightforward loops, which decides ties in the sort.
  std::sort(found.begin(), found.end(), [](const Image& x, const Image& y) {
    if (x.c != y.c) return x.c < y.c;
    if (x.b != y.b) return x.b < y.b;
    if (x.a != y.a) return x.a < y.a;
    return x.j < y.j;
  });
  for (const Image& im : found)
    add_candidate(i, im.j, static_cast<int>(im.a), static_cast<int>(im.b),
                  static_cast<int>(im.c), cand, key);
}

void Transport::build_neighbor_list(bool read_from_file, bool verbose) {
  nei_count.assign(nmols_uc, 0);
  nei_mol.assign(nmols_uc, {});
  nei_a.assign(nmols_uc, {});
  nei_b.assign(nmols_uc, {});
  nei_c.assign(nmols_uc, {});

  if (read_from_file) {
    read_neighbor_file(verbose);
  } else {
    if (print_cell_matrix) {
      std::printf("  h:\n");
      for (int r = 0; r < 3; ++r)
        std::printf(" %12.7f %12.7f %12.7f\n", latt[r][0], latt[r][1], latt[r][2]);
    }
    if (verbose) {
      std::printf("\n**** KAVRI Build Neighbor List ****\n");
      std::printf("  Neighbor rcutoff distance: %g\n", lattice_cutoff);
      std::printf("  Neighbor search cell (-/+): %d %d %d\n", neighbor_scell[0],
                  neighbor_scell[1], neighbor_scell[2]);
    }
    const double rc2 = lattice_cutoff * lattice_cutoff;
    prepare_bounding_spheres(rc2);
    std::vector<int> cand;
    std::vector<double> key;
    std::vector<int> idx;
    for (int i = 0; i < nmols_uc; ++i) {
      if (reference_paths)
        search_neighbors_reference(i, rc2, cand, key);
      else
        search_neighbors(i, rc2, cand, key);
      const int n = static_cast<int>(key.size());
      idx.resize(n);
      for (int k = 0; k < n; ++k) idx[k] = k;
      quickSort_d(key.data(), idx.data(), n);
      nei_count[i] = n;
      for (int k = 0; k < n; ++k) {
        const int* e = &cand[4 * idx[k]];
        nei_mol[i].push_back(e[0]);
        nei_a[i].push_back(e[1]);
        nei_b[i].push_back(e[2]);
        nei_c[i].push_back(e[3]);
      }
    }
  }

  neighbor_built = true;
  if (verbose) std::printf("**** End of KAVRI Build Neighbor List ****\n\n");
  if (!com_ready) calc_x_com();

  nei_com.assign(nmols_uc, {});
  nei_disp.assign(nmols_uc, {});
  for (int i = 0; i < nmols_uc; ++i) {
    nei_com[i].resize(3 * static_cast<size_t>(nei_count[i]));
    nei_disp[i].resize(3 * static_cast<size_t>(nei_count[i]));
    for (int k = 0; k < nei_count[i]; ++k) {
      const int j = nei_mol[i][k];
      const int shift[3] = {nei_a[i][k], nei_b[i][k], nei_c[i][k]};
      double image[3];
      for (int c = 0; c < 3; ++c) {
        image[c] = x_com[3 * j + c] + shift[c];
        nei_disp[i][3 * k + c] = (shift[c] + x_com[3 * j + c]) - x_com[3 * i + c];
      }
      mat_vec_mul(latt, image, &nei_com[i][3 * k]);
    }
  }

  allocate_mol_id_indexes_array();
  // The storage of later stages follows the new list; it is sized when a stage asks for it.
  later = LaterStageStorage();
}

void Transport::allocate_pair_storage() {
  LaterStageStorage& s = later;
  s.mol_vec3.assign(3 * static_cast<size_t>(nmols_uc), 0.0);
  s.mol_mat3.assign(9 * static_cast<size_t>(nmols_uc), 0.0);
  s.pair_int.assign(nmols_uc, {});
  s.pair_dbl.assign(nmols_uc, {});
  s.pair_vec3.assign(nmols_uc, {});
  s.pair_mat3.assign(nmols_uc, {});
  for (int i = 0; i < nmols_uc; ++i) {
    s.pair_int[i].assign(nei_count[i], 0);
    s.pair_dbl[i].assign(nei_count[i], 0.0);
    s.pair_vec3[i].assign(3 * static_cast<size_t>(nei_count[i]), 0.0);
    s.pair_mat3[i].assign(9 * static_cast<size_t>(nei_count[i]), 0.0);
  }
}

namespace {

// One whole 32-bit integer column of "neighbor.dat"; anything else ends the run.
int neighbor_column(const std::string& text) {
  errno = 0;
  char* end = nullptr;
  const long v = std::strtol(text.c_str(), &end, 10);
  if (end == text.c_str() || *end != '\0' || errno == ERANGE || v < INT_MIN || v > INT_MAX)
    fatal_error("transport", transport_lines::NEIGHBOR_VALUE, FatalStream::Err,
                format_string("Invalid integer column '%s' in %s!\n", text.c_str(),
                              "neighbor.dat"),
                1);
  return static_cast<int>(v);
}

}  // namespace

void Transport::read_neighbor_file(bool /*verbose*/) {
  const char* name = "neighbor.dat";
  std::printf("Reading file '%s'\n", name);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(name, "r"), std::fclose);
  if (!file)
    fatal_error("transport", transport_lines::NEIGHBOR_OPEN, FatalStream::Err,
                format_string("Failed to open input file: %s\n", name), 1);
  char buf[256];
  auto next_line = [&]() -> std::string {
    if (!std::fgets(buf, sizeof buf, file.get())) return std::string();
    return std::string(buf);
  };
  const long nm = std::strtol(next_line().c_str(), nullptr, 10);
  if (nm != nmols_uc)
    fatal_error("transport", transport_lines::NEIGHBOR_NMOLS, FatalStream::Err,
                format_string("Readin nmols (%ld) in %s not equal to nmols (%d) in unitcell!\n",
                              nm, name, nmols_uc),
                1);
  next_line();
  next_line();
  std::vector<std::string> words;
  for (int i = 0; i < nmols_uc; ++i) {
    next_line();
    const long n = std::strtol(next_line().c_str(), nullptr, 10);
    for (long k = 0; k < n; ++k) {
      std::string line = next_line();
      trim(line);
      tokenize(words, line.c_str(), " \t");
      if (words.size() != 8)
        fatal_error("transport", transport_lines::NEIGHBOR_NCOL, FatalStream::Err,
                    format_string("ncol (%d) in %s not equal to 8!\n",
                                  static_cast<int>(words.size()), name),
                    1);
      const int j = neighbor_column(words[0]) - 1;
      if (j < 0 || j >= nmols_uc)
        fatal_error("transport", transport_lines::NEIGHBOR_MOLECULE, FatalStream::Err,
                    format_string("Neighbor molecule %d in %s is not in 1..%d!\n", j + 1, name,
                                  nmols_uc),
                    1);
      if (static_cast<int>(nei_mol[i].size()) == NNEIMAX)
        fatal_error("transport", transport_lines::NNEIMAX_REACHED, FatalStream::Err,
                    format_string("Need to boost NNEIMAX (NumNeigh=%d)\n", NNEIMAX), 1);
      nei_mol[i].push_back(j);
      nei_a[i].push_back(neighbor_column(words[5]));
      nei_b[i].push_back(neighbor_column(words[6]));
      nei_c[i].push_back(neighbor_column(words[7]));
    }
    nei_count[i] = static_cast<int>(nei_mol[i].size());
  }
}
