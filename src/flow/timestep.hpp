// Time step control: the CFL step.
#pragma once

namespace rl {

// reads: u, v, w, dx, dy, dz, visc, cfl; writes: dt
void TIMESTEP();

}  // namespace rl
