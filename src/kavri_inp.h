// KavriInp: the input-file layer of the model object. It reads the keyword file
// ("kavri.inp"), holds every setting of the "&transport" section with its default, applies
// the KAVRI_* environment variables, and loads the crystal named by the `crystal` key.
#pragma once
#include <array>
#include <cctype>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "fileio.h"
#include "job_scripts.h"

// Error-site line numbers of the input-file reader.
namespace kavri_inp_lines {
constexpr int OPEN = 228;
constexpr int WALLTIME = 611;
constexpr int CHARGETYPE = 642;
constexpr int EVC_TYPE = 658;
constexpr int RATETYPE = 738;
constexpr int MOLECULE_FILES = 775;
constexpr int REORG_OUTER = 894;
constexpr int REORG_OUTER_NUMBERS = 899;  // constant without its energy, dielectric short of two
constexpr int THINFILM = 947;
constexpr int UNKNOWN_KEY = 1008;
constexpr int ENGINE_GAUSSIAN = 1075;
constexpr int ENGINE_ORCA = 1087;
constexpr int ENGINE_QCHEM = 1099;
}  // namespace kavri_inp_lines

class KavriInp : public FileIO, public Jobscript {
 public:
  KavriInp();

  int read_kavri_inp(const char* file_name, bool verbose);
  void load_kavri_inp_file(const char* file_name, bool verbose);
  // The same read over the text of an input file; `file_name` is the name it reports. The
  // files the text names (crystal, molecules) are still read from disk.
  int read_kavri_inp_text(std::string_view text, const char* file_name, bool verbose);
  // What the `crystal` key does, over the text of the crystal file (`name` is the name the
  // messages give): the crystal is read, expanded and partitioned, and becomes the structure.
  void load_crystal_text(std::string_view text, const std::string& name, bool verbose);
  void load_kavri_inp_text(std::string_view text, const char* file_name, bool verbose);
  void set_varables_default();
  void get_environment_variables();
  void set_compute_engine(int n);

  // The charge carrier of `chargetype`: its first character in lower case ('h' holes,
  // 'e' electrons, 'a' both; '\0' when empty). Every stage reads the carrier through this.
  char charge_carrier() const {
    return chargetype.empty()
               ? '\0'
               : static_cast<char>(std::tolower(static_cast<unsigned char>(chargetype[0])));
  }
  int get_compute_engine() const { return compute_engine; }
  bool get_appE_flag() const { return appE_flag; }
  bool get_read_neighbor_flag() const { return read_neighbor_dat; }
  bool get_moo_flag() const { return use_moo; }
  bool get_input_read() const { return input_read; }

  // Applies one "key = value" line of the "&transport" section; fatal for an unknown key.
  void apply_keyword(const std::string& key, const std::string& raw_value);
  // Whether the file of the last read set `key` (under its name or its older spelling).
  bool key_given(const std::string& key) const;

  // ---- keyword table of the "&transport" section (rows in kavri_inp_keys.cpp)
  enum class KeyType {
    Int,        // leading integer (strtol, base 10)
    Real,       // leading real (strtod)
    Bool,       // integer read, nonzero -> true, zero -> false
    SetFlag,    // integer read, nonzero -> true, zero leaves the flag as it is
    String,     // trimmed, every single and double quote removed
    Raw,        // trimmed, quotes kept
    Untrimmed,  // the value exactly as it follows the "="
    Int3,       // "%d%d%d", unread components keep their values
    Real3,      // "%lf%lf%lf", unread components keep their values
    IntList,    // blank/tab separated integers appended in order
    RealList,   // blank/tab separated reals appended in order
    Special     // no field; the row's action does the whole conversion
  };
  using FieldRef = std::variant<int*, double*, bool*, std::string*, int (*)[3], double (*)[3],
                                std::vector<int>*, std::vector<double>*>;
  struct KeywordRow {
    const char* key;
    const char* alias;                                    // older spelling, or nullptr
    KeyType type;
    FieldRef (*field)(KavriInp&);                         // nullptr for Special
    void (*action)(KavriInp&, const std::string& value);  // after the conversion, or nullptr
  };
  static const KeywordRow keyword_table[];
  static const std::size_t keyword_count;
  static const KeywordRow* find_keyword(const std::string& key);

  // The current value of the setting that the row of `key` fills, read-only: T is the
  // field's type (std::array for the three-component keys). Empty for an unknown key, a key
  // with its own syntax, or another T.
  template <class T>
  std::optional<T> setting(const std::string& key) const;
  // Settings of the keys with their own syntax.
  const std::vector<double>& get_reorg_outer_radii() const { return reorg_outer_radii; }
  double get_reorg_outer_cutoff() const { return reorg_outer_cutoff; }
  int get_reorg_outer_code() const { return reorg_outer_code; }
  bool get_thinfilm_flag() const { return thinfilm_flag; }
  int get_thinfilm_dir() const { return thinfilm_dir; }
  const std::string& get_qc_inp_append() const { return qc_inp_append; }

 protected:
  void store_value(const KeywordRow& row, const std::string& raw_value);

  // ---- keys with their own handling (kavri_inp.cpp); each takes the untrimmed value
  void key_crystal(const std::string& value);
  void key_molecule(const std::string& value);
  void key_walltime(const std::string& value);
  void key_reorg_outer(const std::string& value);
  void key_thinfilm(const std::string& value);
  void check_chargetype() const;
  void check_evc_type() const;
  void check_ratetype() const;
  void finish_reading();  // checks and derived settings once the file has been read
  bool reading_verbose = false;  // the verbose flag of the read in progress (for `crystal`)

  // raw file
  std::vector<std::string> lines;
  int nlines() const { return static_cast<int>(lines.size()); }
  // The scan of the loaded lines: sections, append blocks, then the settings derived after it.
  int read_loaded_lines(const char* file_name, bool verbose);
  std::string input_file_name;
  std::vector<std::string> keys_given;  // table names of the keys the file set, in file order
  std::string qc_inp_append;
  bool input_read = false;

  // workflow switches of the suite
  int do_transport_prepare = 1;
  int do_transport_submit_HL_job = 1;
  int do_transport_submit_RE_job = 1;
  int do_transport_get_transferintegral = 1;
  int do_transport_get_re_evc = 1;
  int do_transport_run_MC = 1;
  int do_transport_get_mob_MC = 1;
  int do_transport_run_MC_temp = 0;
  int do_transport_get_mob_MC_temp = 0;
  int do_transport_run_ME = 0;
  int do_transport_get_mob_ME = 0;
  int do_transport_run_ME_temp = 0;
  int do_transport_get_mob_ME_temp = 0;
  int do_transport_gather_kavri_data = 1;

  // quantum chemistry
  int qc_memory = 8192;
  std::string qc_method = "b3lyp";
  std::string qc_basis = "b3lyp 6-31g*";
  std::string qc_basis_re = "b3lyp 6-31g*";
  std::string qc_es_opt = "TD";
  std::string qc_gs_tddft = "TD";
  std::string qc_es_tddft = "TD(triplet)";
  int qc_es_mult = 1;
  bool use_moo = false;

  // temperatures, carriers, structure
  double start_temp = 200, end_temp = 300, delta_temp = 50;
  std::string chargetype = "a";
  std::string evc_type = "cart";
  bool use_evc_dint = false;
  double lattice_cutoff = 4.0;
  int neighbor_scell[3] = {3, 3, 3};
  double HL_unique_ctrl_ratio = 0.05;
  bool read_neighbor_dat = false;
  double temp = 300;

  // transport simulation
  double maxt = 10000;
  std::string ratetype = "quantum";
  int sta = 1;
  double delta_angle = 10;
  double tsimu = 1000, tsnap = 5, tstep = 1;
  int nsimu = 2000, iterlimit = 100, nevery_out = 10;

  // molecules, energies, output
  int RE_unique_mol = 1;
  int HL_unique_mol = 1;
  bool HL_unique_mol_flags[3] = {true, true, true};  // structure-layer HOMO/LUMO/HL flags
  bool RE_unique_mol_flag = true;
  std::vector<int> homo_adjustment;
  std::vector<int> lumo_adjustment;
  int lat_site_energy = 0;
  int mob_output_level = 2;
  std::string kavri_dat_file;
  int eigval_output_flag = 0;
  int compute_engine = 1;
  int eckart_mirror = 0;
  double app_elec_F[3] = {0, 0, 0};
  bool appE_flag = false;

  // electrostatics, environment, disorder, ONIOM
  std::string reorg_outer_method;
  int reorg_outer_code = 0;            // 0 none, 1 constant, 2 spheres, 3 dielectric
  double reorg_outer_const = 0;        // constant outer reorganisation energy, eV
  double reorg_outer_param = 0;        // environment parameter (spheres and dielectric)
  std::vector<double> reorg_outer_radii;  // sphere radii, nm
  double reorg_outer_cutoff = 0;       // dielectric cut-off, nm
  int emultipole_induce = 1;
  double emultipole_cutoff = 4.0;
  double emultipole_aDamp = 0.39;
  std::vector<double> emultipole_scale1;
  double emultipole_wSOR_N = 0.75, emultipole_wSOR_C = 0.75;
  int emultipole_maxIter = 512;
  double emultipole_epsTol = 0.001;
  bool thinfilm_flag = false;
  int thinfilm_dir = 0;
  int thinfilm_ncell = 0;
  bool RE_use_neutral_chk = false;
  bool RE_calc_lambda_4P = true;
  bool V_dynamic_disorder = false;
  bool HOMOLUMO_dynamic_disorder = false;
  int data_mol_output_level = 2;
  int oniom_output_flag = 0;
  int oniom_nlayers = 2;
  double oniom_com_cutoff = 50.0;
};
