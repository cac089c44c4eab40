// Velocity correction and pressure accumulation.
#pragma once

namespace rl {

// Adds pmg(0).phi to p (ghost layer included) and subtracts dt/dens times
// the gradient of phi from u, v, w on every face of the box, the boundary
// faces included.
void CORRECTION();

}  // namespace rl
