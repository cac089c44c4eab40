#include "common/parallel.hpp"

#include <sched.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

namespace rl {

namespace {

// Total and idle jiffies of all CPUs, from the first line of /proc/stat.
bool cpu_times(unsigned long long& total, unsigned long long& idle) {
  std::ifstream in("/proc/stat");
  std::string line;
  if (!std::getline(in, line) || line.rfind("cpu ", 0) != 0) return false;
  std::istringstream ss(line.substr(4));
  unsigned long long v[8] = {};
  for (unsigned long long& x : v)
    if (!(ss >> x)) break;
  total = 0;
  for (unsigned long long x : v) total += x;
  idle = v[3] + v[4];  // idle and iowait
  return total > 0;
}

}  // namespace

int choose_threads() {
  if (std::getenv("OMP_NUM_THREADS") != nullptr) return 0;
  cpu_set_t set;
  CPU_ZERO(&set);
  int usable = sched_getaffinity(0, sizeof set, &set) == 0 ? CPU_COUNT(&set) : omp_get_num_procs();
  const int online = omp_get_num_procs() > 0 ? std::max(omp_get_num_procs(), usable) : usable;
  if (usable <= 1) {
    omp_set_num_threads(1);
    return 1;
  }
  unsigned long long t0, i0, t1, i1;
  int threads = usable;
  if (cpu_times(t0, i0)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    if (cpu_times(t1, i1) && t1 > t0) {
      // Idle share of the whole machine, in cores of all that are online.
      const double idle_cores = static_cast<double>(i1 - i0) / static_cast<double>(t1 - t0) * online;
      threads = std::max(1, std::min(usable, static_cast<int>(std::floor(idle_cores + 0.3))));
    }
  }
  omp_set_num_threads(threads);
  if (threads < usable)
    std::fprintf(stderr,
                 "riverles: %d of %d cores are idle: running on %d thread%s (OMP_NUM_THREADS chooses the count)\n",
                 threads, usable, threads, threads == 1 ? "" : "s");
  return threads;
}

}  // namespace rl
