// The transport model object and the preparation of its molecular data: charge type, the
// checks of the per-molecule settings, and the masses, centres of mass and HOMO indices of the
// molecular-data stage (molecular_data.h).
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string>

#include "transport.h"
#include "util.h"

namespace {

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

}  // namespace

Transport::Transport() {
  get_workdir(workdir);
  set_job_scripts_workdir(workdir);
}

Transport::~Transport() { release_memories(); }

void Transport::release_memories() {
  mol_mass.clear();
  x_com.clear();
  x_com_cart.clear();
  homo.clear();
  nei_count.clear();
  nei_mol.clear();
  nei_a.clear();
  nei_b.clear();
  nei_c.clear();
  nei_com.clear();
  nei_disp.clear();
  mol_id.clear();
  mol_id_copy.clear();
  mol_index_a.clear();
  mol_index_b.clear();
  nei_id.clear();
  nei_id_companion.clear();
  later = LaterStageStorage();
  com_ready = homo_ready = neighbor_built = ids_ready = false;
}

void Transport::get_workdir(std::string& dir) { ::get_workdir(dir); }

void Transport::post_data_read_treatment(bool verbose) {
  nmols_uc = nmols;
  charge_type = charge_carrier();
  nsnap = static_cast<int>(tsimu / tsnap + 0.5);

  natoms_total = 0;
  for (int i = 0; i < nmols_uc; ++i) natoms_total += mol_natoms[i];

  if (compute_engine != 1) RE_use_neutral_chk = false;
  set_data_mol_output_level(data_mol_output_level);

  if (lower(qc_basis).find("zindos") != std::string::npos && use_moo) set_job_moo_flag(true);
  if (lower(qc_basis_re).find("zindos") != std::string::npos) {
    qc_basis_re = "b3lyp STO-3g";
    if (verbose) std::printf("\nINFO: QC_basis_re is adjusted to '%s'\n\n", qc_basis_re.c_str());
  }

  if (reorg_outer_code == 2 && static_cast<int>(reorg_outer_radii.size()) < nmols_uc)
    fatal_error("transport", transport_lines::SPHERE_RADII, FatalStream::Err,
                format_string("reorg_outer: Number of radiuses (%d) is LESS than number of "
                              "molecules (%d)\n",
                              static_cast<int>(reorg_outer_radii.size()), nmols_uc),
                1);
  if (reorg_outer_code == 3 && (qc_exe.find("g09") != std::string::npos ||
                                qc_exe.find("g16") != std::string::npos)) {
    const bool has_mk = qc_basis_re.find("MK") != std::string::npos;
    const bool has_iops = qc_basis_re.find("6/33=2") != std::string::npos &&
                          qc_basis_re.find("6/42=6") != std::string::npos;
    if (!has_mk || !has_iops) {
      const std::string append = " Pop=MK IOp(6/33=2,6/42=6,7/33=1)";
      qc_basis_re += append;
      if (verbose) std::printf("INFO: append basis_re with%s\n", append.c_str());
    }
  }

  calc_x_com();
  calc_homo();
  parse_scheduling_type();

  if (!homo_adjustment.empty() && static_cast<int>(homo_adjustment.size()) != nmols_uc)
    fatal_error("transport", transport_lines::HOMO_ADJUSTMENT, FatalStream::Err,
                format_string("homo_adjustment: Number of input parameters (%d) is NOT equal "
                              "to nmols_uc (%d)\n",
                              static_cast<int>(homo_adjustment.size()), nmols_uc),
                1);
  if (!lumo_adjustment.empty() && static_cast<int>(lumo_adjustment.size()) != nmols_uc)
    fatal_error("transport", transport_lines::LUMO_ADJUSTMENT, FatalStream::Err,
                format_string("lumo_adjustment: Number of input parameters (%d) is NOT equal "
                              "to nmols_uc (%d)\n",
                              static_cast<int>(lumo_adjustment.size()), nmols_uc),
                1);

  if (compute_engine == 1) qc_out_ext = "log";
  if (compute_engine == 2 || compute_engine == 3) qc_out_ext = "out";
  data_ready = true;
}

CellMolecules Transport::cell_molecules() const {
  return CellMolecules{nmols_uc, mol_natoms, mol_atypes, mol_x_s};
}

void Transport::calc_x_com() {
  const MolecularCentres centres = molecular_centres(cell_molecules(), lattice());
  mol_mass = centres.mass;
  x_com.resize(3 * static_cast<size_t>(nmols_uc));
  x_com_cart.resize(3 * static_cast<size_t>(nmols_uc));
  for (int i = 0; i < nmols_uc; ++i)
    for (int c = 0; c < 3; ++c) {
      x_com[3 * i + c] = centres.centre[i][c];
      x_com_cart[3 * i + c] = centres.centre_cart[i][c];
    }
  com_ready = true;
}

void Transport::calc_homo() {
  homo = homo_indices(cell_molecules(), get_job_moo_flag() != 0);
  homo_ready = true;
}

void Transport::allocate_mol_id_indexes_array() {
  mol_id.resize(nmols_uc);
  mol_id_copy.resize(nmols_uc);
  mol_index_a.assign(nmols_uc, 0);
  mol_index_b.assign(nmols_uc, 0);
  nei_id.assign(nmols_uc, {});
  nei_id_companion.assign(nmols_uc, {});
  for (int i = 0; i < nmols_uc; ++i) {
    mol_id[i] = mol_id_copy[i] = i + 1;
    nei_id[i].resize(nei_count[i]);
    nei_id_companion[i].assign(nei_count[i], 0);
    for (int k = 0; k < nei_count[i]; ++k) nei_id[i][k] = k + 1;
  }
  ids_ready = true;
}
