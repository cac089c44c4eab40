// Conditions on the six faces of the box for u, v, w and p.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "driver/fields.hpp"
#include "pressure/boundary.hpp"

namespace {

using namespace rl;

constexpr int NI = 4, NJ = 3, NK = 5;
constexpr double DX = 0.5, DY = 0.25, DZ = 2.0;

void grid() {
  imax = NI;
  jmax = NJ;
  kmax = NK;
  lmin = 0;
  ALLOCFIELDS();
  dx = DX;
  dy = DY;
  dz = DZ;
}

// Distinct values in every element, the -1 layers included.
void scramble(Array3<double>& f, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> d(-3.0, 3.0);
  for (std::int64_t n = 0; n < f.size(); ++n) f.data()[n] = d(gen) + 10.0 * static_cast<double>(n);
}

// Element of f at position q along axis ax and a, b along the other two
// axes in the order x, y, z.
double& elem(Array3<double>& f, int ax, int q, int a, int b) {
  if (ax == 0) return f(q, a, b);
  if (ax == 1) return f(a, q, b);
  return f(a, b, q);
}

int count_of(int ax) { return ax == 0 ? NI : (ax == 1 ? NJ : NK); }
double size_of(int ax) { return ax == 0 ? DX : (ax == 1 ? DY : DZ); }

// The conditions written out case by case from the table of their meanings,
// face after face in the given order, then the passes on the normal
// direction.
void reference(Array3<double>& f, int own, const int (&t)[7], const double (&bc)[7], const int (&order)[6]) {
  for (int face : order) {
    const int ax = (face - 1) / 2;
    const bool high = face % 2 == 0;
    const int n = count_of(ax);
    const double d = size_of(ax);
    const int na = count_of(ax == 0 ? 1 : 0), nb = count_of(ax == 2 ? 1 : 2);
    for (int b = 0; b <= nb + 1; ++b)
      for (int a = 0; a <= na + 1; ++a) {
        auto F = [&](int q) -> double& { return elem(f, ax, q, a, b); };
        const double g = bc[face];
        if (ax == own && !high) {
          if (t[face] == -1) F(0) = g;
          if (t[face] == 0) F(0) = F(n);
          if (t[face] == 1) F(-1) = F(1) - 2 * d * g;
        } else if (ax == own) {
          if (t[face] == -1) F(n) = g;
          if (t[face] == 0) F(n + 1) = F(1);
          if (t[face] == 1) F(n + 1) = F(n - 1) + 2 * d * g;
        } else if (!high) {
          if (t[face] == -1) F(0) = 2 * g - F(1);
          if (t[face] == 0) F(0) = F(n);
          if (t[face] == 1) F(0) = F(1) - d * g;
        } else {
          if (t[face] == -1) F(n + 1) = 2 * g - F(n);
          if (t[face] == 0) F(n + 1) = F(1);
          if (t[face] == 1) F(n + 1) = F(n) + d * g;
        }
      }
  }
  const int n = count_of(own);
  const int na = count_of(own == 0 ? 1 : 0), nb = count_of(own == 2 ? 1 : 2);
  const int lo = t[2 * own + 1], hi = t[2 * own + 2];
  for (int b = 0; b <= nb + 1; ++b)
    for (int a = 0; a <= na + 1; ++a) {
      auto F = [&](int q) -> double& { return elem(f, own, q, a, b); };
      if (lo == -1) F(-1) = 2 * F(0) - F(1);
      if (hi == -1) F(n + 1) = 2 * F(n) - F(n - 1);
      if (lo == 0) F(-1) = F(n - 1);
    }
}

struct Component {
  Array3<double>* f;
  Faces<int>* ibc;
  Faces<double>* bc;
  void (*routine)();
  int own;
  int order[6];
};

Component components[3] = {
    {&u, &ibcu, &bcu, BOUNDARYU, 0, {1, 2, 3, 4, 5, 6}},
    {&v, &ibcv, &bcv, BOUNDARYV, 1, {3, 4, 5, 6, 1, 2}},
    {&w, &ibcw, &bcw, BOUNDARYW, 2, {5, 6, 1, 2, 3, 4}},
};

// Runs the routine of component c with types t and values bc on a
// scrambled field and compares every element with the reference; returns
// whether a reference with the faces in another order would differ.
bool compare_with_reference(const Component& c, const int (&t)[7], const double (&bc)[7], unsigned seed) {
  grid();
  for (int f = 1; f <= 6; ++f) {
    (*c.ibc)(f) = t[f];
    (*c.bc)(f) = bc[f];
  }
  scramble(*c.f, seed);
  Array3<double> want, other;
  want.allocate("want", c.f->lo(0), c.f->hi(0), c.f->lo(1), c.f->hi(1), c.f->lo(2), c.f->hi(2));
  other.allocate("other", c.f->lo(0), c.f->hi(0), c.f->lo(1), c.f->hi(1), c.f->lo(2), c.f->hi(2));
  for (std::int64_t n = 0; n < want.size(); ++n) want.data()[n] = other.data()[n] = c.f->data()[n];
  reference(want, c.own, t, bc, c.order);
  const int swapped[6] = {c.order[2], c.order[3], c.order[0], c.order[1], c.order[4], c.order[5]};
  const int(&sw)[6] = swapped;
  reference(other, c.own, t, bc, sw);

  c.routine();
  bool differs = false;
  for (int k = want.lo(2); k <= want.hi(2); ++k)
    for (int j = want.lo(1); j <= want.hi(1); ++j)
      for (int i = want.lo(0); i <= want.hi(0); ++i) {
        EXPECT_EQ((*c.f)(i, j, k), want(i, j, k)) << c.f->name() << "(" << i << "," << j << "," << k << ")";
        differs = differs || want(i, j, k) != other(i, j, k);
      }
  return differs;
}

// Every element of u, v, w after the routine against the case-by-case
// reference, for walls with distinct values, a periodic/gradient mix and
// many random type combinations.  The wall case is one where another face
// order gives other ghost edges, so a swapped order would be caught.
TEST(VelocityBoundary, AllElementsAgainstCaseByCaseReference) {
  const double bc[7] = {0.0, 0.3, -0.7, 1.1, 2.5, -1.3, 0.9};
  for (const Component& c : components) {
    SCOPED_TRACE(c.f->name());
    const int walls[7] = {0, -1, -1, -1, -1, -1, -1};
    EXPECT_TRUE(compare_with_reference(c, walls, bc, 1));
    const int mix[7] = {0, 0, 0, 1, -1, -1, 1};
    compare_with_reference(c, mix, bc, 2);
    std::mt19937 gen(7);
    std::uniform_int_distribution<int> type(-1, 1);
    for (int r = 0; r < 4; ++r) {
      int t[7] = {0};
      for (int f = 1; f <= 6; ++f) t[f] = type(gen);
      compare_with_reference(c, t, bc, 100 + r);
    }
  }
}

// Ghost corners worked out by hand for walls on all six faces with values
// b1..b6: the later face reads what the earlier faces of the call wrote.
TEST(VelocityBoundary, WallCornersFollowEachComponentsFaceOrder) {
  const double b[7] = {0.0, 0.3, -0.7, 1.1, 2.5, -1.3, 0.9};
  grid();
  for (int f = 1; f <= 6; ++f) {
    ibcu(f) = ibcv(f) = ibcw(f) = -1;
    bcu(f) = bcv(f) = bcw(f) = b[f];
  }
  scramble(u, 11);
  scramble(v, 12);
  scramble(w, 13);
  const double u111 = u(1, 1, 1), v111 = v(1, 1, 1), w111 = w(1, 1, 1);
  BOUNDARYU();
  BOUNDARYV();
  BOUNDARYW();
  // u: x faces first, then y, then z
  EXPECT_DOUBLE_EQ(u(0, 2, 3), b[1]);
  EXPECT_DOUBLE_EQ(u(NI, 2, 3), b[2]);
  EXPECT_DOUBLE_EQ(u(0, 0, 3), 2 * b[3] - b[1]);
  EXPECT_DOUBLE_EQ(u(0, 0, 0), 2 * b[5] - (2 * b[3] - b[1]));
  EXPECT_DOUBLE_EQ(u(NI, NJ + 1, NK + 1), 2 * b[6] - (2 * b[4] - b[2]));
  EXPECT_DOUBLE_EQ(u(1, 0, 0), 2 * b[5] - (2 * b[3] - u111));
  EXPECT_DOUBLE_EQ(u(-1, 0, 0), 2 * u(0, 0, 0) - u(1, 0, 0));
  // v: y faces first, then z, then x
  EXPECT_DOUBLE_EQ(v(0, 0, 0), 2 * b[1] - (2 * b[5] - b[3]));
  EXPECT_DOUBLE_EQ(v(1, 0, 0), 2 * b[5] - b[3]);
  EXPECT_DOUBLE_EQ(v(1, 1, 0), 2 * b[5] - v111);
  EXPECT_DOUBLE_EQ(v(NI + 1, NJ, NK + 1), 2 * b[2] - (2 * b[6] - b[4]));
  // w: z faces first, then x, then y
  EXPECT_DOUBLE_EQ(w(0, 0, 0), 2 * b[3] - (2 * b[1] - b[5]));
  EXPECT_DOUBLE_EQ(w(0, 1, 1), 2 * b[1] - w111);
  EXPECT_DOUBLE_EQ(w(NI + 1, NJ + 1, NK), 2 * b[4] - (2 * b[2] - b[6]));
  EXPECT_DOUBLE_EQ(w(2, 2, -1), 2 * w(2, 2, 0) - w(2, 2, 1));
  EXPECT_DOUBLE_EQ(w(2, 2, NK + 1), 2 * w(2, 2, NK) - w(2, 2, NK - 1));
}

// Periodic, gradient and wall on the normal faces, with zero values; what
// is left unwritten; a non-finite value of weight zero still spreads.
TEST(VelocityBoundary, NormalFaceCasesAndUntouchedElements) {
  grid();
  for (int f = 1; f <= 6; ++f) {
    ibcu(f) = ibcv(f) = ibcw(f) = 1;
    bcu(f) = bcv(f) = bcw(f) = 0.0;
  }
  ibcu(1) = ibcu(2) = 0;
  scramble(u, 21);
  Array3<double> before;
  before.allocate("before", -1, NI + 1, 0, NJ + 1, 0, NK + 1);
  for (std::int64_t n = 0; n < u.size(); ++n) before.data()[n] = u.data()[n];
  BOUNDARYU();
  for (int k = 1; k <= NK; ++k)
    for (int j = 1; j <= NJ; ++j) {
      EXPECT_EQ(u(0, j, k), before(NI, j, k));
      EXPECT_EQ(u(-1, j, k), before(NI - 1, j, k));
      EXPECT_EQ(u(NI + 1, j, k), before(1, j, k));
      EXPECT_EQ(u(NI, j, k), before(NI, j, k));
    }

  ibcw(5) = 1;
  ibcw(6) = -1;
  scramble(w, 22);
  Array3<double> wb;
  wb.allocate("wb", 0, NI + 1, 0, NJ + 1, -1, NK + 1);
  for (std::int64_t n = 0; n < w.size(); ++n) wb.data()[n] = w.data()[n];
  BOUNDARYW();
  for (int j = 1; j <= NJ; ++j)
    for (int i = 1; i <= NI; ++i) {
      EXPECT_EQ(w(i, j, -1), wb(i, j, 1));
      EXPECT_EQ(w(i, j, 0), wb(i, j, 0));
      EXPECT_EQ(w(i, j, NK), 0.0);
      EXPECT_EQ(w(i, j, NK + 1), -wb(i, j, NK - 1));
    }

  // A tangential wall with zero value mirrors the first cell.
  ibcv(1) = -1;
  scramble(v, 23);
  const double v1 = v(1, 2, 3), vn = v(NI, 2, 3);
  BOUNDARYV();
  EXPECT_EQ(v(0, 2, 3), -v1);
  EXPECT_EQ(v(NI + 1, 2, 3), vn);  // gradient type 1 with value 0

  // Gradient type on the low x face: the far end has weight 0 but is still
  // multiplied, so an infinity there gives not-a-number.
  ibcu(1) = 1;
  ibcu(2) = 1;
  scramble(u, 24);
  u(NI, 2, 2) = std::numeric_limits<double>::infinity();
  BOUNDARYU();
  EXPECT_TRUE(std::isnan(u(-1, 2, 2)));
  EXPECT_FALSE(std::isnan(u(-1, 2, 3)));
}

// p: ghost = t*(adjacent) + (1-|t|)*(far end), x faces on the inner j, k
// range, then z faces, then y faces over everything already filled.
TEST(PressureBoundary, GhostLayerOrderXZY) {
  grid();
  const int t[7] = {0, 1, 0, -1, 0, 1, -1};
  for (int f = 1; f <= 6; ++f) ibcp(f) = t[f];
  scramble(p, 31);
  Array3<double> q;
  q.allocate("q", 0, NI + 1, 0, NJ + 1, 0, NK + 1);
  for (std::int64_t n = 0; n < p.size(); ++n) q.data()[n] = p.data()[n];
  auto ghost = [](int tt, double adj, double far) { return tt == 1 ? adj : (tt == 0 ? far : -adj); };
  for (int k = 1; k <= NK; ++k)
    for (int j = 1; j <= NJ; ++j) {
      q(0, j, k) = ghost(t[1], q(1, j, k), q(NI, j, k));
      q(NI + 1, j, k) = ghost(t[2], q(NI, j, k), q(1, j, k));
    }
  for (int j = 1; j <= NJ; ++j)
    for (int i = 0; i <= NI + 1; ++i) {
      q(i, j, 0) = ghost(t[5], q(i, j, 1), q(i, j, NK));
      q(i, j, NK + 1) = ghost(t[6], q(i, j, NK), q(i, j, 1));
    }
  for (int k = 0; k <= NK + 1; ++k)
    for (int i = 0; i <= NI + 1; ++i) {
      q(i, 0, k) = ghost(t[3], q(i, 1, k), q(i, NJ, k));
      q(i, NJ + 1, k) = ghost(t[4], q(i, NJ, k), q(i, 1, k));
    }
  const double p000_before = p(1, 1, 1);
  BOUNDARYP();
  for (int k = 0; k <= NK + 1; ++k)
    for (int j = 0; j <= NJ + 1; ++j)
      for (int i = 0; i <= NI + 1; ++i) EXPECT_EQ(p(i, j, k), q(i, j, k)) << i << "," << j << "," << k;
  // by hand: corner (0,0,0) = -(p(0,1,0)) with p(0,1,0) = p(0,1,1)*1 and
  // p(0,1,1) = p(1,1,1)
  EXPECT_EQ(p(0, 0, 0), -p000_before);
}

}  // namespace
