#include "flow/xvelocity.hpp"

#include "driver/fields.hpp"

namespace rl {

void XVELOCITY() {}

}  // namespace rl
