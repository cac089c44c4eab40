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

// On a linear field the trilinear sample is exact, and the rough law gives
// Up = Ut*ln(dist/z0)/ln(2*dist/z0) along the tangential direction.
TEST(WallLaws, RoughTrilinearOnLinearField) {
  law_grid();
  set_linear_field();
  const Vec f{3.3, 2.1, 0.6}, d{0.13, -0.07, 0.31};
  const Vec p{f.x + d.x, f.y + d.y, f.z + d.z};
  const LawOut o = call(rl::WALLROUGHTRI, p, f);
  const double dist = norm(d);
  const Vec n{d.x / dist, d.y / dist, d.z / dist};
  const Vec U = lin_field(p.x + d.x, p.y + d.y, p.z + d.z);
  const Vec T = tangent(U, n);
  const double ut = norm(T);
  const double scale = std::log(dist / kZ0) / std::log(2 * dist / kZ0);
  EXPECT_NEAR(o.up.x, T.x * scale, 1e-12);
  EXPECT_NEAR(o.up.y, T.y * scale, 1e-12);
  EXPECT_NEAR(o.up.z, T.z * scale, 1e-12);
  EXPECT_NEAR(o.t.x, T.x / ut, 1e-12);
  EXPECT_NEAR(o.t.y, T.y / ut, 1e-12);
  EXPECT_NEAR(o.t.z, T.z / ut, 1e-12);
  const double us = 0.4 * ut / std::log(2 * dist / kZ0);
  EXPECT_NEAR(o.ustar, us, 1e-13);
  EXPECT_NEAR(o.grad, us / 0.4 / dist, 1e-12);
  // The normal component of the imposed value is zero.
  EXPECT_NEAR(o.up.x * n.x + o.up.y * n.y + o.up.z * n.z, 0.0, 1e-13);
  // p is not moved outside the roughness layer.
  EXPECT_EQ(o.p.x, p.x);
  EXPECT_EQ(o.p.z, p.z);
}

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

// A forcing point on the bed is moved out along the normal of the bed patch
// under its foot point to z0 + 1e-8; the first image point is still the
// foot point itself.
TEST(WallLaws, ForcingPointOnTheBed) {
  law_grid();
  set_linear_field();
  for (int j = 0; j <= rl::jmax + 1; ++j)
    for (int i = 0; i <= rl::imax + 1; ++i) rl::bed(i, j) = 0.5 + 0.1 * ((i - 0.5) * rl::dx) - 0.05 * ((j - 0.5) * rl::dy);
  const Vec f{3.3, 2.1, 0.5 + 0.1 * 3.3 - 0.05 * 2.1};
  const LawOut o = call(rl::WALLROUGHTRI, f, f);
  const double len = std::sqrt(0.01 + 0.0025 + 1.0);
  const Vec n{-0.1 / len, 0.05 / len, 1.0 / len};
  const double h = kZ0 + 1e-8;
  EXPECT_NEAR(o.p.x, f.x + n.x * h, 1e-14);
  EXPECT_NEAR(o.p.y, f.y + n.y * h, 1e-14);
  EXPECT_NEAR(o.p.z, f.z + n.z * h, 1e-14);
  const Vec T = tangent(lin_field(f.x, f.y, f.z), n);
  const double scale = std::log(h / kZ0) / std::log(2 * h / kZ0);
  EXPECT_NEAR(o.up.x, T.x * scale, 1e-9);
  EXPECT_NEAR(o.up.y, T.y * scale, 1e-9);
  EXPECT_NEAR(o.up.z, T.z * scale, 1e-9);
  EXPECT_GT(norm(o.up), 0.0);
}

TEST(WallLaws, StillWaterGivesZero) {
  law_grid();
  for (LawFn fn : {rl::WALLROUGHTRI, rl::WALLSMOOTHTRI, rl::WALLROUGHIDW, rl::WALLSMOOTHIDW}) {
    const LawOut o = call(fn, {3.0, 2.0, 1.0}, {3.0, 2.0, 0.8});
    EXPECT_EQ(o.up.x, 0.0);
    EXPECT_EQ(o.up.y, 0.0);
    EXPECT_EQ(o.up.z, 0.0);
    EXPECT_EQ(o.grad, 0.0);
    EXPECT_EQ(o.ustar, 0.0);
    EXPECT_EQ(o.t.x, 1.0);
    EXPECT_EQ(o.t.y, 0.0);
    EXPECT_EQ(o.t.z, 0.0);
  }
}

// With every position at or below plane K0 = 3 unclean, the image point
// marches up by 0.125*dy until the w positions under it are clean too,
// i.e. until its height reaches (K0+1)*dz = 1.0: from 0.73 that takes five
// steps of 0.0625.
TEST(WallLaws, ImagePointMarchesToCleanStencil) {
  law_grid();
  for (int k = -1; k <= 3; ++k)
    for (int j = -1; j <= rl::jmax + 1; ++j)
      for (int i = -1; i <= rl::imax + 1; ++i) {
        if (j >= 0 && k >= 0) rl::flagu(i, j, k) = k == 3 ? 0 : -1;
        if (i >= 0 && k >= 0) rl::flagv(i, j, k) = k == 3 ? 0 : -1;
        if (i >= 0 && j >= 0) rl::flagw(i, j, k) = k == 3 ? 0 : -1;
      }
  rl::u.fill(0.8);
  const Vec f{3.3, 2.1, 0.53}, p{3.3, 2.1, 0.63};
  const LawOut o = call(rl::WALLROUGHTRI, p, f);
  const double h = 0.63 - 0.53, yq = 2 * h + 5 * 0.0625;
  EXPECT_NEAR(o.up.x, 0.8 * std::log(h / kZ0) / std::log(yq / kZ0), 1e-12);
  EXPECT_EQ(o.up.y, 0.0);
  EXPECT_EQ(o.up.z, 0.0);
}

// Across a periodic face q wraps by the domain length; at a wall it is held
// just inside the half cell beyond the face.
TEST(WallLaws, BringIntoDomain) {
  law_grid();
  rl::ibcu(1) = 0;
  rl::ibcu(2) = 0;
  rl::ibcv(3) = 1;
  rl::ibcv(4) = -1;
  double qx = -0.7, qy = -0.3, qz = 1.0;
  rl::bring_into_domain(qx, qy, qz, 1e-8);
  EXPECT_DOUBLE_EQ(qx, 7.3);
  EXPECT_DOUBLE_EQ(qy, -0.25 + 1e-8);
  EXPECT_EQ(qz, 1.0);
  qx = 8.5;  // exactly on the bound: wraps
  qy = 4.25;
  qz = 2.2;
  rl::bring_into_domain(qx, qy, qz, 1e-6);
  EXPECT_DOUBLE_EQ(qx, 0.5);
  EXPECT_DOUBLE_EQ(qy, 4.25 - 1e-6);
  EXPECT_DOUBLE_EQ(qz, 2.125 - 1e-6);
  qx = 8.4;  // inside the half cell: unchanged
  qy = -0.2;
  qz = -0.1;
  rl::bring_into_domain(qx, qy, qz, 1e-8);
  EXPECT_EQ(qx, 8.4);
  EXPECT_EQ(qy, -0.2);
  EXPECT_EQ(qz, -0.1);
}

// Inverse-distance weights ((R-s)/R/s)^2 by hand, and a coincident position
// that overrides what was weighted before it.
TEST(WallLaws, InverseDistanceSample) {
  law_grid();
  rl::dx = rl::dy = rl::dz = 1.0;
  rl::flagu.fill(-1);
  rl::u.fill(100.0);
  // q at the u position (2,2,2): x = 2, y = z = 1.5.
  const double qx = 2.0, qy = 1.5, qz = 1.5;
  rl::flagu(3, 2, 2) = 1;  // s = 1
  rl::flagu(4, 2, 2) = 1;  // s = 2
  rl::flagu(5, 2, 2) = 1;  // s = 3 = R, weight 0
  rl::u(3, 2, 2) = 2.0;
  rl::u(4, 2, 2) = 5.0;
  rl::u(5, 2, 2) = 7.0;
  auto sample = [&] {
    return rl::idw_sample(rl::u, rl::flagu, 0, 0, 0, 0, rl::imax, 0, rl::jmax + 1, 0, rl::kmax + 1, 0.0, 0.5, 0.5,
                          qx, qy, qz);
  };
  // weights 4/9 and 1/36: (16*2 + 5)/17
  EXPECT_NEAR(sample(), (16 * 2.0 + 5.0) / 17, 1e-14);
  // One position alone has weight 0: the sample is 0, not a number replaced.
  rl::flagu(3, 2, 2) = -1;
  rl::flagu(4, 2, 2) = -1;
  EXPECT_EQ(sample(), 0.0);
  // No position at all.
  rl::flagu(5, 2, 2) = 0;
  EXPECT_EQ(sample(), 0.0);
  // A coincident position, scanned after a weighted one (k = 1 comes first).
  rl::flagu(2, 2, 1) = 1;
  rl::u(2, 2, 1) = 3.0;
  rl::flagu(2, 2, 2) = 1;
  rl::u(2, 2, 2) = -4.0;
  rl::flagu(5, 2, 2) = 1;
  EXPECT_EQ(sample(), -4.0);
  // Outside the index limits a fluid position does not count.
  rl::flagu.fill(-1);
  rl::flagu(rl::imax + 1, 2, 2) = 1;
  rl::flagu(rl::imax, 2, 2) = 1;
  rl::flagu(rl::imax - 1, 2, 2) = 1;
  rl::u(rl::imax + 1, 2, 2) = 50.0;
  rl::u(rl::imax, 2, 2) = 1.0;
  rl::u(rl::imax - 1, 2, 2) = 1.0;
  const double s = rl::idw_sample(rl::u, rl::flagu, rl::imax - 3, 0, 0, 0, rl::imax, 0, rl::jmax + 1, 0,
                                  rl::kmax + 1, 0.0, 0.5, 0.5, rl::imax + 0.4, 1.5, 1.5);
  EXPECT_NEAR(s, 1.0, 1e-14);
}

// Rough law on an inverse-distance sample of a uniform stream, and the
// roughness layer: dist <= z0 gives 0 and leaves u* and t unwritten.
TEST(WallLaws, RoughInverseDistance) {
  law_grid();
  rl::u.fill(0.6);
  const Vec f{3.1, 2.2, 0.4}, p{3.1, 2.2, 0.55};
  const LawOut o = call(rl::WALLROUGHIDW, p, f);
  EXPECT_NEAR(o.up.x, 0.6 * std::log(0.15 / kZ0) / std::log(0.3 / kZ0), 1e-12);
  EXPECT_EQ(o.up.y, 0.0);
  EXPECT_EQ(o.up.z, 0.0);
  const LawOut z = call(rl::WALLROUGHIDW, {3.1, 2.2, 0.4 + 0.5 * kZ0}, f);
  EXPECT_EQ(z.up.x, 0.0);
  EXPECT_EQ(z.grad, 0.0);
  EXPECT_EQ(z.ustar, 99.0);
  EXPECT_EQ(z.t.x, 0.0);
  EXPECT_EQ(o.p.z, p.z);  // never moved
}

// The three-layer law: the friction velocity found satisfies the law of the
// layer that its y+ falls in, for a log-layer, a buffer-layer and a
// sublayer case.
TEST(WallLaws, SmoothInverseDistanceThreeLayers) {
  law_grid();
  rl::u.fill(1.0);
  const Vec f{3.1, 2.2, 0.4}, p{3.1, 2.2, 0.5};
  const double dist = 0.1, yq = 0.2;
  int layers[3] = {0, 0, 0};
  for (double nu : {1e-6, 1.3e-3, 0.1}) {
    rl::visc = nu;
    const LawOut o = call(rl::WALLSMOOTHIDW, p, f);
    const double us = o.ustar, yp = yq * us / nu;
    if (yp >= 30) {
      ++layers[2];
      EXPECT_NEAR(1.0 / us, std::log(yp) / 0.4 + 5.5, 1e-4);
    } else if (yp > 5) {
      ++layers[1];
      EXPECT_NEAR(1.0 / us, 5 * std::log(yp) - 3.05, 1e-4);
    } else {
      ++layers[0];
      EXPECT_NEAR(us * us, nu * 1.0 / yq, 1e-6);
    }
    EXPECT_NEAR(o.up.x, us / 0.4 * std::log(dist / kZ0), 1e-12);
    EXPECT_EQ(o.t.x, 1.0);
  }
  EXPECT_EQ(layers[0], 1);
  EXPECT_EQ(layers[1], 1);
  EXPECT_EQ(layers[2], 1);
}

// The patch normal: a tilted plane through reversed corners, and a saddle.
TEST(WallLaws, BedPatchNormal) {
  double nx, ny, nz, a, b, c, e;
  // z = 1 + 0.2x - 0.3y, corners with x2 < x1.
  auto pl = [](double x, double y) { return 1.0 + 0.2 * x - 0.3 * y; };
  rl::BEDPATCHNORMAL(2.0, 1.0, 0.5, 1.5, pl(2, 0.5), pl(1, 0.5), pl(2, 1.5), pl(1, 1.5), 1.7, 0.9, nx, ny, nz, a, b,
                     c, e);
  EXPECT_NEAR(a, 1.0, 1e-14);
  EXPECT_NEAR(b, 0.2, 1e-14);
  EXPECT_NEAR(c, -0.3, 1e-14);
  EXPECT_NEAR(e, 0.0, 1e-14);
  const double l = std::sqrt(0.04 + 0.09 + 1.0);
  EXPECT_NEAR(nx, -0.2 / l, 1e-14);
  EXPECT_NEAR(ny, 0.3 / l, 1e-14);
  EXPECT_NEAR(nz, 1.0 / l, 1e-14);
  // z = 0.1 + 0.5*x*y over [1,2]x[-1,0]: gradient (0.5y, 0.5x).
  auto sd = [](double x, double y) { return 0.1 + 0.5 * x * y; };
  rl::BEDPATCHNORMAL(1.0, 2.0, -1.0, 0.0, sd(1, -1), sd(2, -1), sd(1, 0), sd(2, 0), 1.4, -0.6, nx, ny, nz, a, b, c, e);
  EXPECT_NEAR(a, 0.1, 1e-14);
  EXPECT_NEAR(b, 0.0, 1e-14);
  EXPECT_NEAR(c, 0.0, 1e-14);
  EXPECT_NEAR(e, 0.5, 1e-14);
  const double gx = 0.5 * -0.6, gy = 0.5 * 1.4, m = std::sqrt(gx * gx + gy * gy + 1.0);
  EXPECT_NEAR(nx, -gx / m, 1e-14);
  EXPECT_NEAR(ny, -gy / m, 1e-14);
  EXPECT_NEAR(nz, 1.0 / m, 1e-14);
}
