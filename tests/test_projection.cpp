// Tests of the projection step: the velocity correction with the pressure
// accumulation, and the divergence measure with its operator pause.
#include <gtest/gtest.h>

#include <cmath>
#include <iostream>
#include <random>
#include <sstream>
#include <string>

#include "driver/fields.hpp"
#include "pressure/correction.hpp"
#include "pressure/divergence.hpp"
#include "pressure/multigridp.hpp"

namespace {

void make_box(int I, int J, int K, double hx, double hy, double hz) {
  rl::imax = I;
  rl::jmax = J;
  rl::kmax = K;
  rl::dx = hx;
  rl::dy = hy;
  rl::dz = hz;
  rl::LEVELCOUNT();
  rl::ALLOCFIELDS();
}

// Runs DIVERGENCE with the given text as the operator's input and returns
// what it printed.
std::string divergence_with_input(const std::string& input) {
  std::istringstream in(input);
  std::streambuf* old = std::cin.rdbuf(in.rdbuf());
  testing::internal::CaptureStdout();
  rl::DIVERGENCE();
  std::string out = testing::internal::GetCapturedStdout();
  std::cin.rdbuf(old);
  return out;
}

}  // namespace

TEST(Projection, CorrectionSubtractsTheGradientAndAccumulatesP) {
  make_box(3, 2, 2, 0.5, 0.25, 2.0);
  rl::dt = 0.5;
  rl::dens = 2.0;  // dt/dens = 1/4
  rl::Array3<double>& phi = rl::pmg(0).phi;
  // phi = i^2 + 3 j^2 + 5 k^2 on every cell, ghosts included.
  for (int k = 0; k <= 3; ++k)
    for (int j = 0; j <= 3; ++j)
      for (int i = 0; i <= 4; ++i) phi(i, j, k) = i * i + 3.0 * j * j + 5.0 * k * k;
  rl::u.fill(1.0);
  rl::v.fill(2.0);
  rl::w.fill(3.0);
  rl::p.fill(10.0);

  rl::CORRECTION();

  // u(i) sits between cells i and i+1: phi(i+1) - phi(i) = 2i + 1, times
  // 1/4, over dx = 1/2: the change is -(2i + 1)/2 on faces 0..imax.
  for (int k = 0; k <= 3; ++k)
    for (int j = 0; j <= 3; ++j)
      for (int i = -1; i <= 4; ++i) {
        const bool inside = i >= 0 && i <= 3 && j >= 1 && j <= 2 && k >= 1 && k <= 2;
        EXPECT_EQ(rl::u(i, j, k), inside ? 1.0 - (2 * i + 1) / 2.0 : 1.0) << i << "," << j << "," << k;
      }
  // v: 3 (2j + 1) / 4 / (1/4) = 3 (2j + 1) on faces j = 0..jmax.
  for (int k = 0; k <= 3; ++k)
    for (int j = -1; j <= 3; ++j)
      for (int i = 0; i <= 4; ++i) {
        const bool inside = i >= 1 && i <= 3 && j >= 0 && j <= 2 && k >= 1 && k <= 2;
        EXPECT_EQ(rl::v(i, j, k), inside ? 2.0 - 3.0 * (2 * j + 1) : 2.0) << i << "," << j << "," << k;
      }
  // w: 5 (2k + 1) / 4 / 2 = 5 (2k + 1) / 8 on faces k = 0..kmax.
  for (int k = -1; k <= 3; ++k)
    for (int j = 0; j <= 3; ++j)
      for (int i = 0; i <= 4; ++i) {
        const bool inside = i >= 1 && i <= 3 && j >= 1 && j <= 2 && k >= 0 && k <= 2;
        EXPECT_EQ(rl::w(i, j, k), inside ? 3.0 - 5.0 * (2 * k + 1) / 8.0 : 3.0) << i << "," << j << "," << k;
      }
  // p takes phi everywhere, edges and corners of the ghost layer too, and
  // keeps accumulating.
  rl::CORRECTION();
  for (int k = 0; k <= 3; ++k)
    for (int j = 0; j <= 3; ++j)
      for (int i = 0; i <= 4; ++i) EXPECT_EQ(rl::p(i, j, k), 10.0 + 2.0 * phi(i, j, k));

  // A constant phi moves no velocity but shifts p.
  phi.fill(0.75);
  rl::u.fill(1.0);
  rl::v.fill(2.0);
  rl::w.fill(3.0);
  rl::p.fill(0.0);
  rl::CORRECTION();
  for (int k = 0; k <= 3; ++k)
    for (int j = 0; j <= 3; ++j)
      for (int i = 0; i <= 4; ++i) {
        EXPECT_EQ(rl::u(i, j, k), 1.0);
        EXPECT_EQ(rl::v(i, j, k), 2.0);
        EXPECT_EQ(rl::w(i, j, k), 3.0);
        EXPECT_EQ(rl::p(i, j, k), 0.75);
      }
}

TEST(Projection, DivergenceMaximumSignedSumAndPause) {
  make_box(3, 2, 2, 0.5, 0.5, 1.0);
  // u = a i^2 gives (2i - 1) a / dx, v = -b j gives -b / dy per cell; with
  // a = 1/1024, dx = dy = 1/2: d = (2i - 1)/512 - 2b.  b = 1/512: d is
  // -1/512, 1/512, 3/512 for i = 1, 2, 3, all below 0.01.
  const double a = 1.0 / 1024.0, b = 1.0 / 512.0;
  for (int k = 0; k <= 3; ++k)
    for (int j = 0; j <= 3; ++j)
      for (int i = -1; i <= 4; ++i) rl::u(i, j, k) = a * i * i;
  for (int k = 0; k <= 3; ++k)
    for (int j = -1; j <= 3; ++j)
      for (int i = 0; i <= 4; ++i) rl::v(i, j, k) = -b * j;
  rl::w.fill(0.25);
  rl::divmax = -1.0;
  rl::divsum = -1.0;
  EXPECT_EQ(divergence_with_input(""), "");
  EXPECT_EQ(rl::divmax, 3.0 / 512.0);
  // Signed: four cells per i, (-1 + 1 + 3) / 512 each.
  EXPECT_DOUBLE_EQ(rl::divsum, 4.0 * 3.0 / 512.0);

  // A cell above 0.01 prints its indices and waits for one line; the next
  // cell above it again.  w(2,1,1) = 1 makes cell (2,1,1) +1 and (2,1,2) -1.
  rl::w(2, 1, 1) = 1.25;
  const std::string out = divergence_with_input("\n\n");
  EXPECT_EQ(out, "2 1 1\n2 1 2\n");
  EXPECT_DOUBLE_EQ(rl::divmax, 1.0 + 1.0 / 512.0);
  EXPECT_DOUBLE_EQ(rl::divsum, 4.0 * 3.0 / 512.0);

  // A uniform flow: every cell is exactly 0, and so is the sum.
  rl::u.fill(0.3);
  rl::v.fill(-0.7);
  rl::w.fill(0.1);
  divergence_with_input("");
  EXPECT_EQ(rl::divmax, 0.0);
  EXPECT_EQ(rl::divsum, 0.0);

  // No cells in x: both results stay at 0.
  make_box(0, 2, 2, 1.0, 1.0, 1.0);
  rl::divmax = 5.0;
  rl::divsum = 5.0;
  divergence_with_input("");
  EXPECT_EQ(rl::divmax, 0.0);
  EXPECT_EQ(rl::divsum, 0.0);
}

TEST(Projection, SolveAndCorrectLeavesNoDivergence) {
  // A random divergent velocity, periodic in x, a given value at the bottom
  // and zero gradient elsewhere.  After the solve and the correction the
  // divergence left is the solver's residual: below the tolerance.
  make_box(16, 8, 8, 0.5, 0.5, 0.25);
  rl::ibcp(1) = 0;
  rl::ibcp(2) = 0;
  rl::ibcp(3) = 1;
  rl::ibcp(4) = 1;
  rl::ibcp(5) = -1;
  rl::ibcp(6) = 1;
  rl::dt = 0.01;
  rl::dens = 1000.0;
  rl::igamma = 1;
  rl::ipres = 2;
  rl::iposts = 2;
  rl::kpoismax = 100;
  rl::eps = 1e-10;
  std::mt19937 gen(11);
  std::uniform_real_distribution<double> U(-1.0, 1.0);
  for (std::int64_t n = 0; n < rl::u.size(); ++n) rl::u.data()[n] = 1e-3 * U(gen);
  for (std::int64_t n = 0; n < rl::v.size(); ++n) rl::v.data()[n] = 1e-3 * U(gen);
  for (std::int64_t n = 0; n < rl::w.size(); ++n) rl::w.data()[n] = 1e-3 * U(gen);
  rl::SOURCEP();
  double before = 0.0;
  rl::DIVNORMP(0, before);
  ASSERT_GT(before, 0.0);
  const int n = rl::POISSONP();
  EXPECT_GE(n, 2);
  EXPECT_LE(n, 30);
  rl::CORRECTION();
  rl::SOURCEP();
  double after = 0.0;
  rl::DIVNORMP(0, after);
  EXPECT_LT(after, 1e-8 * before);
  divergence_with_input("");
  EXPECT_LT(rl::divmax, 1e-9);
}
