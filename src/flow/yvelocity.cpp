#include "flow/yvelocity.hpp"

#include <cstdlib>

#include "flow/predictor.hpp"

namespace rl {

// Predicts v from the old fields by one Adams-Bashforth step (PREDICT).
// The last face jmax is computed only when the high y face is periodic.
// reads: uo, vo, wo, nut, rhsvo, forcey; writes: v, rhsv, rhsvo.
void YVELOCITY() { PREDICT<1>(v, rhsvo, rhsv, forcey, jmax - std::abs(ibcv(HighY))); }

}  // namespace rl
