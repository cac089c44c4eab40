// Rough-wall log law on the rows beside the side walls.
#pragma once

namespace rl {

void WALLS();
void WALLN();

}  // namespace rl
