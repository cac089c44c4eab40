// Routines that compute every position on its own must give the same fields
// whatever the number of threads and however the work is shared: the
// predictors, the side-wall law, the ghost layers of the boundary routines
// (whose loops skip the barrier where consecutive loops share the same
// planes, and whose three velocity components may run in one region) and the
// node values of the results, blanked below the bed.  A
// race or a missing barrier shows as a difference.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "driver/fields.hpp"
#include "flow/wall.hpp"
#include "flow/xvelocity.hpp"
#include "flow/yvelocity.hpp"
#include "flow/zvelocity.hpp"
#include "pressure/boundary.hpp"
#include "results/caseresults.hpp"

namespace {

using namespace rl;

// The bit patterns of an array (so that NaN compares equal to itself).
std::vector<std::uint64_t> snap(const Array3<double>& a) {
  std::vector<std::uint64_t> bits(static_cast<std::size_t>(a.size()));
  std::memcpy(bits.data(), a.data(), bits.size() * sizeof(double));
  return bits;
}

template <class T>
void noise(Array3<T>& a, std::mt19937_64& g) {
  for (std::int64_t n = 0; n < a.size(); ++n) a.data()[n] = static_cast<T>((g() >> 11) * 0x1.0p-53 - 0.5);
}

// A state of 48 x 24 x 40 cells (above the size at which work is shared),
// filled with noise, every boundary type on some face.
void state() {
  imax = 48;
  jmax = 24;
  kmax = 40;
  lmin = 0;
  ALLOCFIELDS();
  dx = 0.01;
  dy = 0.02;
  dz = 0.005;
  visc = 1.0e-6;
  dens = 1000.0;
  dt = 1.0e-3;
  forcex = 0.01;
  forcey = 0.0;
  forcez = -0.001;
  rough = 2.0;
  ALLOCNODEARRAYS();
  std::mt19937_64 g;
  for (Array3<double>* a : {&u, &v, &w, &uo, &vo, &wo, &nut, &p, &rhsuo, &rhsvo, &rhswo, &vort, &Q, &zg3})
    noise(*a, g);
  for (int j = 0; j <= jmax; ++j)
    for (int i = 0; i <= imax; ++i) elev(i, j) = 0.1 * std::sin(0.3 * i + 0.2 * j);
  // x periodic, y walls with given values, z: given bottom, gradient top.
  const int types[6] = {Periodic, Periodic, Given, Given, Given, Gradient};
  for (int f = 1; f <= 6; ++f) {
    ibcu(f) = ibcv(f) = ibcw(f) = types[f - 1];
    ibcp(f) = f <= 2 ? Periodic : Gradient;
    bcu(f) = 0.1 * f;
    bcv(f) = -0.05 * f;
    bcw(f) = 0.02 * f;
  }
}

std::vector<std::vector<std::uint64_t>> run(int threads, bool fused) {
  const int saved = omp_get_max_threads();
  state();
  omp_set_num_threads(threads);
  XVELOCITY();
  YVELOCITY();
  ZVELOCITY();
  WALLS();
  WALLN();
  if (fused) {
    BOUNDARYUVW();
  } else {
    BOUNDARYU();
    BOUNDARYV();
    BOUNDARYW();
  }
  BOUNDARYP();
  NODEVALUES();
  omp_set_num_threads(saved);
  return {snap(u),    snap(v),    snap(w),    snap(p),    snap(rhsu),    snap(rhsv), snap(rhsw),
          snap(rhsuo), snap(uout), snap(vout), snap(wout), snap(vortout), snap(qout), snap(pout)};
}

TEST(Threads, PointwiseRoutinesGiveTheOneThreadFields) {
  const auto one = run(1, false);
  for (bool fused : {false, true})
    for (int threads : {1, 2, 3}) {
      const auto many = run(threads, fused);
      ASSERT_EQ(many.size(), one.size());
      for (std::size_t a = 0; a < one.size(); ++a)
        EXPECT_EQ(many[a], one[a]) << "array " << a << ", " << threads << " threads, fused " << fused;
    }
}

}  // namespace
