#include "common/console.hpp"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

namespace rl {

void say(const std::string& line) {
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

void wait_operator() {
  std::string line;
  std::getline(std::cin, line);
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
