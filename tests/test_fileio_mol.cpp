// Element table lookups and the MOL read: real V2000/V3000 files, fixed-column details of the
// counts and atom lines, the fatal format errors, and the V3000 blocks with the structure-level
// storage of their atoms.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fileio.h"
#include "mol_read.h"
#include "pr_siteenergy.h"

namespace {

const std::string kHeader = "title\n program\n\n";
const std::string kV3000 = kHeader + "  0  0  0     0  0            999 V3000\nM  V30 BEGIN CTAB\n";

std::string file_text(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Reads `text` into an empty molecule slot; `structure_atoms` is how many atoms the structure
// arrays hold.
MolRead read(const std::string& text, size_t structure_atoms = 0, int structure_natoms = 0) {
  MolTarget target;
  target.structure_atoms = structure_atoms;
  target.structure_natoms = structure_natoms;
  return read_mol_text(text, "kavri_mol_test.mol", target, false, false);
}

std::vector<double> flat(const std::vector<Cartesian>& x) {
  std::vector<double> out;
  for (const Cartesian& c : x) out.insert(out.end(), c.v, c.v + 3);
  return out;
}

}  // namespace

TEST(ElementTable, LookupsAndTheirFallbacks) {
  FileIO io;
  for (int i = 0; i < NELEMENTS; ++i)  // every symbol finds its own record, the dummy included
    EXPECT_EQ(io.find_element_index_from_name(Elements_m[i].symbol), i) << i;
  for (const auto& [text, index] : std::vector<std::pair<const char*, int>>{
           {"h", 1}, {"cl ", 17}, {"Clx", 17}, {"C1", -1}, {"X", -1}, {" ", 0}, {"", -1}})
    EXPECT_EQ(io.find_element_index_from_name(text), index) << '"' << text << '"';
  EXPECT_DOUBLE_EQ(io.find_element_radius_from_name(" "), 99999.99);
  EXPECT_DOUBLE_EQ(io.find_element_radius_from_name("Xx"), 9999.99);
  // Indices outside the table (an unknown symbol's -1) have no name, weigh nothing and bond
  // to everything.
  char s[3];
  io.find_element_name_from_index(-1, s);
  EXPECT_STREQ(s, "");
  EXPECT_DOUBLE_EQ(io.find_element_mass_from_index(-1), 0.0);
  EXPECT_DOUBLE_EQ(io.find_element_radius_from_index(104), 9999.99);
  EXPECT_DOUBLE_EQ(io.find_element_radius_from_index_nw(106), 9999.99);
  // By mass: both symbol characters, the first of equal masses, the dummy when nothing fits.
  for (const auto& [mass, name] : std::vector<std::pair<double, std::string>>{
           {12.0, "C "}, {58.7, "Ni"}, {247.0, "Cm"}, {0.05, "A "}, {500.0, "A "}}) {
    io.find_element_name_from_mass(mass, s);
    EXPECT_EQ(s, name) << mass;
  }
}

TEST(MolReader, V2000FileAndFixedColumns) {
  const MolRead file = read(file_text(KAVRI_TEST_DATA "/anthracene_cif_v2000.mol"));
  ASSERT_TRUE(file.sized);
  ASSERT_EQ(file.slot.types.size(), 24u);
  EXPECT_DOUBLE_EQ(file.slot.x[23][2], 4.6345);
  EXPECT_TRUE(file.structure.empty());

  // A 6-character counts line is enough; a chiral flag of 2 only warns.
  const std::string atoms = "    1.5000   -2.2500   10.0000 Cl  0  0\n"
                            "   -0.0001    0.0000    1.0e+2 CL\n"
                            "       abc                     Xx\n";
  const MolRead r = read(kHeader + "  3  0\n" + atoms);
  EXPECT_EQ(r.slot.types, (std::vector<int>{17, 17, -1}));
  EXPECT_EQ(flat(r.slot.x), (std::vector<double>{1.5, -2.25, 10.0, -0.0001, 0.0, 100.0, 0, 0, 0}));
  testing::internal::CaptureStdout();
  read(kHeader + "  3  0  0  0  2\n" + atoms);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "WARNING: The Chiral Flag should be either 0 or 1. The value of 2 will be ignored.\n");

  // Without a molecule slot nothing is stored.
  MolTarget none;
  none.has_slot = false;
  const MolRead dropped = read_mol_text(kHeader + "  3  0\n" + atoms, "m.mol", none, false, false);
  EXPECT_FALSE(dropped.sized || dropped.slot_written);
}

// Standard output is joined to the error stream, so header and message are matched together.
TEST(MolReaderDeathTest, FatalFormatErrors) {
  const std::string mdl = "\nERROR  transport : fileio : line ";
  const struct { std::string text, message; } cases[] = {
      {kHeader + "  1 0\n", mdl + "4047 : \nWARNING: Problems reading a MDL file\n"
                                  "         Cannot read atom and bond count\n"
                                  "         Expected standard 6 character atom and bond count\n"},
      {kHeader + "  1  0  1  0  0\n",
       mdl + "4077 : \nWARNING: Problems reading the Count line of an MDL file\n"
             "         There may be erroneous addition spaces or\n"
             "         the file may contains Atom Lists, which are ignored\n"},
      // The count printed is the structure's atom count, not the counts line's.
      {kHeader + "  3  0\n    0.0000    0.0000    0.0000 C\n",
       mdl + "4106 : \nWARNING: Problems reading a MDL file\n"
             "         Not enough atoms to match atom count (42) in counts line\n"},
  };
  for (const auto& c : cases)
    EXPECT_EXIT((std::fflush(stdout), dup2(2, 1), read(c.text, 0, 42)),
                ::testing::ExitedWithCode(1), ::testing::Eq(c.message));
  // An atom line that ends before columns 32-34, or leaves them blank, names no element.
  for (const std::string& atom : {std::string("    0.0000    0.0000    0.0000\n"),
                                  std::string("    0.0000    0.0000    0.0000     \r\n")}) {
    EXPECT_EXIT((std::fflush(stdout), dup2(2, 1),
                 read(kHeader + "  2  0\n    0.0000    0.0000    0.0000 C\n" + atom)),
                ::testing::ExitedWithCode(1),
                "line 4113 : \nWARNING: Problems reading a MDL file\n         No element "
                "symbol in columns 32-34 of atom line 2 \\(line 6 of \"kavri_mol_test.mol\"\\)");
  }
  // Opening fails with -1, the message alone on the error stream.
  EXPECT_EXIT((std::fflush(stdout), dup2(open("/dev/null", O_WRONLY), 1),
               FileIO().read_data_mol("/nonexistent/a.mol", 0, true)),
              ::testing::ExitedWithCode(255),
              ::testing::Eq("Failed to open input file \"/nonexistent/a.mol\""));
}

TEST(MolReader, V3000FilesBlocksAndStorage) {
  // Structure arrays take the atoms they reach, in block order; the rest falls back to the
  // molecule slot, whose first atoms stay unfilled.
  const MolRead both = read(file_text(KAVRI_TEST_DATA "/naphthalene_gen3d_v3000.mol"), 5);
  ASSERT_TRUE(both.sized);
  ASSERT_EQ(both.slot.types.size(), 18u);
  ASSERT_EQ(both.structure.size(), 5u);
  for (size_t p = 0; p < 5; ++p) {
    EXPECT_EQ(both.structure[p].position, p);
    EXPECT_EQ(both.structure[p].type, 6);
  }
  EXPECT_EQ(both.slot.types[0], 0);
  EXPECT_EQ(both.slot.x[0][0], 0.0);
  EXPECT_DOUBLE_EQ(both.slot.x[17][0], 1.24179);

  // An R# atom is announced and not stored but keeps its position; a trailing "-" continues
  // a line; properties are dropped; the other blocks, nested ones included, are skipped.
  testing::internal::CaptureStdout();
  const MolRead r = read(
      kV3000 + "M  V30 COUNTS 3 1 0 0 0\nM  V30 BEGIN ATOM\nM  V30 1 S 1 1 1 0\n"
      "M  V30 2 R# 9 9 9 0\nM  V30 3 Br 2 -\r\nM  V30 3 4 0 CHG=-1 MASS=80\nM  V30 END ATOM\n"
      "M  V30 BEGIN SGROUP\nM  V30 1 SUP 0\nM  V30 END SGROUP\nM  V30 BEGIN RGROUP 1\n"
      "M  V30 BEGIN CTAB\nM  V30 END CTAB\nM  V30 END RGROUP\nM  V30 BEGIN BOND\n"
      "M  V30 1 1 1 3 CFG=2\nM  V30 END BOND\nM  V30 END CTAB\nM  END\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "WARNING: A molecule contains an R group which is not implemented!\n");
  EXPECT_EQ(r.slot.types, (std::vector<int>{16, 0, 35}));
  EXPECT_EQ(flat(r.slot.x), (std::vector<double>{1, 1, 1, 0, 0, 0, 2, 3, 4}));
  EXPECT_EQ(r.atom_index, (std::map<int, int>{{1, 1}, {2, 2}, {3, 3}}));

  // Hostile input ends cleanly and stays inside the arrays: nesting deeper than the reader
  // follows, more atoms than COUNTS announced.
  std::string deep = kV3000;
  for (int i = 0; i < 5000; ++i) deep += "M  V30 COUNTS 1 0\nM  V30 BEGIN CTAB\n";
  EXPECT_EQ(read(deep).slot.types.size(), 1u);
  const MolRead more = read(kV3000 + "M  V30 COUNTS 1 0\nM  V30 BEGIN ATOM\nM  V30 1 C 1 2 3 0\n"
                                     "M  V30 2 N 1 2 3 0\n");
  EXPECT_EQ(more.slot.types, (std::vector<int>{6}));
}

// The stream read gives what the text read gives, including the refusal of a V3000 COUNTS
// larger than the rest of the input can hold (the room is measured on the text).
TEST(MolReader, TextReadsAsTheStream) {
  const std::string absurd = kV3000 + "M  V30 COUNTS 2000000000 0 0 0 0\nM  V30 BEGIN ATOM\n" +
                             "M  V30 1 C 0 0 0 0\nM  V30 END ATOM\nM  V30 END CTAB\nM  END\n";
  const std::string files[] = {KAVRI_TEST_DATA "/anthracene_cif_v2000.mol",
                               KAVRI_TEST_DATA "/naphthalene_gen3d_v3000.mol"};
  std::vector<std::string> texts = {absurd};
  for (const std::string& f : files) texts.push_back(file_text(f));
  for (const std::string& text : texts) {
    std::istringstream in(text);
    const MolRead from_stream = read_mol(in, "t.mol", MolTarget(), false, false);
    const MolRead from_text = read(text);
    EXPECT_EQ(from_stream.sized, from_text.sized);
    EXPECT_EQ(from_stream.slot.types, from_text.slot.types);
    EXPECT_EQ(flat(from_stream.slot.x), flat(from_text.slot.x));
  }
  const MolRead refused = read(absurd);
  EXPECT_FALSE(refused.sized);
  EXPECT_TRUE(refused.slot.types.empty());
}

// The loading driver reads each MOL file the input names into its molecule slot: the model's
// molecules are the atoms the stage reads, in the cell the input gives.
TEST(MolReader, TheLoadingDriverStoresWhatTheStageRead) {
  const std::string files[] = {KAVRI_TEST_DATA "/anthracene_cif_v2000.mol",
                               KAVRI_TEST_DATA "/naphthalene_gen3d_v3000.mol"};
  SiteEnergy m;
  testing::internal::CaptureStdout();
  m.read_kavri_inp_text("&transport\n molecule = 2 " + files[0] + " " + files[1] + "\n/\n",
                        "kavri.inp", false);
  m.read_crystal_strcuture_files(false, false);
  m.post_data_read_treatment(false);
  testing::internal::GetCapturedStdout();
  const CellMolecules molecules = m.cell_molecules();
  ASSERT_EQ(molecules.count, 2);
  const Lattice cell = m.lattice();
  for (int i = 0; i < 2; ++i) {
    const MolRead r = read(file_text(files[i]));
    ASSERT_EQ(molecules.natoms[i], static_cast<int>(r.slot.types.size())) << files[i];
    EXPECT_EQ(molecules.types[i], r.slot.types);
    for (size_t k = 0; k < r.slot.x.size(); ++k) {
      const Fractional f = cell.to_fractional(r.slot.x[k]);
      for (int c = 0; c < 3; ++c) EXPECT_EQ(molecules.frac[i][3 * k + c], f[c]) << k;
    }
  }
}

// The model's V3000 steps, run on a stream after a crystal read, store each atom of an atom
// block in the structure arrays at its position in the block, and step over bond, R-group and
// other blocks to their END lines.
TEST(MolReader, TheModelsV3000StepsStoreInTheStructureArrays) {
  FileIO io;
  testing::internal::CaptureStdout();
  io.read_data_cif(KAVRI_TEST_DATA "/crystals/anthracene.cif", false);
  testing::internal::GetCapturedStdout();
  ASSERT_GE(io.get_cif_natoms(), 2);
  std::istringstream ctab(
      "M  V30 BEGIN ATOM\nM  V30 1 N 1 2 3 0\nM  V30 END ATOM\nM  V30 BEGIN BOND\n"
      "M  V30 1 1 1 1\nM  V30 END BOND\nM  V30 BEGIN RGROUP 1\nM  V30 END RGROUP\n"
      "M  V30 BEGIN SGROUP\nM  V30 END SGROUP\nM  V30 END CTAB\n");
  EXPECT_TRUE(io.ReadV3000Block(ctab, -1, false));
  EXPECT_EQ(io.get_cif_atypes()[0], io.find_element_index_from_name("N"));
  EXPECT_EQ(std::vector<double>(io.get_cif_x(), io.get_cif_x() + 3),
            (std::vector<double>{1, 2, 3}));

  std::istringstream steps(
      "M  V30 1 O 4 5 6 0\nM  V30 2 S 7 8 9 0\nM  V30 END ATOM\nM  V30 1 1 1 2\nM  V30 END BOND\n"
      "M  V30 END RGROUP\nM  V30 END COLLECTION\nM  V30 COUNTS 0 0\n");
  EXPECT_TRUE(io.ReadAtomBlock(steps));
  EXPECT_EQ(io.get_cif_atypes()[1], io.find_element_index_from_name("S"));
  EXPECT_EQ(io.get_cif_x()[5], 9.0);
  EXPECT_TRUE(io.ReadBondBlock(steps));
  EXPECT_TRUE(io.ReadRGroupBlock(steps));
  EXPECT_TRUE(io.ReadUnimplementedBlock(steps, "COLLECTION"));
  std::vector<std::string> tokens;
  EXPECT_TRUE(io.ReadV3000Line(steps, tokens));
  EXPECT_EQ(tokens, (std::vector<std::string>{"M", "V30", "COUNTS", "0", "0"}));
  EXPECT_FALSE(io.ReadV3000Line(steps, tokens));  // the stream has ended

  // A V3000 text read into no molecule slot stores its atoms the same way.
  testing::internal::CaptureStdout();
  io.read_data_mol_text(kV3000 + "M  V30 COUNTS 1 0\nM  V30 BEGIN ATOM\nM  V30 1 Cl 0 0 7 0\n"
                                 "M  V30 END ATOM\nM  V30 END CTAB\nM  END\n",
                        "c.mol", 0, false);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(io.get_cif_atypes()[0], io.find_element_index_from_name("Cl"));
  EXPECT_EQ(io.get_cif_x()[2], 7.0);
}
