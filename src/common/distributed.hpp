// Runs over several processes through MPI: the start and end of the
// message passing, the cut of the plan into blocks of whole columns, one
// block per process, and the exchange of the layers a process keeps of its
// neighbours' columns.
//
// Every process keeps the global index space: its arrays cover its own
// columns plus `w` layers of each neighbour's (the halo); the box's own
// ghost layers belong to the blocks at the box's faces; a periodic face's
// ghosts are copied between the blocks at the box's two ends (wrap_copy).
#pragma once

#include <climits>
#include <initializer_list>
#include <string>
#include <vector>

#include "common/array.hpp"
#include "common/haloledger.hpp"

namespace rl {

// Whether an MPI launcher started this process (its environment says so),
// and how many processes it started (1 without one).
bool launched_by_mpi();
int launched_size();

// MPI's start and end: without a launcher, or in a build without MPI, they
// do nothing and the run is the one process of old.
void dist_start(int& argc, char**& argv);
void dist_end();
// Ends every process of the run with the given status (a stop that not all
// processes may have reached).
[[noreturn]] void dist_abort(int status);
int dist_rank();
// Whether this is the first process (rank 0), the one that reads and writes
// the case, keeps the console and writes every file of the run.
inline bool first_process() { return dist_rank() == 0; }
int dist_size();
// Waits until every process has come here (nothing with one process).
void dist_barrier();

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
bool plan_split(int nprocs, int imax, int jmax, PlanSplit& s, std::string& why);

// One process's block: its coordinates and owned columns, and the ranks of
// its four neighbours across the cuts (-1: a face of the box, periodic or
// not, which has its ghost rules).  Ranks run along x first.
struct Block {
  int a = 0, b = 0;
  int ilo = 1, ihi = 0, jlo = 1, jhi = 0;
  int west = -1, east = -1, south = -1, north = -1;
};
Block block_of(const PlanSplit& s, int rank);

// The part of the box that this process works on.  Off (one process, the
// solver as of old) every range below is the box's own.  On, the routines
// that run distributed loop over the block's columns, and over the box's
// ghost layers and boundary faces only where the block touches that face;
// the arrays hold the block plus `halo` columns on each side that has a
// neighbour (or the box's own ghost layers at a face).
// Columns of each neighbour that a process holds: 1 for every difference
// stencil, 3 for the image points of the wall laws near the bed.
constexpr int kHalo = 3;

// This process's part of one level of the multigrid (level 0: the grid of
// the fields; level l: its cells merged 2^-l at a time), in that level's
// column numbers.
struct LevelCut {
  PlanSplit split;
  Block blk;
  bool west = true, east = true, south = true, north = true;  // the block touches that face of the box
};

struct Ownership {
  bool on = false;
  PlanSplit split;
  Block blk;
  bool west = true, east = true, south = true, north = true;  // the block touches that face of the box
  bool split_x = false, split_y = false;                      // more than one block along x / y
  // The levels that stay cut, 0, -1, ... : as long as every block's columns
  // halve evenly and keep at least kMinLevelColumns; coarser levels are held
  // whole by every process.
  std::vector<LevelCut> levels;
};
Ownership& ownership();
// The fewest columns a block of a coarse level may keep across x and y.
constexpr int kMinLevelColumns = 2;
// Makes this rank's block of s its part of the box of imax x jmax columns.
void own_block(const PlanSplit& s, int rank, int imax, int jmax);
// Whether level l (0 the finest) is cut among the processes, and its cut.
bool level_is_cut(int l);
const LevelCut& level_cut(int l);
// Back to the whole box.
void own_box();

// A loop over lo..hi of the box along x (or y), cut to this process's part:
// the box's own ends where the block touches them, the block's columns
// elsewhere.
inline int own_lo_i(int lo) {
  const Ownership& o = ownership();
  return !o.on || o.west ? lo : o.blk.ilo;
}
inline int own_hi_i(int hi) {
  const Ownership& o = ownership();
  return !o.on || o.east ? hi : o.blk.ihi;
}
inline int own_lo_j(int lo) {
  const Ownership& o = ownership();
  return !o.on || o.south ? lo : o.blk.jlo;
}
inline int own_hi_j(int hi) {
  const Ownership& o = ownership();
  return !o.on || o.north ? hi : o.blk.jhi;
}
// The bounds of an array over lo..hi of the box: this process's part plus
// `halo` columns of each neighbour.
inline int held_lo_i(int lo, int halo) {
  const Ownership& o = ownership();
  return !o.on || o.west ? lo : o.blk.ilo - halo;
}
inline int held_hi_i(int hi, int halo) {
  const Ownership& o = ownership();
  return !o.on || o.east ? hi : o.blk.ihi + halo;
}
inline int held_lo_j(int lo, int halo) {
  const Ownership& o = ownership();
  return !o.on || o.south ? lo : o.blk.jlo - halo;
}
inline int held_hi_j(int hi, int halo) {
  const Ownership& o = ownership();
  return !o.on || o.north ? hi : o.blk.jhi + halo;
}
// The positions an exchange may carry: by default all of a field's.  A
// field whose box ghost layers follow a rule of their own (the pressure
// correction: faces only, never the edges) passes the box's interior, so that
// a halo across a periodic face brings the face's values and nothing of the
// box's edges, and the halo of a cut the neighbour's interior columns.
struct Reach {
  int i0 = INT_MIN, i1 = INT_MAX, j0 = INT_MIN, j1 = INT_MAX, k0 = INT_MIN, k1 = INT_MAX;
};

// Fills the halo of a field of this process's part from the neighbouring
// blocks (exchange_block), w columns deep, within reach; nothing when ownership is
// off.  The box's own ghost layers, at a periodic face too, are left to the
// ghost rules (wrap_copy).
template <typename T>
void fill_halo(Array3<T>& f, int w, const Reach& reach = Reach(), int level = 0);
// The halos of several fields at once, in one message to each neighbour.
template <typename T>
void fill_halos(std::initializer_list<Array3<T>*> fields, int w, const Reach& reach = Reach(), int level = 0);

// The ghost rule of a periodic face cut among processes: the blocks at the
// two ends of the box along axis (0 x, 1 y) copy the plane `from` of f (an
// index along the axis, a cell or face of the block that holds it) into the
// plane `to` at the face of the block at the other end (to below 1: the low
// face), over that block's own rows of the other direction (the box's ghost
// rows at its faces) and f's k range, within reach.  Every process calls it
// together; it does nothing when the axis is not cut.
template <typename T>
void wrap_copy(Array3<T>& f, int axis, int from, int to, const Reach& reach = Reach(), int level = 0);
// Both ghost planes of a periodic axis of n cells at once, in one exchange
// between the end blocks: plane n into plane 0 and plane 1 into plane n+1
// (wrap_copy twice, in half the messages).
template <typename T>
void wrap_faces(Array3<T>& f, int axis, int n, const Reach& reach = Reach(), int level = 0);
template <typename T>
void wrap_faces(std::initializer_list<Array3<T>*> fields, int axis, int n, const Reach& reach = Reach(),
               int level = 0);
// The periodic ghost planes of each field: both (wrap_faces, every field in
// one message) or the low or the high one alone (wrap_copy), as the faces
// that are periodic.
void wrap_ghosts(std::initializer_list<Array3<double>*> fields, int axis, int n, bool low, bool high,
                const Reach& reach, int level = 0);
// wrap_ghosts from inside a parallel region: every thread first finishes
// the passes before, the main thread copies, and none goes on before it is
// done.
void wrap_in_team(std::initializer_list<Array3<double>*> fields, int axis, int n, bool low, bool high,
                  const Reach& reach, int level = 0);

// (fill_halo, wrap_copy, wrap_faces and exchange_block take fields of doubles or of
// integers, the flags.)
//
// Fills the halo of f, w layers deep on each side that has a neighbour: the
// x layers over f's j and k range first, then the y layers over its i range
// (the x halos included), so that the corners come from the diagonal
// neighbours through the x neighbours; all ranges within reach.  Every process of the run calls it together.
// With one process and no periodic direction it does nothing.
template <typename T>
void exchange_block(Array3<T>& f, const Block& blk, int w, const Reach& reach = Reach());
// The same for several fields at once, one message to each neighbour.
template <typename T>
void exchange_block(std::initializer_list<Array3<T>*> fields, const Block& blk, int w, const Reach& reach = Reach());

// Seconds this process has spent in the message passing (halo exchanges,
// copies across periodic faces, gathers and reductions), and their count,
// since the last reset: for benchmarks.
struct DistTimes {
  double halo = 0, wrap = 0, gather = 0, reduce = 0;
  // Of the halo exchanges and periodic copies: the time spent waiting in
  // the message calls themselves (for the partner and the transfer).
  double wait = 0;
  long halos = 0, wraps = 0, gathers = 0, reduces = 0, waits = 0;
};
DistTimes& dist_times();

// Reductions over all processes, each called by every process together;
// every process gets the same result, so that all take the same decision
// (the time step, the discharge, the stop test of the pressure solve, a
// stop).  With one process they return their argument.  The sum adds the
// processes' values in the order of their ranks, the same on every process.
double dist_min(double x);
double dist_max(double x);
double dist_sum(double x);
// The elements of x that each process holds (one process each, 0 on the
// others) on every process: an element-wise sum, exact in any order.
void dist_merge(std::vector<double>& x);

// Each process's box i0..i1, j0..j1, k0..k1 of f (the boxes of the
// processes disjoint), gathered into f on every process, so that all hold
// the union: the coarse problem of the pressure solve.  Every process calls
// it together; with one process it does nothing.
void allgather_box(Array3<double>& f, int i0, int i1, int j0, int j1, int k0, int k1);


// A box of the global index space, ends included; empty when an end lies
// below its start.
struct Box {
  int i0 = 0, i1 = -1, j0 = 0, j1 = -1, k0 = 0, k1 = -1;
  bool empty() const { return i1 < i0 || j1 < j0 || k1 < k0; }
  long long count() const {
    return empty() ? 0 : 1LL * (i1 - i0 + 1) * (j1 - j0 + 1) * (k1 - k0 + 1);
  }
  // The part that lies in b too.
  Box within(const Box& b) const;
};

// Values of nf quantities over a box, packed quantity after quantity, each
// over k, j, i with i fastest: what the first process writes to a file in
// slabs (a plane at a time, so that no process holds a whole 3-D field).
//
// gather_to_first: every process gives its values over its box `mine` (the
// boxes of the processes disjoint, together `whole`; an empty box gives
// nothing); the first process gets them over `whole` in `out`.
// scatter_from_first: the first process has the values over `whole` in `in`;
// every process gets those over its box `mine` within `whole` (the boxes
// may overlap: halos), and that part of its box is returned.
// Every process calls them together; with one process they copy.
void gather_to_first(const Box& mine, const std::vector<double>& vals, int nf, const Box& whole,
                   std::vector<double>& out);
Box scatter_from_first(const Box& mine, int nf, const Box& whole, const std::vector<double>& in,
                     std::vector<double>& vals);
// How many planes of `plane` values a slab of a file writer takes: as many
// as fit in 8 MB, at least one (a small case is written in one slab).
inline int slab_planes(long long plane) {
  constexpr long long kSlabValues = 1LL << 20;
  return plane >= kSlabValues ? 1 : static_cast<int>(kSlabValues / (plane > 0 ? plane : 1));
}
// A process that runs alone and holds a node array over exactly the plan's
// nodes 0..ni, 0..nj from plane 0 on has its planes in a file's order
// already: the writers take them from the array itself (no copies, no
// buffers to fault in); the array's first value, or null where the planes
// must be gathered.
inline const double* whole_planes(const Array3<double>& a, int ni, int nj) {
  const bool whole = a.lo(0) == 0 && a.hi(0) == ni && a.lo(1) == 0 && a.hi(1) == nj && a.lo(2) == 0;
  return dist_size() == 1 && whole ? a.data() : nullptr;
}
// The plane stream of the files a run writes and reads: over several
// processes each plane (or slab of planes) of a file passes through the
// first process, which alone opens the file, so that no process holds a
// whole 3-D field.  Every process calls these together.
//
// write_planes: for each slab k..ke of `per` planes in k0..k1, each process
// packs its values over its part of the slab (pack(box, vals), box = own
// with the slab's planes), nf quantities a position; the first process
// receives them over the whole slab (whole with the slab's planes) and
// hands them to put(k, ke, values).
template <class Pack, class Put>
void write_planes(const Box& own, const Box& whole, int k0, int k1, int per, int nf, Pack pack, Put put) {
  std::vector<double> mine, all;
  for (int k = k0; k <= k1; k += per) {
    const int ke = k1 - k + 1 < per ? k1 : k + per - 1;
    Box b = own, w = whole;
    b.k0 = w.k0 = k;
    b.k1 = w.k1 = ke;
    pack(b, mine);
    gather_to_first(b, mine, nf, w, all);
    if (first_process()) put(k, ke, all);
  }
}
// read_planes: for each plane k of k0..k1, the first process fills the
// whole plane (get(k, values), nf quantities a position over whole; false
// when the file fails, which every process then learns), and every process
// receives its part of the plane within `held` (halos included) and hands
// it to take(part, values).  False once a plane failed.
void dist_bcast(int* x, int n);
template <class Get, class Take>
bool read_planes(const Box& held, const Box& whole, int k0, int k1, int nf, Get get, Take take) {
  std::vector<double> plane, mine;
  for (int k = k0; k <= k1; ++k) {
    Box h = held, w = whole;
    h.k0 = w.k0 = h.k1 = w.k1 = k;
    int ok = 1;
    if (first_process()) {
      plane.resize(static_cast<std::size_t>(w.count()) * static_cast<std::size_t>(nf));
      ok = get(k, plane) ? 1 : 0;
    }
    dist_bcast(&ok, 1);
    if (!ok) return false;
    const Box part = scatter_from_first(h, nf, w, plane, mine);
    take(part, mine);
  }
  return true;
}

// The fields' values over a box, packed as above, and back.
void pack_box(std::initializer_list<const Array3<double>*> f, const Box& b, std::vector<double>& vals);
void unpack_box(std::initializer_list<Array3<double>*> f, const Box& b, const std::vector<double>& vals);
// Every process's n numbers, in the order of the ranks, on every process
// (with one process, its own).
void dist_allgather(const double* mine, int n, std::vector<double>& all);
// Every process's integers, one after the other in rank order, on the
// first process (with one process, its own).
void gather_ints(const std::vector<int>& mine, std::vector<int>& all);
// The rank of the process that owns position (i, j) of the box (0..imax+1,
// 0..jmax+1: a ghost layer belongs to the block at its face); 0 when the
// run is not cut.
int owner_of(int i, int j);
// Every process's bytes, one after the other in rank order, on every
// process (with one process, its own).
void allgather_bytes(const std::vector<unsigned char>& mine, std::vector<unsigned char>& all);
// Every process sends to[r] to process r and gets from[r] from process r
// (to[own rank] comes back in from[own rank]); to holds one list per
// process.  Every process calls it together; with one process it copies.
void send_each(const std::vector<std::vector<double>>& to, std::vector<std::vector<double>>& from);
// The first process's values of n numbers, given to every process.
void dist_bcast(double* x, int n);
void dist_bcast(int* x, int n);
void dist_bcast(long long* x, int n);


}  // namespace rl
