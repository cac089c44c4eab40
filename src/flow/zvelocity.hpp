// Momentum predictor for the z velocity (Adams-Bashforth).
#pragma once

namespace rl {

void ZVELOCITY();

}  // namespace rl
