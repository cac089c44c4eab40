// Divergence of the corrected velocity.
#pragma once

namespace rl {

// divmax = largest |divergence| of a cell, divsum = signed sum over all
// cells of the box.  A cell above 0.01 prints its indices i j k and waits
// for the operator, then the measurement goes on.
// reads: u, v, w, dx, dy, dz; writes: divmax, divsum
void DIVERGENCE();

}  // namespace rl
