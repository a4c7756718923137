// KavriInp reader: loads the keyword input file, walks its "&transport" section and its
// quantum-chemistry append blocks, converts every "key = value" line through the keyword
// table, handles the keys with their own syntax, and derives the settings of the whole file.
#include "kavri_inp.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <type_traits>

#include "util.h"
#include "util_error.h"
#include "util_text_reads.h"

namespace {

constexpr const char* kSource = "kavri_inp";
constexpr int kLineBuffer = 1024;  // one read of the file holds at most 1023 characters

[[noreturn]] void fail(int line, const std::string& message, int status) {
  fatal_error(kSource, line, FatalStream::Out, message, status);
}

// Leading number of a text as strtol (base 10) / strtod read it; no digits give 0.
int leading_int(const std::string& s) {
  return static_cast<int>(std::strtol(s.c_str(), nullptr, 10));
}
double leading_real(const std::string& s) { return std::strtod(s.c_str(), nullptr); }

std::string trimmed(std::string s) {
  trim(s);
  return s;
}

// The value of a string key: trimmed, then every single and double quote removed.
std::string unquoted(std::string s) {
  trim(s);
  s.erase(std::remove_if(s.begin(), s.end(), [](char c) { return c == '"' || c == '\''; }),
          s.end());
  return s;
}

void cut_at(std::string& s, char c) {
  const std::size_t pos = s.find(c);
  if (pos != std::string::npos) s.erase(pos);
}

// One line of the "&transport" section. Returns false at the "/" line that ends it.
bool apply_section_line(KavriInp& inp, const std::string& raw) {
  std::string line = trimmed(raw);
  const bool skipped = line.empty() || line[0] == '!' || line[0] == '#';
  cut_at(line, '!');
  cut_at(line, '#');
  if (!line.empty() && line[0] == '/') return false;
  if (skipped) return true;
  const std::size_t eq = line.find('=');
  if (eq == std::string::npos) return true;
  inp.apply_keyword(trimmed(line.substr(0, eq)), line.substr(eq + 1));
  return true;
}

}  // namespace

// Every setting starts from its field initialiser; set_varables_default() runs on each read.
KavriInp::KavriInp() = default;

void KavriInp::load_kavri_inp_file(const char* file_name, bool verbose) {
  if (exists_not_regular(file_name))
    fail(kavri_inp_lines::OPEN,
         std::string("Input file ") + file_name + " is not a regular file\n", -1);
  std::FILE* in = std::fopen(file_name, "r");
  if (!in) {
    fail(kavri_inp_lines::OPEN, std::string("Failed to open input file: ") + file_name + "\n",
         -1);
  }
  std::string text;
  char chunk[4096];
  for (std::size_t n; (n = std::fread(chunk, 1, sizeof chunk, in)) > 0;) text.append(chunk, n);
  std::fclose(in);
  load_kavri_inp_text(text, file_name, verbose);
}

// One entry per read of the 1024-byte line buffer (a physical line longer than 1023
// characters yields several entries); an entry ends at a NUL byte, as a C string would.
void KavriInp::load_kavri_inp_text(std::string_view text, const char* file_name,
                                   bool /*verbose*/) {
  lines.clear();
  TextReads reads(text);
  char buffer[kLineBuffer];
  while (reads.gets(buffer, sizeof buffer)) lines.emplace_back(buffer);
  input_file_name = file_name;
}

int KavriInp::read_kavri_inp(const char* file_name, bool verbose) {
  set_varables_default();
  get_environment_variables();
  load_kavri_inp_file(file_name, verbose);
  return read_loaded_lines(file_name, verbose);
}

int KavriInp::read_kavri_inp_text(std::string_view text, const char* file_name, bool verbose) {
  set_varables_default();
  get_environment_variables();
  load_kavri_inp_text(text, file_name, verbose);
  return read_loaded_lines(file_name, verbose);
}

int KavriInp::read_loaded_lines(const char* file_name, bool verbose) {
  if (verbose) std::printf("Reading config file \"%s\"... \n", file_name);
  reading_verbose = verbose;
  keys_given.clear();

  for (int i = 0; i < nlines(); ++i) {
    std::string line = trimmed(lines[i]);
    if (line.empty() || line[0] == '!' || line[0] == '#') continue;
    // Only the comment is cut; the marker is not trimmed again, so "&transport ! x" is no marker.
    cut_at(line, '!');
    if (iequals(line, "&transport")) {
      for (++i; i < nlines(); ++i) {
        if (!apply_section_line(*this, lines[i])) break;
      }
    } else if (iequals(line, "&gaussian.append") || iequals(line, "&qc_inp_append")) {
      // Raw lines, newline included, up to a line that starts with "/" in its first column.
      for (++i; i < nlines() && lines[i].c_str()[0] != '/'; ++i) qc_inp_append += lines[i];
    }
  }

  finish_reading();
  return 1;
}

void KavriInp::apply_keyword(const std::string& key, const std::string& raw_value) {
  const KeywordRow* row = find_keyword(key);
  if (!row) {
    fail(kavri_inp_lines::UNKNOWN_KEY,
         "\nUnknown parameter \"" + key + "\" in file kavri.inp!!!\n\n", -1);
  }
  keys_given.emplace_back(row->key);
  store_value(*row, raw_value);
  if (row->action) row->action(*this, raw_value);
}

bool KavriInp::key_given(const std::string& key) const {
  const KeywordRow* row = find_keyword(key);
  return row && std::find(keys_given.begin(), keys_given.end(), row->key) != keys_given.end();
}

const KavriInp::KeywordRow* KavriInp::find_keyword(const std::string& key) {
  for (std::size_t i = 0; i < keyword_count; ++i) {
    const KeywordRow& row = keyword_table[i];
    if (iequals(key, row.key) || (row.alias && iequals(key, row.alias))) return &row;
  }
  return nullptr;
}

// The rows hand out their field for writing; the view only reads through it.
template <class T>
std::optional<T> KavriInp::setting(const std::string& key) const {
  const KeywordRow* row = find_keyword(key);
  if (!row || !row->field) return std::nullopt;
  const FieldRef field = row->field(const_cast<KavriInp&>(*this));
  return std::visit(
      [](auto* p) -> std::optional<T> {
        using F = std::remove_pointer_t<decltype(p)>;
        if constexpr (std::is_same_v<F, T>) {
          return *p;
        } else if constexpr (std::is_array_v<F>) {
          using E = std::remove_extent_t<F>;
          if constexpr (std::is_same_v<T, std::array<E, 3>>) return T{(*p)[0], (*p)[1], (*p)[2]};
        }
        return std::nullopt;
      },
      field);
}

template std::optional<int> KavriInp::setting(const std::string&) const;
template std::optional<double> KavriInp::setting(const std::string&) const;
template std::optional<bool> KavriInp::setting(const std::string&) const;
template std::optional<std::string> KavriInp::setting(const std::string&) const;
template std::optional<std::array<int, 3>> KavriInp::setting(const std::string&) const;
template std::optional<std::array<double, 3>> KavriInp::setting(const std::string&) const;
template std::optional<std::vector<int>> KavriInp::setting(const std::string&) const;
template std::optional<std::vector<double>> KavriInp::setting(const std::string&) const;

void KavriInp::store_value(const KeywordRow& row, const std::string& raw_value) {
  if (!row.field) return;
  const FieldRef field = row.field(*this);
  const std::string value = trimmed(raw_value);
  std::vector<std::string> words;
  switch (row.type) {
    case KeyType::Int:
      *std::get<int*>(field) = leading_int(value);
      break;
    case KeyType::Real:
      *std::get<double*>(field) = leading_real(value);
      break;
    case KeyType::Bool:
      *std::get<bool*>(field) = leading_int(value) != 0;
      break;
    case KeyType::SetFlag:
      if (leading_int(value) != 0) *std::get<bool*>(field) = true;
      break;
    case KeyType::String:
      *std::get<std::string*>(field) = unquoted(value);
      break;
    case KeyType::Raw:
      *std::get<std::string*>(field) = value;
      break;
    case KeyType::Untrimmed:
      *std::get<std::string*>(field) = raw_value;
      break;
    case KeyType::Int3: {
      int* v = *std::get<int(*)[3]>(field);
      std::sscanf(value.c_str(), "%d%d%d", &v[0], &v[1], &v[2]);
      break;
    }
    case KeyType::Real3: {
      double* v = *std::get<double(*)[3]>(field);
      std::sscanf(value.c_str(), "%lf%lf%lf", &v[0], &v[1], &v[2]);
      break;
    }
    case KeyType::IntList:
      tokenize(words, value.c_str(), " \t");
      for (const std::string& w : words)
        std::get<std::vector<int>*>(field)->push_back(leading_int(w));
      break;
    case KeyType::RealList:
      tokenize(words, value.c_str(), " \t");
      for (const std::string& w : words)
        std::get<std::vector<double>*>(field)->push_back(leading_real(w));
      break;
    case KeyType::Special:
      break;
  }
}

// ---------------------------------------------------------------- keys with their own syntax

// crystal = <cif file>: the crystal is loaded at once, with the bond scale in force now.
void KavriInp::key_crystal(const std::string& value) {
  const std::string file = trimmed(value);
  read_data_cif(file.c_str(), reading_verbose);
  struct_source = 2;
}

void KavriInp::load_crystal_text(std::string_view text, const std::string& name, bool verbose) {
  read_data_cif_text(text, name, verbose);
  struct_source = 2;
}

// molecule = <n> <file_1> ... <file_n>: words separated by runs of blanks (tabs do not count).
// The count is checked against the words present before anything is stored.
void KavriInp::key_molecule(const std::string& value) {
  std::vector<std::string> words;
  tokenize(words, trimmed(value).c_str(), " ");
  const int n = words.empty() ? 0 : leading_int(words[0]);
  const std::size_t found = words.empty() ? 0 : words.size() - 1;
  if (n < 0 || found < static_cast<std::size_t>(n)) {
    fail(kavri_inp_lines::MOLECULE_FILES,
         "\nThe molecule key in file kavri.inp expects " + std::to_string(n) +
             " MOL file names but names " + std::to_string(found) + "!!!\n\n",
         -1);
  }
  mol_file_names.clear();
  for (int k = 1; k <= n; ++k) mol_file_names.push_back(words[k]);
  struct_source = 1;
}

// walltime = <seconds> or <hh:mm:ss>; the days are derived after the read for SLURM.
void KavriInp::key_walltime(const std::string& value) {
  std::vector<std::string> parts;
  tokenize(parts, unquoted(value).c_str(), ":");
  if (parts.size() == 1) {
    const int s = leading_int(parts[0]);
    walltime_hours = s / 3600;
    walltime_minutes = (s % 3600) / 60;
    walltime_seconds = s % 60;
  } else if (parts.size() == 3) {
    walltime_hours = leading_int(parts[0]);
    walltime_minutes = leading_int(parts[1]);
    walltime_seconds = leading_int(parts[2]);
  } else {
    fail(kavri_inp_lines::WALLTIME,
         "Walltime format incorrect!\nIt should be either in ssssss seconds or in hh:mm:ss\n", 1);
  }
}

// reorg_outer = constant <eV> | spheres <param> <r_1 (A)> ... | dielectric <param> <cut-off (A)>
// Lengths are stored in nanometres. The constant model needs its energy and the dielectric
// model both its numbers; spheres without numbers leave the parameter and the radii as they
// are.
void KavriInp::key_reorg_outer(const std::string& value) {
  std::vector<std::string> words;
  tokenize(words, trimmed(value).c_str(), " ");
  reorg_outer_method = words.empty() ? std::string() : words[0];
  const auto require = [&](std::size_t needed) {
    const std::size_t given = words.size() - 1;
    if (given >= needed) return;
    fail(kavri_inp_lines::REORG_OUTER_NUMBERS,
         "\nThe reorg_outer method \"" + reorg_outer_method + "\" in file kavri.inp expects " +
             std::to_string(needed) + " number" + (needed == 1 ? "" : "s") + " but gives " +
             std::to_string(given) + "!!!\n\n",
         -1);
  };
  if (iequals(reorg_outer_method, "constant")) {
    require(1);
    reorg_outer_const = leading_real(words[1]);
    reorg_outer_code = 1;
  } else if (iequals(reorg_outer_method, "spheres")) {
    if (words.size() > 1) reorg_outer_param = leading_real(words[1]);
    for (std::size_t i = 2; i < words.size(); ++i)
      reorg_outer_radii.push_back(leading_real(words[i]) * 0.1);
    reorg_outer_code = 2;
  } else if (iequals(reorg_outer_method, "dielectric")) {
    require(2);
    reorg_outer_param = leading_real(words[1]);
    reorg_outer_cutoff = leading_real(words[2]) * 0.1;
    reorg_outer_code = 3;
  } else {
    fail(kavri_inp_lines::REORG_OUTER,
         "\nUnknown reorg_outer method \"" + reorg_outer_method + "\" in file kavri.inp!!!\n\n",
         -1);
  }
}

// thinfilm = <dir> <n unit cells>; the direction is tested as unsigned, so negatives fail.
void KavriInp::key_thinfilm(const std::string& value) {
  const std::string v = trimmed(value);
  std::sscanf(v.c_str(), "%d%d", &thinfilm_dir, &thinfilm_ncell);
  thinfilm_flag = true;
  if (static_cast<unsigned>(thinfilm_dir) > 2) {
    fail(kavri_inp_lines::THINFILM, "\nthinfilm dir not in range [0-2]: \"" + v + "\n\n", -1);
  }
}

void KavriInp::check_chargetype() const {
  if (iequals(chargetype, "e") || iequals(chargetype, "h") || iequals(chargetype, "a")) return;
  fail(kavri_inp_lines::CHARGETYPE,
       "The current chargetype in kavri.inp is '" + chargetype +
           "', while the supported chargetype's are: 'e', 'h', 'a'\n",
       1);
}

void KavriInp::check_evc_type() const {
  if (iequals(evc_type, "cart") || iequals(evc_type, "int")) return;
  fail(kavri_inp_lines::EVC_TYPE,
       "The current evc_type in kavri.inp is '" + evc_type +
           "', while the supported evc_type's are: 'cart', 'int'\n",
       1);
}

// Prefix tests: "marcus" in full, but only the five letters "quant" of "quantum".
void KavriInp::check_ratetype() const {
  if (strcasestr_n(ratetype.c_str(), "marcus", 6) || strcasestr_n(ratetype.c_str(), "quantum", 5))
    return;
  fail(kavri_inp_lines::RATETYPE,
       "The current ratetype in kavri.inp is '" + ratetype +
           "', while the supported ratetype's are: marcus, quantum\n",
       1);
}

// ---------------------------------------------------------------- after the read

void KavriInp::finish_reading() {
  // The executable must match the engine (case-sensitive substring); other engines pass.
  struct EngineExe {
    int engine;
    const char* exe_part;
    int line;
  };
  static const EngineExe engine_exes[] = {{1, "g", kavri_inp_lines::ENGINE_GAUSSIAN},
                                          {2, "orca", kavri_inp_lines::ENGINE_ORCA},
                                          {3, "qchem", kavri_inp_lines::ENGINE_QCHEM}};
  for (const EngineExe& e : engine_exes) {
    if (compute_engine == e.engine && qc_exe.find(e.exe_part) == std::string::npos) {
      fail(e.line,
           "Incomptiable settings:\n  The compute_engine = " + std::to_string(compute_engine) +
               ", while qc_exe is set to " + qc_exe + "\n  1 - Gaussian, 2 - ORCA, 3 - QCHEM\n",
           1);
    }
  }

  for (bool& flag : HL_unique_mol_flags) flag = HL_unique_mol != 0;
  RE_unique_mol_flag = RE_unique_mol != 0;

  std::vector<std::string>().swap(lines);

  if (kavri_dat_file.empty()) kavri_dat_file = "kavri-" + ratetype + ".dat";

  // Both scheduler tests are case-sensitive (parse_scheduling_type ignores case).
  if (sched_type == "lsf" && !nodelist.empty())
    std::replace(nodelist.begin(), nodelist.end(), ',', ' ');
  if (sched_type == "slurm") {
    walltime_days = walltime_hours / 24;
    walltime_hours = walltime_hours % 24;
  }

  set_reorg_outer_flag(reorg_outer_code);
  if (oniom_output_flag != 0) data_mol_output_level |= 8;
  input_read = true;
}

// ---------------------------------------------------------------- environment and engine

// Site overrides of the scheduler and quantum-chemistry defaults. A variable that is set,
// even to an empty text, replaces its setting as it is (no trimming, no quote removal).
void KavriInp::get_environment_variables() {
  const auto text = [](const char* name, std::string& field) {
    const char* v = std::getenv(name);
    if (v) field = v;
    return v != nullptr;
  };
  const auto number = [](const char* name, int& field) {
    if (const char* v = std::getenv(name)) field = leading_int(v);
  };
  text("KAVRI_JOB_SCHED", sched_type);
  text("KAVRI_JOB_QUEUE", queue_name);
  text("KAVRI_QC_EXE", qc_exe);
  number("KAVRI_QC_NODES", qc_nodes);
  number("KAVRI_QC_PPN", qc_ppn);
  if (text("KAVRI_MODULE_QC", module_qc)) module_qc_flag = true;
  if (text("KAVRI_MODULE_KAVRI", module_kavri)) module_kavri_flag = true;
  if (text("KAVRI_MODULE_MPICH2", module_mpich2)) module_mpich2_flag = true;
}

void KavriInp::set_compute_engine(int n) {
  compute_engine = n;
  qc_exe = n == 2 ? "fullpath/orca" : n == 3 ? "qchem" : "g16";
}
