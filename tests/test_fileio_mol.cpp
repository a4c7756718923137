// Element table lookups and the MDL molfile reader: real V2000/V3000 files, fixed-column
// details of the counts and atom lines, the fatal format errors, and hostile inputs that must
// end cleanly without touching memory outside the arrays.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "fileio.h"

namespace {

class MolProbe : public FileIO {
 public:
  using FileIO::atypes;
  using FileIO::mol_atypes;
  using FileIO::mol_natoms;
  using FileIO::mol_x;
  using FileIO::mol_x_s;
  using FileIO::natoms_cif;
  using FileIO::v3000_atom_index;
  using FileIO::x;
  explicit MolProbe(int slots = 1) {
    mol_natoms.assign(slots, 0);
    mol_atypes.assign(slots, {});
    mol_x.assign(slots, {});
    mol_x_s.assign(slots, {});
  }
  void make_structure(int n) {
    natoms_cif = n;
    atypes.assign(n, -7);
    x.assign(3 * n, 0.0);
  }
};

std::string temp_file(const std::string& name, const std::string& text) {
  const std::string path = ::testing::TempDir() + "kavri_mol_" + name;
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

const std::string kHeader = "title\n program\n\n";
const std::string kData = KAVRI_TEST_DATA;

// Runs a fatal path with standard output joined to the error stream, so that the death test
// sees header and message together, in order.
#define EXPECT_FATAL_ON_STDOUT(statement, status, regex)           \
  EXPECT_EXIT(                                                     \
      {                                                            \
        std::fflush(stdout);                                       \
        dup2(2, 1);                                                \
        statement;                                                 \
      },                                                           \
      ::testing::ExitedWithCode(status), regex)

}  // namespace

TEST(ElementTable, RecordsAndBondRadii) {
  EXPECT_STREQ(Elements_m[16].name, "SULPHUR");
  EXPECT_EQ(Elements_m[32].radius_b, 999);
  EXPECT_DOUBLE_EQ(nw_elem_radius_m[0], 99999.99);
  EXPECT_DOUBLE_EQ(nw_elem_radius_m[26], 1.165);
  EXPECT_DOUBLE_EQ(nw_elem_radius_m[105], 1.3);
  FileIO io;
  for (int i = 0; i < NELEMENTS; ++i)  // every symbol finds its own record, the dummy included
    EXPECT_EQ(io.find_element_index_from_name(Elements_m[i].symbol), i) << i;
}

TEST(ElementTable, SymbolLookups) {
  FileIO io;
  const std::vector<std::pair<const char*, int>> cases = {
      {"h", 1},    {"H", 1},    {"H1x", -1}, {"C1", -1}, {"CL", 17},
      {"cl ", 17}, {"Clx", 17}, {"X", -1},   {" ", 0},   {"", -1}};
  for (const auto& [text, index] : cases)
    EXPECT_EQ(io.find_element_index_from_name(text), index) << '"' << text << '"';
  EXPECT_DOUBLE_EQ(io.find_element_radius_from_name("c"), 0.77);
  EXPECT_DOUBLE_EQ(io.find_element_radius_from_name(" "), 99999.99);
  EXPECT_DOUBLE_EQ(io.find_element_radius_from_name("Xx"), 9999.99);
}

TEST(ElementTable, IndexAndMassLookups) {
  FileIO io;
  char s[3];
  const auto name = [&](int i) {
    io.find_element_name_from_index(i, s);
    return std::string(s);
  };
  const auto by_mass = [&](double m) {
    io.find_element_name_from_mass(m, s);
    return std::string(s);
  };
  EXPECT_EQ(name(6), "C");
  EXPECT_EQ(name(17), "Cl");
  EXPECT_EQ(name(-1), "");
  EXPECT_DOUBLE_EQ(io.find_element_mass_from_index(6), 12.011);
  EXPECT_DOUBLE_EQ(io.find_element_radius_from_index(6), 0.72);  // code A, not the bond radius
  EXPECT_DOUBLE_EQ(io.find_element_radius_from_index_nw(6), 0.77);
  // Indices outside the table (an unknown symbol's -1) weigh nothing and bond to everything.
  EXPECT_DOUBLE_EQ(io.find_element_mass_from_index(-1), 0.0);
  EXPECT_DOUBLE_EQ(io.find_element_radius_from_index(104), 9999.99);
  EXPECT_DOUBLE_EQ(io.find_element_radius_from_index_nw(106), 9999.99);
  EXPECT_EQ(by_mass(12.0), "C ");   // both symbol characters
  EXPECT_EQ(by_mass(58.7), "Ni");   // nickel is lighter than cobalt
  EXPECT_EQ(by_mass(247.0), "Cm");  // first of Cm and Bk
  EXPECT_EQ(by_mass(0.05), "A ");   // only the dummy matches
  EXPECT_EQ(by_mass(500.0), "A ");
}

TEST(MolReader, V2000File) {
  MolProbe io(2);
  const std::string path = kData + "/anthracene_cif_v2000.mol";
  testing::internal::CaptureStdout();
  io.read_data_mol(path.c_str(), 1, true);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Reading molecular file \"" + path + "\"... ");
  EXPECT_EQ(io.mol_natoms[0], 0);
  ASSERT_EQ(io.mol_natoms[1], 24);
  ASSERT_EQ(io.mol_x[1].size(), 72u);
  EXPECT_EQ(io.mol_x_s[1], std::vector<double>(72, 0.0));
  EXPECT_EQ(std::count(io.mol_atypes[1].begin(), io.mol_atypes[1].end(), 6), 14);
  EXPECT_EQ(std::count(io.mol_atypes[1].begin(), io.mol_atypes[1].end(), 1), 10);
  EXPECT_DOUBLE_EQ(io.mol_x[1][69], 2.8214);
  EXPECT_DOUBLE_EQ(io.mol_x[1][71], 4.6345);
}

TEST(MolReader, V2000FixedColumns) {
  // A 6-character counts line; the chiral flag of 2 only warns.
  MolProbe io;
  const std::string atoms = "    1.5000   -2.2500   10.0000 Cl  0  0\n"
                            "   -0.0001    0.0000    1.0e+2 CL\n"
                            "       abc\n";
  io.read_data_mol(temp_file("six.mol", kHeader + "  3  0\n" + atoms).c_str(), 0, false);
  ASSERT_EQ(io.mol_natoms[0], 3);
  EXPECT_EQ(io.mol_atypes[0], (std::vector<int>{17, 17, -1}));
  EXPECT_EQ(io.mol_x[0], (std::vector<double>{1.5, -2.25, 10.0, -0.0001, 0.0, 100.0, 0, 0, 0}));

  MolProbe chiral;
  testing::internal::CaptureStdout();
  chiral.read_data_mol(temp_file("chiral.mol", kHeader + "  3  0  0  0  2\n" + atoms).c_str(),
                       0, false);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "WARNING: The Chiral Flag should be either 0 or 1. The value of 2 will be ignored.\n");
  EXPECT_EQ(chiral.mol_natoms[0], 3);
}

TEST(MolReaderDeathTest, FatalFormatErrors) {
  MolProbe io;
  // The header goes to standard output (silenced here), the message alone to the error stream.
  EXPECT_EXIT(
      {
        std::fflush(stdout);
        const std::FILE* silenced = std::freopen("/dev/null", "w", stdout);
        (void)silenced;
        io.read_data_mol("/nonexistent/a.mol", 0, true);
      },
      ::testing::ExitedWithCode(255), "^Failed to open input file \"/nonexistent/a.mol\"$");
  const std::string counts_short =
      "^\nERROR  transport : fileio : line 4047 : \nWARNING: Problems reading a MDL file\n"
      "         Cannot read atom and bond count\n"
      "         Expected standard 6 character atom and bond count\n$";
  EXPECT_FATAL_ON_STDOUT(
      io.read_data_mol(temp_file("short.mol", kHeader + "  1 0\n").c_str(), 0, false), 1,
      counts_short);
  EXPECT_FATAL_ON_STDOUT(io.read_data_mol(temp_file("empty.mol", "").c_str(), 0, false), 1,
                         counts_short);
  EXPECT_FATAL_ON_STDOUT(
      io.read_data_mol(temp_file("list.mol", kHeader + "  1  0  1  0  0\n").c_str(), 0, false),
      1,
      "^\nERROR  transport : fileio : line 4077 : \n"
      "WARNING: Problems reading the Count line of an MDL file\n"
      "         There may be erroneous addition spaces or\n"
      "         the file may contains Atom Lists, which are ignored\n$");
  // The count printed is the structure's atom count, not the counts line's.
  io.make_structure(42);
  EXPECT_FATAL_ON_STDOUT(
      io.read_data_mol(temp_file("few.mol", kHeader + "  3  0\n    0.0    0.0    0.0 C\n")
                           .c_str(),
                       0, false),
      1,
      "^\nERROR  transport : fileio : line 4106 : \nWARNING: Problems reading a MDL file\n"
      "         Not enough atoms to match atom count \\(42\\) in counts line\n$");
}

TEST(MolReader, V3000File) {
  const std::string path = kData + "/naphthalene_gen3d_v3000.mol";
  // Without structure arrays the atoms land in the molecule slot.
  MolProbe io;
  io.read_data_mol(path.c_str(), 0, false);
  ASSERT_EQ(io.mol_natoms[0], 18);
  ASSERT_EQ(io.mol_atypes[0].size(), 18u);
  EXPECT_EQ(io.mol_atypes[0][10], 1);
  EXPECT_DOUBLE_EQ(io.mol_x[0][30], 3.37151);
  EXPECT_EQ(io.mol_x_s[0].size(), 54u);
  EXPECT_EQ(io.v3000_atom_index.size(), 18u);

  // Structure arrays take the atoms they reach; the rest falls back to the slot.
  MolProbe both;
  both.make_structure(5);
  both.read_data_mol(path.c_str(), 0, false);
  EXPECT_EQ(both.atypes, (std::vector<int>{6, 6, 6, 6, 6}));
  EXPECT_DOUBLE_EQ(both.x[0], 2.43105);
  EXPECT_EQ(both.mol_atypes[0][0], 0);  // left unfilled
  EXPECT_EQ(both.mol_atypes[0][17], 1);
  EXPECT_DOUBLE_EQ(both.mol_x[0][51], 1.24179);
}

TEST(MolReader, V3000Lines) {
  MolProbe io;
  std::vector<std::string> t;
  std::istringstream cont("M  V30 1 C 1.0 2.0 -\r\nM  V30 3.0 0\nM  V31 x\nM\n");
  ASSERT_TRUE(io.ReadV3000Line(cont, t));
  EXPECT_EQ(t, (std::vector<std::string>{"M", "V30", "1", "C", "1.0", "2.0", "3.0", "0"}));
  EXPECT_FALSE(io.ReadV3000Line(cont, t));  // wrong prefix
  EXPECT_FALSE(io.ReadV3000Line(cont, t));  // one token
  EXPECT_FALSE(io.ReadV3000Line(cont, t));  // end of input

  // R# is announced and not stored, but keeps its position; a property without '=' ends the
  // block with what was stored so far.
  io.make_structure(3);
  std::istringstream atoms(
      "M  V30 7 R# 9 9 9 0\nM  V30 8 O 1 2 3 0 CHG=-1 MASS=18 HCOUNT=1\nM  V30 9 N 4 5 6 0 CHG\n");
  testing::internal::CaptureStdout();
  EXPECT_FALSE(io.ReadAtomBlock(atoms));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "WARNING: A molecule contains an R group which is not implemented!\n");
  EXPECT_EQ(io.atypes, (std::vector<int>{-7, 8, 7}));
  EXPECT_EQ(io.x, (std::vector<double>{0, 0, 0, 1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(io.v3000_atom_index, (std::map<int, int>{{7, 1}, {8, 2}, {9, 3}}));
}

TEST(MolReader, V3000BlocksAndDebugWarnings) {
  const std::string body =
      "  0  0  0     0  0            999 V3000\nM  V30 BEGIN CTAB\nM  V30 COUNTS 2 0 0 0 0\n"
      "M  V30 BEGIN ATOM\nM  V30 1 S 1 1 1 0\nM  V30 2 Br 2 2 2 0\nM  V30 END ATOM\n"
      "M  V30 BEGIN SGROUP\nM  V30 1 SUP 0\nM  V30 END SGROUP\n"
      "M  V30 BEGIN RGROUP 1\nM  V30 BEGIN CTAB\nM  V30 END CTAB\nM  V30 END RGROUP\n"
      "M  V30 BEGIN BOND\nM  V30 1 1 1 2 CFG=2\nM  V30 END BOND\n"
      "M  V30 LINKNODE 1 2 2 1 2 1 2\nM  V30 END CTAB\nM  END\n";
  const std::string path = temp_file("blocks.mol", kHeader + body);
  MolProbe quiet;
  testing::internal::CaptureStdout();
  quiet.read_data_mol(path.c_str(), 0, false);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(quiet.mol_atypes[0], (std::vector<int>{16, 35}));

  MolProbe loud;
  loud.set_debug(true);
  testing::internal::CaptureStdout();
  loud.read_data_mol(path.c_str(), 0, false);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "WARNING: SGROUP blocks are not currently implemented and their contents are "
            "ignored.\nWARNING: RGROUP and RLOGIC blocks are not currently implemented and "
            "their contents are ignored.\n");
}

TEST(MolReader, HostileInputsEndCleanly) {
  const std::string v3000 = kHeader + "  0  0  0     0  0            999 V3000\n";
  const auto read = [](const std::string& name, const std::string& text, int slot = 0) {
    MolProbe io;
    io.read_data_mol(temp_file(name, text).c_str(), slot, false);
    return io;
  };
  // A huge count is refused before anything is sized; so is deep CTAB nesting.
  EXPECT_EQ(read("huge.mol", v3000 + "M  V30 BEGIN CTAB\nM  V30 COUNTS 2000000000 0\n")
                .mol_x[0].size(),
            0u);
  std::string deep = v3000;
  for (int i = 0; i < 5000; ++i) deep += "M  V30 BEGIN CTAB\nM  V30 COUNTS 1 0\n";
  EXPECT_EQ(read("deep.mol", deep).mol_natoms[0], 1);
  // Truncated inside the atom block: the atoms read so far stay.
  const MolProbe cut = read("cut.mol", v3000 + "M  V30 BEGIN CTAB\nM  V30 COUNTS 3 0\n"
                                              "M  V30 BEGIN ATOM\nM  V30 1 C 1 2 3 0\nM  V30 2 ");
  EXPECT_EQ(cut.mol_atypes[0], (std::vector<int>{6, 0, 0}));
  // More atoms than COUNTS promised, or than the structure holds, are dropped.
  const MolProbe over = read("over.mol", v3000 + "M  V30 BEGIN CTAB\nM  V30 COUNTS 1 0\n"
                                                 "M  V30 BEGIN ATOM\nM  V30 1 C 1 2 3 0\n"
                                                 "M  V30 2 N 1 2 3 0\nM  V30 END ATOM\n");
  EXPECT_EQ(over.mol_atypes[0], (std::vector<int>{6}));
  // Bad slots store nothing.
  EXPECT_EQ(read("slot.mol", kHeader + "  1  0\n    0.0    0.0    0.0 C\n", 3).mol_natoms[0], 0);
  EXPECT_EQ(read("slotv3.mol", v3000 + "M  V30 BEGIN CTAB\nM  V30 COUNTS 1 0\n", -1)
                .mol_natoms[0],
            0);
  // Binary junk after a V2000 counts line is read as atoms with unknown elements.
  const char raw[] = "\x01\x00\xff\xfe V3001\n\x80\x80\n\0\0\0\n";
  const std::string junk(raw, sizeof raw - 1);
  const MolProbe bin = read("bin.mol", kHeader + "  2  0\n" + junk);
  EXPECT_EQ(bin.mol_atypes[0], (std::vector<int>{-1, -1}));
}
