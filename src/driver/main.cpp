// riverles: the solver's entry point.  It takes exactly one argument, the
// path of the case file.  Started by an MPI launcher (mpirun), it runs with
// one process only for now: a larger count stops at once with a note on
// standard error, before the case is touched.
#include <cstdio>

#include "common/distributed.hpp"
#include "driver/mainprogram.hpp"

int main(int argc, char** argv) {
  rl::DISTSTART(argc, argv);
  const int nprocs = rl::launched_by_mpi() ? rl::launched_size() : 1;
  if (nprocs > 1) {
    if (rl::dist_rank() == 0)
      std::fprintf(stderr,
                   "riverles: started on %d processes; this build runs a case on one process only "
                   "(mpirun -np 1, or riverles CASEFILE)\n",
                   nprocs);
    rl::DISTEND();
    return 1;
  }
  const int status = rl::RIVERLES(argc, argv);
  rl::DISTEND();
  return status;
}
