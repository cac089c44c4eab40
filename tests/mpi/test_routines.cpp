// Routines of the step over 1, 2 and 4 processes against the same routines
// on the whole box in one process, with every face type (periodic across a
// cut, given gradient, given value): what a routine computes position by
// position must match bit for bit; what follows the relaxation order at the
// process edges (the pressure, whole steps) must agree to 1e-6 of each
// array's largest magnitude.
#include <gtest/gtest.h>

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <string>
#include <vector>

#include "common/distributed.hpp"
#include "driver/fields.hpp"
#include "driver/initfields.hpp"
#include "driver/mainprogram.hpp"
#include "flow/forces.hpp"
#include "flow/smagorinsky.hpp"
#include "flow/timestep.hpp"
#include "flow/vorticity.hpp"
#include "flow/wall.hpp"
#include "flow/xvelocity.hpp"
#include "flow/yvelocity.hpp"
#include "flow/zvelocity.hpp"
#include "immersed/flagdeter.hpp"
#include "immersed/immersing.hpp"
#include "immersed/stepend.hpp"
#include "pressure/boundary.hpp"
#include "pressure/correction.hpp"
#include "pressure/divergence.hpp"
#include "results/caseresults.hpp"
#include "pressure/multigridp.hpp"

namespace {

using namespace rl;

// A divergent start field: smooth plus a little of every wave number, a
// function of the global position, so that every process holds the same
// values in its halo without an exchange.
double start_value(int c, int i, int j, int k) {
  return std::sin(0.37 * i + 0.21 * j + 0.13 * k + c) + 0.05 * std::cos(2.9 * i * j + 1.7 * k * (c + 1));
}

struct Faceset {
  int xtype, ytype;  // pressure type of both x faces, both y faces
  int gamma;
  int ni = 21, nj = 11;  // cells in x and y
};

// Sets up the box and fields, on the whole box (cut false) or on this
// process's block.
void state(const Faceset& st, bool cut, const PlanSplit& s) {
  imax = st.ni;
  jmax = st.nj;
  kmax = 8;
  dx = 0.05;
  dy = 0.04;
  dz = 0.02;
  dens = 1000.0;
  dt = 0.01;
  igamma = st.gamma;
  ipres = 2;
  iposts = 2;
  kpoismax = 60;
  eps = 1e-11;
  ibcp(LowX) = ibcp(HighX) = st.xtype;
  ibcp(LowY) = ibcp(HighY) = st.ytype;
  ibcp(LowZ) = 1;
  ibcp(HighZ) = -1;
  LEVELCOUNT();
  if (cut)
    own_block(s, dist_rank(), imax, jmax);
  else
    own_box();
  ALLOCFIELDS();
  visc = 1.0e-6;
  forcex = 0.01;
  forcey = -0.002;
  forcez = 0.0;
  for (int f = 1; f <= 6; ++f) {
    ibcu(f) = ibcv(f) = ibcw(f) = f <= 2 ? st.xtype : f <= 4 ? st.ytype : f == LowZ ? -1 : 1;
    const bool given = ibcu(f) == -1;
    bcu(f) = given ? 0.1 * f : 0.0;
    bcv(f) = given ? -0.05 * f : 0.0;
    bcw(f) = given ? 0.02 * f : 0.0;
  }
  int c = 0;
  for (Array3<double>* a : {&u, &v, &w, &uo, &vo, &wo, &nut, &rhsuo, &rhsvo, &rhswo}) {
    for (int k = a->lo(2); k <= a->hi(2); ++k)
      for (int j = a->lo(1); j <= a->hi(1); ++j)
        for (int i = a->lo(0); i <= a->hi(0); ++i) (*a)(i, j, k) = start_value(c, i, j, k);
    ++c;
  }
}

// The values of a field on this process's cells and faces, by global index.
struct Snapshot {
  std::vector<double> v;
  int i0, j0, ni, nj, k0, nk;
  double at(int i, int j, int k) const {
    return v[(static_cast<std::size_t>(k - k0) * nj + (j - j0)) * ni + (i - i0)];
  }
};
template <typename T>
Snapshot snap(const Array3<T>& a) {
  Snapshot s{{}, a.lo(0), a.lo(1), a.hi(0) - a.lo(0) + 1, a.hi(1) - a.lo(1) + 1, a.lo(2), a.hi(2) - a.lo(2) + 1};
  s.v.assign(a.data(), a.data() + a.size());
  return s;
}

// What this process holds of a over planes k0..k1: its block, the box's
// ghost layers where the block touches a face, and h columns of each
// neighbour (at most what a holds).
template <typename T>
Box near_block(const Array3<T>& a, int h, int k0, int k1) {
  const Ownership& o = ownership();
  if (!o.on) return {a.lo(0), a.hi(0), a.lo(1), a.hi(1), k0, k1};
  return {o.west ? a.lo(0) : std::max(a.lo(0), o.blk.ilo - h), o.east ? a.hi(0) : std::min(a.hi(0), o.blk.ihi + h),
          o.south ? a.lo(1) : std::max(a.lo(1), o.blk.jlo - h), o.north ? a.hi(1) : std::min(a.hi(1), o.blk.jhi + h),
          k0, k1};
}
// Sets the positions of b to start values c, and everything else a holds
// (the halo) to not-a-number, for the exchanges to fill.
void fill_only(Array3<double>& a, const Box& b, int c) {
  a.fill(std::nan(""));
  for (int k = b.k0; k <= b.k1; ++k)
    for (int j = b.j0; j <= b.j1; ++j)
      for (int i = b.i0; i <= b.i1; ++i) a(i, j, k) = start_value(c, i, j, k);
}

// This process's cells 1..imax, 1..jmax, 1..kmax.
Box own_cells() { return {own_lo_i(1), own_hi_i(imax), own_lo_j(1), own_hi_j(jmax), 1, kmax}; }

// Every position of b where a differs from ref, bit for bit; the first
// three reported with what and the position.
template <typename T>
void expect_same(const Array3<T>& a, const Snapshot& ref, const Box& b, const std::string& what) {
  int differ = 0;
  for (int k = b.k0; k <= b.k1; ++k)
    for (int j = b.j0; j <= b.j1; ++j)
      for (int i = b.i0; i <= b.i1; ++i)
        if (!(static_cast<double>(a(i, j, k)) == ref.at(i, j, k)) && ++differ <= 3)
          ADD_FAILURE() << a.name() << " (" << i << "," << j << "," << k << ") " << a(i, j, k) << " against "
                        << ref.at(i, j, k) << ", " << what << ", process " << dist_rank() << " of " << dist_size();
}

// Every position of b where a differs from ref by more than 1e-6 of ref's
// largest magnitude (which must not be tiny: the work did something).
void expect_close(const Array3<double>& a, const Snapshot& ref, const Box& b, const std::string& what) {
  double largest = 0.0, worst = 0.0;
  for (double x : ref.v)
    if (std::isfinite(x)) largest = std::max(largest, std::fabs(x));
  for (int k = b.k0; k <= b.k1; ++k)
    for (int j = b.j0; j <= b.j1; ++j)
      for (int i = b.i0; i <= b.i1; ++i) worst = std::max(worst, std::fabs(a(i, j, k) - ref.at(i, j, k)));
  EXPECT_LE(worst, 1e-6 * largest) << a.name() << ", " << what << ", process " << dist_rank() << " of " << dist_size();
  EXPECT_GT(largest, 1e-6) << a.name() << ", " << what;
}

std::string types(const Faceset& st) {
  return "x type " + std::to_string(st.xtype) + ", y type " + std::to_string(st.ytype);
}

// For each set of face types: `run` on the whole box, keeping the snapshots
// it returns, then `run` on this process's block and `check` against them.
template <class Run, class Check>
void whole_then_block(std::initializer_list<Faceset> sets, Run run, Check check) {
  for (const Faceset& st : sets) {
    PlanSplit s;
    std::string why;
    ASSERT_TRUE(plan_split(dist_size(), st.ni, st.nj, s, why)) << why;
    state(st, false, s);
    const std::vector<Snapshot> whole = run(st);
    state(st, true, s);
    run(st);
    check(st, whole);
  }
  own_box();
}

// A dune bed crossing the box on cubic cells (the bed searches start from
// the box's height); ridge adds a knife-edge along y.
void dune_bed(const Faceset& st, bool ridge) {
  zmin = xmin = ymin = 0.0;
  dx = dy = dz = 0.02;
  xmax = imax * dx;
  ymax = jmax * dy;
  zmax = kmax * dz;
  for (int f = 1; f <= 6; ++f) ibcp(f) = f <= 2 ? st.xtype : f <= 4 ? st.ytype : 1;
  for (int j = 0; j <= jmax + 1; ++j)
    for (int i = 0; i <= imax + 1; ++i)
      bed(i, j) = ridge ? 0.05 + 0.04 * std::sin(0.6 * i) + 0.03 * std::cos(0.9 * j) + (i == 7 ? 0.2 : 0.0)
                        : 0.05 + 0.01 * std::sin(0.6 * i) + 0.005 * std::cos(0.9 * j);
}

// The three predictors, the side-wall law after them (which reads the
// neighbours' predicted velocities) and the ghost layers with their halos:
// every position this process computes, the box's ghost layers at its faces
// and one column of each neighbour (the reach of the stencils after them),
// bit for bit.
TEST(DistributedStep, PredictorsWallsAndGhostLayersMatchTheWholeBox) {
  whole_then_block(
      {{0, 1, 1}, {1, 0, 1}, {-1, -1, 1}, {0, 0, 1}, {1, -1, 1}},
      [](const Faceset&) {
        rough = 2.0;
        XVELOCITY();
        YVELOCITY();
        ZVELOCITY();
        fill_halos({&u, &v, &w}, 1);  // as the step does before the side-wall law
        WALLS();
        WALLN();
        BOUNDARYUVW();
        return std::vector<Snapshot>{snap(u), snap(v), snap(w), snap(rhsuo), snap(rhsvo), snap(rhswo)};
      },
      [](const Faceset& st, const std::vector<Snapshot>& ref) {
        const Array3<double>* a[6] = {&u, &v, &w, &rhsuo, &rhsvo, &rhswo};
        for (int n = 0; n < 6; ++n)
          expect_same(*a[n], ref[n], n < 3 ? near_block(*a[n], 1, a[n]->lo(2), a[n]->hi(2)) : own_cells(), types(st));
      });
}

// The classification against a bed that crosses the box (dunes along x, a
// knife-edge ridge along y): every flag a process holds, its halo 3 deep
// included, bit for bit.
TEST(DistributedStep, FlagsMatchTheWholeBox) {
  whole_then_block(
      {{0, 1, 1}, {1, 0, 1}, {-1, -1, 1}, {0, 0, 1}},
      [](const Faceset& st) {
        dune_bed(st, true);
        FLAGDETER();
        return std::vector<Snapshot>{snap(flagu), snap(flagv), snap(flagw), snap(flagc)};
      },
      [](const Faceset& st, const std::vector<Snapshot>& ref) {
        const Array3<int>* a[4] = {&flagu, &flagv, &flagw, &flagc};
        for (int n = 0; n < 4; ++n) {
          expect_same(*a[n], ref[n], near_block(*a[n], kHalo, a[n]->lo(2), a[n]->hi(2)), types(st));
          const std::int64_t solid = std::count(a[n]->data(), a[n]->data() + a[n]->size(), -1);
          const std::int64_t forcing = std::count(a[n]->data(), a[n]->data() + a[n]->size(), 0);
          EXPECT_TRUE(solid > 0 && forcing > 0) << a[n]->name();
        }
      });
}

// The forcing points at a smooth dune bed, the ghost layers and the eddy
// viscosity with its wall law: the block's velocities and nut, the strain
// rates with the box's ghosts and nut's first halo column, bit for bit.
TEST(DistributedStep, ForcingPointsAndEddyViscosityMatchTheWholeBox) {
  whole_then_block(
      {{0, 1, 1}, {1, 0, 1}, {-1, -1, 1}, {0, 0, 1}},
      [](const Faceset& st) {
        dune_bed(st, false);
        rough = 0.002;
        iibm = 0;
        smagorinsky = 0.1;
        FLAGDETER();
        fill_halos({&u, &v, &w}, kHalo);  // as the step does before the forcing
        IMMERSING();
        BOUNDARYUVW();
        SMAGORINSKY();
        return std::vector<Snapshot>{snap(u),   snap(v),   snap(w),   snap(nut), snap(s11),
                                     snap(s22), snap(s33), snap(s12), snap(s13), snap(s23)};
      },
      [](const Faceset& st, const std::vector<Snapshot>& ref) {
        const Array3<double>* a[10] = {&u, &v, &w, &nut, &s11, &s22, &s33, &s12, &s13, &s23};
        for (int n = 0; n < 10; ++n)
          expect_same(*a[n], ref[n], n < 3 ? own_cells() : near_block(*a[n], n == 3 ? 1 : 0, 0, kmax + 1), types(st));
        EXPECT_GT(std::count(flagu.data(), flagu.data() + flagu.size(), 0), 0);
      });
}

// Four whole steps from a small start flow (a hundredth of the start
// values, no old right-hand sides), the pressure solved to `tolerance`;
// the velocities and the pressure after them.
std::vector<Snapshot> four_steps(double tolerance) {
  discharge = 0.002;
  gravity = 9.81;
  dt = 2e-4;
  eps = tolerance;
  for (Array3<double>* a : {&u, &v, &w, &uo, &vo, &wo})
    for (std::int64_t m = 0; m < a->size(); ++m) a->data()[m] *= 0.01;
  for (Array3<double>* a : {&rhsuo, &rhsvo, &rhswo}) a->fill(0.0);
  FLAGDETER();
  for (int step = 0; step < 4; ++step) ADVANCE();
  return std::vector<Snapshot>{snap(u), snap(v), snap(w), snap(p)};
}

// Four whole steps (ADVANCE) over a dune bed: every velocity and the
// pressure of a process's block to 1e-6 of the whole box's.
TEST(DistributedStep, WholeStepsAgreeWithTheWholeBox) {
  // Periodic in x; side walls, or periodic in y too.
  whole_then_block(
      {{0, -1, 1}, {0, 0, 1}},
      [](const Faceset& st) {
        dune_bed(st, false);
        for (int f = 3; f <= 4; ++f) ibcp(f) = st.ytype == 0 ? 0 : 1;
        ibcp(HighZ) = -1;
        rough = 0.002;
        iibm = 0;
        smagorinsky = 0.1;
        return four_steps(1e-10);
      },
      [](const Faceset& st, const std::vector<Snapshot>& ref) {
        const Array3<double>* a[4] = {&u, &v, &w, &p};
        for (int n = 0; n < 4; ++n) expect_close(*a[n], ref[n], own_cells(), types(st));
      });
}

// Steep dunes through the box on cubic cells: the image points of the
// forcing points near x = 0 wrap across the periodic face to the far end of
// the box, and those near a cut march into the neighbours' columns and
// beyond the halo (the ridge); the wall laws are to take them as the whole
// box does.
void steep_dunes(const Faceset& st, int law) {
  dune_bed(st, false);
  for (int j = 0; j <= jmax + 1; ++j)
    for (int i = 0; i <= imax + 1; ++i)
      bed(i, j) = 0.07 + 0.05 * std::sin(0.9 * i + 0.4) + 0.01 * std::cos(0.7 * j) + (i == 10 ? 0.06 : 0.0);
  rough = 0.002;
  iibm = law / 2;
  ibed = law % 2;
  smagorinsky = 0.1;
}
const char* law_name(int law) {
  static const char* names[4] = {"smooth trilinear", "rough trilinear", "smooth inverse-distance",
                                 "rough inverse-distance"};
  return names[law];
}

// The forcing points and the eddy viscosity at the bed over steep dunes,
// every wall law: bit for bit at every position of the block, the box's
// ghost layers at its faces and nut's first halo column included.
TEST(DistributedStep, ImagePointsBeyondTheBlockMatchTheWholeBox) {
  for (int law = 0; law < 4; ++law)
    whole_then_block(
        {{0, 1, 1}, {0, 0, 1}},
        [law](const Faceset& st) {
          steep_dunes(st, law);
          FLAGDETER();
          fill_halos({&u, &v, &w}, kHalo);  // as the step does before the forcing
          IMMERSING();
          BOUNDARYUVW();
          SMAGORINSKY();
          return std::vector<Snapshot>{snap(u), snap(v), snap(w), snap(nut)};
        },
        [law](const Faceset& st, const std::vector<Snapshot>& ref) {
          const Array3<double>* a[4] = {&u, &v, &w, &nut};
          for (int n = 0; n < 4; ++n)
            expect_same(*a[n], ref[n], near_block(*a[n], n == 3 ? 1 : 0, a[n]->lo(2), a[n]->hi(2)),
                        types(st) + ", " + law_name(law));
        });
}

// Whole steps over the steep dunes with the pressure solved to 1e-13, every
// wall law: every velocity and the pressure of a process's block, the box's
// ghost layers at its faces included, to 1e-6 of the whole box's.
TEST(DistributedStep, WholeStepsOverSteepDunesAgreeWithTheWholeBox) {
  for (int law = 0; law < 4; ++law)
    whole_then_block(
        {{0, 0, 1}, {0, -1, 1}},
        [law](const Faceset& st) {
          steep_dunes(st, law);
          for (int f = 3; f <= 4; ++f) ibcp(f) = st.ytype == 0 ? 0 : 1;
          ibcp(HighZ) = -1;
          kpoismax = 400;
          return four_steps(1e-13);
        },
        [law](const Faceset& st, const std::vector<Snapshot>& ref) {
          const Array3<double>* a[4] = {&u, &v, &w, &p};
          for (int n = 0; n < 4; ++n)
            expect_close(*a[n], ref[n], near_block(*a[n], 0, 1, kmax), types(st) + ", " + law_name(law));
        });
}

// The start values with noise (every process draws all the box's numbers),
// the vorticity and Q of them and a result's node values (each process its
// block's nodes), bit for bit.
TEST(DistributedStep, StartValuesAndVorticityMatchTheWholeBox) {
  whole_then_block(
      {{0, 1, 1}, {1, 0, 1}, {-1, -1, 1}},
      [](const Faceset&) {
        ymin = zmin = 0.0;
        ymax = jmax * dy;
        zmax = kmax * dz;
        discharge = 0.01;
        initial = 0;
        iperturb = 1;
        amplitude = 0.05;
        random_generator() = std::mt19937_64();
        INITFIELDS();
        VORTICITY();
        // The node values (the pressure's halo left not-a-number: the
        // routine fetches it).
        ALLOCNODEARRAYS();
        for (int k = 0; k <= kmax; ++k)
          for (int j = 0; j <= jmax; ++j)
            for (int i = 0; i <= imax; ++i) {
              if (i >= zg3.lo(0) && i <= zg3.hi(0) && j >= zg3.lo(1) && j <= zg3.hi(1)) zg3(i, j, k) = k * dz;
              elev(i, j) = 0.03 + 0.01 * std::sin(0.5 * i + 0.3 * j);
            }
        fill_only(p, near_block(p, 0, 0, kmax + 1), 7);
        fill_halo(p, 1);  // as a result does before the node values
        NODEVALUES();
        return std::vector<Snapshot>{snap(u),    snap(w),    snap(vort), snap(Q),       snap(uout),
                                     snap(vout), snap(wout), snap(pout), snap(vortout), snap(qout)};
      },
      [](const Faceset& st, const std::vector<Snapshot>& ref) {
        expect_same(u, ref[0], near_block(u, kHalo, 0, kmax + 1), types(st));
        expect_same(w, ref[1], near_block(w, kHalo, 0, kmax + 1), types(st));
        expect_same(vort, ref[2], near_block(vort, 1, 0, kmax + 1), types(st));
        expect_same(Q, ref[3], near_block(Q, 1, 0, kmax + 1), types(st));
        const Array3<double>* node[6] = {&uout, &vout, &wout, &pout, &vortout, &qout};
        const Box mine{own_lo_i(0), own_hi_i(imax), own_lo_j(0), own_hi_j(jmax), 0, kmax};
        for (int n = 0; n < 6; ++n) expect_same(*node[n], ref[4 + n], mine, types(st));
      });
}

// The decisions every process must share (time step, inflow discharge,
// divergence maximum and sum) and the copy into the old fields.
TEST(DistributedStep, ReductionsAndCopiesMatchTheWholeBox) {
  static double got[2][4];  // dt, discharge, divmax, divsum: whole box, block
  whole_then_block(
      {{0, 1, 1}},
      [](const Faceset&) {
        // Small velocities (the divergence stays below the pause's threshold).
        for (Array3<double>* a : {&u, &v, &w})
          for (std::int64_t m = 0; m < a->size(); ++m) a->data()[m] *= 1e-5;
        zmin = 0.0;
        cfl = 0.4;
        for (int j = 0; j <= jmax + 1; ++j)
          for (int i = 0; i <= imax + 1; ++i) bed(i, j) = -1.0 + 0.01 * j;
        TIMESTEP();
        const double q = INFLOW(&u);
        DIVERGENCE();
        SAVEOLD();
        double* g = got[ownership().on];
        g[0] = dt, g[1] = q, g[2] = divmax, g[3] = divsum;
        return std::vector<Snapshot>{snap(u)};
      },
      [](const Faceset&, const std::vector<Snapshot>& ref) {
        const double* w = got[0];
        const double* c = got[1];
        EXPECT_EQ(c[0], w[0]);
        EXPECT_NEAR(c[1], w[1], 1e-12 * std::fabs(w[1]));
        EXPECT_GT(std::fabs(w[1]), 0.0);
        EXPECT_EQ(c[2], w[2]);
        // Added in another order: within rounding of a sum of at most
        // divmax a cell.
        EXPECT_NEAR(c[3], w[3], 1e-12 * w[2] * imax * jmax * kmax);
        Box b = near_block(uo, kHalo, 0, kmax + 1);
        b.i0 = std::max(b.i0, 0);  // the layer below the first face stays as it was
        expect_same(uo, ref[0], b, "the copy into the old field");
      });
}

// A divergence above the threshold in two blocks: the first process
// reports every cell, in the order of one process, each line once; the
// others print nothing.
TEST(DistributedStep, DivergencePauseOnTheFirstConsoleOnly) {
  static std::string said[2], elsewhere[2];
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  whole_then_block(
      {{0, 1, 1}},
      [](const Faceset&) {
        for (Array3<double>* a : {&u, &v, &w})
          for (std::int64_t m = 0; m < a->size(); ++m) a->data()[m] *= 1e-5;
        for (int i : {3, imax - 3})
          if (i >= own_lo_i(1) && i <= own_hi_i(imax) && 4 >= own_lo_j(1) && 4 <= own_hi_j(jmax)) u(i, 4, 2) += 1.0;
        fill_halo(u, 1);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        DIVERGENCE();
        const bool cut = ownership().on;
        said[cut] = testing::internal::GetCapturedStdout();
        elsewhere[cut] = testing::internal::GetCapturedStderr();
        return std::vector<Snapshot>{};
      },
      [](const Faceset&, const std::vector<Snapshot>&) {
        if (dist_rank() == 0) {
          EXPECT_EQ(said[0], "3 4 2\n4 4 2\n18 4 2\n19 4 2\n");
          EXPECT_EQ(said[1], said[0]);
        } else {
          EXPECT_EQ(said[1], "");
        }
        EXPECT_EQ(elsewhere[1], "");
      });
  omp_set_num_threads(threads);
}

// The multigrid's transfers and operator on cut coarse levels, given the
// same values: every cell a process computes matches the whole box bit for
// bit (a missed halo or a misplaced block shows), down to the gathered
// coarsest level, which every process holds whole.
TEST(DistributedPressure, CoarseLevelsMatchTheWholeBox) {
  // A process's own cells of a level (box ghosts too at its faces, with
  // ghosts 1).
  const auto cells = [](int l, int ghosts) {
    const MGLEVEL& g = pmg(l);
    Box b{1 - ghosts, g.nx + ghosts, 1 - ghosts, g.ny + ghosts, 1 - ghosts, g.nz + ghosts};
    if (level_cut_here(l)) {
      const LevelCut& lc = level_cut(l);
      if (!lc.west) b.i0 = lc.blk.ilo;
      if (!lc.east) b.i1 = lc.blk.ihi;
      if (!lc.south) b.j0 = lc.blk.jlo;
      if (!lc.north) b.j1 = lc.blk.jhi;
    }
    return b;
  };
  const auto fill = [&](int l, Array3<double>& a, int c) { fill_only(a, cells(l, 1), c); };
  whole_then_block(
      {{0, 1, 1, 32, 16}, {-1, 0, 1, 32, 16}},
      [&](const Faceset&) {
        EXPECT_EQ(lmin, -3);
        for (int l = -1; l >= -2; --l) {
          fill(l, pmg(l).phi, l);
          fill(l, pmg(l).src, l + 1);
        }
        OPERATORP(-1);
        RESIDUALP(-1);
        RESTRICTIONP(-1);  // into -2, cut when the blocks halve (its phi set to 0)
        fill(-2, pmg(-2).phi, 5);
        BOUNDARYP(-2);
        PROLONGATIONP(-1);
        RESTRICTIONP(-2);  // into the coarsest, gathered
        return std::vector<Snapshot>{snap(pmg(-1).lap), snap(pmg(-1).phi), snap(pmg(-2).src), snap(pmg(-3).src)};
      },
      [&](const Faceset& st, const std::vector<Snapshot>& ref) {
        expect_same(pmg(-1).lap, ref[0], cells(-1, 0), types(st) + ", level -1");
        expect_same(pmg(-1).phi, ref[1], cells(-1, 0), types(st) + ", level -1");
        expect_same(pmg(-2).src, ref[2], cells(-2, 0), types(st) + ", level -2");
        expect_same(pmg(-3).src, ref[3], cells(-3, 0), types(st) + ", level -3");
      });
}

// The pressure solve and the correction: the source bit for bit, the
// solution and the corrected fields on the positions a process updates to
// 1e-6 of the largest magnitude; 21 x 11 gathers the coarse problem at once
// (the blocks do not halve), 32 x 16 keeps levels cut down to the one above
// the coarsest; V and W cycles.
TEST(DistributedPressure, CutSolveAgreesWithTheWholeBox) {
  static int cycles[2];
  whole_then_block(
      {{0, 1, 1}, {1, 0, 2}, {-1, 1, 1}, {0, 0, 2}, {0, 1, 1, 32, 16}, {0, 0, 2, 32, 16}, {1, -1, 2, 32, 16}},
      [](const Faceset&) {
        SOURCEP();
        const Snapshot src = snap(pmg(0).src);
        cycles[ownership().on] = POISSONP();
        CORRECTION();
        return std::vector<Snapshot>{src, snap(pmg(0).phi), snap(p), snap(u), snap(v), snap(w)};
      },
      [](const Faceset& st, const std::vector<Snapshot>& ref) {
        const std::string what = std::to_string(st.ni) + " x " + std::to_string(st.nj) + ", " + types(st);
        if (dist_size() > 1) {
          EXPECT_EQ(level_cut_here(-1), st.ni == 32) << what;
          EXPECT_FALSE(level_cut_here(lmin)) << what;
        }
        EXPECT_LE(cycles[1], cycles[0] + 2) << what;
        const Box c = own_cells();
        expect_same(pmg(0).src, ref[0], c, what);  // the solve leaves the finest source as SOURCEP made it
        expect_close(pmg(0).phi, ref[1], c, what);
        expect_close(p, ref[2], near_block(p, 0, 0, kmax + 1), what);
        expect_close(u, ref[3], Box{own_lo_i(0), own_hi_i(imax), c.j0, c.j1, 1, kmax}, what);
        expect_close(v, ref[4], Box{c.i0, c.i1, own_lo_j(0), own_hi_j(jmax), 1, kmax}, what);
        expect_close(w, ref[5], Box{c.i0, c.i1, c.j0, c.j1, 0, kmax}, what);
      });
}

}  // namespace

// The checked build's halo ledger: a routine that reads a halo its owner has
// changed since the last exchange (here the forcing, its exchange left out
// after the predictors) is stopped, naming the array, the depth and the
// reader; with the step's exchange in place nothing is said.  On one
// process there is no halo and nothing to say.
TEST(DistributedStep, StaleHaloReadIsCaughtInTheCheckedBuild) {
#ifndef RIVERLES_BOUNDS_CHECK
  GTEST_SKIP() << "the halo ledger is part of the checked build only";
#else
  static std::vector<std::string> said, stale;
  set_halo_fault([](const std::string& m) { said.push_back(m); });
  whole_then_block(
      {{0, 1, 1}},
      [](const Faceset& st) {
        dune_bed(st, false);
        rough = 0.002;
        iibm = 0;
        FLAGDETER();
        said.clear();
        XVELOCITY();
        YVELOCITY();
        ZVELOCITY();
        IMMERSING();  // without the exchange the step makes before it
        stale = said;
        said.clear();
        fill_halos({&u, &v, &w}, kHalo);
        IMMERSING();
        EXPECT_TRUE(said.empty()) << said.front();
        return std::vector<Snapshot>{};
      },
      [](const Faceset&, const std::vector<Snapshot>&) {
        if (!level_is_cut(0)) {
          EXPECT_TRUE(stale.empty());
          return;
        }
        ASSERT_EQ(stale.size(), 3u);
        EXPECT_NE(stale[0].find("stale halo: IMMERSING reads u 3 column(s) deep, but its halo is current to 0"),
                  std::string::npos)
            << stale[0];
      });
  set_halo_fault(nullptr);
#endif
}
