// Time step control: the CFL step.
#pragma once

namespace rl {

void TIMESTEP();

}  // namespace rl
