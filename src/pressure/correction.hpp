// Velocity correction and pressure accumulation.
#pragma once

namespace rl {

void CORRECTION();

}  // namespace rl
