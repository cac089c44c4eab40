// Eddy viscosity by the Smagorinsky model.
#pragma once

namespace rl {

void SMAGORINSKY();

}  // namespace rl
