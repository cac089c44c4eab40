// End of a step: carrying the state over, clearing solid positions.
#pragma once

namespace rl {

void SAVEOLD();
void ZEROFLAGGED();

}  // namespace rl
