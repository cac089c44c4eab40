#include "flow/smagorinsky.hpp"

#include "driver/fields.hpp"

namespace rl {

void SMAGORINSKY() {}

}  // namespace rl
