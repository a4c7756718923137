// The site-energy driver: command line, banners and the fixed order of the run.
#pragma once
#include <string>

extern const char* const KAVRI_VERSION;     // "2022A (2.3.3)"
extern const char* const KAVRI_BUILD_DATE;  // "Apr 14 2022"

void print_KAVRI_title();
void print_KAVRI_version();
void print_KAVRI_build();
std::string get_OS_str();
std::string get_OS_sub_str();

// Runs the utility with the given command line and returns the exit status.
int kavri_siteenergy_main(int argc, char** argv);
