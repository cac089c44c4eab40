// The console: the run's only log, and the operator's waits.
//
// How a run ends on a failure, by where it happens:
//   - the design's stops (a failed key or library read or write, a failed
//     allocation, an unreadable saved state, no argument): stop_run and
//     ERRORSTOP print the fixed line, wait for one line of standard input
//     (end of input ends the wait) and throw RunStopped, which only the
//     program's entry point catches and turns into exit status 1;
//   - a stop raised inside a parallel loop (a bed search that finds no foot
//     point): stop_from_parallel prints the line and waits under a critical
//     section, then ends the process with _Exit(1), since nothing may
//     unwind through an OpenMP region;
//   - a saved-state or Tecplot file that cannot be opened: open_failed
//     (files.hpp) ends the process with status 2 and a line on standard
//     error, as a runtime file error would;
//   - the divergence pause and the bed-search warning are not stops: the
//     run waits (pause) or goes on.
// Standard output is the design's console; anything else goes to standard
// error.
#pragma once

#include <string>

namespace rl {

struct RunStopped {
  int status;
};

// Prints a line on standard output (flushed, so a host sees it at once).
void say(const std::string& line);

// Waits for the operator: reads one line of standard input or its end.
void wait_operator();

// Prints the message of a code (1 parameters, 2 allocation, 3 saved results;
// any other code prints nothing), waits for the operator and stops the run.
[[noreturn]] void ERRORSTOP(int code);

// The divergence pause: a cell's line has been printed; waits for the
// operator unless the case skips the pauses (SkipPausesItm 1).  The first
// pause of a run says on standard error what it is and how to go on.
void divergence_pause();
void skip_pauses(bool on);

// Prints the line, waits for the operator and stops the run (exit status 1).
[[noreturn]] void stop_run(const std::string& line);

// The same from inside a parallel region: ends the process without unwinding.
[[noreturn]] void stop_from_parallel(const std::string& line);

// Formats a real in free format at full double precision.
std::string free_real(double x);

}  // namespace rl
