#include "driver/mainprogram.hpp"

#include <signal.h>
#include <xmmintrin.h>

#include <omp.h>

#include <cerrno>
#include <csignal>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <type_traits>

#include "common/console.hpp"
#include "common/distributed.hpp"
#include "common/files.hpp"
#include "common/parallel.hpp"
#include "driver/conditions.hpp"
#include "driver/domain.hpp"
#include "driver/fields.hpp"
#include "driver/initfields.hpp"
#include "flow/forces.hpp"
#include "flow/openreach.hpp"
#include "flow/smagorinsky.hpp"
#include "flow/tecplot.hpp"
#include "flow/timestep.hpp"
#include "flow/vorticity.hpp"
#include "flow/wall.hpp"
#include "flow/xvelocity.hpp"
#include "flow/yvelocity.hpp"
#include "flow/zvelocity.hpp"
#include "immersed/flagdeter.hpp"
#include "immersed/immerse.hpp"
#include "immersed/immersing.hpp"
#include "immersed/stepend.hpp"
#include "immersed/viscbed.hpp"
#include "immersed/wallaw.hpp"
#include "orvalib/orvalib.hpp"
#include "pressure/boundary.hpp"
#include "pressure/correction.hpp"
#include "pressure/divergence.hpp"
#include "pressure/multigridp.hpp"
#include "results/caseresults.hpp"
#include "results/monitors.hpp"
#include "results/statistics.hpp"
#include "results/saved.hpp"

namespace rl {

namespace {


// Local state of the main program.
struct MainState {
  std::string casepath, outpath, outfile, startfile;
  int fileid = 0, ier = 0, timetype = 0, hotout = 0, tecplot = 0, hotstart = 0, timeinitial = 0, cancel = 0,
      npoisson = 0;
  double otime = 0, dthotout = 0, dttecplot = 0, timeold = 0;
  // The step that honours a cancel also writes what is not yet written of
  // a result, a saved state and the statistics.
  bool final_on_cancel = false;
  // SIGTERM or SIGINT that ended the run after its step (0: none).
  int signal = 0;
};

// SIGTERM (a batch system's time limit, kill) and SIGINT (Ctrl-C) end the
// run like a cancel: the step in work is finished, the final outputs of a
// cancel written, the locks removed; the exit status is 128 + the signal.
// A second signal ends the process at once (the handler is reset).
volatile std::sig_atomic_t signalled = 0;
extern "C" void on_stop_signal(int s) { signalled = s; }

struct StopSignals {
  struct sigaction old_term {}, old_int {};
  StopSignals() {
    signalled = 0;
    struct sigaction sa {};
    sa.sa_handler = on_stop_signal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESETHAND;
    sigaction(SIGTERM, &sa, &old_term);
    sigaction(SIGINT, &sa, &old_int);
  }
  ~StopSignals() {
    sigaction(SIGTERM, &old_term, nullptr);
    sigaction(SIGINT, &old_int, nullptr);
  }
};

// Denormal operands and results count as zero for the whole run.
void flush_denormals() { _mm_setcsr(_mm_getcsr() | 0x8040); }

// 2 to the power e as a 32-bit integer; exponents outside 0..31 give 0, and
// 31 wraps to the smallest 32-bit integer.
int power_of_two(int e) {
  if (e < 0 || e > 31) return 0;
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(1u) << e);
}

// Both side walls get the wall law exactly when their three velocity types
// are all "given value".
void wall_pass() {
  if (ibcu(LowY) == Given && ibcv(LowY) == Given && ibcw(LowY) == Given) WALLS();
  if (ibcu(HighY) == Given && ibcv(HighY) == Given && ibcw(HighY) == Given) WALLN();
}

void boundaries() { BOUNDARYUVW(); }

// The exchanges of a run over several processes, each before the routine
// it serves (nothing on one process):
// the predicted velocities one column deep, for the side-wall law;
void predicted_halos() { fill_halos({&u, &v, &w}, 1); }
// the velocities as far as the wall laws sample them, for IMMERSING;
void wall_law_halos() { fill_halos({&u, &v, &w}, kHalo); }
// the pressure one column deep, for the node values of a result and the
// probes (the correction updates a process's own pressure only).
void pressure_halo() { fill_halo(p, 1); }

bool several() { return dist_size() > 1; }

// Why the case would not open, on standard error: the path as given and
// the system's reason, or that the file is there but is no case.
void explain_open_error(const std::string& path) {
  std::error_code ec;
  std::string reason;
  if (!std::filesystem::exists(path, ec))
    reason = "no such file";
  else if (std::filesystem::is_directory(path, ec))
    reason = "it is a folder";
  else if (std::FILE* f = std::fopen(path.c_str(), "r+b"))
    std::fclose(f), reason = "not a CGNS case file (HDF5 based), or a damaged one";
  else
    reason = std::strerror(errno);
  std::fprintf(stderr, "riverles: cannot open the case \"%s\" for reading and writing: %s\n", path.c_str(),
               reason.c_str());
}

// Every process reads the case itself: a case rewritten while they opened
// it (or a launch that gave them different cases) would let each run its
// own conditions, and the first collective call where they part would
// hang.  The processes compare a digest of the input they hold and all stop
// with the read error when they differ.
void same_input_everywhere() {
  const std::uint64_t d = orva::INPUT_DIGEST();
  const double halves[2] = {static_cast<double>(d >> 32), static_cast<double>(d & 0xffffffffu)};
  // Every process makes every collective call, whatever it has found.
  double differs = 0.0;
  for (double h : halves) {
    const double lo = dist_min(h), hi = dist_max(h);
    if (lo != hi) differs = 1.0;
  }
  if (differs == 0.0) return;
  // The first process says why and the design's line and waits for the
  // operator; the others wait for it, so that no process ends the run
  // before the console has its say.
  if (first_process()) {
    std::fprintf(stderr, "riverles: the processes of the run read different cases (the case was changed while "
                         "they opened it, or the launch gave them different files): start the run again\n");
    try {
      stop_read_error();
    } catch (const RunStopped&) {
    }
  }
  dist_barrier();
  throw RunStopped{1};
}

void startup(MainState& m) {
  // Every run draws its noise from the generator's default state.
  random_generator() = std::mt19937_64();
  int ier = 0;
  // Over several processes the plan must split before the case is touched:
  // a refused count leaves the case and its results as they were.  Every
  // process reads the grid's size and takes the same decision.
  if (several()) {
    int ni = 0, nj = 0;
    orva::CG_OPEN_F(m.casepath, orva::CG_MODE_READ, m.fileid, ier);
    if (ier == 0) orva::CG_ORVA_GOTOGRIDCOORD2D_F(ni, nj, ier);
    int dummy = 0;
    if (m.fileid != 0) orva::CG_CLOSE_F(m.fileid, dummy);
    PlanSplit split;
    std::string why;
    if (ier == 0 && !plan_split(dist_size(), ni - 1, nj - 1, split, why)) {
      if (first_process()) std::fprintf(stderr, "riverles: %s; the case is left as it was\n", why.c_str());
      throw RunStopped{1};
    }
    ier = 0;
  }
  if (first_process()) {
    orva::CG_OPEN_F(m.casepath, orva::CG_MODE_MODIFY, m.fileid, ier);
    if (ier != 0) {
      explain_open_error(m.casepath);
      stop_run("*** Open error of CGNS file ***");
    }

    orva::CG_ORVA_INIT_F(m.fileid, ier);
    if (ier != 0) {
      explain_case_write(m.casepath, "prepare the results (the design's pause \"B1\" follows) of");
      say("B1");
      wait_operator();
    }
  }
  if (several()) {
    dist_barrier();
    if (!first_process()) {
      orva::CG_OPEN_F(m.casepath, orva::CG_MODE_READ, m.fileid, ier);
      if (ier != 0) stop_run("*** Open error of CGNS file ***");
    }
    same_input_everywhere();
  }

  // Cell counts: node counts of the case grid, and a power of two in z.
  orva::CG_ORVA_GOTOGRIDCOORD2D_F(imax, jmax, ier);
  if (ier != 0) stop_read_error();
  kmax = read_integer("kmaxItm");
  kmax = power_of_two(kmax);
  imax = imax - 1;
  jmax = jmax - 1;
  // Over several processes: this process's block of the plan, before any
  // array is allocated.
  if (several()) {
    PlanSplit split;
    std::string why;
    if (!plan_split(dist_size(), imax, jmax, split, why)) {
      if (first_process()) std::fprintf(stderr, "riverles: %s\n", why.c_str());
      throw RunStopped{1};
    }
    own_block(split, dist_rank(), imax, jmax);
  }

  ALLOCNODEARRAYS();
  READGRID();

  visc = read_real("viscItm");
  dens = read_real("densItm");
  gravity = read_real("gravityItm");
  discharge = read_real("dischargeItm");
  m.timetype = read_integer("timetypeItm");
  if (m.timetype == 1) dt = read_real("timestepItm");
  if (m.timetype == 0) cfl = read_real("cflItm");

  const int xbound = read_integer("xBoundItm");
  const int ybound = read_integer("yBoundItm");
  const int zbound = read_integer("zBoundItm");
  set_boundary_types(xbound, ybound, zbound);
  open_reach_types();

  LEVELCOUNT();
  ALLOCFIELDS();

  initial = read_integer("InitialItm");
  if (initial == 1) {
    xinit = read_real("xInitItm");
    yinit = read_real("yInitItm");
    zinit = read_real("zInitItm");
  }
  iperturb = read_integer("iPerturbItm");
  if (iperturb == 1) amplitude = read_real("amplitudeItm");
  choose_threads();  // before the first parallel loop
  INITFIELDS();

  if (read_integer("iBedPerturbItm") == 1) {
    bamplitude = read_real("BAmplitudeItm");
    PERTURBBED();
  }
  BUILDBED();

  nstep = 0;
  simtime = read_real("starttimeItm");
  endtime = read_real("endtimeItm");

  m.hotstart = read_integer("HotstartItm");
  if (m.hotstart == 1) {
    m.startfile = read_string("StartfileItm");
    READSAVED(m.startfile);
    m.timeinitial = read_integer("TimeInitialItm");
    if (m.timeinitial == 0) {
      nstep = 0;
      simtime = 0.0;
    }
  }

  m.otime = read_real("OTimeItm");
  m.hotout = read_integer("HotoutItm");
  if (m.hotout == 1) m.dthotout = read_real("dtHotoutItm");
  m.tecplot = read_integer("TecplotItm");
  if (m.tecplot == 1) m.dttecplot = read_real("dtTecplotItm");
  m.outpath = read_string("outpathItm");
  m.outfile = read_string("outfileItm");
  if ((m.hotout == 1 || m.tecplot == 1) && first_process()) make_output_folder(m.outpath);

  FLAGDETER();
  rest_solid_start(optional_integer("SolidRestItm", 0) == 1);

  rough = 1.0;
  ibed = read_integer("BedItm");
  if (ibed == 1) rough = read_real("SedimentItm");
  if (ibed == 2) rough = read_real("RoughItm") / 2.5;
  open_reach_start(m.hotstart == 1 ? m.startfile : std::string());

  VORTICITY();
  pressure_halo();
  NODEVALUES();
  WRITEFIRSTRESULT(m.casepath, m.fileid);

  smagorinsky = read_real("smagorinskyItm");
  iibm = read_integer("iIBMItm");
  wall_viscosity_start(optional_integer("WallViscosityItm", 0));
  if (m.hotstart == 1) resume_wall_friction(m.startfile);
  if (read_integer("iCycleItm") == 1)
    igamma = 1;
  else
    igamma = read_integer("igammaItm");
  ipres = read_integer("ipresItm");
  iposts = read_integer("ipostsItm");
  kpoismax = read_integer("kpoismaxItm");
  eps = read_real("epsItm");

  // What the run reports beyond the console, by the case's optional keys.
  m.final_on_cancel = optional_integer("CancelOutputItm", 0) == 1;
  skip_pauses(optional_integer("SkipPausesItm", 0) == 1);
  MONITORSTART(m.outpath, m.outfile, m.hotstart == 1 && m.timeinitial == 1);
  STATSTART(m.otime, m.hotstart == 1 ? m.startfile : std::string());
  if (statistics_on() && first_process()) make_output_folder(m.outpath);
}

// A result of the flow into the case.
void write_result(const MainState& m) {
  VORTICITY();
  pressure_halo();
  NODEVALUES();
  WRITERESULTS(m.casepath);
}

// The saved state with what is kept beside it.
void write_saved_state(const MainState& m) {
  WRITESAVED(nstep, simtime, m.outpath, m.outfile);
  SAVESTATS(m.outpath, m.outfile);
  save_wall_friction(m.outpath, m.outfile);
  save_inflow_state(m.outpath, m.outfile);
}

// The outputs of a run that was cancelled, where the step did not write
// them: the flow as a result, the saved state (when saved states are on)
// and the statistics, so that no simulated time is lost.
void final_outputs(MainState& m, bool result, bool saved, bool stats) {
  std::fprintf(stderr, "riverles: cancelled at time %.6g (step %d): writing the final %s\n", simtime, nstep,
               m.hotout == 1 ? "result, saved state and statistics" : "result and statistics");
  if (!result) write_result(m);
  if (m.hotout == 1 && !saved) write_saved_state(m);
  if (statistics_on() && !stats) write_final_statistics(m.outpath, m.outfile);
}

// One pass of the time loop; returns false when the loop ends.
bool time_step(MainState& m) {
  m.timeold = simtime;
  nstep = nstep + 1;
  if (m.timetype == 0) TIMESTEP();
  simtime = simtime + dt;
  m.npoisson = ADVANCE();

  print_status(m.npoisson);
  if (probes_sampled()) pressure_halo();
  MONITOR(m.npoisson);
  STATISTICS();

  // What this step writes (a cancel then writes the rest).
  const bool result = output_due(simtime, m.timeold, m.otime);
  const bool saved = m.hotout == 1 && output_due(simtime, m.timeold, m.dthotout);
  const bool stats = statistics_on() && output_due(simtime, m.timeold, statistics_interval());
  if (result) write_result(m);
  if (saved) write_saved_state(m);
  if (stats) WRITESTATS(m.outpath, m.outfile);
  if (m.tecplot == 1 && output_due(simtime, m.timeold, m.dttecplot)) {
    VORTICITY();
    WRITETECPLOT(m.outpath, m.outfile, trunc_i32(simtime / m.dttecplot));
  }

  // A result the disk did not take stops the run now, not at the next
  // result, which may be hours away.
  if (first_process() && orva::STORE_FAILED()) stop_write_error();
  if (simtime >= endtime) return false;
  orva::ORVA_CHECK_CANCEL_F(m.cancel);
  // The first process's answer, for all.
  if (several()) m.cancel = static_cast<int>(dist_max(first_process() ? m.cancel : 0));
  int sig = signalled;
  if (several()) sig = static_cast<int>(dist_max(sig));
  if (sig != 0) {
    m.signal = sig;
    std::fprintf(stderr, "riverles: %s received: the run ends after step %d (time %.6g)\n",
                 sig == SIGINT ? "SIGINT" : "SIGTERM", nstep, simtime);
    if (m.final_on_cancel) final_outputs(m, result, saved, stats);
    return false;
  }
  if (m.cancel == 1 && m.final_on_cancel) final_outputs(m, result, saved, stats);
  return m.cancel != 1;
}

}  // namespace

StepTimer step_timer = nullptr;

namespace {

// Calls a routine of the step, timing it when a timer is installed.
template <typename F>
auto timed(const char* name, F routine) {
  if (!step_timer) return routine();
  const double t0 = omp_get_wtime();
  if constexpr (std::is_void_v<decltype(routine())>) {
    routine();
    step_timer(name, omp_get_wtime() - t0);
  } else {
    auto r = routine();
    step_timer(name, omp_get_wtime() - t0);
    return r;
  }
}

}  // namespace

int ADVANCE() {
  timed("SMAGORINSKY", SMAGORINSKY);
  timed("FORCES", FORCES);
  timed("XVELOCITY", XVELOCITY);
  timed("YVELOCITY", YVELOCITY);
  timed("ZVELOCITY", ZVELOCITY);
  if (open_reach()) timed("open faces", open_faces_predict);
  timed("halos", predicted_halos);
  timed("wall pass", wall_pass);
  timed("halos", wall_law_halos);
  timed("IMMERSING", IMMERSING);
  if (solid_at_rest())
    timed("ZEROFLAGGED", [] { rest_solid(true); });
  else if (DTCLEAN > dt)
    timed("ZEROFLAGGED", ZEROFLAGGED);
  if (open_reach()) timed("open faces", balance_outflow);
  timed("boundaries", boundaries);
  const int npoisson = timed("POISSONP", POISSONP);
  if (open_reach()) timed("open faces", level_pressure);
  timed("CORRECTION", CORRECTION);
  timed("boundaries", boundaries);
  timed("DIVERGENCE", DIVERGENCE);
  timed("wall pass", wall_pass);
  timed("halos", wall_law_halos);
  timed("IMMERSING", IMMERSING);
  if (solid_at_rest()) timed("ZEROFLAGGED", [] { rest_solid(false); });
  timed("boundaries", boundaries);
  timed("SMAGORINSKY", SMAGORINSKY);
  timed("FLAGDETER", FLAGDETER);
  timed("SAVEOLD", SAVEOLD);
  return npoisson;
}

std::int32_t trunc_i32(double x) {
  if (!(x > -2147483649.0 && x < 2147483648.0)) return INT32_MIN;
  return static_cast<std::int32_t>(x);
}

bool output_due(double time, double timeold, double interval) {
  return trunc_i32(time / interval) != trunc_i32(timeold / interval);
}

void print_status(int npoisson) {
  if (!first_process()) return;  // the console is the first process's
  say("Step Number        = " + std::to_string(nstep));
  say("Time Step          = " + free_real(dt));
  say("Time               = " + free_real(simtime));
  say("Number of Poisson  = " + std::to_string(npoisson));
  say("Maximum divergence = " + free_real(divmax));
  say("Total divergence   = " + free_real(divsum));
  say("--------------------------------------------------------");
}

int RIVERLES(int argc, char** argv) {
  // The run flushes denormals; whoever called it gets its own mode back.
  const unsigned int csr = _mm_getcsr();
  int status = 0;
  try {
    flush_denormals();
    if (argc != 2) stop_run("Input File not specified");
    // Without OMP_NUM_THREADS, as many threads as the machine has idle cores,
    // measured while the case is opened, the grid read and written and the
    // fields allocated.
    start_thread_choice();
    MainState m;
    m.casepath = argv[1];
    const StopSignals signals;
    // One run at a time on a case; what a killed run left is cleared.
    std::string refusal;
    if (first_process() && orva::CLAIM_CASE(m.casepath, refusal) != 0) {
      std::fprintf(stderr, "riverles: %s\n", refusal.c_str());
      throw RunStopped{1};
    }
    startup(m);
    // The bed stands still: searches and classifications are kept.
    FOOTCACHE(true);
    FLAGREUSE(true);
    // Forcing points whose image-point march found no clean stencil are
    // known after the first step (their geometry is kept): one warning.
    bool more = time_step(m);
    report_march_fallbacks();
    while (more) more = time_step(m);
    MONITOREND();
    int ier = 0;
    orva::CG_CLOSE_F(m.fileid, ier);
    if (m.signal != 0) status = 128 + m.signal;
  } catch (const RunStopped& s) {
    status = s.status;
  } catch (const std::bad_alloc&) {
    // Memory taken outside the field store (work lists, buffers) ran out:
    // the allocation failure of the store, with its line and wait.
    say("ERROR : Failed to allocate the arrays ...");
    wait_operator();
    status = 1;
  } catch (const std::exception& e) {
    say(std::string("riverles: internal error: ") + e.what());
    status = 2;
  }
  orva::RELEASE_CASE();
  FOOTCACHE(false);
  FLAGREUSE(false);
  _mm_setcsr(csr);
  return status;
}

}  // namespace rl
