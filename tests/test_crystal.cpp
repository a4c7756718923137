// kavri_crystal: the checks on the real crystal files and on minimal files that trigger them,
// the P1 CIF written back through the utility's loading stages, the cluster of one molecule,
// and the command run on a reference calculation directory next to kavri_siteenergy.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <tuple>

#include "crystal_checks.h"
#include "crystal_model.h"
#include "structure_writers.h"
#include "test_support.h"

namespace fs = std::filesystem;

using test_support::has_line;
using test_support::slurp;

namespace {

const fs::path kCrystals = fs::path(KAVRI_TEST_DATA) / "crystals";

CrystalModel load_cif(const fs::path& file, const std::string& cutoff = "",
                      const std::string& scell = "") {
  CrystalRequest r;
  r.cif = file.string();
  r.cutoff = cutoff;
  r.scell = scell;
  return load_crystal(r);
}

fs::path make_tempdir() {
  std::string templ = (fs::temp_directory_path() / "kavri-crystal-XXXXXX").string();
  return fs::path(mkdtemp(templ.data()));
}


// A P1 cell of 10 A with the given atom-site rows.
fs::path minimal_cif(const fs::path& dir, const std::string& rows) {
  const fs::path p = dir / "minimal.cif";
  std::ofstream(p) << "data_minimal\n_symmetry_space_group_name_H-M 'P1'\n"
                      "_cell_length_a 10\n_cell_length_b 10\n_cell_length_c 10\n"
                      "_cell_angle_alpha 90\n_cell_angle_beta 90\n_cell_angle_gamma 90\n"
                      "loop_\n_atom_site_label\n_atom_site_type_symbol\n_atom_site_fract_x\n"
                      "_atom_site_fract_y\n_atom_site_fract_z\n"
                   << rows;
  return p;
}

// Neighbour pairs (molecule, image) of a model as a set, with the list length per molecule.
std::set<std::tuple<int, int, int, int, int>> pair_set(const CrystalModel& m) {
  std::set<std::tuple<int, int, int, int, int>> s;
  for (size_t i = 0; i < m.molecules.size(); ++i)
    for (const NeighbourImage& n : m.molecules[i].neighbours)
      s.emplace(static_cast<int>(i), n.mol, n.shift[0], n.shift[1], n.shift[2]);
  return s;
}

}  // namespace

TEST(CrystalChecks, ZeroAtomFilesNameTheLoopLineThatSwallowedTheAtomSites) {
  const std::pair<const char*, int> cases[] = {{"benzene.cif", 147},
                                               {"naphthalene_cod2100603.cif", 158},
                                               {"c22h14_aheyui_p1.cif", 19}};
  for (const auto& [name, line] : cases) {
    const CrystalModel m = load_cif(kCrystals / name);
    const CifNotes notes = read_cif_notes(m.source);
    EXPECT_EQ(m.atoms_in_cell, 0) << name;
    EXPECT_EQ(notes.symmetry_runs_into_loop, line) << name;
    const Warnings w = check_zero_atoms(m, notes);
    ASSERT_EQ(w.size(), 1u) << name;
    EXPECT_NE(w[0].find("loop_ line " + std::to_string(line)), std::string::npos) << w[0];
    EXPECT_EQ(check_formula_units(m, notes).size(), 1u) << name;  // Z given, no molecule
  }
  const CrystalModel ok = load_cif(kCrystals / "anthracene.cif");
  EXPECT_TRUE(check_zero_atoms(ok, read_cif_notes(ok.source)).empty());
}

TEST(CrystalChecks, CleanCrystalsGiveNoWarningAndTheirCounts) {
  struct Case {
    const char* name;
    int atoms, molecules, atoms_per_molecule, neighbours_of_first;
  };
  for (const Case& c : {Case{"anthracene.cif", 48, 2, 24, 14},
                        Case{"tipge_pentacene_p-1.cif", 100, 1, 100, -1},
                        Case{"tipge_pentacene_pbca.cif", 400, 4, 100, -1}}) {
    const CrystalModel m = load_cif(kCrystals / c.name);
    EXPECT_EQ(m.atoms_in_cell, c.atoms) << c.name;
    ASSERT_EQ(static_cast<int>(m.molecules.size()), c.molecules) << c.name;
    for (const CrystalMolecule& mol : m.molecules)
      EXPECT_EQ(static_cast<int>(mol.types.size()), c.atoms_per_molecule) << c.name;
    if (c.neighbours_of_first >= 0) {
      EXPECT_EQ(static_cast<int>(m.molecules[0].neighbours.size()), c.neighbours_of_first);
    }
    const Warnings w = run_checks(m, read_cif_notes(m.source));
    EXPECT_TRUE(w.empty()) << c.name << ": " << (w.empty() ? "" : w[0]);
  }
}

TEST(CrystalChecks, FormulasOccupancyAndHydrogenOnRealFiles) {
  const CrystalModel nitro = load_cif(kCrystals / "nitrothiophene_carbaldehyde.cif");
  const Warnings f = check_formulas(nitro);
  ASSERT_EQ(f.size(), 1u);
  EXPECT_NE(f[0].find("3 x C5H3NO3S, 1 x C6H3NO3S"), std::string::npos) << f[0];
  EXPECT_TRUE(check_missing_hydrogen(nitro).empty());

  const CrystalModel hcb = load_cif(kCrystals / "hexachlorobenzene.cif");
  EXPECT_EQ(check_missing_hydrogen(hcb).size(), 1u);
  EXPECT_TRUE(check_formulas(hcb).empty());

  const CifNotes tbm = read_cif_notes((kCrystals / "tribenzylmethanol_crlf.cif").string());
  EXPECT_EQ(tbm.partial_occupancy, 3);  // the three hydroxyl H flagged P
  EXPECT_EQ(check_occupancy(tbm).size(), 1u);
  EXPECT_TRUE(check_occupancy(read_cif_notes((kCrystals / "anthracene.cif").string())).empty());
}

TEST(CrystalChecks, UnknownSymbolsUnreadCoordinatesAndCloseAtomsOnMinimalFiles) {
  const fs::path dir = make_tempdir();
  const CrystalModel bad = load_cif(minimal_cif(dir,
                                                "C1 C 0.1 0.1 0.1\n"
                                                "H1 H 0.1 0.13 0.1\n"
                                                "H2 H 0.1 0.16 0.1\n"
                                                "Q1 Qq 0.5 0.5 ?\n"));
  EXPECT_EQ(check_unknown_elements(bad).size(), 1u);
  EXPECT_EQ(check_unread_coordinates(bad).size(), 1u);
  const Warnings close = check_close_atoms(bad);
  ASSERT_EQ(close.size(), 1u);
  EXPECT_NE(close[0].find("2 atom pair(s) inside molecules"), std::string::npos) << close[0];

  const CrystalModel good = load_cif(minimal_cif(dir, "C1 C 0.1 0.1 0.1\nH1 H 0.1 0.2 0.1\n"));
  EXPECT_TRUE(check_unknown_elements(good).empty());
  EXPECT_TRUE(check_unread_coordinates(good).empty());
  EXPECT_TRUE(check_close_atoms(good).empty());
  fs::remove_all(dir);
}

TEST(CrystalChecks, CutoffAndSearchRange) {
  const fs::path file = kCrystals / "anthracene.cif";
  const CrystalModel tight = load_cif(file, "1.0");
  EXPECT_EQ(check_isolated_molecules(tight).size(), 1u);
  EXPECT_TRUE(check_search_reach(tight).empty());

  const CrystalModel boxed = load_cif(file, "", "0 0 0");
  EXPECT_TRUE(check_isolated_molecules(boxed).empty());  // the two molecules touch in the cell
  EXPECT_FALSE(check_search_reach(boxed).empty());

  const CrystalModel normal = load_cif(file);
  EXPECT_TRUE(check_isolated_molecules(normal).empty());
  EXPECT_TRUE(check_search_reach(normal).empty());
}

TEST(CrystalModel, HillFormula) {
  EXPECT_EQ(hill_formula({6, 1, 1, 8, 6, 17}), "C2H2ClO");
  EXPECT_EQ(hill_formula({1, 8, 1}), "H2O");
  EXPECT_EQ(hill_formula({17, 11}), "ClNa");
  EXPECT_EQ(hill_formula({6, -1}), "CX");
}

// The written P1 CIF, loaded again through the same stages, gives the same molecules and the
// same neighbour pairs; the supercell doubles them.
TEST(CrystalWriters, P1CifRoundTripKeepsMoleculesAndNeighbourLists) {
  const fs::path dir = make_tempdir();
  for (const char* name : {"anthracene.cif", "tipge_pentacene_pbca.cif",
                           "nitrothiophene_carbaldehyde.cif"}) {
    const CrystalModel m = load_cif(kCrystals / name);
    const fs::path out = dir / "cell.cif";
    write_structure_file(out.string(), select_structure(m, StructureChoice()));
    const CrystalModel back = load_cif(out);
    ASSERT_EQ(back.molecules.size(), m.molecules.size()) << name;
    for (size_t i = 0; i < m.molecules.size(); ++i) {
      EXPECT_EQ(back.molecules[i].formula, m.molecules[i].formula) << name << " " << i;
      ASSERT_EQ(back.molecules[i].neighbours.size(), m.molecules[i].neighbours.size());
      for (size_t k = 0; k < m.molecules[i].neighbours.size(); ++k)
        EXPECT_NEAR(back.molecules[i].neighbours[k].com_distance,
                    m.molecules[i].neighbours[k].com_distance, 1e-5);
    }
    EXPECT_EQ(pair_set(back), pair_set(m)) << name;
  }

  const CrystalModel m = load_cif(kCrystals / "anthracene.cif");
  StructureChoice twice;
  twice.supercell[1] = 2;
  write_structure_file((dir / "super.cif").string(), select_structure(m, twice));
  const CrystalModel super = load_cif(dir / "super.cif");
  ASSERT_EQ(super.molecules.size(), 4u);
  EXPECT_NEAR(super.cell[1], 2 * m.cell[1], 1e-5);
  for (const CrystalMolecule& mol : super.molecules) EXPECT_EQ(mol.formula, "C14H10");
  fs::remove_all(dir);
}

// The site-energy utility itself cuts the written file into the same molecules.
TEST(CrystalWriters, WrittenCifReadByTheUtility) {
  const fs::path dir = make_tempdir();
  auto partition = [&dir](const std::string& cif) {
    std::ofstream(dir / "kavri.inp") << "&transport\n  crystal = " << cif << "\n/\n";
    const std::string cmd = "cd " + dir.string() + " && " + KAVRI_EXE + " -verbose > run.out";
    EXPECT_NE(std::system(cmd.c_str()), -1);
    std::istringstream out(slurp(dir / "run.out"));
    std::string lines;
    for (std::string l; std::getline(out, l);)
      if (l.rfind("  Unit cell n", 0) == 0) lines += l + "\n";
    return lines;
  };
  const fs::path source = kCrystals / "tipge_pentacene_pbca.cif";
  write_structure_file((dir / "p1.cif").string(),
                       select_structure(load_cif(source), StructureChoice()));
  const std::string want = partition(source.string());
  EXPECT_EQ(want, "  Unit cell nmols  = 4\n  Unit cell natoms = 100 100 100 100\n");
  EXPECT_EQ(partition((dir / "p1.cif").string()), want);
  fs::remove_all(dir);
}

TEST(CrystalWriters, ClusterHoldsTheMoleculeAndEveryNeighbourImage) {
  const CrystalModel m = load_cif(kCrystals / "anthracene.cif");
  StructureChoice choice;
  choice.cluster = 2;
  const Structure s = select_structure(m, choice);
  EXPECT_FALSE(s.periodic);
  ASSERT_EQ(s.molecule_count(), 1 + m.molecules[1].neighbours.size());
  EXPECT_EQ(s.types.size(), 24 * s.molecule_count());
  // Image k + 1 of the cluster is neighbour k, at its centre-of-mass distance from molecule 2.
  const NeighbourImage& n = m.molecules[1].neighbours[3];
  double com[2][3] = {};
  for (size_t a = 0; a < s.types.size(); ++a)
    for (int which = 0; which < 2; ++which)
      if (s.molecule[a] == (which ? 4 : 0))
        for (int k = 0; k < 3; ++k) com[which][k] += s.cart[3 * a + k] / 24.0;
  double d2 = 0;
  for (int k = 0; k < 3; ++k) d2 += (com[1][k] - com[0][k]) * (com[1][k] - com[0][k]);
  EXPECT_NEAR(std::sqrt(d2), n.com_distance, 0.05);  // unweighted centre, equal masses per image
  EXPECT_EXIT(write_cif(std::cout, s), ::testing::ExitedWithCode(1), "no cell");
}

// Overrides of the command line win over the input file; the bond scale is in force when the
// crystal line is read, whatever the file sets before it.
TEST(CrystalLoad, CommandLineOverridesTheInputFile) {
  const fs::path dir = make_tempdir();
  const fs::path inp = dir / "kavri.inp";
  std::ofstream(inp) << "&transport\n  bond_dis_scale = 0.5\n  crystal = "
                     << (kCrystals / "anthracene.cif").string()
                     << "\n  lattice_cutoff = 3.0\n/\n";
  CrystalRequest r;
  r.config = inp.string();
  const CrystalModel as_written = load_crystal(r);
  EXPECT_EQ(as_written.molecules.size(), 48u);  // every atom alone at a scale of 0.5
  EXPECT_DOUBLE_EQ(as_written.cutoff, 3.0);

  r.bond_scale = "1.15";
  r.cutoff = "4.5";
  r.scell = "2 2 2";
  const CrystalModel overridden = load_crystal(r);
  ASSERT_EQ(overridden.molecules.size(), 2u);
  EXPECT_EQ(overridden.molecules[0].formula, "C14H10");
  EXPECT_DOUBLE_EQ(overridden.cutoff, 4.5);
  EXPECT_EQ(overridden.scell[0], 2);
  fs::remove_all(dir);
}

// On a reference calculation directory the command reads kavri.inp exactly as the utility
// does: one neighbour list per molecule with as many entries as its block of EH.dat.
TEST(CrystalCommand, ConfigGivesTheNeighbourCountsOfEHdat) {
  const fs::path golden = fs::path(KAVRI_TEST_DATA) / "golden" / "anthracene-holes-scell2";
  const fs::path dir = make_tempdir();
  fs::copy(golden / "input", dir, fs::copy_options::recursive);
  const std::string cmd = "cd " + dir.string() + " && " + KAVRI_CRYSTAL_EXE +
                          " -config kavri.inp > report.txt 2> report.err";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  const std::string report = slurp(dir / "report.txt");
  EXPECT_NE(report.find("lattice_cutoff 3.8 A, neighbor_scell 2 2 2"), std::string::npos);
  std::istringstream eh(slurp(golden / "expected" / "data" / "EH.dat"));
  int nmols = 0;
  eh >> nmols;
  ASSERT_EQ(nmols, 2);
  for (int i = 1; i <= nmols; ++i) {
    int count = 0, id = 0;
    eh >> count >> id;
    for (int k = 0; k < 2 * count; ++k) {
      std::string skip;
      eh >> skip;
    }
    EXPECT_NE(report.find("  molecule " + std::to_string(id) + ": " + std::to_string(count) +
                          " neighbours\n"),
              std::string::npos)
        << "molecule " << id << " count " << count;
  }
  fs::remove_all(dir);
}

TEST(CrystalCommand, UsageErrorsEndWithStatusOneBeforeAnythingIsRead) {
  const std::string exe = KAVRI_CRYSTAL_EXE;
  const std::string cif = (kCrystals / "anthracene.cif").string();
  for (const std::string& args : {std::string(" -bogus"), " " + cif + " -cluster 1", " " + cif + " " + cif,
                                   " " + cif + " -supercell 0 1 1 -write x.cif",
                                   std::string(" -cutoff")}) {
    const int status = std::system((exe + args + " > /dev/null 2>&1").c_str());
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << args;
  }
  EXPECT_EQ(std::system((exe + " --version > /dev/null").c_str()), 0);
}
