// Direct forcing of the velocities at the bed: overwrites u, v, w at the
// forcing points with the value of the wall law.  Called twice a step.
#pragma once

namespace rl {

// reads: flagu, flagv, flagw, bed, u, v, w (fluid positions), rough, visc, iibm, ibed; writes: u, v, w at
//  forcing points
void IMMERSING();

}  // namespace rl
