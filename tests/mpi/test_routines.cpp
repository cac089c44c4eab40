// Routines of the step over 1, 2 and 4 processes against the same routines
// on the whole box in one process.  The predictors compute every position
// on its own and must match bit for bit.  The pressure solve and the
// correction: the finest level cut into
// blocks (odd shares, so that a block's cells do not halve evenly), the
// coarse problem gathered, every face type (periodic across a cut, given
// gradient, given value), V and W cycles.  The source is computed cell by
// cell, so it must match bit for bit; the solution and the corrected
// velocities follow the relaxation order at the process edges and must
// agree to 1e-6 of each array's largest magnitude.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
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
    OWNBLOCK(s, dist_rank(), st.xtype == 0, st.ytype == 0, imax, jmax);
  else
    OWNBOX();
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
Snapshot snap(const Array3<double>& a) {
  Snapshot s{{}, a.lo(0), a.lo(1), a.hi(0) - a.lo(0) + 1, a.hi(1) - a.lo(1) + 1, a.lo(2), a.hi(2) - a.lo(2) + 1};
  s.v.assign(a.data(), a.data() + a.size());
  return s;
}

// The three predictors and the side-wall law after them: every position
// this process computes, bit for bit.
TEST(DistributedStep, PredictorsAndSideWallsMatchTheWholeBox) {
  const int n = dist_size(), rank = dist_rank();
  const Faceset setups[] = {{0, 1, 1}, {1, 0, 1}, {-1, -1, 1}};
  for (const Faceset& st : setups) {
    PlanSplit s;
    std::string why;
    ASSERT_TRUE(PLANSPLIT(n, 21, 11, s, why)) << why;
    state(st, false, s);
    rough = 2.0;
    XVELOCITY();
    YVELOCITY();
    ZVELOCITY();
    WALLS();
    WALLN();
    const Snapshot U = snap(u), V = snap(v), W = snap(w), RU = snap(rhsuo), RV = snap(rhsvo), RW = snap(rhswo);
    state(st, true, s);
    XVELOCITY();
    YVELOCITY();
    ZVELOCITY();
    // The side-wall law reads the predicted velocities of the neighbours.
    for (Array3<double>* a : {&u, &v, &w}) HALO(*a, kHalo);
    WALLS();
    WALLN();
    const struct {
      const char* name;
      const Array3<double>* a;
      const Snapshot* ref;
    } checks[] = {{"u", &u, &U}, {"v", &v, &V}, {"w", &w, &W}, {"rhsuo", &rhsuo, &RU}, {"rhsvo", &rhsvo, &RV},
                  {"rhswo", &rhswo, &RW}};
    int differ = 0;
    for (const auto& c : checks)
      for (int k = 1; k <= kmax; ++k)
        for (int j = own_lo_j(1); j <= own_hi_j(jmax); ++j)
          for (int i = own_lo_i(1); i <= own_hi_i(imax); ++i)
            if ((*c.a)(i, j, k) != c.ref->at(i, j, k) && ++differ <= 3)
              ADD_FAILURE() << c.name << " (" << i << "," << j << "," << k << "), x type " << st.xtype
                            << ", y type " << st.ytype << ", rank " << rank << " of " << n;
  }
  OWNBOX();
}

// The ghost layers of the velocities and the halos after them: the block,
// the box's ghost layers at its faces and one column of each neighbour (the
// reach of the stencils that read them) as the whole box has them, bit for
// bit.
TEST(DistributedStep, VelocityGhostsAndHalosMatchTheWholeBox) {
  const int n = dist_size(), rank = dist_rank();
  const Faceset setups[] = {{0, 1, 1}, {1, 0, 1}, {-1, -1, 1}, {0, 0, 1}, {1, -1, 1}};
  for (const Faceset& st : setups) {
    PlanSplit s;
    std::string why;
    ASSERT_TRUE(PLANSPLIT(n, 21, 11, s, why)) << why;
    state(st, false, s);
    BOUNDARYUVW();
    const Snapshot U = snap(u), V = snap(v), W = snap(w);
    state(st, true, s);
    BOUNDARYUVW();
    const struct {
      const char* name;
      const Array3<double>* a;
      const Snapshot* ref;
    } checks[] = {{"u", &u, &U}, {"v", &v, &V}, {"w", &w, &W}};
    // The block, the box's ghost layers at its faces and the one column of
    // each neighbour that the stencils after it read.
    const Ownership& o = ownership();
    int differ = 0;
    for (const auto& c : checks) {
      const int i0 = o.west ? c.a->lo(0) : o.blk.ilo - 1, i1 = o.east ? c.a->hi(0) : o.blk.ihi + 1;
      const int j0 = o.south ? c.a->lo(1) : o.blk.jlo - 1, j1 = o.north ? c.a->hi(1) : o.blk.jhi + 1;
      for (int k = c.a->lo(2); k <= c.a->hi(2); ++k)
        for (int j = j0; j <= j1; ++j)
          for (int i = i0; i <= i1; ++i)
            if ((*c.a)(i, j, k) != c.ref->at(i, j, k) && ++differ <= 4)
              ADD_FAILURE() << c.name << " (" << i << "," << j << "," << k << ") " << (*c.a)(i, j, k) << " vs "
                            << c.ref->at(i, j, k) << ", x type " << st.xtype << ", y type " << st.ytype << ", rank "
                            << rank << " of " << n;
    }
  }
  OWNBOX();
}

// The eddy viscosity and the strain rates on a bed-free box: every cell
// and ghost of a process, and nut's first halo column, bit for bit.
TEST(DistributedStep, EddyViscosityMatchesTheWholeBox) {
  const int n = dist_size(), rank = dist_rank();
  const Faceset setups[] = {{0, 1, 1}, {1, 0, 1}, {-1, -1, 1}, {0, 0, 1}};
  for (const Faceset& st : setups) {
    PlanSplit s;
    std::string why;
    ASSERT_TRUE(PLANSPLIT(n, 21, 11, s, why)) << why;
    Snapshot ref[8];
    for (bool cut : {false, true}) {
      state(st, cut, s);
      smagorinsky = 0.1;
      for (std::int64_t m = 0; m < flagc.size(); ++m) flagc.data()[m] = 1;  // all fluid
      SMAGORINSKY();
      const Array3<double>* out[8] = {&nut, &s11, &s22, &s33, &s12, &s13, &s23, &sabs};
      for (int a = 0; a < 8; ++a) {
        if (!cut) {
          ref[a] = snap(*out[a]);
          continue;
        }
        // nut with the column of each neighbour that the predictors read;
        // the others on the process's cells and ghosts.
        const int h = a == 0 ? 1 : 0;
        const Ownership& o = ownership();
        const int i0 = o.west ? 0 : o.blk.ilo - h, i1 = o.east ? imax + 1 : o.blk.ihi + h;
        const int j0 = o.south ? 0 : o.blk.jlo - h, j1 = o.north ? jmax + 1 : o.blk.jhi + h;
        int differ = 0;
        for (int k = 0; k <= kmax + 1; ++k)
          for (int j = j0; j <= j1; ++j)
            for (int i = i0; i <= i1; ++i)
              if ((*out[a])(i, j, k) != ref[a].at(i, j, k) && ++differ <= 3)
                ADD_FAILURE() << out[a]->name() << " (" << i << "," << j << "," << k << "), x type " << st.xtype
                              << ", y type " << st.ytype << ", rank " << rank << " of " << n;
      }
    }
  }
  OWNBOX();
}

// The classification against a bed that crosses the box (dunes along x,
// a ridge along y): every flag a process holds, its halo 3 deep included,
// as the whole box has it.
TEST(DistributedStep, FlagsMatchTheWholeBox) {
  const int n = dist_size(), rank = dist_rank();
  const Faceset setups[] = {{0, 1, 1}, {1, 0, 1}, {-1, -1, 1}, {0, 0, 1}};
  for (const Faceset& st : setups) {
    PlanSplit s;
    std::string why;
    ASSERT_TRUE(PLANSPLIT(n, 21, 11, s, why)) << why;
    Snapshot ref[4];
    for (bool cut : {false, true}) {
      state(st, cut, s);
      zmin = 0.0;
      for (int f = 1; f <= 6; ++f) ibcp(f) = f <= 2 ? st.xtype : f <= 4 ? st.ytype : 1;
      for (int j = 0; j <= jmax + 1; ++j)
        for (int i = 0; i <= imax + 1; ++i)
          bed(i, j) = 0.05 + 0.04 * std::sin(0.6 * i) + 0.03 * std::cos(0.9 * j) + (i == 7 ? 0.2 : 0.0);
      FLAGDETER();
      Array3<int>* flags[4] = {&flagu, &flagv, &flagw, &flagc};
      for (int a = 0; a < 4; ++a) {
        Array3<int>& f = *flags[a];
        if (!cut) {
          ref[a] = Snapshot{std::vector<double>(f.data(), f.data() + f.size()), f.lo(0), f.lo(1),
                            f.hi(0) - f.lo(0) + 1, f.hi(1) - f.lo(1) + 1, f.lo(2), f.hi(2) - f.lo(2) + 1};
          continue;
        }
        int differ = 0, solid = 0, forcing = 0;
        for (int k = f.lo(2); k <= f.hi(2); ++k)
          for (int j = f.lo(1); j <= f.hi(1); ++j)
            for (int i = f.lo(0); i <= f.hi(0); ++i) {
              solid += f(i, j, k) == -1;
              forcing += f(i, j, k) == 0;
              if (f(i, j, k) != ref[a].at(i, j, k) && ++differ <= 3)
                ADD_FAILURE() << f.name() << " (" << i << "," << j << "," << k << ") " << f(i, j, k) << " vs "
                              << ref[a].at(i, j, k) << ", x type " << st.xtype << ", y type " << st.ytype
                              << ", rank " << rank << " of " << n;
            }
        EXPECT_GT(solid, 0);
        EXPECT_GT(forcing, 0);
      }
    }
  }
  OWNBOX();
}

// The forcing points at a smooth dune bed and the eddy viscosity's wall law
// there: every velocity and nut of a process's block as the whole box has
// them, bit for bit (the wall laws read the neighbours' velocities 3 deep).
TEST(DistributedStep, ForcingPointsMatchTheWholeBox) {
  const int n = dist_size(), rank = dist_rank();
  const Faceset setups[] = {{0, 1, 1}, {1, 0, 1}};
  for (const Faceset& st : setups) {
    PlanSplit s;
    std::string why;
    ASSERT_TRUE(PLANSPLIT(n, 21, 11, s, why)) << why;
    Snapshot ref[4];
    for (bool cut : {false, true}) {
      state(st, cut, s);
      zmin = xmin = ymin = 0.0;
      dx = dy = dz = 0.02;
      xmax = imax * dx;
      ymax = jmax * dy;
      zmax = kmax * dz;  // the bed searches start from the box's height
      rough = 0.002;
      iibm = 0;
      smagorinsky = 0.1;
      for (int f = 1; f <= 6; ++f) ibcp(f) = f <= 2 ? st.xtype : f <= 4 ? st.ytype : 1;
      for (int j = 0; j <= jmax + 1; ++j)
        for (int i = 0; i <= imax + 1; ++i) bed(i, j) = 0.05 + 0.01 * std::sin(0.6 * i) + 0.005 * std::cos(0.9 * j);
      FLAGDETER();
      IMMERSING();
      BOUNDARYUVW();  // as in the step: the forced velocities reach the halos
      SMAGORINSKY();
      const Array3<double>* out[4] = {&u, &v, &w, &nut};
      int differ = 0, forced = 0;
      for (int a = 0; a < 4; ++a) {
        if (!cut) {
          ref[a] = snap(*out[a]);
          continue;
        }
        for (int k = 1; k <= kmax; ++k)
          for (int j = own_lo_j(1); j <= own_hi_j(jmax); ++j)
            for (int i = own_lo_i(1); i <= own_hi_i(imax); ++i) {
              forced += a == 0 && flagu(i, j, k) == 0;
              if ((*out[a])(i, j, k) != ref[a].at(i, j, k) && ++differ <= 3)
                ADD_FAILURE() << out[a]->name() << " (" << i << "," << j << "," << k << "), x type " << st.xtype
                              << ", rank " << rank << " of " << n;
            }
      }
      if (cut) {
        EXPECT_GT(forced, 0);
      }
    }
  }
  OWNBOX();
}

// Whole steps over a dune bed (the step's own list of routines, the
// exchanges inside them): after four steps every velocity and the pressure
// of a process's block agree with the whole box to 1e-6 of the largest
// magnitude (the relaxations see a neighbour's columns as of the last
// exchange, so the last digits differ).
TEST(DistributedStep, WholeStepsAgreeWithTheWholeBox) {
  const int n = dist_size(), rank = dist_rank();
  // Periodic in x; side walls (velocities given, pressure gradient), or
  // periodic in y too.
  for (const int ywalls : {1, 0}) {
    const Faceset st{0, ywalls ? -1 : 0, 1};
    PlanSplit s;
    std::string why;
    ASSERT_TRUE(PLANSPLIT(n, 21, 11, s, why)) << why;
    Snapshot ref[4];
    for (bool cut : {false, true}) {
      state(st, cut, s);
      zmin = xmin = ymin = 0.0;
      dx = dy = dz = 0.02;
      xmax = imax * dx;
      ymax = jmax * dy;
      zmax = kmax * dz;
      rough = 0.002;
      iibm = 0;
      smagorinsky = 0.1;
      discharge = 0.002;
      gravity = 9.81;
      dt = 2e-4;
      eps = 1e-10;
      for (int f = 1; f <= 6; ++f) ibcp(f) = f <= 2 ? 0 : f <= 4 ? (ywalls ? 1 : 0) : (f == HighZ ? -1 : 1);
      for (int j = 0; j <= jmax + 1; ++j)
        for (int i = 0; i <= imax + 1; ++i) bed(i, j) = 0.05 + 0.01 * std::sin(0.6 * i) + 0.005 * std::cos(0.9 * j);
      for (Array3<double>* a : {&u, &v, &w, &uo, &vo, &wo})
        for (std::int64_t m = 0; m < a->size(); ++m) a->data()[m] *= 0.01;
      for (Array3<double>* a : {&rhsuo, &rhsvo, &rhswo}) a->fill(0.0);
      FLAGDETER();
      for (int step = 0; step < 4; ++step) ADVANCE();
      const Array3<double>* out[4] = {&u, &v, &w, &p};
      for (int a = 0; a < 4; ++a) {
        if (!cut) {
          ref[a] = snap(*out[a]);
          continue;
        }
        double largest = 0.0, worst = 0.0;
        for (int k = 1; k <= kmax; ++k)
          for (int j = own_lo_j(1); j <= own_hi_j(jmax); ++j)
            for (int i = own_lo_i(1); i <= own_hi_i(imax); ++i) {
              largest = std::max(largest, std::fabs(ref[a].at(i, j, k)));
              worst = std::max(worst, std::fabs((*out[a])(i, j, k) - ref[a].at(i, j, k)));
            }
        largest = dist_max(largest);
        EXPECT_LE(worst, 1e-6 * largest) << out[a]->name() << ", side walls " << ywalls << ", rank " << rank
                                         << " of " << n << ", largest " << largest;
        EXPECT_GT(largest, 0.0);
      }
    }
  }
  OWNBOX();
}

// The start values with noise (every process draws the whole box's numbers
// in order and keeps its own), the vorticity and Q of them and the node
// values of a result: every held velocity, vort and Q on the cells, ghosts
// and first halo column, and every node value (gathered), bit for bit.
TEST(DistributedStep, StartValuesAndVorticityMatchTheWholeBox) {
  const int n = dist_size(), rank = dist_rank();
  for (const Faceset& st : {Faceset{0, 1, 1}, Faceset{1, 0, 1}, Faceset{-1, -1, 1}}) {
    PlanSplit s;
    std::string why;
    ASSERT_TRUE(PLANSPLIT(n, 21, 11, s, why)) << why;
    Snapshot ref[4];
    for (bool cut : {false, true}) {
      state(st, cut, s);
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
      // The node values of the results, gathered whole on every process
      // (the pressure's halo left not-a-number: the routine fetches it).
      ALLOCNODEARRAYS();
      for (int k = 0; k <= kmax; ++k)
        for (int j = 0; j <= jmax; ++j)
          for (int i = 0; i <= imax; ++i) {
            zg3(i, j, k) = k * dz;
            elev(i, j) = 0.03 + 0.01 * std::sin(0.5 * i + 0.3 * j);
          }
      p.fill(std::nan(""));
      for (int k = 0; k <= kmax + 1; ++k)
        for (int j = own_lo_j(0); j <= own_hi_j(jmax + 1); ++j)
          for (int i = own_lo_i(0); i <= own_hi_i(imax + 1); ++i) p(i, j, k) = start_value(7, i, j, k);
      NODEVALUES();
      static Snapshot nodes[6];
      const Array3<double>* node[6] = {&uout, &vout, &wout, &pout, &vortout, &qout};
      for (int a = 0; a < 6; ++a) {
        if (!cut) {
          nodes[a] = snap(*node[a]);
          continue;
        }
        int differ = 0;
        for (std::int64_t m = 0; m < node[a]->size(); ++m)
          if (!(node[a]->data()[m] == nodes[a].v[static_cast<std::size_t>(m)]) && ++differ <= 3)
            ADD_FAILURE() << node[a]->name() << " element " << m << ", x type " << st.xtype << ", rank " << rank
                          << " of " << n;
      }
      const Array3<double>* out[4] = {&u, &w, &vort, &Q};
      for (int a = 0; a < 4; ++a) {
        if (!cut) {
          ref[a] = snap(*out[a]);
          continue;
        }
        const Ownership& o = ownership();
        const bool field = a < 2;  // the velocities: every held position
        const int i0 = field || o.west ? out[a]->lo(0) : o.blk.ilo - 1;
        const int i1 = field || o.east ? out[a]->hi(0) : o.blk.ihi + 1;
        const int j0 = field || o.south ? out[a]->lo(1) : o.blk.jlo - 1;
        const int j1 = field || o.north ? out[a]->hi(1) : o.blk.jhi + 1;
        int differ = 0;
        for (int k = 0; k <= kmax + 1; ++k)
          for (int j = j0; j <= j1; ++j)
            for (int i = std::max(i0, 0); i <= i1; ++i)
              if ((*out[a])(i, j, k) != ref[a].at(i, j, k) && ++differ <= 3)
                ADD_FAILURE() << out[a]->name() << " (" << i << "," << j << "," << k << "), x type " << st.xtype
                              << ", y type " << st.ytype << ", rank " << rank << " of " << n;
      }
    }
  }
  OWNBOX();
}

// The decisions every process must share: the time step (a minimum: bit for
// bit), the discharge through the inflow plane and the divergence's maximum
// (bit for bit) and sum (added in another order: to 1e-12 of the sum of
// magnitudes); and the copy into the old fields.
TEST(DistributedStep, ReductionsAndCopiesMatchTheWholeBox) {
  const int n = dist_size(), rank = dist_rank();
  const Faceset st{0, 1, 1};
  PlanSplit s;
  std::string why;
  ASSERT_TRUE(PLANSPLIT(n, 21, 11, s, why)) << why;
  double dt1 = 0, q1 = 0, dmax1 = 0, dsum1 = 0, dabs1 = 0;
  for (bool cut : {false, true}) {
    state(st, cut, s);
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
    if (!cut) {
      dt1 = dt, q1 = q, dmax1 = divmax, dsum1 = divsum;
      for (int k = 1; k <= kmax; ++k)
        for (int j = 1; j <= jmax; ++j)
          for (int i = 1; i <= imax; ++i)
            dabs1 += std::fabs((u(i, j, k) - u(i - 1, j, k)) / dx + (v(i, j, k) - v(i, j - 1, k)) / dy +
                               (w(i, j, k) - w(i, j, k - 1)) / dz);
      continue;
    }
    const std::string what = "rank " + std::to_string(rank) + " of " + std::to_string(n);
    EXPECT_EQ(dt, dt1) << what;
    EXPECT_NEAR(q, q1, 1e-12 * std::fabs(q1)) << what;
    EXPECT_GT(std::fabs(q1), 0.0);
    EXPECT_EQ(divmax, dmax1) << what;
    EXPECT_NEAR(divsum, dsum1, 1e-12 * dabs1) << what;
    int differ = 0;
    for (int k = 0; k <= kmax + 1; ++k)
      for (int j = u.lo(1); j <= u.hi(1); ++j)
        for (int i = std::max(u.lo(0), 0); i <= u.hi(0); ++i)
          if (uo(i, j, k) != u(i, j, k) && ++differ <= 3) ADD_FAILURE() << "uo (" << i << "," << j << "," << k << ")";
  }
  OWNBOX();
}

// The multigrid's transfers and operator on cut coarse levels, given the
// same values: every cell a process computes matches the whole box bit for
// bit (a missed halo or a misplaced block shows), down to the gathered
// coarsest level, which every process holds whole.
TEST(DistributedPressure, CoarseLevelsMatchTheWholeBox) {
  const int n = dist_size(), rank = dist_rank();
  for (const Faceset& st : {Faceset{0, 1, 1, 32, 16}, Faceset{-1, 0, 1, 32, 16}}) {
    PlanSplit s;
    std::string why;
    ASSERT_TRUE(PLANSPLIT(n, st.ni, st.nj, s, why)) << why;
    Snapshot lap1, src2, phi1, src3;
    for (bool cut : {false, true}) {
      state(st, cut, s);
      ASSERT_EQ(lmin, -3);
      // A process's own cells and box ghosts get the values; its halo is
      // left not-a-number, for the exchanges to fill.
      const auto fill = [&](int l, Array3<double>& a, int c) {
        int i0 = a.lo(0), i1 = a.hi(0), j0 = a.lo(1), j1 = a.hi(1);
        if (level_cut_here(l)) {
          const LevelCut& lc = level_cut(l);
          if (!lc.west) i0 = lc.blk.ilo;
          if (!lc.east) i1 = lc.blk.ihi;
          if (!lc.south) j0 = lc.blk.jlo;
          if (!lc.north) j1 = lc.blk.jhi;
        }
        a.fill(std::nan(""));
        for (int k = a.lo(2); k <= a.hi(2); ++k)
          for (int j = j0; j <= j1; ++j)
            for (int i = i0; i <= i1; ++i) a(i, j, k) = start_value(c, i, j, k);
      };
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
      if (!cut) {
        lap1 = snap(pmg(-1).lap), src2 = snap(pmg(-2).src), phi1 = snap(pmg(-1).phi), src3 = snap(pmg(-3).src);
        continue;
      }
      const struct {
        const char* name;
        int l;
        const Array3<double>* a;
        const Snapshot* ref;
      } checks[] = {{"lap", -1, &pmg(-1).lap, &lap1}, {"phi", -1, &pmg(-1).phi, &phi1}, {"src", -2, &pmg(-2).src, &src2},
                    {"src", -3, &pmg(-3).src, &src3}};
      int differ = 0;
      for (const auto& c : checks) {
        const MGLEVEL& g = pmg(c.l);
        int i0 = 1, i1 = g.nx, j0 = 1, j1 = g.ny;
        if (level_cut_here(c.l)) {
          const LevelCut& lc = level_cut(c.l);
          i0 = lc.blk.ilo, i1 = lc.blk.ihi, j0 = lc.blk.jlo, j1 = lc.blk.jhi;
        }
        for (int k = 1; k <= g.nz; ++k)
          for (int j = j0; j <= j1; ++j)
            for (int i = i0; i <= i1; ++i)
              if ((*c.a)(i, j, k) != c.ref->at(i, j, k) && ++differ <= 4)
                ADD_FAILURE() << c.name << " of level " << c.l << " (" << i << "," << j << "," << k << "), x type "
                              << st.xtype << ", y type " << st.ytype << ", rank " << rank << " of " << n;
      }
    }
  }
  OWNBOX();
}

TEST(DistributedPressure, CutSolveAgreesWithTheWholeBox) {
  const int n = dist_size(), rank = dist_rank();
  // 21 x 11: the blocks do not halve, the coarse problem is gathered at
  // once; 32 x 16: the blocks halve down to the level above the coarsest.
  const Faceset setups[] = {{0, 1, 1},         {1, 0, 2},         {-1, 1, 1},        {0, 0, 2},
                            {0, 1, 1, 32, 16}, {0, 0, 2, 32, 16}, {1, -1, 2, 32, 16}};
  for (const Faceset& st : setups) {
    PlanSplit s;
    std::string why;
    ASSERT_TRUE(PLANSPLIT(n, st.ni, st.nj, s, why)) << why;
    const std::string what = std::to_string(st.ni) + " x " + std::to_string(st.nj) + ", x type " +
                             std::to_string(st.xtype) + ", y type " + std::to_string(st.ytype) + ", gamma " +
                             std::to_string(st.gamma) + ", rank " + std::to_string(rank) + " of " +
                             std::to_string(n);

    // The whole box on this process alone.
    state(st, false, s);
    SOURCEP();
    const Snapshot src = snap(pmg(0).src);
    const int whole_cycles = POISSONP();
    CORRECTION();
    const Snapshot phi = snap(pmg(0).phi), P = snap(p), U = snap(u), V = snap(v), W = snap(w);

    // This process's block.
    state(st, true, s);
    if (n > 1) {
      EXPECT_EQ(level_cut_here(-1), st.ni == 32) << what;
      EXPECT_FALSE(level_cut_here(lmin)) << what;
    }
    SOURCEP();
    const int ci0 = own_lo_i(1), ci1 = own_hi_i(imax), cj0 = own_lo_j(1), cj1 = own_hi_j(jmax);
    for (int k = 1; k <= kmax; ++k)
      for (int j = cj0; j <= cj1; ++j)
        for (int i = ci0; i <= ci1; ++i)
          ASSERT_EQ(pmg(0).src(i, j, k), src.at(i, j, k)) << what << " src (" << i << "," << j << "," << k << ")";
    const int cut_cycles = POISSONP();
    CORRECTION();
    EXPECT_LE(cut_cycles, whole_cycles + 2) << what;

    // Each array on the cells and faces this process updates.
    struct Check {
      const char* name;
      const Array3<double>* a;
      const Snapshot* ref;
      int ilo, ihi, jlo, jhi, klo, khi;
    };
    const Check checks[] = {
        {"phi", &pmg(0).phi, &phi, ci0, ci1, cj0, cj1, 1, kmax},
        {"p", &p, &P, own_lo_i(0), own_hi_i(imax + 1), own_lo_j(0), own_hi_j(jmax + 1), 0, kmax + 1},
        {"u", &u, &U, own_lo_i(0), own_hi_i(imax), cj0, cj1, 1, kmax},
        {"v", &v, &V, ci0, ci1, own_lo_j(0), own_hi_j(jmax), 1, kmax},
        {"w", &w, &W, ci0, ci1, cj0, cj1, 0, kmax},
    };
    for (const Check& c : checks) {
      double largest = 0.0, worst = 0.0;
      int wi = 0, wj = 0, wk = 0;
      for (double x : c.ref->v) largest = std::max(largest, std::fabs(x));
      for (int k = c.klo; k <= c.khi; ++k)
        for (int j = c.jlo; j <= c.jhi; ++j)
          for (int i = c.ilo; i <= c.ihi; ++i)
            if (std::fabs((*c.a)(i, j, k) - c.ref->at(i, j, k)) > worst) {
              worst = std::fabs((*c.a)(i, j, k) - c.ref->at(i, j, k));
              wi = i, wj = j, wk = k;
            }
      EXPECT_LE(worst, 1e-6 * largest) << what << ": " << c.name << ", largest " << largest << " at (" << wi << "," << wj << "," << wk << ")";
      // The solve did something: phi is far from zero.
      if (c.a == &pmg(0).phi) {
        EXPECT_GT(largest, 1e-3) << what;
      }
    }
  }
  OWNBOX();
}

}  // namespace
