// The main program: start-up in its fixed order, the time loop, shutdown.
#pragma once

#include <cstdint>

namespace rl {

// Truncates a quotient towards zero into a 32-bit integer.  A value that is
// not finite or lies outside the 32-bit range gives the smallest 32-bit
// integer, as the hardware conversion does, without undefined behaviour.
std::int32_t trunc_i32(double x);

// An output is due when the step from timeold to time crossed a whole
// multiple of its interval.
bool output_due(double time, double timeold, double interval);

// Below this step the solid positions are cleared in every step.
constexpr double DTCLEAN = 0.0008;

// The numerical part of a step, after the time step is set and the time
// advanced: prediction, forcing at the bed, projection, the second forcing,
// eddy viscosity, reclassification and the copy into the old fields.
// Returns the number of pressure cycles.
// reads and writes: the whole flow state, as the routines it calls
int ADVANCE();

// When set, ADVANCE reports the wall time of each routine it calls (the
// benchmarks use it); a routine called twice in a step reports twice.
using StepTimer = void (*)(const char* routine, double seconds);
extern StepTimer step_timer;

// Prints the status block of a step.
void print_status(int npoisson);

// Runs the solver on the command line's arguments; returns the exit status.
int RIVERLES(int argc, char** argv);

}  // namespace rl
