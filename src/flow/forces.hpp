// Body forces: the discharge controller and gravity.
#pragma once

#include "common/array.hpp"

namespace rl {

// reads: uo, flagu, bed, dy, dz, zmin, discharge, gravity; writes: forcex, forcey, forcez
void FORCES();

// The discharge through the first x face plane (i = 0) as the controller
// measures it, from the velocity `vel` (uo in the controller, u for a
// monitor); with `vel` null, every position counts with velocity 1, which
// gives the wet area of the plane.
// reads: flagu, bed, dy, dz, zmin
double INFLOW(const Array3<double>* vel);
// The same through the plane of x faces i (the bed at the face the mean of
// columns i and i + 1).
double section_discharge(const Array3<double>* vel, int i);

}  // namespace rl
