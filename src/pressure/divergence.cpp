#include "pressure/divergence.hpp"

#include "driver/fields.hpp"

namespace rl {

void DIVERGENCE() {}

}  // namespace rl
