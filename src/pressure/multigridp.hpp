// Geometric multigrid solver of the pressure-correction equation.
#pragma once

namespace rl {

int POISSONP();

}  // namespace rl
