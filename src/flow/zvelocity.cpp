#include "flow/zvelocity.hpp"

#include <omp.h>

#include <cstdint>
#include <cstdlib>

#include "common/parallel.hpp"
#include "driver/fields.hpp"

namespace rl {

namespace {

// One row (j,k) of the update, i = i0..i1.  The pointers address element
// i = 0 of the row in their own arrays; the strides reach the neighbour rows.
void ZROW(double* __restrict WN, double* __restrict RO, double* __restrict RH, const double* __restrict U,
          const double* __restrict V, const double* __restrict W, const double* __restrict N, int i0, int i1,
          std::int64_t usk, std::int64_t vsj, std::int64_t vsk, std::int64_t wsj, std::int64_t wsk, std::int64_t nsj, std::int64_t nsk,
          double hx, double hy, double hz, double vis, double A, double H) {
  for (int i = i0; i <= i1; ++i) {
    const double wc = W[i], wt = W[i + wsk], wb = W[i - wsk];
    const double we = W[i + 1], ww = W[i - 1];
    const double wn = W[i + wsj], ws = W[i - wsj];
    const double uc = U[i], ut = U[i + usk], uw = U[i - 1], utw = U[i - 1 + usk];
    const double vc = V[i], vt = V[i + vsk], vs = V[i - vsj], vts = V[i - vsj + vsk];

    // convection
    const double ft = (wc + wt) * 0.5, fb = (wc + wb) * 0.5;
    const double Cz = (ft * ft - fb * fb) / hz;
    const double Cx = ((uc + ut) * (wc + we) - (uw + utw) * (wc + ww)) * 0.5 * 0.5 / hx;
    const double Cy = ((vc + vt) * (wc + wn) - (vs + vts) * (wc + ws)) * 0.5 * 0.5 / hy;

    // diffusion, own direction then x, then y
    const double Dz = ((N[i + nsk] + vis) * 2 * (wt - wc) / hz - (N[i] + vis) * 2 * (wc - wb) / hz) / hz;
    const double Nxp = (N[i] + N[i + 1] + N[i + nsk] + N[i + 1 + nsk]) * 0.25 + vis;
    const double Nxm = (N[i - 1] + N[i] + N[i + nsk] + N[i - 1 + nsk]) * 0.25 + vis;
    const double Dx = (Nxp * ((we - wc) / hx + (ut - uc) / hz) - Nxm * ((wc - ww) / hx + (utw - uw) / hz)) / hx;
    const double Nyp = (N[i] + N[i + nsj] + N[i + nsk] + N[i + nsj + nsk]) * 0.25 + vis;
    const double Nym = (N[i - nsj] + N[i] + N[i + nsk] + N[i - nsj + nsk]) * 0.25 + vis;
    const double Dy = (Nyp * ((wn - wc) / hy + (vt - vc) / hz) - Nym * ((wc - ws) / hy + (vts - vs) / hz)) / hy;

    const double R = A - Cz - Cx - Cy + Dz + Dx + Dy;
    const double ro = RO[i];
    RH[i] = ro;
    WN[i] = wc + (3.0 * R - ro) * H;
    RO[i] = R;
  }
}

}  // namespace

// Predicts w from the old fields by one Adams-Bashforth step, the update of
// u rotated to z: R = A - Cz - Cx - Cy + Dz + Dx + Dy, A holding gravity.
// The last face kmax is computed only when the high z face is periodic.  The
// threads share the i range in static blocks; each walks its block
// innermost under j and k.
void ZVELOCITY() {
  const int I = imax, J = jmax, K = kmax - std::abs(ibcw(HighZ));
  const double hx = dx, hy = dy, hz = dz, vis = visc;
  const double A = -0.0 / dens + forcez;  // pressure-gradient slot, kept at -0
  const double H = dt * 0.5;
  const std::int64_t usk = uo.sk();
  const std::int64_t vsj = vo.sj(), vsk = vo.sk();
  const std::int64_t wsj = wo.sj(), wsk = wo.sk();
  const std::int64_t nsj = nut.sj(), nsk = nut.sk();

#pragma omp parallel default(shared)
  {
    int i0, i1;
    static_share(1, I, i0, i1);

    for (int k = 1; k <= K; ++k) {
      for (int j = 1; j <= J; ++j) {
        ZROW(w.at(0, j, k), rhswo.at(0, j, k), rhsw.at(0, j, k), uo.at(0, j, k), vo.at(0, j, k), wo.at(0, j, k),
             nut.at(0, j, k), i0, i1, usk, vsj, vsk, wsj, wsk, nsj, nsk, hx, hy, hz, vis, A, H);
      }
    }
  }
}

}  // namespace rl
