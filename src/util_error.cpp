// Fatal-error reporting shared by every module.
#include "util_error.h"

#include <cstdio>
#include <cstdlib>

namespace {
FatalHandler g_fatal_handler = nullptr;
}

void set_fatal_handler(FatalHandler handler) { g_fatal_handler = handler; }

void fatal_exit(int status) {
  std::fflush(stdout);
  std::fflush(stderr);
  if (g_fatal_handler) g_fatal_handler(status);
  std::exit(status);
}

void fatal_error(const char* source, int line, FatalStream stream, const std::string& message,
                 int status) {
  std::printf("\nERROR  transport : %s : line %i : \n", source, line);
  std::fflush(stdout);
  std::FILE* out = stream == FatalStream::Out ? stdout : stderr;
  std::fputs(message.c_str(), out);
  fatal_exit(status);
}
