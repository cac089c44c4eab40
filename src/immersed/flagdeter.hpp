// Classification of every grid position against the bed.
#pragma once

namespace rl {

void FLAGDETER();
void FLAGMOVE();

}  // namespace rl
