#include "results/statistics.hpp"

#include <cgnslib.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "common/console.hpp"
#include "common/distributed.hpp"
#include "common/files.hpp"
#include "driver/conditions.hpp"
#include "driver/domain.hpp"
#include "driver/fields.hpp"
#include "driver/mainprogram.hpp"
#include "immersed/bedstress.hpp"
#include "immersed/immerse.hpp"
#include "results/saved.hpp"
#include "common/parallel.hpp"

namespace rl {

namespace {

// Where a field lives, which decides how it is averaged onto the nodes.
enum class At { UFace, VFace, WFace, Centre };

struct Stats {
  bool on = false;
  double start = 0.0, interval = 0.0;
  long long count = 0;
  double first = 0.0;   // time of the first sample
  double weight = 0.0;  // the time averaged over: the sum of the samples' time steps
  double force = 0.0;   // time mean of the streamwise driving acceleration
  // Means at the fields' own positions.
  Array3<double> mu, mv, mw, mp, mn;
  // Sums of squared deviations of u, v, w at their faces.
  Array3<double> suu, svv, sww;
  // Means of the velocities interpolated to the cell centres, and their co-moments.
  Array3<double> cu, cv, cw, suv, suw, svw;
  // The bed, per column: the wall law's friction velocity and shear stress,
  // instantaneous and mean; the stress from the momentum the bed took
  // (x, y, magnitude), instantaneous and mean.
  Array2<double> ustar, tau, mustar, mtau;
  Array2<double> btx, bty, btm, mbtx, mbty, mbtm;
};

Stats S;

struct Output {
  const char* name;
  Array3<double>* a;
  At at;
  bool deviations;  // a sum of squared deviations: divided by the count
  bool blank;       // zero at nodes in the bed
};

std::vector<Output> outputs() {
  return {{"MeanVelocityX", &S.mu, At::UFace, false, true},
          {"MeanVelocityY", &S.mv, At::VFace, false, true},
          {"MeanVelocityZ", &S.mw, At::WFace, false, true},
          {"MeanPressure", &S.mp, At::Centre, false, false},
          {"MeanEddyViscosity", &S.mn, At::Centre, false, true},
          {"ReynoldsStressUU", &S.suu, At::UFace, true, true},
          {"ReynoldsStressVV", &S.svv, At::VFace, true, true},
          {"ReynoldsStressWW", &S.sww, At::WFace, true, true},
          {"ReynoldsStressUV", &S.suv, At::Centre, true, true},
          {"ReynoldsStressUW", &S.suw, At::Centre, true, true},
          {"ReynoldsStressVW", &S.svw, At::Centre, true, true}};
}

// The arrays that make up the accumulators, in the order of the restart file.
std::vector<Array3<double>*> arrays3() {
  return {&S.mu, &S.mv, &S.mw, &S.mp, &S.mn, &S.suu, &S.svv, &S.sww, &S.cu, &S.cv, &S.cw, &S.suv, &S.suw, &S.svw};
}
std::vector<Array2<double>*> arrays2() {
  return {&S.ustar, &S.tau, &S.mustar, &S.mtau, &S.btx, &S.bty, &S.btm, &S.mbtx, &S.mbty, &S.mbtm};
}

// The bed's fields of the statistics file, by name.
std::vector<std::pair<const char*, Array2<double>*>> bed_outputs() {
  return {{"BedShearStressX", &S.btx},        {"BedShearStressY", &S.bty},
          {"BedShearStress", &S.btm},         {"MeanBedShearStressX", &S.mbtx},
          {"MeanBedShearStressY", &S.mbty},   {"MeanBedShearStress", &S.mbtm},
          {"WallLawShearStress", &S.tau},     {"MeanWallLawShearStress", &S.mtau},
          {"FrictionVelocity", &S.ustar},     {"MeanFrictionVelocity", &S.mustar}};
}

// The water the driving force moves: the faces of u not in the solid (fluid
// and forcing points), each a cell's volume.  Over several processes the
// sum of every process's own faces.
double water_volume() {
  double n = 0.0;
  for (int k = 1; k <= kmax; ++k)
    for (int j = own_lo_j(1); j <= own_hi_j(jmax); ++j) {
      const int* f = flagu.row(j, k);
      for (int i = own_lo_i(1); i <= own_hi_i(imax); ++i) n += f[i] != -1 ? 1.0 : 0.0;
    }
  if (ownership().on) n = dist_sum(n);
  return n * dx * dy * dz;
}

// A sample x of weight w (its time step) into a running mean and sum of
// weighted squared deviations (West's form of Welford's update); r is w over
// the weights so far, this one included.
inline void welford(double x, double& mean, double& m2, double r, double w) {
  const double d = x - mean;
  mean += d * r;
  m2 += w * d * (x - mean);
}

// Node value (i, j, k) of an accumulator: the mean of the positions around
// the node, as the results are made.
double node_value(const Array3<double>& a, At at, int i, int j, int k) {
  switch (at) {
    case At::UFace: return 0.25 * (a(i, j, k) + a(i, j + 1, k) + a(i, j, k + 1) + a(i, j + 1, k + 1));
    case At::VFace: return 0.25 * (a(i, j, k) + a(i + 1, j, k) + a(i, j, k + 1) + a(i + 1, j, k + 1));
    case At::WFace: return 0.25 * (a(i, j, k) + a(i + 1, j, k) + a(i, j + 1, k) + a(i + 1, j + 1, k));
    case At::Centre:
      return 0.125 * (a(i, j, k) + a(i + 1, j, k) + a(i, j + 1, k) + a(i + 1, j + 1, k) + a(i, j, k + 1) +
                      a(i + 1, j, k + 1) + a(i, j + 1, k + 1) + a(i + 1, j + 1, k + 1));
  }
  return 0.0;
}

// The node values of an output over the nodes of box b (one plane k).
void nodes_of(const Output& o, const Box& b, std::vector<double>& out) {
  const double scale = o.deviations ? 1.0 / S.weight : 1.0;
  out.resize(static_cast<std::size_t>(b.count()));
  std::size_t n = 0;
  for (int k = b.k0; k <= b.k1; ++k)
    for (int j = b.j0; j <= b.j1; ++j)
      for (int i = b.i0; i <= b.i1; ++i, ++n)
        out[n] = o.blank && elev(i, j) >= zg3(i, j, k) ? 0.0 : node_value(*o.a, o.at, i, j, k) * scale;
}

// Over several processes each process accumulates the positions of its
// block (the box's ghost layers where it touches a face) and the columns
// of its block; the first process writes the files, a plane at a time.
Box owned_plane(int k) { return {own_lo_i(0), own_hi_i(imax + 1), own_lo_j(0), own_hi_j(jmax + 1), k, k}; }
Box owned_nodes(int k) { return {own_lo_i(0), own_hi_i(imax), own_lo_j(0), own_hi_j(jmax), k, k}; }

// A column array's values over the whole plan (0..imax+1, 0..jmax+1), on
// the first process: each process gives its own columns; the ghost columns,
// which no step writes, are zero.
void gather_columns(const Array2<double>& c, std::vector<double>& whole) {
  const Box b{own_lo_i(1), own_hi_i(imax), own_lo_j(1), own_hi_j(jmax), 0, 0};
  std::vector<double> mine;
  mine.reserve(static_cast<std::size_t>(b.count()));
  for (int j = b.j0; j <= b.j1; ++j)
    for (int i = b.i0; i <= b.i1; ++i) mine.push_back(c(i, j));
  gather_to_first(b, mine, 1, Box{0, imax + 1, 0, jmax + 1, 0, 0}, whole);
}

// A column value at plan node (i, j): the mean of the columns around it
// (those inside the plan); c over 0..imax+1, 0..jmax+1, i fastest.
void plan_nodes(const std::vector<double>& c, std::vector<double>& out) {
  out.resize(static_cast<std::size_t>(imax + 1) * (jmax + 1));
  std::size_t n = 0;
  for (int j = 0; j <= jmax; ++j)
    for (int i = 0; i <= imax; ++i, ++n) {
      double sum = 0.0;
      int m = 0;
      for (int b = j; b <= j + 1; ++b)
        for (int a = i; a <= i + 1; ++a)
          if (a >= 1 && a <= imax && b >= 1 && b <= jmax) {
            sum += c[static_cast<std::size_t>(b) * static_cast<std::size_t>(imax + 2) + static_cast<std::size_t>(a)];
            ++m;
          }
      out[n] = sum / m;
    }
}

// The mean over the plan's columns of a column array gathered whole.
double plan_mean(const std::vector<double>& c) {
  double sum = 0.0;
  for (int j = 1; j <= jmax; ++j)
    for (int i = 1; i <= imax; ++i)
      sum += c[static_cast<std::size_t>(j) * static_cast<std::size_t>(imax + 2) + static_cast<std::size_t>(i)];
  return sum / (static_cast<double>(imax) * jmax);
}

// The stress the bed must take on average over the plan in a steady reach:
// what the time-mean driving force puts into the water, dens * force * water
// volume, over the plan area.
double balance_stress() {
  return dens * S.force * water_volume() / (static_cast<double>(imax) * jmax * dx * dy);
}

std::string restart_name_of(const std::string& startfile) {
  return beside_saved(strip_blanks(startfile), ".stats");
}

// The accumulators of time-weighted averages with the bed's momentum
// stresses, closed by the step and time of the save they belong to; '1'
// marked those of averages per step, '2' those without the momentum
// stresses, '3' those without the save's step and time, none of which can
// be continued.
constexpr char kMagic[8] = {'R', 'L', 'S', 'T', 'A', 'T', 'S', '4'};
constexpr char kNoSaveMagic[8] = {'R', 'L', 'S', 'T', 'A', 'T', 'S', '3'};
constexpr char kStepMagic[8] = {'R', 'L', 'S', 'T', 'A', 'T', 'S', '1'};
constexpr char kNoMomentumMagic[8] = {'R', 'L', 'S', 'T', 'A', 'T', 'S', '2'};

// Reads the accumulators kept beside a saved state; false (nothing changed)
// when there are none or they do not fit this grid.  The first process
// reads the file, a plane at a time, and hands every process its part.
bool load(const std::string& name, const std::string& startfile) {
  const bool first = first_process();
  std::FILE* f = first ? std::fopen(name.c_str(), "rb") : nullptr;
  int there = f != nullptr;
  dist_bcast(&there, 1);
  if (!there) return false;
  char magic[8] = {};
  int dims[3];
  long long count = 0;
  double first_time = 0.0, weight = 0.0, force = 0.0;
  int ok = 1, per_step = 0;
  if (first) {
    ok = std::fread(magic, 1, 8, f) == 8 && std::memcmp(magic, kMagic, 8) == 0 &&
         std::fread(dims, sizeof dims, 1, f) == 1 && dims[0] == imax && dims[1] == jmax && dims[2] == kmax &&
         std::fread(&count, sizeof count, 1, f) == 1 && std::fread(&first_time, sizeof first_time, 1, f) == 1 &&
         std::fread(&weight, sizeof weight, 1, f) == 1 && std::fread(&force, sizeof force, 1, f) == 1 &&
         count >= 0 && weight >= 0.0;
    per_step = std::memcmp(magic, kStepMagic, 8) == 0         ? 1
               : std::memcmp(magic, kNoMomentumMagic, 8) == 0 ? 2
               : std::memcmp(magic, kNoSaveMagic, 8) == 0     ? 3
                                                              : 0;
  }
  dist_bcast(&per_step, 1);
  if (per_step) {
    if (first) {
      std::fclose(f);
      std::fprintf(stderr, "riverles: warning: %s holds %s (an older riverles); the statistics start anew\n",
                   name.c_str(),
                   per_step == 1   ? "averages per step, not time-weighted ones"
                   : per_step == 2 ? "no bed shear stress from the momentum the bed takes"
                                   : "no mark of the save it belongs to");
    }
    return false;
  }
  dist_bcast(&ok, 1);
  for (Array3<double>* a : arrays3())
    ok = ok && read_planes(
                   Box{a->lo(0), a->hi(0), a->lo(1), a->hi(1)}, Box{0, imax + 1, 0, jmax + 1}, 0, kmax + 1, 1,
                   [&](int, std::vector<double>& p) { return std::fread(p.data(), sizeof(double), p.size(), f) == p.size(); },
                   [&](const Box& part, const std::vector<double>& mine) { unpack_box({a}, part, mine); });
  for (Array2<double>* a : arrays2()) {
    if (first && ok)
      ok = std::fread(a->data(), sizeof(double), static_cast<std::size_t>(a->size()), f) ==
           static_cast<std::size_t>(a->size());
    dist_bcast(&ok, 1);
    if (ok) dist_bcast(a->data(), static_cast<int>(a->size()));
  }
  // The save it belongs to: a file beside a saved state of another step
  // (a state copied back over a newer one) would count samples twice.
  int mismatch = 0;
  if (first) {
    int step = 0;
    double time = 0.0;
    ok = ok && std::fread(&step, sizeof step, 1, f) == 1 && std::fread(&time, sizeof time, 1, f) == 1;
    ok = ok && std::fgetc(f) == EOF;
    std::fclose(f);
    int saved_step = 0;
    double saved_time = 0.0;
    std::FILE* d = std::fopen(strip_blanks(startfile).c_str(), "r");
    if (ok && d && std::fscanf(d, "%d %lf", &saved_step, &saved_time) == 2 &&
        (saved_step != step || saved_time != time)) {
      mismatch = 1;
      std::fprintf(stderr,
                   "riverles: warning: %s belongs to the save of step %d (t = %.10g), not to %s (step %d, t = "
                   "%.10g): continuing it would count samples twice; the statistics start anew\n",
                   name.c_str(), step, time, strip_blanks(startfile).c_str(), saved_step, saved_time);
    }
    if (d) std::fclose(d);
  }
  dist_bcast(&mismatch, 1);
  if (mismatch) {
    for (Array3<double>* a : arrays3()) a->fill(0.0);
    for (Array2<double>* a : arrays2()) a->fill(0.0);
    return false;
  }
  dist_bcast(&ok, 1);
  if (!ok) {
    for (Array3<double>* a : arrays3()) a->fill(0.0);
    for (Array2<double>* a : arrays2()) a->fill(0.0);
    if (first)
      std::fprintf(stderr, "riverles: warning: %s does not fit this case; the statistics start anew\n", name.c_str());
    return false;
  }
  dist_bcast(&count, 1);
  dist_bcast(&first_time, 1);
  dist_bcast(&weight, 1);
  dist_bcast(&force, 1);
  S.count = count;
  S.first = first_time;
  S.weight = weight;
  S.force = force;
  if (first)
    std::fprintf(stderr, "riverles: statistics continue from %s (%lld samples over %.10g of time since t = %.10g)\n",
                 name.c_str(), count, weight, first_time);
  return true;
}

}  // namespace

void STATSTART(double otime, const std::string& startfile) {
  S = Stats();
  S.on = optional_integer("StatisticsItm", 0) == 1;
  if (!S.on) return;
  S.start = optional_real("StatsStartItm", 0.0);
  S.interval = optional_real("dtStatsItm", otime);
  const int I = imax, J = jmax, K = kmax;
  for (Array3<double>* a : arrays3())
    if (!a->allocate("statistics", held_lo_i(0, kHalo), held_hi_i(I + 1, kHalo), held_lo_j(0, kHalo),
                     held_hi_j(J + 1, kHalo), 0, K + 1))
      ERRORSTOP(2);
  for (Array2<double>* a : arrays2())
    if (!a->allocate("bed statistics", 0, I + 1, 0, J + 1)) ERRORSTOP(2);
  bed_ledger_start(true);
  if (!strip_blanks(startfile).empty()) load(restart_name_of(startfile), startfile);
}

bool statistics_on() { return S.on; }
double statistics_interval() { return S.interval; }
long long statistics_count() { return S.count; }
double statistics_weight() { return S.weight; }
double statistics_force() { return S.force; }

void statistics_reset(double start) {
  for (Array3<double>* a : arrays3()) a->fill(0.0);
  for (Array2<double>* a : arrays2()) a->fill(0.0);
  S.on = true;
  S.start = start;
  S.count = 0;
  S.weight = 0.0;
  S.force = 0.0;
}

void STATISTICS() {
  // Each step's state stands for the time of that step: a step of no time
  // (a time step of 0) adds nothing.
  if (!S.on) return;
  if (simtime < S.start || !(dt > 0.0)) {
    bed_ledger_clear();
    return;
  }
  S.count += 1;
  if (S.count == 1) S.first = simtime;
  const double wt = dt;
  S.weight += wt;
  const double r = wt / S.weight;
  S.force += (forcex - S.force) * r;
  const int i0 = own_lo_i(0), i1 = own_hi_i(imax + 1), j0 = own_lo_j(0), j1 = own_hi_j(jmax + 1), K = kmax;

#pragma omp parallel for default(shared) schedule(static) if (worth_sharing(cells_of(imax, jmax, kmax)))
  for (int k = 0; k <= K + 1; ++k)
    for (int j = j0; j <= j1; ++j) {
      const double *ur = u.row(j, k), *vr = v.row(j, k), *vs = v.row(j - 1, k);
      const double *wr = w.row(j, k), *wb = w.row(j, k - 1), *pr = p.row(j, k), *nr = nut.row(j, k);
      double *mu = S.mu.row(j, k), *mv = S.mv.row(j, k), *mw = S.mw.row(j, k);
      double *mp = S.mp.row(j, k), *mn = S.mn.row(j, k);
      double *suu = S.suu.row(j, k), *svv = S.svv.row(j, k), *sww = S.sww.row(j, k);
      double *cu = S.cu.row(j, k), *cv = S.cv.row(j, k), *cw = S.cw.row(j, k);
      double *suv = S.suv.row(j, k), *suw = S.suw.row(j, k), *svw = S.svw.row(j, k);
      // Every position on its own (no array overlaps another): one lane each.
#pragma omp simd
      for (int i = i0; i <= i1; ++i) {
        welford(ur[i], mu[i], suu[i], r, wt);
        welford(vr[i], mv[i], svv[i], r, wt);
        welford(wr[i], mw[i], sww[i], r, wt);
        mp[i] += (pr[i] - mp[i]) * r;
        mn[i] += (nr[i] - mn[i]) * r;
        // Co-moments at the centre: each deviation from the old mean of one
        // velocity times the deviation from the new mean of the other.
        const double uc = 0.5 * (ur[i - 1] + ur[i]), vc = 0.5 * (vs[i] + vr[i]), wc = 0.5 * (wb[i] + wr[i]);
        const double du = uc - cu[i], dv = vc - cv[i], dw = wc - cw[i];
        cu[i] += du * r;
        cv[i] += dv * r;
        cw[i] += dw * r;
        suv[i] += wt * du * (vc - cv[i]);
        suw[i] += wt * du * (wc - cw[i]);
        svw[i] += wt * dv * (wc - cw[i]);
      }
    }

  BEDFRICTION(S.ustar);
  bed_stress_of_step(S.btx, S.bty);
  for (int j = own_lo_j(1); j <= own_hi_j(jmax); ++j)
    for (int i = own_lo_i(1); i <= own_hi_i(imax); ++i) {
      const double us = S.ustar(i, j);
      S.tau(i, j) = dens * us * us;
      S.mustar(i, j) += (us - S.mustar(i, j)) * r;
      S.mtau(i, j) += (S.tau(i, j) - S.mtau(i, j)) * r;
      const double tx = S.btx(i, j), ty = S.bty(i, j);
      S.btm(i, j) = std::sqrt(tx * tx + ty * ty);
      S.mbtx(i, j) += (tx - S.mbtx(i, j)) * r;
      S.mbty(i, j) += (ty - S.mbty(i, j)) * r;
      S.mbtm(i, j) += (S.btm(i, j) - S.mbtm(i, j)) * r;
    }
}

double statistics_bed_mean(const std::string& name) {
  std::vector<double> whole;
  for (const auto& [n, a] : bed_outputs())
    if (name == n) {
      gather_columns(*a, whole);
      double m = first_process() ? plan_mean(whole) : 0.0;
      if (ownership().on) m = dist_sum(m);
      return m;
    }
  return 0.0;
}

double statistics_balance_stress() { return balance_stress(); }

double statistics_bed_column(const std::string& name, int i, int j) {
  for (const auto& [n, a] : bed_outputs())
    if (name == n) return (*a)(i, j);
  return 0.0;
}

void statistics_nodes(const std::string& name, double* out) {
  std::vector<double> v;
  for (const Output& o : outputs())
    if (name == o.name) {
      nodes_of(o, Box{0, imax, 0, jmax, 0, kmax}, v);
      std::copy(v.begin(), v.end(), out);
    }
}

namespace {

// The statistics file numbered n.
void write_statistics(const std::string& outpath, const std::string& outfile, std::int32_t n) {
  if (!S.on || S.count == 0) return;
  // The first process writes the file; every process gives its nodes of
  // each output a plane k at a time.
  const bool first = first_process();
  char number[32];
  std::snprintf(number, sizeof number, "_stats_%06d", n);
  const std::string name = strip_blanks(outpath) + "/" + strip_blanks(outfile) + number + ".cgns";
  const std::string part = name + ".part";
  const int ni = imax + 1, nj = jmax + 1, nk = kmax + 1;
  int fn = 0, B = 0, Z = 0, G = 0, sol = 0, fld = 0;
  bool ok = first && cg_open(part.c_str(), CG_MODE_WRITE, &fn) == CG_OK;
  // One time step in a base: its time, and the pointer to its solution.
  auto series = [&](int base, int zone, const char* solname) {
    const cgsize_t one = 1, pdims[2] = {32, 1};
    char pointer[33];
    std::snprintf(pointer, sizeof pointer, "%-32s", solname);
    return cg_simulation_type_write(fn, base, CGNS_ENUMV(TimeAccurate)) == CG_OK &&
           cg_biter_write(fn, base, "BaseIterativeData", 1) == CG_OK &&
           cg_goto(fn, base, "BaseIterativeData_t", 1, "end") == CG_OK &&
           cg_array_write("TimeValues", CGNS_ENUMV(RealDouble), 1, &one, &simtime) == CG_OK &&
           cg_ziter_write(fn, base, zone, "ZoneIterativeData") == CG_OK &&
           cg_goto(fn, base, "Zone_t", zone, "ZoneIterativeData_t", 1, "end") == CG_OK &&
           cg_array_write("FlowSolutionPointers", CGNS_ENUMV(Character), 2, pdims, pointer) == CG_OK;
  };
  std::vector<double> buf, mine;
  if (ok) {
    const cgsize_t size[9] = {ni, nj, nk, ni - 1, nj - 1, nk - 1, 0, 0, 0};
    ok = cg_base_write(fn, "Statistics", 3, 3, &B) == CG_OK && cg_goto(fn, B, "end") == CG_OK &&
         cg_dataclass_write(CGNS_ENUMV(NormalizedByUnknownDimensional)) == CG_OK &&
         cg_zone_write(fn, B, "Zone1", size, CGNS_ENUMV(Structured), &Z) == CG_OK;
    // The node grid a plane at a time.
    std::vector<double> x, y, z;
    for (int k = 0; k <= kmax && ok; ++k) {
      grid_plane(k, x, y, z);
      const cgsize_t lo[3] = {1, 1, k + 1}, hi[3] = {ni, nj, k + 1};
      ok = cg_coord_partial_write(fn, B, Z, CGNS_ENUMV(RealDouble), "CoordinateX", lo, hi, x.data(), &G) == CG_OK &&
           cg_coord_partial_write(fn, B, Z, CGNS_ENUMV(RealDouble), "CoordinateY", lo, hi, y.data(), &G) == CG_OK &&
           cg_coord_partial_write(fn, B, Z, CGNS_ENUMV(RealDouble), "CoordinateZ", lo, hi, z.data(), &G) == CG_OK;
    }
    ok = ok && cg_sol_write(fn, B, Z, "Statistics", CGNS_ENUMV(Vertex), &sol) == CG_OK;
  }
  // A node reads the accumulators one position up: over several processes,
  // the neighbours' first positions.
  for (Array3<double>* a : arrays3()) fill_halo(*a, 1);
  for (const Output& o : outputs())
    write_planes(
        owned_nodes(0), Box{0, imax, 0, jmax}, 0, kmax, 1, 1,
        [&](const Box& b, std::vector<double>& mine) { nodes_of(o, b, mine); },
        [&](int k, int, const std::vector<double>& buf) {
          const cgsize_t lo[3] = {1, 1, k + 1}, hi[3] = {ni, nj, k + 1};
          ok = ok && cg_field_partial_write(fn, B, Z, sol, CGNS_ENUMV(RealDouble), o.name, lo, hi, buf.data(),
                                            &fld) == CG_OK;
        });
  if (ok) {
    char text[240];
    std::snprintf(text, sizeof text,
                  "time-weighted: %lld steps, each weighted by its time step, %.10g of time in all, the steps "
                  "ending from t = %.10g to t = %.10g",
                  S.count, S.weight, S.first, simtime);
    // The reach as a whole: the time mean of the driving acceleration, and
    // the slope whose gravity would drive the same flow.
    const cgsize_t one = 1;
    const double slope = S.force / gravity;
    ok = series(B, Z, "Statistics") && cg_goto(fn, B, "end") == CG_OK &&
         cg_descriptor_write("Averaging", text) == CG_OK && cg_user_data_write("Reach") == CG_OK &&
         cg_goto(fn, B, "Reach", 0, "end") == CG_OK &&
         cg_array_write("MeanDrivingForceX", CGNS_ENUMV(RealDouble), 1, &one, &S.force) == CG_OK &&
         cg_array_write("EquivalentSlope", CGNS_ENUMV(RealDouble), 1, &one, &slope) == CG_OK;
  }
  // The bed on the plan grid, lifted to its elevation.
  const auto bedfields = bed_outputs();
  const std::size_t nb = bedfields.size();
  std::vector<std::vector<double>> columns(nb);
  for (std::size_t m = 0; m < nb; ++m) gather_columns(*bedfields[m].second, columns[m]);
  // The bed's mean stress against the momentum balance of the reach.
  const double balance = balance_stress(), bedmean = first ? plan_mean(columns[3]) : 0.0;
  if (ok) {
    const cgsize_t one = 1;
    ok = cg_goto(fn, B, "Reach", 0, "end") == CG_OK &&
         cg_array_write("PlanMeanBedShearStressX", CGNS_ENUMV(RealDouble), 1, &one, &bedmean) == CG_OK &&
         cg_array_write("MomentumBalanceShearStress", CGNS_ENUMV(RealDouble), 1, &one, &balance) == CG_OK;
  }
  if (ok) {
    const cgsize_t size[6] = {ni, nj, ni - 1, nj - 1, 0, 0};
    std::vector<double> x, y, z;
    grid_plane(0, x, y, z);
    for (int j = 0, n = 0; j <= jmax; ++j)
      for (int i = 0; i <= imax; ++i, ++n) z[static_cast<std::size_t>(n)] = elev(i, j);
    ok = cg_base_write(fn, "Bed", 2, 3, &B) == CG_OK && cg_goto(fn, B, "end") == CG_OK &&
         cg_dataclass_write(CGNS_ENUMV(NormalizedByUnknownDimensional)) == CG_OK &&
         cg_zone_write(fn, B, "Zone1", size, CGNS_ENUMV(Structured), &Z) == CG_OK &&
         cg_coord_write(fn, B, Z, CGNS_ENUMV(RealDouble), "CoordinateX", x.data(), &G) == CG_OK &&
         cg_coord_write(fn, B, Z, CGNS_ENUMV(RealDouble), "CoordinateY", y.data(), &G) == CG_OK &&
         cg_coord_write(fn, B, Z, CGNS_ENUMV(RealDouble), "CoordinateZ", z.data(), &G) == CG_OK &&
         cg_sol_write(fn, B, Z, "BedStatistics", CGNS_ENUMV(Vertex), &sol) == CG_OK;
    for (std::size_t m = 0; m < nb && ok; ++m) {
      plan_nodes(columns[m], buf);
      ok = cg_field_write(fn, B, Z, sol, CGNS_ENUMV(RealDouble), bedfields[m].first, buf.data(), &fld) == CG_OK;
    }
    ok = ok && series(B, Z, "BedStatistics");
  }
  if (!first) return;
  if (fn) ok = cg_close(fn) == CG_OK && ok;
  if (!put_in_place(part, name, ok))
    std::fprintf(stderr, "riverles: warning: cannot write the statistics file %s; the run goes on\n", name.c_str());
}

}  // namespace

void WRITESTATS(const std::string& outpath, const std::string& outfile) {
  write_statistics(outpath, outfile, trunc_i32(simtime / S.interval));
}

void write_final_statistics(const std::string& outpath, const std::string& outfile) {
  const std::int32_t n = trunc_i32(simtime / S.interval);
  write_statistics(outpath, outfile, n == INT32_MIN ? n : n + 1);
}

void SAVESTATS(const std::string& outpath, const std::string& outfile) {
  if (!S.on) return;
  // The same file whatever the number of processes: the first writes it,
  // every array a plane k at a time from the processes' parts.
  const bool first = first_process();
  const std::string name = restart_name_of(strip_blanks(outpath) + "/" + strip_blanks(outfile) + ".dat");
  const std::string part = name + ".part";
  std::FILE* f = first ? std::fopen(part.c_str(), "wb") : nullptr;
  bool ok = f != nullptr;
  if (ok) {
    const int dims[3] = {imax, jmax, kmax};
    ok = std::fwrite(kMagic, 1, 8, f) == 8 && std::fwrite(dims, sizeof dims, 1, f) == 1 &&
         std::fwrite(&S.count, sizeof S.count, 1, f) == 1 && std::fwrite(&S.first, sizeof S.first, 1, f) == 1 &&
         std::fwrite(&S.weight, sizeof S.weight, 1, f) == 1 && std::fwrite(&S.force, sizeof S.force, 1, f) == 1;
  }
  std::vector<double> plane;
  for (Array3<double>* a : arrays3())
    write_planes(
        owned_plane(0), Box{0, imax + 1, 0, jmax + 1}, 0, kmax + 1, 1, 1,
        [&](const Box& b, std::vector<double>& mine) { pack_box({a}, b, mine); },
        [&](int, int, const std::vector<double>& p) {
          ok = ok && std::fwrite(p.data(), sizeof(double), p.size(), f) == p.size();
        });
  for (Array2<double>* a : arrays2()) {
    gather_columns(*a, plane);
    ok = ok && std::fwrite(plane.data(), sizeof(double), plane.size(), f) == plane.size();
  }
  // The save it belongs to: the saved state's step and time.
  const int step = nstep;
  const double time = simtime;
  ok = ok && std::fwrite(&step, sizeof step, 1, f) == 1 && std::fwrite(&time, sizeof time, 1, f) == 1;
  if (!first) return;
  if (f) ok = std::fclose(f) == 0 && ok;
  if (!put_in_place(part, name, ok)) std::fprintf(stderr, "riverles: warning: cannot write %s\n", name.c_str());
}

}  // namespace rl
