#include "immersed/flagdeter.hpp"

#include "driver/fields.hpp"

namespace rl {

void FLAGDETER() {}
void FLAGMOVE() {}

}  // namespace rl
