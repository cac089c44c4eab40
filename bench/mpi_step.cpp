// Timer harness of whole steps over several processes: a dune channel,
// periodic in x, side walls in y, each process its block, one thread each
// unless OMP_NUM_THREADS says otherwise.  A step is TIMESTEP and the step's
// own list of routines (ADVANCE, with the exchanges inside them), the bed
// kept as in a run.  Prints one Markdown row per routine: seconds per step
// (the slowest process), ns per cell and step, and the message passing on
// its own.
//
//   mpirun -np N riverles_mpi_bench NI NJ NK STEPS
#include <mpi.h>
#include <omp.h>
#include <xmmintrin.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "common/distributed.hpp"
#include "driver/conditions.hpp"
#include "driver/domain.hpp"
#include "driver/fields.hpp"
#include "driver/mainprogram.hpp"
#include "flow/timestep.hpp"
#include "immersed/flagdeter.hpp"
#include "immersed/immerse.hpp"

using namespace rl;

namespace {

double slowest(double x) {
  double r = x;
  MPI_Allreduce(&x, &r, 1, MPI_DOUBLE, MPI_MAX, MPI_COMM_WORLD);
  return r;
}

// Per routine: seconds of the timed steps, in the order first seen.
std::vector<std::string> order;
std::map<std::string, double> spent;
bool timing = false;

void hook(const char* routine, double seconds) {
  if (!timing) return;
  if (!spent.count(routine)) order.push_back(routine);
  spent[routine] += seconds;
}

void build(int ni, int nj, int nk) {
  imax = ni;
  jmax = nj;
  kmax = nk;
  // The dune state of the one-process harness: 1 m x 0.5 m, 0.1 m deep
  // above the box bottom at 5 mm, sine dunes of 1 cm, 0.3 m/s bulk.
  xmin = ymin = 0.0;
  zmin = 0.005;
  xmax = 1.0;
  ymax = 0.5;
  zmax = 0.105;
  dx = (xmax - xmin) / ni;
  dy = (ymax - ymin) / nj;
  dz = (zmax - zmin) / nk;
  dens = 1000.0;
  visc = 1.0e-6;
  gravity = 9.81;
  discharge = 0.3 * (ymax - ymin) * 0.095;
  cfl = 0.3;
  ibed = 1;
  rough = 1.0;
  iibm = 0;
  smagorinsky = 0.1;
  igamma = 1;
  ipres = 2;
  iposts = 2;
  kpoismax = 20;
  eps = 1e-4;
  set_boundary_types(0, 1, 0);  // x periodic, side walls, free-slip top
  LEVELCOUNT();
  PlanSplit s;
  std::string why;
  if (!plan_split(dist_size(), ni, nj, s, why)) {
    if (dist_rank() == 0) std::fprintf(stderr, "%s\n", why.c_str());
    MPI_Abort(MPI_COMM_WORLD, 2);
  }
  if (dist_size() > 1)
    own_block(s, dist_rank(), ni, nj);
  else
    own_box();
  ALLOCFIELDS();
  // Four dunes along the reach, at the nodes; the bed of the cells from them.
  ALLOCNODEARRAYS();
  for (int j = 0; j <= nj; ++j)
    for (int i = 0; i <= ni; ++i) elev(i, j) = 0.01 + 0.01 * std::sin(8.0 * M_PI * i * dx);
  BUILDBED();
  // The start of a run without a given start: the mean velocity along x.
  const double x0 = discharge / (ymax - ymin) / zmax;
  for (Array3<double>* a : {&u, &uo}) a->fill(x0);
  FLAGDETER();
  FOOTCACHE(true);
  FLAGREUSE(true);
}

}  // namespace

int main(int argc, char** argv) {
  dist_start(argc, argv);
  _mm_setcsr(_mm_getcsr() | 0x8040);
  if (argc < 5) {
    if (dist_rank() == 0) std::fprintf(stderr, "usage: riverles_mpi_bench NI NJ NK STEPS\n");
    dist_end();
    return 2;
  }
  const int ni = std::atoi(argv[1]), nj = std::atoi(argv[2]), nk = std::atoi(argv[3]), steps = std::atoi(argv[4]);
  build(ni, nj, nk);
  step_timer = hook;
  int cycles = 0;
  double total = 0.0;
  // Two untimed steps (the first searches the bed), then the timed ones.
  for (int step = 0; step < steps + 2; ++step) {
    timing = step >= 2;
    if (step == 2) dist_times() = DistTimes();
    MPI_Barrier(MPI_COMM_WORLD);
    const double t0 = omp_get_wtime();
    const double tt = omp_get_wtime();
    TIMESTEP();
    hook("TIMESTEP", omp_get_wtime() - tt);
    const int c = ADVANCE();
    if (timing) {
      cycles += c;
      total += omp_get_wtime() - t0;
    }
  }
  const double cells = double(ni) * nj * nk;
  const DistTimes t = dist_times();
  const double step = slowest(total) / steps;
  std::vector<double> per(order.size());
  for (std::size_t r = 0; r < order.size(); ++r) per[r] = slowest(spent[order[r]]) / steps;
  const double halo = slowest(t.halo) / steps, wrap = slowest(t.wrap) / steps, gather = slowest(t.gather) / steps,
               reduce = slowest(t.reduce) / steps, wait = slowest(t.wait) / steps,
               wait_least = -slowest(-t.wait) / steps;
  if (dist_rank() == 0) {
    std::printf("%d x %d x %d cells, %d processes x %d threads, %d steps, %.1f pressure cycles a step\n\n", ni, nj, nk,
                dist_size(), omp_get_max_threads(), steps, double(cycles) / steps);
    std::printf("| routine | s/step | ns/cell |\n|---|---:|---:|\n");
    for (std::size_t r = 0; r < order.size(); ++r)
      std::printf("| %s | %.4f | %.2f |\n", order[r].c_str(), per[r], per[r] / cells * 1e9);
    std::printf("| **whole step** | **%.4f** | **%.2f** |\n", step, step / cells * 1e9);
    std::printf("| of it: halo exchanges (%ld a step) | %.4f | %.2f |\n", t.halos / steps, halo, halo / cells * 1e9);
    std::printf("| of them: waiting in the message calls (slowest process; least %.4f) | %.4f | %.2f |\n",
                wait_least, wait, wait / cells * 1e9);
    std::printf("| of it: periodic copies (%ld) | %.4f | %.2f |\n", t.wraps / steps, wrap, wrap / cells * 1e9);
    std::printf("| of it: coarse gathers (%ld) | %.4f | %.2f |\n", t.gathers / steps, gather, gather / cells * 1e9);
    std::printf("| of it: reductions (%ld) | %.4f | %.2f |\n", t.reduces / steps, reduce, reduce / cells * 1e9);
  }
  dist_end();
  return 0;
}
