// The fuzzed readers: each entry writes the input where the program looks for it and runs the
// stages a real run would, with fatal errors turned into an exception caught here.
#include "fuzz_targets.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
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
  using FileIO::mol_file_names;
  using FileIO::struct_source;
  using KavriInp::chargetype;
  using KavriInp::reorg_outer_code;
};

template <class F>
void guarded(F f) {
  try {
    f();
  } catch (const FatalEnd&) {
  }
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

// The fixture crystal loaded and prepared once; each input gets a copy.
const Model& prepared_model() {
  static const Model model = [] {
    write_fixtures();
    Model m;
    m.read_data_cif("c.cif", false);
    m.struct_source = 2;
    m.read_crystal_strcuture_files(false, false);
    m.post_data_read_treatment(false);
    return m;
  }();
  return model;
}

bool names_system_path(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  for (const char* p : {"/dev", "/proc", "/sys", "..", "~"})
    if (text.find(p) != std::string::npos) return true;
  return false;
}

}  // namespace

void install_fatal_seam() { set_fatal_handler(throw_fatal); }

void input_file(const uint8_t* data, size_t size) {
  // Inputs that name device or system files would test those files, not the reader.
  if (names_system_path(data, size)) return;
  static const bool fixtures = (write_fixtures(), true);
  (void)fixtures;
  write_file("kavri.inp", data, size);
  guarded([] {
    auto se = std::make_unique<Model>();
    se->read_kavri_inp("kavri.inp", true);
    se->read_crystal_strcuture_files(true, false);
    se->post_data_read_treatment(true);
    se->build_neighbor_list(false, true);
    se->write_site_energies(true);
  });
}

void cif_file(const uint8_t* data, size_t size) {
  write_file("f.cif", data, size);
  guarded([] {
    Model m;
    m.read_data_cif("f.cif", true);
    m.struct_source = 2;
    m.read_crystal_strcuture_files(true, false);
    m.post_data_read_treatment(false);
    m.build_neighbor_list(false, false);
  });
}

void mol_file(const uint8_t* data, size_t size) {
  write_text("m.mol", kMol);
  write_file("f.mol", data, size);
  guarded([] {
    Model m;
    m.mol_file_names = {"f.mol", "m.mol"};
    m.struct_source = 1;
    m.read_crystal_strcuture_files(true, false);
    m.post_data_read_treatment(false);
    m.build_neighbor_list(false, false);
  });
}

void energy_tables(const uint8_t* data, size_t size) {
  const Model& proto = prepared_model();
  // The first byte picks the carrier and the outer model; the rest is every table.
  const char carriers[] = {'h', 'e', 'a', 'H'};
  const int selector = size ? data[0] : 0;
  const std::string text(reinterpret_cast<const char*>(data) + (size ? 1 : 0), size ? size - 1 : 0);
  for (const char* n : {"data/SE_einternal-h.dat", "data/SE_einternal-e.dat",
                        "data/SE_emultipole-h.dat", "data/SE_emultipole-e.dat"})
    write_text(n, text);
  guarded([&] {
    Model m = proto;
    m.chargetype = std::string(1, carriers[selector & 3]);
    m.reorg_outer_code = (selector & 4) ? 3 : 0;
    m.build_neighbor_list(false, false);
    m.write_site_energies(true);
  });
}

void neighbor_file(const uint8_t* data, size_t size) {
  const Model& proto = prepared_model();
  write_file("neighbor.dat", data, size);
  guarded([&] {
    Model m = proto;
    m.build_neighbor_list(true, true);
  });
}

}  // namespace fuzz_targets
