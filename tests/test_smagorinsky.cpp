// Smagorinsky eddy viscosity: strain rates, nut, forcing cells and ghosts.
#include <gtest/gtest.h>

#include <cmath>

#include "driver/fields.hpp"
#include "flow/smagorinsky.hpp"

namespace {

void smag_grid(int n) {
  rl::imax = n;
  rl::jmax = n;
  rl::kmax = n;
  rl::lmin = 0;
  rl::ALLOCFIELDS();
  rl::dx = 0.2;
  rl::dy = 0.1;
  rl::dz = 0.05;  // cell volume 0.001: filter width 0.1
  rl::xmin = 0.0;
  rl::ymin = 0.0;
  rl::zmin = 0.0;
  rl::xmax = n * rl::dx;
  rl::ymax = n * rl::dy;
  rl::zmax = n * rl::dz;
  rl::smagorinsky = 0.1;
  for (int f = 1; f <= 6; ++f) rl::ibcp(f) = -1;
  rl::flagc.fill(1);
}

// Positions of the staggered components.
double xu(int i) { return rl::xmin + i * rl::dx; }
double xc(int i) { return rl::xmin + (i - 0.5) * rl::dx; }
double yv(int j) { return rl::ymin + j * rl::dy; }
double yc(int j) { return rl::ymin + (j - 0.5) * rl::dy; }
double zw(int k) { return rl::zmin + k * rl::dz; }
double zc(int k) { return rl::zmin + (k - 0.5) * rl::dz; }

template <class F>
void set_u(F f) {
  for (int k = 0; k <= rl::kmax + 1; ++k)
    for (int j = 0; j <= rl::jmax + 1; ++j)
      for (int i = -1; i <= rl::imax + 1; ++i) rl::u(i, j, k) = f(xu(i), yc(j), zc(k));
}
template <class F>
void set_v(F f) {
  for (int k = 0; k <= rl::kmax + 1; ++k)
    for (int j = -1; j <= rl::jmax + 1; ++j)
      for (int i = 0; i <= rl::imax + 1; ++i) rl::v(i, j, k) = f(xc(i), yv(j), zc(k));
}
template <class F>
void set_w(F f) {
  for (int k = -1; k <= rl::kmax + 1; ++k)
    for (int j = 0; j <= rl::jmax + 1; ++j)
      for (int i = 0; i <= rl::imax + 1; ++i) rl::w(i, j, k) = f(xc(i), yc(j), zw(k));
}

}  // namespace

TEST(Smagorinsky, SolidBodyShear) {
  smag_grid(4);
  const double a = 3.0;
  set_u([a](double, double y, double) { return a * y; });
  rl::SMAGORINSKY();
  const double c = 0.1 * 0.1;  // filter width times the constant
  for (int k = 1; k <= 4; ++k)
    for (int j = 1; j <= 4; ++j)
      for (int i = 1; i <= 4; ++i) {
        EXPECT_NEAR(rl::s12(i, j, k), a / 2, 1e-12);
        EXPECT_NEAR(rl::s11(i, j, k), 0.0, 1e-12);
        EXPECT_NEAR(rl::s22(i, j, k), 0.0, 1e-12);
        EXPECT_NEAR(rl::s33(i, j, k), 0.0, 1e-12);
        EXPECT_NEAR(rl::s13(i, j, k), 0.0, 1e-12);
        EXPECT_NEAR(rl::s23(i, j, k), 0.0, 1e-12);
        EXPECT_NEAR(rl::sabs(i, j, k), a, 1e-12);
        EXPECT_NEAR(rl::nut(i, j, k), a * c * c, 1e-15);
      }
}

// Quadratic fields without cubic terms: every difference of the model is
// exact at the cell centre, so any misplaced point of a stencil shows.
TEST(Smagorinsky, StrainRatesOfQuadraticField) {
  smag_grid(4);
  set_u([](double x, double y, double z) { return 0.3 * x * x + 0.5 * y * y - 0.7 * z * z + 1.1 * x * y + 0.9 * x * z - 1.3 * y * z; });
  set_v([](double x, double y, double z) { return -0.4 * x * x + 0.6 * y * y + 0.2 * z * z + 0.8 * x * y - 1.2 * x * z + 0.5 * y * z; });
  set_w([](double x, double y, double z) { return 0.7 * x * x - 0.3 * y * y + 0.4 * z * z - 0.6 * x * y + 1.4 * x * z + 0.9 * y * z; });
  rl::SMAGORINSKY();
  const double c = 0.01;
  for (int k = 1; k <= 4; ++k)
    for (int j = 1; j <= 4; ++j)
      for (int i = 1; i <= 4; ++i) {
        const double x = xc(i), y = yc(j), z = zc(k);
        const double ux = 0.6 * x + 1.1 * y + 0.9 * z, uy = 1.0 * y + 1.1 * x - 1.3 * z, uz = -1.4 * z + 0.9 * x - 1.3 * y;
        const double vx = -0.8 * x + 0.8 * y - 1.2 * z, vy = 1.2 * y + 0.8 * x + 0.5 * z, vz = 0.4 * z - 1.2 * x + 0.5 * y;
        const double wx = 1.4 * x - 0.6 * y + 1.4 * z, wy = -0.6 * y - 0.6 * x + 0.9 * z, wz = 0.8 * z + 1.4 * x + 0.9 * y;
        const double e11 = ux, e22 = vy, e33 = wz;
        const double e12 = (uy + vx) / 2, e13 = (uz + wx) / 2, e23 = (vz + wy) / 2;
        EXPECT_NEAR(rl::s11(i, j, k), e11, 1e-11);
        EXPECT_NEAR(rl::s22(i, j, k), e22, 1e-11);
        EXPECT_NEAR(rl::s33(i, j, k), e33, 1e-11);
        EXPECT_NEAR(rl::s12(i, j, k), e12, 1e-11);
        EXPECT_NEAR(rl::s13(i, j, k), e13, 1e-11);
        EXPECT_NEAR(rl::s23(i, j, k), e23, 1e-11);
        // |S| = sqrt(2 S:S)
        const double ss = e11 * e11 + e22 * e22 + e33 * e33 + 2 * (e12 * e12 + e13 * e13 + e23 * e23);
        EXPECT_NEAR(rl::nut(i, j, k), std::sqrt(2 * ss) * c * c, 1e-14);
      }
}

// Ghost layers: 0 periodic, -1 copies the inner cell, +1 copies for the
// strain rates but negates nut.  Faces: x periodic, y low -1 / high +1,
// z low +1 / high -1.
TEST(Smagorinsky, GhostRulePerFaceType) {
  smag_grid(3);
  rl::ibcp(1) = 0;
  rl::ibcp(2) = 0;
  rl::ibcp(3) = -1;
  rl::ibcp(4) = 1;
  rl::ibcp(5) = 1;
  rl::ibcp(6) = -1;
  // A field whose nut and s11 differ from cell to cell.
  set_u([](double x, double y, double z) { return x * x * (1.0 + y) + 3.0 * z * x; });
  rl::SMAGORINSKY();
  const int n = 3;
  // Reference copies of the interior.
  auto N = [](int i, int j, int k) { return rl::nut(i, j, k); };
  auto S = [](int i, int j, int k) { return rl::s11(i, j, k); };
  for (int k = 1; k <= n; ++k)
    for (int j = 1; j <= n; ++j) {
      EXPECT_EQ(N(0, j, k), N(n, j, k));  // periodic
      EXPECT_EQ(N(n + 1, j, k), N(1, j, k));
      EXPECT_EQ(S(0, j, k), S(n, j, k));
      EXPECT_EQ(S(n + 1, j, k), S(1, j, k));
    }
  for (int k = 1; k <= n; ++k)
    for (int i = 0; i <= n + 1; ++i) {
      EXPECT_EQ(N(i, 0, k), N(i, 1, k));  // given value: zero gradient
      EXPECT_EQ(S(i, 0, k), S(i, 1, k));
      EXPECT_EQ(N(i, n + 1, k), -N(i, n, k));  // given gradient: negated nut
      EXPECT_EQ(S(i, n + 1, k), S(i, n, k));
      EXPECT_GT(N(i, n, k), 0.0);
    }
  for (int j = 0; j <= n + 1; ++j)
    for (int i = 0; i <= n + 1; ++i) {
      EXPECT_EQ(N(i, j, 0), -N(i, j, 1));
      EXPECT_EQ(S(i, j, 0), S(i, j, 1));
      EXPECT_EQ(N(i, j, n + 1), N(i, j, n));
      EXPECT_EQ(S(i, j, n + 1), S(i, j, n));
    }
  // Corners come out of the composition of the passes: x, then y, then z.
  EXPECT_EQ(N(0, n + 1, 0), -(-N(n, n, 1)));
  EXPECT_EQ(N(n + 1, 0, n + 1), N(1, 1, n));
}

TEST(Smagorinsky, NoCellsLeavesArraysAlone) {
  smag_grid(3);
  rl::kmax = 0;
  rl::nut.fill(7.0);
  rl::s11.fill(5.0);
  rl::SMAGORINSKY();
  EXPECT_EQ(rl::nut(0, 0, 0), 7.0);
  EXPECT_EQ(rl::nut(1, 1, 1), 7.0);
  EXPECT_EQ(rl::s11(0, 2, 1), 5.0);
}
