// The field store: every array and shared scalar of a run, by name.
//
// The store is global and lives from ALLOCFIELDS to the end of the process.
// The numerical routines take no arguments: they read and write these arrays
// in place.
//
// Grid and staggering
// -------------------
// The box has imax x jmax x kmax cells.  Node (i,j,k) sits at
//   x = xmin + i*dx,  y = ymin + j*dy,  z = zmin + k*dz,  i = 0..imax etc.
// Cell (i,j,k), i = 1..imax, j = 1..jmax, k = 1..kmax, lies between nodes
// i-1 and i, j-1 and j, k-1 and k; index 0 and imax+1 (jmax+1, kmax+1) are
// the ghost layer around the box.
//
//   p, phi, nut, vort, Q, flagc   at the centre of cell (i,j,k)
//   u(i,j,k), flagu               on the HIGH x face of cell (i,j,k), i.e. at
//                                 x node i, between cells i and i+1
//   v(i,j,k), flagv               on the high y face (y node j)
//   w(i,j,k), flagw               on the high z face (z node k)
//   bed(i,j)                      at the centre of column (i,j) in plan
//
// So u(0,j,k) is the low x boundary face of the box and u(imax,j,k) the high
// one.  Each face field has one further layer at index -1 in its own
// direction (u(-1,..), v(.,-1,.), w(.,.,-1)), one face beyond the boundary
// face, so that face stencils can reach across it.  Layer -1 is owned by the
// boundary routines; the initial state does not set it.
//
// Faces of the box are numbered 1 low x, 2 high x, 3 low y, 4 high y,
// 5 low z, 6 high z in every per-face array (ibcu, bcu, ...).
// Boundary types: -1 a given value, 0 periodic, 1 a given gradient.
//
// Flags: 1 fluid, 0 forcing point (fluid touching the bed), -1 solid.
#pragma once

#include <vector>

#include "common/array.hpp"

namespace rl {

// One multigrid level: five arrays with bounds 0:nx+1, 0:ny+1, 0:nz+1.
struct MGLEVEL {
  Array3<double> phi, lap, res, src, spare;
  int nx = 0, ny = 0, nz = 0;  // cell counts of the level
};

// Whether level l of the multigrid is cut among the processes of a run over
// several: the finest always, a coarser one while the blocks halve evenly,
// the coarsest never (every process solves it whole).
bool level_cut_here(int l);

// The levels lmin..0, indexed by the (non-positive) level number.
class MGLevels {
 public:
  void resize(int lmin) {
    lo_ = lmin;
    lv_.clear();
    lv_.resize(static_cast<std::size_t>(-lmin + 1));
  }
  MGLEVEL& operator()(int l) {
#ifdef RIVERLES_BOUNDS_CHECK
    if (l < lo_ || l > 0) {
      const int idx[1] = {l}, lo[1] = {lo_}, hi[1] = {0};
      detail::bounds_fail("pmg", 1, idx, lo, hi);
    }
#endif
    return lv_[static_cast<std::size_t>(l - lo_)];
  }
  int lo() const { return lo_; }
  int count() const { return static_cast<int>(lv_.size()); }

 private:
  std::vector<MGLEVEL> lv_;
  int lo_ = 0;
};

// ---- sizes and counters ----
extern int imax, jmax, kmax;  // cell counts
extern int lmin;              // coarsest multigrid level (0 or negative)
extern int nstep;             // step counter
extern int nslot;             // used entries of the slot list

// ---- domain ----
extern double dx, dy, dz;
extern double xmin, ymin, zmin, xmax, ymax, zmax;

// ---- physical and numerical conditions ----
extern double visc, dens, gravity, discharge;
extern double dt, cfl, endtime;
// Simulated time at the end of the step being computed (named so as not to
// hide the C library's time()).
extern double simtime;
extern int initial, iperturb;
extern double xinit, yinit, zinit, amplitude, bamplitude;
extern int ibed;       // how the roughness is given (BedItm)
extern double rough;   // grain size, thousandths of the length unit
extern double smagorinsky;
extern int iibm;
extern int igamma, ipres, iposts, kpoismax;
extern double eps;

// ---- results of the step ----
extern double forcex, forcey, forcez;  // body accelerations
extern double divmax, divsum;          // divergence after the correction

// ---- boundary types and values per face ----
extern Faces<int> ibcu, ibcv, ibcw, ibcp;
extern Faces<double> bcu, bcv, bcw;

// ---- flow fields ----
extern Array3<double> p, u, v, w, uo, vo, wo;
extern Array3<double> rhsuo, rhsvo, rhswo, rhsu, rhsv, rhsw;
extern Array3<double> vort, Q, nut;
extern Array3<int> flagu, flagv, flagw, flagc;
extern Array3<int> flaguo, flagvo, flagwo, flagco;
extern Array2<double> bed;
extern Array1<double> slot1, slot2, slot3, slot4, slot5, slot6;
extern Array1<int> slotflag;
// Work arrays of the Smagorinsky model.
extern Array3<double> s11, s22, s33, s12, s13, s23, sabs;

// ---- multigrid ----
extern MGLevels pmg;

// ---- node arrays of the main program (results on the 3-D node grid) ----
extern Array3<double> xg3, yg3, zg3;
extern Array2<double> elev;
extern Array3<double> uout, vout, wout, pout, vortout, qout;

// Sets lmin, the number of multigrid coarsenings as a negative number.
// reads: imax, jmax, kmax; writes: lmin
void LEVELCOUNT();

// Allocates the store (everything above but the node arrays) in its fixed
// order; a failure stops the run with error code 2.
// reads: imax, jmax, kmax, lmin; writes: every array of the store, nslot
void ALLOCFIELDS();

// Allocates the node arrays of the main program, bounds 0:imax, 0:jmax(, 0:kmax)
// (over several processes, the 3-D ones over this process's nodes).
// reads: imax, jmax, kmax; writes: xg3, yg3, zg3, elev, uout..qout
void ALLOCNODEARRAYS();

}  // namespace rl
