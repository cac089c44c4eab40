#include "immersed/stepend.hpp"

#include "driver/fields.hpp"

namespace rl {

void SAVEOLD() {}
void ZEROFLAGGED() {}

}  // namespace rl
