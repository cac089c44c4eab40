#include "immersed/immersing.hpp"

#include "driver/fields.hpp"

namespace rl {

void IMMERSING() {}

}  // namespace rl
