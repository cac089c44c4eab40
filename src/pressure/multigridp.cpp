#include "pressure/multigridp.hpp"

#include <omp.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/distributed.hpp"
#include "common/ghosts.hpp"
#include "common/parallel.hpp"
#include "driver/fields.hpp"
#include "pressure/linesmoother.hpp"

namespace rl {

namespace {

// Cell sizes of level l are the flow grid's times 2^-l.
inline double level_fac(int l) { return std::ldexp(1.0, -l); }

// Squares of the cell sizes of a level: the size is formed first, then
// squared.
struct LevelSteps {
  double dx2, dy2, dz2;
};

inline LevelSteps level_steps(int l) {
  const double fac = level_fac(l);
  const double hx = dx * fac, hy = dy * fac, hz = dz * fac;
  return {hx * hx, hy * hy, hz * hz};
}


// Weights of the ghost rule for one face: ghost = t*adjacent + o*far end.
struct GhostWeights {
  double t, o;
};

inline GhostWeights ghost_weights(int face) {
  const int t = ibcp(face);
  return {static_cast<double>(t), static_cast<double>(1 - std::abs(t))};
}

// The cells of a level that this process computes.  In a run over several
// processes the finest level is cut like the fields (each process its
// block), and so are the coarser levels while the blocks halve evenly; the
// levels below are held whole by every process, which solves them alike
// (the coarse problem is gathered, see RESTRICTIONP).
struct Cells {
  int i0, i1, j0, j1;
  bool part;  // the level is cut among the processes
  int level;
  bool west, east, south, north;  // the block touches that face of the box
};

inline Cells level_cells(int l, const MGLEVEL& g) {
  if (!level_cut_here(l)) return {1, g.nx, 1, g.ny, false, l, true, true, true, true};
  const LevelCut& c = level_cut(l);
  return {c.west ? 1 : c.blk.ilo, c.east ? g.nx : c.blk.ihi, c.south ? 1 : c.blk.jlo, c.north ? g.ny : c.blk.jhi,
          true, l, c.west, c.east, c.south, c.north};
}

// What the halo of a level's array carries: the interior cells, never the
// box's ghost layers, whose edges the ghost rule leaves as they are.
inline Reach interior(int nx, int ny, int nz) { return Reach{1, nx, 1, ny, 1, nz}; }

// Whether the cells of c on nz planes are worth sharing among threads.
inline bool share_cells(const Cells& c, int nz) {
  return worth_sharing(cells_of(c.i1 - c.i0 + 1, c.j1 - c.j0 + 1, nz));
}

// The three face groups of the ghost rule on an array of a level, as
// worksharing loops inside an enclosing parallel region; each loop ends with
// a barrier so a later group may read what an earlier one wrote.  Only the
// interior ranges of the faces are written: edges and corners stay.
//
// On a cut level each process does the faces its block touches, over its
// own rows; then the halo comes from the neighbours.  Where a direction is
// cut, the rule's term at the far end of the box (weight 1 only on a
// periodic face) is not held: a periodic face's ghost is then copied from
// the block at the other end, and the other faces take the near term alone.
void face_ghosts(Array3<double>& f, int nx, int ny, int nz, const Cells& c) {
  const GhostFaces g = level_faces(nx, ny, nz, c.part, c.west, c.east, c.south, c.north, c.level);
  const LineExtent lines{c.i0, c.i1, c.j0, c.j1, 1, nz};
  for (int ax = 0; ax < 3; ++ax) {
    const int lo = 2 * ax + 1, hi = lo + 1, n = g.n[ax];
    const GhostWeights wl = ghost_weights(lo), wh = ghost_weights(hi);
    const bool rlo = g.rule(lo, ibcp(lo)), rhi = g.rule(hi, ibcp(hi));
    if (!g.cut[ax]) {
      face_lines({&f}, ax, lines, [=](double* e, std::int64_t s) {
        e[0] = wl.t * e[s] + wl.o * e[n * s];
        e[(n + 1) * s] = wh.t * e[n * s] + wh.o * e[s];
      });
    } else {
      face_lines({&f}, ax, lines, [=](double* e, std::int64_t s) {
        if (rlo) e[0] = wl.t * e[s];
        if (rhi) e[(n + 1) * s] = wh.t * e[n * s];
      });
    }
    ghost_barrier();
    if (g.cut[ax])
      wrap_team({&f}, g, ax, g.wraps(lo, ibcp(lo)), g.wraps(hi, ibcp(hi)), interior(nx, ny, nz));
  }
  // The halo of a cut level, by the main thread; all wait for it.
  if (c.part) halo_team({&f}, 1, interior(nx, ny, nz), c.level);
}

}  // namespace

void SOURCEP() {
  MGLEVEL& g = pmg(0);
  const Cells c = level_cells(0, g);
  const double f = dens / dt;
  const double hx = dx, hy = dy, hz = dz;
  const int nk = kmax;
#pragma omp parallel for schedule(static) if (worth_sharing(cells_of(imax, jmax, kmax)))
  for (int k = 1; k <= nk; ++k) {
    for (int j = c.j0; j <= c.j1; ++j) {
      const double* ur = u.row(j, k);
      const double* vr = v.row(j, k);
      const double* vm = v.row(j - 1, k);
      const double* wr = w.row(j, k);
      const double* wm = w.row(j, k - 1);
      double* s = g.src.row(j, k);
      for (int i = c.i0; i <= c.i1; ++i) {
        s[i] = ((ur[i] - ur[i - 1]) / hx + (vr[i] - vm[i]) / hy + (wr[i] - wm[i]) / hz) * f;
      }
    }
  }
}

namespace {

// Square root of the sum of squares of the interior of a level's array (on
// a cut level, of every process's cells: the partial sums added in the
// order of the processes, so that every process gets the same norm).
double interior_norm(Array3<double>& a, const Cells& c, int nz) {
  double sum = 0.0;
#pragma omp parallel for schedule(static) reduction(+ : sum) \
    if (worth_sharing(cells_of(c.i1 - c.i0 + 1, c.j1 - c.j0 + 1, nz)))
  for (int k = 1; k <= nz; ++k) {
    for (int j = c.j0; j <= c.j1; ++j) {
      const double* r = a.row(j, k);
      for (int i = c.i0; i <= c.i1; ++i) sum += r[i] * r[i];
    }
  }
  if (c.part) sum = dist_sum(sum);
  return std::sqrt(sum);
}

}  // namespace

void DIVNORMP(int l, double& result) {
  MGLEVEL& g = pmg(l);
  result = 0.0;
  result = interior_norm(g.src, level_cells(l, g), g.nz);
}

void RESNORMP(int l, double& result) {
  MGLEVEL& g = pmg(l);
  result = 0.0;
  result = interior_norm(g.res, level_cells(l, g), g.nz);
}

void BOUNDARYP(int l) {
  MGLEVEL& g = pmg(l);
#pragma omp parallel if (worth_sharing(face_cells(g.nx, g.ny, g.nz)))
  face_ghosts(g.phi, g.nx, g.ny, g.nz, level_cells(l, g));
}

void BOUNDARYPRES(int l) {
  MGLEVEL& g = pmg(l);
  Array3<double>& r = g.res;
  const int nx = g.nx, ny = g.ny, nz = g.nz;
  // On a cut level each process does the edges and corners its block
  // touches.
  const Cells c = level_cells(l, g);
  const bool lox = c.west, hix = c.east, loy = c.south, hiy = c.north;
#pragma omp parallel if (worth_sharing(face_cells(nx, ny, nz)))
  {
    face_ghosts(r, nx, ny, nz, c);

    // Group 4: the four edges along x.
#pragma omp for schedule(static)
    for (int i = c.i0; i <= c.i1; ++i) {
      if (loy) r(i, 0, 0) = r(i, 0, 1) - r(i, 1, 1) + r(i, 1, 0);
      if (hiy) r(i, ny + 1, 0) = r(i, ny + 1, 1) - r(i, ny, 1) + r(i, ny, 0);
      if (loy) r(i, 0, nz + 1) = r(i, 0, nz) - r(i, 1, nz) + r(i, 1, nz + 1);
      if (hiy) r(i, ny + 1, nz + 1) = r(i, ny + 1, nz) - r(i, ny, nz) + r(i, ny, nz + 1);
    }

    // Group 5: the four edges along y.
#pragma omp for schedule(static)
    for (int j = c.j0; j <= c.j1; ++j) {
      if (lox) {
        r(0, j, 0) = r(1, j, 0) - r(1, j, 1) + r(0, j, 1);
        r(0, j, nz + 1) = r(1, j, nz + 1) - r(1, j, nz) + r(0, j, nz);
      }
      if (hix) {
        r(nx + 1, j, 0) = r(nx, j, 0) - r(nx, j, 1) + r(nx + 1, j, 1);
        r(nx + 1, j, nz + 1) = r(nx, j, nz + 1) - r(nx, j, nz) + r(nx + 1, j, nz);
      }
    }

    // Group 6: the four edges along z.
#pragma omp for schedule(static)
    for (int k = 1; k <= nz; ++k) {
      if (lox && loy) r(0, 0, k) = r(0, 1, k) - r(1, 1, k) + r(1, 0, k);
      if (hix && loy) r(nx + 1, 0, k) = r(nx + 1, 1, k) - r(nx, 1, k) + r(nx, 0, k);
      if (lox && hiy) r(0, ny + 1, k) = r(0, ny, k) - r(1, ny, k) + r(1, ny + 1, k);
      if (hix && hiy) r(nx + 1, ny + 1, k) = r(nx + 1, ny, k) - r(nx, ny, k) + r(nx, ny + 1, k);
    }
  }

  // The eight corners, by the calling thread, in a fixed order.  For ghost
  // indices (ci,cj,ck) and their interior neighbours (ii,ij,ik):
  // r(c) = r(ii,ij,ck) + r(ci,ij,ik) + r(ii,cj,ik) - 2 r(ii,ij,ik).
  const int cis[2] = {0, nx + 1}, iis[2] = {1, nx};
  const int cjs[2] = {0, ny + 1}, ijs[2] = {1, ny};
  const int cks[2] = {0, nz + 1}, iks[2] = {1, nz};
  const bool hasx[2] = {lox, hix}, hasy[2] = {loy, hiy};
  for (int zk = 0; zk < 2; ++zk) {
    for (int yj = 0; yj < 2; ++yj) {
      for (int xi = 0; xi < 2; ++xi) {
        if (!hasx[xi] || !hasy[yj]) continue;
        const int ci = cis[xi], ii = iis[xi];
        const int cj = cjs[yj], ij = ijs[yj];
        const int ck = cks[zk], ik = iks[zk];
        r(ci, cj, ck) = r(ii, ij, ck) + r(ci, ij, ik) + r(ii, cj, ik) - 2.0 * r(ii, ij, ik);
      }
    }
  }
}

void OPERATORP(int l) {
  BOUNDARYP(l);
  MGLEVEL& g = pmg(l);
  const Cells c = level_cells(l, g);
  const int nz = g.nz;
  const LevelSteps h = level_steps(l);
  const double dx2 = h.dx2, dy2 = h.dy2, dz2 = h.dz2;
  const std::ptrdiff_t sj = g.phi.sj(), sk = g.phi.sk();
  // Shared by rows j, as the smoother shares its columns, so that each
  // thread reads what it wrote last; every position on its own.
#pragma omp parallel if (share_cells(c, nz))
  {
    int jb, je;
    static_share(c.j0, c.j1, jb, je);
    for (int k = 1; k <= nz; ++k) {
      for (int j = jb; j <= je; ++j) {
        const double* p = g.phi.row(j, k);
        double* lp = g.lap.row(j, k);
        for (int i = c.i0; i <= c.i1; ++i) {
          lp[i] = (p[i + 1] - p[i] - p[i] + p[i - 1]) / dx2 +
                  (p[i + sj] - p[i] - p[i] + p[i - sj]) / dy2 +
                  (p[i + sk] - p[i] - p[i] + p[i - sk]) / dz2;
        }
      }
    }
  }
}

void TRIDIAGP(int n, double* a, double* b, double* c, double* d, double* x) {
  // Indices below are 1-based as in the textbook form: element k is [k-1].
  if (n >= 2) {
    for (int k = 1; k <= n - 1; ++k) b[k] = b[k] - a[k] * c[k - 1] / b[k - 1];
    for (int k = 1; k <= n - 1; ++k) d[k] = d[k] - a[k] * d[k - 1] / b[k - 1];
  }
  x[n - 1] = d[n - 1] / b[n - 1];
  if (n >= 2) {
    for (int k = n - 1; k >= 1; --k) x[k - 1] = (d[k - 1] - c[k - 1] * x[k]) / b[k - 1];
  }
}

void SMOOTHINGP(int l, int n) {
  if (n < 1) return;
  MGLEVEL& g = pmg(l);
  const int nx = g.nx, ny = g.ny, nz = g.nz;
  const LevelSteps h = level_steps(l);
  const double cx = 1.0 / h.dx2, cy = 1.0 / h.dy2, cz = 1.0 / h.dz2;
  const double diag = (cx + cy + cz) * -2.0;

  // Every column has the same matrix: a = c = cz off the diagonal, diag on
  // it, the end rows folded with the bottom and top pressure types alone
  // (the z ghosts of phi are not used here, so a periodic end acts as a
  // zero).  LINESOLVE below is the plain solve of one column; the sweeps run
  // the tuned solver of linesmoother.hpp, which gives the same bits.
  // On a cut level the columns next to a process edge see the neighbour's
  // columns as of the last exchange, as the columns next to a thread's share
  // see the other thread's as timing gives.
  const LineSmoother smoother(g.phi, g.src, cx, cy, cz, diag, ibcp(LowZ), ibcp(HighZ), nz);
  const Cells c = level_cells(l, g);
  const bool share = share_cells(c, nz);
  for (int sweep = 1; sweep <= n; ++sweep) {
#pragma omp parallel if (share)
    {
      // The ghost layer first (BOUNDARYP(l), with its barriers), then the
      // columns, parallel over j in static shares.
      face_ghosts(g.phi, nx, ny, nz, c);
      int jb, je;
      static_share(c.j0, c.j1, jb, je);
      smoother.sweep_rows(c.i0, c.i1, jb, je);
    }
  }
}

void LINESOLVE(int l, int i, int j) {
  MGLEVEL& g = pmg(l);
  const int nz = g.nz;
  if (nz < 1) return;
  const LevelSteps h = level_steps(l);
  const double cx = 1.0 / h.dx2, cy = 1.0 / h.dy2, cz = 1.0 / h.dz2;
  const double diag = (cx + cy + cz) * -2.0;
  std::vector<double> a(nz), b(nz), c(nz), d(nz), x(nz);
  const Array3<double>& phi = g.phi;
  for (int k = 1; k <= nz; ++k) {
    a[k - 1] = cz;
    c[k - 1] = cz;
    b[k - 1] = diag;
    d[k - 1] = g.src(i, j, k) - (phi(i - 1, j, k) + phi(i + 1, j, k)) * cx - (phi(i, j - 1, k) + phi(i, j + 1, k)) * cy;
  }
  b[0] = b[0] + a[0] * ibcp(LowZ);
  b[nz - 1] = b[nz - 1] + c[nz - 1] * ibcp(HighZ);
  a[0] = 0.0;
  c[nz - 1] = 0.0;
  TRIDIAGP(nz, a.data(), b.data(), c.data(), d.data(), x.data());
  for (int k = 1; k <= nz; ++k) g.phi(i, j, k) = x[k - 1];
}

void RESIDUALP(int l) {
  MGLEVEL& g = pmg(l);
  const Cells c = level_cells(l, g);
  const int nz = g.nz;
  // Shared by rows j, as the smoother shares its columns, so that each
  // thread reads what it wrote last; every position on its own.
#pragma omp parallel if (share_cells(c, nz))
  {
    int jb, je;
    static_share(c.j0, c.j1, jb, je);
    for (int k = 1; k <= nz; ++k) {
      for (int j = jb; j <= je; ++j) {
        const double* s = g.src.row(j, k);
        const double* lp = g.lap.row(j, k);
        double* r = g.res.row(j, k);
        for (int i = c.i0; i <= c.i1; ++i) r[i] = s[i] - lp[i];
      }
    }
  }
}

namespace {

// The coarse cells (i, j) whose first fine cell (2i - 1, 2j - 1) lies in
// the fine cells f: on a cut fine level, each process's share of the coarse
// level, disjoint and together whole; their second fine cells may lie in
// the halo.  An uncut fine level gives the whole coarse level.
Cells coarse_share(const Cells& f, const MGLEVEL& c, int l) {
  if (!f.part) return {1, c.nx, 1, c.ny, false, l, true, true, true, true};
  return {(f.i0 + 2) / 2, std::min((f.i1 + 1) / 2, c.nx), (f.j0 + 2) / 2, std::min((f.j1 + 1) / 2, c.ny), true, l,
          f.west, f.east, f.south, f.north};
}

}  // namespace

void RESTRICTIONP(int l) {
  MGLEVEL& f = pmg(l);
  MGLEVEL& c = pmg(l - 1);
  const int nz = c.nz;
  const Cells fc = level_cells(l, f);
  // Between two cut levels each process restricts its own block (the fine
  // cells of its coarse cells are its own).  From a cut level to a whole one:
  // each process restricts its share (the fine residual's halo first) and
  // then every process gathers the others' shares, so that all hold the same
  // coarse problem.
  const bool gather = fc.part && !level_cut_here(l - 1);
  if (gather) fill_halo(f.res, 1, interior(f.nx, f.ny, f.nz), l);
  const Cells cc = gather ? coarse_share(fc, c, l - 1) : level_cells(l - 1, c);
  const int i0 = cc.i0, i1 = cc.i1;
#pragma omp parallel for schedule(static) if (worth_sharing(8 * cells_of(i1 - i0 + 1, cc.j1 - cc.j0 + 1, nz)))
  for (int k = 1; k <= nz; ++k) {
    for (int j = cc.j0; j <= cc.j1; ++j) {
      const double* r00 = f.res.row(2 * j - 1, 2 * k - 1);
      const double* r10 = f.res.row(2 * j, 2 * k - 1);
      const double* r01 = f.res.row(2 * j - 1, 2 * k);
      const double* r11 = f.res.row(2 * j, 2 * k);
      double* s = c.src.row(j, k);
      double* p = c.phi.row(j, k);
      for (int i = i0; i <= i1; ++i) {
        const int a = 2 * i - 1, b = 2 * i;
        s[i] = 0.125 * (r00[a] + r00[b] + r10[a] + r10[b] + r01[a] + r01[b] + r11[a] + r11[b]);
        p[i] = 0.0;
      }
    }
  }
  if (gather) {
    allgather_box(c.src, cc.i0, cc.i1, cc.j0, cc.j1, 1, nz);
    for (int k = 1; k <= nz; ++k)
      for (int j = 1; j <= c.ny; ++j) {
        double* p = c.phi.row(j, k);
        for (int i = 1; i <= c.nx; ++i) p[i] = 0.0;
      }
  }
}

void PROLONGATIONP(int l) {
  // The ghosts of res of the coarse level are refreshed, but the
  // interpolation reads phi of the coarse level: its face ghosts are those
  // of the last BOUNDARYP there, one sweep behind the interior, on purpose.
  BOUNDARYPRES(l - 1);
  MGLEVEL& c = pmg(l - 1);
  MGLEVEL& f = pmg(l);
  const int nz = c.nz;
  // A cut coarse level: its own block, whose fine cells are this process's.
  // A whole coarse level under a cut fine one: the coarse cells with a fine
  // cell of this process; the other fine cell of such a coarse cell lies in
  // the halo, which the next exchange overwrites before anything reads it.
  const Cells fc = level_cells(l, f);
  const Cells cc = level_cut_here(l - 1)
                       ? level_cells(l - 1, c)
                       : fc.part ? Cells{(fc.i0 + 1) / 2, std::min((fc.i1 + 1) / 2, c.nx), (fc.j0 + 1) / 2,
                                         std::min((fc.j1 + 1) / 2, c.ny), true, l - 1, fc.west, fc.east, fc.south,
                                         fc.north}
                                 : level_cells(l - 1, c);
  const int i0 = cc.i0, i1 = cc.i1;
  const Array3<double>& P = c.phi;
#pragma omp parallel for schedule(static) if (worth_sharing(8 * cells_of(i1 - i0 + 1, cc.j1 - cc.j0 + 1, nz)))
  for (int k = 1; k <= nz; ++k) {
    for (int sk = -1; sk <= 1; sk += 2) {
      const int fk = sk < 0 ? 2 * k - 1 : 2 * k;
      for (int j = cc.j0; j <= cc.j1; ++j) {
        for (int sj = -1; sj <= 1; sj += 2) {
          const int fj = sj < 0 ? 2 * j - 1 : 2 * j;
          const double* pc = P.row(j, k);
          const double* pj = P.row(j + sj, k);
          const double* pk = P.row(j, k + sk);
          double* fr = f.res.row(fj, fk);
          double* fp = f.phi.row(fj, fk);
          for (int i = i0; i <= i1; ++i) {
            // Mean of the coarse cell and its three neighbours nearest to
            // the fine cell, each weighted one quarter; the result is added.
            const double lo = 0.25 * (pc[i] + pc[i - 1] + pj[i] + pk[i]);
            fr[2 * i - 1] = lo;
            fp[2 * i - 1] = fp[2 * i - 1] + lo;
            const double hi = 0.25 * (pc[i] + pc[i + 1] + pj[i] + pk[i]);
            fr[2 * i] = hi;
            fp[2 * i] = fp[2 * i] + hi;
          }
        }
      }
    }
  }
}

void SOLVERP(int l, int ncoarse) {
  MGLEVEL& g = pmg(l);
  const int nx = g.nx, ny = g.ny, nz = g.nz;
  const LevelSteps h = level_steps(l);
  const double dx2 = h.dx2, dy2 = h.dy2, dz2 = h.dz2;
  const double c = 2.0 / dx2 + 2.0 / dy2 + 2.0 / dz2;
  if (ncoarse <= 0) return;
  const std::ptrdiff_t sj = g.phi.sj(), sk = g.phi.sk();
  // A cut level here (a grid too flat for a coarser one) stops on the
  // largest change of all processes.
  const Cells cl = level_cells(l, g);
  const bool share = share_cells(cl, nz);
  for (int it = 1; it <= ncoarse; ++it) {
    double change = 0.0;
#pragma omp parallel if (share)
    {
      // BOUNDARYP(l), with its barriers, then the sweep.
      face_ghosts(g.phi, nx, ny, nz, cl);
      double mine = -DBL_MAX;
#pragma omp for schedule(static)
      for (int k = 1; k <= nz; ++k) {
        for (int j = cl.j0; j <= cl.j1; ++j) {
          double* p = g.phi.row(j, k);
          const double* s = g.src.row(j, k);
          for (int i = cl.i0; i <= cl.i1; ++i) {
            const double old = p[i];
            const double nw =
                ((p[i + 1] + p[i - 1]) / dx2 + (p[i + sj] + p[i - sj]) / dy2 + (p[i + sk] + p[i - sk]) / dz2 - s[i]) /
                c;
            if (nw != 0.0) mine = std::max(mine, std::fabs((nw - old) / nw));
            p[i] = nw;
          }
        }
      }
#pragma omp critical(riverles_solverp_change)
      change = std::max(change, mine);
    }
    if (cl.part) change = dist_max(change);
    if (change < 1e-8) break;
  }
}

void MULTIGRIDP(int l, int gamma, int npre, int npost, int ncoarse) {
  if (l == lmin) {
    SOLVERP(l, ncoarse);
    return;
  }
  SMOOTHINGP(l, npre);
  OPERATORP(l);
  RESIDUALP(l);
  RESTRICTIONP(l);
  for (int n = 1; n <= gamma; ++n) MULTIGRIDP(l - 1, gamma, npre, npost, ncoarse);
  PROLONGATIONP(l);
  SMOOTHINGP(l, npost);
}

int POISSONP() {
  SOURCEP();
  double divnorm = 0.0, resnorm = 0.0;
  DIVNORMP(0, divnorm);
  int npoisson = 0;
  for (;;) {
    npoisson = npoisson + 1;
    MULTIGRIDP(0, igamma, ipres, iposts, 100);
    OPERATORP(0);
    RESIDUALP(0);
    RESNORMP(0, resnorm);
    // The order of the tests matters: the limit first (strict, so kpoismax
    // allows one cycle more), then the ratio (strict, so a ratio that is not
    // a number counts as converged), then at least two cycles.
    if (npoisson > kpoismax) break;
    if (resnorm / divnorm > eps) continue;
    if (npoisson < 2) continue;
    break;
  }
  return npoisson;
}

}  // namespace rl
