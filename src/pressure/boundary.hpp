// Velocity and pressure conditions on the six faces of the box.
#pragma once

namespace rl {

void BOUNDARYU();
void BOUNDARYV();
void BOUNDARYW();
void BOUNDARYP();

}  // namespace rl
