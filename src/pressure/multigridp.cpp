#include "pressure/multigridp.hpp"

#include "driver/fields.hpp"

namespace rl {

int POISSONP() { return 0; }

}  // namespace rl
