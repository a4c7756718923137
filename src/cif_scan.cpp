// The CIF line scanner: the main scan over tag lines and the three loops it reads (symmetry
// operations, atom sites, bonds). Lines are taken one at a time from the text; atom rows are
// read straight into numbers and symbol entries.
#include "cif_scan.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
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

// Numbers read the C way from a terminated copy of the text, so that the conversion stops
// where the text ends (a value never runs on into the next line).
double leading_double(Line s) {
  char buf[64];
  if (s.size() < sizeof buf) {
    if (!s.empty()) std::memcpy(buf, s.data(), s.size());
    buf[s.size()] = '\0';
    return std::strtod(buf, nullptr);
  }
  return std::strtod(std::string(s).c_str(), nullptr);
}
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

bool starts_with_loop(Line s) { return s.substr(0, 5) == "loop_"; }

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

// The lines of a text as a line-by-line read gives them: split at LF (a CR stays in its
// line), and no line after a final LF. A line is named by the offset where it starts.
class Lines {
 public:
  explicit Lines(Line text) : text_(text) {}
  bool has(size_t pos) const { return pos < text_.size(); }
  Line at(size_t pos) const { return text_.substr(pos, end_of(pos) - pos); }
  size_t next(size_t pos) const {
    const size_t end = end_of(pos);
    return end < text_.size() ? end + 1 : text_.size();
  }
  size_t end() const { return text_.size(); }

 private:
  size_t end_of(size_t pos) const {
    const size_t lf = text_.find('\n', pos);
    return lf == Line::npos ? text_.size() : lf;
  }
  Line text_;
};

// The headers of a loop (consecutive lines beginning with "_", tested trimmed) and where its
// rows start.
struct LoopHeaders {
  std::vector<Line> names;
  size_t first_row = 0;
};

LoopHeaders read_loop_headers(const Lines& lines, size_t first) {
  LoopHeaders h;
  size_t k = first;
  for (; lines.has(k); k = lines.next(k)) {
    const Line t = trimmed(lines.at(k));
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

// The five required columns of an atom-site or bond loop and the split of one row into them;
// a row shorter than the columns need ends the run. A row of fewer than five tokens is refused
// as such; only a row of five or more that still lacks a column further right names the column
// count the loop needs.
struct FiveColumns {
  int col[5] = {0, 0, 0, 0, 0};
  int needed = 5;
  std::vector<Line> tok;

  bool find(const LoopHeaders& h, const char* const tags[5]) {
    for (int c = 0; c < 5; ++c) {
      col[c] = find_column(h, tags[c]);
      if (!col[c]) return false;
      needed = std::max(needed, col[c]);
    }
    return true;
  }

  std::array<Line, 5> split(Line row, int error_line) {
    split_row(row, tok);
    const int ntok = static_cast<int>(tok.size());
    if (ntok < 5) not_enough_columns(error_line, row, 5);
    if (ntok < needed) not_enough_columns(error_line, row, needed);
    return {tok[col[0] - 1], tok[col[1] - 1], tok[col[2] - 1], tok[col[3] - 1], tok[col[4] - 1]};
  }
};

std::string joined(const std::array<Line, 5>& f) {
  std::string s(f[0]);
  for (int c = 1; c < 5; ++c) (s += ' ') += f[c];
  return s;
}

// Appends atom rows to `atoms`, finding each type symbol's entry (the last one used first).
class AtomRows {
 public:
  explicit AtomRows(CifAtoms& atoms) : atoms_(atoms) {
    for (size_t k = 0; k < atoms.symbols.size(); ++k)
      entry_.emplace(atoms.symbols[k], static_cast<std::uint32_t>(k));
  }

  // label, symbol, x, y, z
  void add(const std::array<Line, 5>& f) {
    if (atoms_.size() == 0) atoms_.first_row = joined(f);
    last_ = f;
    atoms_.symbol.push_back(symbol_entry(f[1]));
    atoms_.positions.emplace_back(leading_double(f[2]), leading_double(f[3]), leading_double(f[4]));
    for (int c = 2; c < 5; ++c) atoms_.unread_coordinates += f[c] == "?" || f[c] == ".";
    added_ = true;
  }

  void reserve(size_t rows) {
    atoms_.positions.reserve(atoms_.positions.size() + rows);
    atoms_.symbol.reserve(atoms_.symbol.size() + rows);
  }

  // The last row's texts, kept once the rows have ended; the lists kept at their size.
  void finish() {
    if (added_) atoms_.last_row = joined(last_);
    atoms_.positions.shrink_to_fit();
    atoms_.symbol.shrink_to_fit();
  }

 private:
  std::uint32_t symbol_entry(Line s) {
    if (have_last_ && atoms_.symbols[last_entry_] == s) return last_entry_;
    auto it = entry_.find(s);
    if (it == entry_.end()) {
      it = entry_.emplace(std::string(s), static_cast<std::uint32_t>(atoms_.symbols.size())).first;
      atoms_.symbols.emplace_back(s);
    }
    last_entry_ = it->second;
    have_last_ = true;
    return last_entry_;
  }

  CifAtoms& atoms_;
  std::map<std::string, std::uint32_t, std::less<>> entry_;
  std::uint32_t last_entry_ = 0;
  bool have_last_ = false;
  std::array<Line, 5> last_;
  bool added_ = false;
};

// Scans one loop from its first header line; returns the line at which the main scan goes
// on. Sets `atoms_read` when the atom-site loop has ended the scan.
size_t scan_loop(const Lines& lines, size_t first, CifScan& out, bool& atoms_read) {
  if (!lines.has(first)) return first;
  const Line header = trimmed(lines.at(first));
  const LoopHeaders h = read_loop_headers(lines, first);

  if (contains(header, "_symmetry") || contains(header, "_space_group")) {
    const bool has_id = find_column(h, "_symmetry_equiv_pos_site_id") > 0 ||
                        find_column(h, "_space_group_symop_id") > 0;
    const bool has_op = find_column(h, "_symmetry_equiv_pos_as_xyz") > 0 ||
                        find_column(h, "_space_group_symop_operation_xyz") > 0;
    if (!has_op) return h.first_row;
    size_t k = h.first_row;
    Line op;
    for (; lines.has(k); k = lines.next(k)) {
      const Line row = trimmed(lines.at(k));
      if (row.empty() || row[0] == '_') break;  // the main scan goes on with this line
      if (has_id) {
        const size_t blank = row.find(' ');
        if (blank != Line::npos) op = row.substr(blank + 1);
      } else {
        op = row;
      }
      std::string t = trim_quotes(op);
      if (!t.empty()) out.operations.push_back(std::move(t));
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
    auto ends_rows = [](Line row) {
      return row.empty() || row[0] == '#' || row[0] == ';' || starts_with_loop(row);
    };
    // The rows are counted first, so that the lists are made at their size at once (a large
    // cell's lists would otherwise be copied on every growth and once more to be trimmed).
    size_t count = 0;
    for (size_t k = h.first_row; lines.has(k) && !ends_rows(trimmed(lines.at(k)));
         k = lines.next(k))
      ++count;
    AtomRows rows(out.atoms);
    rows.reserve(count);
    for (size_t k = h.first_row; lines.has(k); k = lines.next(k)) {
      const Line row = trimmed(lines.at(k));
      if (ends_rows(row)) break;
      rows.add(cols.split(row, fileio_lines::CIF_ATOM_COLUMNS));
    }
    rows.finish();
    return lines.end();
  }

  if (contains(header, "_geom_bond") || contains(header, "_ccdc_geom")) {
    static const char* const tags[5] = {"_geom_bond_atom_site_label_1",
                                        "_geom_bond_atom_site_label_2", "_geom_bond_distance",
                                        "_geom_bond_site_symmetry_2", "_ccdc_geom_bond_type"};
    FiveColumns cols;
    if (!cols.find(h, tags)) return h.first_row;
    std::vector<std::string>* lists[5] = {&out.bonds.label1, &out.bonds.label2, &out.bonds.distance,
                                          &out.bonds.symmetry2, &out.bonds.type};
    size_t k = h.first_row;
    for (; lines.has(k); k = lines.next(k)) {
      const Line row = trimmed(lines.at(k));
      if (starts_with_loop(row)) break;  // the main scan resumes at this line
      const std::array<Line, 5> f = cols.split(row, fileio_lines::CIF_BOND_COLUMNS);
      for (int c = 0; c < 5; ++c) lists[c]->emplace_back(f[c]);
    }
    return k;
  }

  return lines.next(first);  // not a loop of interest: go on after its first header
}

}  // namespace

CifScan scan_cif(std::string_view text, CifScan earlier) {
  CifScan out = std::move(earlier);
  const Lines lines(text);
  size_t cur = 0;
  bool atoms_read = false;
  while (lines.has(cur) && !atoms_read) {
    const Line line = trimmed(lines.at(cur));
    const Line value = after_first_blank(line);

    if (line.empty() || line[0] == '#' || line[0] == ';') {
      cur = lines.next(cur);
      continue;
    }
    if (starts_with_data(line)) {
      out.identifier = std::string(line.substr(5));
      cur = lines.next(cur);
      continue;
    }
    if (contains(line, "_chemical_name_common")) {
      out.chemical_name = trim_quotes(value);
      if (out.identifier.empty()) out.identifier = out.chemical_name;
    } else if (contains(line, "_space_group_IT_number")) {
      out.spacegroup_number = static_cast<int>(leading_long(value));
    } else if (contains(line, "_symmetry_space_group_name_H-M_alt") ||
               contains(line, "_symmetry_space_group_name_H-M") ||
               contains(line, "_space_group_name_H-M_alt")) {
      out.spacegroup_name = std::string(trimmed(value));
    } else if (contains(line, "_cell_length_a")) {
      out.cell[0] = leading_double(value);
    } else if (contains(line, "_cell_length_b")) {
      out.cell[1] = leading_double(value);
    } else if (contains(line, "_cell_length_c")) {
      out.cell[2] = leading_double(value);
    } else if (contains(line, "_cell_angle_alpha")) {
      out.cell[3] = leading_double(value);
    } else if (contains(line, "_cell_angle_beta")) {
      out.cell[4] = leading_double(value);
    } else if (contains(line, "_cell_angle_gamma")) {
      out.cell[5] = leading_double(value);
    } else if (contains(line, "loop_")) {
      cur = scan_loop(lines, lines.next(cur), out, atoms_read);
      continue;
    }
    cur = lines.next(cur);
  }
  return out;
}
