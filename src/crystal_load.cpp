// Loading a crystal for kavri_crystal through the utility's own stages: the keyword file (or the
// same keys set from the command line), the structure files, the molecular data and the
// neighbour list, then a copy of what they made as plain values with each pair's closest contact.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "crystal_model.h"
#include "transport.h"
#include "util.h"

namespace {

// The model object of the utility, with read access to what its stages leave behind.
class CrystalLoader : public Transport {
 public:
  // Moves the loaded structure into `m` (the loader is not used afterwards).
  void move_into(CrystalModel& m);
};

// A copy of the keyword file with every bond_dis_scale line replaced by one with `scale`,
// placed first in the "&transport" section, so that the crystal is cut into molecules with it
// wherever the crystal line stands. Returns the copy's path (removed by the caller).
std::string config_with_bond_scale(const std::string& config, const std::string& scale) {
  std::ifstream in(config);
  if (!in) {
    fatal_error("kavri_crystal", crystal_lines::CONFIG_MISSING, FatalStream::Err,
                "Failed to open input file \"" + config + "\"\n", -1);
  }
  char path[] = "/tmp/kavri_crystal_XXXXXX";
  const int fd = mkstemp(path);
  if (fd < 0) {
    fatal_error("kavri_crystal", crystal_lines::TEMP_FILE, FatalStream::Err,
                std::string("Failed to open output file ") + path + "\n", -1);
  }
  close(fd);
  std::ofstream out(path);
  for (std::string line; std::getline(in, line);) {
    std::string key = line.substr(0, line.find('='));
    trim(key);
    if (line.find('=') != std::string::npos && iequals(key, "bond_dis_scale")) continue;
    out << line << '\n';
    std::string marker = line;
    if (iequals(trim(marker), "&transport")) out << "bond_dis_scale = " << scale << '\n';
  }
  return path;
}

void CrystalLoader::move_into(CrystalModel& m) {
  m.from_cif = struct_source == 2;
  if (m.from_cif) {
    m.source = cif_file;
  } else {
    for (const std::string& f : mol_file_names) m.source += (m.source.empty() ? "" : " ") + f;
  }
  m.identifier = identifier;
  for (int k = 0; k < 6; ++k) m.cell[k] = cell_latt[k];
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) m.latt[r][c] = latt[r][c];
  m.spacegroup = spacegroup_name;
  m.operations = symm_ops;
  m.atoms_in_file = static_cast<int>(cif_atoms.size());
  m.expanded = m.from_cif && !iequals(spacegroup_name, "P1");
  m.atoms_generated =
      m.expanded ? m.atoms_in_file * static_cast<int>(symm_ops.size()) : m.atoms_in_file;
  m.atoms_in_cell = m.from_cif ? natoms_cif : natoms_total;
  for (const std::string& s : cif_atoms.symbols)
    if (find_element_index_from_name(s.c_str()) < 1) m.unknown_symbols.push_back(s);
  std::sort(m.unknown_symbols.begin(), m.unknown_symbols.end());
  m.unread_coordinates = cif_atoms.unread_coordinates;
  m.cutoff = lattice_cutoff;
  for (int k = 0; k < 3; ++k) m.scell[k] = neighbor_scell[k];
  m.bond_scale = bond_dis_scale;

  m.molecules.resize(nmols_uc);
  for (int i = 0; i < nmols_uc; ++i) {
    CrystalMolecule& mol = m.molecules[i];
    mol.types = std::move(mol_atypes[i]);
    mol.frac = std::move(mol_x_s[i]);
    mol.cart.resize(mol.frac.size());
    for (size_t a = 0; a < mol.types.size(); ++a) coord_f2c(&mol.frac[3 * a], &mol.cart[3 * a]);
    mol.mass = mol_mass[i];
    for (int k = 0; k < 3; ++k) {
      mol.com_frac[k] = x_com[3 * i + k];
      mol.com_cart[k] = x_com_cart[3 * i + k];
    }
    mol.formula = hill_formula(mol.types);
  }
  for (int i = 0; i < nmols_uc; ++i) {
    const CrystalMolecule& mi = m.molecules[i];
    const std::vector<double>& disp = nei_disp[i];
    for (int k = 0; k < nei_count[i]; ++k) {
      NeighbourImage n;
      n.mol = nei_mol[i][k];
      get_nei_shift(i, k, n.shift);
      double d[3];
      coord_f2c(&disp[3 * k], d);
      n.com_distance = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
      // Closest contact over every atom pair, with the image shift in Cartesian form.
      const CrystalMolecule& mj = m.molecules[n.mol];
      const double s[3] = {static_cast<double>(n.shift[0]), static_cast<double>(n.shift[1]),
                           static_cast<double>(n.shift[2])};
      double sc[3];
      coord_f2c(s, sc);
      double best = INFINITY;
      for (size_t p = 0; p < mi.types.size(); ++p) {
        const double* ci = &mi.cart[3 * p];
        for (size_t q = 0; q < mj.types.size(); ++q) {
          const double* cj = &mj.cart[3 * q];
          const double dx = cj[0] + sc[0] - ci[0], dy = cj[1] + sc[1] - ci[1],
                       dz = cj[2] + sc[2] - ci[2];
          const double r2 = dx * dx + dy * dy + dz * dz;
          if (r2 < best) {
            best = r2;
            n.atom_i = static_cast<int>(p);
            n.atom_j = static_cast<int>(q);
          }
        }
      }
      n.contact = std::sqrt(best);
      m.molecules[i].neighbours.push_back(n);
    }
  }
}

}  // namespace

std::string element_symbol(int type) {
  if (type < 1 || type >= NELEMENTS) return "X";
  std::string s = Elements_m[type].symbol;
  if (s.size() > 1 && s[1] == ' ') s.resize(1);
  return s;
}

std::string hill_formula(const std::vector<int>& types) {
  std::map<std::string, int> count;
  for (int t : types) ++count[element_symbol(t)];
  std::string f;
  auto put = [&f](const std::string& sym, int n) {
    f += sym;
    if (n > 1) f += std::to_string(n);
  };
  const bool carbon = count.count("C") != 0;
  if (carbon) {
    put("C", count["C"]);
    if (count.count("H")) put("H", count["H"]);
  }
  for (const auto& [sym, n] : count)
    if (!carbon || (sym != "C" && sym != "H")) put(sym, n);
  return f;
}

CrystalModel load_crystal(const CrystalRequest& request) {
  auto loader = std::make_unique<CrystalLoader>();
  if (!request.config.empty()) {
    if (!file_exists(request.config.c_str())) {
      fatal_error("kavri_crystal", crystal_lines::CONFIG_MISSING, FatalStream::Err,
                  "Input file \"" + request.config + "\" not found\n", -1);
    }
    if (request.bond_scale.empty()) {
      loader->read_kavri_inp(request.config.c_str(), false);
    } else {
      const std::string copy = config_with_bond_scale(request.config, request.bond_scale);
      loader->read_kavri_inp(copy.c_str(), false);
      std::remove(copy.c_str());
    }
  } else {
    loader->set_varables_default();
    if (!request.bond_scale.empty()) loader->apply_keyword("bond_dis_scale", request.bond_scale);
    if (!request.cif.empty()) loader->apply_keyword("crystal", request.cif);
    if (!request.mols.empty()) {
      std::string value = std::to_string(request.mols.size());
      for (const std::string& f : request.mols) value += " " + f;
      loader->apply_keyword("molecule", value);
    }
    if (request.vectors.size() == 9) {
      const char* keys[3] = {"vector_a", "vector_b", "vector_c"};
      for (int v = 0; v < 3; ++v)
        loader->apply_keyword(keys[v], request.vectors[3 * v] + " " +
                                           request.vectors[3 * v + 1] + " " +
                                           request.vectors[3 * v + 2]);
    }
  }
  if (!request.cutoff.empty()) loader->apply_keyword("lattice_cutoff", request.cutoff);
  if (!request.scell.empty()) loader->apply_keyword("neighbor_scell", request.scell);

  loader->read_crystal_strcuture_files(false, false);
  loader->post_data_read_treatment(false);
  loader->build_neighbor_list(false, false);

  CrystalModel model;
  loader->move_into(model);
  return model;
}
