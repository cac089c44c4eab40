// The synthetic-eddy inflow of an open reach: the discharge exactly at
// every step over a section with a bank and a dry column, nothing in the
// dry cells, the open-channel statistics it is built to give, and a restart
// from its saved state repeating the planes bit for bit.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <sstream>
#include <vector>

#include "flow/inflow.hpp"

namespace {

// 16 columns of 0.1 m flow in layers of 1/160 m over a flat bed at 0, the
// lid at 0.1; optionally the first two columns a bank: one dry, one shallow.
rl::InletSection channel(bool bank) {
  rl::InletSection s;
  s.nj = 16;
  s.nk = 16;
  s.dy = s.dz = 0.1 / 16;
  s.zmin = 0.0;
  s.bed.assign(16, 0.0);
  if (bank) {
    s.bed[0] = 0.12;   // above the lid: dry
    s.bed[1] = 0.071;  // cuts cell 12
  }
  return s;
}

double section_discharge(const rl::SyntheticInflow& g, const rl::InletSection& s, const std::vector<double>& u) {
  double q = 0.0;
  for (int k = 1; k <= s.nk; ++k)
    for (int j = 1; j <= s.nj; ++j) q += u[(k - 1) * s.nj + (j - 1)] * s.dy * g.wet_height(j, k);
  return q;
}

}  // namespace

TEST(Inflow, CarriesTheDischargeExactlyAndNothingInTheDry) {
  const rl::InletSection s = channel(true);
  rl::SyntheticInflow g;
  const double q = 0.0042;
  g.start(s, q, 0.005);
  std::vector<double> u, v, w;
  for (int step = 0; step < 50; ++step) {
    g.plane(u, v, w);
    EXPECT_NEAR(section_discharge(g, s, u), q, 1e-15);
    for (int k = 1; k <= s.nk; ++k) {
      const std::size_t c = (k - 1) * s.nj;
      EXPECT_EQ(u[c], 0.0);  // the dry column
      if (k <= 11) {
        EXPECT_EQ(u[c + 1], 0.0) << "under the bank's bed, k " << k;
      }
    }
    g.advance(0.01);
  }
}

// Over many planes at mid-depth of a straight channel: the mean on the log
// law that carries the discharge, and the intensities and shear stress of
// open-channel flow (Nezu and Nakagawa) within the scatter of a finite
// sample.
TEST(Inflow, GivesTheOpenChannelStatistics) {
  const rl::InletSection s = channel(false);
  rl::SyntheticInflow g;
  g.start(s, 0.3 * 0.1 * 0.1, 0.005);
  const double us = g.friction_velocity(), ub = g.bulk_velocity();
  // The log law's u* for this bulk velocity: U_b / u* = ln(30 h / ks) / kappa - 1 / kappa, about 13.
  EXPECT_NEAR(ub / us, (std::log(30.0 * 0.1 / 0.005) - 1.0) / 0.41, 0.2);
  const int k = 8, n = 6000;  // the layer at z/h = 0.47
  const double xi = (k - 0.5) / 16.0;
  double su = 0, suu = 0, svv = 0, sww = 0, suw = 0;
  long count = 0;
  std::vector<double> u, v, w;
  for (int step = 0; step < n; ++step) {
    g.plane(u, v, w);
    for (int j = 4; j <= 13; ++j) {
      const std::size_t c = (k - 1) * s.nj + (j - 1);
      su += u[c];
      suu += u[c] * u[c];
      svv += v[c] * v[c];
      sww += w[c] * w[c];
      suw += u[c] * w[c];
      ++count;
    }
    g.advance(0.5 * g.eddy_size() / ub);
  }
  const double mu = su / count;
  const double uu = suu / count - mu * mu, uw = suw / count;
  std::printf("inflow at z/h %.2f: U/u* %.3f (log law %.3f), u'/u* %.3f (%.3f), v'/u* %.3f (%.3f), w'/u* %.3f (%.3f), "
              "u'w'/u*^2 %.3f (%.3f)\n",
              xi, mu / us, std::log(30.0 * xi * 0.1 / 0.005) / 0.41, std::sqrt(uu) / us, 2.30 * std::exp(-xi),
              std::sqrt(svv / count) / us, 1.63 * std::exp(-xi), std::sqrt(sww / count) / us, 1.27 * std::exp(-xi),
              uw / (us * us), -(1.0 - xi));
  EXPECT_NEAR(mu, us / 0.41 * std::log(30.0 * xi * 0.1 / 0.005), 0.03 * mu);
  EXPECT_NEAR(std::sqrt(uu) / us, 2.30 * std::exp(-xi), 0.15 * 2.30 * std::exp(-xi));
  EXPECT_NEAR(std::sqrt(svv / count) / us, 1.63 * std::exp(-xi), 0.15 * 1.63 * std::exp(-xi));
  EXPECT_NEAR(std::sqrt(sww / count) / us, 1.27 * std::exp(-xi), 0.15 * 1.27 * std::exp(-xi));
  EXPECT_NEAR(uw / (us * us), -(1.0 - xi), 0.3 * (1.0 - xi));
}

TEST(Inflow, RestartRepeatsThePlanesBitForBit) {
  const rl::InletSection s = channel(true);
  rl::SyntheticInflow a, b;
  a.start(s, 0.004, 0.005);
  for (int step = 0; step < 37; ++step) a.advance(0.013);
  std::stringstream state;
  a.save(state);
  b.start(s, 0.004, 0.005);
  ASSERT_TRUE(b.load(state));
  std::vector<double> ua, va, wa, ub, vb, wb;
  for (int step = 0; step < 40; ++step) {
    a.advance(0.013);
    b.advance(0.013);
    a.plane(ua, va, wa);
    b.plane(ub, vb, wb);
    ASSERT_EQ(ua, ub) << "step " << step;
    ASSERT_EQ(va, vb);
    ASSERT_EQ(wa, wb);
  }
}
