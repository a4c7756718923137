// The neighbour list of the transport model: every molecule image within the atom-atom
// cut-off of each molecule of the unit cell, sorted by centre-of-mass distance; or, in the
// reading mode, the list given by "neighbor.dat". The search and the reading are the stages of
// neighbor_search.h and neighbor_file.h; this file fills the model's fields from them.
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "transport.h"
#include "util.h"

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

std::vector<Fractional> Transport::centres() const {
  std::vector<Fractional> c(x_com.size() / 3);
  for (size_t i = 0; i < c.size(); ++i) c[i] = Fractional(&x_com[3 * i]);
  return c;
}

NeighborSearch Transport::neighbor_search(double rc2,
                                          const std::vector<Fractional>& centres) const {
  return NeighborSearch{cell_molecules(),
                        centres,
                        lattice(),
                        rc2,
                        {neighbor_scell[0], neighbor_scell[1], neighbor_scell[2]},
                        contact_grid_threshold};
}

NeighborSearch Transport::neighbor_search(const std::vector<Fractional>& centres) const {
  return neighbor_search(lattice_cutoff * lattice_cutoff, centres);
}

bool Transport::check_if_molecule_within_rcut(int i, int j, const int shift[3],
                                              double rcut_squared, double* dsq) const {
  return molecules_within_cutoff(cell_molecules(), lattice(), i, j, shift, rcut_squared, dsq);
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
  return centre_distance_sq(centres(), lattice(), i, k, shift);
}

void Transport::store_neighbor_list(NeighborList list) {
  nei_count.assign(nmols_uc, 0);
  nei_mol.assign(nmols_uc, {});
  nei_a.assign(nmols_uc, {});
  nei_b.assign(nmols_uc, {});
  nei_c.assign(nmols_uc, {});
  nei_com.assign(nmols_uc, {});
  nei_disp.assign(nmols_uc, {});
  // Each molecule's images are released once copied, so that the list and the fields are
  // never held in full at the same time.
  for (int i = 0; i < nmols_uc; ++i) {
    std::vector<NeighborImage> images = std::move(list.of[i]);
    const int n = static_cast<int>(images.size());
    nei_count[i] = n;
    nei_mol[i].resize(n);
    nei_a[i].resize(n);
    nei_b[i].resize(n);
    nei_c[i].resize(n);
    nei_com[i].resize(3 * static_cast<size_t>(n));
    nei_disp[i].resize(3 * static_cast<size_t>(n));
    for (int k = 0; k < n; ++k) {
      const NeighborImage& im = images[k];
      nei_mol[i][k] = im.mol;
      nei_a[i][k] = im.shift[0];
      nei_b[i][k] = im.shift[1];
      nei_c[i][k] = im.shift[2];
      for (int c = 0; c < 3; ++c) {
        nei_com[i][3 * k + c] = im.centre[c];
        nei_disp[i][3 * k + c] = im.disp[c];
      }
    }
  }
}

void Transport::build_neighbor_list(bool read_from_file, bool verbose) {
  NeighborList list;
  if (read_from_file) {
    list = read_neighbor_file();
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
    // The order of the sort keys needs the centres of mass.
    if (!com_ready) calc_x_com();
    const std::vector<Fractional> c = centres();
    const NeighborSearch search = neighbor_search(c);
    list = search_neighbor_list(search);
  }

  neighbor_built = true;
  if (verbose) std::printf("**** End of KAVRI Build Neighbor List ****\n\n");
  if (!com_ready) calc_x_com();
  if (read_from_file) place_neighbor_images(list, centres(), lattice());
  store_neighbor_list(std::move(list));

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

NeighborList Transport::read_neighbor_file() const {
  const char* name = "neighbor.dat";
  std::printf("Reading file '%s'\n", name);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(name, "r"), std::fclose);
  if (!file)
    fatal_error("transport", transport_lines::NEIGHBOR_OPEN, FatalStream::Err,
                format_string("Failed to open input file: %s\n", name), 1);
  std::FILE* f = file.get();
  return read_neighbor_lines(
      [f](char* buf, int size) { return std::fgets(buf, size, f) != nullptr; }, nmols_uc);
}
