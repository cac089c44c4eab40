// Runs over several processes through MPI: the start and end of the
// message passing, the cut of the plan into blocks of whole columns, one
// block per process, and the exchange of the layers a process keeps of its
// neighbours' columns.
//
// Every process keeps the global index space: its arrays cover its own
// columns plus `w` layers of each neighbour's (the halo); the box's own
// ghost layers belong to the blocks at the box's faces.  A periodic
// direction makes the blocks at its two ends neighbours.
#pragma once

#include <string>
#include <vector>

#include "common/array.hpp"

namespace rl {

// Whether an MPI launcher started this process (its environment says so),
// and how many processes it started (1 without one).
bool launched_by_mpi();
int launched_size();

// MPI's start and end: without a launcher, or in a build without MPI, they
// do nothing and the run is the one process of old.
void DISTSTART(int& argc, char**& argv);
void DISTEND();
int dist_rank();
int dist_size();

// The plan of imax x jmax columns cut into px x py blocks: block (a, b) owns
// columns ilo[a]..ihi[a] and jlo[b]..jhi[b], shares as equal as whole
// columns allow (the first ones one column more).
struct PlanSplit {
  int px = 1, py = 1;
  std::vector<int> ilo, ihi, jlo, jhi;
};

// The fewest columns a block may have across x and across y: its halo of
// the stencils' width must come from its direct neighbour alone.
constexpr int kMinBlockColumns = 4;

// Chooses px * py = nprocs with every block at least kMinBlockColumns wide
// in both directions: of those, the one with the fewest columns along the
// cuts ((px - 1) * jmax + (py - 1) * imax), then the one with more blocks
// along x.  False, with the reason and the largest count that would do, when
// there is none.
bool PLANSPLIT(int nprocs, int imax, int jmax, PlanSplit& s, std::string& why);

// One process's block: its coordinates and owned columns, and the ranks of
// its four neighbours (-1: none; a block may be its own neighbour across a
// periodic direction of one block).  Ranks run along x first.
struct Block {
  int a = 0, b = 0;
  int ilo = 1, ihi = 0, jlo = 1, jhi = 0;
  int west = -1, east = -1, south = -1, north = -1;
};
Block block_of(const PlanSplit& s, int rank, bool xperiodic, bool yperiodic);

// Fills the halo of f, w layers deep on each side that has a neighbour: the
// x layers over f's whole j and k range first, then the y layers over its
// whole i range, so that the corners come from the diagonal neighbours
// through the x neighbours.  Every process of the run calls it together.
// With one process and no periodic direction it does nothing.
void EXCHANGE(Array3<double>& f, const Block& blk, int w);

// Reductions over all processes, each called by every process together;
// every process gets the same result, so that all take the same decision
// (the time step, the discharge, the stop test of the pressure solve, a
// stop).  With one process they return their argument.  The sum adds the
// processes' values in the order of their ranks, the same on every process.
double dist_min(double x);
double dist_max(double x);
double dist_sum(double x);
bool dist_any(bool x);

// One plane k of a field, gathered whole onto the first process (rank 0)
// for writing, so that no process holds more than a plane of the whole box:
// plane[(j - j0) * (i1 - i0 + 1) + (i - i0)] for the global ranges i0..i1,
// j0..j1 (the box's own ghost layers included: they come from the blocks at
// the box's faces).  Every process calls it together; only rank 0's plane
// is filled.
void GATHERPLANE(const Array3<double>& f, const PlanSplit& s, int k, int i0, int i1, int j0, int j1,
                 std::vector<double>& plane);

}  // namespace rl
