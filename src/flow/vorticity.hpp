// Vorticity magnitude and Q criterion at cell centres, for output only.
#pragma once

namespace rl {

// Computes vort and Q from u, v, w over all cells and fills their ghost
// layers (x, then y, then z, so edges and corners follow).
// reads: u, v, w, dx, dy, dz, ibcp; writes: vort, Q
void VORTICITY();

}  // namespace rl
