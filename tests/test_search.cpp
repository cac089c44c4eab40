// The search for the foot point on the bilinear bed.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "driver/fields.hpp"
#include "immersed/immerse.hpp"

namespace {

void search_grid(double dzz, double z0) {
  rl::imax = 6;
  rl::jmax = 6;
  rl::kmax = 8;
  rl::lmin = 0;
  rl::ALLOCFIELDS();
  rl::dx = 1.0;
  rl::dy = 0.5;
  rl::dz = dzz;
  rl::xmin = 0.0;
  rl::ymin = 0.0;
  rl::zmin = z0;
  rl::xmax = 6.0;
  rl::ymax = 3.0;
  rl::zmax = z0 + 8 * dzz;
}

void set_bed(double (*f)(int i, int j)) {
  for (int j = 0; j <= rl::jmax + 1; ++j)
    for (int i = 0; i <= rl::imax + 1; ++i) rl::bed(i, j) = f(i, j);
}

}  // namespace

// Nearest point of a plane patch and of a saddle, against closed forms.
TEST(Search, BedPatchPointPlaneAndSaddle) {
  // Plane z = 0.4 + 0.1x - 0.2y: the foot is P minus its offset along the
  // plane's normal g = (-0.1, 0.2, 1).
  auto pl = [](double x, double y) { return 0.4 + 0.1 * x - 0.2 * y; };
  double X, Y, Z;
  rl::BEDPATCHPOINT(1.0, 2.0, 2.0, 1.0, pl(1, 2), pl(2, 2), pl(1, 1), pl(2, 1), 1.5, 1.4, 1.3, X, Y, Z);
  const double gx = -0.1, gy = 0.2, gz = 1.0;
  const double s = (gx * 1.5 + gy * 1.4 + gz * 1.3 - 0.4) / (gx * gx + gy * gy + gz * gz);
  EXPECT_NEAR(X, 1.5 - s * gx, 1e-9);
  EXPECT_NEAR(Y, 1.4 - s * gy, 1e-9);
  EXPECT_NEAR(Z, 1.3 - s * gz, 1e-9);

  // Saddle z = 0.1 + x*y, P = (0.3, 0.3, 0.6) above its diagonal: the foot
  // (r, r, 0.1 + r^2) solves r^3 + (1.1 - 0.6) r - 0.3 = 0 (Cardano).
  rl::BEDPATCHPOINT(0.0, 1.0, 0.0, 1.0, 0.1, 0.1, 0.1, 1.1, 0.3, 0.3, 0.6, X, Y, Z);
  const double p = 0.5, q = -0.3;
  const double D = std::sqrt(q * q / 4 + p * p * p / 27);
  const double r = std::cbrt(-q / 2 + D) + std::cbrt(-q / 2 - D);
  EXPECT_NEAR(r * r * r + p * r + q, 0.0, 1e-14);
  EXPECT_NEAR(X, r, 1e-7);
  EXPECT_NEAR(Y, r, 1e-7);
  EXPECT_NEAR(Z, 0.1 + r * r, 1e-7);
}

// Flat bed: the foot is straight below P for every kind of position, and
// best is the height above the bed.
TEST(Search, FlatBedFootStraightBelow) {
  search_grid(0.25, 0.0);
  set_bed([](int, int) { return 0.3; });
  const rl::FootPoint fu = rl::foot_u(3, 3, 4);
  EXPECT_TRUE(fu.found);
  EXPECT_EQ(fu.px, 3.0);
  EXPECT_EQ(fu.py, 1.25);
  EXPECT_EQ(fu.pz, 0.875);
  EXPECT_DOUBLE_EQ(fu.X, 3.0);
  EXPECT_DOUBLE_EQ(fu.Y, 1.25);
  EXPECT_DOUBLE_EQ(fu.Z, 0.3);
  EXPECT_DOUBLE_EQ(fu.best, 0.575);
  const rl::FootPoint fv = rl::foot_v(2, 5, 3);
  EXPECT_EQ(fv.px, 1.5);
  EXPECT_EQ(fv.py, 2.5);
  EXPECT_DOUBLE_EQ(fv.X, 1.5);
  EXPECT_DOUBLE_EQ(fv.Y, 2.5);
  EXPECT_DOUBLE_EQ(fv.Z, 0.3);
  EXPECT_DOUBLE_EQ(fv.best, 0.325);
  const rl::FootPoint fw = rl::foot_w(4, 2, 2);
  EXPECT_EQ(fw.pz, 0.5);
  EXPECT_DOUBLE_EQ(fw.X, 3.5);
  EXPECT_DOUBLE_EQ(fw.Y, 0.75);
  EXPECT_DOUBLE_EQ(fw.Z, 0.3);
  EXPECT_DOUBLE_EQ(fw.best, 0.2);
  const rl::FootPoint fc = rl::foot_c(1, 6, 2);
  EXPECT_EQ(fc.pz, 0.375);
  EXPECT_DOUBLE_EQ(fc.X, 0.5);
  EXPECT_DOUBLE_EQ(fc.Y, 2.75);
  EXPECT_DOUBLE_EQ(fc.Z, 0.3);
  EXPECT_DOUBLE_EQ(fc.best, 0.075);
  // Nothing nearer than the height of the domain: no foot point.
  const rl::FootPoint far = rl::foot_c(3, 3, 8);
  EXPECT_TRUE(far.found);
  set_bed([](int, int) { return -2.5; });
  EXPECT_FALSE(rl::foot_c(3, 3, 1).found);
  EXPECT_FALSE(rl::foot_u(3, 3, 1).found);
}

// A ridge along x under a u position: the nearest points of both extended
// patches fall outside them, and the edge along the ridge is the foot.
TEST(Search, RidgeGivesEdgeCandidate) {
  search_grid(0.25, 0.0);
  set_bed([](int, int j) { return j == 3 ? 0.5 : 0.3; });
  const rl::FootPoint f = rl::foot_u(3, 3, 5);  // P = (3, 1.25, 1.125)
  EXPECT_TRUE(f.found);
  EXPECT_DOUBLE_EQ(f.X, 3.0);
  EXPECT_DOUBLE_EQ(f.Y, 1.25);
  EXPECT_DOUBLE_EQ(f.Z, 0.5);
  EXPECT_DOUBLE_EQ(f.best, 0.625);
}

// A valley: both patches hold their nearest points, and the steeper (south)
// side is nearer; it replaces the north candidate tried first.
TEST(Search, ValleyNearerPatchWins) {
  search_grid(0.25, 0.0);
  set_bed([](int, int j) { return j == 3 ? 0.3 : (j < 3 ? 0.8 : 0.55); });
  const rl::FootPoint f = rl::foot_u(3, 3, 3);  // P = (3, 1.25, 0.625)
  // South slope 1: the foot lies h/2 = 0.1625 south and up.
  EXPECT_NEAR(f.X, 3.0, 1e-12);
  EXPECT_NEAR(f.Y, 1.25 - 0.1625, 1e-9);
  EXPECT_NEAR(f.Z, 0.3 + 0.1625, 1e-9);
  EXPECT_NEAR(f.best, 0.325 / std::sqrt(2.0), 1e-9);
}

// A ramp in x, with P so high above it that the foot lies beyond the second
// column: only the second ring finds it, on the patch that reaches the
// wrapped column iw = (imax + i + 2) mod imax.  Column imax (or imax+1) holds
// a value that would spoil the result if it were read instead.
TEST(Search, SecondRingUsesWrappedColumn) {
  search_grid(1.0, -4.0);
  // i = imax-2 = 4: iw = 0 stands for the column after 5.
  set_bed([](int i, int) { return i == 0 ? 1.5 : (i == 6 ? -3.0 : (i - 0.5) - 4.0); });
  rl::FootPoint f = rl::foot_u(4, 3, 7);  // P = (4, 1.25, 2.5), 2.5 above the ramp
  EXPECT_TRUE(f.found);
  EXPECT_NEAR(f.X, 5.25, 1e-9);
  EXPECT_NEAR(f.Y, 1.25, 1e-12);
  EXPECT_NEAR(f.Z, 1.25, 1e-9);
  EXPECT_NEAR(f.best, 2.5 / std::sqrt(2.0), 1e-9);
  // i = imax-1 = 5: iw = 1.
  set_bed([](int i, int) { return i == 1 ? 2.5 : (i == 7 ? -3.0 : (i - 0.5) - 4.0); });
  f = rl::foot_u(5, 3, 8);  // P = (5, 1.25, 3.5)
  EXPECT_NEAR(f.X, 6.25, 1e-9);
  EXPECT_NEAR(f.Z, 2.25, 1e-9);
  EXPECT_NEAR(f.best, 2.5 / std::sqrt(2.0), 1e-9);
  // Lower over the ramp, the edge at the right column centre is measured
  // without its x offset and wins over the true nearest point of the ramp.
  set_bed([](int i, int) { return i == 0 ? 1.5 : (i - 0.5) - 4.0; });
  f = rl::foot_u(4, 3, 6);  // P = (4, 1.25, 1.5)
  EXPECT_DOUBLE_EQ(f.X, 4.5);
  EXPECT_DOUBLE_EQ(f.Y, 1.25);
  EXPECT_DOUBLE_EQ(f.Z, 0.5);
  EXPECT_DOUBLE_EQ(f.best, 1.0);
}

// A v position above a ramp rising to the south, on a grid with dz = 2*dy:
// steps 1 to 5 find nothing, and the south edge, which ends 1.5*dz (not
// 1.5*dy) south of P, holds the foot.
TEST(Search, VSouthEdgeEndsAtOneAndAHalfDz) {
  search_grid(1.0, -4.0);
  // Rows: z = 3 - 2y at the row centres y = (j - 0.5)*0.5.
  set_bed([](int, int j) { return 3.0 - 2.0 * ((j - 0.5) * 0.5); });
  const rl::FootPoint f = rl::foot_v(3, 3, 7);  // P = (2.5, 1.5, 2.5)
  EXPECT_TRUE(f.found);
  // Segment from (1.25, 0.5) to (0.0, 1.5) in the y-z plane.
  const double t = ((1.5 - 1.25) * -1.25 + (2.5 - 0.5) * 1.0) / (1.25 * 1.25 + 1.0);
  EXPECT_NEAR(f.X, 2.5, 1e-12);
  EXPECT_NEAR(f.Y, 1.25 - 1.25 * t, 1e-12);
  EXPECT_NEAR(f.Z, 0.5 + t, 1e-12);
  EXPECT_NEAR(f.best, std::hypot(1.5 - f.Y, 2.5 - f.Z), 1e-12);
}

// A steep patch where the alternating minimisation creeps: after 201
// iterations the change still exceeds 1e-4, so a warning is printed and the
// centre of the patch is returned.
TEST(Search, BedPatchPointNotConvergedGivesCentre) {
  auto z = [](double x, double y) { return 0.7 + 20.0 * x + 20.0 * y; };
  double X, Y, Z;
  testing::internal::CaptureStdout();
  rl::BEDPATCHPOINT(-1.0, 1.0, -1.0, 1.0, z(-1, -1), z(1, -1), z(-1, 1), z(1, 1), 0.001, -0.002, 1.0, X, Y, Z);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.rfind("Warning : The immersed boundary is not converged yet", 0), 0u) << out;
  EXPECT_EQ(X, 0.0);
  EXPECT_EQ(Y, 0.0);
  EXPECT_NEAR(Z, 0.7, 1e-14);
  // A gentle patch converges silently to its nearest point.
  testing::internal::CaptureStdout();
  auto g = [](double x, double y) { return 0.7 + 0.2 * x + 0.1 * y; };
  rl::BEDPATCHPOINT(-1.0, 1.0, -1.0, 1.0, g(-1, -1), g(1, -1), g(-1, 1), g(1, 1), 0.001, -0.002, 1.0, X, Y, Z);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_NEAR(Z, g(X, Y), 1e-9);
}
