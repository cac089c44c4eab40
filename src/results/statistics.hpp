// Time-averaged statistics of a run, switched on by optional keys of the case:
//
//   StatisticsItm 1     accumulate and write statistics
//   StatsStartItm t     average over the steps that end at or after t (default 0)
//   dtStatsItm d        write a statistics file every d of simulated time
//                       (default OTimeItm)
//
// Every step from the start time on, each field is accumulated where it
// lives, weighted by the step's time step (averages over time, not over
// steps: where the step varies, short steps must not weigh more): the means of u, v, w at their faces, of p and the eddy viscosity at
// the cell centres; the variances u'u', v'v', w'w' at the faces; the shear
// stresses u'v', u'w', v'w' at the cell centres, from the velocities
// interpolated there (the mean of the two faces).  The sums are running
// means and sums of weighted squared deviations (Welford's update in West's
// weighted form), so a long average loses no digits to cancellation.  Only the resolved part: the stresses carried by
// the eddy viscosity (the subgrid part) are not included.
//
// The reach: the time mean of the streamwise driving acceleration and its
// equivalent slope (the mean over gravity).
//
// The bed, per column: the stress of the flow on the bed from the momentum
// the bed took in the step (the forcing of u and v at the bed and the side
// walls' law, immersed/bedstress.hpp), as a vector and its magnitude; beside
// it the wall law's own estimate, the friction velocity u* at the column's
// lowest forcing point of w and dens*u*^2.  Each instantaneous and averaged
// (the mean magnitude is the mean of the magnitudes).  The file records
// the plan mean of the mean streamwise stress beside what the momentum
// balance asks of it (dens x mean driving force x water volume / plan area).
//
// Files (docs/case-file.md): a statistics file <outpath>/<outfile>_stats_NNNNNN.cgns
// at every dtStatsItm (NNNNNN = time / dtStatsItm), the averages so far on
// the nodes like the results, bed nodes blanked; and, with every saved
// state, the accumulators in <outpath>/<outfile>.stats, which a run that
// starts from that saved state picks up to continue its averages.
#pragma once

#include <string>

namespace rl {

// Reads the keys and allocates the accumulators; with a saved state to start
// from (startfile not empty), continues the averages kept beside it.
void STATSTART(double otime, const std::string& startfile);

// Whether statistics are on, and their write interval.
bool statistics_on();
double statistics_interval();

// Adds the state at the end of the step, from the start time on.
// reads: u, v, w, p, nut, simtime, dens, the kept forcing; writes: the accumulators
void STATISTICS();

// Writes the statistics file of this time (nothing before the first sample).
// reads: the accumulators, xg3, yg3, zg3, elev, simtime
void WRITESTATS(const std::string& outpath, const std::string& outfile);

// Writes the statistics file of a run that stops between two statistics
// times (a cancel), numbered as the next one would be: it comes after every
// earlier file, and the run that continues replaces it with its own.
void write_final_statistics(const std::string& outpath, const std::string& outfile);

// Writes the accumulators beside the saved state.
void SAVESTATS(const std::string& outpath, const std::string& outfile);

// ---- for tests ----
// Forgets the samples and averages again from `start` (the accumulators
// must exist: a run with StatisticsItm 1 made them).
void statistics_reset(double start);
// Number of samples (steps) so far, and the time they stand for.
long long statistics_count();
double statistics_weight();
// The time mean of the driving acceleration forcex over the samples.
double statistics_force();
// The plan mean over the columns of a bed output (MeanBedShearStressX, ...);
// every process calls it together.
double statistics_bed_mean(const std::string& name);
// The value of a bed output at column (i, j) of this process.
double statistics_bed_column(const std::string& name, int i, int j);
// dens x mean driving force x water volume / plan area.
double statistics_balance_stress();
// The averages on the nodes, by output name (MeanVelocityX, ..., ReynoldsStressVW,
// MeanEddyViscosity): fills `out` on 0..imax, 0..jmax, 0..kmax, i fastest.
void statistics_nodes(const std::string& name, double* out);

}  // namespace rl
