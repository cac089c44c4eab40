// Case-file results: the staggered fields averaged onto the 3-D nodes, with
// nodes in the bed blanked, written as six named arrays with a time stamp.
#pragma once

#include <string>

namespace rl {

// Fills uout, vout, wout, pout, vortout, qout on the nodes 0..imax etc.
// Nodes at or below the bed (elev >= z) get 0 in all but pout.
// reads: u, v, w, p, vort, Q, elev, zg3; writes: uout, vout, wout, pout, vortout, qout
void NODEVALUES();

// The first result, before the time loop: time and six arrays, no result
// brackets, then a flush (whose status is not tested).
// reads: simtime, uout..qout; writes: the first result of the case file
void WRITEFIRSTRESULT(const std::string& casepath, int fileid);

// A result inside the loop: start, console line, time, six arrays, end.
// reads: simtime, uout..qout; writes: a result of the case file
void WRITERESULTS(const std::string& casepath);

}  // namespace rl
