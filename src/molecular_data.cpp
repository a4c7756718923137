// Masses, centres of mass and HOMO indices of the molecules of one unit cell.
#include "molecular_data.h"

#include "fileio.h"

namespace {

// Element index of an atom as the model uses it; an unknown element (-1) counts as the dummy.
int known_element(int index) { return (index >= 0 && index < NELEMENTS) ? index : 0; }

}  // namespace

MolecularCentres molecular_centres(const CellMolecules& molecules, const Lattice& lattice) {
  const int n = molecules.count;
  MolecularCentres out;
  out.mass.assign(n, 0.0);
  out.centre.assign(n, Fractional());
  out.centre_cart.assign(n, Cartesian());
  for (int i = 0; i < n; ++i) {
    double mass = 0.0;
    double sum[3] = {0.0, 0.0, 0.0};
    const std::vector<double>& f = molecules.frac[i];
    for (int k = 0; k < molecules.natoms[i]; ++k) {
      const double m = Elements_m[known_element(molecules.types[i][k])].mass;
      mass += m;
      for (int c = 0; c < 3; ++c) sum[c] += m * f[3 * k + c];
    }
    out.mass[i] = mass;
    for (int c = 0; c < 3; ++c) out.centre[i][c] = sum[c] / mass;
  }
  for (int i = 0; i < n; ++i) out.centre_cart[i] = lattice.to_cartesian(out.centre[i]);
  return out;
}

std::vector<int> homo_indices(const CellMolecules& molecules, bool valence_only) {
  std::vector<int> homo(molecules.count, 0);
  for (int i = 0; i < molecules.count; ++i) {
    long electrons = 0;
    for (int k = 0; k < molecules.natoms[i]; ++k) {
      const int z = known_element(molecules.types[i][k]);
      int ne = z;
      if (valence_only) {
        if (z >= 3 && z <= 10)
          ne -= 2;
        else if (z >= 11 && z <= 18)
          ne -= 10;
      }
      electrons += ne;
    }
    homo[i] = static_cast<int>(electrons / 2);
  }
  return homo;
}
