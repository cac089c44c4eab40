#include "pressure/correction.hpp"

#include "driver/fields.hpp"

namespace rl {

void CORRECTION() {}

}  // namespace rl
