// Velocity and pressure conditions on the six faces of the box.
#pragma once

namespace rl {

// reads: u, ibcu, bcu; writes: the outer layers of u
void BOUNDARYU();
// reads: v, ibcv, bcv; writes: the outer layers of v
void BOUNDARYV();
// reads: w, ibcw, bcw; writes: the outer layers of w
void BOUNDARYW();
// The three above, in one parallel region.
// reads: u, v, w and their types and values; writes: their outer layers
void BOUNDARYUVW();
// reads: p, ibcp; writes: the ghost layer of p
void BOUNDARYP();

}  // namespace rl
