#include "flow/zvelocity.hpp"

#include <cstdlib>

#include "common/distributed.hpp"
#include "flow/predictor.hpp"

namespace rl {

// Predicts w from the old fields by one Adams-Bashforth step (PREDICT).
// The last face kmax is computed only when the high z face is periodic.
// Over several processes, the last of the three predictors then brings the
// neighbours' predicted velocities into the halos, one column deep: the
// side-wall law after it reads them.
// reads: uo, vo, wo, nut, rhswo, forcez; writes: w, rhsw, rhswo.
void ZVELOCITY() {
  PREDICT<2>(w, rhswo, rhsw, forcez, kmax - std::abs(ibcw(HighZ)));
  HALOS({&u, &v, &w}, 1);
}

}  // namespace rl
