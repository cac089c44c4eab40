// Image points beyond a process's block.
//
// Over several processes a wall law's image point can lie beyond the
// columns a process holds: across a periodic face (a point near x = 0 whose
// image wraps to the far end of the box), or after a long march away from
// a steep bed.  Two things must then come out as they do on the whole box:
//
// - the march, which tests the flags of each stencil it passes: it tests a
//   table of the fluid positions of the whole box (one byte a position,
//   gathered from every process whenever the classification changed);
// - the sample at the end of the march, which reads velocities or nut: the
//   process that owns the image point's cell computes it from its own
//   arrays and sends the numbers back.
//
// The forcing of a point whose sample lies with another process is deferred:
// its routine runs on (with zeros for the missing sample) but its value is
// not stored; the requests of all processes are then answered at once and
// the deferred points forced again, in rounds, until none is left (an image
// point moved farther out after the answer may need another round).  A
// point's value so depends only on the fields of the whole box, never on
// the cut.  With one process, or a run not cut, none of this is used.
#pragma once

#include <functional>

namespace rl {

// Whether the wall laws go through this layer: the run is cut into blocks.
bool far_on();

// Kinds of position in the table of fluid positions.
enum FluidBit : unsigned char { kFluidU = 1, kFluidV = 2, kFluidW = 4, kFluidC = 8 };

// Whether position (i, j, k) of the kind is fluid, from the table; false
// outside that kind's array on the whole box.
bool far_fluid(unsigned char bit, int i, int j, int k);

// The samples a wall law may need from another process.
enum FarKind { kFarTri = 0, kFarCloud = 1, kFarNutTri = 2, kFarNutCloud = 3 };
struct FarRequest {
  int kind;
  int iq, jq, kq, si, sj, sk;  // the cell of the image point (trilinear kinds)
  double qx, qy, qz;           // the image point
};

// The answer to a request if this call has it (true, the values in out);
// otherwise the request is noted for the next round, the current point is
// marked as waiting, out is zero and false returned.
bool far_sample(const FarRequest& r, double out[3]);

// A point deferred to the next round: which pass of the caller, and where.
struct FarPoint {
  int pass, i, j, k;
};

// Before a forcing pass over several processes: makes the table of fluid
// positions current (gathered from every process when the classification
// has changed since it was made) and forgets the answers of the last
// forcing (the fields have changed since).  Every process calls it together.
void far_start();

// Building blocks of far_point.
void far_begin_point();
bool far_defer(int pass, int i, int j, int k);

// The forcing of one point: `force(value)` computes the value from the
// stored one; it is stored in `target` unless the point waited for a sample,
// in which case it is kept (pass, i, j, k) for the next round.  Returns
// whether the value was stored.
template <class Force>
bool far_point(int pass, int i, int j, int k, double& target, Force force) {
  far_begin_point();
  double value = target;
  force(value);
  if (far_defer(pass, i, j, k)) return false;
  target = value;
  return true;
}

// The rounds after a pass: the requests of all processes are sent to the
// owners of their image points, answered and sent back, and `again` forces
// each of this process's waiting points anew (with far_point), until no
// process has one left.  The console lines of the searches, printed in the
// pass, are not printed again.  Every process calls it together, from one
// thread.
void far_rounds(const std::function<void(const FarPoint&)>& again);

// Whether the points are being forced again (for the searches' console).
bool far_repeating();

}  // namespace rl
