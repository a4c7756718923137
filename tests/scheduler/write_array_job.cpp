// Test helper of the scheduler test: reads kavri.inp in the current directory (scheduler
// type, queue, wall time, job_slot_limit) and writes the transfer-integral array script
// "<script>.<ext>" over the given task list, running <exe> per task.
// Usage: write_array_job <script> <job name> <marker> <exe> <task>,<task>,...
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "kavri_inp.h"
#include "util.h"

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fputs("Usage: write_array_job <script> <job name> <marker> <exe> <tasks>\n", stderr);
    return 1;
  }
  std::vector<int> tasks;
  for (const std::string& t : split_string_dl(argv[5], ',')) tasks.push_back(std::stoi(t));

  auto inp = std::make_unique<KavriInp>();
  inp->read_kavri_inp("kavri.inp", false);
  inp->parse_scheduling_type();
  std::string workdir;
  get_workdir(workdir);
  inp->set_job_scripts_workdir(workdir);
  inp->write_calc_transint_job_array(argv[1], inp->get_run_nodes(), inp->get_run_ppn(), argv[2],
                                     argv[3], tasks, 0, argv[4], workdir);
  return 0;
}
