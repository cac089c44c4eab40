// The tuned column solver of the line smoother.
//
// SMOOTHINGP relaxes by vertical lines: each column (i, j) of a level is
// solved exactly in z by the Thomas algorithm, with the four neighbouring
// columns as known, j ascending and i ascending within j, in place.
// LINESOLVE (multigridp.hpp) is that solve for one column as written in the
// textbook; this class gives exactly the same bits faster:
//   - every column has the same matrix, so the first elimination pass (the
//     diagonal) is done once per call instead of once per column;
//   - up to eight rows are solved as a wavefront (row j0 + r takes column
//     s - r at step s), whose columns are independent, so that their
//     recurrences interleave and the divisions overlap, while each column
//     still sees the new (i-1, j), (i, j-1) and the old (i+1, j), (i, j+1);
//   - the planes of a column lie far apart in memory, so they are fetched a
//     few planes ahead.
// The work storage is taken once and grown only for a larger column or more
// threads; nothing is allocated inside a solve.
#pragma once

#include <cstddef>

#include "common/array.hpp"

namespace rl {

// What the column solves of one level share.
struct LineSystem {
  double* phi;        // element (0, 0, 0) of phi
  const double* src;  // element (0, 0, 0) of src
  std::ptrdiff_t sj, sk;
  double cx, cy, cz;
  const double* be;  // diagonal after the first elimination pass, be[1..nz]
  int nz;
};

class LineSmoother {
 public:
  // The system of one level: phi and src (same bounds), the factors of the
  // neighbours, the diagonal, and the bottom and top pressure types.
  LineSmoother(Array3<double>& phi, const Array3<double>& src, double cx, double cy, double cz, double diag,
               int bottom, int top, int nz);

  // One sweep over the rows jb..je (a thread's share), i = i0..i1 in each;
  // called inside a parallel region, each thread with its own rows.
  void sweep_rows(int i0, int i1, int jb, int je) const;

 private:
  LineSystem sys_;
};

}  // namespace rl
