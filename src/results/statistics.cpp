#include "results/statistics.hpp"

#include <cgnslib.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "common/files.hpp"
#include "driver/conditions.hpp"
#include "driver/fields.hpp"
#include "driver/mainprogram.hpp"
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
  double first = 0.0;  // time of the first sample
  // Means at the fields' own positions.
  Array3<double> mu, mv, mw, mp, mn;
  // Sums of squared deviations of u, v, w at their faces.
  Array3<double> suu, svv, sww;
  // Means of the velocities interpolated to the cell centres, and their co-moments.
  Array3<double> cu, cv, cw, suv, suw, svw;
  // The bed, per column: instantaneous and mean friction velocity and shear stress.
  Array2<double> ustar, tau, mustar, mtau;
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
std::vector<Array2<double>*> arrays2() { return {&S.ustar, &S.tau, &S.mustar, &S.mtau}; }

inline void welford(double x, double& mean, double& m2, double r) {
  const double d = x - mean;
  mean += d * r;
  m2 += d * (x - mean);
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

void nodes_of(const Output& o, std::vector<double>& out) {
  const double scale = o.deviations ? 1.0 / static_cast<double>(S.count) : 1.0;
  out.resize(static_cast<std::size_t>(imax + 1) * (jmax + 1) * (kmax + 1));
  std::size_t n = 0;
  for (int k = 0; k <= kmax; ++k)
    for (int j = 0; j <= jmax; ++j)
      for (int i = 0; i <= imax; ++i, ++n)
        out[n] = o.blank && elev(i, j) >= zg3(i, j, k) ? 0.0 : node_value(*o.a, o.at, i, j, k) * scale;
}

// A column value at plan node (i, j): the mean of the columns around it
// (those inside the plan).
void plan_nodes(const Array2<double>& c, std::vector<double>& out) {
  out.resize(static_cast<std::size_t>(imax + 1) * (jmax + 1));
  std::size_t n = 0;
  for (int j = 0; j <= jmax; ++j)
    for (int i = 0; i <= imax; ++i, ++n) {
      double sum = 0.0;
      int m = 0;
      for (int b = j; b <= j + 1; ++b)
        for (int a = i; a <= i + 1; ++a)
          if (a >= 1 && a <= imax && b >= 1 && b <= jmax) {
            sum += c(a, b);
            ++m;
          }
      out[n] = sum / m;
    }
}

std::string restart_name_of(const std::string& startfile) {
  const std::string s = strip_blanks(startfile);
  return (s.size() > 4 && s.ends_with(".dat") ? s.substr(0, s.size() - 4) : s) + ".stats";
}

constexpr char kMagic[8] = {'R', 'L', 'S', 'T', 'A', 'T', 'S', '1'};

// Reads the accumulators kept beside a saved state; false (nothing changed)
// when there are none or they do not fit this grid.
bool load(const std::string& name) {
  std::FILE* f = std::fopen(name.c_str(), "rb");
  if (!f) return false;
  char magic[8];
  int dims[3];
  long long count;
  double first;
  bool ok = std::fread(magic, 1, 8, f) == 8 && std::memcmp(magic, kMagic, 8) == 0 &&
            std::fread(dims, sizeof dims, 1, f) == 1 && dims[0] == imax && dims[1] == jmax && dims[2] == kmax &&
            std::fread(&count, sizeof count, 1, f) == 1 && std::fread(&first, sizeof first, 1, f) == 1 && count >= 0;
  for (Array3<double>* a : arrays3())
    ok = ok && std::fread(a->data(), sizeof(double), static_cast<std::size_t>(a->size()), f) ==
                   static_cast<std::size_t>(a->size());
  for (Array2<double>* a : arrays2())
    ok = ok && std::fread(a->data(), sizeof(double), static_cast<std::size_t>(a->size()), f) ==
                   static_cast<std::size_t>(a->size());
  ok = ok && std::fgetc(f) == EOF;
  std::fclose(f);
  if (!ok) {
    for (Array3<double>* a : arrays3()) a->fill(0.0);
    for (Array2<double>* a : arrays2()) a->fill(0.0);
    std::fprintf(stderr, "riverles: warning: %s does not fit this case; the statistics start anew\n", name.c_str());
    return false;
  }
  S.count = count;
  S.first = first;
  std::fprintf(stderr, "riverles: statistics continue from %s (%lld samples since t = %.10g)\n", name.c_str(), count,
               first);
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
    if (!a->allocate("statistics", 0, I + 1, 0, J + 1, 0, K + 1)) ERRORSTOP(2);
  for (Array2<double>* a : arrays2())
    if (!a->allocate("bed statistics", 0, I + 1, 0, J + 1)) ERRORSTOP(2);
  if (!strip_blanks(startfile).empty()) load(restart_name_of(startfile));
}

bool statistics_on() { return S.on; }
double statistics_interval() { return S.interval; }
long long statistics_count() { return S.count; }

void statistics_reset(double start) {
  for (Array3<double>* a : arrays3()) a->fill(0.0);
  for (Array2<double>* a : arrays2()) a->fill(0.0);
  S.on = true;
  S.start = start;
  S.count = 0;
}

void STATISTICS() {
  if (!S.on || simtime < S.start) return;
  S.count += 1;
  if (S.count == 1) S.first = simtime;
  const double r = 1.0 / static_cast<double>(S.count);
  const int I = imax, J = jmax, K = kmax;

#pragma omp parallel for default(shared) schedule(static) if (worth_sharing(cells_of(imax, jmax, kmax)))
  for (int k = 0; k <= K + 1; ++k)
    for (int j = 0; j <= J + 1; ++j) {
      const double *ur = u.at(0, j, k), *vr = v.at(0, j, k), *vs = v.at(0, j - 1, k);
      const double *wr = w.at(0, j, k), *wb = w.at(0, j, k - 1), *pr = p.at(0, j, k), *nr = nut.at(0, j, k);
      double *mu = S.mu.at(0, j, k), *mv = S.mv.at(0, j, k), *mw = S.mw.at(0, j, k);
      double *mp = S.mp.at(0, j, k), *mn = S.mn.at(0, j, k);
      double *suu = S.suu.at(0, j, k), *svv = S.svv.at(0, j, k), *sww = S.sww.at(0, j, k);
      double *cu = S.cu.at(0, j, k), *cv = S.cv.at(0, j, k), *cw = S.cw.at(0, j, k);
      double *suv = S.suv.at(0, j, k), *suw = S.suw.at(0, j, k), *svw = S.svw.at(0, j, k);
      // Every position on its own (no array overlaps another): one lane each.
#pragma omp simd
      for (int i = 0; i <= I + 1; ++i) {
        welford(ur[i], mu[i], suu[i], r);
        welford(vr[i], mv[i], svv[i], r);
        welford(wr[i], mw[i], sww[i], r);
        mp[i] += (pr[i] - mp[i]) * r;
        mn[i] += (nr[i] - mn[i]) * r;
        // Co-moments at the centre: each deviation from the old mean of one
        // velocity times the deviation from the new mean of the other.
        const double uc = 0.5 * (ur[i - 1] + ur[i]), vc = 0.5 * (vs[i] + vr[i]), wc = 0.5 * (wb[i] + wr[i]);
        const double du = uc - cu[i], dv = vc - cv[i], dw = wc - cw[i];
        cu[i] += du * r;
        cv[i] += dv * r;
        cw[i] += dw * r;
        suv[i] += du * (vc - cv[i]);
        suw[i] += du * (wc - cw[i]);
        svw[i] += dv * (wc - cw[i]);
      }
    }

  BEDFRICTION(S.ustar);
  for (int j = 1; j <= J; ++j)
    for (int i = 1; i <= I; ++i) {
      const double us = S.ustar(i, j);
      S.tau(i, j) = dens * us * us;
      S.mustar(i, j) += (us - S.mustar(i, j)) * r;
      S.mtau(i, j) += (S.tau(i, j) - S.mtau(i, j)) * r;
    }
}

void statistics_nodes(const std::string& name, double* out) {
  std::vector<double> v;
  for (const Output& o : outputs())
    if (name == o.name) {
      nodes_of(o, v);
      std::copy(v.begin(), v.end(), out);
    }
}

void WRITESTATS(const std::string& outpath, const std::string& outfile) {
  if (!S.on || S.count == 0) return;
  char number[32];
  std::snprintf(number, sizeof number, "_stats_%06d", trunc_i32(simtime / S.interval));
  const std::string name = strip_blanks(outpath) + "/" + strip_blanks(outfile) + number + ".cgns";
  const std::string part = name + ".part";
  const int ni = imax + 1, nj = jmax + 1, nk = kmax + 1;
  int fn = 0, B = 0, Z = 0, G = 0, sol = 0, fld = 0;
  bool ok = cg_open(part.c_str(), CG_MODE_WRITE, &fn) == CG_OK;
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
  std::vector<double> buf;
  if (ok) {
    const cgsize_t size[9] = {ni, nj, nk, ni - 1, nj - 1, nk - 1, 0, 0, 0};
    ok = cg_base_write(fn, "Statistics", 3, 3, &B) == CG_OK && cg_goto(fn, B, "end") == CG_OK &&
         cg_dataclass_write(CGNS_ENUMV(NormalizedByUnknownDimensional)) == CG_OK &&
         cg_zone_write(fn, B, "Zone1", size, CGNS_ENUMV(Structured), &Z) == CG_OK &&
         cg_coord_write(fn, B, Z, CGNS_ENUMV(RealDouble), "CoordinateX", xg3.data(), &G) == CG_OK &&
         cg_coord_write(fn, B, Z, CGNS_ENUMV(RealDouble), "CoordinateY", yg3.data(), &G) == CG_OK &&
         cg_coord_write(fn, B, Z, CGNS_ENUMV(RealDouble), "CoordinateZ", zg3.data(), &G) == CG_OK &&
         cg_sol_write(fn, B, Z, "Statistics", CGNS_ENUMV(Vertex), &sol) == CG_OK;
    for (const Output& o : outputs()) {
      if (!ok) break;
      nodes_of(o, buf);
      ok = cg_field_write(fn, B, Z, sol, CGNS_ENUMV(RealDouble), o.name, buf.data(), &fld) == CG_OK;
    }
    char text[160];
    std::snprintf(text, sizeof text, "%lld samples, every step from t = %.10g to t = %.10g", S.count, S.first,
                  simtime);
    ok = ok && series(B, Z, "Statistics") && cg_goto(fn, B, "end") == CG_OK &&
         cg_descriptor_write("Averaging", text) == CG_OK;
  }
  if (ok) {
    // The bed on the plan grid, lifted to its elevation.
    const cgsize_t size[6] = {ni, nj, ni - 1, nj - 1, 0, 0};
    std::vector<double> x(static_cast<std::size_t>(ni) * nj), y(x.size()), z(x.size());
    for (int j = 0, n = 0; j <= jmax; ++j)
      for (int i = 0; i <= imax; ++i, ++n) {
        x[n] = xg3(i, j, 0);
        y[n] = yg3(i, j, 0);
        z[n] = elev(i, j);
      }
    ok = cg_base_write(fn, "Bed", 2, 3, &B) == CG_OK && cg_goto(fn, B, "end") == CG_OK &&
         cg_dataclass_write(CGNS_ENUMV(NormalizedByUnknownDimensional)) == CG_OK &&
         cg_zone_write(fn, B, "Zone1", size, CGNS_ENUMV(Structured), &Z) == CG_OK &&
         cg_coord_write(fn, B, Z, CGNS_ENUMV(RealDouble), "CoordinateX", x.data(), &G) == CG_OK &&
         cg_coord_write(fn, B, Z, CGNS_ENUMV(RealDouble), "CoordinateY", y.data(), &G) == CG_OK &&
         cg_coord_write(fn, B, Z, CGNS_ENUMV(RealDouble), "CoordinateZ", z.data(), &G) == CG_OK &&
         cg_sol_write(fn, B, Z, "BedStatistics", CGNS_ENUMV(Vertex), &sol) == CG_OK;
    const std::pair<const char*, Array2<double>*> bedfields[4] = {{"BedShearStress", &S.tau},
                                                                   {"FrictionVelocity", &S.ustar},
                                                                   {"MeanBedShearStress", &S.mtau},
                                                                   {"MeanFrictionVelocity", &S.mustar}};
    for (const auto& [fname, a] : bedfields) {
      if (!ok) break;
      plan_nodes(*a, buf);
      ok = cg_field_write(fn, B, Z, sol, CGNS_ENUMV(RealDouble), fname, buf.data(), &fld) == CG_OK;
    }
    ok = ok && series(B, Z, "BedStatistics");
  }
  if (fn) ok = cg_close(fn) == CG_OK && ok;
  std::error_code ec;
  if (ok) std::filesystem::rename(part, name, ec);
  if (!ok || ec) {
    std::filesystem::remove(part, ec);
    std::fprintf(stderr, "riverles: warning: cannot write the statistics file %s; the run goes on\n", name.c_str());
  }
}

void SAVESTATS(const std::string& outpath, const std::string& outfile) {
  if (!S.on) return;
  const std::string name = restart_name_of(strip_blanks(outpath) + "/" + strip_blanks(outfile) + ".dat");
  const std::string part = name + ".part";
  std::FILE* f = std::fopen(part.c_str(), "wb");
  bool ok = f != nullptr;
  if (ok) {
    const int dims[3] = {imax, jmax, kmax};
    ok = std::fwrite(kMagic, 1, 8, f) == 8 && std::fwrite(dims, sizeof dims, 1, f) == 1 &&
         std::fwrite(&S.count, sizeof S.count, 1, f) == 1 && std::fwrite(&S.first, sizeof S.first, 1, f) == 1;
    for (Array3<double>* a : arrays3())
      ok = ok && std::fwrite(a->data(), sizeof(double), static_cast<std::size_t>(a->size()), f) ==
                     static_cast<std::size_t>(a->size());
    for (Array2<double>* a : arrays2())
      ok = ok && std::fwrite(a->data(), sizeof(double), static_cast<std::size_t>(a->size()), f) ==
                     static_cast<std::size_t>(a->size());
    ok = std::fclose(f) == 0 && ok;
  }
  std::error_code ec;
  if (ok) std::filesystem::rename(part, name, ec);
  if (!ok || ec) {
    std::filesystem::remove(part, ec);
    std::fprintf(stderr, "riverles: warning: cannot write %s\n", name.c_str());
  }
}

}  // namespace rl
