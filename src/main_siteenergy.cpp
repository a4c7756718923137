// Entry point of kavri_siteenergy, the site-energy utility of the KAVRI transport suite.
#include "main_siteenergy.h"

#if defined(__GLIBC__)
#include <malloc.h>
#endif

int main(int argc, char** argv) {
#if defined(__GLIBC__)
  // A run on a large cell allocates and frees blocks of many megabytes one stage after the
  // other (the file's text, the cell's arrays, the per-molecule lists). By default each such
  // block is mapped for itself and unmapped when freed, so the next stage's block faults in
  // fresh zeroed pages; taken from the heap (up to the largest threshold the allocator allows)
  // and not handed back at once, the freed pages are reused instead. The peak stays that of
  // the largest stage.
  mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
  mallopt(M_TRIM_THRESHOLD, 1024 * 1024 * 1024);
#endif
  return kavri_siteenergy_main(argc, argv);
}
