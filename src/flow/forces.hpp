// Body forces: the discharge controller and gravity.
#pragma once

namespace rl {

// reads: uo, flagu, bed, dy, dz, zmin, discharge, gravity; writes: forcex, forcey, forcez
void FORCES();

}  // namespace rl
