#include "flow/smagorinsky.hpp"

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "driver/fields.hpp"
#include "immersed/immerse.hpp"

namespace rl {

namespace {

// Ghost value of a strain rate: c times the near inner cell plus (1-c) times
// the far one.
inline double ghost_w(double c, double near, double far) { return c * near + (1.0 - c) * far; }

// Ghost value of nut: (1-c) times the far inner cell minus the face type
// times the near one, so a given gradient (+1) negates the inner value.
inline double ghost_nut(double c, double t, double near, double far) { return (1.0 - c) * far - t * near; }

// One row of stage 1, i = 1..n: the strain rates of each cell from the
// staggered velocities, their magnitude and nut.  Kept as a function of its
// own with unaliased rows so that the compiler vectorises it.
void strain_row(const double* __restrict U, const double* __restrict V, const double* __restrict W,
                double* __restrict S11, double* __restrict S22, double* __restrict S33, double* __restrict S12,
                double* __restrict S13, double* __restrict S23, double* __restrict SA, double* __restrict NU, int n,
                std::int64_t usj, std::int64_t usk, std::int64_t vsj, std::int64_t vsk, std::int64_t wsj,
                std::int64_t wsk, double dx, double dy, double dz, double c) {
  for (int i = 1; i <= n; ++i) {
    const double* Ui = U + i;
    const double* Vi = V + i;
    const double* Wi = W + i;
    const double a11 = (Ui[0] - Ui[-1]) / dx;
    const double a22 = (Vi[0] - Vi[-vsj]) / dy;
    const double a33 = (Wi[0] - Wi[-wsk]) / dz;
    const double un = Ui[usj] + Ui[0] + Ui[-1] + Ui[-1 + usj];
    const double us = Ui[0] + Ui[-1] + Ui[-usj] + Ui[-1 - usj];
    const double ut = Ui[usk] + Ui[0] + Ui[-1] + Ui[-1 + usk];
    const double ub = Ui[-usk] + Ui[0] + Ui[-1] + Ui[-1 - usk];
    const double ve = Vi[1] + Vi[0] + Vi[-vsj] + Vi[1 - vsj];
    const double vw = Vi[0] + Vi[-vsj] + Vi[-1] + Vi[-1 - vsj];
    const double vt = Vi[vsk] + Vi[0] + Vi[-vsj] + Vi[-vsj + vsk];
    const double vb = Vi[-vsk] + Vi[0] + Vi[-vsj] + Vi[-vsj - vsk];
    const double we = Wi[1] + Wi[0] + Wi[-wsk] + Wi[1 - wsk];
    const double ww = Wi[0] + Wi[-wsk] + Wi[-1] + Wi[-1 - wsk];
    const double wn = Wi[wsj] + Wi[0] + Wi[-wsk] + Wi[wsj - wsk];
    const double ws = Wi[-wsj] + Wi[0] + Wi[-wsk] + Wi[-wsj - wsk];
    const double a12 = ((un - us) * 0.25 / dy + (ve - vw) * 0.25 / dx) * 0.5;
    const double a13 = ((ut - ub) * 0.25 / dz + (we - ww) * 0.25 / dx) * 0.5;
    const double a23 = ((vt - vb) * 0.25 / dz + (wn - ws) * 0.25 / dy) * 0.5;
    const double sa =
        std::sqrt(((a12 * a12 + a13 * a13 + a23 * a23) * 2.0 + a11 * a11 + a22 * a22 + a33 * a33) * 2.0);
    S11[i] = a11;
    S22[i] = a22;
    S33[i] = a33;
    S12[i] = a12;
    S13[i] = a13;
    S23[i] = a23;
    SA[i] = sa;
    NU[i] = sa * c * c;
  }
}

}  // namespace

void SMAGORINSKY() {
  if (kmax < 1) return;

  const double delta = std::cbrt(dx * dy * dz);
  const double c = delta * smagorinsky;

  const double c1 = std::abs(ibcp(LowX)), c2 = std::abs(ibcp(HighX)), c3 = std::abs(ibcp(LowY));
  const double c4 = std::abs(ibcp(HighY)), c5 = std::abs(ibcp(LowZ)), c6 = std::abs(ibcp(HighZ));
  const double t1 = ibcp(LowX), t2 = ibcp(HighX), t3 = ibcp(LowY), t4 = ibcp(HighY), t5 = ibcp(LowZ), t6 = ibcp(HighZ);

  Array3<double>* const work[6] = {&s11, &s22, &s33, &s12, &s13, &s23};

#pragma omp parallel
  {
    // Stage 1: strain rates, their magnitude and nut at every cell, fluid
    // or not.
    const std::int64_t usj = u.sj(), usk = u.sk();
    const std::int64_t vsj = v.sj(), vsk = v.sk();
    const std::int64_t wsj = w.sj(), wsk = w.sk();
#pragma omp for schedule(static)
    for (int k = 1; k <= kmax; ++k)
      for (int j = 1; j <= jmax; ++j) {
        const double* U = u.at(0, j, k);
        const double* V = v.at(0, j, k);
        const double* W = w.at(0, j, k);
        double* S11 = s11.at(0, j, k);
        double* S22 = s22.at(0, j, k);
        double* S33 = s33.at(0, j, k);
        double* S12 = s12.at(0, j, k);
        double* S13 = s13.at(0, j, k);
        double* S23 = s23.at(0, j, k);
        double* SA = sabs.at(0, j, k);
        double* NU = nut.at(0, j, k);
        strain_row(U, V, W, S11, S22, S33, S12, S13, S23, SA, NU, imax, usj, usk, vsj, vsk, wsj, wsk, dx, dy, dz, c);
      }

    // Stage 2: forcing cells at the bed take their value from the flow
    // farther out.
#pragma omp for schedule(static)
    for (int k = 1; k <= kmax; ++k)
      for (int j = 1; j <= jmax; ++j) {
        const int* F = flagc.at(0, j, k);
        for (int i = 1; i <= imax; ++i)
          if (F[i] == 0) IMMERSEVISC(i, j, k, nut(i, j, k));
      }

    // Stage 3: ghost layers, x then y then z; each pass sees the ghosts of
    // the ones before, which fills edges and corners.
#pragma omp for schedule(static)
    for (int k = 0; k <= kmax + 1; ++k)
      for (int j = 0; j <= jmax + 1; ++j) {
        for (Array3<double>* a : work) {
          Array3<double>& W = *a;
          W(0, j, k) = ghost_w(c1, W(1, j, k), W(imax, j, k));
          W(imax + 1, j, k) = ghost_w(c2, W(imax, j, k), W(1, j, k));
        }
        nut(0, j, k) = ghost_nut(c1, t1, nut(1, j, k), nut(imax, j, k));
        nut(imax + 1, j, k) = ghost_nut(c2, t2, nut(imax, j, k), nut(1, j, k));
      }

#pragma omp for schedule(static)
    for (int k = 0; k <= kmax + 1; ++k) {
      for (Array3<double>* a : work) {
        Array3<double>& W = *a;
        double* lo = W.at(0, 0, k);
        double* hi = W.at(0, jmax + 1, k);
        const double* in1 = W.at(0, 1, k);
        const double* inn = W.at(0, jmax, k);
        for (int i = 0; i <= imax + 1; ++i) {
          lo[i] = ghost_w(c3, in1[i], inn[i]);
          hi[i] = ghost_w(c4, inn[i], in1[i]);
        }
      }
      double* lo = nut.at(0, 0, k);
      double* hi = nut.at(0, jmax + 1, k);
      const double* in1 = nut.at(0, 1, k);
      const double* inn = nut.at(0, jmax, k);
      for (int i = 0; i <= imax + 1; ++i) {
        lo[i] = ghost_nut(c3, t3, in1[i], inn[i]);
        hi[i] = ghost_nut(c4, t4, inn[i], in1[i]);
      }
    }

#pragma omp for schedule(static)
    for (int j = 0; j <= jmax + 1; ++j) {
      for (Array3<double>* a : work) {
        Array3<double>& W = *a;
        double* lo = W.at(0, j, 0);
        double* hi = W.at(0, j, kmax + 1);
        const double* in1 = W.at(0, j, 1);
        const double* inn = W.at(0, j, kmax);
        for (int i = 0; i <= imax + 1; ++i) {
          lo[i] = ghost_w(c5, in1[i], inn[i]);
          hi[i] = ghost_w(c6, inn[i], in1[i]);
        }
      }
      double* lo = nut.at(0, j, 0);
      double* hi = nut.at(0, j, kmax + 1);
      const double* in1 = nut.at(0, j, 1);
      const double* inn = nut.at(0, j, kmax);
      for (int i = 0; i <= imax + 1; ++i) {
        lo[i] = ghost_nut(c5, t5, in1[i], inn[i]);
        hi[i] = ghost_nut(c6, t6, inn[i], in1[i]);
      }
    }
  }
}

}  // namespace rl
