// Timer harness of the routines that run over several processes: a channel
// without a bed (periodic in x, walls in y), each process its block, one
// thread each unless OMP_NUM_THREADS says otherwise.  A pass is the step's
// bed-free routines in the step's order: SMAGORINSKY, the three predictors,
// the velocity ghost layers (with their halos), POISSONP, CORRECTION, the
// ghost layers again, DIVERGENCE, TIMESTEP, SAVEOLD.  Prints one Markdown
// row per routine: seconds per pass (the slowest process), ns per cell and
// pass, and the message passing on its own.
//
//   mpirun -np N riverles_mpi_bench NI NJ NK PASSES
#include <mpi.h>
#include <omp.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "common/distributed.hpp"
#include "driver/fields.hpp"
#include "flow/smagorinsky.hpp"
#include "flow/timestep.hpp"
#include "flow/xvelocity.hpp"
#include "flow/yvelocity.hpp"
#include "flow/zvelocity.hpp"
#include "immersed/stepend.hpp"
#include "pressure/boundary.hpp"
#include "pressure/correction.hpp"
#include "pressure/divergence.hpp"
#include "pressure/multigridp.hpp"

using namespace rl;

namespace {

double slowest(double x) {
  double r = x;
  MPI_Allreduce(&x, &r, 1, MPI_DOUBLE, MPI_MAX, MPI_COMM_WORLD);
  return r;
}

void build(int ni, int nj, int nk) {
  imax = ni;
  jmax = nj;
  kmax = nk;
  dx = 1.0 / ni;
  dy = 0.5 / nj;
  dz = 0.1 / nk;
  dens = 1000.0;
  visc = 1.0e-6;
  dt = 1.0e-3;
  cfl = 0.3;
  smagorinsky = 0.1;
  igamma = 1;
  ipres = 2;
  iposts = 2;
  kpoismax = 20;
  eps = 1e-4;
  forcex = 0.01;
  const int types[6] = {Periodic, Periodic, Given, Given, Given, Gradient};
  for (int f = 1; f <= 6; ++f) {
    ibcu(f) = ibcv(f) = ibcw(f) = types[f - 1];
    ibcp(f) = f <= 2 ? 0 : (f == HighZ ? -1 : 1);
  }
  LEVELCOUNT();
  PlanSplit s;
  std::string why;
  if (!PLANSPLIT(dist_size(), ni, nj, s, why)) {
    if (dist_rank() == 0) std::fprintf(stderr, "%s\n", why.c_str());
    MPI_Abort(MPI_COMM_WORLD, 2);
  }
  if (dist_size() > 1)
    OWNBLOCK(s, dist_rank(), true, false, ni, nj);
  else
    OWNBOX();
  ALLOCFIELDS();
  for (std::int64_t m = 0; m < flagc.size(); ++m) flagc.data()[m] = 1;
  for (Array3<double>* a : {&u, &v, &w, &uo, &vo, &wo})
    for (int k = a->lo(2); k <= a->hi(2); ++k)
      for (int j = a->lo(1); j <= a->hi(1); ++j)
        for (int i = a->lo(0); i <= a->hi(0); ++i)
          (*a)(i, j, k) = (a == &u || a == &uo ? 0.3 : 0.0) + 0.01 * std::sin(0.3 * i + 0.7 * j + 1.1 * k);
}

}  // namespace

int main(int argc, char** argv) {
  DISTSTART(argc, argv);
  _mm_setcsr(_mm_getcsr() | 0x8040);
  if (argc < 5) {
    if (dist_rank() == 0) std::fprintf(stderr, "usage: riverles_mpi_bench NI NJ NK PASSES\n");
    DISTEND();
    return 2;
  }
  const int ni = std::atoi(argv[1]), nj = std::atoi(argv[2]), nk = std::atoi(argv[3]), passes = std::atoi(argv[4]);
  build(ni, nj, nk);
  int cycles = 0;
  const std::vector<std::pair<std::string, std::function<void()>>> routines = {
      {"SMAGORINSKY", SMAGORINSKY},
      {"XVELOCITY", XVELOCITY},
      {"YVELOCITY", YVELOCITY},
      {"ZVELOCITY", ZVELOCITY},
      {"boundaries", BOUNDARYUVW},
      {"POISSONP", [&] { cycles += POISSONP(); }},
      {"CORRECTION", CORRECTION},
      {"boundaries ", BOUNDARYUVW},
      {"DIVERGENCE", DIVERGENCE},
      {"TIMESTEP", TIMESTEP},
      {"SAVEOLD", SAVEOLD},
  };
  std::vector<double> spent(routines.size(), 0.0);
  // One untimed pass, then the timed ones.
  for (int pass = 0; pass <= passes; ++pass) {
    if (pass == 1) {
      dist_times() = DistTimes();
      cycles = 0;
    }
    for (std::size_t r = 0; r < routines.size(); ++r) {
      MPI_Barrier(MPI_COMM_WORLD);
      const double t0 = omp_get_wtime();
      routines[r].second();
      if (pass > 0) spent[r] += omp_get_wtime() - t0;
    }
  }
  const double cells = double(ni) * nj * nk;
  double total = 0;
  std::vector<double> worst(routines.size());
  for (std::size_t r = 0; r < routines.size(); ++r) total += (worst[r] = slowest(spent[r]) / passes);
  const DistTimes t = dist_times();
  const double halo = slowest(t.halo) / passes, wrap = slowest(t.wrap) / passes, gather = slowest(t.gather) / passes,
               reduce = slowest(t.reduce) / passes;
  if (dist_rank() == 0) {
    std::printf("%d x %d x %d cells, %d processes x %d threads, %d passes, %.1f pressure cycles a pass\n\n", ni, nj,
                nk, dist_size(), omp_get_max_threads(), passes, double(cycles) / passes);
    std::printf("| routine | s/pass | ns/cell |\n|---|---:|---:|\n");
    for (std::size_t r = 0; r < routines.size(); ++r)
      std::printf("| %s | %.4f | %.2f |\n", routines[r].first.c_str(), worst[r], worst[r] / cells * 1e9);
    std::printf("| **pass** | **%.4f** | **%.2f** |\n", total, total / cells * 1e9);
    std::printf("| of it: halo exchanges (%ld a pass) | %.4f | %.2f |\n", t.halos / passes, halo, halo / cells * 1e9);
    std::printf("| of it: periodic copies (%ld) | %.4f | %.2f |\n", t.wraps / passes, wrap, wrap / cells * 1e9);
    std::printf("| of it: coarse gathers (%ld) | %.4f | %.2f |\n", t.gathers / passes, gather, gather / cells * 1e9);
    std::printf("| of it: reductions (%ld) | %.4f | %.2f |\n", t.reduces / passes, reduce, reduce / cells * 1e9);
  }
  DISTEND();
  return 0;
}
