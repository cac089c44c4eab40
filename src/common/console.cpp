#include "common/console.hpp"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "common/distributed.hpp"

namespace rl {

void say(const std::string& line) {
  // Over several processes the console is the first process's; a line that
  // another process alone would say (a stop inside its block) goes to
  // standard error, marked with the process.
  if (!first_process()) {
    std::fprintf(stderr, "riverles (process %d): %s\n", dist_rank(), line.c_str());
    return;
  }
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

void ERRORSTOP(int code) {
  if (code == 1) say("ERROR : Failed to read the parameters ...");
  if (code == 2) say("ERROR : Failed to allocate the arrays ...");
  if (code == 3) say("ERROR : Failed to read the saved results ...");
  wait_operator();
  throw RunStopped{1};
}

void wait_operator() {
  if (!first_process()) return;  // only the first process has the operator's input
  std::string line;
  std::getline(std::cin, line);
}

namespace {
bool pauses_skipped = false;
bool pause_told = false;
}  // namespace

void skip_pauses(bool on) {
  pauses_skipped = on;
  pause_told = false;
}

void divergence_pause() {
  if (!first_process()) return;
  if (!pause_told) {
    pause_told = true;
    std::fprintf(stderr,
                 "riverles: each line \"i j k\" on the console is a cell whose divergence is above 0.01 after the "
                 "pressure solve; %s\n",
                 pauses_skipped ? "the case skips the operator's pause after each (SkipPausesItm 1)"
                                : "the run pauses after each until Enter is pressed. To go on: press Enter for each, "
                                  "end the input (Ctrl-D) to pass every later pause, or set SkipPausesItm 1 in the "
                                  "case to run without pauses");
  }
  if (!pauses_skipped) wait_operator();
}

void stop_run(const std::string& line) {
  say(line);
  wait_operator();
  throw RunStopped{1};
}

void stop_from_parallel(const std::string& line) {
#pragma omp critical(riverles_console)
  {
    say(line);
    wait_operator();
    std::fflush(stdout);
    std::_Exit(1);
  }
  std::_Exit(1);
}

std::string free_real(double x) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.17G", x);
  return buf;
}

}  // namespace rl
