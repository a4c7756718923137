// The CIF line scanner of the structure layer: cell tags, space-group name, the symmetry,
// atom-site and bond loops, then expansion to the full cell and the molecule partition.
// It is deliberately a scanner for a few fixed tags, not a general CIF parser.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "fileio.h"
#include "util.h"

namespace {

bool starts_with(const std::string& s, const char* prefix) {
  return s.compare(0, std::strlen(prefix), prefix) == 0;
}

bool contains(const std::string& s, const char* text) { return s.find(text) != std::string::npos; }

double leading_double(const std::string& s) { return std::strtod(s.c_str(), nullptr); }

// Trims blanks, tabs and both kinds of quote at the left, and the same plus CR/LF at the right.
std::string trim_quotes(std::string s) {
  sg_triml(s);
  sg_trimr(s);
  return s;
}

// The lines of a loop: the headers (consecutive lines beginning with "_") and where its
// rows start. Every test is made on the trimmed line.
struct LoopHeaders {
  std::vector<std::string> names;
  size_t first_row = 0;
};

LoopHeaders read_loop_headers(const std::vector<std::string>& lines, size_t first) {
  LoopHeaders h;
  size_t k = first;
  for (; k < lines.size(); ++k) {
    std::string t = lines[k];
    trim(t);
    if (t.empty() || t[0] != '_') break;
    h.names.push_back(t);
  }
  h.first_row = k;
  return h;
}

// Column (from 1) of the last header containing `tag`, 0 when there is none.
int find_column(const LoopHeaders& h, const char* tag) {
  int col = 0;
  for (size_t k = 0; k < h.names.size(); ++k)
    if (contains(h.names[k], tag)) col = static_cast<int>(k) + 1;
  return col;
}

[[noreturn]] void not_enough_columns(int line, const std::string& row, int needed) {
  fatal_error("fileio", line, FatalStream::Out,
              "Not enough columns: " + row + "\n" +
                  format_string("At least %d columns are expected!\n", needed),
              -1);
}

// The five required columns of an atom-site or bond loop, and the reading of one row into the
// five text lists; a row shorter than the columns need ends the run. A row of fewer than five
// tokens is refused as such; only a row of five or more that still lacks a column further
// right names the column count the loop needs.
struct FiveColumns {
  int col[5] = {0, 0, 0, 0, 0};
  int needed = 5;

  bool find(const LoopHeaders& h, const char* const tags[5]) {
    for (int c = 0; c < 5; ++c) {
      col[c] = find_column(h, tags[c]);
      if (!col[c]) return false;
      needed = std::max(needed, col[c]);
    }
    return true;
  }

  void append(const std::string& row, int error_line, std::vector<std::string>* lists[5]) {
    tokenize(tok, row.c_str(), " \t\r\n");
    const int ntok = static_cast<int>(tok.size());
    if (ntok < 5) not_enough_columns(error_line, row, 5);
    if (ntok < needed) not_enough_columns(error_line, row, needed);
    for (int c = 0; c < 5; ++c) lists[c]->push_back(tok[col[c] - 1]);
  }

  std::vector<std::string> tok;
};

}  // namespace

std::string FileIO::get_cif_atom_symbol(int i) const {
  if (i < 0 || i >= static_cast<int>(atom_symbols.size())) return std::string();
  return atom_symbols[i];
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
  cif_file = file_name;
  if (verbose) std::printf("Reading crystal file \"%s\"... ", file_name);

  std::vector<std::string> lines;
  for (std::string l; std::getline(in, l);) lines.push_back(l);
  in.close();

  size_t cur = 0;
  bool atoms_read = false;
  while (cur < lines.size() && !atoms_read) {
    std::string line = lines[cur];
    trim(line);
    const size_t blank = line.find(' ');
    const std::string value = blank == std::string::npos ? std::string() : line.substr(blank + 1);

    if (line.empty() || line[0] == '#' || line[0] == ';') {
      ++cur;
      continue;
    }
    if (strcaseequal(line, "data_", 5)) {
      identifier = line.substr(5);
      ++cur;
      continue;
    }
    if (contains(line, "_chemical_name_common")) {
      chemical_name = trim_quotes(value);
      if (identifier.empty()) identifier = chemical_name;
    } else if (contains(line, "_space_group_IT_number")) {
      spacegroup_number = static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
    } else if (contains(line, "_symmetry_space_group_name_H-M_alt") ||
               contains(line, "_symmetry_space_group_name_H-M") ||
               contains(line, "_space_group_name_H-M_alt")) {
      std::string v = value;
      spacegroup_name = trim(v);
    } else if (contains(line, "_cell_length_a")) {
      cell_latt[0] = leading_double(value);
    } else if (contains(line, "_cell_length_b")) {
      cell_latt[1] = leading_double(value);
    } else if (contains(line, "_cell_length_c")) {
      cell_latt[2] = leading_double(value);
    } else if (contains(line, "_cell_angle_alpha")) {
      cell_latt[3] = leading_double(value);
    } else if (contains(line, "_cell_angle_beta")) {
      cell_latt[4] = leading_double(value);
    } else if (contains(line, "_cell_angle_gamma")) {
      cell_latt[5] = leading_double(value);
    } else if (contains(line, "loop_")) {
      cur = scan_cif_loop(lines, cur + 1, atoms_read);
      continue;
    }
    ++cur;
  }

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
  natoms_cif = static_cast<int>(atom_labels.size());

  if (verbose) {
    std::printf("  natoms_cif = %d\n", natoms_cif);
    if (natoms_cif > 0) {
      const size_t last = atom_labels.size() - 1;
      std::printf("  First atom: %s %s %s %s %s\n", atom_labels[0].c_str(),
                  atom_symbols[0].c_str(), atom_fx[0].c_str(), atom_fy[0].c_str(),
                  atom_fz[0].c_str());
      std::printf("  ...\n");
      std::printf("  Last  atom: %s %s %s %s %s\n", atom_labels[last].c_str(),
                  atom_symbols[last].c_str(), atom_fx[last].c_str(), atom_fy[last].c_str(),
                  atom_fz[last].c_str());
    }
  }

  atypes.assign(natoms_cif, 0);
  radius.assign(natoms_cif, 0.0);
  x_s.assign(3 * static_cast<size_t>(natoms_cif), 0.0);
  x.assign(3 * static_cast<size_t>(natoms_cif), 0.0);
  for (int i = 0; i < natoms_cif; ++i) {
    atypes[i] = find_element_index_from_name(atom_symbols[i].c_str());
    radius[i] = find_element_radius_from_name(atom_symbols[i].c_str());
    x_s[3 * i + 0] = leading_double(atom_fx[i]);
    x_s[3 * i + 1] = leading_double(atom_fy[i]);
    x_s[3 * i + 2] = leading_double(atom_fz[i]);
    coord_f2c(&x_s[3 * i], &x[3 * i]);
  }

  make_spacegroup_P1(3);
  for (int i = 0; i < natoms_cif; ++i) coord_f2c(&x_s[3 * i], &x[3 * i]);

  if (reference_paths)
    separate_cif_molecules_reference(verbose);
  else
    separate_cif_molecules(verbose);

  radius.clear();
  radius.shrink_to_fit();
  cif_loaded = 1;
  if (verbose) std::printf("Crystal file %s parsing done.\n", file_name);
}

size_t FileIO::scan_cif_loop(const std::vector<std::string>& lines, size_t first,
                             bool& atoms_read) {
  if (first >= lines.size()) return first;
  std::string header = lines[first];
  trim(header);
  const LoopHeaders h = read_loop_headers(lines, first);

  if (contains(header, "_symmetry") || contains(header, "_space_group")) {
    const bool has_id = find_column(h, "_symmetry_equiv_pos_site_id") > 0 ||
                        find_column(h, "_space_group_symop_id") > 0;
    const bool has_op = find_column(h, "_symmetry_equiv_pos_as_xyz") > 0 ||
                        find_column(h, "_space_group_symop_operation_xyz") > 0;
    if (!has_op) return h.first_row;
    size_t k = h.first_row;
    std::string op;
    for (; k < lines.size(); ++k) {
      std::string row = lines[k];
      trim(row);
      if (row.empty() || row[0] == '_') break;  // the main scan goes on with this line
      if (has_id) {
        const size_t blank = row.find(' ');
        if (blank != std::string::npos) op = row.substr(blank + 1);
      } else {
        op = row;
      }
      std::string t = trim_quotes(op);
      if (!t.empty()) symm_ops.push_back(t);
    }
    return k;
  }

  if (contains(header, "_atom_site")) {
    static const char* const tags[5] = {"_atom_site_label", "_atom_site_type_symbol",
                                        "_atom_site_fract_x", "_atom_site_fract_y",
                                        "_atom_site_fract_z"};
    FiveColumns cols;
    if (!cols.find(h, tags)) return h.first_row;
    atoms_read = true;  // the atom-site loop ends the scan for good
    std::vector<std::string>* lists[5] = {&atom_labels, &atom_symbols, &atom_fx, &atom_fy,
                                          &atom_fz};
    for (size_t k = h.first_row; k < lines.size(); ++k) {
      std::string row = lines[k];
      trim(row);
      if (row.empty() || row[0] == '#' || row[0] == ';' || starts_with(row, "loop_")) break;
      cols.append(row, fileio_lines::CIF_ATOM_COLUMNS, lists);
    }
    return lines.size();
  }

  if (contains(header, "_geom_bond") || contains(header, "_ccdc_geom")) {
    static const char* const tags[5] = {"_geom_bond_atom_site_label_1",
                                        "_geom_bond_atom_site_label_2", "_geom_bond_distance",
                                        "_geom_bond_site_symmetry_2", "_ccdc_geom_bond_type"};
    FiveColumns cols;
    if (!cols.find(h, tags)) return h.first_row;
    std::vector<std::string>* lists[5] = {&bond_label1, &bond_label2, &bond_distance,
                                          &bond_symm2, &bond_type};
    size_t k = h.first_row;
    for (; k < lines.size(); ++k) {
      std::string row = lines[k];
      trim(row);
      if (starts_with(row, "loop_")) break;  // the main scan resumes at this line
      cols.append(row, fileio_lines::CIF_BOND_COLUMNS, lists);
    }
    return k;
  }

  return first + 1;  // not a loop of interest: go on after its first header
}
