// The MDL molfile reader of the structure layer: runs the MOL read of mol_read.h for one
// molecule slot and keeps what it stored there, in the structure-level arrays (V3000 atoms)
// and in the V3000 reading state.
#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fileio.h"
#include "mol_read.h"
#include "util.h"
#include "util_error.h"

bool FileIO::mol_slot_ok(int slot) const {
  if (slot < 0) return false;
  const std::size_t s = static_cast<std::size_t>(slot);
  return s < mol_natoms.size() && s < mol_atypes.size() && s < mol_x.size() &&
         s < mol_x_s.size();
}

MolTarget FileIO::mol_target(int slot) const {
  MolTarget target;
  target.has_slot = mol_slot_ok(slot);
  if (target.has_slot) {
    target.slot.types = mol_atypes[slot];
    const std::vector<double>& r = mol_x[slot];
    for (std::size_t k = 0; k + 2 < r.size(); k += 3) target.slot.x.emplace_back(&r[k]);
  }
  target.structure_atoms = std::min(atypes.size(), x.size() / 3);
  target.structure_natoms = natoms_cif;
  return target;
}

void FileIO::store_mol_read(const MolRead& read, int slot) {
  if (read.v3000) {
    v3000_slot = slot;
    v3000_atom_index = read.atom_index;
    if (!read.last_tokens.empty()) v3000_last_tokens = read.last_tokens;
  }
  for (const StructureAtom& a : read.structure) {
    atypes[a.position] = a.type;
    std::copy(a.x.v, a.x.v + 3, &x[3 * a.position]);
  }
  if (!mol_slot_ok(slot)) return;
  const std::size_t n = read.slot.types.size();
  if (read.slot_written) {
    mol_atypes[slot] = read.slot.types;
    mol_x[slot].resize(3 * read.slot.x.size());
    for (std::size_t k = 0; k < read.slot.x.size(); ++k)
      std::copy(read.slot.x[k].v, read.slot.x[k].v + 3, &mol_x[slot][3 * k]);
  }
  if (read.sized) {
    mol_natoms[slot] = static_cast<int>(n);
    mol_x_s[slot].assign(3 * n, 0.0);
  }
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
  store_mol_read(read_mol_text(text, name, mol_target(slot), verbose, debug), slot);
}

void FileIO::read_data_mol(std::istream& in, const std::string& name, int slot, bool verbose) {
  store_mol_read(read_mol(in, name, mol_target(slot), verbose, debug), slot);
}

// The V3000 steps start from the object's reading state: the slot last named by
// ReadV3000Block, its atom map and last line.
template <class Step>
bool FileIO::v3000_step(int slot, Step step) {
  const MolTarget target = mol_target(slot);
  MolRead start;
  start.v3000 = true;
  start.slot = target.slot;
  start.atom_index = v3000_atom_index;
  start.last_tokens = v3000_last_tokens;
  V3000Reader reader(target, std::move(start), debug);
  const bool ok = step(reader);
  store_mol_read(reader.read, slot);
  return ok;
}

bool FileIO::ReadV3000Line(std::istream& in, std::vector<std::string>& tokens) {
  if (!read_v3000_line(in, tokens)) return false;
  v3000_last_tokens = tokens;
  return true;
}

bool FileIO::ReadV3000Block(std::istream& in, int slot, bool /*verbose*/) {
  v3000_slot = slot;
  return v3000_step(slot, [&](V3000Reader& r) { return r.blocks(in, 0); });
}

bool FileIO::ReadAtomBlock(std::istream& in) {
  return v3000_step(v3000_slot, [&](V3000Reader& r) { return r.atom_block(in); });
}

bool FileIO::ReadBondBlock(std::istream& in) {
  return v3000_step(v3000_slot, [&](V3000Reader& r) { return r.bond_block(in); });
}

bool FileIO::ReadRGroupBlock(std::istream& in) {
  return v3000_step(v3000_slot, [&](V3000Reader& r) { return r.rgroup_block(in); });
}

bool FileIO::ReadUnimplementedBlock(std::istream& in, const std::string& block_name) {
  return v3000_step(v3000_slot,
                    [&](V3000Reader& r) { return r.unimplemented_block(in, block_name); });
}
