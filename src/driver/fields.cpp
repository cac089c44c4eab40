#include "driver/fields.hpp"
#include "flow/openreach.hpp"

#include <utility>

#include "common/console.hpp"
#include "common/distributed.hpp"

namespace rl {

int imax = 0, jmax = 0, kmax = 0;
int lmin = 0;
int nstep = 0;
int nslot = 0;

double dx = 0, dy = 0, dz = 0;
double xmin = 0, ymin = 0, zmin = 0, xmax = 0, ymax = 0, zmax = 0;

double visc = 0, dens = 0, gravity = 0, discharge = 0;
double dt = 0, cfl = 0, simtime = 0, endtime = 0;
int initial = 0, iperturb = 0;
double xinit = 0, yinit = 0, zinit = 0, amplitude = 0, bamplitude = 0;
int ibed = 0;
double rough = 0;
double smagorinsky = 0;
int iibm = 0;
int igamma = 0, ipres = 0, iposts = 0, kpoismax = 0;
double eps = 0;

double forcex = 0, forcey = 0, forcez = 0;
double divmax = 0, divsum = 0;

Faces<int> ibcu, ibcv, ibcw, ibcp;
Faces<double> bcu, bcv, bcw;

Array3<double> p, u, v, w, uo, vo, wo;
Array3<double> rhsuo, rhsvo, rhswo, rhsu, rhsv, rhsw;
Array3<double> vort, Q, nut;
Array3<int> flagu, flagv, flagw, flagc;
Array3<int> flaguo, flagvo, flagwo, flagco;
Array2<double> bed;
Array1<double> slot1, slot2, slot3, slot4, slot5, slot6;
Array1<int> slotflag;
Array3<double> s11, s22, s33, s12, s13, s23, sabs;

MGLevels pmg;

Array3<double> xg3, yg3, zg3;
Array2<double> elev;
Array3<double> uout, vout, wout, pout, vortout, qout;

bool level_cut_here(int l) { return level_is_cut(l) && (l == 0 || l > lmin); }

void LEVELCOUNT() {
  if (imax < 2) {
    lmin = 0;
    return;
  }
  int a = imax, b = jmax, c = kmax, n = 0;
  while (b >= 2 && c >= 2) {
    // An open reach's pressure equation has a given gradient on every face:
    // a coarse level that drops the last cell of an odd count misplaces a
    // face, and the cycle diverged (160 x 26 x 16 cells: 26 halves to 13,
    // then to 6).  Its levels stop before such a halving.
    if (open_reach() && (a % 2 != 0 || b % 2 != 0 || c % 2 != 0)) break;
    n = n - 1;
    a = a / 2;
    b = b / 2;
    c = c / 2;
    if (!(a > 1)) break;
  }
  lmin = n;
}

namespace {

template <typename A, typename... B>
void need(A& arr, const char* name, B... bounds) {
  if (!arr.allocate(name, bounds...)) ERRORSTOP(2);
}

// A field over the cells of the box with the given lower bounds (-1 where
// the field has a face below the first cell) up to the ghost layer above the
// last: this process's part of it, with kHalo columns of its neighbours.
template <typename T>
void held(Array3<T>& arr, const char* name, int ilo, int jlo, int klo) {
  need(arr, name, held_lo_i(ilo, kHalo), held_hi_i(imax + 1, kHalo), held_lo_j(jlo, kHalo),
       held_hi_j(jmax + 1, kHalo), klo, kmax + 1);
  // A field with a layer -1 in one direction sits on that direction's faces.
  arr.set_face_axis(ilo == -1 ? 0 : jlo == -1 ? 1 : klo == -1 ? 2 : -1);
}

}  // namespace

void ALLOCFIELDS() {
  const int I = imax, J = jmax;
  // Multigrid records first, then each level's five arrays.
  pmg.resize(lmin);
  for (int l = lmin; l <= 0; ++l) {
    const int fac = 1 << (-l);
    MGLEVEL& g = pmg(l);
    g.nx = imax / fac;
    g.ny = jmax / fac;
    g.nz = kmax / fac;
    // The finest level is held like the fields; a cut coarse level as its
    // block with one column of each neighbour; the others whole.
    int i0 = 0, i1 = g.nx + 1, j0 = 0, j1 = g.ny + 1;
    if (l < 0 && level_cut_here(l)) {
      const LevelCut& c = level_cut(l);
      i0 = c.west ? 0 : c.blk.ilo - 1;
      i1 = c.east ? g.nx + 1 : c.blk.ihi + 1;
      j0 = c.south ? 0 : c.blk.jlo - 1;
      j1 = c.north ? g.ny + 1 : c.blk.jhi + 1;
    }
    for (auto [a, name] : {std::pair{&g.phi, "pmg%phi"}, {&g.lap, "pmg%lap"}, {&g.src, "pmg%src"},
                           {&g.res, "pmg%res"}, {&g.spare, "pmg%spare"}}) {
      if (l == 0)
        held(*a, name, 0, 0, 0);
      else
        need(*a, name, i0, i1, j0, j1, 0, g.nz + 1);
    }
  }
  held(p, "p", 0, 0, 0);
  held(u, "u", -1, 0, 0);
  held(v, "v", 0, -1, 0);
  held(w, "w", 0, 0, -1);
  held(uo, "uo", -1, 0, 0);
  held(vo, "vo", 0, -1, 0);
  held(wo, "wo", 0, 0, -1);
  held(rhsuo, "rhsuo", 0, 0, 0);
  held(rhsvo, "rhsvo", 0, 0, 0);
  held(rhswo, "rhswo", 0, 0, 0);
  held(rhsu, "rhsu", 0, 0, 0);
  held(rhsv, "rhsv", 0, 0, 0);
  held(rhsw, "rhsw", 0, 0, 0);
  held(vort, "vort", 0, 0, 0);
  held(Q, "Q", 0, 0, 0);
  held(nut, "nut", 0, 0, 0);
  held(flagu, "flagu", -1, 0, 0);
  held(flagv, "flagv", 0, -1, 0);
  held(flagw, "flagw", 0, 0, -1);
  held(flagc, "flagc", 0, 0, 0);
  held(flaguo, "flaguo", -1, 0, 0);
  held(flagvo, "flagvo", 0, -1, 0);
  held(flagwo, "flagwo", 0, 0, -1);
  held(flagco, "flagco", 0, 0, 0);
  need(bed, "bed", 0, I + 1, 0, J + 1);
  nslot = 1;
  need(slot1, "slot1", 1, nslot);
  need(slot2, "slot2", 1, nslot);
  need(slot3, "slot3", 1, nslot);
  need(slot4, "slot4", 1, nslot);
  need(slot5, "slot5", 1, nslot);
  need(slot6, "slot6", 1, nslot);
  need(slotflag, "slotflag", 1, nslot);
  held(s11, "s11", 0, 0, 0);
  held(s22, "s22", 0, 0, 0);
  held(s33, "s33", 0, 0, 0);
  held(s12, "s12", 0, 0, 0);
  held(s13, "s13", 0, 0, 0);
  held(s23, "s23", 0, 0, 0);
  held(sabs, "sabs", 0, 0, 0);
}

void ALLOCNODEARRAYS() {
  // A failed allocation here would only show as a failing library call
  // later, reported as a read error; it stops with the allocation error.
  // Over several processes, the nodes of this process's block (node i lies
  // between cells i and i + 1; the blocks at the low faces have node 0).
  const int i0 = own_lo_i(0), i1 = own_hi_i(imax), j0 = own_lo_j(0), j1 = own_hi_j(jmax);
  for (auto [a, name] : {std::pair{&xg3, "xg3"}, {&yg3, "yg3"}, {&zg3, "zg3"}}) need(*a, name, i0, i1, j0, j1, 0, kmax);
  need(elev, "elev", 0, imax, 0, jmax);
  for (auto [a, name] : {std::pair{&uout, "uout"}, {&vout, "vout"}, {&wout, "wout"}, {&pout, "pout"},
                         {&vortout, "vortout"}, {&qout, "qout"}})
    need(*a, name, i0, i1, j0, j1, 0, kmax);
}

}  // namespace rl
