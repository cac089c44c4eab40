// Velocity and pressure conditions on the six faces of the box.
#pragma once

namespace rl {

// reads: u, ibcu, bcu; writes: the outer layers of u
void BOUNDARYU();
// reads: v, ibcv, bcv; writes: the outer layers of v
void BOUNDARYV();
// reads: w, ibcw, bcw; writes: the outer layers of w
void BOUNDARYW();
// reads: p, ibcp; writes: the ghost layer of p
void BOUNDARYP();

}  // namespace rl
