#include "pressure/linesmoother.hpp"

#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "driver/fields.hpp"

namespace rl {

namespace {

// Rows of one batch of the line smoother (see SMOOTHINGP).
constexpr int kBatch = 8;  // sweep_rows dispatches 1..8
constexpr int kAheadPlanes = 8;  // how far ahead the column solve fetches

// Work storage of the line smoother, taken once and grown only when a
// larger column or more threads appear (a new field store): slot 0 holds the
// eliminated diagonal shared by all columns, then each thread t has the
// right-hand sides of a batch of columns, interleaved by row: d[k*kBatch+r].
// Nothing is allocated inside a solve.
std::vector<double> smooth_work;
std::size_t smooth_stride = 0;  // doubles per thread
int smooth_threads = 0;

void ensure_smooth_work(int nz) {
  const int nt = omp_get_max_threads();
  // Room for k = 0..n of a batch, rounded to whole cache lines plus one line
  // of padding so two threads never share a line.
  const std::size_t n = (static_cast<std::size_t>(std::max(kmax, nz)) + 1) * kBatch;
  const std::size_t stride = (n + 7) / 8 * 8 + 8;
  if (stride > smooth_stride || nt > smooth_threads) {
    smooth_stride = std::max(stride, smooth_stride);
    smooth_threads = std::max(nt, smooth_threads);
    smooth_work.assign(smooth_stride * static_cast<std::size_t>(smooth_threads + 1), 0.0);
  }
}

// Solves R columns at once: column r is (i0 - r, j0 + r).  These columns
// touch no common neighbour, so they are independent; interleaving their
// recurrences lets the processor overlap the divisions.  Every column gets
// exactly the operations of the one-column solve:
//   d(k) = src - (W + E) * cx - (S + N) * cy        right-hand side
//   d(k) = d(k) - a(k) * d(k-1) / b(k-1)            second elimination pass
//   x(nz) = d(nz) / b(nz),  x(k) = (d(k) - c(k) * x(k+1)) / b(k)
// and x goes straight into phi (the column's own phi is not read).
template <int R>
inline void solve_columns(const LineSystem& s, int i0, int j0, double* __restrict d) {
  const std::ptrdiff_t sj = s.sj, sk = s.sk;
  const double cx = s.cx, cy = s.cy, cz = s.cz;
  const double* be = s.be;
  const int nz = s.nz;
  std::ptrdiff_t off[R];
  for (int r = 0; r < R; ++r) off[r] = (i0 - r) + (j0 + r) * sj;
  double* const phi = s.phi;
  const double* const src = s.src;

  for (int r = 0; r < R; ++r) {
    const double* q = phi + off[r] + sk;
    d[kBatch + r] = src[off[r] + sk] - (q[-1] + q[1]) * cx - (q[-sj] + q[sj]) * cy;
  }
  for (int k = 2; k <= nz; ++k) {
    const double bk = be[k - 1];
    // The planes lie too far apart for the hardware to fetch ahead.
    if (k + kAheadPlanes <= nz)
      for (int r = 0; r < R; ++r) {
        const double* q = phi + off[r] + (k + kAheadPlanes) * sk;
        __builtin_prefetch(src + off[r] + (k + kAheadPlanes) * sk);
        __builtin_prefetch(q - sj);
        __builtin_prefetch(q + sj);
      }
    for (int r = 0; r < R; ++r) {
      const double* q = phi + off[r] + k * sk;
      const double dk = src[off[r] + k * sk] - (q[-1] + q[1]) * cx - (q[-sj] + q[sj]) * cy;
      d[k * kBatch + r] = dk - cz * d[(k - 1) * kBatch + r] / bk;
    }
  }
  double x[R];
  for (int r = 0; r < R; ++r) {
    x[r] = d[nz * kBatch + r] / be[nz];
    phi[off[r] + nz * sk] = x[r];
  }
  for (int k = nz - 1; k >= 1; --k) {
    const double bk = be[k];
    for (int r = 0; r < R; ++r) {
      x[r] = (d[k * kBatch + r] - cz * x[r]) / bk;
      phi[off[r] + k * sk] = x[r];
    }
  }
}

// One batch of R rows j0..j0+R-1 over the columns i0..i1, as a wavefront:
// at step s, row j0 + r solves column i0 - 1 + s - r.  Each column still
// sees the new columns (i-1, j) and (i, j-1) and the old (i+1, j) and
// (i, j+1), so the batch gives exactly what the plain order (j ascending,
// i ascending inside) gives.
template <int R>
void sweep_batch(const LineSystem& s, int i0, int i1, int j0, double* d) {
  const int n = i1 - i0 + 1, base = i0 - 1;
  for (int step = 1; step <= n + R - 1; ++step) {
    if (step >= R && step <= n) {
      solve_columns<R>(s, base + step, j0, d);
    } else {
      // Ramp of the wavefront: the active columns one by one; they are
      // independent, so their order does not matter.
      for (int r = 0; r < R; ++r) {
        const int i = step - r;
        if (i >= 1 && i <= n) solve_columns<1>(s, base + i, j0 + r, d);
      }
    }
  }
}

// One sweep over the rows jb..je of a thread's share, in batches of up to
// kBatch rows.
void rows(const LineSystem& s, int i0, int i1, int jb, int je, double* d) {
  for (int j0 = jb; j0 <= je; j0 += kBatch) {
    switch (std::min(kBatch, je - j0 + 1)) {
      case 8: sweep_batch<8>(s, i0, i1, j0, d); break;
      case 7: sweep_batch<7>(s, i0, i1, j0, d); break;
      case 6: sweep_batch<6>(s, i0, i1, j0, d); break;
      case 5: sweep_batch<5>(s, i0, i1, j0, d); break;
      case 4: sweep_batch<4>(s, i0, i1, j0, d); break;
      case 3: sweep_batch<3>(s, i0, i1, j0, d); break;
      case 2: sweep_batch<2>(s, i0, i1, j0, d); break;
      default: sweep_batch<1>(s, i0, i1, j0, d); break;
    }
  }
}

}  // namespace

LineSmoother::LineSmoother(Array3<double>& phi, const Array3<double>& src, double cx, double cy, double cz,
                           double diag, int bottom, int top, int nz) {
  ensure_smooth_work(nz);
  // The first elimination pass of the Thomas algorithm depends on the
  // matrix only, so it is done once here, with exactly the operations it
  // takes for each column:  b(k+1) = b(k+1) - a(k+1) * c(k) / b(k).
  double* be = smooth_work.data();  // be[1..nz]
  for (int k = 1; k <= nz; ++k) be[k] = diag;
  if (nz >= 1) {
    be[1] = be[1] + cz * static_cast<double>(bottom);
    be[nz] = be[nz] + cz * static_cast<double>(top);
  }
  for (int k = 1; k <= nz - 1; ++k) be[k + 1] = be[k + 1] - cz * cz / be[k];
  // phi and src of a level have the same bounds, so one pair of strides
  // serves both.
  sys_ = LineSystem{phi.origin(), src.origin(), phi.sj(), phi.sk(), cx, cy, cz, be, nz};
}

void LineSmoother::sweep_rows(int i0, int i1, int jb, int je) const {
  if (sys_.nz < 1) return;
  double* d = smooth_work.data() + smooth_stride * static_cast<std::size_t>(1 + omp_get_thread_num());
  rows(sys_, i0, i1, jb, je, d);
}

}  // namespace rl
