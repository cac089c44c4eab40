// Rough-wall log law on the rows beside the two side walls of the channel.
//
// WALLS writes u and w of row j = 1 from row 2, WALLN u and w of row jmax
// from row jmax-1, by one direct formula: the far row is taken as 2*dy from
// the wall, the written row as half a cell.  Above a speed of 1e-8 the
// result is the far value times log(0.5dy/z0)/log(2dy/z0).  v is untouched.
#pragma once

namespace rl {

// reads: u, v, w of row 2, rough, dy; writes: u, w of row 1
void WALLS();
// reads: u, w of row jmax-1, rough, dy; writes: u, w of row jmax
void WALLN();

}  // namespace rl
