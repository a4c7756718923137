// The MDL molfile reader of the structure layer: the V2000 counts line and atom block, and the
// V3000 connection-table blocks, read into one molecule slot. Only elements and Cartesian
// coordinates are kept; bonds and atom properties are parsed and dropped.
#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "fileio.h"
#include "util.h"
#include "util_error.h"

namespace {

constexpr std::size_t TEXT_LINE_CHARS = 254;     // ordinary text lines: 255-byte buffer
constexpr std::size_t V3000_LINE_CHARS = 32768;  // one physical V3000 line
constexpr int V3000_MAX_DEPTH = 8;               // nested BEGIN CTAB levels

// A V3000 COUNTS value up to this many atoms is always accepted; a larger one only when the
// rest of the stream has room for that many atom lines (see v3000_atom_capacity).
constexpr long V3000_ATOMS_ALWAYS_ACCEPTED = 100000;
// The shortest V3000 atom line, "M V30 1 C 0 0 0" with its line end.
constexpr long V3000_MIN_ATOM_LINE = 16;

// Reads one line without its line end, keeping at most `max_chars` characters of it; the rest
// of an overlong line is dropped so that one call always consumes one whole line. False at the
// end of the input when nothing is left.
bool read_line(std::istream& in, std::string& line, std::size_t max_chars) {
  using traits = std::istream::traits_type;
  line.clear();
  std::istream::int_type c = in.get();
  if (traits::eq_int_type(c, traits::eof())) return false;
  while (!traits::eq_int_type(c, traits::eof()) && c != '\n') {
    if (line.size() < max_chars) line.push_back(traits::to_char_type(c));
    c = in.get();
  }
  return true;
}

// Fixed-column field of a V2000 line; columns past the end of the line are empty.
std::string column(const std::string& line, std::size_t pos, std::size_t len) {
  return pos < line.size() ? line.substr(pos, len) : std::string();
}

// Leading decimal integer of a text (leading blanks skipped, 0 when there is none), clamped
// to the int range.
int to_int(const std::string& s) {
  const long v = std::strtol(s.c_str(), nullptr, 10);
  return static_cast<int>(std::clamp<long>(v, INT_MIN, INT_MAX));
}

double to_double(const std::string& s) { return std::strtod(s.c_str(), nullptr); }

std::string trim_blanks(const std::string& s) {
  std::size_t b = 0, e = s.size();
  while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
  return s.substr(b, e - b);
}

void split_v3000(const std::string& line, std::vector<std::string>& out) {
  std::size_t pos = 0;
  while (true) {
    pos = line.find_first_not_of(" \t\r\n", pos);
    if (pos == std::string::npos) return;
    const std::size_t end = line.find_first_of(" \t\r\n", pos);
    out.push_back(line.substr(pos, end == std::string::npos ? std::string::npos : end - pos));
    pos = end;
  }
}

bool is_v3000_line(const std::vector<std::string>& t) {
  return t.size() >= 2 && t[0] == "M" && (t[1] == "V30" || t[1] == "END");
}

// Splits "KEY=value"; false when the token has no '='.
bool split_pair(const std::string& token, std::string& key, std::string& value) {
  const std::size_t eq = token.find('=');
  if (eq == std::string::npos) return false;
  key = token.substr(0, eq);
  value = token.substr(eq + 1);
  return true;
}

// How many atoms the rest of the stream could still describe. A stream that cannot report
// its length gets only the fixed allowance.
long v3000_atom_capacity(std::istream& in) {
  const std::streampos here = in.tellg();
  if (here == std::streampos(-1)) return V3000_ATOMS_ALWAYS_ACCEPTED;
  in.seekg(0, std::ios::end);
  const std::streampos end = in.tellg();
  in.clear();
  in.seekg(here);
  if (end == std::streampos(-1) || !in) return V3000_ATOMS_ALWAYS_ACCEPTED;
  const long room = static_cast<long>((end - here) / V3000_MIN_ATOM_LINE);
  return std::max(room, V3000_ATOMS_ALWAYS_ACCEPTED);
}

}  // namespace

bool FileIO::mol_slot_ok(int slot) const {
  if (slot < 0) return false;
  const std::size_t s = static_cast<std::size_t>(slot);
  return s < mol_natoms.size() && s < mol_atypes.size() && s < mol_x.size() &&
         s < mol_x_s.size();
}

void FileIO::read_data_mol(const char* file_name, int slot, bool verbose) {
  const std::string name = file_name ? file_name : "";
  if (exists_not_regular(name.c_str()))
    fatal_error("fileio", fileio_lines::MOL_OPEN, FatalStream::Err,
                "Input file \"" + name + "\" is not a regular file", -1);
  std::ifstream in(name);
  if (!in.is_open())
    fatal_error("fileio", fileio_lines::MOL_OPEN, FatalStream::Err,
                "Failed to open input file \"" + name + "\"", -1);
  read_data_mol(in, name, slot, verbose);
}

void FileIO::read_data_mol_text(std::string_view text, const std::string& name, int slot,
                                bool verbose) {
  std::istringstream in{std::string(text)};
  read_data_mol(in, name, slot, verbose);
}

void FileIO::read_data_mol(std::istream& in, const std::string& name, int slot, bool verbose) {
  if (verbose) std::printf("Reading molecular file \"%s\"... ", name.c_str());

  // Title, program and comment lines carry nothing the model needs.
  std::string line;
  for (int i = 0; i < 3; ++i) read_line(in, line, TEXT_LINE_CHARS);

  if (!read_line(in, line, TEXT_LINE_CHARS)) line.clear();
  if (line.size() < 6)
    fatal_error("fileio", fileio_lines::MOL_COUNTS_SHORT, FatalStream::Out,
                "WARNING: Problems reading a MDL file\n"
                "         Cannot read atom and bond count\n"
                "         Expected standard 6 character atom and bond count\n",
                1);
  const int count = to_int(column(line, 0, 3));
  if (line.size() > 14) {
    const int chiral = to_int(column(line, 12, 3));
    if (chiral > 1)
      std::printf("WARNING: The Chiral Flag should be either 0 or 1. The value of %d will be "
                  "ignored.\n",
                  chiral);
  }
  if (to_int(column(line, 6, 3)) > 0)
    fatal_error("fileio", fileio_lines::MOL_ATOM_LISTS, FatalStream::Out,
                "WARNING: Problems reading the Count line of an MDL file\n"
                "         There may be erroneous addition spaces or\n"
                "         the file may contains Atom Lists, which are ignored\n",
                1);

  if (line.find("V3000") != std::string::npos) {
    v3000_atom_index.clear();
    ReadV3000Block(in, slot, verbose);
    return;
  }

  // V2000 atom block. The atoms are collected first and the slot is filled only once all of
  // them are present, so a count without its lines never sizes anything.
  const int natoms = std::max(count, 0);
  std::vector<int> types;
  std::vector<double> coords;
  for (int i = 0; i < natoms; ++i) {
    if (!read_line(in, line, TEXT_LINE_CHARS))
      fatal_error("fileio", fileio_lines::MOL_ATOMS_SHORT, FatalStream::Out,
                  "WARNING: Problems reading a MDL file\n"
                  "         Not enough atoms to match atom count (" +
                      std::to_string(natoms_cif) + ") in counts line\n",
                  1);
    const std::string symbol = trim_blanks(column(line, 31, 3));
    if (symbol.empty())
      fatal_error("fileio", fileio_lines::MOL_ATOM_SYMBOL, FatalStream::Out,
                  "WARNING: Problems reading a MDL file\n"
                  "         No element symbol in columns 32-34 of atom line " +
                      std::to_string(i + 1) + " (line " + std::to_string(i + 5) + " of \"" +
                      name + "\")\n",
                  1);
    coords.push_back(to_double(column(line, 0, 10)));
    coords.push_back(to_double(column(line, 10, 10)));
    coords.push_back(to_double(column(line, 20, 10)));
    types.push_back(find_element_index_from_name(symbol.c_str()));
  }
  if (!mol_slot_ok(slot)) return;
  mol_natoms[slot] = natoms;
  mol_atypes[slot] = std::move(types);
  mol_x[slot] = std::move(coords);
  mol_x_s[slot].assign(3 * static_cast<std::size_t>(natoms), 0.0);
}

// One logical V3000 line. A physical line ending in '-' continues on the next one: the '-' is
// removed and the continuation's tokens after its "M V30" prefix are appended.
bool FileIO::ReadV3000Line(std::istream& in, std::vector<std::string>& tokens) {
  tokens.clear();
  std::string line;
  std::vector<std::string> part;
  bool first = true;
  bool more = true;
  while (more) {
    if (!read_line(in, line, V3000_LINE_CHARS)) return false;
    while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.pop_back();
    more = !line.empty() && line.back() == '-';
    if (more) line.pop_back();
    part.clear();
    split_v3000(line, part);
    if (!is_v3000_line(part)) return false;
    if (first)
      tokens = part;
    else
      tokens.insert(tokens.end(), part.begin() + 2, part.end());
    first = false;
  }
  v3000_last_tokens = tokens;
  return true;
}

bool FileIO::ReadV3000Block(std::istream& in, int slot, bool verbose) {
  v3000_slot = slot;
  return read_v3000_blocks(in, slot, verbose, 0);
}

// Reads blocks until "M END" or the END line of the enclosing block. A CTAB opens a nested
// level after its COUNTS line has sized the molecule slot.
bool FileIO::read_v3000_blocks(std::istream& in, int slot, bool verbose, int depth) {
  std::vector<std::string> t;
  while (true) {
    if (!ReadV3000Line(in, t)) return false;
    if (t[1] == "END") return true;
    if (t.size() < 3) return false;
    if (t[2] == "LINKNODE") continue;
    if (t[2] == "END") return true;
    if (t[2] != "BEGIN" || t.size() < 4) return false;

    const std::string block = t[3];
    bool ok = false;
    if (block == "CTAB") {
      if (depth >= V3000_MAX_DEPTH) return false;
      if (!ReadV3000Line(in, t) || t.size() < 4 || t[2] != "COUNTS") return false;
      const long natoms = std::max(to_int(t[3]), 0);
      if (natoms > V3000_ATOMS_ALWAYS_ACCEPTED && natoms > v3000_atom_capacity(in)) return false;
      if (mol_slot_ok(slot)) {
        const std::size_t n = static_cast<std::size_t>(natoms);
        mol_natoms[slot] = static_cast<int>(natoms);
        mol_atypes[slot].assign(n, 0);
        mol_x[slot].assign(3 * n, 0.0);
        mol_x_s[slot].assign(3 * n, 0.0);
      }
      ok = read_v3000_blocks(in, slot, verbose, depth + 1);
    } else if (block == "ATOM") {
      ok = ReadAtomBlock(in);
    } else if (block == "BOND") {
      ok = ReadBondBlock(in);
    } else if (block == "RGROUP") {
      ok = ReadRGroupBlock(in);
    } else {
      ok = ReadUnimplementedBlock(in, block);
    }
    if (!ok) return false;
  }
}

// Atom lines: id, symbol, x, y, z, atom-atom mapping, then KEY=value properties. Element and
// coordinates go to the structure arrays at the atom's position in the block; when those
// arrays do not reach that position, to the molecule slot being read; otherwise nowhere.
bool FileIO::ReadAtomBlock(std::istream& in) {
  std::vector<std::string> t;
  std::string key, value;
  int position = 0;
  while (true) {
    if (!ReadV3000Line(in, t)) return false;
    if (t.size() >= 3 && t[2] == "END") return true;
    if (t.size() < 7) return false;
    if (position == INT_MAX) return false;
    ++position;
    v3000_atom_index[to_int(t[2])] = position;

    if (t[3] == "R#") {
      std::printf("WARNING: A molecule contains an R group which is not implemented!\n");
    } else {
      const int type = find_element_index_from_name(trim_blanks(t[3]).c_str());
      const double r[3] = {to_double(t[4]), to_double(t[5]), to_double(t[6])};
      const std::size_t p = static_cast<std::size_t>(position) - 1;
      int* type_dst = nullptr;
      double* x_dst = nullptr;
      if (p < atypes.size() && 3 * p + 2 < x.size()) {
        type_dst = &atypes[p];
        x_dst = &x[3 * p];
      } else if (mol_slot_ok(v3000_slot) && p < mol_atypes[v3000_slot].size() &&
                 3 * p + 2 < mol_x[v3000_slot].size()) {
        type_dst = &mol_atypes[v3000_slot][p];
        x_dst = &mol_x[v3000_slot][3 * p];
      }
      if (type_dst) {
        *type_dst = type;
        std::copy(r, r + 3, x_dst);
      }
    }

    for (std::size_t k = 7; k < t.size(); ++k) {
      if (k == 7 && t[k].find('=') == std::string::npos) continue;  // atom-atom mapping
      if (!split_pair(t[k], key, value)) return false;
      if (key == "CHG")
        SetFormalCharge(position, to_int(value));
      else if (key == "RAD")
        SetSpinMultiplicity(position, to_int(value));
      else if (key == "MASS")
        SetIsotope(position, to_double(value));
      // CFG and VAL are known and have no use here; other properties are read past.
    }
  }
}

// Bond lines: id, type, first and second atom id, then KEY=value properties (CFG).
bool FileIO::ReadBondBlock(std::istream& in) {
  std::vector<std::string> t;
  std::string key, value;
  const auto atom_position = [this](const std::string& id) {
    const auto it = v3000_atom_index.find(to_int(id));
    return it == v3000_atom_index.end() ? 0 : it->second;
  };
  while (true) {
    if (!ReadV3000Line(in, t)) return false;
    if (t.size() >= 3 && t[2] == "END") return true;
    if (t.size() < 6) return false;
    int flags = 0;
    for (std::size_t k = 6; k < t.size(); ++k) {
      if (!split_pair(t[k], key, value)) return false;
      if (key == "CFG") flags = to_int(value);
    }
    if (!AddBond(atom_position(t[4]), atom_position(t[5]), to_int(t[3]), flags)) return false;
  }
}

bool FileIO::ReadRGroupBlock(std::istream& in) {
  if (debug)
    std::printf("WARNING: RGROUP and RLOGIC blocks are not currently implemented and their "
                "contents are ignored.\n");
  std::vector<std::string> t;
  while (true) {
    if (!ReadV3000Line(in, t)) return false;
    if (t.size() >= 4 && t[2] == "END" && t[3] == "RGROUP") return true;
  }
}

bool FileIO::ReadUnimplementedBlock(std::istream& in, const std::string& block_name) {
  if (debug)
    std::printf("WARNING: %s blocks are not currently implemented and their contents are "
                "ignored.\n",
                block_name.c_str());
  std::vector<std::string> t;
  while (true) {
    if (!ReadV3000Line(in, t)) return false;
    if (t.size() >= 3 && t[2] == "END") return true;
  }
}
