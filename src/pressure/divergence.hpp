// Divergence of the corrected velocity.
#pragma once

namespace rl {

void DIVERGENCE();

}  // namespace rl
