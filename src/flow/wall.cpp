#include "flow/wall.hpp"

#include "driver/fields.hpp"

namespace rl {

void WALLS() {}
void WALLN() {}

}  // namespace rl
