// libFuzzer entry of one reader (chosen at build time by KAVRI_FUZZ_ENTRY); runs in a scratch
// directory (where the input entry finds the structure files an input names) with standard
// output silenced.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "fuzz_targets.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char dir[] = "/tmp/kavri-fuzz-XXXXXX";
  if (!mkdtemp(dir) || chdir(dir) != 0) std::abort();
  if (!std::freopen("/dev/null", "w", stdout)) std::abort();
  fuzz_targets::install_fatal_seam();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  (void)fuzz_targets::KAVRI_FUZZ_ENTRY(data, size);
  return 0;
}
