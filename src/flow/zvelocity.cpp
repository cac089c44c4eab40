#include "flow/zvelocity.hpp"

#include <cstdlib>

#include "common/distributed.hpp"
#include "flow/predictor.hpp"

namespace rl {

// Predicts w from the old fields by one Adams-Bashforth step (PREDICT).
// The last face kmax is computed only when the high z face is periodic.
// reads: uo, vo, wo, nut, rhswo, forcez; writes: w, rhsw, rhswo.
void ZVELOCITY() { PREDICT<2>(w, rhswo, rhsw, forcez, kmax - std::abs(ibcw(HighZ))); }

}  // namespace rl
