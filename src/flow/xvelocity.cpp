#include "flow/xvelocity.hpp"

#include <cstdint>
#include <cstdlib>

#include "driver/fields.hpp"

namespace rl {

namespace {

// One row (j,k) of the update, i = 1..I.  The pointers address element i = 0
// of the row in their own arrays; the strides reach the neighbour rows.
void XROW(double* __restrict UN, double* __restrict RO, double* __restrict RH, const double* __restrict U,
          const double* __restrict V, const double* __restrict W, const double* __restrict N, int I,
          std::int64_t usj, std::int64_t usk, std::int64_t vsj, std::int64_t wsk, std::int64_t nsj,
          std::int64_t nsk, double hx, double hy, double hz, double vis, double A, double H) {
  for (int i = 1; i <= I; ++i) {
    const double uc = U[i], ue = U[i + 1], uw = U[i - 1];
    const double un = U[i + usj], us = U[i - usj];
    const double ut = U[i + usk], ub = U[i - usk];
    const double vc = V[i], ve = V[i + 1], vs = V[i - vsj], vse = V[i + 1 - vsj];
    const double wc = W[i], we = W[i + 1], wb = W[i - wsk], wbe = W[i + 1 - wsk];

    // convection
    const double fe = (uc + ue) * 0.5, fw = (uc + uw) * 0.5;
    const double Cx = (fe * fe - fw * fw) / hx;
    const double Cy = ((vc + ve) * (uc + un) - (vs + vse) * (uc + us)) * 0.5 * 0.5 / hy;
    const double Cz = ((wc + we) * (uc + ut) - (wb + wbe) * (uc + ub)) * 0.5 * 0.5 / hz;

    // effective viscosities: cell centres and edge means
    const double Ne = N[i + 1] + vis, Nw = N[i] + vis;
    const double Nn = (N[i] + N[i + 1] + N[i + nsj] + N[i + 1 + nsj]) * 0.25 + vis;
    const double Ns = (N[i - nsj] + N[i] + N[i + 1] + N[i + 1 - nsj]) * 0.25 + vis;
    const double Nt = (N[i] + N[i + 1] + N[i + nsk] + N[i + 1 + nsk]) * 0.25 + vis;
    const double Nb = (N[i - nsk] + N[i] + N[i + 1] + N[i + 1 - nsk]) * 0.25 + vis;

    // diffusion
    const double Dx = (Ne * 2 * (ue - uc) / hx - Nw * 2 * (uc - uw) / hx) / hx;
    const double Dy = (Nn * ((un - uc) / hy + (ve - vc) / hx) - Ns * ((uc - us) / hy + (vse - vs) / hx)) / hy;
    const double Dz = (Nt * ((ut - uc) / hz + (we - wc) / hx) - Nb * ((uc - ub) / hz + (wbe - wb) / hx)) / hz;

    const double R = A - Cx - Cy - Cz + Dx + Dy + Dz;
    const double ro = RO[i];
    RH[i] = ro;
    UN[i] = uc + (3.0 * R - ro) * H;
    RO[i] = R;
  }
}

}  // namespace

// Predicts u from the old fields by one Adams-Bashforth step:
//   u = uo + (3 R - R_old) dt/2,
// with R = A - Cx - Cy - Cz + Dx + Dy + Dz: central convection in flux form,
// the full stress divergence with nut + visc (transpose terms kept) and the
// body force.  Blind to the bed and to the pressure.  The last face imax is
// computed only when the high x face is periodic.
void XVELOCITY() {
  const int I = imax - std::abs(ibcu(HighX)), J = jmax, K = kmax;
  const double hx = dx, hy = dy, hz = dz, vis = visc;
  const double A = -0.0 / dens + forcex;  // pressure-gradient slot, kept at -0
  const double H = dt * 0.5;
  const std::int64_t usj = uo.sj(), usk = uo.sk();
  const std::int64_t vsj = vo.sj();
  const std::int64_t wsk = wo.sk();
  const std::int64_t nsj = nut.sj(), nsk = nut.sk();

#pragma omp parallel for default(shared) schedule(static)
  for (int k = 1; k <= K; ++k) {
    for (int j = 1; j <= J; ++j) {
      XROW(u.at(0, j, k), rhsuo.at(0, j, k), rhsu.at(0, j, k), uo.at(0, j, k), vo.at(0, j, k), wo.at(0, j, k),
           nut.at(0, j, k), I, usj, usk, vsj, wsk, nsj, nsk, hx, hy, hz, vis, A, H);
    }
  }
}

}  // namespace rl
