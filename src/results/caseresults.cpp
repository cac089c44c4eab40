#include "results/caseresults.hpp"

#include <algorithm>
#include <vector>

#include "common/console.hpp"
#include "common/distributed.hpp"
#include "common/parallel.hpp"
#include "driver/conditions.hpp"
#include "driver/fields.hpp"
#include "orvalib/orvalib.hpp"

namespace rl {

void NODEVALUES() {
  // Every node is computed on its own: rows j are shared among the threads
  // (the values do not depend on who computes them).  A process of a run
  // over several computes the nodes of its block (node i lies between cells
  // i and i + 1; the first block also has node 0), reading one column of its
  // neighbours' cells (the caller brings the pressure's halo: the correction
  // updates a process's own pressure only); the writer gathers them a plane
  // at a time.
  const int i0 = own_lo_i(0), i1 = own_hi_i(imax), j0 = own_lo_j(0), j1 = own_hi_j(jmax);
  halo_read(&p, "p", 1, "NODEVALUES");
#pragma omp parallel for schedule(static) if (worth_sharing(cells_of(imax, jmax, kmax)))
  for (int j = j0; j <= j1; ++j)
    for (int k = 0; k <= kmax; ++k) {
      for (int i = i0; i <= i1; ++i) {
        pout(i, j, k) = 0.125 * (p(i, j, k) + p(i + 1, j, k) + p(i, j + 1, k) + p(i + 1, j + 1, k) + p(i, j, k + 1) +
                                 p(i + 1, j, k + 1) + p(i, j + 1, k + 1) + p(i + 1, j + 1, k + 1));
        qout(i, j, k) = 0.125 * (Q(i, j, k) + Q(i + 1, j, k) + Q(i, j + 1, k) + Q(i + 1, j + 1, k) + Q(i, j, k + 1) +
                                 Q(i + 1, j, k + 1) + Q(i, j + 1, k + 1) + Q(i + 1, j + 1, k + 1));
        vortout(i, j, k) =
            0.125 * (vort(i, j, k) + vort(i + 1, j, k) + vort(i, j + 1, k) + vort(i + 1, j + 1, k) + vort(i, j, k + 1) +
                     vort(i + 1, j, k + 1) + vort(i, j + 1, k + 1) + vort(i + 1, j + 1, k + 1));
        wout(i, j, k) = 0.25 * (w(i, j, k) + w(i + 1, j, k) + w(i, j + 1, k) + w(i + 1, j + 1, k));
        vout(i, j, k) = 0.25 * (v(i, j, k) + v(i + 1, j, k) + v(i, j, k + 1) + v(i + 1, j, k + 1));
        uout(i, j, k) = 0.25 * (u(i, j, k) + u(i, j + 1, k) + u(i, j, k + 1) + u(i, j + 1, k + 1));
      }
      for (int i = i0; i <= i1; ++i) {
        if (elev(i, j) >= zg3(i, j, k)) {
          uout(i, j, k) = 0.0;
          vout(i, j, k) = 0.0;
          wout(i, j, k) = 0.0;
          vortout(i, j, k) = 0.0;
          qout(i, j, k) = 0.0;
        }
      }
    }
}

namespace {

// Over several processes every one calls the writers; the first writes
// the case, each array a slab of planes k at a time from the processes'
// nodes, so that no process holds a whole 3-D array.

void write_six_arrays() {
  int ier = 0;
  const struct {
    const char* name;
    const Array3<double>* a;
  } sol[] = {{"VelocityX", &uout}, {"VelocityY", &vout},     {"VelocityZ", &wout},
             {"Pressure", &pout},  {"Vorticity", &vortout}, {"Coherent", &qout}};
  const int n = slab_planes(static_cast<long long>(imax + 1) * (jmax + 1));
  for (const auto& s : sol) {
    if (const double* all = whole_planes(*s.a, imax, jmax)) {
      orva::CG_ORVA_WRITE_SOL_REAL_PLANES_F(s.name, 0, kmax, all, ier);
      if (ier != 0) stop_write_error();
      continue;
    }
    write_planes(
        Box{s.a->lo(0), s.a->hi(0), s.a->lo(1), s.a->hi(1)}, Box{0, imax, 0, jmax}, 0, kmax, n, 1,
        [&](const Box& b, std::vector<double>& mine) { pack_box({s.a}, b, mine); },
        [&](int k0, int k1, const std::vector<double>& slab) {
          orva::CG_ORVA_WRITE_SOL_REAL_PLANES_F(s.name, k0, k1, slab.data(), ier);
          if (ier != 0) stop_write_error();
        });
  }
}

}  // namespace

void WRITEFIRSTRESULT(const std::string& casepath, int fileid) {
  int ier = 0;
  if (first_process()) {
    orva::CG_ORVA_WRITE_SOL_TIME_F(simtime, ier);
    if (ier != 0) stop_write_error();
  }
  write_six_arrays();
  if (first_process()) orva::CG_ORVA_FLUSH_F(casepath, fileid, ier);
}

void WRITERESULTS(const std::string& casepath) {
  int ier = 0;
  if (first_process()) {
    orva::ORVA_WRITE_SOL_START_F(casepath, ier);
    if (ier != 0) stop_write_error();
    say("Writing Orva output ...");
    orva::CG_ORVA_WRITE_SOL_TIME_F(simtime, ier);
    if (ier != 0) stop_write_error();
  }
  write_six_arrays();
  if (!first_process()) return;
  orva::ORVA_WRITE_SOL_END_F(casepath, ier);
  if (ier != 0) stop_write_error();
}

}  // namespace rl
