// The Adams-Bashforth momentum predictor of u, v and w.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "driver/fields.hpp"
#include "flow/xvelocity.hpp"
#include "flow/yvelocity.hpp"
#include "flow/zvelocity.hpp"

namespace {

using namespace rl;

constexpr int NI = 5, NJ = 4, NK = 3;

void grid() {
  imax = NI;
  jmax = NJ;
  kmax = NK;
  lmin = 0;
  ALLOCFIELDS();
  dx = 0.4;
  dy = 0.25;
  dz = 0.125;
  visc = 1.0e-3;
  dens = 1000.0;
  dt = 0.01;
  forcex = 0.3;
  forcey = -0.2;
  forcez = -9.81;
  for (int f = 1; f <= 6; ++f) ibcu(f) = ibcv(f) = ibcw(f) = 1;
}

void random_fill(Array3<double>& a, std::mt19937& gen, double lo, double hi) {
  std::uniform_real_distribution<double> d(lo, hi);
  for (std::int64_t n = 0; n < a.size(); ++n) a.data()[n] = d(gen);
}

double sq(double x) { return x * x; }

// Right-hand sides written out term by term, straight from the formulas,
// with the plain accessors.
double rhs_x(int i, int j, int k) {
  const double Cx = (sq((uo(i, j, k) + uo(i + 1, j, k)) * 0.5) - sq((uo(i, j, k) + uo(i - 1, j, k)) * 0.5)) / dx;
  const double Cy = ((vo(i, j, k) + vo(i + 1, j, k)) * (uo(i, j, k) + uo(i, j + 1, k)) -
                     (vo(i, j - 1, k) + vo(i + 1, j - 1, k)) * (uo(i, j, k) + uo(i, j - 1, k))) *
                    0.5 * 0.5 / dy;
  const double Cz = ((wo(i, j, k) + wo(i + 1, j, k)) * (uo(i, j, k) + uo(i, j, k + 1)) -
                     (wo(i, j, k - 1) + wo(i + 1, j, k - 1)) * (uo(i, j, k) + uo(i, j, k - 1))) *
                    0.5 * 0.5 / dz;
  const double Ne = nut(i + 1, j, k) + visc;
  const double Nw = nut(i, j, k) + visc;
  const double Nn = (nut(i, j, k) + nut(i + 1, j, k) + nut(i, j + 1, k) + nut(i + 1, j + 1, k)) * 0.25 + visc;
  const double Ns = (nut(i, j - 1, k) + nut(i, j, k) + nut(i + 1, j, k) + nut(i + 1, j - 1, k)) * 0.25 + visc;
  const double Nt = (nut(i, j, k) + nut(i + 1, j, k) + nut(i, j, k + 1) + nut(i + 1, j, k + 1)) * 0.25 + visc;
  const double Nb = (nut(i, j, k - 1) + nut(i, j, k) + nut(i + 1, j, k) + nut(i + 1, j, k - 1)) * 0.25 + visc;
  const double Dx =
      (Ne * 2 * (uo(i + 1, j, k) - uo(i, j, k)) / dx - Nw * 2 * (uo(i, j, k) - uo(i - 1, j, k)) / dx) / dx;
  const double Dy = (Nn * ((uo(i, j + 1, k) - uo(i, j, k)) / dy + (vo(i + 1, j, k) - vo(i, j, k)) / dx) -
                     Ns * ((uo(i, j, k) - uo(i, j - 1, k)) / dy + (vo(i + 1, j - 1, k) - vo(i, j - 1, k)) / dx)) /
                    dy;
  const double Dz = (Nt * ((uo(i, j, k + 1) - uo(i, j, k)) / dz + (wo(i + 1, j, k) - wo(i, j, k)) / dx) -
                     Nb * ((uo(i, j, k) - uo(i, j, k - 1)) / dz + (wo(i + 1, j, k - 1) - wo(i, j, k - 1)) / dx)) /
                    dz;
  const double A = -0.0 / dens + forcex;
  return A - Cx - Cy - Cz + Dx + Dy + Dz;
}

double rhs_y(int i, int j, int k) {
  const double Cy = (sq((vo(i, j, k) + vo(i, j + 1, k)) * 0.5) - sq((vo(i, j, k) + vo(i, j - 1, k)) * 0.5)) / dy;
  const double Cx = ((uo(i, j, k) + uo(i, j + 1, k)) * (vo(i, j, k) + vo(i + 1, j, k)) -
                     (uo(i - 1, j, k) + uo(i - 1, j + 1, k)) * (vo(i, j, k) + vo(i - 1, j, k))) *
                    0.5 * 0.5 / dx;
  const double Cz = ((wo(i, j, k) + wo(i, j + 1, k)) * (vo(i, j, k) + vo(i, j, k + 1)) -
                     (wo(i, j, k - 1) + wo(i, j + 1, k - 1)) * (vo(i, j, k) + vo(i, j, k - 1))) *
                    0.5 * 0.5 / dz;
  const double Dy = ((nut(i, j + 1, k) + visc) * 2 * (vo(i, j + 1, k) - vo(i, j, k)) / dy -
                     (nut(i, j, k) + visc) * 2 * (vo(i, j, k) - vo(i, j - 1, k)) / dy) /
                    dy;
  const double Nxp = (nut(i, j, k) + nut(i + 1, j, k) + nut(i, j + 1, k) + nut(i + 1, j + 1, k)) * 0.25 + visc;
  const double Nxm = (nut(i - 1, j, k) + nut(i, j, k) + nut(i, j + 1, k) + nut(i - 1, j + 1, k)) * 0.25 + visc;
  const double Dx = (Nxp * ((vo(i + 1, j, k) - vo(i, j, k)) / dx + (uo(i, j + 1, k) - uo(i, j, k)) / dy) -
                     Nxm * ((vo(i, j, k) - vo(i - 1, j, k)) / dx + (uo(i - 1, j + 1, k) - uo(i - 1, j, k)) / dy)) /
                    dx;
  const double Nzp = (nut(i, j, k) + nut(i, j + 1, k) + nut(i, j, k + 1) + nut(i, j + 1, k + 1)) * 0.25 + visc;
  const double Nzm = (nut(i, j, k - 1) + nut(i, j, k) + nut(i, j + 1, k) + nut(i, j + 1, k - 1)) * 0.25 + visc;
  const double Dz = (Nzp * ((vo(i, j, k + 1) - vo(i, j, k)) / dz + (wo(i, j + 1, k) - wo(i, j, k)) / dy) -
                     Nzm * ((vo(i, j, k) - vo(i, j, k - 1)) / dz + (wo(i, j + 1, k - 1) - wo(i, j, k - 1)) / dy)) /
                    dz;
  const double A = -0.0 / dens + forcey;
  return A - Cy - Cx - Cz + Dy + Dz + Dx;
}

double rhs_z(int i, int j, int k) {
  const double Cz = (sq((wo(i, j, k) + wo(i, j, k + 1)) * 0.5) - sq((wo(i, j, k) + wo(i, j, k - 1)) * 0.5)) / dz;
  const double Cx = ((uo(i, j, k) + uo(i, j, k + 1)) * (wo(i, j, k) + wo(i + 1, j, k)) -
                     (uo(i - 1, j, k) + uo(i - 1, j, k + 1)) * (wo(i, j, k) + wo(i - 1, j, k))) *
                    0.5 * 0.5 / dx;
  const double Cy = ((vo(i, j, k) + vo(i, j, k + 1)) * (wo(i, j, k) + wo(i, j + 1, k)) -
                     (vo(i, j - 1, k) + vo(i, j - 1, k + 1)) * (wo(i, j, k) + wo(i, j - 1, k))) *
                    0.5 * 0.5 / dy;
  const double Dz = ((nut(i, j, k + 1) + visc) * 2 * (wo(i, j, k + 1) - wo(i, j, k)) / dz -
                     (nut(i, j, k) + visc) * 2 * (wo(i, j, k) - wo(i, j, k - 1)) / dz) /
                    dz;
  const double Nxp = (nut(i, j, k) + nut(i + 1, j, k) + nut(i, j, k + 1) + nut(i + 1, j, k + 1)) * 0.25 + visc;
  const double Nxm = (nut(i - 1, j, k) + nut(i, j, k) + nut(i, j, k + 1) + nut(i - 1, j, k + 1)) * 0.25 + visc;
  const double Dx = (Nxp * ((wo(i + 1, j, k) - wo(i, j, k)) / dx + (uo(i, j, k + 1) - uo(i, j, k)) / dz) -
                     Nxm * ((wo(i, j, k) - wo(i - 1, j, k)) / dx + (uo(i - 1, j, k + 1) - uo(i - 1, j, k)) / dz)) /
                    dx;
  const double Nyp = (nut(i, j, k) + nut(i, j + 1, k) + nut(i, j, k + 1) + nut(i, j + 1, k + 1)) * 0.25 + visc;
  const double Nym = (nut(i, j - 1, k) + nut(i, j, k) + nut(i, j, k + 1) + nut(i, j - 1, k + 1)) * 0.25 + visc;
  const double Dy = (Nyp * ((wo(i, j + 1, k) - wo(i, j, k)) / dy + (vo(i, j, k + 1) - vo(i, j, k)) / dz) -
                     Nym * ((wo(i, j, k) - wo(i, j - 1, k)) / dy + (vo(i, j - 1, k + 1) - vo(i, j - 1, k)) / dz)) /
                    dy;
  const double A = -0.0 / dens + forcez;
  return A - Cz - Cx - Cy + Dz + Dx + Dy;
}

struct Case {
  const char* name;
  void (*routine)();
  double (*rhs)(int, int, int);
  Array3<double>*out, *old, *ro, *rh;
  int* own_count;
  Faces<int>* ibc;
  int high_face;
};

// Random old fields; every computed element equals the term-by-term
// formulas exactly (same order of operations), every other element keeps
// its value.  The upper bound in the own direction shrinks by |type| of the
// high face.
TEST(Predictor, RandomFieldAgainstTermByTermFormulas) {
  Case cases[3] = {
      {"x", XVELOCITY, rhs_x, &u, &uo, &rhsuo, &rhsu, &imax, &ibcu, 2},
      {"y", YVELOCITY, rhs_y, &v, &vo, &rhsvo, &rhsv, &jmax, &ibcv, 4},
      {"z", ZVELOCITY, rhs_z, &w, &wo, &rhswo, &rhsw, &kmax, &ibcw, 6},
  };
  for (const Case& c : cases) {
    for (int type : {1, 0, -1}) {
      SCOPED_TRACE(std::string(c.name) + " type " + std::to_string(type));
      grid();
      (*c.ibc)(c.high_face) = type;
      std::mt19937 gen(5);
      random_fill(uo, gen, -1.0, 1.0);
      random_fill(vo, gen, -1.0, 1.0);
      random_fill(wo, gen, -1.0, 1.0);
      random_fill(nut, gen, 0.0, 0.01);
      random_fill(*c.ro, gen, -5.0, 5.0);
      random_fill(*c.out, gen, 50.0, 60.0);
      random_fill(*c.rh, gen, 70.0, 80.0);
      Array3<double> out0, ro0, rh0;
      out0.allocate("out0", c.out->lo(0), c.out->hi(0), c.out->lo(1), c.out->hi(1), c.out->lo(2), c.out->hi(2));
      ro0.allocate("ro0", 0, NI + 1, 0, NJ + 1, 0, NK + 1);
      rh0.allocate("rh0", 0, NI + 1, 0, NJ + 1, 0, NK + 1);
      for (std::int64_t n = 0; n < out0.size(); ++n) out0.data()[n] = c.out->data()[n];
      for (std::int64_t n = 0; n < ro0.size(); ++n) {
        ro0.data()[n] = c.ro->data()[n];
        rh0.data()[n] = c.rh->data()[n];
      }
      const int last = *c.own_count - std::abs(type);
      const int ihi = c.own_count == &imax ? last : NI;
      const int jhi = c.own_count == &jmax ? last : NJ;
      const int khi = c.own_count == &kmax ? last : NK;

      c.routine();

      int computed = 0;
      for (int k = c.out->lo(2); k <= c.out->hi(2); ++k)
        for (int j = c.out->lo(1); j <= c.out->hi(1); ++j)
          for (int i = c.out->lo(0); i <= c.out->hi(0); ++i) {
            const bool inside = i >= 1 && i <= ihi && j >= 1 && j <= jhi && k >= 1 && k <= khi;
            if (inside) {
              ++computed;
              const double R = c.rhs(i, j, k);
              const double want = (*c.old)(i, j, k) + (3.0 * R - ro0(i, j, k)) * (dt * 0.5);
              ASSERT_EQ((*c.out)(i, j, k), want) << i << "," << j << "," << k;
              ASSERT_EQ((*c.ro)(i, j, k), R);
              ASSERT_EQ((*c.rh)(i, j, k), ro0(i, j, k));
            } else {
              ASSERT_EQ((*c.out)(i, j, k), out0(i, j, k)) << i << "," << j << "," << k;
              if (i >= 0 && j >= 0 && k >= 0) {
                ASSERT_EQ((*c.ro)(i, j, k), ro0(i, j, k));
                ASSERT_EQ((*c.rh)(i, j, k), rh0(i, j, k));
              }
            }
          }
      EXPECT_EQ(computed, (c.own_count == &imax ? last : NI) * (c.own_count == &jmax ? last : NJ) *
                              (c.own_count == &kmax ? last : NK));
    }
  }
}

// A uniform flow with uniform nut has no convection and no diffusion:
// R is the body force, and with R_old = 0 the step is 1.5 dt R.  With a
// previous R the weights are 3/2 and -1/2.
TEST(Predictor, UniformFlowGivesBodyForce) {
  grid();
  uo.fill(0.8);
  vo.fill(0.0);
  wo.fill(0.0);
  nut.fill(0.02);
  XVELOCITY();
  EXPECT_EQ(rhsuo(2, 2, 2), 0.3);
  EXPECT_DOUBLE_EQ(u(2, 2, 2), 0.8 + 1.5 * 0.01 * 0.3);
  EXPECT_EQ(rhsu(2, 2, 2), 0.0);
  rhsuo.fill(0.1);
  XVELOCITY();
  EXPECT_DOUBLE_EQ(u(3, 1, 3), 0.8 + (3.0 * 0.3 - 0.1) * 0.005);
  EXPECT_EQ(rhsu(3, 1, 3), 0.1);

  uo.fill(0.0);
  vo.fill(-0.4);
  YVELOCITY();
  EXPECT_EQ(rhsvo(1, 3, 2), -0.2);
  EXPECT_DOUBLE_EQ(v(1, 3, 2), -0.4 + 1.5 * 0.01 * -0.2);
  vo.fill(0.0);
  wo.fill(0.25);
  ZVELOCITY();
  EXPECT_EQ(rhswo(5, 4, 1), -9.81);
  EXPECT_DOUBLE_EQ(w(5, 4, 1), 0.25 + 1.5 * 0.01 * -9.81);

  // A zero density poisons the whole predicted field.
  dens = 0.0;
  XVELOCITY();
  EXPECT_TRUE(std::isnan(u(1, 1, 1)));
  EXPECT_TRUE(std::isnan(u(4, 4, 3)));
}

// Polynomial fields whose terms are known in closed form.
TEST(Predictor, PolynomialFieldsMatchDerivatives) {
  const double H = 0.005;
  // uo = a*i: convection d(u^2)/dx = 2 a^2 i / dx, no diffusion
  grid();
  const double a = 0.7;
  for (int k = 0; k <= NK + 1; ++k)
    for (int j = 0; j <= NJ + 1; ++j)
      for (int i = -1; i <= NI + 1; ++i) uo(i, j, k) = a * i;
  XVELOCITY();
  for (int i = 1; i <= NI - 1; ++i) EXPECT_NEAR(rhsuo(i, 2, 2), 0.3 - 2 * a * a * i / 0.4, 1e-12) << i;

  // uo = b*j^2: diffusion visc * d2u/dy2 = 2 b visc / dy^2
  grid();
  const double b = 0.3;
  for (int k = 0; k <= NK + 1; ++k)
    for (int j = 0; j <= NJ + 1; ++j)
      for (int i = -1; i <= NI + 1; ++i) uo(i, j, k) = b * j * j;
  XVELOCITY();
  EXPECT_NEAR(rhsuo(3, 2, 2), 0.3 + 2 * b * 1.0e-3 / (0.25 * 0.25), 1e-12);
  EXPECT_NEAR(u(3, 2, 2), b * 4 + 3.0 * rhsuo(3, 2, 2) * H, 1e-12);

  // The transpose term: vo = g*i with nut = c*j: d/dy (nut dv/dx) = c g / (dx dy)
  grid();
  const double g = 0.5, c = 0.04;
  for (int k = 0; k <= NK + 1; ++k)
    for (int j = -1; j <= NJ + 1; ++j)
      for (int i = 0; i <= NI + 1; ++i) vo(i, j, k) = g * i;
  for (int k = 0; k <= NK + 1; ++k)
    for (int j = 0; j <= NJ + 1; ++j)
      for (int i = 0; i <= NI + 1; ++i) nut(i, j, k) = c * j;
  XVELOCITY();
  EXPECT_NEAR(rhsuo(2, 2, 2), 0.3 + c * g / (0.4 * 0.25), 1e-12);

  // wo = e*k^2 alone: the own-direction convection is
  // [ (e(k^2+(k+1)^2)/2)^2 - (e(k^2+(k-1)^2)/2)^2 ] / dz, and the diffusion
  // 2 visc * 2 e / dz^2 (own direction carries the factor 2)
  grid();
  const double e = 0.1;
  for (int k = -1; k <= NK + 1; ++k)
    for (int j = 0; j <= NJ + 1; ++j)
      for (int i = 0; i <= NI + 1; ++i) wo(i, j, k) = e * k * k;
  ZVELOCITY();
  for (int k = 1; k <= NK - 1; ++k) {
    const double hp = e * (k * k + (k + 1) * (k + 1)) / 2, hm = e * (k * k + (k - 1) * (k - 1)) / 2;
    const double R = -9.81 - (hp * hp - hm * hm) / 0.125 + 2 * 1.0e-3 * 2 * e / (0.125 * 0.125);
    EXPECT_NEAR(rhswo(3, 2, k), R, 1e-10) << k;
  }
}

}  // namespace
