// Direct forcing of the velocities at the bed.
#pragma once

namespace rl {

void IMMERSING();

}  // namespace rl
