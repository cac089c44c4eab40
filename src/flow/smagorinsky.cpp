#include "flow/smagorinsky.hpp"

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "driver/fields.hpp"
#include "immersed/immerse.hpp"
#include "common/parallel.hpp"

namespace rl {

namespace {

// Ghost value of a strain rate: c times the near inner cell plus (1-c) times
// the far one.
inline double ghost_w(double c, double near, double far) { return c * near + (1.0 - c) * far; }

// Ghost value of nut: (1-c) times the far inner cell minus the face type
// times the near one, so a given gradient (+1) negates the inner value.
inline double ghost_nut(double c, double t, double near, double far) { return (1.0 - c) * far - t * near; }

// One row (j, k) of stage 1, i = 1..n: the strain rates of each cell from
// the staggered velocities, their magnitude and nut.
struct StrainViews {
  Stencil<const double> u, v, w;
  Stencil<double> s11, s22, s33, s12, s13, s23, sabs, nut;
};

void strain_row(const StrainViews& a, int j, int k, int n, double dx, double dy, double dz, double c) {
#pragma GCC ivdep
  for (int i = 1; i <= n; ++i) {
    const double a11 = (a.u(i, j, k) - a.u(i - 1, j, k)) / dx;
    const double a22 = (a.v(i, j, k) - a.v(i, j - 1, k)) / dy;
    const double a33 = (a.w(i, j, k) - a.w(i, j, k - 1)) / dz;
    // Four-point sums one spacing apart (their means scaled below).
    const double un = a.u(i, j + 1, k) + a.u(i, j, k) + a.u(i - 1, j, k) + a.u(i - 1, j + 1, k);
    const double us = a.u(i, j, k) + a.u(i - 1, j, k) + a.u(i, j - 1, k) + a.u(i - 1, j - 1, k);
    const double ut = a.u(i, j, k + 1) + a.u(i, j, k) + a.u(i - 1, j, k) + a.u(i - 1, j, k + 1);
    const double ub = a.u(i, j, k - 1) + a.u(i, j, k) + a.u(i - 1, j, k) + a.u(i - 1, j, k - 1);
    const double ve = a.v(i + 1, j, k) + a.v(i, j, k) + a.v(i, j - 1, k) + a.v(i + 1, j - 1, k);
    const double vw = a.v(i, j, k) + a.v(i, j - 1, k) + a.v(i - 1, j, k) + a.v(i - 1, j - 1, k);
    const double vt = a.v(i, j, k + 1) + a.v(i, j, k) + a.v(i, j - 1, k) + a.v(i, j - 1, k + 1);
    const double vb = a.v(i, j, k - 1) + a.v(i, j, k) + a.v(i, j - 1, k) + a.v(i, j - 1, k - 1);
    const double we = a.w(i + 1, j, k) + a.w(i, j, k) + a.w(i, j, k - 1) + a.w(i + 1, j, k - 1);
    const double ww = a.w(i, j, k) + a.w(i, j, k - 1) + a.w(i - 1, j, k) + a.w(i - 1, j, k - 1);
    const double wn = a.w(i, j + 1, k) + a.w(i, j, k) + a.w(i, j, k - 1) + a.w(i, j + 1, k - 1);
    const double ws = a.w(i, j - 1, k) + a.w(i, j, k) + a.w(i, j, k - 1) + a.w(i, j - 1, k - 1);
    const double a12 = ((un - us) * 0.25 / dy + (ve - vw) * 0.25 / dx) * 0.5;
    const double a13 = ((ut - ub) * 0.25 / dz + (we - ww) * 0.25 / dx) * 0.5;
    const double a23 = ((vt - vb) * 0.25 / dz + (wn - ws) * 0.25 / dy) * 0.5;
    const double sa =
        std::sqrt(((a12 * a12 + a13 * a13 + a23 * a23) * 2.0 + a11 * a11 + a22 * a22 + a33 * a33) * 2.0);
    a.s11(i, j, k) = a11;
    a.s22(i, j, k) = a22;
    a.s33(i, j, k) = a33;
    a.s12(i, j, k) = a12;
    a.s13(i, j, k) = a13;
    a.s23(i, j, k) = a23;
    a.sabs(i, j, k) = sa;
    a.nut(i, j, k) = sa * c * c;
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

#pragma omp parallel if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
    // Stage 1: strain rates, their magnitude and nut at every cell, fluid
    // or not.
    const StrainViews views{Stencil<const double>(u), Stencil<const double>(v), Stencil<const double>(w),
                            Stencil<double>(s11),       Stencil<double>(s22),       Stencil<double>(s33),
                            Stencil<double>(s12),       Stencil<double>(s13),       Stencil<double>(s23),
                            Stencil<double>(sabs),      Stencil<double>(nut)};
#pragma omp for schedule(static)
    for (int k = 1; k <= kmax; ++k)
      for (int j = 1; j <= jmax; ++j) strain_row(views, j, k, imax, dx, dy, dz, c);

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
