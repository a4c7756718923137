// The MDL molfile read: the V2000 counts line and atom block, and the V3000 connection-table
// blocks, into a value that says what the read stored where.
#include "mol_read.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <istream>
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

// The element table's lookup of a symbol (-1 when unknown).
int element_index(const std::string& symbol) {
  static const FileIO table;
  return table.find_element_index_from_name(symbol.c_str());
}

}  // namespace

MolRead read_mol(std::istream& in, const std::string& name, const MolTarget& target, bool verbose,
                 bool debug) {
  MolRead read;
  read.slot = target.slot;
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
      std::printf(
          "WARNING: The Chiral Flag should be either 0 or 1. The value of %d will be "
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
    read.v3000 = true;
    V3000Reader reader(target, std::move(read), debug);
    reader.blocks(in, 0);
    return std::move(reader.read);
  }

  // V2000 atom block. The atoms are collected first and the slot is filled only once all of
  // them are present, so a count without its lines never sizes anything.
  const int natoms = std::max(count, 0);
  MolAtoms atoms;
  for (int i = 0; i < natoms; ++i) {
    if (!read_line(in, line, TEXT_LINE_CHARS))
      fatal_error("fileio", fileio_lines::MOL_ATOMS_SHORT, FatalStream::Out,
                  "WARNING: Problems reading a MDL file\n"
                  "         Not enough atoms to match atom count (" +
                      std::to_string(target.structure_natoms) + ") in counts line\n",
                  1);
    const std::string symbol = trim_blanks(column(line, 31, 3));
    if (symbol.empty())
      fatal_error("fileio", fileio_lines::MOL_ATOM_SYMBOL, FatalStream::Out,
                  "WARNING: Problems reading a MDL file\n"
                  "         No element symbol in columns 32-34 of atom line " +
                      std::to_string(i + 1) + " (line " + std::to_string(i + 5) + " of \"" + name +
                      "\")\n",
                  1);
    atoms.x.emplace_back(to_double(column(line, 0, 10)), to_double(column(line, 10, 10)),
                         to_double(column(line, 20, 10)));
    atoms.types.push_back(element_index(symbol));
  }
  if (!target.has_slot) return read;
  read.sized = read.slot_written = true;
  read.slot = std::move(atoms);
  return read;
}

MolRead read_mol_text(std::string_view text, const std::string& name, const MolTarget& target,
                      bool verbose, bool debug) {
  std::istringstream in{std::string(text)};
  return read_mol(in, name, target, verbose, debug);
}

bool read_v3000_line(std::istream& in, std::vector<std::string>& tokens) {
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
  return true;
}

V3000Reader::V3000Reader(const MolTarget& target, MolRead start, bool debug)
    : read(std::move(start)),
      has_slot_(target.has_slot),
      structure_atoms_(target.structure_atoms),
      debug_(debug) {}

bool V3000Reader::line(std::istream& in, std::vector<std::string>& tokens) {
  if (!read_v3000_line(in, tokens)) return false;
  read.last_tokens = tokens;
  return true;
}

bool V3000Reader::blocks(std::istream& in, int depth) {
  std::vector<std::string> t;
  while (true) {
    if (!line(in, t)) return false;
    if (t[1] == "END") return true;
    if (t.size() < 3) return false;
    if (t[2] == "LINKNODE") continue;
    if (t[2] == "END") return true;
    if (t[2] != "BEGIN" || t.size() < 4) return false;

    const std::string block = t[3];
    bool ok = false;
    if (block == "CTAB") {
      if (depth >= V3000_MAX_DEPTH) return false;
      if (!line(in, t) || t.size() < 4 || t[2] != "COUNTS") return false;
      const long natoms = std::max(to_int(t[3]), 0);
      if (natoms > V3000_ATOMS_ALWAYS_ACCEPTED && natoms > v3000_atom_capacity(in)) return false;
      if (has_slot_) {
        const std::size_t n = static_cast<std::size_t>(natoms);
        read.sized = read.slot_written = true;
        read.slot.types.assign(n, 0);
        read.slot.x.assign(n, Cartesian());
      }
      ok = blocks(in, depth + 1);
    } else if (block == "ATOM") {
      ok = atom_block(in);
    } else if (block == "BOND") {
      ok = bond_block(in);
    } else if (block == "RGROUP") {
      ok = rgroup_block(in);
    } else {
      ok = unimplemented_block(in, block);
    }
    if (!ok) return false;
  }
}

// Atom lines: id, symbol, x, y, z, atom-atom mapping, then KEY=value properties. Element and
// position go to the structure arrays at the atom's position in the block; when those arrays
// do not reach that position, to the molecule slot being read; otherwise nowhere.
bool V3000Reader::atom_block(std::istream& in) {
  std::vector<std::string> t;
  std::string key, value;
  int position = 0;
  while (true) {
    if (!line(in, t)) return false;
    if (t.size() >= 3 && t[2] == "END") return true;
    if (t.size() < 7) return false;
    if (position == INT_MAX) return false;
    ++position;
    read.atom_index[to_int(t[2])] = position;

    if (t[3] == "R#") {
      std::printf("WARNING: A molecule contains an R group which is not implemented!\n");
    } else {
      const int type = element_index(trim_blanks(t[3]));
      const Cartesian r(to_double(t[4]), to_double(t[5]), to_double(t[6]));
      const std::size_t p = static_cast<std::size_t>(position) - 1;
      if (p < structure_atoms_) {
        read.structure.push_back({p, type, r});
      } else if (has_slot_ && p < read.slot.types.size() && p < read.slot.x.size()) {
        read.slot_written = true;
        read.slot.types[p] = type;
        read.slot.x[p] = r;
      }
    }

    // Charge, radical, mass, configuration and valence have no use here; a property without
    // '=' fails the block. Token 8 may be the atom-atom mapping.
    for (std::size_t k = 7; k < t.size(); ++k) {
      if (k == 7 && t[k].find('=') == std::string::npos) continue;
      if (!split_pair(t[k], key, value)) return false;
    }
  }
}

// Bond lines: id, type, first and second atom id, then KEY=value properties (CFG); nothing is
// kept.
bool V3000Reader::bond_block(std::istream& in) {
  std::vector<std::string> t;
  std::string key, value;
  while (true) {
    if (!line(in, t)) return false;
    if (t.size() >= 3 && t[2] == "END") return true;
    if (t.size() < 6) return false;
    for (std::size_t k = 6; k < t.size(); ++k)
      if (!split_pair(t[k], key, value)) return false;
  }
}

bool V3000Reader::rgroup_block(std::istream& in) {
  if (debug_)
    std::printf(
        "WARNING: RGROUP and RLOGIC blocks are not currently implemented and their "
        "contents are ignored.\n");
  std::vector<std::string> t;
  while (true) {
    if (!line(in, t)) return false;
    if (t.size() >= 4 && t[2] == "END" && t[3] == "RGROUP") return true;
  }
}

bool V3000Reader::unimplemented_block(std::istream& in, const std::string& block_name) {
  if (debug_)
    std::printf(
        "WARNING: %s blocks are not currently implemented and their contents are "
        "ignored.\n",
        block_name.c_str());
  std::vector<std::string> t;
  while (true) {
    if (!line(in, t)) return false;
    if (t.size() >= 3 && t[2] == "END") return true;
  }
}
