#include "flow/yvelocity.hpp"

#include "driver/fields.hpp"

namespace rl {

void YVELOCITY() {}

}  // namespace rl
