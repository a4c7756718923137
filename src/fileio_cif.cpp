// The CIF line scanner of the structure layer: cell tags, space-group name, the symmetry,
// atom-site and bond loops, then expansion to the full cell and the molecule partition.
// It is deliberately a scanner for a few fixed tags, not a general CIF parser.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "fileio.h"
#include "util.h"

namespace {

using Line = std::string_view;

bool contains(Line s, const char* text) { return s.find(text) != Line::npos; }

// The common trim: blanks and tabs at the left, the same plus CR and LF at the right.
Line trimmed(Line s) {
  const size_t first = s.find_first_not_of("\t ");
  if (first == Line::npos) return Line();
  s.remove_prefix(first);
  const size_t last = s.find_last_not_of("\t\n\r ");
  return last == Line::npos ? Line() : s.substr(0, last + 1);
}

// The same trim that also takes off both kinds of quote.
std::string trim_quotes(Line s) {
  const size_t first = s.find_first_not_of("\t \"'");
  if (first == Line::npos) return std::string();
  s.remove_prefix(first);
  const size_t last = s.find_last_not_of("\t\n\r \"'");
  return std::string(last == Line::npos ? Line() : s.substr(0, last + 1));
}

// Numbers read the C way from a copy of the value, so that the conversion stops where the
// value ends.
double leading_double(const std::string& s) { return std::strtod(s.c_str(), nullptr); }
double leading_double(Line s) { return leading_double(std::string(s)); }
long leading_long(Line s) { return std::strtol(std::string(s).c_str(), nullptr, 10); }

// "data_" at the start of a line, case ignored.
bool starts_with_data(Line s) {
  static const char prefix[] = "data_";
  if (s.size() < 5) return false;
  for (size_t i = 0; i < 5; ++i)
    if (std::tolower(static_cast<unsigned char>(s[i])) != prefix[i]) return false;
  return true;
}

// The text after the first blank of a line, empty when there is none.
Line after_first_blank(Line s) {
  const size_t blank = s.find(' ');
  return blank == Line::npos ? Line() : s.substr(blank + 1);
}

// The lines of a text as a line-by-line read gives them: split at LF (a CR stays in its
// line), and no line after a final LF.
std::vector<Line> split_lines(Line text) {
  std::vector<Line> lines;
  size_t pos = 0;
  while (pos < text.size()) {
    const size_t end = text.find('\n', pos);
    if (end == Line::npos) {
      lines.push_back(text.substr(pos));
      break;
    }
    lines.push_back(text.substr(pos, end - pos));
    pos = end + 1;
  }
  return lines;
}

// The tokens of a row at runs of blanks, tabs, CR and LF; a NUL byte ends the row.
void split_row(Line row, std::vector<Line>& tok) {
  tok.clear();
  row = row.substr(0, row.find('\0'));
  const char* const delims = " \t\r\n";
  size_t start = row.find_first_not_of(delims);
  while (start != Line::npos) {
    const size_t end = row.find_first_of(delims, start);
    tok.push_back(row.substr(start, end == Line::npos ? Line::npos : end - start));
    start = end == Line::npos ? end : row.find_first_not_of(delims, end);
  }
}

bool starts_with_loop(Line s) { return s.substr(0, 5) == "loop_"; }

// The lines of a loop: the headers (consecutive lines beginning with "_") and where its
// rows start. Every test is made on the trimmed line.
struct LoopHeaders {
  std::vector<Line> names;
  size_t first_row = 0;
};

LoopHeaders read_loop_headers(const std::vector<Line>& lines, size_t first) {
  LoopHeaders h;
  size_t k = first;
  for (; k < lines.size(); ++k) {
    const Line t = trimmed(lines[k]);
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

[[noreturn]] void not_enough_columns(int line, Line row, int needed) {
  fatal_error("fileio", line, FatalStream::Out,
              "Not enough columns: " + std::string(row) + "\n" +
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

  void append(Line row, int error_line, std::vector<std::string>* lists[5]) {
    split_row(row, tok);
    const int ntok = static_cast<int>(tok.size());
    if (ntok < 5) not_enough_columns(error_line, row, 5);
    if (ntok < needed) not_enough_columns(error_line, row, needed);
    for (int c = 0; c < 5; ++c) lists[c]->emplace_back(tok[col[c] - 1]);
  }

  std::vector<Line> tok;
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
  read_data_cif_text(text, file_name, verbose);
}

void FileIO::read_data_cif_text(std::string_view text, const std::string& file_name,
                                bool verbose) {
  cif_file = file_name;
  if (verbose) std::printf("Reading crystal file \"%s\"... ", file_name.c_str());

  const std::vector<std::string_view> lines = split_lines(text);
  size_t cur = 0;
  bool atoms_read = false;
  while (cur < lines.size() && !atoms_read) {
    const Line line = trimmed(lines[cur]);
    const Line value = after_first_blank(line);

    if (line.empty() || line[0] == '#' || line[0] == ';') {
      ++cur;
      continue;
    }
    if (starts_with_data(line)) {
      identifier = std::string(line.substr(5));
      ++cur;
      continue;
    }
    if (contains(line, "_chemical_name_common")) {
      chemical_name = trim_quotes(value);
      if (identifier.empty()) identifier = chemical_name;
    } else if (contains(line, "_space_group_IT_number")) {
      spacegroup_number = static_cast<int>(leading_long(value));
    } else if (contains(line, "_symmetry_space_group_name_H-M_alt") ||
               contains(line, "_symmetry_space_group_name_H-M") ||
               contains(line, "_space_group_name_H-M_alt")) {
      spacegroup_name = std::string(trimmed(value));
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
  if (verbose) std::printf("Crystal file %s parsing done.\n", file_name.c_str());
}

size_t FileIO::scan_cif_loop(const std::vector<std::string_view>& lines, size_t first,
                             bool& atoms_read) {
  if (first >= lines.size()) return first;
  const Line header = trimmed(lines[first]);
  const LoopHeaders h = read_loop_headers(lines, first);

  if (contains(header, "_symmetry") || contains(header, "_space_group")) {
    const bool has_id = find_column(h, "_symmetry_equiv_pos_site_id") > 0 ||
                        find_column(h, "_space_group_symop_id") > 0;
    const bool has_op = find_column(h, "_symmetry_equiv_pos_as_xyz") > 0 ||
                        find_column(h, "_space_group_symop_operation_xyz") > 0;
    if (!has_op) return h.first_row;
    size_t k = h.first_row;
    Line op;
    for (; k < lines.size(); ++k) {
      const Line row = trimmed(lines[k]);
      if (row.empty() || row[0] == '_') break;  // the main scan goes on with this line
      if (has_id) {
        const size_t blank = row.find(' ');
        if (blank != Line::npos) op = row.substr(blank + 1);
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
      const Line row = trimmed(lines[k]);
      if (row.empty() || row[0] == '#' || row[0] == ';' || starts_with_loop(row)) break;
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
      const Line row = trimmed(lines[k]);
      if (starts_with_loop(row)) break;  // the main scan resumes at this line
      cols.append(row, fileio_lines::CIF_BOND_COLUMNS, lists);
    }
    return k;
  }

  return first + 1;  // not a loop of interest: go on after its first header
}
