// The node values written to the case: averages and blanking at the bed.
#include <gtest/gtest.h>

// The case library's header comes before the CGNS library's (whose mode
// macros have the same names and values).
#include "orvalib/orvalib.hpp"

#include <cgnslib.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "driver/conditions.hpp"
#include "driver/fields.hpp"
#include "flow/vorticity.hpp"
#include "results/caseresults.hpp"
#include "run_helpers.hpp"

namespace {

void box(int I, int J, int K, double h) {
  rl::imax = I;
  rl::jmax = J;
  rl::kmax = K;
  rl::LEVELCOUNT();
  rl::ALLOCFIELDS();
  rl::ALLOCNODEARRAYS();
  rl::dx = rl::dy = rl::dz = h;
}

template <typename F>
void set_all(rl::Array3<double>& a, F f) {
  for (int k = a.lo(2); k <= a.hi(2); ++k)
    for (int j = a.lo(1); j <= a.hi(1); ++j)
      for (int i = a.lo(0); i <= a.hi(0); ++i) a(i, j, k) = f(i, j, k);
}

}  // namespace

TEST(NodeValues, AveragesAndBlankingAtTheBed) {
  box(2, 2, 2, 1.0);
  rl::zmin = 0.0;
  for (int k = 0; k <= 2; ++k)
    for (int j = 0; j <= 2; ++j)
      for (int i = 0; i <= 2; ++i) rl::zg3(i, j, k) = k * 1.0;
  // Distinct cell values: p = i + 10 j + 100 k, ghosts included.
  set_all(rl::p, [](int i, int j, int k) { return i + 10.0 * j + 100.0 * k; });
  set_all(rl::Q, [](int i, int j, int k) { return 2.0 * i + 10.0 * j + 100.0 * k; });
  set_all(rl::vort, [](int i, int, int) { return 1.0 * i; });
  set_all(rl::u, [](int i, int j, int k) { return i + 10.0 * j + 100.0 * k; });
  set_all(rl::v, [](int i, int j, int k) { return i + 10.0 * j + 100.0 * k; });
  set_all(rl::w, [](int i, int j, int k) { return i + 10.0 * j + 100.0 * k; });
  rl::elev.fill(-1.0);
  rl::elev(1, 1) = 1.0;  // exactly at node k = 1: in the bed
  rl::elev(2, 0) = 5.0;  // dry column: the whole column is blanked
  rl::NODEVALUES();

  // Node (0,0,0): mean of cells 0..1 in each direction; i = imax uses the ghost.
  EXPECT_DOUBLE_EQ(rl::pout(0, 0, 0), 0.5 + 5.0 + 50.0);
  EXPECT_DOUBLE_EQ(rl::pout(2, 1, 1), 2.5 + 15.0 + 150.0);
  EXPECT_DOUBLE_EQ(rl::qout(1, 2, 0), 3.0 + 25.0 + 50.0);
  // Face means: u in the plane of x node i, v of y node j, w of z node k.
  EXPECT_DOUBLE_EQ(rl::uout(0, 0, 0), 0.0 + 5.0 + 50.0);
  EXPECT_DOUBLE_EQ(rl::vout(1, 0, 0), 1.5 + 0.0 + 50.0);
  EXPECT_DOUBLE_EQ(rl::wout(1, 2, 2), 1.5 + 25.0 + 200.0);

  // Node (1,1,1) lies exactly at the bed: blanked but for the pressure.
  EXPECT_EQ(rl::uout(1, 1, 1), 0.0);
  EXPECT_EQ(rl::vout(1, 1, 1), 0.0);
  EXPECT_EQ(rl::wout(1, 1, 1), 0.0);
  EXPECT_EQ(rl::vortout(1, 1, 1), 0.0);
  EXPECT_EQ(rl::qout(1, 1, 1), 0.0);
  EXPECT_DOUBLE_EQ(rl::pout(1, 1, 1), 1.5 + 15.0 + 150.0);
  EXPECT_EQ(rl::uout(1, 1, 0), 0.0);
  EXPECT_NE(rl::uout(1, 1, 2), 0.0);
  for (int k = 0; k <= 2; ++k) {
    EXPECT_EQ(rl::vout(2, 0, k), 0.0);
    EXPECT_NE(rl::pout(2, 0, k), 0.0);
  }
  EXPECT_NE(rl::uout(0, 0, 1), 0.0);
}

// The case library's writes in slabs of planes (what a run over several
// processes uses): the grid's slabs in any order and a result array's from
// plane 0 on, read back whole through the CGNS library; a slab of an array
// not begun at plane 0 is refused.
TEST(NodeValues, SlabsOfPlanesReadBackAsWholeArrays) {
  const std::string dir = rltest::temp_dir("slabs"), path = dir + "/case.cgn";
  const int ni = 4, nj = 3, nk = 5, n = ni * nj;
  std::vector<double> x(n), y(n), elev(n, 0.0);
  for (int m = 0; m < n; ++m) {
    x[m] = m % ni;
    y[m] = m / ni;
  }
  std::string error;
  ASSERT_EQ(orva::write_case(path, ni, nj, x, y, elev, {}, error), 0) << error;
  auto value = [](int i, int j, int k) { return i + 10.0 * j + 100.0 * k; };
  auto slab = [&](int k0, int k1, int c) {
    std::vector<double> s;
    for (int k = k0; k <= k1; ++k)
      for (int j = 0; j < nj; ++j)
        for (int i = 0; i < ni; ++i) s.push_back(c == 0 ? i : c == 1 ? j : c == 2 ? 0.5 * k : value(i, j, k));
    return s;
  };
  int fid = 0, ier = 0;
  orva::CG_OPEN_F(path, CG_MODE_MODIFY, fid, ier);
  orva::CG_ORVA_INIT_F(fid, ier);
  orva::CG_ORVA_BEGIN_GRIDCOORD3D_F(ni, nj, nk, ier);
  ASSERT_EQ(ier, 0);
  for (auto [k0, k1] : {std::pair{3, 4}, {0, 0}, {1, 2}}) {
    orva::CG_ORVA_WRITE_GRIDCOORD3D_PLANES_F(k0, k1, slab(k0, k1, 0).data(), slab(k0, k1, 1).data(),
                                            slab(k0, k1, 2).data(), ier);
    ASSERT_EQ(ier, 0);
  }
  orva::CG_ORVA_END_GRIDCOORD3D_F(ier);
  ASSERT_EQ(ier, 0);
  orva::CG_ORVA_WRITE_SOL_TIME_F(0.25, ier);
  orva::CG_ORVA_WRITE_SOL_REAL_PLANES_F("Pressure", 1, 2, slab(1, 2, 3).data(), ier);
  EXPECT_NE(ier, 0);
  for (auto [k0, k1] : {std::pair{0, 1}, {2, 2}, {3, 4}}) {
    orva::CG_ORVA_WRITE_SOL_REAL_PLANES_F("Pressure", k0, k1, slab(k0, k1, 3).data(), ier);
    ASSERT_EQ(ier, 0);
  }
  orva::CG_ORVA_FLUSH_F(path, fid, ier);
  orva::CG_CLOSE_F(fid, ier);
  ASSERT_EQ(ier, 0);

  int fn = 0;
  ASSERT_EQ(cg_open(path.c_str(), CG_MODE_READ, &fn), CG_OK);
  const cgsize_t lo[3] = {1, 1, 1}, hi[3] = {ni, nj, nk};
  std::vector<double> p(n * nk), z(n * nk);
  EXPECT_EQ(cg_field_read(fn, 1, 1, 1, "Pressure", CGNS_ENUMV(RealDouble), lo, hi, p.data()), CG_OK);
  EXPECT_EQ(cg_coord_read(fn, 1, 1, "CoordinateZ", CGNS_ENUMV(RealDouble), lo, hi, z.data()), CG_OK);
  cg_close(fn);
  EXPECT_EQ(p, slab(0, nk - 1, 3));
  EXPECT_EQ(z, slab(0, nk - 1, 2));
}
