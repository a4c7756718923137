// kavri_crystal: shows what the site-energy utility makes of a crystal (cell, symmetry, atom
// counts of every loading stage, molecules, and each molecule's neighbour images in the order
// of EH.dat and EL.dat), says what looks wrong, and writes structure files for viewers.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "cli_options.h"
#include "crystal_report.h"
#include "structure_writers.h"
#include "util.h"

namespace {

const CliCommand kCommand = {
    "kavri_crystal",
    "show how the site-energy utility reads a crystal, check it, write structure files",
    "[-config file | file.cif | -mol a.mol ... -vectors ax ay az bx by bz cx cy cz] [options]",
    {
        {"-config", 1, "file", "keyword file read as the utility reads it (default kavri.inp)"},
        {"-mol", kRestOfValues, "files", "MOL files, one molecule each, instead of a crystal"},
        {"-vectors", 9, "ax ay az bx by bz cx cy cz", "cell vectors of the MOL files (A)"},
        {"-cutoff", 1, "R", "lattice_cutoff: closest contact of a neighbour (A)"},
        {"-scell", 3, "Na Nb Nc", "neighbor_scell: images searched from -N to +N"},
        {"-bond-scale", 1, "S", "bond_dis_scale: bond when (r1 + r2) * S exceeds the distance"},
        {"-json", 0, "", "write the report as JSON"},
        {"-write", 1, "FILE", "write the structure; the extension chooses the format "
                              "(.xyz .pdb .cif .vasp POSCAR .mol)", true},
        {"-cluster", 1, "M", "write molecule M with every neighbour image of its list"},
        {"-supercell", 3, "a b c", "write a P1 supercell of whole molecules"},
    },
    "The utility's own messages go to the error stream; the report goes to standard output.\n"
    "Exit status: 0 when the report was written (warnings included), 1 for a usage error.\n"};

}  // namespace

int main(int argc, char** argv) {
  CliArgs args;
  std::string error;
  if (!parse_cli(kCommand, argc, argv, args, error)) {
    std::fprintf(stderr, "%s\n%s", error.c_str(), cli_usage(kCommand).c_str());
    return 1;
  }
  if (cli_answer_standard(kCommand, args)) return 0;

  CrystalRequest request;
  request.config = args.value("-config");
  request.mols = args.last("-mol");
  request.vectors = args.last("-vectors");
  request.cutoff = args.value("-cutoff");
  const std::vector<std::string>& scell = args.last("-scell");
  if (!scell.empty()) request.scell = scell[0] + " " + scell[1] + " " + scell[2];
  request.bond_scale = args.value("-bond-scale");
  if (args.positional.size() > 1 ||
      (!args.positional.empty() && (!request.config.empty() || !request.mols.empty()))) {
    std::fprintf(stderr, "Give one crystal: -config file, a CIF file or -mol files.\n%s",
                 cli_usage(kCommand).c_str());
    return 1;
  }
  const std::vector<std::string>& sc = args.last("-supercell");
  StructureChoice choice;
  if (args.has("-cluster")) choice.cluster = std::atoi(args.value("-cluster").c_str());
  for (size_t k = 0; k < sc.size(); ++k) choice.supercell[k] = std::atoi(sc[k].c_str());
  const char* choice_error =
      (args.has("-cluster") || !sc.empty()) && !args.has("-write")
          ? "-cluster and -supercell choose what -write writes; give -write FILE."
      : args.has("-cluster") && !sc.empty() ? "Give -cluster or -supercell, not both."
      : args.has("-cluster") && choice.cluster < 1 ? "-cluster takes a molecule number from 1."
      : choice.supercell[0] < 1 || choice.supercell[1] < 1 || choice.supercell[2] < 1
          ? "-supercell takes three repetitions of at least 1."
          : nullptr;
  if (choice_error) {
    std::fprintf(stderr, "%s\n%s", choice_error, cli_usage(kCommand).c_str());
    return 1;
  }
  if (!args.positional.empty()) request.cif = args.positional[0];
  if (request.config.empty() && request.cif.empty() && request.mols.empty())
    request.config = "kavri.inp";

  // The stages print their progress and warnings on standard output; send them to the error
  // stream so that standard output holds the report alone.
  std::fflush(stdout);
  const int saved_stdout = dup(STDOUT_FILENO);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  const CrystalModel model = load_crystal(request);
  std::fflush(stdout);
  dup2(saved_stdout, STDOUT_FILENO);
  close(saved_stdout);

  const CifNotes notes = model.from_cif ? read_cif_notes(model.source) : CifNotes();
  const Warnings warnings = run_checks(model, notes);
  std::ios::sync_with_stdio(false);
  if (args.has("-json"))
    write_json_report(std::cout, model, warnings);
  else
    write_text_report(std::cout, model, warnings);
  std::cout.flush();

  if (args.has("-write")) {
    const Structure structure = select_structure(model, choice);
    for (const std::vector<std::string>& w : args.given.at("-write")) {
      write_structure_file(w[0], structure);
      std::fprintf(stderr, "Wrote %s (%zu atoms, %zu molecules)\n", w[0].c_str(),
                   structure.types.size(), structure.molecule_count());
    }
  }
  return 0;
}
