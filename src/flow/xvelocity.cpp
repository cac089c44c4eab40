#include "flow/xvelocity.hpp"

#include <cstdlib>

#include "flow/predictor.hpp"

namespace rl {

// Predicts u from the old fields by one Adams-Bashforth step (PREDICT).
// The last face imax is computed only when the high x face is periodic.
// reads: uo, vo, wo, nut, rhsuo, forcex; writes: u, rhsu, rhsuo.
void XVELOCITY() { PREDICT<0>(u, rhsuo, rhsu, forcex, imax - std::abs(ibcu(HighX))); }

}  // namespace rl
