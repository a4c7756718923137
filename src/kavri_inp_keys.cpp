// The keyword table of the "&transport" section: every accepted key with its older spelling,
// the conversion of its value and the setting it fills, in the order keys are tested.
// Also the built-in defaults that every read restores before the environment and the file.
#include <cstdlib>

#include "kavri_inp.h"

// The setting a row converts its value into.
#define FIELD(member) [](KavriInp& k) -> FieldRef { return &k.member; }

const KavriInp::KeywordRow KavriInp::keyword_table[] = {
    // workflow switches of the suite
    {"do_transport_prepare", nullptr, KeyType::Int, FIELD(do_transport_prepare), nullptr},
    {"do_transport_submit_HL_job", nullptr, KeyType::Int, FIELD(do_transport_submit_HL_job),
     nullptr},
    {"do_transport_submit_RE_job", nullptr, KeyType::Int, FIELD(do_transport_submit_RE_job),
     nullptr},
    {"do_transport_get_transferintegral", nullptr, KeyType::Int,
     FIELD(do_transport_get_transferintegral), nullptr},
    {"do_transport_get_re_evc", nullptr, KeyType::Int, FIELD(do_transport_get_re_evc), nullptr},
    {"do_transport_run_MC", nullptr, KeyType::Int, FIELD(do_transport_run_MC), nullptr},
    {"do_transport_get_mob_MC", nullptr, KeyType::Int, FIELD(do_transport_get_mob_MC), nullptr},
    {"do_transport_run_MC_temp", nullptr, KeyType::Int, FIELD(do_transport_run_MC_temp), nullptr},
    {"do_transport_get_mob_MC_temp", nullptr, KeyType::Int, FIELD(do_transport_get_mob_MC_temp),
     nullptr},
    {"do_transport_run_ME", nullptr, KeyType::Int, FIELD(do_transport_run_ME), nullptr},
    {"do_transport_get_mob_ME", nullptr, KeyType::Int, FIELD(do_transport_get_mob_ME), nullptr},
    {"do_transport_run_ME_temp", nullptr, KeyType::Int, FIELD(do_transport_run_ME_temp), nullptr},
    {"do_transport_get_mob_ME_temp", nullptr, KeyType::Int, FIELD(do_transport_get_mob_ME_temp),
     nullptr},
    {"do_transport_gather_kavri_data", nullptr, KeyType::Int, FIELD(do_transport_gather_kavri_data),
     nullptr},

    // quantum-chemistry and batch-job settings
    {"mater_name", nullptr, KeyType::String, FIELD(mater_name), nullptr},
    {"module_kavri", nullptr, KeyType::String, FIELD(module_kavri),
     [](KavriInp& k, const std::string&) { k.module_kavri_flag = true; }},
    {"module_mpich2", nullptr, KeyType::String, FIELD(module_mpich2),
     [](KavriInp& k, const std::string&) { k.module_mpich2_flag = true; }},
    {"module_qc", "module_gaussian", KeyType::String, FIELD(module_qc),
     [](KavriInp& k, const std::string&) { k.module_qc_flag = true; }},
    {"qc_exe", "gaussian_exe", KeyType::String, FIELD(qc_exe), nullptr},
    {"qc_memory", "memory", KeyType::Int, FIELD(qc_memory), nullptr},
    {"qc_nodes", "gaussian_nodes", KeyType::Int, FIELD(qc_nodes), nullptr},
    {"qc_ppn", "gaussian_ppn", KeyType::Int, FIELD(qc_ppn), nullptr},
    {"qc_method", nullptr, KeyType::String, FIELD(qc_method), nullptr},
    // qc_basis also sets the reorganisation basis; a later qc_basis_re line overrides it
    {"qc_basis", "basis_name", KeyType::String, FIELD(qc_basis),
     [](KavriInp& k, const std::string&) { k.qc_basis_re = k.qc_basis; }},
    {"qc_basis_re", "basis_name_re", KeyType::String, FIELD(qc_basis_re), nullptr},
    {"qc_es_opt", nullptr, KeyType::String, FIELD(qc_es_opt), nullptr},
    {"qc_gs_tddft", nullptr, KeyType::String, FIELD(qc_gs_tddft), nullptr},
    {"qc_es_tddft", nullptr, KeyType::String, FIELD(qc_es_tddft), nullptr},
    {"qc_es_mult", nullptr, KeyType::Int, FIELD(qc_es_mult), nullptr},
    {"use_moo", nullptr, KeyType::Bool, FIELD(use_moo), nullptr},
    {"queue_name", nullptr, KeyType::String, FIELD(queue_name), nullptr},
    {"sched_type", "queue_type", KeyType::String, FIELD(sched_type), nullptr},
    {"sched_job_array", nullptr, KeyType::Bool, FIELD(sched_job_array), nullptr},
    {"nodelist", nullptr, KeyType::String, FIELD(nodelist), nullptr},
    {"job_slot_limit", nullptr, KeyType::Int, FIELD(job_slot_limit), nullptr},
    {"walltime", nullptr, KeyType::Special, nullptr,
     [](KavriInp& k, const std::string& v) { k.key_walltime(v); }},
    {"walltime_hour", nullptr, KeyType::Int, FIELD(walltime_hours), nullptr},

    // temperatures, charge carriers and structure
    {"start_temp", nullptr, KeyType::Real, FIELD(start_temp), nullptr},
    {"end_temp", nullptr, KeyType::Real, FIELD(end_temp), nullptr},
    {"delta_temp", nullptr, KeyType::Real, FIELD(delta_temp), nullptr},
    {"chargetype", nullptr, KeyType::String, FIELD(chargetype),
     [](KavriInp& k, const std::string&) { k.check_chargetype(); }},
    {"evc_type", nullptr, KeyType::String, FIELD(evc_type),
     [](KavriInp& k, const std::string&) { k.check_evc_type(); }},
    {"use_evc_dint", nullptr, KeyType::Bool, FIELD(use_evc_dint), nullptr},
    {"vector_a", nullptr, KeyType::Real3, FIELD(cell_vectors[0]), nullptr},
    {"vector_b", nullptr, KeyType::Real3, FIELD(cell_vectors[1]), nullptr},
    {"vector_c", nullptr, KeyType::Real3, FIELD(cell_vectors[2]), nullptr},
    {"lattice_cutoff", "lat_cutoff", KeyType::Real, FIELD(lattice_cutoff), nullptr},
    {"neighbor_scell", "nei_scell", KeyType::Int3, FIELD(neighbor_scell), nullptr},
    {"super_cell", "super-cell", KeyType::Int3, FIELD(super_cell), nullptr},
    {"bond_dis_scale", nullptr, KeyType::Special, nullptr,
     [](KavriInp& k, const std::string& v) {
       k.set_bond_dis_scale(std::strtod(v.c_str(), nullptr));
     }},
    {"HL_unique_ctrl_ratio", nullptr, KeyType::Real, FIELD(HL_unique_ctrl_ratio), nullptr},
    {"read_neighbor_dat", nullptr, KeyType::SetFlag, FIELD(read_neighbor_dat), nullptr},
    {"temp", nullptr, KeyType::Real, FIELD(temp), nullptr},

    // transport simulation
    {"maxt", nullptr, KeyType::Real, FIELD(maxt), nullptr},
    {"ratetype", nullptr, KeyType::Raw, FIELD(ratetype),
     [](KavriInp& k, const std::string&) { k.check_ratetype(); }},
    {"sta", nullptr, KeyType::Int, FIELD(sta), nullptr},
    {"delta_angle", nullptr, KeyType::Real, FIELD(delta_angle), nullptr},
    {"tsimu", nullptr, KeyType::Real, FIELD(tsimu), nullptr},
    {"tsnap", nullptr, KeyType::Real, FIELD(tsnap), nullptr},
    {"tstep", nullptr, KeyType::Real, FIELD(tstep), nullptr},
    {"nsimu", nullptr, KeyType::Int, FIELD(nsimu), nullptr},
    {"iterlimit", nullptr, KeyType::Int, FIELD(iterlimit), nullptr},
    {"nevery_out", nullptr, KeyType::Int, FIELD(nevery_out), nullptr},

    // molecules, energies, output
    {"RE_unique_mol", nullptr, KeyType::Int, FIELD(RE_unique_mol), nullptr},
    {"HL_unique_mol", nullptr, KeyType::Int, FIELD(HL_unique_mol), nullptr},
    {"homo_adjustment", nullptr, KeyType::IntList, FIELD(homo_adjustment), nullptr},
    {"lumo_adjustment", nullptr, KeyType::IntList, FIELD(lumo_adjustment), nullptr},
    {"molecule", nullptr, KeyType::Special, nullptr,
     [](KavriInp& k, const std::string& v) { k.key_molecule(v); }},
    {"crystal", nullptr, KeyType::Special, nullptr,
     [](KavriInp& k, const std::string& v) { k.key_crystal(v); }},
    {"lat_site_energy", nullptr, KeyType::Int, FIELD(lat_site_energy), nullptr},
    {"mob_output_level", nullptr, KeyType::Int, FIELD(mob_output_level), nullptr},
    {"kavri_dat_file", nullptr, KeyType::Raw, FIELD(kavri_dat_file), nullptr},
    {"eigval_output_flag", nullptr, KeyType::Int, FIELD(eigval_output_flag), nullptr},
    // engine 2 (ORCA) points qc_exe at its executable at once; a later qc_exe line wins
    {"compute_engine", nullptr, KeyType::Int, FIELD(compute_engine),
     [](KavriInp& k, const std::string&) {
       if (k.compute_engine == 2) k.qc_exe = "fullpath/orca";
     }},
    {"scratch", nullptr, KeyType::Untrimmed, FIELD(scratch), nullptr},
    {"eckart_mirror", nullptr, KeyType::Int, FIELD(eckart_mirror), nullptr},
    {"app_elec_F", nullptr, KeyType::Real3, FIELD(app_elec_F),
     [](KavriInp& k, const std::string&) {
       if (k.app_elec_F[0] != 0 || k.app_elec_F[1] != 0 || k.app_elec_F[2] != 0)
         k.appE_flag = true;
     }},

    // electrostatics, environment, disorder, ONIOM
    {"reorg_outer", nullptr, KeyType::Special, nullptr,
     [](KavriInp& k, const std::string& v) { k.key_reorg_outer(v); }},
    {"emultipole_induce", nullptr, KeyType::Int, FIELD(emultipole_induce), nullptr},
    {"emultipole_cutoff", nullptr, KeyType::Real, FIELD(emultipole_cutoff), nullptr},
    {"emultipole_aDamp", nullptr, KeyType::Real, FIELD(emultipole_aDamp), nullptr},
    {"emultipole_scale1", nullptr, KeyType::RealList, FIELD(emultipole_scale1), nullptr},
    {"emultipole_wSOR_N", nullptr, KeyType::Real, FIELD(emultipole_wSOR_N), nullptr},
    {"emultipole_wSOR_C", nullptr, KeyType::Real, FIELD(emultipole_wSOR_C), nullptr},
    {"emultipole_maxIter", nullptr, KeyType::Int, FIELD(emultipole_maxIter), nullptr},
    {"emultipole_epsTol", nullptr, KeyType::Real, FIELD(emultipole_epsTol), nullptr},
    {"thinfilm", nullptr, KeyType::Special, nullptr,
     [](KavriInp& k, const std::string& v) { k.key_thinfilm(v); }},
    {"RE_use_neutral_chk", nullptr, KeyType::SetFlag, FIELD(RE_use_neutral_chk), nullptr},
    // true by default and set-only: the file cannot switch it off
    {"RE_calc_lambda_4P", nullptr, KeyType::SetFlag, FIELD(RE_calc_lambda_4P), nullptr},
    {"V_dynamic_disorder", nullptr, KeyType::SetFlag, FIELD(V_dynamic_disorder), nullptr},
    {"HOMOLUMO_dynamic_disorder", nullptr, KeyType::SetFlag, FIELD(HOMOLUMO_dynamic_disorder),
     nullptr},
    {"data_mol_output_level", nullptr, KeyType::Int, FIELD(data_mol_output_level), nullptr},
    {"oniom_output_flag", nullptr, KeyType::Int, FIELD(oniom_output_flag), nullptr},
    {"oniom_nlayers", nullptr, KeyType::Int, FIELD(oniom_nlayers), nullptr},
    {"oniom_com_cutoff", nullptr, KeyType::Real, FIELD(oniom_com_cutoff), nullptr},
};

#undef FIELD

const std::size_t KavriInp::keyword_count = sizeof(keyword_table) / sizeof(keyword_table[0]);

// Built-in defaults restored at the start of every read (the environment and the file come
// after). Settings that only a constructor initialises keep their values across reads.
void KavriInp::set_varables_default() {
  sched_type = "slurm";
  queue_name = "X28Cv4";
  qc_exe = "g16";
  qc_method = "b3lyp";
  qc_basis = "b3lyp 6-31g*";
  qc_basis_re = "b3lyp 6-31g*";
  qc_memory = 8192;
  qc_nodes = 1;
  qc_ppn = 8;

  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) cell_vectors[i][j] = kDefaultCellVectors[i][j];
    super_cell[i] = 5;
    neighbor_scell[i] = 3;
  }

  temp = 300;
  start_temp = 200;
  end_temp = 300;
  delta_temp = 50;
  lattice_cutoff = 4.0;
  delta_angle = 10;
  maxt = 10000;
  sta = 1;
  nsimu = 2000;
  tsimu = 1000;
  tsnap = 5;
  tstep = 1;
  iterlimit = 100;
  nevery_out = 10;
  mob_output_level = 2;
  data_mol_output_level = 2;
  lat_site_energy = 0;
  eckart_mirror = 0;
  mol_file_names.clear();
  ratetype = "quantum";
  chargetype = "a";
  evc_type = "cart";
}
