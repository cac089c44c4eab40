// Classification of every grid position against the bed.
#pragma once

namespace rl {

// Classifies every position of flagu, flagv, flagw, flagc against the bed:
// 1 fluid, 0 forcing point (fluid next to the bed), -1 solid.
void FLAGDETER();

// Gives old velocities at positions that turned from solid into forcing
// points a wall-law value.  Provided for a moving bed; the time loop never
// calls it.
void FLAGMOVE();

}  // namespace rl
