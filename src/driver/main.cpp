// riverles: the solver's entry point.  It takes exactly one argument, the
// path of the case file.  Started by an MPI launcher (mpirun -np N), every
// process runs the case on its block of the plan; the first process reads
// and writes the case and keeps the console.
#include <cstdio>

#include "common/distributed.hpp"
#include "driver/mainprogram.hpp"

int main(int argc, char** argv) {
  rl::dist_start(argc, argv);
  if (rl::launched_by_mpi() && rl::launched_size() > 1 && rl::dist_size() == 1) {
    // A build without MPI started by a launcher: every process would run
    // the whole case on its own.
    std::fprintf(stderr, "riverles: started on %d processes, but this build has no MPI (install libopenmpi-dev and build again)\n",
                 rl::launched_size());
    return 1;
  }
  const int status = rl::RIVERLES(argc, argv);
  // A stop on some processes only would leave the others waiting for them:
  // over several processes a stopped run ends them all.
  if (status != 0 && rl::dist_size() > 1) rl::dist_abort(status);
  rl::dist_end();
  return status;
}
