#include "results/monitors.hpp"

#include <omp.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "common/console.hpp"
#include "common/distributed.hpp"
#include "common/files.hpp"
#include "driver/conditions.hpp"
#include "driver/fields.hpp"
#include "flow/forces.hpp"
#include "flow/openreach.hpp"
#include "common/parallel.hpp"

namespace rl {

namespace {

// A probe's sample of a staggered field: the indices of the low corner of
// the eight surrounding positions and the weights of the high side.
struct ProbeSample {
  int i = 0, j = 0, k = 0;
  double ti = 0, tj = 0, tk = 0;
};

// Where (x, y, z) falls among the positions of a field that lies on x nodes
// (or cell centres) and likewise in y and z; false outside the box.
bool probe_sample(double x, double y, double z, bool xnode, bool ynode, bool znode, ProbeSample& s) {
  if (!(x >= xmin && x <= xmax && y >= ymin && y <= ymax && z >= zmin && z <= zmax)) return false;
  // Fractional index among the positions: nodes n at origin + n*h (n = 0..count),
  // cell centres n at origin + (n - 0.5)*h (n = 0..count+1, ghosts included).
  auto place = [](double c, double origin, double h, int count, bool node, int& n, double& t) {
    const double f = (c - origin) / h + (node ? 0.0 : 0.5);
    const int last = node ? count - 1 : count;
    int n0 = static_cast<int>(std::floor(f));
    n0 = n0 < 0 ? 0 : n0 > last ? last : n0;
    n = n0;
    t = f - n0;
  };
  place(x, xmin, dx, imax, xnode, s.i, s.ti);
  place(y, ymin, dy, jmax, ynode, s.j, s.tj);
  place(z, zmin, dz, kmax, znode, s.k, s.tk);
  return true;
}

struct Probe {
  double x, y, z;
  ProbeSample su, sv, sw, sp;
};

struct Monitors {
  bool log = false, stop_nonfinite = false, progress = false;
  // StopFailedItm: runs that have failed stop (the step collapsed, velocities
  // beyond any river's, no flow); the largest step so far and the steps in
  // a row without flow.
  bool stop_failed = false;
  double dt_peak = 0.0;
  int dry_steps = 0;
  double velocity_limit = 10.0;
  double bulk = 0.0;  // bulk velocity: discharge over the wet area of the inflow plane
  std::FILE* logfile = nullptr;
  std::FILE* probefile = nullptr;
  std::vector<Probe> probes;
  bool warned_nonfinite = false, warned_cfl = false, warned_velocity = false;
  bool warned_log = false, warned_probes = false;
  double last_wall = 0.0;       // wall clock at the end of the previous step
  double start_wall = 0.0, start_time = 0.0, last_progress = -1.0;
  int start_step = 0;
  bool progress_shown = false;
};

Monitors mon;

// Over several processes every one takes the same decisions (the scan is
// combined over all), and the first one reports them and writes the files.

// A stop of our own: the reason on standard error, the operator's wait,
// exit status 1.
[[noreturn]] void stop_with(const std::string& why) {
  // A stop that one process alone sees (a probe file missing on its node)
  // reaches the console too, marked with the process.
  if (first_process())
    std::fprintf(stderr, "riverles: %s\n", why.c_str());
  else
    std::fprintf(stderr, "riverles (process %d): %s\n", dist_rank(), why.c_str());
  std::fflush(stderr);
  wait_operator();
  throw RunStopped{1};
}

// A log that a run continues from an older saved state holds the steps that
// the earlier run made after that state: they are cut, so that the steps
// run again are not in it twice and its time does not run backwards.
void cut_log_after(const std::string& name, int step) {
  std::ifstream in(name);
  if (!in) return;
  std::string header, line, kept;
  if (!std::getline(in, header)) return;
  kept = header + "\n";
  int dropped = 0;
  while (std::getline(in, line)) {
    // The first column is the step; a line without one (a torn last line)
    // goes too.
    char* end = nullptr;
    const long n = std::strtol(line.c_str(), &end, 10);
    if (end != line.c_str() && *end == ',' && n <= step)
      kept += line + "\n";
    else
      ++dropped;
  }
  in.close();
  if (dropped == 0) return;
  const std::string part = name + ".part";
  bool ok;
  {
    std::ofstream out(part, std::ios::trunc);
    out << kept;
    ok = static_cast<bool>(out.flush());
  }
  if (!put_in_place(part, name, ok))
    stop_with("cannot rewrite \"" + name + "\" to cut it at step " + std::to_string(step));
  std::fprintf(stderr, "riverles: %s: cut %d line(s) after step %d, the step this run continues from\n",
               name.c_str(), dropped, step);
}

std::FILE* open_csv(const std::string& name, bool append, const char* header) {
  if (append) cut_log_after(name, nstep);
  const bool fresh = !append || std::ifstream(name).peek() == std::ifstream::traits_type::eof();
  std::FILE* f = std::fopen(name.c_str(), append ? "a" : "w");
  if (!f) stop_with("cannot open \"" + name + "\" for writing");
  if (fresh) std::fprintf(f, "%s\n", header);
  std::fflush(f);
  return f;
}

std::vector<Probe> read_probes(const std::string& name) {
  std::ifstream in(name);
  if (!in) stop_with("cannot open the probe file \"" + name + "\" (ProbeFileItm)");
  std::vector<Probe> probes;
  std::string line;
  for (int ln = 1; std::getline(in, line); ++ln) {
    const std::size_t hash = line.find('#');
    if (hash != std::string::npos) line.resize(hash);
    std::istringstream ss(line);
    Probe q{};
    std::string rest;
    if (!(ss >> q.x)) {
      if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
      stop_with(name + ":" + std::to_string(ln) + ": a probe is three numbers \"x y z\"");
    }
    if (!(ss >> q.y >> q.z) || (ss >> rest))
      stop_with(name + ":" + std::to_string(ln) + ": a probe is three numbers \"x y z\"");
    if (!probe_sample(q.x, q.y, q.z, true, false, false, q.su) ||
        !probe_sample(q.x, q.y, q.z, false, true, false, q.sv) ||
        !probe_sample(q.x, q.y, q.z, false, false, true, q.sw) ||
        !probe_sample(q.x, q.y, q.z, false, false, false, q.sp))
      stop_with(name + ":" + std::to_string(ln) + ": the probe lies outside the box");
    probes.push_back(q);
  }
  return probes;
}

double sample(const Array3<double>& a, const ProbeSample& s) {
  const double wi[2] = {1.0 - s.ti, s.ti}, wj[2] = {1.0 - s.tj, s.tj}, wk[2] = {1.0 - s.tk, s.tk};
  double sum = 0.0;
  for (int c = 0; c < 2; ++c)
    for (int b = 0; b < 2; ++b)
      for (int d = 0; d < 2; ++d) sum += wi[d] * wj[b] * wk[c] * a(s.i + d, s.j + b, s.k + c);
  return sum;
}

// One pass over the cells: the largest velocity components and CFL number,
// the first non-finite value.  Positions are (i, j, k); ties and the first
// non-finite value go to the lowest position in storage order, so that the
// result does not depend on the number of threads.
struct Scan {
  double umax = 0, vmax = 0, wmax = 0, cfl = 0, vel = 0;
  std::int64_t cfl_at = -1, vel_at = -1, bad_at = -1;
  char bad = ' ', velc = ' ';
};

std::int64_t flat(int i, int j, int k) {
  return (static_cast<std::int64_t>(k) * (jmax + 2) + j) * (imax + 2) + i;
}
void unflat(std::int64_t n, int& i, int& j, int& k) {
  i = static_cast<int>(n % (imax + 2));
  j = static_cast<int>(n / (imax + 2) % (jmax + 2));
  k = static_cast<int>(n / (static_cast<std::int64_t>(imax + 2) * (jmax + 2)));
}

// Keeps the larger value, or at equal values the lower position; true when
// it took the new one.
bool keep(double value, std::int64_t at, double& best, std::int64_t& best_at) {
  if (!(value > best || (value == best && at < best_at))) return false;
  best = value;
  best_at = at;
  return true;
}

// Adds one thread's (or process's) scan to the whole one.
void merge(Scan& all, const Scan& my) {
  all.umax = my.umax > all.umax ? my.umax : all.umax;
  all.vmax = my.vmax > all.vmax ? my.vmax : all.vmax;
  all.wmax = my.wmax > all.wmax ? my.wmax : all.wmax;
  keep(my.cfl, my.cfl_at, all.cfl, all.cfl_at);
  if (keep(my.vel, my.vel_at, all.vel, all.vel_at)) all.velc = my.velc;
  if (my.bad_at >= 0 && (all.bad_at < 0 || my.bad_at < all.bad_at)) {
    all.bad_at = my.bad_at;
    all.bad = my.bad;
  }
}

// The scans of all processes combined, in rank order (positions are global,
// so ties go to the lowest position as with one process).
void merge_processes(Scan& all) {
  if (dist_size() < 2) return;
  const double mine[10] = {all.umax,
                           all.vmax,
                           all.wmax,
                           all.cfl,
                           all.vel,
                           static_cast<double>(all.cfl_at),
                           static_cast<double>(all.vel_at),
                           static_cast<double>(all.bad_at),
                           static_cast<double>(all.bad),
                           static_cast<double>(all.velc)};
  std::vector<double> every;
  dist_allgather(mine, 10, every);
  all = Scan();
  for (std::size_t r = 0; r < every.size(); r += 10) {
    const double* e = &every[r];
    Scan my;
    my.umax = e[0];
    my.vmax = e[1];
    my.wmax = e[2];
    my.cfl = e[3];
    my.vel = e[4];
    my.cfl_at = static_cast<std::int64_t>(e[5]);
    my.vel_at = static_cast<std::int64_t>(e[6]);
    my.bad_at = static_cast<std::int64_t>(e[7]);
    my.bad = static_cast<char>(e[8]);
    my.velc = static_cast<char>(e[9]);
    merge(all, my);
  }
}

Scan scan() {
  Scan all;
  const int i0 = own_lo_i(1), i1 = own_hi_i(imax), j0 = own_lo_j(1), j1 = own_hi_j(jmax), K = kmax;
  const double rx = dt / dx, ry = dt / dy, rz = dt / dz;
#pragma omp parallel default(shared) if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
    Scan my;
#pragma omp for schedule(static)
    for (int k = 1; k <= K; ++k)
      for (int j = j0; j <= j1; ++j)
        for (int i = i0; i <= i1; ++i) {
          const double uu = u(i, j, k), vv = v(i, j, k), ww = w(i, j, k), pp = p(i, j, k);
          const std::int64_t at = flat(i, j, k);
          if (my.bad_at < 0 && !(std::isfinite(uu) && std::isfinite(vv) && std::isfinite(ww) && std::isfinite(pp))) {
            my.bad_at = at;
            my.bad = !std::isfinite(uu) ? 'u' : !std::isfinite(vv) ? 'v' : !std::isfinite(ww) ? 'w' : 'p';
          }
          const double au = std::fabs(uu), av = std::fabs(vv), aw = std::fabs(ww);
          my.umax = au > my.umax ? au : my.umax;
          my.vmax = av > my.vmax ? av : my.vmax;
          my.wmax = aw > my.wmax ? aw : my.wmax;
          const double big = au > av ? (au > aw ? au : aw) : (av > aw ? av : aw);
          if (keep(big, at, my.vel, my.vel_at)) my.velc = au >= av && au >= aw ? 'u' : av >= aw ? 'v' : 'w';
          const double au1 = std::fabs(u(i - 1, j, k)), av1 = std::fabs(v(i, j - 1, k)), aw1 = std::fabs(w(i, j, k - 1));
          const double c = (au > au1 ? au : au1) * rx + (av > av1 ? av : av1) * ry + (aw > aw1 ? aw : aw1) * rz;
          keep(c, at, my.cfl, my.cfl_at);
        }
#pragma omp critical(rl_monitor_scan)
    merge(all, my);
  }
  merge_processes(all);
  // The largest values skip non-finite ones: where there are any, none is meaningful.
  if (all.bad_at >= 0) all.umax = all.vmax = all.wmax = all.cfl = std::nan("");
  return all;
}

std::string where(std::int64_t at) {
  int i, j, k;
  unflat(at, i, j, k);
  return "(i, j, k) = (" + std::to_string(i) + ", " + std::to_string(j) + ", " + std::to_string(k) + ")";
}

// Flushes a log line; a line that did not reach the file (a full disk, the
// folder gone) is said once on standard error, and the run goes on.
void log_written(std::FILE* f, const char* what, bool& warned) {
  const bool ok = std::fflush(f) == 0 && !std::ferror(f);
  if (!ok && !warned) {
    warned = true;
    std::fprintf(stderr, "riverles: warning: the %s stops at step %d: %s; the run goes on\n", what, nstep,
                 std::strerror(errno));
  }
}

void health(const Scan& s) {
  if (s.bad_at >= 0 && !mon.warned_nonfinite) {
    mon.warned_nonfinite = true;
    const std::string what = std::string("non-finite ") + s.bad + " at step " + std::to_string(nstep) + ", first at " +
                             where(s.bad_at);
    if (mon.stop_nonfinite) {
      MONITOREND();
      stop_with(what + "; the run stops (StopNonFiniteItm 1). Look at the monitor log: a growing CFL number or "
                       "velocity before this step points at too large a time step or too coarse a grid.");
    }
    if (first_process()) std::fprintf(stderr, "riverles: warning: %s\n", what.c_str());
  }
  if (s.cfl > 1.0 && !mon.warned_cfl) {
    mon.warned_cfl = true;
    if (first_process())
      std::fprintf(stderr, "riverles: warning: CFL number %.3g above 1 at step %d, largest at %s\n", s.cfl, nstep,
                   where(s.cfl_at).c_str());
  }
  if (mon.bulk > 0.0 && s.vel > mon.velocity_limit * mon.bulk && !mon.warned_velocity) {
    mon.warned_velocity = true;
    if (first_process())
      std::fprintf(stderr,
                   "riverles: warning: |%c| = %.4g is more than %g times the bulk velocity %.4g at step %d, at %s\n",
                   s.velc, s.vel, mon.velocity_limit, mon.bulk, nstep, where(s.vel_at).c_str());
  }
}

// The likely causes of a run that has failed, for its stop message.
const char* kFailedCauses =
    "Likely causes: units (a bed or box in millimetres or feet, a discharge in litres per second: the case wants "
    "metres and m3/s), a discharge far from what the section carries, the lid (zmaxItm) below the bed, or a grid "
    "too coarse for the channel. The results written so far stay; StopFailedItm 0 lets such a run go on.";

void failed(const std::string& what) {
  MONITOREND();
  stop_with(what + "; the run stops (StopFailedItm 1). " + kFailedCauses);
}

// The checks of StopFailedItm, once a step: velocities beyond any physical
// bound, the time step fallen by three orders of magnitude from the largest
// of the run once the flow moves, and no flow through the inflow plane for 200 steps in a row.
void failure_checks(const Scan& s, double q) {
  constexpr double kVelocityBound = 100.0;  // m/s: no river flows at a tenth of it
  if (s.vel > kVelocityBound) {
    char b[160];
    std::snprintf(b, sizeof b, "|%c| = %.3g m/s at step %d, at %s: beyond any river flow", s.velc, s.vel, nstep,
                  where(s.vel_at).c_str());
    failed(b);
  }
  // The reference step is taken only once the flow moves (a tenth of the
  // bulk velocity): a start from rest has long steps that mean nothing.
  if (s.vel >= 0.1 * mon.bulk) mon.dt_peak = std::max(mon.dt_peak, dt);
  if (dt > 0.0 && dt < 1e-3 * mon.dt_peak) {
    char b[160];
    std::snprintf(b, sizeof b, "the time step has collapsed to %.3g s at step %d, from %.3g s earlier in the run",
                  dt, nstep, mon.dt_peak);
    failed(b);
  }
  mon.dry_steps = std::fabs(q) < 0.01 * std::fabs(discharge) ? mon.dry_steps + 1 : 0;
  if (mon.dry_steps >= 200) {
    char b[200];
    std::snprintf(b, sizeof b,
                  "no flow: the discharge through the inflow plane has stayed below 1 %% of the target %.4g m3/s for "
                  "%d steps (now %.4g, the driving force %.4g m/s2)",
                  discharge, mon.dry_steps, q, forcex);
    failed(b);
  }
}

void progress() {
  const double now = omp_get_wtime();
  if (now - mon.last_progress < 0.5 && simtime < endtime) return;
  mon.last_progress = now;
  const double spent = now - mon.start_wall, done = simtime - mon.start_time;
  const double total = endtime - mon.start_time;
  const double pct = total > 0.0 ? 100.0 * done / total : 100.0;
  const double rate = spent > 0.0 ? (nstep - mon.start_step) / spent : 0.0;
  char left[32] = "?";
  if (done > 0.0 && spent > 0.0 && endtime > simtime) {
    const long s = std::lround((endtime - simtime) * spent / done);
    std::snprintf(left, sizeof left, "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
  } else if (endtime <= simtime) {
    std::snprintf(left, sizeof left, "0:00:00");
  }
  std::fprintf(stderr, "\rriverles: t = %.6g of %.6g (%.1f %%), %.3g steps/s, %s left   ", simtime, endtime, pct, rate,
               left);
  std::fflush(stderr);
  mon.progress_shown = true;
}

}  // namespace


void MONITORSTART(const std::string& outpath, const std::string& outfile, bool continuing) {
  mon = Monitors();
  mon.log = optional_integer("MonitorItm", 0) == 1;
  mon.velocity_limit = optional_real("VelocityLimitItm", 10.0);
  mon.stop_nonfinite = optional_integer("StopNonFiniteItm", 0) == 1;
  mon.progress = optional_integer("ProgressItm", 0) == 1 && ::isatty(STDERR_FILENO) && first_process();
  const std::string probefile = optional_string("ProbeFileItm", "");
  const std::string dir = strip_blanks(outpath), stem = strip_blanks(outfile);
  const std::string base = (dir.empty() ? std::string(".") : dir) + "/" + stem;
  if ((mon.log || !probefile.empty()) && first_process()) make_output_folder(outpath);
  mon.stop_failed = optional_integer("StopFailedItm", 0) == 1;
  if (mon.log || mon.stop_failed) {
    const double area = INFLOW(nullptr);
    mon.bulk = area > 0.0 ? std::fabs(discharge) / area : 0.0;
    if (mon.stop_failed && discharge != 0.0 && !(area > 0.0)) {
      stop_with("the inflow plane (i = 0) holds no water: the flow cannot be driven and the discharge stays 0; the "
                "run stops (StopFailedItm 1). The lid (zmaxItm) may lie below the bed there, or the grid be too "
                "coarse to hold the channel. The first result is written.");
    }
    constexpr double kBulkBound = 20.0;  // m/s
    if (mon.stop_failed && mon.bulk > kBulkBound) {
      char b[400];
      std::snprintf(b, sizeof b,
                    "the discharge %.4g m3/s over the wet inflow section of %.4g m2 is a bulk velocity of %.4g m/s: "
                    "no river flows so; the run stops (StopFailedItm 1). A discharge in litres per second (divide "
                    "by 1000), or a box or bed in millimetres? The first result is written.",
                    discharge, area, mon.bulk);
      stop_with(b);
    }
  }
  if (mon.log) {
    if (first_process())
      mon.logfile = open_csv(base + "_monitor.csv", continuing,
                             open_reach() ? "step,time,dt,discharge,discharge_target,force_x,slope,max_u,max_v,max_w,"
                                            "max_cfl,max_divergence,poisson_cycles,wall_seconds,discharge_outlet"
                                          : "step,time,dt,discharge,discharge_target,force_x,slope,max_u,max_v,max_w,"
                                            "max_cfl,max_divergence,poisson_cycles,wall_seconds");
  }
  if (!probefile.empty()) {
    mon.probes = read_probes(probefile);
    std::string header = "step,time";
    for (std::size_t n = 1; n <= mon.probes.size(); ++n) {
      const std::string t = std::to_string(n);
      header += ",u" + t + ",v" + t + ",w" + t + ",p" + t;
    }
    if (first_process()) mon.probefile = open_csv(base + "_probes.csv", continuing, header.c_str());
  }
  mon.last_wall = mon.start_wall = omp_get_wtime();
  mon.start_time = simtime;
  mon.start_step = nstep;
}

void MONITOR(int npoisson) {
  const double now = omp_get_wtime();
  const double wall = now - mon.last_wall;
  mon.last_wall = now;
  if (mon.log || mon.stop_nonfinite || mon.stop_failed) {
    const Scan s = scan();
    // Over several processes every one takes part.
    const double q = mon.log || mon.stop_failed ? INFLOW(&u) : 0.0;
    // An open reach's outlet, measured as the inlet is.
    const double qout = mon.log && open_reach() ? outlet_discharge() : 0.0;
    if (mon.logfile) {
      // The slope whose gravity would drive the flow as the controller does:
      // what an engineer sets against a surveyed water-surface slope.
      const double slope = forcex / gravity;
      std::fprintf(mon.logfile, "%d,%.10g,%.10g,%.10g,%.10g,%.10g,%.10g,%.10g,%.10g,%.10g,%.10g,%.10g,%d,%.6f",
                   nstep, simtime, dt, q, discharge, forcex, slope, s.umax, s.vmax, s.wmax, s.cfl, divmax, npoisson,
                   wall);
      if (open_reach()) std::fprintf(mon.logfile, ",%.10g", qout);
      std::fputc('\n', mon.logfile);
      log_written(mon.logfile, "monitor log", mon.warned_log);
    }
    health(s);
    if (mon.stop_failed) failure_checks(s, q);
  }
  if (!mon.probes.empty()) {
    // Each probe is sampled by the process that owns the low corner of its
    // stencils (it holds the high one in its halo); the first process
    // writes the values of every probe's owner.
    const std::size_t n = mon.probes.size();
    std::vector<double> mine(4 * n, 0.0), every;
    halo_read(&p, "p", 1, "MONITOR");  // the step brings it (probes_sampled)
    // The four samples of a probe: the field and where it is sampled.
    auto samples = [](const Probe& q) {
      return std::array<std::pair<const Array3<double>*, const ProbeSample*>, 4>{
          {{&u, &q.su}, {&v, &q.sv}, {&w, &q.sw}, {&p, &q.sp}}};
    };
    for (std::size_t m = 0; m < n; ++m)
      for (std::size_t c = 0; c < 4; ++c) {
        const auto [a, at] = samples(mon.probes[m])[c];
        if (owner_of(at->i, at->j) == dist_rank()) mine[4 * m + c] = sample(*a, *at);
      }
    dist_allgather(mine.data(), static_cast<int>(mine.size()), every);
    if (mon.probefile) {
      std::fprintf(mon.probefile, "%d,%.10g", nstep, simtime);
      for (std::size_t m = 0; m < n; ++m)
        for (std::size_t c = 0; c < 4; ++c) {
          const ProbeSample* at = samples(mon.probes[m])[c].second;
          const std::size_t owner = static_cast<std::size_t>(owner_of(at->i, at->j));
          std::fprintf(mon.probefile, ",%.10g", every[4 * n * owner + 4 * m + c]);
        }
      std::fprintf(mon.probefile, "\n");
      log_written(mon.probefile, "probe log", mon.warned_probes);
    }
  }
  if (mon.progress) progress();
}

bool probes_sampled() { return !mon.probes.empty(); }

void MONITOREND() {
  if (mon.logfile) std::fclose(mon.logfile);
  if (mon.probefile) std::fclose(mon.probefile);
  mon.logfile = mon.probefile = nullptr;
  if (mon.progress_shown) std::fprintf(stderr, "\n");
  mon.progress_shown = false;
}

}  // namespace rl
