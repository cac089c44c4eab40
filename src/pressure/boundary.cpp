#include "pressure/boundary.hpp"

#include "driver/fields.hpp"

namespace rl {

void BOUNDARYU() {}
void BOUNDARYV() {}
void BOUNDARYW() {}
void BOUNDARYP() {}

}  // namespace rl
