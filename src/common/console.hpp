// The console: the run's only log, and the operator's waits.
//
// A failure prints one fixed line, waits for one line of standard input (end
// of input ends the wait) and stops the run.  The stop is an exception of
// type RunStopped that only the program's entry point catches; it turns it
// into a non-zero exit status.  Code inside a parallel region must not throw:
// it uses stop_from_parallel, which ends the process directly.
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

// Prints the line, waits for the operator and stops the run (exit status 1).
[[noreturn]] void stop_run(const std::string& line);

// The same from inside a parallel region: ends the process without unwinding.
[[noreturn]] void stop_from_parallel(const std::string& line);

// Formats a real in free format at full double precision.
std::string free_real(double x);

}  // namespace rl
