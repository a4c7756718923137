// One entry per reader that hostile files reach: each takes the bytes of a file, runs the
// reader (and the stages that consume its result) in the current directory, and returns
// normally whether the run succeeded or ended on a fatal error. Shared by the libFuzzer
// programs and by the regression test that replays the inputs they found.
#pragma once
#include <cstddef>
#include <cstdint>

namespace fuzz_targets {

// Routes fatal errors to an exception that the entries catch (instead of ending the process).
void install_fatal_seam();

void input_file(const uint8_t* data, size_t size);    // kavri.inp, then the whole run
void cif_file(const uint8_t* data, size_t size);      // CIF, expansion, partition, neighbours
void mol_file(const uint8_t* data, size_t size);      // MOL (V2000/V3000), then neighbours
void energy_tables(const uint8_t* data, size_t size); // SE_* tables and site-energy output
void neighbor_file(const uint8_t* data, size_t size); // "neighbor.dat" reading mode

}  // namespace fuzz_targets
