// Reading a crystal file into the model object: the file's text through the CIF scanner
// (cif_scan.h), the report of what was read, the atom arrays of the asymmetric unit, then
// expansion to the full cell and the molecule partition.
#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cif_scan.h"
#include "fileio.h"
#include "util.h"

std::string FileIO::get_cif_atom_symbol(int i) const {
  if (i < 0 || i >= static_cast<int>(cif_atoms.size())) return std::string();
  return cif_atoms.symbol_text(i);
}

void FileIO::read_data_cif(const char* file_name, bool verbose) {
  if (exists_not_regular(file_name))
    fatal_error("fileio", fileio_lines::CIF_OPEN, FatalStream::Err,
                std::string("Input file \"") + file_name + "\" is not a regular file", -1);
  std::ifstream in(file_name, std::ios::binary);
  if (!in) {
    fatal_error("fileio", fileio_lines::CIF_OPEN, FatalStream::Err,
                std::string("Failed to open input file \"") + file_name + "\"", -1);
  }
  std::string text;
  in.seekg(0, std::ios::end);
  const std::streamoff size = in.tellg();
  in.seekg(0);
  if (size > 0) {
    text.resize(static_cast<size_t>(size));
    in.read(&text[0], size);
    text.resize(static_cast<size_t>(in.gcount()));
  }
  in.close();
  CifScan scan = scan_cif_text(text, file_name, verbose);
  std::string().swap(text);  // the text is not needed past the scan
  load_cif_scan(std::move(scan), file_name, verbose);
}

void FileIO::read_data_cif_text(std::string_view text, const std::string& file_name, bool verbose) {
  load_cif_scan(scan_cif_text(text, file_name, verbose), file_name, verbose);
}

CifScan FileIO::scan_cif_text(std::string_view text, const std::string& file_name, bool verbose) {
  cif_file = file_name;
  if (verbose) std::printf("Reading crystal file \"%s\"... ", file_name.c_str());

  // A second read of the same object goes on from what the first one left.
  CifScan earlier;
  earlier.identifier = identifier;
  earlier.chemical_name = chemical_name;
  earlier.spacegroup_name = spacegroup_name;
  earlier.spacegroup_number = spacegroup_number;
  for (int k = 0; k < 6; ++k) earlier.cell[k] = cell_latt[k];
  earlier.operations = std::move(symm_ops);
  earlier.atoms = std::move(cif_atoms);
  earlier.bonds = std::move(cif_bonds);
  return scan_cif(text, std::move(earlier));
}

void FileIO::load_cif_scan(CifScan scan, const std::string& file_name, bool verbose) {
  identifier = std::move(scan.identifier);
  chemical_name = std::move(scan.chemical_name);
  spacegroup_name = std::move(scan.spacegroup_name);
  spacegroup_number = scan.spacegroup_number;
  for (int k = 0; k < 6; ++k) cell_latt[k] = scan.cell[k];
  symm_ops = std::move(scan.operations);
  cif_atoms = std::move(scan.atoms);
  cif_bonds = std::move(scan.bonds);

  if (verbose) {
    std::printf("  Identifier: %s\n", identifier.c_str());
    std::printf("  Spacegroup name: %s\n", spacegroup_name.c_str());
    std::printf("  Spacegroup operations: \n");
    for (const std::string& op : symm_ops) std::printf("    %s\n", op.c_str());
    std::printf("  Cell lattice a = %g\n", cell_latt[0]);
    std::printf("  Cell lattice b = %g\n", cell_latt[1]);
    std::printf("  Cell lattice c = %g\n", cell_latt[2]);
    std::printf("  Cell lattice alpha = %g\n", cell_latt[3]);
    std::printf("  Cell lattice beta  = %g\n", cell_latt[4]);
    std::printf("  Cell lattice gamma = %g\n", cell_latt[5]);
  }

  double lattice[3][3];
  convert_cell6_to_latt3x3(cell_latt, lattice);
  natoms_cif = static_cast<int>(cif_atoms.size());

  if (verbose) {
    std::printf("  natoms_cif = %d\n", natoms_cif);
    if (natoms_cif > 0) {
      std::printf("  First atom: %s\n", cif_atoms.first_row.c_str());
      std::printf("  ...\n");
      std::printf("  Last  atom: %s\n", cif_atoms.last_row.c_str());
    }
  }

  // Element index and bond radius of each distinct symbol, then of each atom.
  std::vector<int> symbol_type(cif_atoms.symbols.size());
  std::vector<double> symbol_radius(cif_atoms.symbols.size());
  for (size_t k = 0; k < cif_atoms.symbols.size(); ++k) {
    symbol_type[k] = find_element_index_from_name(cif_atoms.symbols[k].c_str());
    symbol_radius[k] = find_element_radius_from_name(cif_atoms.symbols[k].c_str());
  }
  atypes.assign(natoms_cif, 0);
  radius.assign(natoms_cif, 0.0);
  x_s.assign(3 * static_cast<size_t>(natoms_cif), 0.0);
  x.assign(3 * static_cast<size_t>(natoms_cif), 0.0);
  for (int i = 0; i < natoms_cif; ++i) {
    atypes[i] = symbol_type[cif_atoms.symbol[i]];
    radius[i] = symbol_radius[cif_atoms.symbol[i]];
    for (int k = 0; k < 3; ++k) x_s[3 * i + k] = cif_atoms.positions[i][k];
    coord_f2c(&x_s[3 * i], &x[3 * i]);
  }

  make_spacegroup_P1(3);
  // The partition reads the fractional positions and radii only: the Cartesian positions of
  // the expanded cell are made after it, so that the two are never held at the same time.
  std::vector<double>().swap(x);
  separate_cif_molecules(verbose);
  std::vector<double>().swap(radius);
  x.assign(3 * static_cast<size_t>(natoms_cif), 0.0);
  for (int i = 0; i < natoms_cif; ++i) coord_f2c(&x_s[3 * i], &x[3 * i]);
  cif_loaded = 1;
  if (verbose) std::printf("Crystal file %s parsing done.\n", file_name.c_str());
}
