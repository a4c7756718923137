// The CIF scanner, the molecule partition and whole molecules, on real crystal files
// (tests/data/crystals, sources in SOURCES.md there) and on small hand-written files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "fileio.h"
#include "test_support.h"
#include "util.h"
#include "util_text_reads.h"

namespace {

class CifProbe : public FileIO {
 public:
  using FileIO::cell_latt;
  using FileIO::cif_mol_atoms;
  using FileIO::cif_mol_natoms;
  using FileIO::identifier;
  using FileIO::latt;
  using FileIO::mol_atypes;
  using FileIO::mol_natoms;
  using FileIO::mol_x;
  using FileIO::mol_x_s;
  using FileIO::nmols;
  using FileIO::spacegroup_name;
  using FileIO::mol_file_names;
  using FileIO::struct_source;
  using FileIO::symm_ops;
  using FileIO::x_s;
};

std::string crystal(const char* name) {
  return std::string(KAVRI_TEST_DATA) + "/crystals/" + name;
}

// Writes `text` to a fresh temporary file and returns its path.
std::string temp_cif(const std::string& text) {
  char name[] = "/tmp/kavri-cif-XXXXXX";
  const int fd = mkstemp(name);
  if (fd >= 0) close(fd);
  std::ofstream(name, std::ios::binary) << text;
  return name;
}

// Loads a CIF file quietly; returns what it printed.
std::string load(CifProbe& io, const std::string& path, bool verbose = false) {
  testing::internal::CaptureStdout();
  io.read_data_cif(path.c_str(), verbose);
  return testing::internal::GetCapturedStdout();
}

const char* kCellHead =
    "data_test\n"
    "_cell_length_a 10.0\n_cell_length_b 10.0\n_cell_length_c 10.0\n"
    "_cell_angle_alpha 90\n_cell_angle_beta 90\n_cell_angle_gamma 90\n";

const char* kAtomLoop =
    "loop_\n_atom_site_label\n_atom_site_type_symbol\n"
    "_atom_site_fract_x\n_atom_site_fract_y\n_atom_site_fract_z\n";

}  // namespace

// Real crystals: atoms after expansion and molecules per cell.
TEST(CifRealFiles, AtomAndMoleculeCounts) {
  struct Case {
    const char* file;
    int natoms;
    std::vector<int> sizes;
  };
  const std::vector<Case> cases = {
      {"anthracene.cif", 48, {24, 24}},                       // CSD ANTCEN24, Z = 2
      {"hexachlorobenzene.cif", 24, {12, 12}},                // CSD HCLBNZ, Z = 2
      {"tipge_pentacene_pbca.cif", 400, {100, 100, 100, 100}},
      {"tipge_pentacene_p-1.cif", 100, {100}},
      {"tribenzylmethanol_crlf.cif", 376, std::vector<int>(8, 47)},
      // The symmetry loop runs straight into "loop_": that text becomes an operation that
      // puts every atom at the origin, where all but one are removed as duplicates.
      {"nitrothiophene_carbaldehyde.cif", 53, {13, 13, 13, 14}},
      // Symmetry loops followed directly by the atom loop's "loop_": no atoms are read.
      {"benzene.cif", 0, {}},
      {"naphthalene_cod2100603.cif", 0, {}},
      {"c22h14_aheyui_p1.cif", 0, {}},
  };
  for (const Case& c : cases) {
    CifProbe io;
    load(io, crystal(c.file));
    EXPECT_EQ(io.get_cif_natoms(), c.natoms) << c.file;
    EXPECT_EQ(io.cif_mol_natoms, c.sizes) << c.file;
  }
}

// After loading, every molecule is whole (each atom bonds to one placed before it with the
// whole-molecule radii) and its centre of mass lies in the home cell.
TEST(CifRealFiles, MoleculesComeOutWhole) {
  for (const char* file : {"anthracene.cif", "hexachlorobenzene.cif", "tipge_pentacene_pbca.cif",
                           "tribenzylmethanol_crlf.cif"}) {
    CifProbe io;
    load(io, crystal(file));
    io.struct_source = 2;
    testing::internal::CaptureStdout();
    io.read_crystal_strcuture_files(false, false);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << file;
    for (int m = 0; m < io.nmols; ++m) {
      const int n = io.mol_natoms[m];
      double mass = 0, com[3] = {0, 0, 0};
      for (int i = 0; i < n; ++i) {
        const double w = io.find_element_mass_from_index(io.mol_atypes[m][i]);
        mass += w;
        for (int k = 0; k < 3; ++k) com[k] += w * io.mol_x_s[m][3 * i + k];
        if (i == 0) continue;
        double best = 1e30;
        for (int j = 0; j < n; ++j) {
          if (j == i) continue;
          double d2 = 0;
          for (int k = 0; k < 3; ++k) {
            const double d = io.mol_x[m][3 * i + k] - io.mol_x[m][3 * j + k];
            d2 += d * d;
          }
          const double r = (io.find_element_radius_from_index(io.mol_atypes[m][i]) +
                            io.find_element_radius_from_index(io.mol_atypes[m][j])) *
                           1.15;
          best = std::min(best, std::sqrt(d2) - r);
        }
        EXPECT_LT(best, 0.0) << file << " molecule " << m + 1 << " atom " << i;
      }
      for (double& v : com) {
        v /= mass;
        EXPECT_GE(v, -1e-7) << file;
        EXPECT_LE(v, 1.0 + 1e-7) << file;
      }
    }
  }
}

TEST(CifScanner, VerboseReportAndTagValues) {
  CifProbe io;
  const std::string text = std::string("DATA_first\n") +
                           "_symmetry_space_group_name_H-M   'P 1'\n"
                           "_cell_length_a 14.4312(12)\n"
                           "_cell_length_b\t7.5\n"   // a tab alone gives an empty value
                           "_cell_length_c ?\n"
                           "_cell_angle_alpha 90\n_cell_angle_beta   95.5(3)\n_cell_angle_gamma 90\n"
                           "_chemical_name_common ' some name '\n" +
                           kAtomLoop + "C1 C 0.1(2) 0.2 0.3\nCl2 CL 0.5 0.5 0.5\n";
  const std::string out = load(io, temp_cif(text), true);
  EXPECT_EQ(io.identifier, "first");
  EXPECT_EQ(io.spacegroup_name, "P 1");  // quotes removed by the expansion, blank kept
  EXPECT_EQ(io.cell_latt[0], 14.4312);
  EXPECT_EQ(io.cell_latt[1], 0.0);
  EXPECT_EQ(io.cell_latt[2], 0.0);
  EXPECT_EQ(io.cell_latt[4], 95.5);
  EXPECT_NE(out.find("  Identifier: first\n  Spacegroup name: 'P 1'\n  Spacegroup operations: \n"
                     "  Cell lattice a = 14.4312\n"),
            std::string::npos);
  EXPECT_NE(out.find("  Cell lattice beta  = 95.5\n"), std::string::npos);
  EXPECT_NE(out.find("  natoms_cif = 2\n  First atom: C1 C 0.1(2) 0.2 0.3\n  ...\n"
                     "  Last  atom: Cl2 CL 0.5 0.5 0.5\n"),
            std::string::npos);
  // 'P 1' is expanded with its (empty) operation list: the cell ends up empty.
  EXPECT_EQ(io.get_cif_natoms(), 0);
}

TEST(CifScanner, SymmetryLoopsIdColumnsQuotesAndIndentedHeaders) {
  CifProbe io;
  const std::string text = std::string(kCellHead) +
                           "loop_\n"
                           "  _space_group_symop_id\n"
                           "  _space_group_symop_operation_xyz\n"
                           " 1 'x, y, z'\n"
                           " 2 -x,y+1/2,-z+1/2\n"
                           " 3\n"  // no blank: the previous operation is repeated
                           "_symmetry_space_group_name_H-M 'P 21/c'\n" +  // ends the loop, still read
                           kAtomLoop + "C1 C 0.1 0.2 0.3\n";
  load(io, temp_cif(text));
  const std::vector<std::string> ops = {"x, y, z", "-x,y+1/2,-z+1/2", "-x,y+1/2,-z+1/2"};
  EXPECT_EQ(io.symm_ops, ops);
  EXPECT_EQ(io.spacegroup_name, "P 21/c");
  EXPECT_EQ(io.get_cif_natoms(), 2);  // the repeated operation's image is a duplicate
  EXPECT_EQ(io.get_cif_atom_symbol(0), "C");
  EXPECT_EQ(io.get_cif_atypes()[1], 6);
}

TEST(CifScanner, AtomLoopEndsTheScan) {
  // Rows end at an empty line; the cell tag after it is never read.
  CifProbe io;
  load(io, temp_cif(std::string("data_x\n_symmetry_space_group_name_H-M P1\n") + kAtomLoop +
                    "C1 C1 0.1 0.2 0.3\nO1 O 0.2 0.2 0.3 extra\n\n_cell_length_a 5\n"));
  EXPECT_EQ(io.cell_latt[0], 0.0);
  EXPECT_EQ(io.get_cif_natoms(), 2);
  EXPECT_EQ(io.get_cif_atypes()[0], -1);  // "C1" is not an element symbol
  EXPECT_EQ(io.get_cif_atypes()[1], 8);

  // An anisotropic loop counts as an atom-site loop without the required columns: skipped.
  CifProbe aniso;
  load(aniso, temp_cif(std::string(kCellHead) +
                       "_symmetry_space_group_name_H-M P1\n"
                       "loop_\n_atom_site_aniso_label\n_atom_site_aniso_U_11\nC1 0.01\n" +
                       kAtomLoop + "C1 C 0.1 0.2 0.3\n"));
  EXPECT_EQ(aniso.get_cif_natoms(), 1);
}

// Loads `path` in a death-test child with standard output sent to the error stream, so the
// header and the message can both be matched.
void load_to_stderr(const std::string& path) {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  CifProbe io;
  io.read_data_cif(path.c_str(), false);
}

TEST(CifScannerDeath, ShortRowsAndMissingFiles) {
  // A tag line right after the atom rows is taken as a row.
  const std::string tag_after_atoms = temp_cif(std::string(kCellHead) + kAtomLoop +
                                               "C1 C 0.1 0.2 0.3\n_cell_volume 1000\n");
  EXPECT_EXIT(load_to_stderr(tag_after_atoms), testing::ExitedWithCode(255),
              "\nERROR  transport : fileio : line 3279 : \nNot enough columns: _cell_volume 1000\n"
              "At least 5 columns are expected!");

  // Five tokens are not enough when the coordinates stand in later columns.
  const std::string wide = temp_cif(std::string(kCellHead) +
                                    "loop_\n_atom_site_label\n_atom_site_occupancy\n"
                                    "_atom_site_U_iso_or_equiv\n_atom_site_adp_type\n"
                                    "_atom_site_B_iso_or_equiv\n_atom_site_type_symbol\n"
                                    "_atom_site_fract_x\n_atom_site_fract_y\n_atom_site_fract_z\n"
                                    "C1 1 0.01 Uiso 1 C\n");
  EXPECT_EXIT(load_to_stderr(wide), testing::ExitedWithCode(255), "At least 9 columns");

  // In that wide loop a tag line after the rows (two tokens) is still short of five.
  const std::string wide_tag = temp_cif(std::string(kCellHead) +
                                        "loop_\n_atom_site_label\n_atom_site_occupancy\n"
                                        "_atom_site_type_symbol\n"
                                        "_atom_site_fract_x\n_atom_site_fract_y\n_atom_site_fract_z\n"
                                        "C1 1 C 0.1 0.2 0.3\n_refine_ls_R_factor 0.05\n");
  EXPECT_EXIT(load_to_stderr(wide_tag), testing::ExitedWithCode(255),
              "Not enough columns: _refine_ls_R_factor 0.05\nAt least 5 columns are expected!");

  // In a bond loop every row up to the next loop_ is data, an empty one included. (A loop
  // whose first header is _geom_bond_atom_site_label_1 counts as an atom-site loop.)
  const std::string bond = temp_cif(std::string(kCellHead) +
                                    "loop_\n_geom_bond_distance\n_geom_bond_atom_site_label_1\n"
                                    "_geom_bond_atom_site_label_2\n"
                                    "_geom_bond_site_symmetry_2\n_ccdc_geom_bond_type\n"
                                    "C1 C2 1.5 . S\n\n");
  EXPECT_EXIT(load_to_stderr(bond), testing::ExitedWithCode(255), "line 3530 : \nNot enough columns");

  EXPECT_EXIT(load_to_stderr("/nonexistent/none.cif"), testing::ExitedWithCode(255),
              "fileio .*Failed to open input file \"/nonexistent/none.cif\"");
}

TEST(WholeMolecules, BondsAcrossFacesAndCentreShift) {
  CifProbe io;
  const double cell[6] = {10.0, 10.0, 10.0, 90.0, 90.0, 90.0};
  double L[3][3];
  io.convert_cell6_to_latt3x3(cell, L);

  // C-C split across the a face: the second atom moves to x = 1.02.
  const int cc[2] = {6, 6};
  double f[6] = {0.98, 0.5, 0.5, 0.02, 0.5, 0.5};
  io.make_whole_molecule(1, 2, cc, f, false);
  EXPECT_NEAR(f[3], 1.02, 1e-12);
  EXPECT_EQ(f[0], 0.98);

  // 1.70 A apart: bonded for the cell partition radii (0.77), not for radius code A (0.72).
  double g[6] = {0.1, 0.5, 0.5, 0.27, 0.5, 0.5};
  testing::internal::CaptureStdout();
  io.make_whole_molecule(2, 2, cc, g, true);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "WARNING: Not all atoms are bonded in the molecule!\n"
            "         nat_bonded = 1, natoms = 2\n"
            "  molecule 2 COM =  0.185000  0.500000  0.500000\n");

  // Centres outside the cell move by one cell only.
  const int h[1] = {1};
  double a[3] = {1.3, 0.5, 2.3};
  io.make_whole_molecule(3, 1, h, a, false);
  EXPECT_NEAR(a[0], 0.3, 1e-12);
  EXPECT_NEAR(a[2], 1.3, 1e-12);
}

// A molecule needs one atom of a known element; unknown ones beside it weigh nothing.
TEST(LoadingDeath, MoleculesOfUnknownElementsOnly) {
  const std::string head = std::string(kCellHead) + "_symmetry_space_group_name_H-M P1\n" +
                           kAtomLoop;
  const auto load_cell = [](const std::string& path) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    CifProbe io;
    io.read_data_cif(path.c_str(), false);
    io.struct_source = 2;
    io.read_crystal_strcuture_files(false, false);
  };
  const std::string unknown = temp_cif(head + "X1 Xx 0.1 0.1 0.1\nX2 Qq 0.2 0.1 0.1\n");
  EXPECT_EXIT(load_cell(unknown), testing::ExitedWithCode(255),
              "line 4641 : \nNo atom of molecule 1 of crystal file \"" + unknown +
                  "\" has a known element symbol \\(2 atoms\\)\n");
  CifProbe mixed;
  load(mixed, temp_cif(head + "C1 C 0.1 0.1 0.1\nX1 Xx 0.2 0.1 0.1\n"));
  mixed.struct_source = 2;
  mixed.read_crystal_strcuture_files(false, false);
  ASSERT_EQ(mixed.nmols, 1);
  EXPECT_EQ(mixed.mol_atypes[0], (std::vector<int>{6, -1}));

  // The same for a molecule from a MOL file, as a MOL format error.
  const std::string mol = temp_cif("t\np\n\n  1  0\n    0.0000    0.0000    0.0000 Xx\n");
  const auto load_mol = [&mol]() {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    CifProbe io;
    io.mol_file_names = {mol};
    io.struct_source = 1;
    io.read_crystal_strcuture_files(false, false);
  };
  EXPECT_EXIT(load_mol(), testing::ExitedWithCode(1),
              "line 4652 : \nWARNING: Problems reading a MDL file\n         No atom of molecule 1 "
              "in \"" + mol + "\" has a known element symbol \\(1 atoms\\)\n");
}

// ---------------------------------------------------------------- readers over text

// The text entry and the file entry give the same crystal and print the same lines, on files
// that test the line splitting: CR LF ends, no final line feed, a vertical tab where a value
// should be (a number read must not run on into the next line), a NUL byte inside an atom row.
TEST(CifText, ReadsAsTheFileReaderDoes) {
  const std::string atoms =
      "loop_\n_atom_site_label\n_atom_site_type_symbol\n_atom_site_fract_x\n"
      "_atom_site_fract_y\n_atom_site_fract_z\nC1 C 0.10 0.20 0.30\nC2 C 0.15 0.20 0.30";
  const std::string texts[] = {
      std::string(kCellHead) + atoms + "\n",
      std::string(kCellHead) + atoms,
      [&] {
        std::string t = std::string(kCellHead) + atoms + "\n";
        for (size_t p = t.find('\n'); p != std::string::npos; p = t.find('\n', p + 2))
          t.insert(p, "\r");
        return t;
      }(),
      "data_v\n_cell_length_a \v\n12.5\n_cell_length_b 10\n_cell_length_c 10\n"
      "_cell_angle_alpha 90\n_cell_angle_beta 90\n_cell_angle_gamma 90\n" + atoms + "\n",
      std::string(kCellHead) + atoms + std::string(" 0.5\0 9 9\n", 10),
      test_support::slurp(crystal("anthracene.cif")),
  };
  for (const std::string& text : texts) {
    SCOPED_TRACE(text.substr(0, 60));
    const std::string path = temp_cif(text);
    CifProbe from_file, from_text;
    const std::string printed_file = load(from_file, path, true);
    testing::internal::CaptureStdout();
    from_text.read_data_cif_text(text, path, true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), printed_file);
    std::remove(path.c_str());
    EXPECT_EQ(from_text.identifier, from_file.identifier);
    EXPECT_EQ(from_text.symm_ops, from_file.symm_ops);
    EXPECT_EQ(std::vector<double>(from_text.cell_latt, from_text.cell_latt + 6),
              std::vector<double>(from_file.cell_latt, from_file.cell_latt + 6));
    EXPECT_EQ(from_text.x_s, from_file.x_s);
    EXPECT_EQ(from_text.cif_mol_natoms, from_file.cif_mol_natoms);
  }
  // The vertical tab is the whole value: a = 0, not the 12.5 of the next line.
  CifProbe v;
  testing::internal::CaptureStdout();
  v.read_data_cif_text(texts[3], "v.cif", false);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(v.cell_latt[0], 0.0);
}

// Reads of a text in memory cut it as std::fgets cuts the same bytes in a file: at line
// feeds, at size - 1 characters, with a last line without line feed, and with NUL bytes kept.
TEST(CifText, TextReadsCutAsFgets) {
  std::string text = std::string(300, 'a') + "\n\nb" + std::string("\0c\n", 3) +
                     std::string(1100, 'd') + "\n" + std::string(254, 'e') + "\nlast";
  const std::string path = temp_cif(text);
  for (int size : {2, 255, 1024}) {
    SCOPED_TRACE(size);
    std::FILE* f = std::fopen(path.c_str(), "r");
    ASSERT_TRUE(f);
    TextReads reads(text);
    std::vector<char> a(size), b(size);
    int n = 0;
    while (true) {
      const bool from_file = std::fgets(a.data(), size, f) != nullptr;
      ASSERT_EQ(reads.gets(b.data(), size), from_file);
      if (!from_file) break;
      ASSERT_EQ(0, std::memcmp(a.data(), b.data(), size)) << "read " << n;
      std::fill(a.begin(), a.end(), 'x');
      std::fill(b.begin(), b.end(), 'x');
      ++n;
    }
    std::fclose(f);
  }
  std::remove(path.c_str());
}
