// Reads a calculation directory's kavri.inp with the installed library and names its jobs.
#include <cstdio>
#include <kavri/kavri_inp.h>
#include <kavri/kavri_version.h>
int main(int argc, char** argv) {
  KavriInp inp;
  inp.read_kavri_inp(argc > 1 ? argv[1] : "kavri.inp", false);
  inp.parse_scheduling_type();
  std::printf("KAVRI %s: %s job scripts\n", KAVRI_PROJECT_VERSION,
              inp.get_job_script_ext().c_str());
}
