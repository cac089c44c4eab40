// riverles: the solver's entry point.  It takes exactly one argument, the
// path of the case file.
#include "driver/mainprogram.hpp"

int main(int argc, char** argv) { return rl::RIVERLES(argc, argv); }
