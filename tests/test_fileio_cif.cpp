// The CIF scanner, the crystal read and the molecules it yields, on real crystal files
// (tests/data/crystals, sources in SOURCES.md there) and on small hand-written texts.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "bond_partition.h"
#include "cif_scan.h"
#include "crystal_model.h"
#include "fileio.h"
#include "test_support.h"
#include "util.h"
#include "util_text_reads.h"
#include "whole_molecules.h"

namespace {

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

// Reads a crystal text into `io`; returns what it printed.
std::string read_text(FileIO& io, const std::string& text, bool verbose = false) {
  testing::internal::CaptureStdout();
  io.read_data_cif_text(text, "t.cif", verbose);
  return testing::internal::GetCapturedStdout();
}

// The utility's loading stages on a crystal or MOL file, as kavri_crystal runs them.
CrystalModel load(const std::string& cif, const std::vector<std::string>& mols = {}) {
  CrystalRequest r;
  r.cif = cif;
  r.mols = mols;
  return load_crystal(r);
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
    FileIO io;
    testing::internal::CaptureStdout();
    io.read_data_cif(crystal(c.file).c_str(), false);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(io.get_cif_natoms(), c.natoms) << c.file;
    EXPECT_EQ(io.get_cif_mol_sizes(), c.sizes) << c.file;
  }
}

// After loading, every molecule is whole (each atom bonds to one placed before it with the
// whole-molecule radii) and its centre of mass lies in the home cell.
TEST(CifRealFiles, MoleculesComeOutWhole) {
  const FileIO table;
  for (const char* file : {"anthracene.cif", "hexachlorobenzene.cif", "tipge_pentacene_pbca.cif",
                           "tribenzylmethanol_crlf.cif"}) {
    testing::internal::CaptureStdout();
    const CrystalModel model = load(crystal(file));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << file;
    for (size_t m = 0; m < model.molecules.size(); ++m) {
      const CrystalMolecule& mol = model.molecules[m];
      const size_t n = mol.types.size();
      double mass = 0, com[3] = {0, 0, 0};
      for (size_t i = 0; i < n; ++i) {
        const double w = table.find_element_mass_from_index(mol.types[i]);
        mass += w;
        for (int k = 0; k < 3; ++k) com[k] += w * mol.frac[3 * i + k];
        if (i == 0) continue;
        double best = 1e30;
        for (size_t j = 0; j < n; ++j) {
          if (j == i) continue;
          double d2 = 0;
          for (int k = 0; k < 3; ++k) {
            const double d = mol.cart[3 * i + k] - mol.cart[3 * j + k];
            d2 += d * d;
          }
          const double r = (table.find_element_radius_from_index(mol.types[i]) +
                            table.find_element_radius_from_index(mol.types[j])) *
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

TEST(CifScanner, TagValuesAndAtomRows) {
  const std::string text = std::string("DATA_first\n") +
                           "_symmetry_space_group_name_H-M   'P 1'\n"
                           "_cell_length_a 14.4312(12)\n"
                           "_cell_length_b\t7.5\n"   // a tab alone gives an empty value
                           "_cell_length_c ?\n"
                           "_cell_angle_alpha 90\n_cell_angle_beta   95.5(3)\n_cell_angle_gamma 90\n"
                           "_space_group_IT_number 14x\n"
                           "_chemical_name_common ' some name '\n" +
                           kAtomLoop +
                           "C1 C 0.1(2) 0.2 0.3\nCl2 CL 0.5 ? .\nC3 C -.25e0 1e-1 .5\n";
  const CifScan scan = scan_cif(text);
  EXPECT_EQ(scan.identifier, "first");
  EXPECT_EQ(scan.chemical_name, "some name");
  EXPECT_EQ(scan.spacegroup_name, "'P 1'");  // trimmed of blanks only
  EXPECT_EQ(scan.spacegroup_number, 14);
  EXPECT_EQ(std::vector<double>(scan.cell, scan.cell + 6),
            (std::vector<double>{14.4312, 0.0, 0.0, 90.0, 95.5, 90.0}));
  // Rows as numbers (each conversion stops where its text ends), each symbol text kept once.
  ASSERT_EQ(scan.atoms.size(), 3u);
  EXPECT_EQ(scan.atoms.positions[0][0], 0.1);
  EXPECT_EQ(scan.atoms.positions[1][1], 0.0);
  EXPECT_EQ(scan.atoms.positions[2][0], -0.25);
  EXPECT_EQ(scan.atoms.positions[2][2], 0.5);
  EXPECT_EQ(scan.atoms.symbols, (std::vector<std::string>{"C", "CL"}));
  EXPECT_EQ(scan.atoms.symbol_text(2), "C");
  EXPECT_EQ(scan.atoms.first_row, "C1 C 0.1(2) 0.2 0.3");
  EXPECT_EQ(scan.atoms.last_row, "C3 C -.25e0 1e-1 .5");
  EXPECT_EQ(scan.atoms.unread_coordinates, 2);

  // The object's read reports the same, and with 'P 1' expands by the (empty) operation list.
  FileIO io;
  const std::string out = read_text(io, text, true);
  EXPECT_NE(out.find("Reading crystal file \"t.cif\"...   Identifier: first\n"
                     "  Spacegroup name: 'P 1'\n  Spacegroup operations: \n"
                     "  Cell lattice a = 14.4312\n"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find("  Cell lattice beta  = 95.5\n"), std::string::npos);
  EXPECT_NE(out.find("  natoms_cif = 3\n  First atom: C1 C 0.1(2) 0.2 0.3\n  ...\n"
                     "  Last  atom: C3 C -.25e0 1e-1 .5\n"),
            std::string::npos);
  EXPECT_EQ(io.get_cif_natoms(), 0);
  EXPECT_EQ(io.get_cif_atom_symbol(1), "CL");
  EXPECT_EQ(io.get_cif_atom_symbol(3), "");

  // A second read goes on from the first: tags found replace, the rest stays, lists grow.
  const CifScan again = scan_cif("_cell_length_b 3\nloop_\n_symmetry_equiv_pos_as_xyz\nx,y,z\n\n" +
                                     std::string(kAtomLoop) + "H1 H 0 0 0\n",
                                 scan);
  EXPECT_EQ(again.identifier, "first");
  EXPECT_EQ(again.cell[0], 14.4312);
  EXPECT_EQ(again.cell[1], 3.0);
  EXPECT_EQ(again.operations, std::vector<std::string>{"x,y,z"});
  EXPECT_EQ(again.atoms.size(), 4u);
  EXPECT_EQ(again.atoms.symbol_text(3), "H");
  EXPECT_EQ(again.atoms.first_row, scan.atoms.first_row);
  EXPECT_EQ(again.atoms.last_row, "H1 H 0 0 0");
  EXPECT_EQ(again.atoms.unread_coordinates, 2);
}

TEST(CifScanner, SymmetryLoopsIdColumnsQuotesAndIndentedHeaders) {
  const std::string text = std::string(kCellHead) +
                           "loop_\n"
                           "  _space_group_symop_id\n"
                           "  _space_group_symop_operation_xyz\n"
                           " 1 'x, y, z'\n"
                           " 2 -x,y+1/2,-z+1/2\n"
                           " 3\n"  // no blank: the previous operation is repeated
                           "_symmetry_space_group_name_H-M 'P 21/c'\n" +  // ends the loop, still read
                           kAtomLoop + "C1 C 0.1 0.2 0.3\n";
  const CifScan scan = scan_cif(text);
  const std::vector<std::string> ops = {"x, y, z", "-x,y+1/2,-z+1/2", "-x,y+1/2,-z+1/2"};
  EXPECT_EQ(scan.operations, ops);
  EXPECT_EQ(scan.spacegroup_name, "'P 21/c'");
  FileIO io;
  read_text(io, text);
  EXPECT_EQ(io.get_cif_natoms(), 2);  // the repeated operation's image is a duplicate
  EXPECT_EQ(io.get_cif_atom_symbol(0), "C");
  EXPECT_EQ(io.get_cif_atypes()[1], 6);

  // The group name keeps its blank once the expansion has taken off the quotes.
  const std::string path = temp_cif(text);
  EXPECT_EQ(load(path).spacegroup, "P 21/c");
  std::remove(path.c_str());
}

TEST(CifScanner, AtomLoopEndsTheScan) {
  // Rows end at an empty line; the cell tag after it is never read.
  const std::string text = std::string("data_x\n_symmetry_space_group_name_H-M P1\n") + kAtomLoop +
                           "C1 C1 0.1 0.2 0.3\nO1 O 0.2 0.2 0.3 extra\n\n_cell_length_a 5\n";
  EXPECT_EQ(scan_cif(text).cell[0], 0.0);
  FileIO io;
  read_text(io, text);
  EXPECT_EQ(io.get_cif_natoms(), 2);
  EXPECT_EQ(io.get_cif_atypes()[0], -1);  // "C1" is not an element symbol
  EXPECT_EQ(io.get_cif_atypes()[1], 8);

  // An anisotropic loop counts as an atom-site loop without the required columns: skipped.
  const CifScan aniso = scan_cif(std::string(kCellHead) +
                                 "loop_\n_atom_site_aniso_label\n_atom_site_aniso_U_11\nC1 0.01\n" +
                                 kAtomLoop + "C1 C 0.1 0.2 0.3\n");
  EXPECT_EQ(aniso.atoms.size(), 1u);
}

// Runs `f` in a death-test child with standard output sent to the error stream, so the
// header and the message can both be matched.
template <class F>
void to_stderr(F f) {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  f();
}

TEST(CifScannerDeath, ShortRowsAndMissingFiles) {
  const auto scan = [](const std::string& text) { to_stderr([&] { scan_cif(text); }); };
  // A tag line right after the atom rows is taken as a row, after the read has said so.
  const std::string tag_after_atoms =
      std::string(kCellHead) + kAtomLoop + "C1 C 0.1 0.2 0.3\n_cell_volume 1000\n";
  EXPECT_EXIT(to_stderr([&] {
                FileIO io;
                io.read_data_cif_text(tag_after_atoms, "t.cif", true);
              }),
              testing::ExitedWithCode(255),
              "Reading crystal file \"t.cif\"... \nERROR  transport : fileio : line 3279 : \n"
              "Not enough columns: _cell_volume 1000\nAt least 5 columns are expected!\n");

  // Five tokens are not enough when the coordinates stand in later columns.
  EXPECT_EXIT(scan(std::string(kCellHead) +
                   "loop_\n_atom_site_label\n_atom_site_occupancy\n"
                   "_atom_site_U_iso_or_equiv\n_atom_site_adp_type\n"
                   "_atom_site_B_iso_or_equiv\n_atom_site_type_symbol\n"
                   "_atom_site_fract_x\n_atom_site_fract_y\n_atom_site_fract_z\n"
                   "C1 1 0.01 Uiso 1 C\n"),
              testing::ExitedWithCode(255), "At least 9 columns");

  // In that wide loop a tag line after the rows (two tokens) is still short of five.
  EXPECT_EXIT(scan(std::string(kCellHead) +
                   "loop_\n_atom_site_label\n_atom_site_occupancy\n"
                   "_atom_site_type_symbol\n"
                   "_atom_site_fract_x\n_atom_site_fract_y\n_atom_site_fract_z\n"
                   "C1 1 C 0.1 0.2 0.3\n_refine_ls_R_factor 0.05\n"),
              testing::ExitedWithCode(255),
              "Not enough columns: _refine_ls_R_factor 0.05\nAt least 5 columns are expected!");

  // In a bond loop every row up to the next loop_ is data, an empty one included. (A loop
  // whose first header is _geom_bond_atom_site_label_1 counts as an atom-site loop.)
  EXPECT_EXIT(scan(std::string(kCellHead) +
                   "loop_\n_geom_bond_distance\n_geom_bond_atom_site_label_1\n"
                   "_geom_bond_atom_site_label_2\n"
                   "_geom_bond_site_symmetry_2\n_ccdc_geom_bond_type\n"
                   "C1 C2 1.5 . S\n\n"),
              testing::ExitedWithCode(255), "line 3530 : \nNot enough columns");

  EXPECT_EXIT(to_stderr([] { FileIO().read_data_cif("/nonexistent/none.cif", false); }),
              testing::ExitedWithCode(255),
              "fileio .*Failed to open input file \"/nonexistent/none.cif\"");
}

TEST(WholeMolecules, BondsAcrossFacesAndCentreShift) {
  FileIO io;
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
  const std::string unknown = temp_cif(head + "X1 Xx 0.1 0.1 0.1\nX2 Qq 0.2 0.1 0.1\n");
  EXPECT_EXIT(to_stderr([&] { load(unknown); }), testing::ExitedWithCode(255),
              "line 4641 : \nNo atom of molecule 1 of crystal file \"" + unknown +
                  "\" has a known element symbol \\(2 atoms\\)\n");
  const CrystalModel mixed = load(temp_cif(head + "C1 C 0.1 0.1 0.1\nX1 Xx 0.2 0.1 0.1\n"));
  ASSERT_EQ(mixed.molecules.size(), 1u);
  EXPECT_EQ(mixed.molecules[0].types, (std::vector<int>{6, -1}));
  EXPECT_EQ(mixed.unknown_symbols, std::vector<std::string>{"Xx"});

  // The same for a molecule from a MOL file, as a MOL format error.
  const std::string mol = temp_cif("t\np\n\n  1  0\n    0.0000    0.0000    0.0000 Xx\n");
  EXPECT_EXIT(to_stderr([&] { load("", {mol}); }), testing::ExitedWithCode(1),
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
    FileIO from_file, from_text;
    testing::internal::CaptureStdout();
    from_file.read_data_cif(path.c_str(), true);
    const std::string printed_file = testing::internal::GetCapturedStdout();
    testing::internal::CaptureStdout();
    from_text.read_data_cif_text(text, path, true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), printed_file);
    std::remove(path.c_str());
    EXPECT_EQ(from_text.get_identifier(), from_file.get_identifier());
    EXPECT_EQ(std::vector<double>(from_text.get_cell_latt(), from_text.get_cell_latt() + 6),
              std::vector<double>(from_file.get_cell_latt(), from_file.get_cell_latt() + 6));
    const int n = from_file.get_cif_natoms();
    ASSERT_EQ(from_text.get_cif_natoms(), n);
    EXPECT_EQ(std::vector<double>(from_text.get_cif_x_s(), from_text.get_cif_x_s() + 3 * n),
              std::vector<double>(from_file.get_cif_x_s(), from_file.get_cif_x_s() + 3 * n));
    EXPECT_EQ(from_text.get_cif_mol_sizes(), from_file.get_cif_mol_sizes());
  }
  // The vertical tab is the whole value: a = 0, not the 12.5 of the next line.
  EXPECT_EQ(scan_cif(texts[3]).cell[0], 0.0);
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

// The structure layer's own operations on a read crystal give what its stages give: the
// whole-molecule operation on a molecule of the partition, the bond search of the partition's
// first join, and the conversions between the cell parameters, the lattice and positions.
TEST(StructureOperations, AgreeWithTheStagesOnARealCrystal) {
  FileIO io;
  testing::internal::CaptureStdout();
  io.read_data_cif(crystal("anthracene.cif").c_str(), false);
  testing::internal::GetCapturedStdout();
  const Lattice cell = io.lattice();
  const int n = io.get_cif_mol_sizes()[0];
  std::vector<int> types;
  std::vector<double> fx;
  MoleculeSites sites;
  for (int k = 0; k < n; ++k) {
    const int a = io.get_cif_mol_atoms()[k];
    types.push_back(io.get_cif_atypes()[a]);
    fx.insert(fx.end(), io.get_cif_x_s() + 3 * a, io.get_cif_x_s() + 3 * a + 3);
    sites.types.push_back(types.back());
    sites.sites.emplace_back(io.get_cif_x_s() + 3 * a);
  }
  io.make_whole_molecule(1, n, types.data(), fx.data(), false);
  EXPECT_EQ(fx, flat_positions(make_whole_reference(sites, cell, io.get_bond_dis_scale()).frac));

  // Positions and cell parameters through the model's conversions and back.
  const double f[3] = {0.1, 0.7, -0.3};
  double c[3], back[3], p[3] = {f[0], f[1], f[2]};
  io.coord_f2c(f, c);
  const Cartesian expected = cell.to_cartesian(Fractional(f));
  for (int k = 0; k < 3; ++k) EXPECT_EQ(c[k], expected[k]);
  io.coord_f2c(p[0], p[1], p[2]);
  io.coord_c2f(p[0], p[1], p[2]);
  io.coord_c2f(c, back);
  for (int k = 0; k < 3; ++k) {
    EXPECT_NEAR(back[k], f[k], 1e-12);
    EXPECT_EQ(back[k], p[k]);
  }
  double L[3][3], cell6[6];
  io.convert_latt3x3_to_cell6(L, cell6);
  for (int k = 0; k < 6; ++k) EXPECT_NEAR(cell6[k], io.get_cell_latt()[k], 1e-9) << k;
  double row[3], expected_row[3];
  io.inverse_row_lengths(row);
  cell.inverse_row_lengths(expected_row);
  for (int k = 0; k < 3; ++k) EXPECT_EQ(row[k], expected_row[k]);
}
