// FileIO: the structure-file layer of the model object. It holds the element table lookups,
// the cell geometry, the CIF and MOL readers, the symmetry expansion to P1, the bond search
// that cuts a cell into molecules, and the loading driver that yields whole molecules.
#pragma once
#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "cif_scan.h"
#include "lattice.h"

// Values of the MOL read (mol_read.h), the bond partition (bond_partition.h) and whole
// molecules (whole_molecules.h), which the readers and the loading driver run.
struct MolTarget;
struct MolRead;
class V3000Reader;
struct Partition;
struct MoleculeSites;
struct Molecule;

// One record of the element table.
struct Element {
  char symbol[3];
  double mass;
  int radius_a;  // radius code A, 1/250 angstrom
  int radius_b;  // radius code B, 1/250 angstrom
  int colour;
  int zero;
  const char* name;
};
constexpr int NELEMENTS = 104;

// Reduces a fractional displacement component into [-0.5, 0.5] by whole cells.
double reduce_to_half_cell(double d);
extern const Element Elements_m[NELEMENTS];
extern const double nw_elem_radius_m[106];

// Error-site line numbers of the structure layer.
namespace fileio_lines {
constexpr int CIF_OPEN = 3180;
constexpr int CIF_ATOM_COLUMNS = 3279;
constexpr int CIF_BOND_COLUMNS = 3530;
constexpr int TOO_MANY_ATOMS = 3695;
constexpr int MOL_OPEN = 4026;
constexpr int MOL_COUNTS_SHORT = 4047;
constexpr int MOL_ATOM_LISTS = 4077;
constexpr int MOL_ATOMS_SHORT = 4106;
constexpr int MOL_ATOM_SYMBOL = 4113;  // a V2000 atom line without an element symbol
constexpr int NO_MOLECULES = 4627;
constexpr int CIF_NO_KNOWN_ELEMENT = 4641;  // a crystal molecule of unknown elements only
constexpr int MOL_NO_KNOWN_ELEMENT = 4652;  // a MOL molecule of unknown elements only
constexpr int CELLVEC_OPEN = 4711;
}  // namespace fileio_lines

class FileIO {
 public:
  FileIO();

  // ---- element table (no object state)
  int find_element_index_from_name(const char* symbol) const;
  double find_element_radius_from_name(const char* symbol) const;
  void find_element_name_from_index(int index, char* out) const;
  double find_element_mass_from_index(int index) const;
  double find_element_radius_from_index(int index) const;
  double find_element_radius_from_index_nw(int index) const;
  void find_element_name_from_mass(double mass, char* out) const;

  // ---- cell geometry
  void convert_cell6_to_latt3x3(const double cell6[6], double latt[3][3]);
  void convert_latt3x3_to_cell6(double latt[3][3], double cell6[6]);
  void set_cell_lattice(const double abc[3], double alpha, double beta, double gamma);
  const double* get_cell_latt() const { return cell_latt; }
  // The current cell as a value: parameters, matrix and inverse.
  Lattice lattice() const;
  void get_cif_lattice_vectors(double a[3], double b[3], double c[3]) const;
  void coord_f2c(double& x, double& y, double& z) const;
  void coord_f2c(const double in[3], double out[3]) const;
  void coord_c2f(double& x, double& y, double& z) const;
  void coord_c2f(const double in[3], double out[3]) const;
  // Lengths of the rows of the inverse lattice: a Cartesian distance r spans at most
  // r * row[k] cells along axis k.
  void inverse_row_lengths(double row[3]) const;
  // Fractional reach per axis of the bond-search grid over `atoms`: any bonded pair (bond
  // length below reach_cart) lies within it, round-off included.
  void bond_grid_reach(double reach_cart, const std::vector<double>& frac,
                       const std::vector<int>& atoms, double reach[3]) const;
  static void PBC_scaled_x_wrap(double f[3]);
  static void PBC_scaled_disp_wrap(double d[3]);

  // ---- CIF reader and symmetry expansion
  void read_data_cif(const char* file_name, bool verbose);
  // The same read over the text of a crystal file; `file_name` is the name it reports.
  void read_data_cif_text(std::string_view text, const std::string& file_name, bool verbose);
  void ParseTransformString(const std::string& op, double R[3][3], double t[3]) const;
  void make_spacegroup_P1(int fractional_flag);
  // Marks the candidates that coincide with an earlier kept one (mark_overlaps in
  // p1_expansion.h, printing the pairs when the debug flag is set).
  int mark_overlapped_atoms(const std::vector<double>& frac, std::vector<char>& removed) const;

  // ---- MOL reader
  void read_data_mol(const char* file_name, int slot, bool verbose);
  // The same read over an open stream or the text of a MOL file; `name` is the name the
  // messages report.
  void read_data_mol(std::istream& in, const std::string& name, int slot, bool verbose);
  void read_data_mol_text(std::string_view text, const std::string& name, int slot, bool verbose);
  bool ReadV3000Block(std::istream& in, int slot, bool verbose);
  bool ReadV3000Line(std::istream& in, std::vector<std::string>& tokens);
  bool ReadAtomBlock(std::istream& in);
  bool ReadBondBlock(std::istream& in);
  bool ReadRGroupBlock(std::istream& in);
  bool ReadUnimplementedBlock(std::istream& in, const std::string& block_name);
  bool AddBond(int, int, int, int) { return true; }
  void SetFormalCharge(int, int) {}
  void SetSpinMultiplicity(int, int) {}
  void SetIsotope(int, double) {}

  // ---- bonds and whole molecules
  void find_bond_atom(int natoms, std::vector<int>& unassigned, int nlist,
                      const std::vector<int>& list, int& atom, int& partner,
                      double& distance) const;
  void find_bond_atom_one(int natoms, double* fx, const double* radii,
                          std::vector<int>& unassigned, int nlist, const std::vector<int>& list,
                          int& atom, int& partner, double& distance) const;
  void find_bond_atom_cart(int natoms, std::vector<int>& unassigned, int nlist,
                           const std::vector<int>& list, int& atom, int& partner,
                           double& distance) const;
  void separate_cif_molecules(bool verbose);
  void make_whole_molecule(int mol_number, int natoms, const int* types, double* fx,
                           bool verbose);
  // The same result from the cell partition's record of the molecule: `joined[k]` is the
  // member (counted in the molecule, below k) through which atom k joined it, and
  // `partition_radii` the atoms' bond radii in the partition. Where the partition's bonds
  // cover every bond of the whole-molecule test, the growth places the atoms in their order,
  // each next to the member it joined through (one bond test per atom); elsewhere it grows
  // the molecule as make_whole_molecule does. Returns whether the joins were followed.
  bool make_whole_molecule_joined(int mol_number, int natoms, const int* types, double* fx,
                                  const int* joined, const double* partition_radii,
                                  bool verbose);

  // ---- loading driver
  void read_crystal_strcuture_files(bool verbose, bool write_cell_vectors);
  // Whether the loading keeps what only it and the structure reports read: the cell's atom
  // arrays (x, x_s, atypes), the partition's joins and radii and the molecules' Cartesian
  // positions. A run that goes on from the molecules alone turns it off before the loading,
  // which then drops each as soon as it has no further use; the atom rows read from the
  // crystal file stay, so a later crystal read still continues them.
  void set_structure_arrays_kept(bool keep) { keep_structure_arrays = keep; }

  // ---- accessors
  int get_cif_natoms() const { return natoms_cif; }
  const int* get_cif_atypes() const { return atypes.data(); }
  const double* get_cif_x() const { return x.data(); }
  const double* get_cif_x_s() const { return x_s.data(); }
  std::string get_cif_atom_symbol(int i) const;
  const std::string& get_identifier() const { return identifier; }
  void set_bond_dis_scale(double s) { bond_dis_scale = s; }
  double get_bond_dis_scale() const { return bond_dis_scale; }
  void set_data_mol_output_level(int level) { data_mol_output_level_io = level; }
  int get_data_mol_output_level() const { return data_mol_output_level_io; }
  const std::string& get_data_dir() const { return data_dir; }
  void set_data_dir(const std::string& dir) { data_dir = dir; }
  const std::vector<int>& get_cif_mol_sizes() const { return cif_mol_natoms; }
  const std::vector<int>& get_cif_mol_atoms() const { return cif_mol_atoms; }
  int get_nmols() const { return nmols; }
  void set_debug(bool on) { debug = on; }

 protected:
  // cell geometry
  double cell_latt[6] = {0, 0, 0, 0, 0, 0};  // a, b, c, alpha, beta, gamma
  double latt[3][3] = {};
  double latt_inv[3][3] = {};

  // CIF content
  int cif_loaded = 0;
  int spacegroup_number = 0;
  std::string identifier;
  std::string chemical_name;
  std::string spacegroup_name;
  std::vector<std::string> symm_ops;
  CifAtoms cif_atoms;  // the atom-site rows of the asymmetric unit as read
  CifBonds cif_bonds;  // the bond-table rows as read
  std::string cif_file;
  int natoms_cif = 0;
  std::vector<int> atypes;      // element index per atom of the cell
  std::vector<double> x_s;      // fractional coordinates, 3 per atom
  std::vector<double> x;        // Cartesian coordinates, 3 per atom
  std::vector<double> radius;   // bond radius per atom (only during the read)
  bool debug = false;

  // bond detection and the cell partition
  double bond_dis_scale = 1.15;
  std::vector<int> cif_mol_natoms;  // atoms per molecule, in the order found
  std::vector<int> cif_mol_atoms;   // the molecules' atoms, one molecule after the other
  // Beside cif_mol_atoms (fast partition only): the member of its molecule, counted in the
  // molecule, through which each atom joined it (-1 for the first), and its bond radius; and
  // the bond scale the partition used.
  std::vector<int> cif_mol_joined;
  std::vector<double> cif_mol_radius;
  double cif_partition_scale = 0.0;
  bool keep_structure_arrays = true;

  // structure source and per-molecule model of one unit cell
  int struct_source = 0;  // 1 MOL files, 2 CIF crystal, other: nothing named
  std::vector<std::string> mol_file_names;  // key molecule
  // Cell vectors (rows a, b, c) of MOL files when the input file names none.
  static constexpr double kDefaultCellVectors[3][3] = {
      {8.098, 0, 0}, {0, 5.953, 0}, {-4.888095, 0, 7.138882}};
  double cell_vectors[3][3] = {{kDefaultCellVectors[0][0], kDefaultCellVectors[0][1],
                                kDefaultCellVectors[0][2]},
                               {kDefaultCellVectors[1][0], kDefaultCellVectors[1][1],
                                kDefaultCellVectors[1][2]},
                               {kDefaultCellVectors[2][0], kDefaultCellVectors[2][1],
                                kDefaultCellVectors[2][2]}};
  int super_cell[3] = {5, 5, 5};
  std::string data_dir = "data";
  int data_mol_output_level_io = 2;

  int nmols = 0;
  std::vector<int> mol_ids;
  std::vector<std::string> mol_files;
  std::vector<int> mol_natoms;
  std::vector<std::vector<int>> mol_atypes;
  std::vector<std::vector<double>> mol_x;    // Cartesian, 3 per atom
  std::vector<std::vector<double>> mol_x_s;  // fractional, 3 per atom
  std::vector<double> mol_mass_io;           // allocated for the transport model
  std::vector<double> mol_vec1, mol_vec2;    // 3 per molecule, allocated for the transport model
  double cell_lengths[3] = {0, 0, 0};
  double super_cell_vectors[3][3] = {};

  // V3000 reading state
  std::map<int, int> v3000_atom_index;  // atom id -> position in the atom block (from 1)
  std::vector<std::string> v3000_last_tokens;
  int v3000_slot = -1;

 private:
  // The two halves of a crystal read: the scan of the file's text on top of what an earlier
  // read left, then the fields, the report, the atom arrays, the expansion and the partition.
  CifScan scan_cif_text(std::string_view text, const std::string& file_name, bool verbose);
  void load_cif_scan(CifScan scan, const std::string& file_name, bool verbose);
  // MOL reader: whether a slot index is valid for all four molecule arrays; where a read into
  // `slot` stores, as it stands; what a read stored, put into the slot, the structure arrays
  // and the V3000 reading state; one V3000 reader step from that state, its result stored.
  bool mol_slot_ok(int slot) const;
  MolTarget mol_target(int slot) const;
  void store_mol_read(const MolRead& read, int slot);
  template <class Step>
  bool v3000_step(int slot, Step step);
  // Bonds and whole molecules: the partition into its fields (printed when verbose); the atoms
  // of one molecule (joins and partition radii may be null); a whole molecule printed and its
  // positions written back to `fx`.
  void store_partition(Partition partition, bool verbose);
  MoleculeSites molecule_sites(int natoms, const int* types, const double* fx, const int* joined,
                               const double* partition_radii) const;
  static void store_whole_molecule(int mol_number, const Molecule& molecule, double* fx,
                                   bool verbose);
};
