#include "flow/forces.hpp"

#include "driver/fields.hpp"

namespace rl {

void FORCES() {}

}  // namespace rl
