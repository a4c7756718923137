// The fuzzed readers: each entry hands the input to the reader's text entry and runs the stages
// a real run would on the result, with fatal errors turned into an exception caught here. Only
// the crystal and molecule files an input names are still read from the scratch directory.
#include "fuzz_targets.h"

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "energy_table.h"
#include "mol_read.h"
#include "molecular_data.h"
#include "neighbor_file.h"
#include "neighbor_search.h"
#include "pr_siteenergy.h"
#include "site_energy_write.h"
#include "util.h"

namespace fuzz_targets {
namespace {

struct FatalEnd {
  int status;
};
[[noreturn]] void throw_fatal(int status) { throw FatalEnd{status}; }

void write_file(const char* name, const uint8_t* data, size_t size) {
  std::FILE* f = std::fopen(name, "wb");
  if (!f) return;
  if (size) std::fwrite(data, 1, size, f);
  std::fclose(f);
}

void write_text(const char* name, const std::string& text) {
  write_file(name, reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

template <class F>
Outcome guarded(F f) {
  try {
    f();
  } catch (const FatalEnd& end) {
    return Outcome{true, end.status & 0xff};
  }
  return Outcome{};
}

// A small real-shaped crystal: two H2 molecules in a monoclinic cell, neighbours in reach.
const char* const kCif =
    "data_fixture\n_symmetry_space_group_name_H-M 'P 21'\n"
    "_cell_length_a 4.5\n_cell_length_b 5.2\n_cell_length_c 6.0\n"
    "_cell_angle_alpha 90\n_cell_angle_beta 100\n_cell_angle_gamma 90\n"
    "loop_\n_symmetry_equiv_pos_as_xyz\nx,y,z\n-x,y+1/2,-z\n\n"
    "loop_\n_atom_site_label\n_atom_site_type_symbol\n"
    "_atom_site_fract_x\n_atom_site_fract_y\n_atom_site_fract_z\n"
    "H1 H 0.20 0.10 0.30\nH2 H 0.35 0.10 0.30\n";

const char* const kMol =
    "fixture\n  kavri\n\n  2  1  0  0  0  0  0  0  0  0999 V2000\n"
    "    0.0000    0.0000    0.0000 H   0  0  0  0  0  0  0  0  0  0  0  0\n"
    "    0.7400    0.0000    0.0000 H   0  0  0  0  0  0  0  0  0  0  0  0\n"
    "  1  2  1  0\nM  END\n";

std::string table_text(int blocks, int values) {
  std::string t = std::to_string(blocks) + "\n";
  for (int b = 0; b < blocks; ++b) {
    t += std::to_string(values) + "\n";
    for (int v = 0; v < values; ++v) t += std::to_string(0.5 * (b + 1) - v) + "\n";
  }
  return t;
}

// The structure files an input may name, written once into the scratch directory.
void write_fixtures() {
  write_text("c.cif", kCif);
  write_text("m.mol", kMol);
}

// The energy tables of every run: 8 blocks of 299 values, more than any list needs.
const std::string& fixture_table() {
  static const std::string t = table_text(8, 299);
  return t;
}

// The fixture crystal through the stages, once: its molecules' centres, lattice and
// neighbour list under the default settings.
struct Prepared {
  int nmols = 0;
  std::vector<int> counts;  // neighbours per molecule
  std::vector<Fractional> centres;
  Lattice lattice;
};

const Prepared& prepared() {
  static const Prepared p = [] {
    SiteEnergy m;
    m.load_crystal_text(kCif, "c.cif", false);
    m.read_crystal_strcuture_files(false, false);
    m.post_data_read_treatment(false);
    Prepared out;
    out.nmols = m.get_nmols();
    out.lattice = m.lattice();
    out.centres = molecular_centres(m.cell_molecules(), out.lattice).centre;
    for (const std::vector<NeighborImage>& images :
         search_neighbor_list(m.neighbor_search(out.centres)).of)
      out.counts.push_back(static_cast<int>(images.size()));
    return out;
  }();
  return p;
}

// The site energies of a run from tables of the given text, for the charge type `c` and,
// when `dielectric`, with the multipole tables: read, checked against the list, written as
// text, in the order of the run.
void site_energies(const std::string_view table, char c, bool dielectric, int nmols,
                   const std::vector<int>& counts) {
  const bool holes = carries_holes(c), electrons = carries_electrons(c);
  EnergyTable int_h, int_e, mp_h, mp_e;
  if (holes) int_h = read_energy_table_text(table, nmols, counts);
  if (electrons) int_e = read_energy_table_text(table, nmols, counts);
  if (dielectric && holes) mp_h = read_energy_table_text(table, nmols, counts);
  if (dielectric && electrons) mp_e = read_energy_table_text(table, nmols, counts);
  if (holes) {
    check_energy_table(int_h, "data/SE_einternal-h.dat", nmols, counts);
    if (dielectric) check_energy_table(mp_h, "data/SE_emultipole-h.dat", nmols, counts);
  }
  if (electrons) {
    check_energy_table(int_e, "data/SE_einternal-e.dat", nmols, counts);
    if (dielectric) check_energy_table(mp_e, "data/SE_emultipole-e.dat", nmols, counts);
  }
  if (holes) site_energy_text(nmols, counts, int_h, dielectric ? &mp_h : nullptr);
  if (electrons) site_energy_text(nmols, counts, int_e, dielectric ? &mp_e : nullptr);
}

std::string_view as_text(const uint8_t* data, size_t size) {
  return std::string_view(reinterpret_cast<const char*>(data), size);
}

bool names_system_path(std::string_view text) {
  for (const char* p : {"/dev", "/proc", "/sys", "..", "~"})
    if (text.find(p) != std::string_view::npos) return true;
  return false;
}

}  // namespace

void install_fatal_seam() { set_fatal_handler(throw_fatal); }

Outcome input_file(const uint8_t* data, size_t size) {
  // Inputs that name device or system files would test those files, not the reader.
  const std::string_view text = as_text(data, size);
  if (names_system_path(text)) return Outcome{};
  // The crystal and molecule files an input names are read from the scratch directory; the
  // input and the energy tables are read from memory.
  static const bool fixtures = (write_fixtures(), true);
  (void)fixtures;
  return guarded([text] {
    auto se = std::make_unique<SiteEnergy>();
    se->read_kavri_inp_text(text, "kavri.inp", true);
    se->read_crystal_strcuture_files(true, false);
    se->post_data_read_treatment(true);
    se->build_neighbor_list(false, true);
    std::vector<int> counts(se->get_nmols_uc());
    for (int i = 0; i < se->get_nmols_uc(); ++i) counts[i] = se->get_nei_count(i);
    site_energies(fixture_table(), se->charge_carrier(), se->get_reorg_outer_code() == 3,
                  se->get_nmols_uc(), counts);
  });
}

constexpr int kSearchedAtoms = 1000;

Outcome cif_file(const uint8_t* data, size_t size) {
  return guarded([text = as_text(data, size)] {
    SiteEnergy m;
    m.load_crystal_text(text, "f.cif", true);
    m.read_crystal_strcuture_files(true, false);
    m.post_data_read_treatment(true);  // masses, centres and HOMO indices
    // The contact tests of a cell grow with the square of its atoms: a mutated cell of
    // thousands of atoms in one cluster would take seconds per input. Such cells are searched
    // by the tests on real and generated supercells; here the search runs on cells of up to
    // kSearchedAtoms atoms, where every branch of it is reached.
    if (m.get_natoms_total() > kSearchedAtoms) return;
    const std::vector<Fractional> centres = m.centres();
    search_neighbor_list(m.neighbor_search(centres));
  });
}

Outcome mol_file(const uint8_t* data, size_t size) {
  // The reader fills slot 0 of two, as for the first file of "molecule = 2 f.mol m.mol".
  return guarded([text = as_text(data, size)] {
    read_mol_text(text, "f.mol", MolTarget(), true, false);
  });
}

Outcome energy_tables(const uint8_t* data, size_t size) {
  const Prepared& p = prepared();
  // The first byte picks the carrier and the outer model; the rest is every table the run
  // reads.
  const char carriers[] = {'h', 'e', 'a', 'h'};
  const int selector = size ? data[0] : 0;
  const std::string_view text = size ? as_text(data + 1, size - 1) : std::string_view();
  return guarded(
      [&] { site_energies(text, carriers[selector & 3], (selector & 4) != 0, p.nmols, p.counts); });
}

Outcome neighbor_file(const uint8_t* data, size_t size) {
  const Prepared& p = prepared();
  return guarded([&] {
    NeighborList list = read_neighbor_text(as_text(data, size), p.nmols);
    place_neighbor_images(list, p.centres, p.lattice);
  });
}

}  // namespace fuzz_targets
