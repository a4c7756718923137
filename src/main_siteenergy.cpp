// Entry point of kavri_siteenergy, the site-energy utility of the KAVRI transport suite.
#include "main_siteenergy.h"

int main(int argc, char** argv) { return kavri_siteenergy_main(argc, argv); }
