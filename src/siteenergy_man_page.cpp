// Prints the man page of kavri_siteenergy, built from the option table of its fixed command
// line. The utility parses its options itself (as prefixes, unknown ones draw a warning), so
// the page comes from this separate build-time program rather than from an option of its own.
#include <cstdio>

#include "cli_options.h"
#include "kavri_version.h"

namespace {

const CliCommand kSiteEnergy{
    "kavri_siteenergy",
    "site energies of holes and electrons in an organic molecular crystal",
    "[-config file] [-verbose]",
    {{"-config", 1, "FILE", "read FILE instead of kavri.inp"},
     {"-verbose", 0, "", "progress messages of every stage"}},
    "Run in a calculation directory: reads kavri.inp, loads the crystal (a CIF file, or MOL\n"
    "files with cell vectors), cuts it into whole molecules, builds each molecule's list of\n"
    "neighbouring molecule images, reads the energy tables of data/ and writes data/EH.dat\n"
    "(holes) and data/EL.dat (electrons). A run that succeeds ends with the line\n"
    "\"*** Successfully done.\".\n"
    "\n"
    "Options are compared as prefixes (-verbosely is -verbose, -hx asks for help); any other\n"
    "argument draws \"WARNING: Unknown option: ...\" and the run goes on. --version prints\n"
    "the utility's own version line.\n"
    "\n"
    "Exit status: 0 on success, for -h, --help, --version and a -config file that does not\n"
    "exist; 1 for bad values of checked settings, MOL format and transport-model errors; 255\n"
    "for files that cannot be opened, unknown keys, CIF format errors and energy tables that\n"
    "are missing or short. Errors print \"ERROR  transport : <module> : line <n> :\" on\n"
    "standard output followed by the message.\n"};

}  // namespace

int main() {
  std::fputs(cli_manpage(kSiteEnergy, KAVRI_PROJECT_VERSION).c_str(), stdout);
  return 0;
}
