// The MDL molfile read: the V2000 counts line and atom block, and the V3000 connection-table
// blocks. Only element indices and Cartesian positions are kept; bonds and atom properties are
// parsed and dropped. A V3000 atom goes to the structure-level arrays where those reach its
// position in the block, else to the molecule slot being read.
#pragma once
#include <cstddef>
#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "lattice.h"

// Atoms of one molecule as a MOL file gives them.
struct MolAtoms {
  std::vector<int> types;    // element indices (-1 unknown)
  std::vector<Cartesian> x;  // angstrom
};

// Where a read stores, as it stands before the read.
struct MolTarget {
  bool has_slot = true;        // whether there is a molecule slot to fill
  MolAtoms slot;               // the slot's atoms before the read
  size_t structure_atoms = 0;  // atoms the structure-level element and position arrays hold
  int structure_natoms = 0;    // the structure's atom count (the short atom block reports it)
};

// A V3000 atom stored in the structure-level arrays at its position in the block.
struct StructureAtom {
  size_t position;
  int type;
  Cartesian x;
};

// What a read stored.
struct MolRead {
  bool sized = false;         // the slot was sized: a full V2000 atom block or a V3000 COUNTS
                              // line (atom count, zeroed fractional positions)
  bool slot_written = false;  // the slot's atoms changed
  MolAtoms slot;              // the slot's atoms after the read
  std::vector<StructureAtom> structure;  // in the order stored
  bool v3000 = false;                    // the counts line named V3000
  std::map<int, int> atom_index;         // V3000 atom id -> position in its block (from 1)
  std::vector<std::string> last_tokens;  // tokens of the last V3000 line read
};

// Reads one MOL file from `in` (or from its text); `name` is the name the messages report.
// Format errors of the counts line and the V2000 atom block end the program through
// fatal_error; a V3000 block that fails ends the read, keeping what was stored.
MolRead read_mol(std::istream& in, const std::string& name, const MolTarget& target, bool verbose,
                 bool debug);
MolRead read_mol_text(std::string_view text, const std::string& name, const MolTarget& target,
                      bool verbose, bool debug);

// One logical V3000 line: a physical line ending in '-' continues on the next one (the '-' is
// removed, the continuation's tokens after its "M V30" prefix appended). False at the end of
// the input or on a line that is not a V3000 line.
bool read_v3000_line(std::istream& in, std::vector<std::string>& tokens);

// The V3000 reader within one read: its blocks store into `read` as they go.
class V3000Reader {
 public:
  V3000Reader(const MolTarget& target, MolRead start, bool debug);

  // Blocks until "M END" or the END line of the enclosing block; a CTAB opens a nested level
  // after its COUNTS line has sized the slot.
  bool blocks(std::istream& in, int depth);
  bool line(std::istream& in, std::vector<std::string>& tokens);
  bool atom_block(std::istream& in);
  bool bond_block(std::istream& in);
  bool rgroup_block(std::istream& in);
  bool unimplemented_block(std::istream& in, const std::string& block_name);

  MolRead read;

 private:
  bool has_slot_;
  size_t structure_atoms_;
  bool debug_;
};
