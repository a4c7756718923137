// One entry per reader that hostile files reach: each takes the bytes of a file, runs the
// reader (and the stages that consume its result) from memory, and returns how the run
// ended: normally or on a fatal error. Shared by the libFuzzer
// programs and by the regression test that replays the inputs they found.
#pragma once
#include <cstddef>
#include <cstdint>

namespace fuzz_targets {

// Routes fatal errors to an exception that the entries catch (instead of ending the process).
void install_fatal_seam();

// How one run of an entry ended; `status` is the exit status a fatal error would have given.
struct Outcome {
  bool fatal = false;
  int status = 0;
};

Outcome input_file(const uint8_t* data, size_t size);     // kavri.inp, then the whole run
Outcome cif_file(const uint8_t* data, size_t size);       // CIF, expansion, partition, neighbours
Outcome mol_file(const uint8_t* data, size_t size);       // MOL (V2000/V3000) into one slot
Outcome energy_tables(const uint8_t* data, size_t size);  // SE_* tables and site-energy text
Outcome neighbor_file(const uint8_t* data, size_t size);  // "neighbor.dat" reading mode

}  // namespace fuzz_targets
