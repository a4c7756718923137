// The single path by which every fatal error of the program ends the run.
// It prints the error header with the reporting module and the fixed line number of the
// error site, the message on the stream the error site names, and exits with the status.
#pragma once
#include <string>

enum class FatalStream { Out, Err };

// Prints "\nERROR  transport : <source> : line <line> : \n" on standard output, then
// `message` (written as given, no newline added) on the chosen stream, and ends the run.
[[noreturn]] void fatal_error(const char* source, int line, FatalStream stream,
                              const std::string& message, int status);

// Ends the run without a header; every fatal path ends here. Flushes both streams first.
[[noreturn]] void fatal_exit(int status);

// A fuzz or test harness may install a handler that is called instead of exit(); it must not
// return (it throws or longjmps). Passing nullptr restores the normal exit.
using FatalHandler = void (*)(int status);
void set_fatal_handler(FatalHandler handler);
