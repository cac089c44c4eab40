// End of a step: carrying the state over, clearing solid positions.
#pragma once

namespace rl {

// reads: u, v, w, flagu, flagv, flagw; writes: uo, vo, wo, flaguo, flagvo, flagwo
void SAVEOLD();
// reads: flagu, flagv, flagw, flagc; writes: u, v, w, nut at solid positions
void ZEROFLAGGED();

}  // namespace rl
