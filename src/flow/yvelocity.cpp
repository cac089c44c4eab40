#include "flow/yvelocity.hpp"

#include <omp.h>

#include <cstdint>
#include <cstdlib>

#include "common/parallel.hpp"
#include "driver/fields.hpp"

namespace rl {

namespace {

// One row (j,k) of the update, i = i0..i1.  The pointers address element
// i = 0 of the row in their own arrays; the strides reach the neighbour rows.
void YROW(double* __restrict VN, double* __restrict RO, double* __restrict RH, const double* __restrict U,
          const double* __restrict V, const double* __restrict W, const double* __restrict N, int i0, int i1,
          std::int64_t usj, std::int64_t vsj, std::int64_t vsk, std::int64_t wsj, std::int64_t wsk, std::int64_t nsj, std::int64_t nsk,
          double hx, double hy, double hz, double vis, double A, double H) {
  for (int i = i0; i <= i1; ++i) {
    const double vc = V[i], vn = V[i + vsj], vs = V[i - vsj];
    const double ve = V[i + 1], vw = V[i - 1];
    const double vt = V[i + vsk], vb = V[i - vsk];
    const double uc = U[i], un = U[i + usj], uw = U[i - 1], unw = U[i - 1 + usj];
    const double wc = W[i], wn = W[i + wsj], wb = W[i - wsk], wnb = W[i + wsj - wsk];

    // convection
    const double fn = (vc + vn) * 0.5, fs = (vc + vs) * 0.5;
    const double Cy = (fn * fn - fs * fs) / hy;
    const double Cx = ((uc + un) * (vc + ve) - (uw + unw) * (vc + vw)) * 0.5 * 0.5 / hx;
    const double Cz = ((wc + wn) * (vc + vt) - (wb + wnb) * (vc + vb)) * 0.5 * 0.5 / hz;

    // diffusion, own direction then z, then x
    const double Dy = ((N[i + nsj] + vis) * 2 * (vn - vc) / hy - (N[i] + vis) * 2 * (vc - vs) / hy) / hy;
    const double Nxp = (N[i] + N[i + 1] + N[i + nsj] + N[i + 1 + nsj]) * 0.25 + vis;
    const double Nxm = (N[i - 1] + N[i] + N[i + nsj] + N[i - 1 + nsj]) * 0.25 + vis;
    const double Dx = (Nxp * ((ve - vc) / hx + (un - uc) / hy) - Nxm * ((vc - vw) / hx + (unw - uw) / hy)) / hx;
    const double Nzp = (N[i] + N[i + nsj] + N[i + nsk] + N[i + nsj + nsk]) * 0.25 + vis;
    const double Nzm = (N[i - nsk] + N[i] + N[i + nsj] + N[i + nsj - nsk]) * 0.25 + vis;
    const double Dz = (Nzp * ((vt - vc) / hz + (wn - wc) / hy) - Nzm * ((vc - vb) / hz + (wnb - wb) / hy)) / hz;

    const double R = A - Cy - Cx - Cz + Dy + Dz + Dx;
    const double ro = RO[i];
    RH[i] = ro;
    VN[i] = vc + (3.0 * R - ro) * H;
    RO[i] = R;
  }
}

}  // namespace

// Predicts v from the old fields by one Adams-Bashforth step, the update of
// u rotated to y: R = A - Cy - Cx - Cz + Dy + Dz + Dx.  The last face jmax
// is computed only when the high y face is periodic.  The threads share the
// i range in static blocks; each walks its block innermost under j and k.
void YVELOCITY() {
  const int I = imax, J = jmax - std::abs(ibcv(HighY)), K = kmax;
  const double hx = dx, hy = dy, hz = dz, vis = visc;
  const double A = -0.0 / dens + forcey;  // pressure-gradient slot, kept at -0
  const double H = dt * 0.5;
  const std::int64_t usj = uo.sj();
  const std::int64_t vsj = vo.sj(), vsk = vo.sk();
  const std::int64_t wsj = wo.sj(), wsk = wo.sk();
  const std::int64_t nsj = nut.sj(), nsk = nut.sk();

#pragma omp parallel default(shared)
  {
    int i0, i1;
    static_share(1, I, i0, i1);

    for (int k = 1; k <= K; ++k) {
      for (int j = 1; j <= J; ++j) {
        YROW(v.at(0, j, k), rhsvo.at(0, j, k), rhsv.at(0, j, k), uo.at(0, j, k), vo.at(0, j, k), wo.at(0, j, k),
             nut.at(0, j, k), i0, i1, usj, vsj, vsk, wsj, wsk, nsj, nsk, hx, hy, hz, vis, A, H);
      }
    }
  }
}

}  // namespace rl
