// Eddy viscosity at the forcing cell centres next to the bed.
//
// The Smagorinsky value has no meaning beside the bed.  These routines take
// the eddy viscosity N at an image point q, beyond the forcing point p on the
// line from its foot point f, and scale it linearly with the distance from
// the bed: result = N*dist/(dist + |q - p|), so that it falls to zero at the
// bed.  They read nut and flagc only at fluid centres.
#pragma once

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

}  // namespace rl
