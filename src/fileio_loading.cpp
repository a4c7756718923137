// The structure loading driver: turns the loaded crystal or the MOL files named in the
// input file into the whole molecules of one unit cell, with the cell vectors, the lattice
// matrix and its inverse.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "fileio.h"
#include "util.h"
#include "whole_molecules.h"

namespace {

// A molecule needs at least one atom whose element is in the table: its mass and centre of
// mass come from those atoms. Atoms of unknown element beside them weigh nothing.
bool lacks_known_element(const std::vector<int>& types) {
  return !types.empty() && std::none_of(types.begin(), types.end(), [](int t) { return t >= 0; });
}

}  // namespace

FileIO::FileIO() = default;

void FileIO::read_crystal_strcuture_files(bool verbose, bool write_cell_vectors) {
  if (struct_source == 1) {
    nmols = static_cast<int>(mol_file_names.size());
    mol_natoms.assign(nmols, 0);
    mol_atypes.assign(nmols, {});
    mol_x.assign(nmols, {});
    mol_x_s.assign(nmols, {});
    mol_files = mol_file_names;
    for (int i = 0; i < nmols; ++i) {
      read_data_mol(mol_file_names[i].c_str(), i, verbose);
      if (lacks_known_element(mol_atypes[i]))
        fatal_error("fileio", fileio_lines::MOL_NO_KNOWN_ELEMENT, FatalStream::Out,
                    format_string("WARNING: Problems reading a MDL file\n"
                                  "         No atom of molecule %d in \"%s\" has a known "
                                  "element symbol (%d atoms)\n",
                                  i + 1, mol_file_names[i].c_str(),
                                  static_cast<int>(mol_atypes[i].size())),
                    1);
    }
  } else if (struct_source == 2) {
    nmols = static_cast<int>(cif_mol_natoms.size());
    // The molecules are cut from the cell's fractional positions: its Cartesian ones serve
    // the structure reports only.
    if (!keep_structure_arrays) std::vector<double>().swap(x);
    mol_natoms.assign(nmols, 0);
    mol_atypes.assign(nmols, {});
    // The Cartesian positions of the whole molecules, made below.
    mol_x.assign(keep_structure_arrays ? nmols : 0, {});
    mol_x_s.assign(nmols, {});
    mol_files.assign(nmols, {});
    size_t next = 0;
    for (int i = 0; i < nmols; ++i) {
      mol_files[i] = "mol" + std::to_string(i + 1) + ".mol";
      const int n = cif_mol_natoms[i];
      mol_natoms[i] = n;
      mol_atypes[i].resize(n);
      mol_x_s[i].resize(3 * static_cast<size_t>(n));
      for (int k = 0; k < n; ++k, ++next) {
        const int a = cif_mol_atoms[next];
        mol_atypes[i][k] = atypes[a];
        for (int c = 0; c < 3; ++c) mol_x_s[i][3 * k + c] = x_s[3 * a + c];
      }
      if (lacks_known_element(mol_atypes[i]))
        fatal_error("fileio", fileio_lines::CIF_NO_KNOWN_ELEMENT, FatalStream::Out,
                    format_string("No atom of molecule %d of crystal file \"%s\" has a known "
                                  "element symbol (%d atoms)\n",
                                  i + 1, cif_file.c_str(), n),
                    -1);
    }
    if (verbose) std::printf("Make whole molecules...\n");
    // The fast partition's record of how each atom joined its molecule (absent after the
    // straightforward partition) lets most molecules be made whole in one pass.
    const bool joins = cif_mol_joined.size() == cif_mol_atoms.size() &&
                       cif_mol_radius.size() == cif_mol_atoms.size();
    const Lattice cell = lattice();
    size_t first = 0;
    for (int i = 0; i < nmols; ++i) {
      const int n = mol_natoms[i];
      const MoleculeSites sites =
          molecule_sites(n, mol_atypes[i].data(), mol_x_s[i].data(),
                         joins ? &cif_mol_joined[first] : nullptr,
                         joins ? &cif_mol_radius[first] : nullptr);
      const Molecule m = make_whole(sites, cell, bond_dis_scale);
      print_whole_molecule(i + 1, m, verbose);
      first += static_cast<size_t>(n);
      for (int k = 0; k < n; ++k)
        for (int c = 0; c < 3; ++c) mol_x_s[i][3 * k + c] = m.frac[k][c];
      if (keep_structure_arrays) {
        mol_x[i].resize(3 * static_cast<size_t>(n));
        for (int k = 0; k < n; ++k)
          for (int c = 0; c < 3; ++c) mol_x[i][3 * k + c] = m.cart[k][c];
      }
    }
    for (int c = 0; c < 3; ++c)
      for (int k = 0; k < 3; ++k) cell_vectors[c][k] = latt[k][c];
  } else {
    fatal_error("fileio", fileio_lines::NO_MOLECULES, FatalStream::Out,
                format_string("No input molecular data is available. (%d)\n", struct_source), -1);
  }

  for (int c = 0; c < 3; ++c) {
    cell_lengths[c] = get_magnitude(cell_vectors[c]);
    for (int k = 0; k < 3; ++k) super_cell_vectors[c][k] = cell_vectors[c][k] * super_cell[c];
  }
  for (int c = 0; c < 3; ++c)
    for (int k = 0; k < 3; ++k) latt[k][c] = cell_vectors[c][k];
  invert(latt, latt_inv);

  if (struct_source == 1) {
    for (int i = 0; i < nmols; ++i)
      for (int k = 0; k < mol_natoms[i]; ++k) coord_c2f(&mol_x[i][3 * k], &mol_x_s[i][3 * k]);
    const double* va = cell_vectors[0];
    const double* vb = cell_vectors[1];
    const double* vc = cell_vectors[2];
    cell_latt[0] = cell_lengths[0];
    cell_latt[1] = cell_lengths[1];
    cell_latt[2] = cell_lengths[2];
    cell_latt[3] = std::acos(get_dot(vb, vc) / (cell_lengths[1] * cell_lengths[2])) * 180.0 / KAVRI_PI;
    cell_latt[4] = std::acos(get_dot(va, vc) / (cell_lengths[0] * cell_lengths[2])) * 180.0 / KAVRI_PI;
    cell_latt[5] = std::acos(get_dot(va, vb) / (cell_lengths[0] * cell_lengths[1])) * 180.0 / KAVRI_PI;
  }

  if (!keep_structure_arrays) {
    std::vector<int>().swap(atypes);
    std::vector<double>().swap(x_s);
    std::vector<double>().swap(x);
    std::vector<int>().swap(cif_mol_joined);
    std::vector<double>().swap(cif_mol_radius);
    std::vector<std::vector<double>>().swap(mol_x);
  }

  mol_ids.resize(nmols);
  for (int i = 0; i < nmols; ++i) mol_ids[i] = i + 1;
  mol_mass_io.assign(nmols, 0.0);
  mol_vec1.assign(3 * static_cast<size_t>(nmols), 0.0);
  mol_vec2.assign(3 * static_cast<size_t>(nmols), 0.0);

  if (write_cell_vectors) {
    create_directory(data_dir.c_str());
    const std::string path = format_string("%s/cellvec.dat", data_dir.c_str());
    std::FILE* f = std::fopen(path.c_str(), "w");
    if (!f)
      fatal_error("fileio", fileio_lines::CELLVEC_OPEN, FatalStream::Out,
                  format_string("Failed to open output file %s\n", path.c_str()), -1);
    const char* names[3] = {"a", "b", "c"};
    for (int c = 0; c < 3; ++c)
      std::fprintf(f, "%s = %14.6f %14.6f %14.6f\n", names[c], cell_vectors[c][0],
                   cell_vectors[c][1], cell_vectors[c][2]);
    std::fclose(f);
  }
}
