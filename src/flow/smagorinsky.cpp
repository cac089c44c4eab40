#include "flow/smagorinsky.hpp"

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "driver/fields.hpp"
#include "immersed/farsample.hpp"
#include "immersed/immerse.hpp"
#include "immersed/viscbed.hpp"
#include "common/distributed.hpp"
#include "common/ghosts.hpp"
#include "common/parallel.hpp"

namespace rl {

namespace {

// Ghost value of a strain rate: c times the near inner cell plus (1-c) times
// the far one.
inline double ghost_w(double c, double near, double far) { return c * near + (1.0 - c) * far; }

// Ghost value of nut: (1-c) times the far inner cell minus the face type
// times the near one, so a given gradient (+1) negates the inner value.
inline double ghost_nut(double c, double t, double near, double far) { return (1.0 - c) * far - t * near; }

// One row (j, k) of stage 1, i = i0..i1: the strain rates of each cell from
// the staggered velocities, their magnitude and nut.
struct StrainViews {
  Stencil<const double> u, v, w;
  Stencil<double> s11, s22, s33, s12, s13, s23, sabs, nut;
};

void strain_row(const StrainViews& a, int j, int k, int i0, int i1, double dx, double dy, double dz, double c) {
#pragma GCC ivdep
  for (int i = i0; i <= i1; ++i) {
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

// nut at a forcing cell over several processes: stored once its image
// point's sample is at hand.
void visc_far(int i, int j, int k) {
  far_point(0, i, j, k, nut(i, j, k), [=](double& value) { IMMERSEVISC(i, j, k, value); });
}

}  // namespace

void SMAGORINSKY() {
  if (kmax < 1) return;
  halo_read(&u, "u", 1, "SMAGORINSKY");
  halo_read(&v, "v", 1, "SMAGORINSKY");
  halo_read(&w, "w", 1, "SMAGORINSKY");
  halo_wrote(&nut);

  const double delta = std::cbrt(dx * dy * dz);
  const double c = delta * smagorinsky;

  double near[7];  // [face]: the weight of the near cell in a ghost
  for (int f = LowX; f <= HighZ; ++f) near[f] = std::abs(ibcp(f));

  // In a run over several processes: this process's cells, and the ghost
  // layers of the faces its block touches.
  const bool far = far_on();
  if (far) far_start();
  const int ci0 = own_lo_i(1), ci1 = own_hi_i(imax), cj0 = own_lo_j(1), cj1 = own_hi_j(jmax);
  const GhostFaces g = field_faces(imax, jmax, kmax);
  const LineExtent lines = own_extent(0, imax + 1, 0, jmax + 1, 0, kmax + 1);
  const Reach reach{0, imax + 1, 0, jmax + 1, 0, kmax + 1};

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
      for (int j = cj0; j <= cj1; ++j) strain_row(views, j, k, ci0, ci1, dx, dy, dz, c);

    // The wall law of stage 2 reads nut of the neighbours' cells.
    halo_team({&nut}, kHalo);

    // Stage 2: forcing cells at the bed take their value from the flow
    // farther out.
#pragma omp for schedule(static)
    for (int k = 1; k <= kmax; ++k)
      for (int j = cj0; j <= cj1; ++j) {
        const int* F = flagc.row(j, k);
        for (int i = ci0; i <= ci1; ++i)
          if (F[i] == 0) {
            if (far)
              visc_far(i, j, k);
            else
              IMMERSEVISC(i, j, k, nut(i, j, k));
          }
      }
    // Image points whose nut another process holds: their owners sample
    // them, in rounds, before the ghost layers.
    if (far) {
#pragma omp barrier
#pragma omp master
      far_rounds([](const FarPoint& p) { visc_far(p.i, p.j, p.k); });
#pragma omp barrier
    }

    // The log layer's viscosity at the bed, where the case asks for it.
    if (wall_viscosity_layers() > 0) {
#pragma omp barrier
#pragma omp for schedule(static)
      for (int j = cj0; j <= cj1; ++j) wall_viscosity_row(j, ci0, ci1);
    }

    // Stage 3: ghost layers, x then y then z; each pass sees the ghosts of
    // the ones before, which fills edges and corners.
    for (int ax = 0; ax < 3; ++ax) {
      const int lo = 2 * ax + 1, hi = lo + 1, n = g.n[ax], flo = g.far(lo), fhi = g.far(hi);
      const bool rlo = g.rule(lo, ibcp(lo)), rhi = g.rule(hi, ibcp(hi));
      const double clo = near[lo], chi = near[hi], tlo = ibcp(lo), thi = ibcp(hi);
      face_lines({&s11, &s22, &s33, &s12, &s13, &s23}, ax, lines, [=](double* e, std::int64_t s) {
        if (rlo) e[0] = ghost_w(clo, e[s], e[flo * s]);
        if (rhi) e[(n + 1) * s] = ghost_w(chi, e[n * s], e[fhi * s]);
      });
      face_lines({&nut}, ax, lines, [=](double* e, std::int64_t s) {
        if (rlo) e[0] = ghost_nut(clo, tlo, e[s], e[flo * s]);
        if (rhi) e[(n + 1) * s] = ghost_nut(chi, thi, e[n * s], e[fhi * s]);
      });
      ghost_barrier();
      if (g.cut[ax])
        wrap_team({&s11, &s22, &s33, &s12, &s13, &s23, &nut}, g, ax, g.wraps(lo, ibcp(lo)), g.wraps(hi, ibcp(hi)),
                  reach);
    }

    // The predictors read nut of the neighbours' cells and ghosts.
    halo_team({&nut}, 1);
  }
}

}  // namespace rl
