#include "common/parallel.hpp"

#include <sched.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
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

// CPU seconds this process has used so far (all its threads, user and
// system).
double own_cpu_seconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}
double wall_seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// The machine's counts at the start of the measurement.
struct Sample {
  bool taken = false;
  unsigned long long total = 0, idle = 0;
  double own = 0, wall = 0;
};
Sample first_sample;

}  // namespace

void start_thread_choice() {
  if (std::getenv("OMP_NUM_THREADS") != nullptr) return;
  Sample s;
  s.taken = cpu_times(s.total, s.idle);
  s.own = own_cpu_seconds();
  s.wall = wall_seconds();
  first_sample = s;
}

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
  // The moment measured began with start_thread_choice() where that was
  // called: the run's own serial start (opening the case, the grid, the
  // allocation of the fields) then fills it, and the run's own busy time in
  // it counts as idle.
  if (!first_sample.taken) start_thread_choice();
  const Sample s = first_sample;
  first_sample = Sample();
  int threads = usable;
  if (s.taken) {
    const double waited = wall_seconds() - s.wall;
    if (waited < 0.03) std::this_thread::sleep_for(std::chrono::duration<double>(0.03 - waited));
    unsigned long long t1, i1;
    if (cpu_times(t1, i1) && t1 > s.total) {
      const double own = (own_cpu_seconds() - s.own) * static_cast<double>(sysconf(_SC_CLK_TCK));
      const double span = static_cast<double>(t1 - s.total);
      const double idle = std::min(span, static_cast<double>(i1 - s.idle) + std::max(0.0, own));
      // Idle share of the whole machine, in cores of all that are online.
      const double idle_cores = idle / span * online;
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
