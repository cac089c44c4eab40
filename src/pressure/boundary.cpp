#include "pressure/boundary.hpp"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>

#include "common/distributed.hpp"
#include "common/ghosts.hpp"
#include "common/parallel.hpp"
#include "driver/fields.hpp"
#include "flow/openreach.hpp"

namespace rl {

namespace {

// Calls op(e) for every line of the field along axis ax (0 x, 1 y, 2 z),
// e pointing at the line's element of index 0 on that axis, over 0..n+1 of
// the two other directions.  x lines are shared among threads by k, with j
// inside; y lines by k and z lines by j, each with i innermost so that
// neighbouring lines are neighbours in memory.  Must be called inside a
// parallel region.  The loop ends without a barrier: a line reads and writes
// only its own plane k (x, y lines) or row j (z lines), and a static schedule
// over the same range gives every thread the same planes or rows in each
// loop, so two loops of the same split need none between them; when the
// split changes, `split` places the barrier first.
struct Split {
  int last = -1;  // 0: by k (x and y lines), 1: by j (z lines)
  void to(int ax) {
    const int s = ax == 2 ? 1 : 0;
    if (last >= 0 && last != s) {
#pragma omp barrier
    }
    last = s;
  }
};

// The lines of a face pass (see face_lines): in a run over several
// processes those of the process's block, with the box's ghost layers at
// the faces it touches.
template <class Op>
void split_lines(Array3<double>& f, int ax, Split& split, Op op) {
  split.to(ax);
  face_lines({&f}, ax, own_extent(0, imax + 1, 0, jmax + 1, 0, kmax + 1), [&](double* e, std::int64_t) { op(e); });
}

GhostFaces faces() { return field_faces(imax, jmax, kmax); }

// A periodic face of a cut axis: the ghost plane is a copy of the plane
// at the other end of the box, made by the main thread once every thread
// has finished the passes before (and none reads on).  The low face, which
// comes first in every order and is followed by the high one, copies both
// (neither reads the other's ghost); the high face then has nothing left.
void wrap(Array3<double>& f, int ax, bool high, int n, bool both, Split& split) {
  if (high && both) return;
  wrap_in_team({&f}, ax, n, both || !high, both || high, Reach{0, imax + 1, 0, jmax + 1, 0, kmax + 1});
  split.last = -1;
}

// The extra layer of a periodic low face: plane n - 1 into -1.
void wrap_extra(Array3<double>& f, int ax, int n, Split& split) {
#pragma omp barrier
#pragma omp master
  wrap_copy(f, ax, n - 1, -1, Reach{0, imax + 1, 0, jmax + 1, 0, kmax + 1});
#pragma omp barrier
  split.last = -1;
}

std::int64_t axis_stride(const Array3<double>& f, int ax) { return ax == 0 ? 1 : (ax == 1 ? f.sj() : f.sk()); }

// One face of a velocity component, by a single formula in which the type
// t enters as a number: with h = (t+1)/2, m = (1-t)/2, g = (t+2)/2 (integer
// division) it gives a given value (t = -1), a periodic copy (t = 0) or a
// given gradient (t = 1).  On a normal face (the component crosses it) the
// given value sits on the face itself; on a tangential face the ghost is
// mirrored so that the mean of ghost and first cell is the value.
void one_face(Array3<double>& f, int own, int face, const Faces<int>& ibc, double bc, Split& split) {
  const int t = ibc(face);
  const int ax = (face - 1) / 2;
  const bool high = face % 2 == 0;
  const bool normal = ax == own;
  const double d = ax == 0 ? dx : (ax == 1 ? dy : dz);
  const int n = ax == 0 ? imax : (ax == 1 ? jmax : kmax);
  const std::int64_t s = axis_stride(f, ax);
  const int h = (t + 1) / 2, m = (1 - t) / 2, g = (t + 2) / 2;
  const int at = std::abs(t);
  const double cn = 1 - at;  // weight of the far end of the row
  const double ch = h;
  const double ct = t;
  // Over several processes: only the blocks at the face; a periodic face
  // across a cut copies from the other end (the rule then reduces to that
  // copy: ghost n+1 <- 1 at the high face, 0 <- n at the low one).
  const GhostFaces gf = faces();
  if (gf.wraps(face, t)) {
    wrap(f, ax, high, n, ibc(2 * ax + 1) == Periodic && ibc(2 * ax + 2) == Periodic, split);
    return;
  }
  if (!gf.touch[face]) return;
  // The far end of a line (weight 0 but on a periodic face) is not held
  // across a cut: the near cell stands in for it.
  const bool cut = gf.cut[ax];

  if (normal && !high) {
    const double cb = m - 2 * h * d;
    const std::int64_t o = -h * s, on = cut ? s : n * s;
    split_lines(f, ax, split, [=](double* e) { e[o] = cn * e[on] + cb * bc + ch * e[s]; });
  } else if (normal) {
    const double cb = 1 - g + 2 * h * d;
    const std::int64_t o = (n + g) * s, on1 = (n - 1) * s, o1 = cut ? on1 : s;
    split_lines(f, ax, split, [=](double* e) { e[o] = cn * e[o1] + cb * bc + ch * e[on1]; });
  } else if (!high) {
    const double cb = 2 * m - h * d;
    const std::int64_t on = cut ? s : n * s;
    split_lines(f, ax, split, [=](double* e) { e[0] = ct * e[s] + cn * e[on] + cb * bc; });
  } else {
    const double cb = 2 * m + h * d;
    const std::int64_t o = (n + 1) * s, on = n * s, o1 = cut ? on : s;
    split_lines(f, ax, split, [=](double* e) { e[o] = ct * e[on] + cn * e[o1] + cb * bc; });
  }
}

// The six faces of one component in the given order, then the passes over
// the layers of its own (normal) direction: a wall extrapolates the layer
// beyond it linearly, and a periodic low face fills layer -1 from n-1.
// Must be called inside a parallel region; the last loop ends without a
// barrier.
// The component's own (normal) direction is the axis of the faces it sits on.
void component_faces(Array3<double>& f, const Faces<int>& ibc, const Faces<double>& bc, const int (&order)[6],
                     bool skip_x = false) {
  const int own = f.face_axis();
  if (own < 0 || own > 2) {
    // A field not made by the field store (whose faces it sits on is not
    // known): a fault of the program, never of a case.
    std::fprintf(stderr, "riverles: internal error: %s has no face axis for its boundaries\n", f.name());
    std::abort();
  }
  const int lo = ibc(2 * own + 1), hi = ibc(2 * own + 2);
  const int n = own == 0 ? imax : (own == 1 ? jmax : kmax);
  const std::int64_t s = axis_stride(f, own);
  const std::int64_t on = n * s, on1 = (n - 1) * s, onp = (n + 1) * s;
  Split split;
  for (int face : order)
    if (!skip_x || face > HighX) one_face(f, own, face, ibc, bc(face), split);
  const GhostFaces gf = faces();
  if (lo == Given && gf.touch[2 * own + 1]) split_lines(f, own, split, [=](double* e) { e[-s] = 2 * e[0] - e[s]; });
  if (hi == Given && gf.touch[2 * own + 2]) split_lines(f, own, split, [=](double* e) { e[onp] = 2 * e[on] - e[on1]; });
  if (lo == Periodic) {
    if (gf.cut[own])
      wrap_extra(f, own, n, split);
    else
      split_lines(f, own, split, [=](double* e) { e[-s] = e[on1]; });
  }
}

const int kOrderU[6] = {LowX, HighX, LowY, HighY, LowZ, HighZ};
const int kOrderV[6] = {LowY, HighY, LowZ, HighZ, LowX, HighX};
const int kOrderW[6] = {LowZ, HighZ, LowX, HighX, LowY, HighY};

void boundary_field(Array3<double>& f, const Faces<int>& ibc, const Faces<double>& bc, const int (&order)[6]) {
#pragma omp parallel default(shared) if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
    component_faces(f, ibc, bc, order);
    // The halos from the neighbouring blocks, once the ghost layers are done.
    halo_team({&f}, 1);
  }
}

}  // namespace

// Outer layers of u: faces low x, high x, low y, high y, low z, high z.
void BOUNDARYU() { boundary_field(u, ibcu, bcu, kOrderU); }

// Outer layers of v: faces low y, high y, low z, high z, low x, high x.
void BOUNDARYV() { boundary_field(v, ibcv, bcv, kOrderV); }

// Outer layers of w: faces low z, high z, low x, high x, low y, high y.
void BOUNDARYW() { boundary_field(w, ibcw, bcw, kOrderW); }

// BOUNDARYU, BOUNDARYV and BOUNDARYW in one parallel region: each reads and
// writes only its own component, so a thread goes on to the next component
// without waiting for the others.
void BOUNDARYUVW() {
#pragma omp parallel default(shared) if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
    component_faces(u, ibcu, bcu, kOrderU);
    component_faces(v, ibcv, bcv, kOrderV);
    component_faces(w, ibcw, bcw, kOrderW);
    // An open reach's faces over the zero gradient the x types gave them,
    // then the y and z faces once more, so that the ghost layer's edges
    // along the open faces follow the open faces' values.
    if (open_reach()) {
#pragma omp barrier
#pragma omp master
      open_faces_apply();
#pragma omp barrier
      component_faces(u, ibcu, bcu, kOrderU, true);
      component_faces(v, ibcv, bcv, kOrderV, true);
      component_faces(w, ibcw, bcw, kOrderW, true);
    }
    halo_team({&u, &v, &w}, 1);
  }
}

// Ghost layer of p: ghost = t*(adjacent inner cell) + (1-|t|)*(inner cell
// at the far end of the row), first the x faces, then z, then y, each step
// widening its extent by the layers already filled, so that edges and
// corners are reached too.
void BOUNDARYP() {
  const int I = imax, J = jmax, K = kmax;
  const std::int64_t sj = p.sj(), sk = p.sk();
  const double t1 = ibcp(LowX), t2 = ibcp(HighX), t3 = ibcp(LowY), t4 = ibcp(HighY), t5 = ibcp(LowZ), t6 = ibcp(HighZ);
  const double c1 = 1 - std::abs(ibcp(LowX)), c2 = 1 - std::abs(ibcp(HighX));
  const double c3 = 1 - std::abs(ibcp(LowY)), c4 = 1 - std::abs(ibcp(HighY));
  const double c5 = 1 - std::abs(ibcp(LowZ)), c6 = 1 - std::abs(ibcp(HighZ));
#pragma omp parallel default(shared) if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
#pragma omp for schedule(static)
    for (int k = 1; k <= K; ++k)
      for (int j = 1; j <= J; ++j) {
        double* e = p.at(0, j, k);
        e[0] = t1 * e[1] + c1 * e[I];
        e[I + 1] = t2 * e[I] + c2 * e[1];
      }
#pragma omp for schedule(static)
    for (int j = 1; j <= J; ++j) {
      double* e = p.at(0, j, 0);
      for (int i = 0; i <= I + 1; ++i) {
        e[i] = t5 * e[i + sk] + c5 * e[i + K * sk];
        e[i + (K + 1) * sk] = t6 * e[i + K * sk] + c6 * e[i + sk];
      }
    }
#pragma omp for schedule(static)
    for (int k = 0; k <= K + 1; ++k) {
      double* e = p.at(0, 0, k);
      for (int i = 0; i <= I + 1; ++i) {
        e[i] = t3 * e[i + sj] + c3 * e[i + J * sj];
        e[i + (J + 1) * sj] = t4 * e[i + J * sj] + c4 * e[i + sj];
      }
    }
  }
}

}  // namespace rl
