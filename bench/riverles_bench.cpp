// Timer harness of the solver.
//
// Builds flow states directly in memory (a flat channel and a sine-dune bed
// that cuts through the bottom of the box, each at three sizes), develops
// each by a few real steps, then times real steps with one thread and with
// all threads: every routine of a step through the step timer hook, the time
// step separately, the whole step around both.  Also measures a STREAM-like
// triad as the memory bandwidth of the machine, the bandwidth each grid
// sweep reaches from the bytes it must move at least, and the residual
// reduction of the pressure cycles on the dune states.
//
// Writes two files: the tables in Markdown and the per-routine figures as
// CSV (state,threads,routine,ns_per_cell_step), which a later run reads back
// to print a before/after column.
//
//   riverles_bench OUT.md OUT.csv [BEFORE.csv] [--quick]
//
// The solver's console lines (divergence pauses) go to standard output;
// progress goes to standard error.
#include <omp.h>
#include <xmmintrin.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "driver/conditions.hpp"
#include "driver/domain.hpp"
#include "driver/fields.hpp"
#include "driver/initfields.hpp"
#include "driver/mainprogram.hpp"
#include "flow/forces.hpp"
#include "flow/smagorinsky.hpp"
#include "flow/timestep.hpp"
#include "flow/wall.hpp"
#include "flow/xvelocity.hpp"
#include "flow/yvelocity.hpp"
#include "flow/zvelocity.hpp"
#include "immersed/flagdeter.hpp"
#include "immersed/immerse.hpp"
#include "immersed/immersing.hpp"
#include "pressure/boundary.hpp"
#include "pressure/multigridp.hpp"

namespace {

constexpr double kPi = 3.14159265358979323846;
// Cycles of the residual measurement: enough to see the rate, few enough to
// stay clear of the round-off floor.
constexpr int kResidCycles = 6;
constexpr int kRepeats = 3;  // timed steps per thread count: this many times the state's count

// ---------------------------------------------------------------- states

struct StateSpec {
  std::string name;  // e.g. "flat 64x32x64"
  bool dunes;
  int ni, nj, nk;
  int timed_steps;
};

// Plan cells of 4 mm in x and y; 0.1 of water depth over kmax cells.
constexpr double kCell = 0.004;
constexpr double kBulk = 0.2;  // target mean velocity

// Bed of the dune state: sine dunes along x, 1 cm amplitude about 0.01, a
// whole number of dunes of about 0.25 in the periodic length.  The box
// bottom at 0.005 lies between troughs (0) and crests (0.02).
double dune_length(double lx) { return lx / std::max(1.0, std::round(lx / 0.25)); }

void build_state(const StateSpec& s) {
  using namespace rl;
  imax = s.ni;
  jmax = s.nj;
  kmax = s.nk;
  xmin = 0.0;
  ymin = 0.0;
  xmax = kCell * s.ni;
  ymax = kCell * s.nj;
  zmin = s.dunes ? 0.005 : 0.0;
  zmax = s.dunes ? 0.105 : 0.1;
  dx = (xmax - xmin) / imax;
  dy = (ymax - ymin) / jmax;
  dz = (zmax - zmin) / kmax;

  visc = 1.0e-6;
  dens = 1000.0;
  gravity = 9.81;
  const double depth = s.dunes ? 0.095 : 0.1;
  discharge = kBulk * (ymax - ymin) * depth;
  cfl = 0.3;
  dt = 0.0;
  set_boundary_types(0, 1, 0);  // x periodic, side walls, free-slip top

  LEVELCOUNT();
  ALLOCNODEARRAYS();
  ALLOCFIELDS();

  const double L = dune_length(xmax - xmin);
  for (int j = 0; j <= jmax; ++j)
    for (int i = 0; i <= imax; ++i) {
      const double x = xmin + i * dx;
      elev(i, j) = s.dunes ? 0.01 + 0.01 * std::sin(2.0 * kPi * (x - xmin) / L) : zmin;
    }

  initial = 0;
  iperturb = 0;
  INITFIELDS();
  BUILDBED();
  nstep = 0;
  rl::simtime = 0.0;
  FLAGREUSE(false);
  FLAGDETER();
  // As in the time loop: the bed stands still, so foot points and the
  // classification are kept from step to step.
  FOOTCACHE(true);
  FLAGREUSE(true);
  ibed = 1;
  rough = 1.0;  // grain size 1 mm, in thousandths of the length unit

  smagorinsky = 0.1;
  iibm = 0;
  igamma = 1;  // V cycle
  ipres = 2;
  iposts = 2;
  kpoismax = 20;
  eps = 1.0e-4;

  // Developed flow, synthetic: a log law above the local bed for the mean
  // streamwise velocity (friction velocity giving about kBulk over the depth,
  // roughness length d/30 of the 1 mm grain), zero below the bed, plus
  // uniform noise of +-10 % of the local mean on all three components.
  const double kappa = 0.41, z0 = 0.001 / 30.0;
  const double ustar = kBulk * kappa / (std::log(depth / z0) - 1.0);
  auto mean_u = [&](double height) { return height > z0 ? ustar / kappa * std::log(height / z0) : 0.0; };
  std::mt19937_64 gen(12345);
  std::uniform_real_distribution<double> noise(-0.1, 0.1);
  for (int k = 0; k <= kmax + 1; ++k)
    for (int j = 0; j <= jmax + 1; ++j)
      for (int i = 0; i <= imax + 1; ++i) {
        const double zc = zmin + (k - 0.5) * dz;
        const double hb = zc - bed(i, j);
        const double m = mean_u(hb);
        u(i, j, k) = m * (1.0 + noise(gen));
        v(i, j, k) = m * noise(gen);
        w(i, j, k) = m * noise(gen);
        uo(i, j, k) = u(i, j, k);
        vo(i, j, k) = v(i, j, k);
        wo(i, j, k) = w(i, j, k);
      }
  BOUNDARYU();
  BOUNDARYV();
  BOUNDARYW();
  for (int k = 0; k <= kmax + 1; ++k)
    for (int j = 0; j <= jmax + 1; ++j)
      for (int i = 0; i <= imax + 1; ++i) {
        uo(i, j, k) = u(i, j, k);
        vo(i, j, k) = v(i, j, k);
        wo(i, j, k) = w(i, j, k);
      }
}

// One real step, as the time loop does it (without output).
int real_step() {
  rl::nstep = rl::nstep + 1;
  rl::TIMESTEP();
  rl::simtime = rl::simtime + rl::dt;
  return rl::ADVANCE();
}

// ---------------------------------------------------------------- timing

// A marker line on standard output, where the solver's console lines go, so
// that these can be counted per state and phase.
void mark(const std::string& state, const char* phase) {
  std::printf("#bench %s | %s\n", state.c_str(), phase);
  std::fflush(stdout);
}

// Times of one routine: per timed step the sum over its calls in that step.
struct Acc {
  std::vector<double> per_step;
  int calls = 0;  // over all timed steps
};
std::map<std::string, Acc>* g_acc = nullptr;
int g_step = 0;    // index of the timed step under way
int g_nsteps = 0;  // timed steps of the run

void hook(const char* routine, double seconds) {
  Acc& a = (*g_acc)[routine];
  if (a.per_step.empty()) a.per_step.assign(static_cast<std::size_t>(g_nsteps), 0.0);
  a.per_step[static_cast<std::size_t>(g_step)] += seconds;
  a.calls += 1;
}

// Median of the per-step times: on a shared machine a step now and then
// loses its core, and the median ignores such a step where a mean would not.
double median(std::vector<double> x) {
  if (x.empty()) return 0.0;
  std::sort(x.begin(), x.end());
  const std::size_t n = x.size();
  return n % 2 ? x[n / 2] : 0.5 * (x[n / 2 - 1] + x[n / 2]);
}

struct Run {
  std::map<std::string, Acc> acc;  // per routine
  std::vector<double> step;        // whole steps
  int steps = 0;
  int cycles = 0;             // pressure cycles, summed
};

// Median seconds per step of a routine ("step": of the whole step).
double step_seconds(const Run& r, const std::string& routine) {
  if (routine == "step") return median(r.step);
  auto it = r.acc.find(routine);
  return it == r.acc.end() ? 0.0 : median(it->second.per_step);
}

// One timed step into r, as its step number s of nsteps.
void time_step(Run& r, int s, int nsteps) {
  g_acc = &r.acc;
  g_nsteps = nsteps;
  g_step = s;
  rl::step_timer = hook;
  const double t0 = omp_get_wtime();
  rl::nstep = rl::nstep + 1;
  rl::TIMESTEP();
  const double t1 = omp_get_wtime();
  rl::simtime = rl::simtime + rl::dt;
  r.cycles += rl::ADVANCE();
  const double t2 = omp_get_wtime();
  hook("TIMESTEP", t1 - t0);
  r.step.push_back(t2 - t0);
  r.steps += 1;
  rl::step_timer = nullptr;
  g_acc = nullptr;
}

// Residual reduction of the pressure cycles: one step's predictor, then the
// cycles of POISSONP with the residual norm after each.  Gives the per-cycle
// ratios of the residual norm over ncycles cycles and their mean, and the
// ratio of the first and of the last residual to the source norm.
void residual_reduction(int ncycles, std::vector<double>& ratios, double& mean_ratio, double& final_rel,
                        double& first_rel) {
  using namespace rl;
  nstep = nstep + 1;
  TIMESTEP();
  rl::simtime = rl::simtime + dt;
  SMAGORINSKY();
  FORCES();
  XVELOCITY();
  YVELOCITY();
  ZVELOCITY();
  if (ibcu(LowY) == Given && ibcv(LowY) == Given && ibcw(LowY) == Given) WALLS();
  if (ibcu(HighY) == Given && ibcv(HighY) == Given && ibcw(HighY) == Given) WALLN();
  IMMERSING();
  BOUNDARYU();
  BOUNDARYV();
  BOUNDARYW();
  SOURCEP();
  double divnorm = 0.0, res = 0.0;
  DIVNORMP(0, divnorm);
  OPERATORP(0);
  RESIDUALP(0);
  RESNORMP(0, res);
  first_rel = res / divnorm;
  double sum = 0.0;
  for (int n = 1; n <= ncycles; ++n) {
    const double prev = res;
    MULTIGRIDP(0, igamma, ipres, iposts, 100);
    OPERATORP(0);
    RESIDUALP(0);
    RESNORMP(0, res);
    ratios.push_back(res / prev);
    sum += res / prev;
  }
  mean_ratio = sum / ncycles;
  final_rel = res / divnorm;
}

// STREAM-like triad a = b + s*c, best of several repetitions, in GB/s.
double triad(int threads) {
  const std::int64_t n = std::int64_t(1) << 25;  // 3 x 256 MiB
  std::unique_ptr<double[]> a(new double[n]), b(new double[n]), c(new double[n]);
  omp_set_num_threads(threads);
#pragma omp parallel for schedule(static)
  for (std::int64_t i = 0; i < n; ++i) {
    a[i] = 0.0;
    b[i] = 1.0 + 1e-9 * double(i & 1023);
    c[i] = 2.0;
  }
  const double s = 0.5;
  double best = 1e300;
  double* A = a.get();
  const double* B = b.get();
  const double* C = c.get();
  for (int rep = 0; rep < 8; ++rep) {
    const double t0 = omp_get_wtime();
#pragma omp parallel for schedule(static)
    for (std::int64_t i = 0; i < n; ++i) A[i] = B[i] + s * C[i];
    const double t = omp_get_wtime() - t0;
    best = std::min(best, t);
  }
  volatile double sink = A[n / 3];
  (void)sink;
  return 24.0 * double(n) / best * 1e-9;
}

// Divisions per second (vector divisions of a cache-resident block, per
// thread), with the given threads, over the best of 5 tries.  The ratio of
// all threads to one tells whether the cores have a divider each at the
// moment: a virtual machine's two cores may be two hardware threads of one
// physical core, and then they share it.
double divide_rate(int threads) {
  omp_set_num_threads(threads);
  double best = 1e300;
  constexpr int kN = 2048, kReps = 4000;
  for (int rep = 0; rep < 5; ++rep) {
    const double t0 = omp_get_wtime();
#pragma omp parallel
    {
      double a[kN], b[kN];
      for (int i = 0; i < kN; ++i) {
        a[i] = 1.0 + 1e-3 * i;
        b[i] = 3.0 + 1e-4 * i;
      }
      for (int r = 0; r < kReps; ++r)
        for (int i = 0; i < kN; ++i) a[i] = b[i] / a[i];
      volatile double sink = a[kN / 2];
      (void)sink;
    }
    best = std::min(best, omp_get_wtime() - t0);
  }
  return double(threads) * kN * kReps / best;
}

// Nanoseconds for a cache line to go from one core to the other and back:
// two threads hand a counter to and fro.  Cores that share a cache take
// some tens of nanoseconds; cores that do not (another chip, another
// socket) several times that, and then every routine that reads what the
// other core wrote last pays for it.
double handover_ns() {
  if (omp_get_num_procs() < 2) return 0.0;
  omp_set_num_threads(2);
  alignas(64) static std::atomic<int> turn{0};
  constexpr int kRounds = 200000;
  double best = 1e300;
  for (int rep = 0; rep < 3; ++rep) {
    turn.store(0);
    double t = 0.0;
#pragma omp parallel num_threads(2)
    {
      const int me = omp_get_thread_num();
#pragma omp barrier
      const double t0 = omp_get_wtime();
      for (int r = 0; r < kRounds; ++r) {
        const int want = 2 * r + me;
        while (turn.load(std::memory_order_acquire) != want) {
        }
        turn.store(want + 1, std::memory_order_release);
      }
      if (me == 0) t = omp_get_wtime() - t0;
    }
    best = std::min(best, t);
  }
  return best / kRounds * 1e9;
}

// ---------------------------------------------------------------- report

// Order of the rows: the order of the step.
const std::vector<std::string> kRoutines = {
    "TIMESTEP",   "SMAGORINSKY", "FORCES",     "XVELOCITY",  "YVELOCITY", "ZVELOCITY", "wall pass", "IMMERSING",
    "ZEROFLAGGED", "boundaries", "POISSONP",   "CORRECTION", "DIVERGENCE", "FLAGDETER", "SAVEOLD"};

// Bytes a sweep must move at least per interior cell: each 3-D array it
// reads counted once (8 B a double, 4 B an int flag), each it writes once.
struct Bytes {
  const char* routine;
  int bytes;
  const char* what;
};
const std::vector<Bytes> kBytes = {
    {"TIMESTEP", 24, "reads u, v, w"},
    {"SMAGORINSKY", 92,
     "reads u, v, w, flagc; writes s11, s22, s33, s12, s13, s23, sabs, nut (per call)"},
    {"XVELOCITY", 64, "reads uo, vo, wo, nut, rhsuo; writes u, rhsu, rhsuo"},
    {"YVELOCITY", 64, "reads uo, vo, wo, nut, rhsvo; writes v, rhsv, rhsvo"},
    {"ZVELOCITY", 64, "reads uo, vo, wo, nut, rhswo; writes w, rhsw, rhswo"},
    {"CORRECTION", 72, "reads p, phi, u, v, w; writes p, u, v, w"},
    {"DIVERGENCE", 24, "reads u, v, w"},
    {"FLAGDETER", 32, "writes flagu, flagv, flagw, flagc; reads them back (detection)"},
    {"SAVEOLD", 72, "reads u, v, w, flagu, flagv, flagw; writes uo, vo, wo, flaguo, flagvo, flagwo"},
};

std::string fmt(const char* f, double x) {
  char b[64];
  std::snprintf(b, sizeof b, f, x);
  return b;
}

struct Result {
  StateSpec desc;
  double cells;
  Run run[2];  // one thread, all threads
  bool have_resid = false;
  double mean_ratio = 0, final_rel = 0, first_rel = 0;
  std::vector<double> ratios;
  double dt = 0;  // time step at the end of the timed steps
  double divider[2] = {0, 0};  // divider speed-up of all threads, before and after the timed steps
  double handover[2] = {0, 0};  // ns for a cache line to and fro between two cores, before and after
};

double ns_cell_step(const Run& r, double cells, const std::string& routine) {
  return step_seconds(r, routine) / cells * 1e9;
}

std::map<std::string, double> read_before(const std::string& path) {
  std::map<std::string, double> m;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#' || line.rfind("state,", 0) == 0) continue;
    const auto p = line.rfind(',');
    if (p == std::string::npos) continue;
    m[line.substr(0, p)] = std::atof(line.c_str() + p + 1);
  }
  return m;
}

}  // namespace

int main(int argc, char** argv) {
  _mm_setcsr(_mm_getcsr() | 0x8040);  // denormals count as zero, as in a run
  std::vector<std::string> args;
  bool quick = false;
  for (int a = 1; a < argc; ++a) {
    if (std::string(argv[a]) == "--quick")
      quick = true;
    else
      args.push_back(argv[a]);
  }
  if (args.size() < 2) {
    std::fprintf(stderr, "usage: riverles_bench OUT.md OUT.csv [BEFORE.csv] [--quick]\n");
    return 2;
  }
  const std::map<std::string, double> before = args.size() > 2 ? read_before(args[2]) : std::map<std::string, double>{};
  const int nmax = omp_get_num_procs();
  const int tcount[2] = {1, nmax};

  std::vector<StateSpec> descs;
  for (bool d : {false, true}) {
    const std::string kind = d ? "dunes" : "flat";
    descs.push_back({kind + " 64x32x64", d, 64, 32, 64, 20});
    if (!quick) {
      descs.push_back({kind + " 128x64x128", d, 128, 64, 128, 6});
      descs.push_back({kind + " 256x128x128", d, 256, 128, 128, 5});
    }
  }

  std::fprintf(stderr, "triad ...\n");
  const double bw[2] = {triad(1), triad(nmax)};

  std::vector<Result> results;
  for (const StateSpec& s : descs) {
    Result R;
    R.desc = s;
    R.cells = double(s.ni) * s.nj * s.nk;
    omp_set_num_threads(nmax);
    std::fprintf(stderr, "%s: build and 3 steps ...\n", s.name.c_str());
    mark(s.name, "build and 3 steps");
    build_state(s);
    for (int n = 0; n < 3; ++n) real_step();
    // One thread and all threads in turn, in short blocks, so that both see
    // the same stretches of noise from other work on a shared machine: each
    // block a first step that is not timed (it finds the data where the
    // other count left it), then two timed steps.
    const int nsteps = s.timed_steps * kRepeats;
    R.divider[0] = divide_rate(nmax) / divide_rate(1);
    R.handover[0] = handover_ns();
    mark(s.name, "timed, 1 thread and all threads in turn");
    std::fprintf(stderr, "%s: %d timed steps with 1 and %d with %d threads, in turn ...\n", s.name.c_str(), nsteps,
                 nsteps, tcount[1]);
    for (int n = 0; n < nsteps; n += 2)
      for (int t = 0; t < 2; ++t) {
        omp_set_num_threads(tcount[t]);
        Run untimed;
        time_step(untimed, 0, 1);
        for (int m = n; m < std::min(n + 2, nsteps); ++m) time_step(R.run[t], m, nsteps);
      }
    R.divider[1] = divide_rate(nmax) / divide_rate(1);
    R.handover[1] = handover_ns();
    R.dt = rl::dt;
    if (s.dunes) {
      omp_set_num_threads(1);
      std::fprintf(stderr, "%s: residual reduction ...\n", s.name.c_str());
      mark(s.name, "residual measurement");
      residual_reduction(kResidCycles, R.ratios, R.mean_ratio, R.final_rel, R.first_rel);
      R.have_resid = true;
    }
    results.push_back(R);
  }

  // ---- CSV ----
  std::ofstream csv(args[1]);
  csv << "state,threads,routine,ns_per_cell_step\n";
  auto key = [&](const Result& r, int t, const std::string& routine) {
    return r.desc.name + "," + (t == 0 ? "1" : "all") + "," + routine;
  };
  for (const Result& r : results)
    for (int t = 0; t < 2; ++t) {
      for (const std::string& name : kRoutines) csv << key(r, t, name) << "," << ns_cell_step(r.run[t], r.cells, name) << "\n";
      csv << key(r, t, "step") << "," << ns_cell_step(r.run[t], r.cells, "step") << "\n";
    }

  // ---- Markdown ----
  std::ostringstream md;
  md << "Threads: 1 and all (" << nmax << "). Triad bandwidth: " << fmt("%.2f", bw[0]) << " GB/s with 1 thread, "
     << fmt("%.2f", bw[1]) << " GB/s with " << nmax << " threads.\n\n";

  md << "### Time per routine\n\n"
     << "A divider speed-up near 1 means the host ran the two cores as two hardware threads of one physical "
        "core at the time: the division-bound predictors then gain nothing from a second thread.\n\n"
     << "Nanoseconds per cell per step (cells = imax*jmax*kmax): per timed step the sum over the routine's "
        "calls in that step, then the median over the timed steps (taken in blocks of an untimed and two timed "
        "steps, in turn with 1 and all threads); share = that over the median whole step (so "
        "the shares need not add up to exactly 100 %); before/after = time in `bench/before.csv` over time now (above 1: faster now).\n\n";
  for (const Result& r : results) {
    md << "#### " << r.desc.name << " (" << fmt("%.0f", r.cells) << " cells, " << r.desc.timed_steps * kRepeats
       << " timed steps, dt " << fmt("%.3g", r.dt) << ")\n\n";
    md << "Divider speed-up of " << nmax << " threads (divisions per second against 1 thread) just before and "
       << "after the timed steps: " << fmt("%.2f", r.divider[0]) << " and " << fmt("%.2f", r.divider[1]) << "; a cache line from one core to the other and back: "
       << fmt("%.0f", r.handover[0]) << " and " << fmt("%.0f", r.handover[1]) << " ns.\n\n";
    md << "| routine | calls/step | ns/cell 1 thr | share 1 thr | ns/cell " << nmax << " thr | share " << nmax
       << " thr | thread speed-up | before/after 1 thr | before/after " << nmax << " thr |\n";
    md << "|---|---:|---:|---:|---:|---:|---:|---:|---:|\n";
    std::vector<std::string> rows = kRoutines;
    rows.push_back("step");
    for (const std::string& name : rows) {
      const double t1 = ns_cell_step(r.run[0], r.cells, name), tn = ns_cell_step(r.run[1], r.cells, name);
      if (t1 == 0.0 && tn == 0.0) continue;
      const double s1 = ns_cell_step(r.run[0], r.cells, "step"), sn = ns_cell_step(r.run[1], r.cells, "step");
      std::string calls = "1";
      auto it = r.run[0].acc.find(name);
      if (it != r.run[0].acc.end()) calls = fmt("%.0f", double(it->second.calls) / r.run[0].steps);
      auto ba = [&](int t, double now) {
        auto b = before.find(key(r, t, name));
        return (b == before.end() || now <= 0.0) ? std::string("-") : fmt("%.2f", b->second / now);
      };
      const bool whole = name == "step";
      md << "| " << (whole ? "**whole step**" : name) << " | " << (whole ? "" : calls) << " | " << fmt("%.2f", t1)
         << " | " << fmt("%.1f%%", 100.0 * t1 / s1) << " | " << fmt("%.2f", tn) << " | "
         << fmt("%.1f%%", 100.0 * tn / sn) << " | " << fmt("%.2f", t1 / tn) << " | " << ba(0, t1) << " | "
         << ba(1, tn) << " |\n";
    }
    md << "\n";
  }

  md << "### Pressure solve (POISSONP)\n\n";
  md << "Time per cycle = median POISSONP time per step over the mean cycles per step.\n\n";
  md << "| state | threads | cycles/step | ms/cycle | ns/cell/cycle |\n|---|---:|---:|---:|---:|\n";
  for (const Result& r : results)
    for (int t = 0; t < 2; ++t) {
      const Run& x = r.run[t];
      const double cyc = double(x.cycles) / x.steps;
      const double sec = step_seconds(x, "POISSONP") / cyc;
      md << "| " << r.desc.name << " | " << tcount[t] << " | " << fmt("%.1f", cyc) << " | "
         << fmt("%.2f", sec * 1e3) << " | " << fmt("%.2f", sec / r.cells * 1e9) << " |\n";
    }
  md << "\nResidual reduction on the dune states (one thread, V cycle, 2+2 sweeps): after the timed steps, one "
        "more step's predictor, then " << kResidCycles
     << " cycles of MULTIGRIDP, each followed by OPERATORP, RESIDUALP and RESNORMP as in POISSONP; the factor "
        "is the mean over the cycles of the ratio of the residual norm after a cycle to the one before (the "
        "first cycle starts from the pressure correction of the previous step).\n\n";
  md << "| state | residual/source before | factor per cycle, cycle by cycle | mean factor per cycle | "
        "residual/source after "
     << kResidCycles << " cycles |\n|---|---:|---|---:|---:|\n";
  for (const Result& r : results)
    if (r.have_resid)
    {
      std::string list;
      for (double q : r.ratios) list += (list.empty() ? "" : ", ") + fmt("%.3f", q);
      md << "| " << r.desc.name << " | " << fmt("%.3g", r.first_rel) << " | " << list << " | "
         << fmt("%.3f", r.mean_ratio) << " | " << fmt("%.3g", r.final_rel) << " |\n";
    }

  md << "\n### Memory bandwidth of the grid sweeps\n\n"
     << "Bytes a routine must move at least per interior cell and call (each 3-D array it reads counted once, "
        "each it writes counted once; 8 B a double, 4 B an int flag) times the calls per step, over its median time per step; "
        "% triad = that bandwidth over the triad's with the same threads.\n\n";
  md << "| routine | B/cell/call | arrays |\n|---|---:|---|\n";
  for (const Bytes& b : kBytes) md << "| " << b.routine << " | " << b.bytes << " | " << b.what << " |\n";
  md << "\n| state | routine | GB/s 1 thr | % triad 1 thr | GB/s " << nmax << " thr | % triad " << nmax
     << " thr |\n|---|---|---:|---:|---:|---:|\n";
  for (const Result& r : results)
    for (const Bytes& b : kBytes) {
      md << "| " << r.desc.name << " | " << b.routine;
      for (int t = 0; t < 2; ++t) {
        const Run& x = r.run[t];
        auto it = x.acc.find(b.routine);
        if (it == x.acc.end()) {
          md << " | - | -";
          continue;
        }
        const double calls = double(it->second.calls) / x.steps;
        const double gbs = double(b.bytes) * r.cells * calls / step_seconds(x, b.routine) * 1e-9;
        md << " | " << fmt("%.2f", gbs) << " | " << fmt("%.0f%%", 100.0 * gbs / bw[t]);
      }
      md << " |\n";
    }
  std::ofstream(args[0]) << md.str();
  std::fprintf(stderr, "done\n");
  return 0;
}
