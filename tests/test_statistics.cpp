// Time-averaged statistics: the accumulators against two-pass time-weighted
// averages of a synthetic series with steps of varying length, the friction velocity of a log-law flow, and (in
// test_restart.cpp) a restart that continues the averages exactly.
#include <gtest/gtest.h>

#include <omp.h>

#include <cmath>
#include <vector>

#include "driver/fields.hpp"
#include "immersed/immerse.hpp"
#include "immersed/immersing.hpp"
#include "results/statistics.hpp"
#include "run_helpers.hpp"

using rltest::CaseSpec;

namespace {

// Field f at storage position n and step t: a large offset with small,
// irregular fluctuations, where summing squares would lose every digit.
double series(int f, std::int64_t n, int t) {
  const double x = static_cast<double>(n);
  return 1000.0 * (f + 1) + 1e-3 * (std::sin(0.37 * t + 1.3 * x + f) + 0.5 * std::cos(1.1 * t * (f + 1) + 0.2 * x));
}

rl::Array3<double>* field(int f) {
  rl::Array3<double>* a[5] = {&rl::u, &rl::v, &rl::w, &rl::p, &rl::nut};
  return a[f];
}

// The time step of step t: it varies nineteen-fold, and it follows the
// series (the same frequency), so that averages per step
// and averages over time differ by far more than the tolerances below.
double step_of(int t) { return 1e-3 * (1.0 + 0.9 * std::sin(0.37 * t + 1.0)); }

// Two-pass time-weighted mean and covariance over steps first..last of two
// sequences, each step weighted by its time step.
struct Moments {
  long double mean_a = 0, mean_b = 0, cov = 0;
};
template <typename A, typename B>
Moments moments(A a, B b, int first, int last) {
  Moments m;
  long double time = 0;
  for (int t = first; t <= last; ++t) {
    m.mean_a += step_of(t) * a(t);
    m.mean_b += step_of(t) * b(t);
    time += step_of(t);
  }
  m.mean_a /= time;
  m.mean_b /= time;
  for (int t = first; t <= last; ++t) m.cov += step_of(t) * (a(t) - m.mean_a) * (b(t) - m.mean_b);
  m.cov /= time;
  return m;
}

}  // namespace

TEST(Statistics, AccumulatorsMatchTwoPassAverages) {
  CaseSpec s;
  s.set("StatisticsItm", 1).set("StatsStartItm", 1e9);
  int status = -1;
  rltest::run_in_process(s, "stats-series", &status);
  ASSERT_EQ(status, 0);
  ASSERT_EQ(rl::statistics_count(), 0);

  // Steps of varying length; averaging from the end of step `start` on.
  const int N = 300, start = 101;
  double time = 0.0, from = 0.0, averaged = 0.0;
  for (int t = 1; t <= N; ++t) {
    time += step_of(t);
    if (t == start) from = time;
    if (t >= start) averaged += step_of(t);
  }
  rl::statistics_reset(from);
  rl::simtime = 0.0;
  for (int t = 1; t <= N; ++t) {
    for (int f = 0; f < 5; ++f) {
      rl::Array3<double>& a = *field(f);
      for (std::int64_t n = 0; n < a.size(); ++n) a.data()[n] = series(f, n, t);
    }
    rl::dt = step_of(t);
    rl::forcex = 0.01 * step_of(t);  // as a controller's, larger in the longer steps
    rl::simtime += rl::dt;
    rl::STATISTICS();
  }
  ASSERT_EQ(rl::statistics_count(), N - start + 1);
  EXPECT_NEAR(rl::statistics_weight(), averaged, 1e-12 * averaged);
  const Moments force = moments([](int t) { return 0.01 * step_of(t); }, [](int) { return 0.0; }, start, N);
  EXPECT_NEAR(rl::statistics_force(), force.mean_a, 1e-12 * force.mean_a);

  const std::size_t nodes = static_cast<std::size_t>(rl::imax + 1) * (rl::jmax + 1) * (rl::kmax + 1);
  std::vector<double> got(nodes);
  auto node = [&](const char* name, int i, int j, int k) {
    rl::statistics_nodes(name, got.data());
    return got[static_cast<std::size_t>((k * (rl::jmax + 1) + j) * (rl::imax + 1) + i)];
  };
  // Value of field f at (i,j,k) at step t; a velocity interpolated to the
  // centre of cell (i,j,k).
  auto at = [](int f, int i, int j, int k) { return [=](int t) { return series(f, field(f)->index(i, j, k), t); }; };
  auto centre = [&](int f, int i, int j, int k) {
    const int di = f == 0, dj = f == 1, dk = f == 2;
    return [=](int t) { return 0.5L * (at(f, i - di, j - dj, k - dk)(t) + at(f, i, j, k)(t)); };
  };
  // Node (i,j,k) takes the four faces or eight cells around it.
  const int corners[3][4][3] = {{{0, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 1, 1}},
                                {{0, 0, 0}, {1, 0, 0}, {0, 0, 1}, {1, 0, 1}},
                                {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}}};
  const char* means[3] = {"MeanVelocityX", "MeanVelocityY", "MeanVelocityZ"};
  const char* variances[3] = {"ReynoldsStressUU", "ReynoldsStressVV", "ReynoldsStressWW"};
  const char* shears[3][2] = {{"ReynoldsStressUV", "01"}, {"ReynoldsStressUW", "02"}, {"ReynoldsStressVW", "12"}};
  for (const auto [i, j, k] : {std::array{0, 0, 0}, std::array{3, 2, 4}, std::array{8, 4, 8}}) {
    SCOPED_TRACE(::testing::Message() << "node " << i << " " << j << " " << k);
    for (int f = 0; f < 3; ++f) {
      long double mean = 0, var = 0;
      for (const auto& c : corners[f]) {
        const auto a = at(f, i + c[0], j + c[1], k + c[2]);
        const Moments m = moments(a, a, start, N);
        mean += m.mean_a / 4;
        var += m.cov / 4;
      }
      EXPECT_NEAR(node(means[f], i, j, k), mean, 1e-12 * mean);
      EXPECT_NEAR(node(variances[f], i, j, k), var, 1e-8 * var);
      EXPECT_GT(var, 1e-8L);
    }
    for (const auto& [name, pair] : shears) {
      const int fa = pair[0] - '0', fb = pair[1] - '0';
      long double cov = 0;
      for (int c = 0; c < 8; ++c) {
        const int ci = i + (c & 1), cj = j + (c >> 1 & 1), ck = k + (c >> 2);
        cov += moments(centre(fa, ci, cj, ck), centre(fb, ci, cj, ck), start, N).cov / 8;
      }
      EXPECT_NEAR(node(name, i, j, k), cov, 1e-8 * std::fabs(cov) + 1e-15) << name;
    }
    long double pm = 0, nm = 0;
    for (int c = 0; c < 8; ++c) {
      const int ci = i + (c & 1), cj = j + (c >> 1 & 1), ck = k + (c >> 2);
      pm += moments(at(3, ci, cj, ck), at(3, ci, cj, ck), start, N).mean_a / 8;
      nm += moments(at(4, ci, cj, ck), at(4, ci, cj, ck), start, N).mean_a / 8;
    }
    EXPECT_NEAR(node("MeanPressure", i, j, k), pm, 1e-12 * pm);
    EXPECT_NEAR(node("MeanEddyViscosity", i, j, k), nm, 1e-12 * nm);
  }
}

// A rough log-law flow u = (u*/0.4) ln((z - zb)/z0) over a flat bed inside
// the box: the trilinear wall law gives back u* at every column within 3 %;
// the inverse-distance law, whose sample at the image point mixes in faster
// flow from above, over-estimates it by about a third on this grid of four
// cells per 0.1.
TEST(Statistics, FrictionVelocityOfALogLawFlow) {
  const double zb = 0.0437, ustar = 0.03;
  for (int ibm : {0, 1}) {
    CaseSpec s;
    s.bed = zb;
    s.set("BedItm", 1).set("SedimentItm", 2.0).set("iIBMItm", ibm).set("StatisticsItm", 1);
    int status = -1;
    rltest::run_in_process(s, "stats-loglaw", &status);
    ASSERT_EQ(status, 0);
    const double z0 = 2.0 / 12000.0;
    for (rl::Array3<double>* a : {&rl::v, &rl::w}) a->fill(0.0);
    for (int k = rl::u.lo(2); k <= rl::u.hi(2); ++k) {
      const double z = rl::zmin + (k - 0.5) * rl::dz;
      const double value = z - zb > z0 ? ustar / 0.4 * std::log((z - zb) / z0) : 0.0;
      for (int j = rl::u.lo(1); j <= rl::u.hi(1); ++j)
        for (int i = rl::u.lo(0); i <= rl::u.hi(0); ++i) rl::u(i, j, k) = value;
    }
    rl::FOOTCACHE(true);
    rl::IMMERSING();
    rl::Array2<double> us;
    us.allocate("us", 0, rl::imax + 1, 0, rl::jmax + 1);
    rl::BEDFRICTION(us);
    rl::FOOTCACHE(false);
    for (int j = 1; j <= rl::jmax; ++j)
      for (int i = 1; i <= rl::imax; ++i)
        if (ibm == 0)
          EXPECT_NEAR(us(i, j), ustar, 0.03 * ustar) << i << " " << j;
        else
          EXPECT_NEAR(us(i, j), 1.33 * ustar, 0.03 * ustar) << i << " " << j;
  }
}

// The bed's stress from the momentum it takes: in a flume run to a steady
// mean (rough bed, side walls, the solid at rest as riverles-case writes it),
// the plan mean of MeanBedShearStressX is what the driving force puts into
// the water, within 2 %, on one thread and on two.  A stress of the wrong sign or
// scale (dz, dt, dens, a face counted twice or not at all, the side walls'
// law left out) misses by far more; the wall law's estimate misses by a
// factor of 4 here.
TEST(Statistics, BedStressBalancesTheDrivingForce) {
  for (int threads : {1, 2}) {
    const int saved = omp_get_max_threads();
    omp_set_num_threads(threads);
    int status = -1;
    rltest::run_description("flat-channel.txt",
                            "endtimeItm 12.0\nStatsStartItm 4.0\ndtStatsItm 4.0\nBedItm 2\nRoughItm 5.0\n"
                            "MonitorItm 0\nSolidRestItm 1",
                            "stats-balance", &status);
    omp_set_num_threads(saved);
    ASSERT_EQ(status, 0);
    const double balance = rl::statistics_balance_stress();
    const double bed = rl::statistics_bed_mean("MeanBedShearStressX");
    EXPECT_GT(balance, 0.5) << threads;
    EXPECT_NEAR(bed, balance, 0.02 * balance) << threads << " threads";
    EXPECT_GT(rl::statistics_bed_mean("MeanBedShearStress"), bed) << threads;
    // The log layer's viscosity (riverles-case wrote one layer for this
    // grid): the forcing cells and the first fluid cell of each column carry
    // at least 0.41 u* d, with d the height of the centre over the bed.
    int raised = 0;
    for (int j = 1; j <= rl::jmax; ++j)
      for (int i = 1; i <= rl::imax; ++i) {
        // u* of the last step (the cache of the wall law is gone after the run).
        const double us = rl::statistics_bed_column("FrictionVelocity", i, j);
        int top = 0;
        for (int k = 1; k <= rl::kmax; ++k)
          if (rl::flagc(i, j, k) == 0) top = k;
        ASSERT_GT(top, 0);
        for (int k = top; k <= top + 1; ++k) {
          const double d = rl::zmin + (k - 0.5) * rl::dz - rl::bed(i, j);
          EXPECT_GE(rl::nut(i, j, k), 0.41 * us * d * (1 - 1e-12)) << i << " " << j << " " << k;
          raised += rl::nut(i, j, k) == 0.41 * us * d;
        }
      }
    EXPECT_GT(raised, rl::imax * rl::jmax / 4) << "the Smagorinsky value is seldom below the log layer's";
  }
}
