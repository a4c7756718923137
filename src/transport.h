// Transport: the transport model of the molecular crystal. It prepares the molecular data
// (masses, centres of mass, HOMO indices) from the loaded structure and builds, for every
// molecule of the unit cell, the sorted list of neighbouring molecule images; the stages
// themselves are molecular_data.h, neighbor_search.h and neighbor_file.h.
#pragma once
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "kavri_inp.h"
#include "molecular_data.h"
#include "neighbor_file.h"
#include "neighbor_search.h"

// Error-site line numbers of the molecular-data checks (those of the neighbour list are in
// neighbor_search.h and neighbor_file.h).
namespace transport_lines {
constexpr int SPHERE_RADII = 9944;
constexpr int HOMO_ADJUSTMENT = 9986;
constexpr int LUMO_ADJUSTMENT = 9997;
}  // namespace transport_lines

// ==== kinetic Monte Carlo of charge hopping: the hopping engine and its error-site lines
#include "hop_network.h"
// ==== end of kinetic Monte Carlo engine

class Transport : public KavriInp {
 public:
  Transport();
  ~Transport();

  void release_memories();
  void get_workdir(std::string& dir);
  void post_data_read_treatment(bool verbose);
  void calc_x_com();
  void calc_homo();
  void allocate_mol_id_indexes_array();
  // Zeroed per-molecule and per-pair storage of the suite's later stages (a 3-vector and a
  // 3 x 3 matrix per molecule; an integer, a double, a 3-vector and a 3 x 3 matrix per pair),
  // sized by the current neighbour list. The site-energy run never uses it, so building the
  // list leaves it empty and a stage that needs it calls this first.
  void allocate_pair_storage();

  void build_neighbor_list(bool read_from_file, bool verbose);
  bool check_if_molecule_within_rcut(int i, int j, const int shift[3], double rcut_squared,
                                     double* dsq) const;
  double found_two_molecules_min_distance(int i, int j, const int shift[3]) const;
  double calc_neighbor_com_rsq(int i, int k, const int shift[3]) const;

  // ---- the model's values as the stages take them
  // The molecules of the cell, their fractional centres of mass (once computed), and the
  // neighbour search of the settings (cut-off, search range) over them and `centres`.
  CellMolecules cell_molecules() const;
  std::vector<Fractional> centres() const;
  NeighborSearch neighbor_search(const std::vector<Fractional>& centres) const;

  // ---- accessors of the prepared model
  int get_nmols_uc() const { return nmols_uc; }
  int get_natoms_total() const { return natoms_total; }
  char get_charge_type() const { return charge_type; }
  const std::vector<double>& get_mol_mass() const { return mol_mass; }
  const std::vector<double>& get_x_com() const { return x_com; }
  const std::vector<double>& get_x_com_cart() const { return x_com_cart; }
  const std::vector<int>& get_homo() const { return homo; }
  int get_nei_count(int i) const { return nei_count[i]; }
  int get_nei_mol(int i, int k) const { return nei_mol[i][k]; }
  void get_nei_shift(int i, int k, int shift[3]) const;
  const std::vector<double>& get_nei_disp(int i) const { return nei_disp[i]; }
  const std::vector<double>& get_nei_com(int i) const { return nei_com[i]; }
  const std::string& get_qc_out_ext() const { return qc_out_ext; }
  bool is_data_ready() const { return data_ready; }
  bool is_neighbor_built() const { return neighbor_built; }

  static constexpr int NNEIMAX = kNeighborCapacity;

  // ==== kinetic Monte Carlo of charge hopping (transport_kmc.cpp) ====
  // A charge hops over the neighbour network with the rates of "WH.dat"/"WL.dat"; each
  // trajectory is sampled every tsnap ns up to tsimu ns and written as a track file. The
  // operations build the hop network from the neighbour list and the rates read, and run the
  // hopping engine of hop_network.h over it.
  void read_MC_w0();
  void MC_init();
  void MC_simulation_one(int run, const char* dir);
  void MC_simulation_one_thinfilm(int run, const char* dir);
  void MC_run_openMP(const char* dir, int unused, int nruns);
  void MC_run(const char* dir, int unused, int nruns);
  void MC_run_openMP_thinfilm(const char* dir, int unused, int nruns);
  void MC_run_openMP_dyn_disorder(const char* dir, int unused, int nruns);
  // Track of the last trajectory for run number `run` (counted from 1), and the average track.
  void output_track(int run, const char* dir) const;
  void output_track_ave(const char* dir) const;

  // Reproducible streams: with a seed set, the clock-seeded engines start ran2 from a fresh
  // table seeded by (seed, run) and the per-trajectory Mersenne Twisters take (seed, run)
  // instead of the random device. A normal run never sets one.
  void set_MC_seed(std::uint64_t seed);
  void clear_MC_seed();
  // Dynamic-disorder widths: relative spread of the transfer integrals and spread of the
  // site energies (meV).
  void set_MC_dynamic_disorder_widths(double sigma_V, double sigma_E);

  // The hop network of the neighbour list with the rates read by read_MC_w0, and the settings
  // the trajectories of this model run with.
  MCNetwork MC_network() const;
  MCSettings MC_settings(bool cartesian_r2) const;
  // The engine built by MC_init.
  const HopEngine& MC_engine() const { return mc_engine; }

  // The hop that a uniform variate u selects from molecule `mol`, as the engines choose it;
  // the thin-film form also gives the total allowed rate for the displacement D.
  int MC_select_hop(int mol, double u) const;
  int MC_select_hop_thinfilm(int mol, const double D[3], double u, double* ktotal) const;

  using MCSamples = ::MCSamples;
  MCSamples MC_new_samples() const { return MCSamples(mc_nrec); }
  // One trajectory of the static engine (as MC_run_openMP runs it) with generator `gen` into
  // `out`. It only reads the hop tables, so threads can run trajectories at the same time.
  long long MC_trajectory_into(MCGenerator& gen, MCSamples& out) const;
  // The generator of run number `run` (from 1) when a seed is set: (seed, run).
  MCGenerator MC_seeded_generator(int run) const { return mc_seeded_generator(mc_seed, run); }
  // Track file of run `run` and the average track from given samples (its steps ignored).
  void output_track(int run, const char* dir, const MCSamples& s) const;
  void output_track_ave(const char* dir, const MCSamples& ave) const;

  bool is_MC_initialized() const { return mc_initialized; }
  int get_MC_nrec() const { return mc_nrec; }
  int get_MC_max_nhops() const { return mc_max_nhops; }
  int get_MC_nhops(int mol) const { return mc_engine.nhops(mol); }
  double get_MC_rate(int mol, int hop) const { return mc_rates[mol][hop]; }
  double get_MC_residence_time(int mol) const { return mc_engine.residence_time(mol); }
  const std::vector<int>& get_MC_steps() const { return mc_samples.steps; }
  const std::vector<double>& get_MC_time() const { return mc_samples.time; }
  const std::vector<double>& get_MC_pos() const { return mc_samples.pos; }
  const std::vector<double>& get_MC_r2() const { return mc_samples.r2; }
  const std::vector<double>& get_MC_sum_time() const { return mc_sum_time; }
  const std::vector<double>& get_MC_sum_pos() const { return mc_sum_pos; }
  const std::vector<double>& get_MC_sum_r2() const { return mc_sum_r2; }

 protected:
  // ---- kinetic Monte Carlo state
  // nruns trajectories with their own generators, track files and the average track.
  void MC_run_trajectories(const char* dir, int nruns, MCEngine engine);
  // One trajectory on the process-wide ran2 stream into mc_samples, its track and its sums.
  void MC_run_ran2_trajectory(int run, const char* dir, MCEngine engine);
  void MC_add_to_sums();
  void MC_reset_sums();
  void MC_average(int nruns);
  void MC_write_hoprates(const char* name, bool dynamic) const;

  bool mc_initialized = false;
  int mc_max_nhops = 0;
  int mc_nrec = 0;
  double mc_temp = 0.0;
  std::vector<std::vector<double>> mc_rates;  // k_ij per molecule and hop, 1/ns
  HopEngine mc_engine;                        // hop tables of the network, built by MC_init
  // Samples of the current trajectory (mc_nrec + 1 each) and their sums over trajectories.
  MCSamples mc_samples;
  std::vector<double> mc_sum_steps, mc_sum_time, mc_sum_pos, mc_sum_r2;
  bool mc_seeded = false;
  std::uint64_t mc_seed = 0;
  double mc_dd_sigma_V = 0.3;   // relative spread of a transfer integral
  double mc_dd_sigma_E = 25.0;  // spread of a site energy, meV
  // ==== end of kinetic Monte Carlo ====

 protected:
  // molecular data
  int nmols_uc = 0;
  int natoms_total = 0;
  int nsnap = 0;
  std::vector<double> mol_mass;
  std::vector<double> x_com;       // fractional, 3 per molecule
  std::vector<double> x_com_cart;  // Cartesian, 3 per molecule
  bool com_ready = false;
  std::vector<int> homo;
  bool homo_ready = false;
  char charge_type = 'a';
  std::string workdir;
  bool data_ready = false;
  std::string qc_out_ext = "log";

  // neighbour list
  bool print_cell_matrix = false;
  std::vector<int> nei_count;
  std::vector<std::vector<int>> nei_mol, nei_a, nei_b, nei_c;
  std::vector<std::vector<double>> nei_com;   // Cartesian centre of each image, 3 per pair
  std::vector<std::vector<double>> nei_disp;  // fractional centre displacement, 3 per pair
  bool neighbor_built = false;

  // identity arrays and storage for later stages
  std::vector<int> mol_id, mol_id_copy, mol_index_a, mol_index_b;
  std::vector<std::vector<int>> nei_id, nei_id_companion;
  bool ids_ready = false;
  struct LaterStageStorage {
    std::vector<double> mol_vec3;  // 3 per molecule
    std::vector<double> mol_mat3;  // 9 per molecule
    std::vector<std::vector<int>> pair_int;
    std::vector<std::vector<double>> pair_dbl, pair_vec3, pair_mat3;
  };
  LaterStageStorage later;

  // The neighbour search over the model's values with the squared cut-off rc2.
  NeighborSearch neighbor_search(double rc2, const std::vector<Fractional>& centres) const;

 public:
  // Atom-pair count above which the fast contact test uses the atom grid (tests lower it).
  long contact_grid_threshold = 2048;

 private:
  // The list of "neighbor.dat" in the working directory (molecules and shifts only).
  NeighborList read_neighbor_file() const;
  // Moves a built or read list into the neighbour fields.
  void store_neighbor_list(NeighborList list);
};
