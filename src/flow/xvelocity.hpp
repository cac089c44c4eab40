// Momentum predictor for the x velocity (Adams-Bashforth).
#pragma once

namespace rl {

void XVELOCITY();

}  // namespace rl
