#include "driver/fields.hpp"

#include "results/saved.hpp"

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

void LEVELCOUNT() {
  if (imax < 2) {
    lmin = 0;
    return;
  }
  int a = imax, b = jmax, c = kmax, n = 0;
  while (b >= 2 && c >= 2) {
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

}  // namespace

void ALLOCFIELDS() {
  const int I = imax, J = jmax, K = kmax;
  // Multigrid records first, then each level's five arrays.
  pmg.resize(lmin);
  for (int l = lmin; l <= 0; ++l) {
    const int fac = 1 << (-l);
    MGLEVEL& g = pmg(l);
    g.nx = imax / fac;
    g.ny = jmax / fac;
    g.nz = kmax / fac;
    need(g.phi, "pmg%phi", 0, g.nx + 1, 0, g.ny + 1, 0, g.nz + 1);
    need(g.lap, "pmg%lap", 0, g.nx + 1, 0, g.ny + 1, 0, g.nz + 1);
    need(g.src, "pmg%src", 0, g.nx + 1, 0, g.ny + 1, 0, g.nz + 1);
    need(g.res, "pmg%res", 0, g.nx + 1, 0, g.ny + 1, 0, g.nz + 1);
    need(g.spare, "pmg%spare", 0, g.nx + 1, 0, g.ny + 1, 0, g.nz + 1);
  }
  need(p, "p", 0, I + 1, 0, J + 1, 0, K + 1);
  need(u, "u", -1, I + 1, 0, J + 1, 0, K + 1);
  need(v, "v", 0, I + 1, -1, J + 1, 0, K + 1);
  need(w, "w", 0, I + 1, 0, J + 1, -1, K + 1);
  need(uo, "uo", -1, I + 1, 0, J + 1, 0, K + 1);
  need(vo, "vo", 0, I + 1, -1, J + 1, 0, K + 1);
  need(wo, "wo", 0, I + 1, 0, J + 1, -1, K + 1);
  need(rhsuo, "rhsuo", 0, I + 1, 0, J + 1, 0, K + 1);
  need(rhsvo, "rhsvo", 0, I + 1, 0, J + 1, 0, K + 1);
  need(rhswo, "rhswo", 0, I + 1, 0, J + 1, 0, K + 1);
  need(rhsu, "rhsu", 0, I + 1, 0, J + 1, 0, K + 1);
  need(rhsv, "rhsv", 0, I + 1, 0, J + 1, 0, K + 1);
  need(rhsw, "rhsw", 0, I + 1, 0, J + 1, 0, K + 1);
  need(vort, "vort", 0, I + 1, 0, J + 1, 0, K + 1);
  need(Q, "Q", 0, I + 1, 0, J + 1, 0, K + 1);
  need(nut, "nut", 0, I + 1, 0, J + 1, 0, K + 1);
  need(flagu, "flagu", -1, I + 1, 0, J + 1, 0, K + 1);
  need(flagv, "flagv", 0, I + 1, -1, J + 1, 0, K + 1);
  need(flagw, "flagw", 0, I + 1, 0, J + 1, -1, K + 1);
  need(flagc, "flagc", 0, I + 1, 0, J + 1, 0, K + 1);
  need(flaguo, "flaguo", -1, I + 1, 0, J + 1, 0, K + 1);
  need(flagvo, "flagvo", 0, I + 1, -1, J + 1, 0, K + 1);
  need(flagwo, "flagwo", 0, I + 1, 0, J + 1, -1, K + 1);
  need(flagco, "flagco", 0, I + 1, 0, J + 1, 0, K + 1);
  need(bed, "bed", 0, I + 1, 0, J + 1);
  nslot = 1;
  need(slot1, "slot1", 1, nslot);
  need(slot2, "slot2", 1, nslot);
  need(slot3, "slot3", 1, nslot);
  need(slot4, "slot4", 1, nslot);
  need(slot5, "slot5", 1, nslot);
  need(slot6, "slot6", 1, nslot);
  need(slotflag, "slotflag", 1, nslot);
  need(s11, "s11", 0, I + 1, 0, J + 1, 0, K + 1);
  need(s22, "s22", 0, I + 1, 0, J + 1, 0, K + 1);
  need(s33, "s33", 0, I + 1, 0, J + 1, 0, K + 1);
  need(s12, "s12", 0, I + 1, 0, J + 1, 0, K + 1);
  need(s13, "s13", 0, I + 1, 0, J + 1, 0, K + 1);
  need(s23, "s23", 0, I + 1, 0, J + 1, 0, K + 1);
  need(sabs, "sabs", 0, I + 1, 0, J + 1, 0, K + 1);
}

void ALLOCNODEARRAYS() {
  // A failed allocation here would only show as a failing library call
  // later, reported as a read error; it stops with the allocation error.
  need(xg3, "xg3", 0, imax, 0, jmax, 0, kmax);
  need(yg3, "yg3", 0, imax, 0, jmax, 0, kmax);
  need(zg3, "zg3", 0, imax, 0, jmax, 0, kmax);
  need(elev, "elev", 0, imax, 0, jmax);
  need(uout, "uout", 0, imax, 0, jmax, 0, kmax);
  need(vout, "vout", 0, imax, 0, jmax, 0, kmax);
  need(wout, "wout", 0, imax, 0, jmax, 0, kmax);
  need(pout, "pout", 0, imax, 0, jmax, 0, kmax);
  need(vortout, "vortout", 0, imax, 0, jmax, 0, kmax);
  need(qout, "qout", 0, imax, 0, jmax, 0, kmax);
}

}  // namespace rl
