// Direct forcing of the velocities at the bed: overwrites u, v, w at the
// forcing points with the value of the wall law.  Called twice a step.
#pragma once

namespace rl {

void IMMERSING();

}  // namespace rl
