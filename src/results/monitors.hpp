// What a run tells about itself besides the console, each part switched on
// by an optional key of the case (none of them present: nothing of this
// runs and no file is made):
//
//   MonitorItm 1          the monitor log <outpath>/<outfile>_monitor.csv, one
//                         line per step, flushed, and the health checks
//   VelocityLimitItm r    a health warning when a velocity component exceeds
//                         r times the bulk velocity (default 10)
//   StopNonFiniteItm 1    a non-finite velocity or pressure stops the run
//   ProbeFileItm name     points "x y z", one a line ('#' starts a comment):
//                         <outpath>/<outfile>_probes.csv with u, v, w, p
//                         interpolated at each point, every step
//   ProgressItm 1         one updating progress line on standard error when
//                         it is a terminal
//
// Health warnings go to standard error, each kind once per run, with the
// step and the position.  A run that continues a saved state with its step
// count (HotstartItm 1, TimeInitialItm 1) appends to the CSV files; any
// other run starts them anew.
#pragma once

#include <string>

namespace rl {

// Reads the keys and opens the files; after the start-up, before the first step.
// reads: the case's optional keys, flagu, bed, discharge, the grid
void MONITORSTART(const std::string& outpath, const std::string& outfile, bool continuing);

// After every step: the log line, the probes, the health checks, the progress.
// reads: u, v, w, p, dt, simtime, nstep, discharge, forcex, divmax
void MONITOR(int npoisson);
// Whether MONITOR samples probes (it then reads the pressure one column
// into the neighbours' blocks: the step brings that halo first).
bool probes_sampled();

// Closes the files and ends the progress line.
void MONITOREND();

}  // namespace rl
