#include "flow/zvelocity.hpp"

#include "driver/fields.hpp"

namespace rl {

void ZVELOCITY() {}

}  // namespace rl
