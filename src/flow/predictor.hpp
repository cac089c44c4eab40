// The momentum predictor, written once for the three directions.
//
// PREDICT<D> advances the velocity component of direction D (0 x, 1 y, 2 z)
// from the old fields by one explicit Adams-Bashforth step:
//   new = old + (3 R - R_prev) * dt/2,   R_prev kept in rhsXo, and
//   R = A - C_own - C_b - C_c + D_own + D_1 + D_2
// with b, c the two other directions in the order x, y, z, and (D_1, D_2) =
// (D_b, D_c), except for y, which adds (D_z, D_x).  Convection is central in
// flux form; diffusion is the full stress divergence with nut + visc, its
// transpose terms kept; A is the body force (a pressure-gradient slot kept
// at -0/dens, then the force).  Every term is formed as the same sequence of
// operations as the textbook stencil, in every direction; only the order of
// the sum in R and of the four nut values of an edge (lower axis first)
// follow the direction.  Blind to the bed and to the pressure.
//
// reads: uo, vo, wo, nut (one column of each neighbour's), rhs?o, the force,
// dens, visc, dt, dx, dy, dz and the type of the high face of D; writes: the
// new component, rhs?, rhs?o.
#pragma once

#include <omp.h>

#include <cstdlib>

#include "common/distributed.hpp"
#include "common/parallel.hpp"
#include "driver/fields.hpp"

namespace rl {

namespace predictor {

// An offset in index space, built from unit steps along the axes.
struct Off {
  int i, j, k;
};
constexpr Off unit(int d) { return {d == 0, d == 1, d == 2}; }
constexpr Off operator+(Off a, Off b) { return {a.i + b.i, a.j + b.j, a.k + b.k}; }
constexpr Off operator-(Off a, Off b) { return {a.i - b.i, a.j - b.j, a.k - b.k}; }
constexpr Off operator-(Off a) { return {-a.i, -a.j, -a.k}; }

}  // namespace predictor

template <int D>
void PREDICT(Array3<double>& fnew, Array3<double>& rhsold, Array3<double>& rhsprev, double force, int ntop) {
  halo_wrote(&fnew);
  using predictor::Off;
  using predictor::unit;
  constexpr int B = D == 0 ? 1 : 0;  // the other two directions, in x, y, z order
  constexpr int C = D == 2 ? 1 : 2;
  constexpr Off o{0, 0, 0}, a = unit(D), b = unit(B), c = unit(C);
  // The four nut values of an edge between D and E, lower axis first.
  constexpr Off lb = unit(D < B ? D : B), hb = unit(D < B ? B : D);
  constexpr Off lc = unit(D < C ? D : C), hc = unit(D < C ? C : D);

  const double h[3] = {dx, dy, dz};
  const double vis = visc;
  const double A = -0.0 / dens + force;  // pressure-gradient slot, kept at -0
  const double H = dt * 0.5;
  const Stencil<const double> old[3] = {Stencil<const double>(uo), Stencil<const double>(vo),
                                        Stencil<const double>(wo)};
  const Stencil<const double> N(nut);
  const Stencil<double> UN(fnew), RO(rhsold), RH(rhsprev);
  int hi[3] = {imax, jmax, kmax};
  hi[D] = ntop;

  // Convection along the own direction, and across to direction E with its
  // velocity G.
  auto own_conv = [&](auto F) {
    const double fp = (F(o) + F(a)) * 0.5, fm = (F(o) + F(-a)) * 0.5;
    return (fp * fp - fm * fm) / h[D];
  };
  auto cross_conv = [&](auto F, auto G, Off e, double he) {
    return ((G(o) + G(a)) * (F(o) + F(e)) - (G(-e) + G(a - e)) * (F(o) + F(-e))) * 0.5 * 0.5 / he;
  };
  // Diffusion along the own direction, and across to E, with the nut of the
  // edges on either side.
  auto own_diff = [&](auto F, auto Nu) {
    return ((Nu(a) + vis) * 2 * (F(a) - F(o)) / h[D] - (Nu(o) + vis) * 2 * (F(o) - F(-a)) / h[D]) / h[D];
  };
  auto cross_diff = [&](auto F, auto G, auto Nu, Off e, Off l, Off u, double he) {
    const double np = (Nu(o) + Nu(l) + Nu(u) + Nu(l + u)) * 0.25 + vis;
    const double nm = (Nu(-e) + Nu(o) + Nu(a) + Nu(a - e)) * 0.25 + vis;
    return (np * ((F(e) - F(o)) / he + (G(a) - G(o)) / h[D]) - nm * ((F(o) - F(-e)) / he + (G(a - e) - G(-e)) / h[D])) /
           he;
  };

  auto row = [&](int j, int k, int i0, int i1) {
#pragma GCC ivdep
    for (int i = i0; i <= i1; ++i) {
      auto F = [&](Off q) { return old[D](i + q.i, j + q.j, k + q.k); };
      auto Gb = [&](Off q) { return old[B](i + q.i, j + q.j, k + q.k); };
      auto Gc = [&](Off q) { return old[C](i + q.i, j + q.j, k + q.k); };
      auto Nu = [&](Off q) { return N(i + q.i, j + q.j, k + q.k); };
      const double Ca = own_conv(F);
      const double Cb = cross_conv(F, Gb, b, h[B]);
      const double Cc = cross_conv(F, Gc, c, h[C]);
      const double Da = own_diff(F, Nu);
      const double Db = cross_diff(F, Gb, Nu, b, lb, hb, h[B]);
      const double Dc = cross_diff(F, Gc, Nu, c, lc, hc, h[C]);
      const double R = D == 1 ? A - Ca - Cb - Cc + Da + Dc + Db : A - Ca - Cb - Cc + Da + Db + Dc;
      const double ro = RO(i, j, k);
      RH(i, j, k) = ro;
      UN(i, j, k) = F(o) + (3.0 * R - ro) * H;
      RO(i, j, k) = R;
    }
  };

  // The k range in static shares among the threads, in every direction:
  // each thread reads and writes the planes it wrote last in the routines
  // around (every position is computed on its own, so the share does not
  // change a value).
  // In a run over several processes, each does its own block's positions.
  const int i0 = own_lo_i(1), i1 = own_hi_i(hi[0]), j0 = own_lo_j(1), j1 = own_hi_j(hi[1]);
#pragma omp parallel for default(shared) schedule(static) if (worth_sharing(cells_of(imax, jmax, kmax)))
  for (int k = 1; k <= hi[2]; ++k)
    for (int j = j0; j <= j1; ++j) row(j, k, i0, i1);
}

}  // namespace rl
