// Geometric multigrid solver of the pressure-correction equation.
//
// Cell-centred multigrid on the uniform box: full coarsening by 2 in all
// three directions, a recursive cycle (igamma = 1 a V, 2 a W cycle), vertical
// line Gauss-Seidel as smoother, point Gauss-Seidel on the coarsest level and
// a stop rule on the ratio of the residual norm to the norm of the source.
// Every routine works on the levels of pmg (the field store); l is the level
// number, 0 the flow grid and lmin the coarsest.  No flag is read: every cell
// of the box is an unknown, the outer faces enter through the ghost layer.
#pragma once

namespace rl {

// Right-hand side of level 0: dens/dt times the divergence of u, v, w.
// reads: u, v, w, dens, dt, dx, dy, dz; writes: pmg(0).src
void SOURCEP();

// L2 norms (square root of the plain sum of squares over the interior) of
// src and of res of level l.
void DIVNORMP(int l, double& result);
void RESNORMP(int l, double& result);

// Face ghosts of phi of level l from ibcp: ghost = t*adjacent + (1-|t|)*far
// end of the row.  Edges and corners of the ghost layer are left as they are.
// (BOUNDARY_M has a BOUNDARYP() without arguments for p.)
// reads: phi of l, ibcp; writes: the face ghosts of phi of l
void BOUNDARYP(int l);

// All ghosts of res of level l: the faces as BOUNDARYP, then the twelve
// edges and the eight corners by extrapolation.
// reads: res of l, ibcp; writes: all ghosts of res of l
void BOUNDARYPRES(int l);

// Ghosts of phi, then lap = seven-point Laplacian of phi on level l.
// reads: phi of l, ibcp; writes: ghosts of phi of l, lap of l
void OPERATORP(int l);

// n sweeps of vertical line Gauss-Seidel on phi of level l: each sweep
// refreshes the ghosts of phi (BOUNDARYP), then solves every column in z,
// j ascending (parallel over j) and i ascending within j, in place.
// reads: phi, src of l, ibcp; writes: phi of l.
void SMOOTHINGP(int l, int n);

// The solve of one column (i, j) of level l as the smoother defines it: the
// tridiagonal system of the column, with its neighbours' phi as known and
// the end rows folded with ibcp(LowZ) and ibcp(HighZ), by TRIDIAGP, its
// solution stored at once.  SMOOTHINGP gives the same bits with a tuned
// solver (linesmoother.hpp); this is its definition and its check.
void LINESOLVE(int l, int i, int j);

// Thomas algorithm for a tridiagonal system of n rows.  The vectors are
// passed by their first element: a[0] is a(1), ..., a[n-1] is a(n).  a holds
// the subdiagonal, b the diagonal, c the superdiagonal, d the right-hand
// side; b and d are overwritten, x receives the solution.
void TRIDIAGP(int n, double* a, double* b, double* c, double* d, double* x);

// res = src - lap on level l.
// reads: src, lap of l; writes: res of l
void RESIDUALP(int l);

// src of level l-1 = mean of res over each coarse cell; phi of l-1 cleared
// in the interior.
// reads: res of l; writes: src and interior phi of l-1
void RESTRICTIONP(int l);

// Adds the interpolated correction phi of level l-1 to phi of level l.
// reads: phi of l-1 (with its lagging face ghosts); writes: ghosts of res of l-1, res and phi of l
void PROLONGATIONP(int l);

// One cycle from level l downwards.
// reads: src, phi of l and below; writes: phi, lap, res of l and below, src below
void MULTIGRIDP(int l, int gamma, int npre, int npost, int ncoarse);

// Point Gauss-Seidel on level l, at most ncoarse sweeps, until the largest
// relative change of a sweep is below 1e-8.
// reads: phi, src of l, ibcp; writes: phi of l
void SOLVERP(int l, int ncoarse);

// Solves for pmg(0).phi from the predicted velocities; returns the number
// of cycles performed.
// reads: u, v, w, pmg, igamma, ipres, iposts, kpoismax, eps; writes: pmg (pmg(0).phi the correction)
int POISSONP();

}  // namespace rl
