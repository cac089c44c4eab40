// Eddy viscosity at the forcing cell centres next to the bed.
//
// The Smagorinsky value has no meaning beside the bed.  These routines take
// the eddy viscosity N at an image point q, beyond the forcing point p on the
// line from its foot point f, and scale it linearly with the distance from
// the bed: result = N*dist/(dist + |q - p|), so that it falls to zero at the
// bed.  They read nut and flagc only at fluid centres.
#pragma once

#include <string>

#include "immersed/wallaw.hpp"

namespace rl {

// Trilinear sample from the eight cell centres around q; q marches outward
// by 0.125*dy along the normal until all eight are fluid.
void VISCTRI(double px, double py, double pz, double fx, double fy, double fz, double& result);

// Inverse-distance sample from the fluid centres of a 6x6x6 cloud around q.
void VISCIDW(double px, double py, double pz, double fx, double fy, double fz, double& result);

// The samples of nut at q from this process's own arrays: trilinear from the
// eight centres of cell c, or by inverse distance from the cloud around q.
double nut_tri_here(const CellOfPoint& c, double qx, double qy, double qz);
double nut_cloud_here(double qx, double qy, double qz);

// The log layer's eddy viscosity at the bed (the optional key
// WallViscosityItm n, n >= 1).  The wall law forces the velocity at the
// forcing points, but the stress it implies reaches the flow only through
// the viscosities between the forcing points and the cells above, and the
// Smagorinsky value there (scaled down to zero at the bed, above) is far
// below what a log layer carries: the flow slips over the bed, too fast near
// it and too little friction for a given discharge.  With the key, the
// forcing cells of each column and the first n fluid cells above them get at
// least kappa * u* * d, the mixing-length viscosity of the log layer (d the
// height of the centre over the column's bed, u* the wall law's friction
// velocity of the column), with which a log profile carries exactly u*^2.
// Over a smooth bed (BedItm 0) only from 30 wall units (d u* / visc) up,
// where its law's log layer begins: a grid that resolves the viscous and
// buffer layers keeps its own viscosity there (a floor in them damps the
// wall's turbulence away).
void wall_viscosity_start(int layers);
// The friction velocities the floor reads are those the last forcing kept.
// A saved state does not hold them, so they are written beside it
// (<outfile>.wallus, one per column) and read back by a run that continues
// it: its first step, before any forcing, uses them, as the uninterrupted
// run would.  Nothing without the key; every process calls them together.
void save_wall_friction(const std::string& outpath, const std::string& outfile);
void resume_wall_friction(const std::string& startfile);
int wall_viscosity_layers();
// Raises nut in the columns i0..i1 of row j (the box's own columns only).
// reads: nut, flagc, flagw, bed, the wall law's kept friction velocities; writes: nut
void wall_viscosity_row(int j, int i0, int i1);

}  // namespace rl
