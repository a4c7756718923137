// libFuzzer entry for the input reader; runs in a scratch directory with output silenced.
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include "fuzz_targets.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char dir[] = "/tmp/kavri-fuzz-XXXXXX";
  if (!mkdtemp(dir) || chdir(dir) != 0) std::abort();
  if (!std::freopen("/dev/null", "w", stdout)) std::abort();
  fuzz_targets::install_fatal_seam();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_targets::input_file(data, size);
  return 0;
}
