#include "results/caseresults.hpp"

#include "common/console.hpp"
#include "common/parallel.hpp"
#include "driver/conditions.hpp"
#include "driver/fields.hpp"
#include "orvalib/orvalib.hpp"

namespace rl {

void NODEVALUES() {
  // Every node is computed on its own: rows j are shared among the threads
  // (the values do not depend on who computes them).
#pragma omp parallel for schedule(static) if (worth_sharing(cells_of(imax, jmax, kmax)))
  for (int j = 0; j <= jmax; ++j)
    for (int k = 0; k <= kmax; ++k) {
      for (int i = 0; i <= imax; ++i) {
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
      for (int i = 0; i <= imax; ++i) {
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

void write_six_arrays() {
  int ier = 0;
  const struct {
    const char* name;
    const Array3<double>* a;
  } sol[] = {{"VelocityX", &uout}, {"VelocityY", &vout},     {"VelocityZ", &wout},
             {"Pressure", &pout},  {"Vorticity", &vortout}, {"Coherent", &qout}};
  for (const auto& s : sol) {
    orva::CG_ORVA_WRITE_SOL_REAL_F(s.name, s.a->data(), ier);
    if (ier != 0) stop_write_error();
  }
}

}  // namespace

void WRITEFIRSTRESULT(const std::string& casepath, int fileid) {
  int ier = 0;
  orva::CG_ORVA_WRITE_SOL_TIME_F(simtime, ier);
  if (ier != 0) stop_write_error();
  write_six_arrays();
  orva::CG_ORVA_FLUSH_F(casepath, fileid, ier);
}

void WRITERESULTS(const std::string& casepath) {
  int ier = 0;
  orva::ORVA_WRITE_SOL_START_F(casepath, ier);
  if (ier != 0) stop_write_error();
  say("Writing Orva output ...");
  orva::CG_ORVA_WRITE_SOL_TIME_F(simtime, ier);
  if (ier != 0) stop_write_error();
  write_six_arrays();
  orva::ORVA_WRITE_SOL_END_F(casepath, ier);
  if (ier != 0) stop_write_error();
}

}  // namespace rl
