// Wall laws at bed forcing points: sampling at the image point and the laws.
#include <gtest/gtest.h>

#include <cmath>

#include "driver/fields.hpp"
#include "immersed/wallaw.hpp"

namespace {

// 8x8x8 cells of 1.0 x 0.5 x 0.25, all positions fluid, all faces walls.
void law_grid() {
  rl::imax = 8;
  rl::jmax = 8;
  rl::kmax = 8;
  rl::lmin = 0;
  rl::ALLOCFIELDS();
  rl::dx = 1.0;
  rl::dy = 0.5;
  rl::dz = 0.25;
  rl::xmin = 0.0;
  rl::ymin = 0.0;
  rl::zmin = 0.0;
  rl::xmax = 8.0;
  rl::ymax = 4.0;
  rl::zmax = 2.0;
  rl::rough = 1.0;  // z0 = 8.33e-5
  rl::visc = 1e-6;
  for (int f = 1; f <= 6; ++f) {
    rl::ibcu(f) = -1;
    rl::ibcv(f) = -1;
    rl::ibcw(f) = -1;
    rl::ibcp(f) = -1;
  }
  rl::flagu.fill(1);
  rl::flagv.fill(1);
  rl::flagw.fill(1);
  rl::flagc.fill(1);
}

const double kZ0 = 0.0833333333333333 * 1.0 / 1000.0;

struct Vec {
  double x, y, z;
};

// Linear velocity field, evaluated at the staggered positions.
Vec lin_field(double x, double y, double z) {
  return {0.3 + 0.2 * x - 0.1 * y + 0.4 * z, -0.2 + 0.1 * x + 0.3 * y - 0.2 * z, 0.05 - 0.1 * x + 0.2 * y + 0.1 * z};
}

void set_linear_field() {
  for (int k = -1; k <= rl::kmax + 1; ++k)
    for (int j = -1; j <= rl::jmax + 1; ++j)
      for (int i = -1; i <= rl::imax + 1; ++i) {
        const double xf = i * rl::dx, yf = j * rl::dy, zf = k * rl::dz;
        const double xc = (i - 0.5) * rl::dx, yc = (j - 0.5) * rl::dy, zc = (k - 0.5) * rl::dz;
        if (j >= 0 && k >= 0) rl::u(i, j, k) = lin_field(xf, yc, zc).x;
        if (i >= 0 && k >= 0) rl::v(i, j, k) = lin_field(xc, yf, zc).y;
        if (i >= 0 && j >= 0) rl::w(i, j, k) = lin_field(xc, yc, zf).z;
      }
}

// Tangential part of U against the unit normal n.
Vec tangent(Vec U, Vec n) {
  const double un = U.x * n.x + U.y * n.y + U.z * n.z;
  return {U.x - un * n.x, U.y - un * n.y, U.z - un * n.z};
}
double norm(Vec a) { return std::sqrt(a.x * a.x + a.y * a.y + a.z * a.z); }

struct LawOut {
  Vec p, up, t;
  double grad, ustar;
};

using LawFn = void (*)(double&, double&, double&, double, double, double, double&, double&, double&, double&,
                       double&, double&, double&, double&);

LawOut call(LawFn fn, Vec p, Vec f) {
  LawOut o{p, {0, 0, 0}, {0, 0, 0}, 99.0, 99.0};
  fn(o.p.x, o.p.y, o.p.z, f.x, f.y, f.z, o.up.x, o.up.y, o.up.z, o.grad, o.ustar, o.t.x, o.t.y, o.t.z);
  return o;
}

}  // namespace

// The smooth law solves Ut/u* = ln(yq u*/visc)/0.4 + 5.1 at the image point,
// while the value at p still comes from the roughness length.
TEST(WallLaws, SmoothTrilinearSolvesLogLaw) {
  law_grid();
  set_linear_field();
  const Vec f{4.1, 1.7, 0.5}, d{-0.05, 0.08, 0.27};
  const Vec p{f.x + d.x, f.y + d.y, f.z + d.z};
  for (double nu : {1e-6, 1e-4}) {
    rl::visc = nu;
    const LawOut o = call(rl::WALLSMOOTHTRI, p, f);
    const double dist = norm(d);
    const Vec n{d.x / dist, d.y / dist, d.z / dist};
    const double ut = norm(tangent(lin_field(p.x + d.x, p.y + d.y, p.z + d.z), n));
    const double yq = 2 * dist;
    EXPECT_NEAR(ut / o.ustar, std::log(yq * o.ustar / nu) / 0.4 + 5.1, 1e-7);
    EXPECT_NEAR(norm(o.up), o.ustar / 0.4 * std::log(dist / kZ0), 1e-12);
    EXPECT_NEAR(o.grad, o.ustar / 0.4 / dist, 1e-12);
  }
}
