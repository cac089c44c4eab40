// Classification of every grid position against the bed.
#pragma once

namespace rl {

// Classifies every position of flagu, flagv, flagw, flagc against the bed:
// 1 fluid, 0 forcing point (fluid next to the bed), -1 solid.
// reads: bed, zmin, dz, ibcu, ibcv, ibcw, ibcp; writes: flagu, flagv, flagw, flagc
void FLAGDETER();

// The classification itself, whatever was classified before.
void CLASSIFY();
// How many classifications have run in this process: a table built from
// the flags is current while the count is the one it was built at.
long classify_generation();

// Reuse of the classification: on, FLAGDETER classifies only when the bed,
// the grid or a boundary word differs from its last classification (the
// flags would come out the same); off, it always classifies.  The time loop,
// over a bed that never moves, runs with it on.
void FLAGREUSE(bool on);

// Gives old velocities at positions that turned from solid into forcing
// points a wall-law value.  Provided for a moving bed; the time loop never
// calls it.
// reads: flaguo..flagwo, flagu..flagw, bed, u, v, w; writes: uo, vo, wo at new forcing points
void FLAGMOVE();

}  // namespace rl
