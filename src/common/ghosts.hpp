// The ghost layer of the box, one layer for every routine that fills one.
//
// Each routine keeps its own formula (the blend of the near cell against
// the far end of a row, with the face's type as a number in it) and its own
// order of faces; what they share is here: which faces this process fills
// (its block touches them), what a cut among processes changes (the far end
// of a row is not held, so the near cell stands in for it, and a periodic
// face across a cut is a copy from the block at the other end), the lines
// of a face pass (shared among threads as every routine shares them), and
// the team-level calls that fill a halo or copy a periodic face with the
// barriers around them.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "common/array.hpp"
#include "common/distributed.hpp"

namespace rl {

// The box's faces as one process sees them at one grid level.
struct GhostFaces {
  int n[3] = {0, 0, 0};                             // cells along x, y, z
  bool touch[7] = {true, true, true, true, true, true, true};  // [face]: the block touches it
  bool cut[3] = {false, false, false};              // the direction is shared among processes
  int level = 0;

  static int axis(int face) { return (face - 1) / 2; }
  static bool high(int face) { return face % 2 == 0; }
  // Whether this process fills the face by its rule, for the face's type t:
  // the block touches the face and it is not a periodic face across a cut.
  bool rule(int face, int t) const { return touch[face] && !(cut[axis(face)] && t == 0); }
  // Whether the face is a periodic face across a cut (a copy, see wrap_team).
  bool wraps(int face, int t) const { return cut[axis(face)] && t == 0; }
  // The index along the face's axis of the cell next to the face, and of
  // the one that stands at the far end of the row: the other end of the
  // box, or across a cut (not held) the near cell.
  int near(int face) const { return high(face) ? n[axis(face)] : 1; }
  int far(int face) const {
    const int a = axis(face);
    return cut[a] ? near(face) : (high(face) ? 1 : n[a]);
  }
  // The ghost's index along the face's axis.
  int ghost(int face) const { return high(face) ? n[axis(face)] + 1 : 0; }
};

// The faces of the fields' grid (level 0, nx x ny x nz cells) for this
// process.
GhostFaces field_faces(int nx, int ny, int nz);
// The faces of a level of nx x ny x nz cells: whole, or cut with the block
// touching the given faces.
GhostFaces level_faces(int nx, int ny, int nz, bool part, bool west, bool east, bool south, bool north, int level);

// The extent of a face pass: the two directions other than the pass's axis
// (the pass's own is ignored).
struct LineExtent {
  int i0 = 0, i1 = 0, j0 = 0, j1 = 0, k0 = 0, k1 = 0;
};

// This process's extent over lo..hi of the box in x and y (its block, and
// the box's ends where it touches them), and klo..khi in z.
LineExtent own_extent(int lo_i, int hi_i, int lo_j, int hi_j, int lo_k, int hi_k);

// One face pass over the lines along axis ax (0 x, 1 y, 2 z) within x:
// op(e, s) for every array, e pointing at the line's element of index 0
// along ax, s the stride along ax.  The arrays share one layout.  x and y
// lines are shared among threads by k, z lines by j; y and z lines run i
// innermost.  A worksharing loop of a parallel region, static schedule,
// without a barrier at its end: the caller places the barrier a later pass
// needs (ghost_barrier).
template <class Op>
void face_lines(std::initializer_list<Array3<double>*> fields, int ax, const LineExtent& x, Op op) {
  Array3<double>& f0 = **fields.begin();
  const std::int64_t sj = f0.sj(), sk = f0.sk();
  if (ax == 0) {
#pragma omp for schedule(static) nowait
    for (int k = x.k0; k <= x.k1; ++k)
      for (int j = x.j0; j <= x.j1; ++j) {
        const std::int64_t at = j * sj + k * sk;
        for (Array3<double>* a : fields) op(a->origin() + at, std::int64_t{1});
      }
  } else if (ax == 1) {
#pragma omp for schedule(static) nowait
    for (int k = x.k0; k <= x.k1; ++k)
      for (Array3<double>* a : fields) {
        double* e = a->origin() + k * sk;
        for (int i = x.i0; i <= x.i1; ++i) op(e + i, sj);
      }
  } else {
#pragma omp for schedule(static) nowait
    for (int j = x.j0; j <= x.j1; ++j)
      for (Array3<double>* a : fields) {
        double* e = a->origin() + j * sj;
        for (int i = x.i0; i <= x.i1; ++i) op(e + i, sk);
      }
  }
}

// The barrier that lets a later pass read what this one wrote.
inline void ghost_barrier() {
#pragma omp barrier
}

// Inside a parallel region: the halo of fields, w columns deep within
// reach, filled by the main thread once every thread is done, all waiting
// for it.  Nothing when the run is on one process.
template <typename T>
void halo_team(std::initializer_list<Array3<T>*> fields, int w, const Reach& reach = Reach(), int level = 0);

// Inside a parallel region: the periodic faces of axis across a cut (low,
// high or both) copied from the block at the other end of the box.
void wrap_team(std::initializer_list<Array3<double>*> fields, const GhostFaces& g, int axis, bool low, bool high,
               const Reach& reach);

}  // namespace rl
