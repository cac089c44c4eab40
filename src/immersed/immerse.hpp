// Foot points on the bed: the search for the point of the bed nearest to a
// forcing point, and the forcing of that point's velocity or eddy viscosity.
//
// The bed is made of bilinear patches between neighbouring column centres
// of bed(i,j).  Each search tries a fixed list of candidates (patches, edges
// between column centres, column centres) in a fixed order; a candidate
// replaces the current foot point only when it is strictly nearer, and none
// is accepted at or beyond the height of the domain.
#pragma once

#include "common/array.hpp"

namespace rl {

// Forcing of u(i,j,k), v(i,j,k), w(i,j,k): finds the foot point and imposes
// the wall law chosen by iibm (sampling) and ibed (rough or smooth); only the
// component of the position itself is written into value.
void IMMERSEU(int i, int j, int k, double& value);
void IMMERSEV(int i, int j, int k, double& value);
void IMMERSEW(int i, int j, int k, double& value);

// Reuse of foot points: on, every search of a position that is a forcing
// point of the present flags is done once and reused (the bed, the grid and
// so the result cannot change while the time loop runs); off, every call
// searches.  Switching either way forgets what was kept.
void FOOTCACHE(bool on);

// Friction velocity at the bed of each column (i, j), i = 1..imax,
// j = 1..jmax: the u* of the wall law at the column's lowest forcing point of
// w, as the last forcing imposed it; 0 where the column has none, or while
// foot points are not kept.
// reads: flagw, what the last forcing kept; writes: ustar
void BEDFRICTION(Array2<double>& ustar);
// The friction velocity of column (i, j) as BEDFRICTION gives it.
double column_friction_velocity(int i, int j);
// The same, false (and 0) where the column's lowest forcing point of w has
// not been forced since the foot points are kept.
bool kept_friction_velocity(int i, int j, double& ustar);

// Eddy viscosity at the cell centre (i,j,k) next to the bed.
// reads: bed, nut and flagc (fluid positions), iibm; writes: value
void IMMERSEVISC(int i, int j, int k, double& value);

// Point (X,Y,Z) of the whole bilinear surface through z1 at (x1,y1), z2 at
// (x2,y1), z3 at (x1,y2), z4 at (x2,y2) nearest to (px,py,pz), by alternating
// exact one-dimensional minimisations; after 201 iterations without
// convergence to 1e-4 it warns and returns the centre of the patch.
void BEDPATCHPOINT(double x1, double x2, double y1, double y2, double z1, double z2, double z3, double z4,
                   double px, double py, double pz, double& X, double& Y, double& Z);

// The searches alone, without failure handling and forcing: P of the
// position (i,j,k) of u, v, w or a cell centre, the foot point (X,Y,Z), its
// distance best as the search measured it, and whether any candidate was
// accepted.
struct FootPoint {
  double px, py, pz;
  double X, Y, Z;
  double best;
  bool found;
};
FootPoint foot_u(int i, int j, int k);
FootPoint foot_v(int i, int j, int k);
FootPoint foot_w(int i, int j, int k);
FootPoint foot_c(int i, int j, int k);

}  // namespace rl
