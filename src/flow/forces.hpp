// Body forces: the discharge controller and gravity.
#pragma once

namespace rl {

void FORCES();

}  // namespace rl
