#include "flow/timestep.hpp"

#include "driver/fields.hpp"

namespace rl {

void TIMESTEP() {}

}  // namespace rl
