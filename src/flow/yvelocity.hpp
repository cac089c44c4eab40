// Momentum predictor for the y velocity (Adams-Bashforth).
#pragma once

namespace rl {

void YVELOCITY();

}  // namespace rl
