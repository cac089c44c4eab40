// Wall laws at the forcing points of the bed.
//
// Given a forcing point p and its foot point f on the bed, each routine goes
// from f through p to an image point q farther out in the water, samples the
// resolved velocity there, keeps its part tangential to the bed, derives the
// friction velocity from a logarithmic law at the image point's distance and
// evaluates the law again at p's own distance.
//
// Every routine takes 14 reals: p (may be moved), f, and the results: the
// velocity vector at p, the wall-normal gradient u*/(0.4*dist), the friction
// velocity u* and the tangential unit vector t.
//
//   WALLROUGHTRI   trilinear sample, rough law in closed form
//   WALLSMOOTHTRI  trilinear sample, smooth law by Newton's method
//   WALLROUGHIDW   inverse-distance sample, rough law
//   WALLSMOOTHIDW  inverse-distance sample, three-layer law
//
// All state is local: the routines run on many threads at once and read the
// velocities only at fluid positions, which the forcing never writes.
#pragma once

#include "common/array.hpp"

namespace rl {

// Unit normal (nx,ny,nz), pointing upward, of the bilinear bed surface
// z = a + b*x + c*y + e*x*y through z1 at (x1,y1), z2 at (x2,y1), z3 at
// (x1,y2), z4 at (x2,y2), taken at (x,y); also returns a, b, c, e.
void BEDPATCHNORMAL(double x1, double x2, double y1, double y2, double z1, double z2, double z3, double z4,
                    double x, double y, double& nx, double& ny, double& nz, double& a, double& b, double& c,
                    double& e);

void WALLROUGHTRI(double& px, double& py, double& pz, double fx, double fy, double fz, double& upx,
                  double& upy, double& upz, double& grad, double& ustar, double& tx, double& ty, double& tz);
void WALLSMOOTHTRI(double& px, double& py, double& pz, double fx, double fy, double fz, double& upx,
                   double& upy, double& upz, double& grad, double& ustar, double& tx, double& ty, double& tz);
void WALLROUGHIDW(double& px, double& py, double& pz, double fx, double fy, double fz, double& upx,
                  double& upy, double& upz, double& grad, double& ustar, double& tx, double& ty, double& tz);
void WALLSMOOTHIDW(double& px, double& py, double& pz, double fx, double fy, double fz, double& upx,
                   double& upy, double& upz, double& grad, double& ustar, double& tx, double& ty, double& tz);

// ---- building blocks, shared with the eddy viscosity at the bed ----

// Brings an image point into the domain: across a periodic face (word 0) it
// wraps by the domain length, at any other face it is held `off` inside the
// half cell beyond the face.  Words: ibcu(1..2) in x, ibcv(3..4) in y,
// ibcw(5..6) in z.
void bring_into_domain(double& qx, double& qy, double& qz, double off);

// The cell holding q and the side of its centre that q lies on.
struct CellOfPoint {
  int iq, jq, kq;     // trunc(offset/spacing + 1)
  int si, sj, sk;     // +1 where the centre is at or below q's coordinate
  double xc, yc, zc;  // centre of cell (iq,jq,kq)
};
CellOfPoint locate_point(double qx, double qy, double qz);

// Marches the image point q outward from p along n in steps of dy/8 until
// its cell passes `clean`: d, the offset of q from p, grows by each step, and
// q = p + d is brought into the domain (off inside a non-periodic face) before
// every test.  On entry q = p + d.  The march is bounded: where it would
// leave the box for good or never meet a clean stencil (a spike, a ridge, a
// bed above the top at a wall), it gives up once |d| exceeds four diagonals
// of the box and returns false; `cell` then holds the last cell tried.  Every
// march that ends within the bound is the unbounded one, step for step.
bool march_image_point(double px, double py, double pz, double nx, double ny, double nz, double off, double& ddx,
                       double& ddy, double& ddz, double& qx, double& qy, double& qz, bool (*clean)(const CellOfPoint&),
                       CellOfPoint& cell);

// The index of a cell from a coordinate offset over a spacing, truncated
// towards zero; a value that is not finite or far outside any array (a
// degenerate or NaN grid) gives an index far outside every array instead
// of an undefined conversion, so that every bounds test rejects it.
int cell_index(double x);

// Points whose march found no clean stencil take the inverse-distance
// sample of the inverse-distance routines at their first image point.  The
// count and the first such position are kept for one warning line.
struct MarchPosition {
  char kind;  // 'u', 'v', 'w' or 'c' (cell centre, eddy viscosity)
  int i, j, k;
};
void set_march_position(const MarchPosition& p);  // the position now being forced, per thread
void note_march_fallback();                        // records the current position
// The warning line (on standard error) when points fell back since the last
// report; returns how many did in all.
long report_march_fallbacks();

// The trilinear wall law in two parts.  The geometry of a forcing point P
// with foot point F depends only on the bed, the grid, the flags and the
// roughness: P (moved out of the roughness layer if it lies inside), the
// wall normal n, the image point q after marching until its stencil is all
// fluid, its cell, the distance |P-F|, the distance yq of q from the bed and
// log(yq/z0).  The law then samples the current velocities at q.
// WALLROUGHTRI and WALLSMOOTHTRI are the two parts one after the other.
struct TriGeometry {
  double px, py, pz;
  double nx, ny, nz;
  double qx, qy, qz;
  CellOfPoint cell;
  double dist, yq, logq;
  bool fallback;  // no clean stencil: sample by inverse distance at (qx, qy, qz), the first image point
};
TriGeometry tri_geometry(double px, double py, double pz, double fx, double fy, double fz);
void tri_apply(bool smooth, const TriGeometry& g, double& upx, double& upy, double& upz, double& grad,
               double& ustar, double& tx, double& ty, double& tz);

// The samples of the velocities at q from this process's own arrays: the
// trilinear one from the stencil of cell c, the inverse-distance one from the
// clouds; out holds the three components.  (What another process asks of the
// owner of an image point.)
void tri_sample_here(const CellOfPoint& c, double qx, double qy, double qz, double out[3]);
void cloud_sample_here(double qx, double qy, double qz, double out[3]);
// Whether this process's array f holds columns ia..ib and rows ja..jb (each
// pair in either order).
bool holds_columns(const Array3<double>& f, int ia, int ib, int ja, int jb);
// Whether this process holds every position of a cloud from i0, j0 (six
// wide) of f that lies within the limits ilo..ihi, jlo..jhi.
bool cloud_held(const Array3<double>& f, int i0, int j0, int ilo, int ihi, int jlo, int jhi);

// Inverse-distance sample of `field` at q from the positions of the cloud
// i0..i0+5, j0..j0+5, k0..k0+5 that lie within the index limits and whose
// flag is exactly 1.  A position (i,j,k) lies at x = xmin + (i - hx)*dx etc.,
// hx being 0 along the field's staggered direction and 0.5 otherwise.  A
// position within 1e-6 of q gives its value directly; a result that is not a
// number (no position, or all weights zero) gives 0.
double idw_sample(const Array3<double>& field, const Array3<int>& flag, int i0, int j0, int k0, int ilo, int ihi,
                  int jlo, int jhi, int klo, int khi, double hx, double hy, double hz, double qx, double qy,
                  double qz);

}  // namespace rl
