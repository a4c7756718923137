// Transport: the transport model of the molecular crystal. It prepares the molecular data
// (masses, centres of mass, HOMO indices) from the loaded structure and builds, for every
// molecule of the unit cell, the sorted list of neighbouring molecule images.
#pragma once
#include <string>
#include <vector>

#include "kavri_inp.h"

// Error-site line numbers of the transport model.
namespace transport_lines {
constexpr int NEIGHBOR_OPEN = 3546;
constexpr int NEIGHBOR_NMOLS = 3560;
constexpr int NEIGHBOR_NCOL = 3587;
constexpr int NEIGHBOR_VALUE = 3590;
constexpr int NEIGHBOR_MOLECULE = 3592;
constexpr int NNEIMAX_REACHED = 3658;
constexpr int SPHERE_RADII = 9944;
constexpr int HOMO_ADJUSTMENT = 9986;
constexpr int LUMO_ADJUSTMENT = 9997;
}  // namespace transport_lines

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

  void build_neighbor_list(bool read_from_file, bool verbose);
  bool check_if_molecule_within_rcut(int i, int j, const int shift[3], double rcut_squared,
                                     double* dsq) const;
  double found_two_molecules_min_distance(int i, int j, const int shift[3]) const;
  double calc_neighbor_com_rsq(int i, int k, const int shift[3]) const;

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

  static constexpr int NNEIMAX = 300;

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
  std::vector<double> mol_vec3;  // 3 per molecule
  std::vector<double> mol_mat3;  // 9 per molecule
  std::vector<std::vector<int>> pair_int;
  std::vector<std::vector<double>> pair_dbl, pair_vec3, pair_mat3;

 private:
  void search_neighbors(int i, double rc2, std::vector<int>& cand, std::vector<double>& key);
  void read_neighbor_file(bool verbose);
};
