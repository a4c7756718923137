// The fuzzed readers: each entry hands the input to the reader's text entry and runs the stages
// a real run would on the result, with fatal errors turned into an exception caught here. Only
// the input file's names and the neighbour file are still read from the scratch directory.
#include "fuzz_targets.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "pr_siteenergy.h"
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

// The model object with the members a harness sets directly.
class Model : public SiteEnergy {
 public:
  using FileIO::mol_atypes;
  using FileIO::mol_file_names;
  using FileIO::mol_natoms;
  using FileIO::mol_x;
  using FileIO::mol_x_s;
  using FileIO::struct_source;
  using SiteEnergy::se_int_e;
  using SiteEnergy::se_int_h;
  using SiteEnergy::se_mp_e;
  using SiteEnergy::se_mp_h;
  using KavriInp::chargetype;
  using KavriInp::reorg_outer_code;
};

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

void write_fixtures() {
  write_text("c.cif", kCif);
  write_text("m.mol", kMol);
  create_directory("data");
  const std::string t = table_text(8, 299);
  for (const char* n : {"data/SE_einternal-h.dat", "data/SE_einternal-e.dat",
                        "data/SE_emultipole-h.dat", "data/SE_emultipole-e.dat"})
    write_text(n, t);
}

// The fixture crystal loaded and prepared once, its neighbour list built; each input gets a
// copy.
const Model& prepared_model() {
  static const Model model = [] {
    Model m;
    m.read_data_cif_text(kCif, "c.cif", false);
    m.struct_source = 2;
    m.read_crystal_strcuture_files(false, false);
    m.post_data_read_treatment(false);
    m.build_neighbor_list(false, false);
    return m;
  }();
  return model;
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
  // The files an input names (crystal, molecules, tables) are read from the scratch
  // directory; the input itself is read from memory.
  static const bool fixtures = (write_fixtures(), true);
  (void)fixtures;
  return guarded([text] {
    auto se = std::make_unique<Model>();
    se->read_kavri_inp_text(text, "kavri.inp", true);
    se->read_crystal_strcuture_files(true, false);
    se->post_data_read_treatment(true);
    se->build_neighbor_list(false, true);
    se->write_site_energies(true);
  });
}

Outcome cif_file(const uint8_t* data, size_t size) {
  return guarded([text = as_text(data, size)] {
    Model m;
    m.read_data_cif_text(text, "f.cif", true);
    m.struct_source = 2;
    m.read_crystal_strcuture_files(true, false);
    m.post_data_read_treatment(false);
    m.build_neighbor_list(false, false);
  });
}

Outcome mol_file(const uint8_t* data, size_t size) {
  // The reader fills slot 0 of two, as for the first file of "molecule = 2 f.mol m.mol".
  return guarded([text = as_text(data, size)] {
    Model m;
    m.mol_natoms.assign(2, 0);
    m.mol_atypes.assign(2, {});
    m.mol_x.assign(2, {});
    m.mol_x_s.assign(2, {});
    m.read_data_mol_text(text, "f.mol", 0, true);
  });
}

Outcome energy_tables(const uint8_t* data, size_t size) {
  const Model& proto = prepared_model();
  // The first byte picks the carrier and the outer model; the rest is every table the run
  // reads.
  const char carriers[] = {'h', 'e', 'a', 'H'};
  const int selector = size ? data[0] : 0;
  const std::string_view text = size ? as_text(data + 1, size - 1) : std::string_view();
  return guarded([&] {
    Model m = proto;
    const char carrier = carriers[selector & 3];
    const bool dielectric = (selector & 4) != 0;
    m.chargetype = std::string(1, carrier);
    m.reorg_outer_code = dielectric ? 3 : 0;
    const bool holes = carrier != 'e', electrons = carrier == 'e' || carrier == 'a';
    if (holes) m.se_int_h = m.read_table_text(text);
    if (electrons) m.se_int_e = m.read_table_text(text);
    if (holes && dielectric) m.se_mp_h = m.read_table_text(text);
    if (electrons && dielectric) m.se_mp_e = m.read_table_text(text);
    m.check_site_energy_tables();
    if (holes) m.site_energy_text('h');
    if (electrons) m.site_energy_text('e');
  });
}

Outcome neighbor_file(const uint8_t* data, size_t size) {
  const Model& proto = prepared_model();
  static const bool fixtures = (write_fixtures(), true);
  (void)fixtures;
  write_file("neighbor.dat", data, size);
  return guarded([&] {
    Model m = proto;
    m.build_neighbor_list(true, true);
  });
}

}  // namespace fuzz_targets
