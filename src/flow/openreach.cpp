#include "flow/openreach.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <vector>

#include "common/distributed.hpp"
#include "common/files.hpp"
#include "common/parallel.hpp"
#include "driver/conditions.hpp"
#include "driver/fields.hpp"
#include "flow/forces.hpp"
#include "flow/inflow.hpp"
#include "results/saved.hpp"

namespace rl {

namespace {

struct OpenReach {
  bool on = false;
  double slope = 0.0;
  double outlet_bulk = 0.0;  // discharge over the outlet's wet area
  SyntheticInflow gen;
  // Recycling: the column of faces whose velocities the inlet carries (0:
  // the synthetic eddies instead).
  int recycle = 0;
  // The face values of the step, kept to be put back after the boundaries
  // and the correction: at (j, k), j = 0..jmax + 1, k = 0..kmax + 1.
  std::vector<double> uin, vin, win, uout, vout, wout;
  int nj = 0;
};

OpenReach r;

std::size_t at(int j, int k) { return static_cast<std::size_t>(k) * static_cast<std::size_t>(r.nj) + j; }

// This process's rows of a plane, lo..hi of the box cut to what it holds
// (its block and the halo rows, which it fills as its neighbour does).
int row_lo(int lo) { return std::max(lo, held_lo_j(lo, kHalo)); }
int row_hi(int hi) { return std::min(hi, held_hi_j(hi, kHalo)); }
bool at_inlet() { return ownership().west; }
bool at_outlet() { return ownership().east; }

std::string inflow_name(const std::string& dat) {
  return beside_saved(dat, ".inflow");
}

}  // namespace

bool open_reach() { return r.on; }
double reach_slope() { return r.slope; }

void open_reach_types() {
  r = OpenReach();
  r.on = optional_integer("OpenReachItm", 0) == 1;
  if (!r.on) return;
  r.slope = optional_real("SlopeItm", 0.0);
  r.recycle = optional_integer("InflowTurbulenceItm", 2) == 2 ? -1 : 0;  // placed at the start
  for (Face f : {LowX, HighX}) {
    ibcu(f) = Gradient;
    ibcv(f) = Gradient;
    ibcw(f) = Gradient;
    ibcp(f) = Gradient;
  }
  // The box's bottom closed (no flow through it, a zero pressure gradient):
  // with a face of given pressure there, the streamwise pressure gradient
  // an open reach carries would drive water down through the solid under
  // the bed and out of the box (measured: 15 % more discharge mid-reach
  // than the inflow, the profile sheared to twice its shear).  Every face
  // of the pressure equation then has a given gradient; the outflow's
  // balance keeps it solvable.
  ibcw(LowZ) = Given;
  ibcp(LowZ) = Gradient;
}

void open_reach_start(const std::string& startfile) {
  if (!r.on) return;
  r.nj = jmax + 2;
  const std::size_t n = static_cast<std::size_t>(jmax + 2) * static_cast<std::size_t>(kmax + 2);
  r.uin.assign(n, 0.0);
  r.vin.assign(n, 0.0);
  r.win.assign(n, 0.0);
  r.uout.assign(n, 0.0);
  r.vout.assign(n, 0.0);
  r.wout.assign(n, 0.0);
  InletSection s;
  s.nj = jmax;
  s.nk = kmax;
  s.dy = dy;
  s.dz = dz;
  s.zmin = zmin;
  for (int j = 1; j <= jmax; ++j) s.bed.push_back(0.5 * (bed(0, j) + bed(1, j)));
  {
    // The inlet's faces that the discharge counts (not flagged solid), from
    // the blocks that hold them.
    std::vector<double> c(static_cast<std::size_t>(jmax) * static_cast<std::size_t>(kmax), 0.0);
    if (at_inlet())
      for (int k = 1; k <= kmax; ++k)
        for (int j = own_lo_j(1); j <= own_hi_j(jmax); ++j)
          c[static_cast<std::size_t>(k - 1) * static_cast<std::size_t>(jmax) + (j - 1)] = flagu(0, j, k) != -1;
    if (ownership().on) dist_merge(c);
    s.counted.assign(c.begin(), c.end());
  }
  if (ibed != 0) {
    // The equivalent sand roughness of the wall law's grain size.
    r.gen.start(s, discharge, 2.5 * rough / 1000.0);
  } else {
    // A smooth bed: the roughness that gives the smooth law (30 nu / (9 u*)),
    // found by a few rounds from a thousandth of the depth.
    double ks = 1e-3 * (zmin + kmax * dz - s.bed[0] > 0.0 ? zmin + kmax * dz - s.bed[0] : dz);
    for (int round = 0; round < 8; ++round) {
      r.gen.start(s, discharge, ks);
      const double us = r.gen.friction_velocity();
      if (!(us > 0.0)) break;
      ks = 3.3333333333333335 * visc / us;
    }
  }
  const double area = section_discharge(nullptr, imax);
  r.outlet_bulk = area > 0.0 ? discharge / area : 0.0;
  if (startfile.empty()) {
    // A fresh start: the predictor's memory of the previous step holds the
    // body forces, as if they had acted before, so that the first step's
    // pressure carries the whole weight of the water at once (with an
    // empty memory it carries one and a half, and the next solve must take
    // half a hydrostatic pressure back, which the pressure equation with a
    // given gradient on every face does only slowly: cells of the first
    // column stayed beyond the divergence limit after step 2).
    const double c = 1.0 / std::sqrt(1.0 + r.slope * r.slope);
    rhsuo.fill(gravity * r.slope * c);
    rhswo.fill(-gravity * c);
  }
  {
    // Where the pressure solve's levels stopped short of the design's
    // coarsening at an odd count (see LEVELCOUNT), its cycles converge
    // slowly: say so, with counts that halve.
    const int a = imax >> -lmin, b = jmax >> -lmin, c = kmax >> -lmin;
    if (first_process() && b >= 2 && c >= 2 && a > 1)
      std::fprintf(stderr,
                   "riverles: warning: the open reach's pressure solve coarsens only to %d x %d x %d cells (an odd "
                   "count does not halve): expect many cycles a step; cell counts along x and y that halve down to "
                   "a few cells (multiples of %d) converge in a few\n",
                   a, b, c, 1 << std::max(1, kmax > 1 ? static_cast<int>(std::log2(kmax)) - 1 : 1));
  }
  if (r.recycle != 0) {
    // The recycling plane: RecycleDistanceItm behind the inlet, by default
    // 8 mean depths of the inlet's section, kept within the reach's first
    // half and (where the reach has 4 columns or more) at least 2 columns in.
    const double inlet_area = INFLOW(nullptr), width = jmax * dy;
    const double depth = width > 0.0 ? inlet_area / width : 0.0;
    const double dist = optional_real("RecycleDistanceItm", 8.0 * depth);
    const int half = std::max(1, imax / 2);  // a box of 1 to 3 columns recycles its first face
    r.recycle = std::clamp(static_cast<int>(std::lround(dist / dx)), std::min(2, half), half);
    if (first_process())
      std::fprintf(stderr,
                   "riverles: open reach: inflow %.6g m3/s recycled from the section %.4g m downstream (faces i = "
                   "%d, %.3g mean depths), convective outflow at %.4g m/s, slope %.6g\n",
                   discharge, r.recycle * dx, r.recycle, depth > 0.0 ? r.recycle * dx / depth : 0.0, r.outlet_bulk,
                   r.slope);
    return;
  }
  if (first_process())
    std::fprintf(stderr,
                 "riverles: open reach: inflow %.6g m3/s with synthetic eddies (u* %.4g m/s, eddies %.3g m), "
                 "convective outflow at %.4g m/s, slope %.6g\n",
                 discharge, r.gen.friction_velocity(), r.gen.eddy_size(), r.outlet_bulk, r.slope);
  if (startfile.empty() || !at_inlet()) return;
  const std::string name = inflow_name(strip_blanks(startfile));
  std::ifstream in(name);
  const SyntheticInflow fresh = r.gen;
  if (!(in && r.gen.load(in))) {
    if (first_process())
      std::fprintf(stderr,
                   "riverles: note: no inflow state beside the saved state (%s): the inflow's eddies start afresh\n",
                   name.c_str());
    r.gen = fresh;
  }
}

namespace {

// The inflow made to carry the discharge exactly, as the discharge
// controller measures it.
void carry_discharge() {
  const int J = jmax, K = kmax;
  std::vector<double> cells(static_cast<std::size_t>(J) * static_cast<std::size_t>(K), 0.0);
  for (int k = 1; k <= K; ++k)
    for (int j = 1; j <= J; ++j) cells[static_cast<std::size_t>(k - 1) * static_cast<std::size_t>(J) + (j - 1)] = r.uin[at(j, k)];
  r.gen.carry_discharge(cells);
  for (int k = 1; k <= K; ++k)
    for (int j = 1; j <= J; ++j) r.uin[at(j, k)] = cells[static_cast<std::size_t>(k - 1) * static_cast<std::size_t>(J) + (j - 1)];
}

// The inflow recycled: the velocities of the previous step at the faces of
// column r.recycle, over the inlet's wet cells (the mean profile where the
// recycling plane has no fluid), the discharge then made exact.  Every
// process takes part (the plane's rows come from the blocks that hold it).
void recycle_inflow() {
  const int J = jmax, K = kmax, R = r.recycle;
  const std::size_t n = r.uin.size();
  std::vector<double> plane(6 * n, 0.0);  // u, v, w and whether each face is fluid
  const Ownership& o = ownership();
  if (!o.on || (o.blk.ilo <= R && R <= o.blk.ihi))
    for (int k = 0; k <= K + 1; ++k)
      for (int j = o.south ? 0 : own_lo_j(1); j <= own_hi_j(J); ++j) {
        const std::size_t c = at(j, k);
        plane[c] = uo(R, j, k);
        plane[n + c] = vo(R, j, k);
        plane[2 * n + c] = wo(R, j, k);
        plane[3 * n + c] = flagu(R, j, k) == 1;
        plane[4 * n + c] = flagv(R, j, k) == 1;
        plane[5 * n + c] = flagw(R, j, k) == 1;
      }
  if (o.on) dist_merge(plane);
  if (!at_inlet()) return;
  auto wet = [&](int j, int k) { return j >= 1 && j <= J && k >= 1 && k <= K && r.gen.wet_height(j, k) > 0.0; };
  for (int k = 1; k <= K; ++k)
    for (int j = 1; j <= J; ++j)
      r.uin[at(j, k)] = !wet(j, k) ? 0.0 : plane[3 * n + at(j, k)] != 0.0 ? plane[at(j, k)] : r.gen.mean(j, k);
  carry_discharge();
  // v and w where the recycling plane's face is fluid and the inlet's cells
  // on both sides of the face are wet; across a periodic y the last face
  // joins the last row to the first.
  const bool yper = ibcv(LowY) == Periodic;
  for (int k = 1; k <= K; ++k) {
    for (int j = 1; j <= J; ++j) {
      const bool both = wet(j, k) && (j < J ? wet(j + 1, k) : yper && wet(1, k));
      r.vin[at(j, k)] = both && plane[4 * n + at(j, k)] != 0.0 ? plane[n + at(j, k)] : 0.0;
    }
    r.vin[at(0, k)] = yper ? r.vin[at(J, k)] : 0.0;
    if (!yper) r.vin[at(J, k)] = 0.0;
  }
  for (int k = 1; k < K; ++k)
    for (int j = 1; j <= J; ++j)
      r.win[at(j, k)] = wet(j, k) && wet(j, k + 1) && plane[5 * n + at(j, k)] != 0.0 ? plane[2 * n + at(j, k)] : 0.0;
}

}  // namespace

void open_faces_predict() {
  if (!r.on) return;
  const int J = jmax, K = kmax, I = imax;
  const bool yper = ibcv(LowY) == Periodic;
  if (r.recycle != 0) {
    recycle_inflow();
  } else if (at_inlet()) {
    r.gen.advance(dt);
    std::vector<double> pu, pv, pw;
    r.gen.plane(pu, pv, pw);
    // The generator's cells (j, k), 1-based, j fastest; v and w move to
    // their faces as the mean of the two cells beside them.
    auto cell = [&](const std::vector<double>& f, int j, int k) {
      return f[static_cast<std::size_t>(k - 1) * static_cast<std::size_t>(J) + (j - 1)];
    };
    for (int k = 1; k <= K; ++k)
      for (int j = 1; j <= J; ++j) r.uin[at(j, k)] = cell(pu, j, k);
    for (int k = 1; k <= K; ++k) {
      for (int j = 1; j < J; ++j) r.vin[at(j, k)] = 0.5 * (cell(pv, j, k) + cell(pv, j + 1, k));
      // Across a periodic y the last face joins the last row to the first;
      // between walls the walls' faces carry nothing.
      const double edge = yper ? 0.5 * (cell(pv, J, k) + cell(pv, 1, k)) : 0.0;
      r.vin[at(0, k)] = edge;
      r.vin[at(J, k)] = edge;
    }
    for (int k = 1; k < K; ++k)
      for (int j = 1; j <= J; ++j) r.win[at(j, k)] = 0.5 * (cell(pw, j, k) + cell(pw, j, k + 1));
  }
  if (at_outlet()) {
    // Convective: each value moves downstream at the outlet's bulk velocity
    // over the step, upwind from the last cells of the previous step.
    const double c = r.outlet_bulk * dt / dx;
    for (int k = 1; k <= K; ++k)
      for (int j = row_lo(1); j <= row_hi(J); ++j)
        if (flagu(I, j, k) == 1) r.uout[at(j, k)] = uo(I, j, k) - c * (uo(I, j, k) - uo(I - 1, j, k));
    for (int k = 1; k <= K; ++k)
      for (int j = row_lo(0); j <= row_hi(J); ++j)
        r.vout[at(j, k)] = vo(I + 1, j, k) - c * (vo(I + 1, j, k) - vo(I, j, k));
    for (int k = 0; k <= K; ++k)
      for (int j = row_lo(1); j <= row_hi(J); ++j)
        r.wout[at(j, k)] = wo(I + 1, j, k) - c * (wo(I + 1, j, k) - wo(I, j, k));
  }
  open_faces_apply();
}

void balance_outflow() {
  if (!r.on) return;
  const int J = jmax, K = kmax, I = imax;
  // The flux through each open face, cell faces of dy dz, in a fixed order
  // (rows of this process's own block, added over processes in rank order).
  // The inflow's is the plane's, which the boundaries put back: the forcing
  // and the solid's rest may have touched u(0) since.
  double in = 0.0, out = 0.0, count = 0.0;
  const int j0 = own_lo_j(1), j1 = own_hi_j(J);
  if (at_inlet())
    for (int k = 1; k <= K; ++k)
      for (int j = j0; j <= j1; ++j) in += r.uin[at(j, k)];
  if (at_outlet())
    for (int k = 1; k <= K; ++k)
      for (int j = j0; j <= j1; ++j) {
        out += u(I, j, k);
        if (flagu(I, j, k) == 1) count += 1.0;
      }
  if (ownership().on) {
    in = dist_sum(in);
    out = dist_sum(out);
    count = dist_sum(count);
  }
  const double shift = count > 0.0 ? (in - out) / count : 0.0;
  if (!at_outlet()) return;
  for (int k = 1; k <= K; ++k)
    for (int j = row_lo(1); j <= row_hi(J); ++j) {
      if (flagu(I, j, k) == 1) u(I, j, k) += shift;
      r.uout[at(j, k)] = u(I, j, k);
    }
}

void open_faces_apply() {
  if (!r.on) return;
  const int J = jmax, K = kmax, I = imax;
  if (at_inlet()) {
    for (int k = 1; k <= K; ++k)
      for (int j = row_lo(1); j <= row_hi(J); ++j) u(0, j, k) = r.uin[at(j, k)];
    for (int k = 1; k <= K; ++k)
      for (int j = row_lo(0); j <= row_hi(J); ++j) v(0, j, k) = r.vin[at(j, k)];
    for (int k = 1; k < K; ++k)
      for (int j = row_lo(1); j <= row_hi(J); ++j) w(0, j, k) = r.win[at(j, k)];
  }
  if (at_outlet()) {
    for (int k = 1; k <= K; ++k)
      for (int j = row_lo(1); j <= row_hi(J); ++j)
        if (flagu(I, j, k) == 1) u(I, j, k) = r.uout[at(j, k)];
    for (int k = 1; k <= K; ++k)
      for (int j = row_lo(0); j <= row_hi(J); ++j) v(I + 1, j, k) = r.vout[at(j, k)];
    for (int k = 0; k <= K; ++k)
      for (int j = row_lo(1); j <= row_hi(J); ++j) w(I + 1, j, k) = r.wout[at(j, k)];
  }
}

void level_pressure() {
  if (!r.on) return;
  Array3<double>& phi = pmg(0).phi;
  const int K = kmax;
  const int i0 = own_lo_i(1), i1 = own_hi_i(imax), j0 = own_lo_j(1), j1 = own_hi_j(jmax);
  // The sum of each layer in parallel, the layers added in order: the same
  // mean whatever the number of threads.
  std::vector<double> layer(static_cast<std::size_t>(K) + 1, 0.0);
#pragma omp parallel for schedule(static) if (worth_sharing(cells_of(imax, jmax, kmax)))
  for (int k = 1; k <= K; ++k) {
    double s = 0.0;
    for (int j = j0; j <= j1; ++j)
      for (int i = i0; i <= i1; ++i) s += phi(i, j, k);
    layer[static_cast<std::size_t>(k)] = s;
  }
  double sum = 0.0;
  for (int k = 1; k <= K; ++k) sum += layer[static_cast<std::size_t>(k)];
  if (ownership().on) sum = dist_sum(sum);
  const double mean = sum / (static_cast<double>(imax) * jmax * kmax);
  // Every cell held and the ghosts of the box's faces, which the solve set
  // (the correction adds them to p); not the ghost layer's edges and
  // corners, which the solve leaves as they are.
  const int h0 = phi.lo(0), h1 = phi.hi(0), g0 = phi.lo(1), g1 = phi.hi(1);
  const int I = imax, J = jmax;
#pragma omp parallel for schedule(static) if (worth_sharing(cells_of(imax, jmax, kmax)))
  for (int k = phi.lo(2); k <= phi.hi(2); ++k)
    for (int j = g0; j <= g1; ++j) {
      const int out = (k < 1 || k > K) + (j < 1 || j > J);
      if (out > 1) continue;
      for (int i = h0; i <= h1; ++i)
        if (out + (i < 1 || i > I) <= 1) phi(i, j, k) -= mean;
    }
}

double outlet_discharge() { return section_discharge(&u, imax); }

void save_inflow_state(const std::string& outpath, const std::string& outfile) {
  if (!r.on || !first_process()) return;
  const std::string name = inflow_name(saved_file_name(outpath, outfile)), part = name + ".part";
  std::ostringstream text;
  r.gen.save(text);
  std::FILE* f = std::fopen(part.c_str(), "wb");
  const std::string s = text.str();
  bool ok = f && std::fwrite(s.data(), 1, s.size(), f) == s.size();
  if (f) ok = std::fclose(f) == 0 && ok;
  if (!put_in_place(part, name, ok)) std::fprintf(stderr, "riverles: warning: cannot write %s\n", name.c_str());
}

}  // namespace rl
