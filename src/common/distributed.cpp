#include "common/distributed.hpp"
#include "common/haloledger.hpp"

#ifdef RIVERLES_MPI
#include <mpi.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <type_traits>

namespace rl {

namespace {

int env_int(const char* name) {
  const char* v = std::getenv(name);
  return v ? std::atoi(v) : 0;
}

bool started = false;  // MPI_Init was called here

#ifdef RIVERLES_MPI
template <typename T>
MPI_Datatype mpi_type();
template <>
MPI_Datatype mpi_type<double>() {
  return MPI_DOUBLE;
}
template <>
MPI_Datatype mpi_type<int>() {
  return MPI_INT;
}
#endif

// Adds the seconds of its life to a counter of dist_times().
struct Clock {
  double& sum;
  long& count;
  double t0;
  Clock(double& s, long& c) : sum(s), count(c), t0(now()) {}
  ~Clock() {
    sum += now() - t0;
    ++count;
  }
  static double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
  }
};

// The offsets of consecutive parts of the given counts; returns their total.
[[maybe_unused]] int offsets_of(const std::vector<int>& counts, std::vector<int>& offsets) {
  offsets.assign(counts.size(), 0);
  int total = 0;
  for (std::size_t r = 0; r < counts.size(); ++r) {
    offsets[r] = total;
    total += counts[r];
  }
  return total;
}

// Equal contiguous shares of 1..n among m blocks, the first n % m one more.
void shares(int n, int m, std::vector<int>& lo, std::vector<int>& hi) {
  lo.assign(static_cast<std::size_t>(m), 0);
  hi.assign(static_cast<std::size_t>(m), 0);
  int next = 1;
  for (int a = 0; a < m; ++a) {
    const int size = n / m + (a < n % m ? 1 : 0);
    lo[static_cast<std::size_t>(a)] = next;
    hi[static_cast<std::size_t>(a)] = next + size - 1;
    next += size;
  }
}

}  // namespace

bool launched_by_mpi() {
  return std::getenv("OMPI_COMM_WORLD_SIZE") != nullptr || std::getenv("PMI_SIZE") != nullptr ||
         std::getenv("PMIX_RANK") != nullptr;
}

int launched_size() {
  for (const char* name : {"OMPI_COMM_WORLD_SIZE", "PMI_SIZE"}) {
    const int n = env_int(name);
    if (n > 0) return n;
  }
  return 1;
}

void dist_start(int& argc, char**& argv) {
#ifdef RIVERLES_MPI
  if (!launched_by_mpi() || started) return;
  int provided = 0;
  // Only the main thread of each process passes messages, between the
  // parallel regions.
  MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &provided);
  started = true;
#else
  (void)argc;
  (void)argv;
#endif
}

void dist_end() {
#ifdef RIVERLES_MPI
  if (!started) return;
  int done = 0;
  MPI_Finalized(&done);
  if (!done) MPI_Finalize();
  started = false;
#endif
}

void dist_barrier() {
#ifdef RIVERLES_MPI
  if (started) MPI_Barrier(MPI_COMM_WORLD);
#endif
}

void dist_abort(int status) {
#ifdef RIVERLES_MPI
  if (started) {
    std::fflush(stdout);
    MPI_Abort(MPI_COMM_WORLD, status);
  }
#endif
  std::exit(status);
}

int dist_rank() {
#ifdef RIVERLES_MPI
  if (started) {
    int r = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &r);
    return r;
  }
#endif
  return 0;
}

int dist_size() {
#ifdef RIVERLES_MPI
  if (started) {
    int n = 1;
    MPI_Comm_size(MPI_COMM_WORLD, &n);
    return n;
  }
#endif
  return 1;
}

namespace {

// The blocks along x of the best split of n processes, 0 when none fits.
int best_px(int n, int imax, int jmax) {
  const int k = kMinBlockColumns;
  std::int64_t best = std::numeric_limits<std::int64_t>::max();
  int bx = 0;
  for (int px = n; px >= 1; --px) {
    if (n % px != 0) continue;
    const int py = n / px;
    const bool fits = (px == 1 || imax / px >= k) && (py == 1 || jmax / py >= k);
    if (!fits) continue;
    const std::int64_t cut = std::int64_t(px - 1) * jmax + std::int64_t(py - 1) * imax;
    if (cut < best) {
      best = cut;
      bx = px;
    }
  }
  return bx;
}

enum class Op { Min, Max };

double reduce(double x, Op op) {
#ifdef RIVERLES_MPI
  double r = x;
  if (started) {
    Clock clock(dist_times().reduce, dist_times().reduces);
    MPI_Allreduce(&x, &r, 1, MPI_DOUBLE, op == Op::Min ? MPI_MIN : MPI_MAX, MPI_COMM_WORLD);
  }
  return r;
#else
  (void)op;
  return x;
#endif
}

}  // namespace

double dist_min(double x) { return reduce(x, Op::Min); }
double dist_max(double x) { return reduce(x, Op::Max); }

double dist_sum(double x) {
  // MPI_Allreduce may add in any order; gathering the values and adding
  // them by rank gives every process the same bits.
  std::vector<double> all(static_cast<std::size_t>(dist_size()), x);
#ifdef RIVERLES_MPI
  if (started) {
    Clock clock(dist_times().reduce, dist_times().reduces);
    MPI_Allgather(&x, 1, MPI_DOUBLE, all.data(), 1, MPI_DOUBLE, MPI_COMM_WORLD);
  }
#endif
  double s = 0.0;
  for (double v : all) s = s + v;
  return s;
}

void dist_merge(std::vector<double>& x) {
#ifdef RIVERLES_MPI
  if (started && !x.empty()) {
    Clock clock(dist_times().reduce, dist_times().reduces);
    MPI_Allreduce(MPI_IN_PLACE, x.data(), static_cast<int>(x.size()), MPI_DOUBLE, MPI_SUM, MPI_COMM_WORLD);
  }
#else
  (void)x;
#endif
}

bool plan_split(int nprocs, int imax, int jmax, PlanSplit& s, std::string& why) {
  const int bx = nprocs >= 1 ? best_px(nprocs, imax, jmax) : 0;
  if (bx == 0) {
    const int k = kMinBlockColumns;
    int most = 1;
    const int limit = std::max(1, imax / k) * std::max(1, jmax / k);
    for (int n = 2; n <= limit; ++n)
      if (best_px(n, imax, jmax) > 0) most = n;
    why = std::to_string(nprocs) + " processes cannot share a plan of " + std::to_string(imax) + " x " +
          std::to_string(jmax) + " columns in blocks of at least " + std::to_string(k) + " x " +
          std::to_string(k) + " columns; the most that can is " + std::to_string(most);
    return false;
  }
  s.px = bx;
  s.py = nprocs / bx;
  shares(imax, s.px, s.ilo, s.ihi);
  shares(jmax, s.py, s.jlo, s.jhi);
  return true;
}

Block block_of(const PlanSplit& s, int rank) {
  Block b;
  b.a = rank % s.px;
  b.b = rank / s.px;
  b.ilo = s.ilo[static_cast<std::size_t>(b.a)];
  b.ihi = s.ihi[static_cast<std::size_t>(b.a)];
  b.jlo = s.jlo[static_cast<std::size_t>(b.b)];
  b.jhi = s.jhi[static_cast<std::size_t>(b.b)];
  auto at = [&](int a, int bb) { return bb * s.px + a; };
  if (b.a > 0) b.west = at(b.a - 1, b.b);
  if (b.a < s.px - 1) b.east = at(b.a + 1, b.b);
  if (b.b > 0) b.south = at(b.a, b.b - 1);
  if (b.b < s.py - 1) b.north = at(b.a, b.b + 1);
  return b;
}

namespace {

// The buffers of the exchanges: grown without clearing, since every value
// is written before it is sent or read.
template <typename T>
struct Uncleared : std::allocator<T> {
  template <typename U>
  struct rebind {
    using other = Uncleared<U>;
  };
  Uncleared() = default;
  template <typename U>
  Uncleared(const Uncleared<U>&) {}
  template <typename U, typename... A>
  void construct(U* p, A&&... a) {
    if constexpr (sizeof...(A) == 0)
      ::new (static_cast<void*>(p)) U;
    else
      ::new (static_cast<void*>(p)) U(std::forward<A>(a)...);
  }
};
template <typename T>
using Buffer = std::vector<T, Uncleared<T>>;

// Appends the box b of f to buf, i fastest (pack), and fills the box b of f
// from in, giving back where the next box's values begin (unpack).  An x
// halo is a few elements of each of many rows, so the rows are walked by
// their stride rather than appended one by one.
template <typename T, typename Buf>
void pack(const Array3<T>& f, const Box& b, Buf& buf) {
  if (b.empty()) return;
  const int ni = b.i1 - b.i0 + 1, nj = b.j1 - b.j0 + 1;
  const std::size_t at = buf.size();
  buf.resize(at + static_cast<std::size_t>(b.count()));
  T* out = buf.data() + at;
  const std::int64_t sj = f.sj();
  for (int k = b.k0; k <= b.k1; ++k) {
    const T* row = f.at(b.i0, b.j0, k);
    for (int j = 0; j < nj; ++j, row += sj)
      for (int i = 0; i < ni; ++i) *out++ = row[i];
  }
}
template <typename T>
const T* unpack(Array3<T>& f, const Box& b, const T* in) {
  if (b.empty()) return in;
  const int ni = b.i1 - b.i0 + 1, nj = b.j1 - b.j0 + 1;
  const std::int64_t sj = f.sj();
  for (int k = b.k0; k <= b.k1; ++k) {
    T* row = f.at(b.i0, b.j0, k);
    for (int j = 0; j < nj; ++j, row += sj)
      for (int i = 0; i < ni; ++i) row[i] = *in++;
  }
  return in;
}

}  // namespace

template <typename T>
void exchange_block(std::initializer_list<Array3<T>*> fields, const Block& blk, int w, const Reach& reach) {
  if (w <= 0 || fields.size() == 0) return;
  // Each field's range within reach.
  struct Range {
    Array3<T>* f;
    int i0, i1, j0, j1, k0, k1;
  };
  std::vector<Range> r;
  for (Array3<T>* f : fields)
    r.push_back({f, std::max(f->lo(0), reach.i0), std::min(f->hi(0), reach.i1), std::max(f->lo(1), reach.j0),
                 std::min(f->hi(1), reach.j1), std::max(f->lo(2), reach.k0), std::min(f->hi(2), reach.k1)});
  // A side of a block: the owned layers it sends and the halo it takes, as
  // boxes of every field (x: over the field's j range; y: over its whole i
  // range, the x halos included, so that the corners come along).
  struct Side {
    int rank;
    Buffer<T>& out;
    Buffer<T>& in;
  };
  // The buffers stay from call to call (an exchange runs dozens of times a
  // step; fresh buffers would be allocated and faulted in each time); one
  // thread exchanges at a time.
  static Buffer<T> buffers[4];
  auto box_of = [&](const Range& q, int axis, bool send, bool high) {
    Box b{q.i0, q.i1, q.j0, q.j1, q.k0, q.k1};
    const int lo = axis == 0 ? blk.ilo : blk.jlo, hi = axis == 0 ? blk.ihi : blk.jhi;
    const int a0 = send ? (high ? hi - w + 1 : lo) : (high ? hi + 1 : lo - w);
    const int a1 = send ? (high ? hi : lo + w - 1) : (high ? hi + w : lo - 1);
    if (axis == 0) {
      b.i0 = a0;
      b.i1 = a1;
    } else {
      b.j0 = a0;
      b.j1 = a1;
    }
    return b;
  };
  auto pack_side = [&](int axis, bool high, Buffer<T>& buf) {
    buf.clear();
    for (const Range& q : r) pack(*q.f, box_of(q, axis, true, high), buf);
  };
  auto unpack_side = [&](int axis, bool high, const Buffer<T>& buf) {
    const T* in = buf.data();
    for (const Range& q : r) in = unpack(*q.f, box_of(q, axis, false, high), in);
  };
  auto received = [&](int axis, bool high) {
    std::size_t n = 0;
    for (const Range& q : r) n += static_cast<std::size_t>(box_of(q, axis, false, high).count());
    return n;
  };
  // One axis: both sides at once (the low side's layers to the low
  // neighbour, whose own come into the low halo; the same at the high side).
  auto axis_pass = [&](int axis, int low_rank, int high_rank) {
    if (low_rank < 0 && high_rank < 0) return;
    Side side[2] = {{low_rank, buffers[0], buffers[1]}, {high_rank, buffers[2], buffers[3]}};
    for (int h = 0; h < 2; ++h) {
      if (side[h].rank < 0) continue;
      pack_side(axis, h == 1, side[h].out);
      side[h].in.resize(received(axis, h == 1));
    }
#ifdef RIVERLES_MPI
    if (started) {
      MPI_Request req[4];
      int n = 0;
      // Tags tell the two sides apart when both neighbours are one process.
      for (int h = 0; h < 2; ++h)
        if (side[h].rank >= 0)
          MPI_Irecv(side[h].in.data(), static_cast<int>(side[h].in.size()), mpi_type<T>(), side[h].rank, 11 - h,
                    MPI_COMM_WORLD, &req[n++]);
      for (int h = 0; h < 2; ++h)
        if (side[h].rank >= 0)
          MPI_Isend(side[h].out.data(), static_cast<int>(side[h].out.size()), mpi_type<T>(), side[h].rank, 10 + h,
                    MPI_COMM_WORLD, &req[n++]);
      {
        Clock wait(dist_times().wait, dist_times().waits);
        MPI_Waitall(n, req, MPI_STATUSES_IGNORE);
      }
      for (int h = 0; h < 2; ++h)
        if (side[h].rank >= 0) unpack_side(axis, h == 1, side[h].in);
      return;
    }
#endif
    // One process: only a periodic direction sends, to itself.
    for (int h = 0; h < 2; ++h)
      if (side[h].rank >= 0) unpack_side(axis, h == 1, side[1 - h].out);
  };
  axis_pass(0, blk.west, blk.east);
  axis_pass(1, blk.south, blk.north);
}

template <typename T>
void exchange_block(Array3<T>& f, const Block& blk, int w, const Reach& reach) {
  exchange_block({&f}, blk, w, reach);
}

void allgather_box(Array3<double>& f, int i0, int i1, int j0, int j1, int k0, int k1) {
#ifdef RIVERLES_MPI
  const int n = dist_size();
  if (!started || n < 2) return;
  Clock clock(dist_times().gather, dist_times().gathers);
  const int mine[6] = {i0, i1, j0, j1, k0, k1};
  std::vector<int> boxes(6 * static_cast<std::size_t>(n));
  MPI_Allgather(mine, 6, MPI_INT, boxes.data(), 6, MPI_INT, MPI_COMM_WORLD);
  auto count = [&](int r) {
    const int* b = &boxes[6 * static_cast<std::size_t>(r)];
    return std::max(0, b[1] - b[0] + 1) * std::max(0, b[3] - b[2] + 1) * std::max(0, b[5] - b[4] + 1);
  };
  std::vector<int> counts(static_cast<std::size_t>(n)), offsets(static_cast<std::size_t>(n));
  int total = 0;
  for (int r = 0; r < n; ++r) {
    counts[static_cast<std::size_t>(r)] = count(r);
    offsets[static_cast<std::size_t>(r)] = total;
    total += count(r);
  }
  std::vector<double> out, all(static_cast<std::size_t>(total));
  out.reserve(static_cast<std::size_t>(count(dist_rank())));
  for (int k = k0; k <= k1; ++k)
    for (int j = j0; j <= j1 && i0 <= i1; ++j) {
      const double* row = f.at(i0, j, k);
      out.insert(out.end(), row, row + (i1 - i0 + 1));
    }
  MPI_Allgatherv(out.data(), static_cast<int>(out.size()), MPI_DOUBLE, all.data(), counts.data(), offsets.data(),
                 MPI_DOUBLE, MPI_COMM_WORLD);
  for (int r = 0; r < n; ++r) {
    if (r == dist_rank()) continue;
    const int* b = &boxes[6 * static_cast<std::size_t>(r)];
    const double* p = all.data() + offsets[static_cast<std::size_t>(r)];
    for (int k = b[4]; k <= b[5]; ++k)
      for (int j = b[2]; j <= b[3] && b[0] <= b[1]; ++j) {
        double* row = f.at(b[0], j, k);
        for (int i = 0; i <= b[1] - b[0]; ++i) row[i] = *p++;
      }
  }
#else
  (void)f, (void)i0, (void)i1, (void)j0, (void)j1, (void)k0, (void)k1;
#endif
}


Box Box::within(const Box& b) const {
  Box r;
  r.i0 = std::max(i0, b.i0);
  r.i1 = std::min(i1, b.i1);
  r.j0 = std::max(j0, b.j0);
  r.j1 = std::min(j1, b.j1);
  r.k0 = std::max(k0, b.k0);
  r.k1 = std::min(k1, b.k1);
  return r;
}

namespace {

// Position of (i, j, k) in the packing of box w, quantity q of nf.
std::size_t packed_at(const Box& w, int q, int i, int j, int k) {
  return static_cast<std::size_t>(q) * static_cast<std::size_t>(w.count()) +
         (static_cast<std::size_t>(k - w.k0) * static_cast<std::size_t>(w.j1 - w.j0 + 1) +
          static_cast<std::size_t>(j - w.j0)) *
             static_cast<std::size_t>(w.i1 - w.i0 + 1) +
         static_cast<std::size_t>(i - w.i0);
}

// Copies the values of part (a box within both) from the packing of box
// `from` into that of box `to`.
void copy_part(const Box& part, int nf, const Box& from, const double* src, const Box& to, double* dst) {
  if (part.empty()) return;
  const std::size_t n = static_cast<std::size_t>(part.i1 - part.i0 + 1);
  for (int q = 0; q < nf; ++q)
    for (int k = part.k0; k <= part.k1; ++k)
      for (int j = part.j0; j <= part.j1; ++j) {
        const double* s = src + packed_at(from, q, part.i0, j, k);
        std::copy(s, s + n, dst + packed_at(to, q, part.i0, j, k));
      }
}

#ifdef RIVERLES_MPI
// Every process's box, on the first process.
std::vector<Box> boxes_at_first(const Box& mine) {
  const int b[6] = {mine.i0, mine.i1, mine.j0, mine.j1, mine.k0, mine.k1};
  std::vector<int> all(6 * static_cast<std::size_t>(dist_size()));
  MPI_Gather(b, 6, MPI_INT, all.data(), 6, MPI_INT, 0, MPI_COMM_WORLD);
  std::vector<Box> r;
  if (dist_rank() != 0) return r;
  for (std::size_t p = 0; p < all.size(); p += 6) r.push_back({all[p], all[p + 1], all[p + 2], all[p + 3], all[p + 4], all[p + 5]});
  return r;
}

// Counts and offsets of nf values a position over each box, one after the
// other; their total.
int box_layout(const std::vector<Box>& boxes, int nf, std::vector<int>& counts, std::vector<int>& offsets) {
  int at = 0;
  for (const Box& b : boxes) {
    counts.push_back(nf * static_cast<int>(b.count()));
    offsets.push_back(at);
    at += counts.back();
  }
  return at;
}
#endif

}  // namespace

void pack_box(std::initializer_list<const Array3<double>*> f, const Box& b, std::vector<double>& vals) {
  vals.clear();
  for (const Array3<double>* a : f) pack(*a, b, vals);
}

void unpack_box(std::initializer_list<Array3<double>*> f, const Box& b, const std::vector<double>& vals) {
  const double* in = vals.data();
  for (Array3<double>* a : f) in = unpack(*a, b, in);
}

void gather_to_first(const Box& mine, const std::vector<double>& vals, int nf, const Box& whole,
                   std::vector<double>& out) {
  const std::size_t total = static_cast<std::size_t>(nf) * static_cast<std::size_t>(whole.count());
#ifdef RIVERLES_MPI
  if (started && dist_size() > 1) {
    Clock clock(dist_times().gather, dist_times().gathers);
    const std::vector<Box> boxes = boxes_at_first(mine);
    std::vector<int> counts, offsets;
    std::vector<double> all(static_cast<std::size_t>(box_layout(boxes, nf, counts, offsets)));
    MPI_Gatherv(vals.data(), static_cast<int>(vals.size()), MPI_DOUBLE, all.data(), counts.data(), offsets.data(),
                MPI_DOUBLE, 0, MPI_COMM_WORLD);
    if (dist_rank() != 0) return;
    out.assign(total, 0.0);
    for (std::size_t r = 0; r < boxes.size(); ++r)
      copy_part(boxes[r].within(whole), nf, boxes[r], all.data() + offsets[r], whole, out.data());
    return;
  }
#endif
  out.assign(total, 0.0);
  copy_part(mine.within(whole), nf, mine, vals.data(), whole, out.data());
}

Box scatter_from_first(const Box& mine, int nf, const Box& whole, const std::vector<double>& in,
                     std::vector<double>& vals) {
  const Box part = mine.within(whole);
  vals.assign(static_cast<std::size_t>(nf) * static_cast<std::size_t>(part.count()), 0.0);
#ifdef RIVERLES_MPI
  if (started && dist_size() > 1) {
    Clock clock(dist_times().gather, dist_times().gathers);
    const std::vector<Box> boxes = boxes_at_first(part);
    std::vector<int> counts, offsets;
    std::vector<double> all(static_cast<std::size_t>(box_layout(boxes, nf, counts, offsets)));
    if (dist_rank() == 0) {
      for (std::size_t r = 0; r < boxes.size(); ++r)
        copy_part(boxes[r], nf, whole, in.data(), boxes[r], all.data() + offsets[r]);
    }
    MPI_Scatterv(all.data(), counts.data(), offsets.data(), MPI_DOUBLE, vals.data(), static_cast<int>(vals.size()),
                 MPI_DOUBLE, 0, MPI_COMM_WORLD);
    return part;
  }
#endif
  copy_part(part, nf, whole, in.data(), part, vals.data());
  return part;
}

void dist_allgather(const double* mine, int n, std::vector<double>& all) {
  all.assign(mine, mine + n);
#ifdef RIVERLES_MPI
  if (started && dist_size() > 1) {
    Clock clock(dist_times().reduce, dist_times().reduces);
    all.resize(static_cast<std::size_t>(n) * static_cast<std::size_t>(dist_size()));
    MPI_Allgather(mine, n, MPI_DOUBLE, all.data(), n, MPI_DOUBLE, MPI_COMM_WORLD);
  }
#endif
}

namespace {

// Every process's values, one after the other in rank order, on the first
// process or (everyone) on all; with one process, its own.
template <typename T>
void gather_parts(const std::vector<T>& mine, std::vector<T>& all, bool everyone) {
  all = mine;
#ifdef RIVERLES_MPI
  if (!started || dist_size() < 2) return;
  Clock clock(dist_times().gather, dist_times().gathers);
  const MPI_Datatype type = std::is_same_v<T, int> ? MPI_INT : MPI_UNSIGNED_CHAR;
  const int n = static_cast<int>(mine.size());
  std::vector<int> counts(static_cast<std::size_t>(dist_size())), offsets;
  if (everyone)
    MPI_Allgather(&n, 1, MPI_INT, counts.data(), 1, MPI_INT, MPI_COMM_WORLD);
  else
    MPI_Gather(&n, 1, MPI_INT, counts.data(), 1, MPI_INT, 0, MPI_COMM_WORLD);
  const int total = offsets_of(counts, offsets);
  all.assign(everyone || dist_rank() == 0 ? static_cast<std::size_t>(total) : 0, T{});
  if (everyone)
    MPI_Allgatherv(mine.data(), n, type, all.data(), counts.data(), offsets.data(), type, MPI_COMM_WORLD);
  else
    MPI_Gatherv(mine.data(), n, type, all.data(), counts.data(), offsets.data(), type, 0, MPI_COMM_WORLD);
#else
  (void)everyone;
#endif
}

}  // namespace

void gather_ints(const std::vector<int>& mine, std::vector<int>& all) { gather_parts(mine, all, false); }

void allgather_bytes(const std::vector<unsigned char>& mine, std::vector<unsigned char>& all) {
  gather_parts(mine, all, true);
}

void send_each(const std::vector<std::vector<double>>& to, std::vector<std::vector<double>>& from) {
  const std::size_t np = static_cast<std::size_t>(dist_size());
  from.assign(np, {});
#ifdef RIVERLES_MPI
  if (started && np > 1) {
    Clock clock(dist_times().gather, dist_times().gathers);
    std::vector<int> scount(np), sdisp(np), rcount(np), rdisp;
    std::vector<double> sbuf;
    for (std::size_t r = 0; r < np; ++r) {
      sdisp[r] = static_cast<int>(sbuf.size());
      scount[r] = static_cast<int>(to[r].size());
      sbuf.insert(sbuf.end(), to[r].begin(), to[r].end());
    }
    MPI_Alltoall(scount.data(), 1, MPI_INT, rcount.data(), 1, MPI_INT, MPI_COMM_WORLD);
    const int total = offsets_of(rcount, rdisp);
    std::vector<double> rbuf(static_cast<std::size_t>(total));
    MPI_Alltoallv(sbuf.data(), scount.data(), sdisp.data(), MPI_DOUBLE, rbuf.data(), rcount.data(), rdisp.data(),
                  MPI_DOUBLE, MPI_COMM_WORLD);
    for (std::size_t r = 0; r < np; ++r) from[r].assign(rbuf.begin() + rdisp[r], rbuf.begin() + rdisp[r] + rcount[r]);
    return;
  }
#endif
  from[0] = to[0];
}

int owner_of(int i, int j) {
  const Ownership& o = ownership();
  if (!o.on) return 0;
  auto index = [](const std::vector<int>& hi, int x) {
    std::size_t a = 0;
    while (a + 1 < hi.size() && x > hi[a]) ++a;
    return static_cast<int>(a);
  };
  return index(o.split.jhi, j) * o.split.px + index(o.split.ihi, i);
}

void dist_bcast(double* x, int n) {
#ifdef RIVERLES_MPI
  if (started && dist_size() > 1) MPI_Bcast(x, n, MPI_DOUBLE, 0, MPI_COMM_WORLD);
#else
  (void)x, (void)n;
#endif
}

void dist_bcast(long long* x, int n) {
#ifdef RIVERLES_MPI
  if (started && dist_size() > 1) MPI_Bcast(x, n, MPI_LONG_LONG, 0, MPI_COMM_WORLD);
#else
  (void)x, (void)n;
#endif
}

void dist_bcast(int* x, int n) {
#ifdef RIVERLES_MPI
  if (started && dist_size() > 1) MPI_Bcast(x, n, MPI_INT, 0, MPI_COMM_WORLD);
#else
  (void)x, (void)n;
#endif
}


}  // namespace rl

namespace rl {

Ownership& ownership() {
  static Ownership o;
  return o;
}

namespace {

// The shares of the next coarser level, when every share halves evenly:
// each starts on an odd column and all but the last end on an even one (the
// last ends at the level's last column, n / 2, as on one process), and each
// keeps at least kMinLevelColumns.
bool halve(const std::vector<int>& lo, const std::vector<int>& hi, int n, std::vector<int>& clo,
           std::vector<int>& chi) {
  const std::size_t m = lo.size();
  clo.assign(m, 0);
  chi.assign(m, 0);
  for (std::size_t a = 0; a < m; ++a) {
    if (lo[a] % 2 != 1 || (a + 1 < m && hi[a] % 2 != 0)) return false;
    clo[a] = (lo[a] - 1) / 2 + 1;
    chi[a] = a + 1 < m ? hi[a] / 2 : n / 2;
    if (chi[a] - clo[a] + 1 < kMinLevelColumns) return false;
  }
  return true;
}

LevelCut level_of(const PlanSplit& s, int rank, int ni, int nj) {
  LevelCut c;
  c.split = s;
  c.blk = block_of(s, rank);
  c.west = c.blk.ilo == 1;
  c.east = c.blk.ihi == ni;
  c.south = c.blk.jlo == 1;
  c.north = c.blk.jhi == nj;
  return c;
}

}  // namespace

void own_block(const PlanSplit& s, int rank, int imax, int jmax) {
  halo_forget_all();
  Ownership& o = ownership();
  const Block blk = block_of(s, rank);
  o.on = true;
  o.split = s;
  o.blk = blk;
  o.west = blk.ilo == 1;
  o.east = blk.ihi == imax;
  o.south = blk.jlo == 1;
  o.north = blk.jhi == jmax;
  o.split_x = s.px > 1;
  o.split_y = s.py > 1;
  o.levels.clear();
  PlanSplit cur = s;
  int ni = imax, nj = jmax;
  for (;;) {
    o.levels.push_back(level_of(cur, rank, ni, nj));
    PlanSplit next;
    next.px = cur.px;
    next.py = cur.py;
    if (!halve(cur.ilo, cur.ihi, ni, next.ilo, next.ihi) || !halve(cur.jlo, cur.jhi, nj, next.jlo, next.jhi)) break;
    cur = next;
    ni /= 2;
    nj /= 2;
  }
}

bool level_is_cut(int l) {
  const Ownership& o = ownership();
  return o.on && l <= 0 && -l < static_cast<int>(o.levels.size());
}

const LevelCut& level_cut(int l) { return ownership().levels[static_cast<std::size_t>(-l)]; }

void own_box() {
  halo_forget_all();
  ownership() = Ownership();
}

DistTimes& dist_times() {
  static DistTimes t;
  return t;
}

template <typename T>
void fill_halo(Array3<T>& f, int w, const Reach& reach, int level) {
  fill_halos<T>({&f}, w, reach, level);
}

template <typename T>
void fill_halos(std::initializer_list<Array3<T>*> fields, int w, const Reach& reach, int level) {
  if (!level_is_cut(level)) return;
  Clock clock(dist_times().halo, dist_times().halos);
  const LevelCut& c = level_cut(level);
  // Only the cuts between blocks: the faces of the box, periodic or not,
  // have their ghost rules.
  exchange_block(fields, c.blk, w, reach);
  for (Array3<T>* f : fields) halo_filled(f, w);
}

namespace {

// The part of a plane across axis (0 x, 1 y) that the block of o copies at
// a periodic face: its own rows (x) or columns (y) of the other direction,
// the box's ghost rows at its faces, and f's planes k, within reach.
template <typename T>
struct WrapPlane {
  Array3<T>& f;
  int axis, c0, c1, k0, k1;
  WrapPlane(Array3<T>& f_, int axis_, const LevelCut& o, const Reach& reach) : f(f_), axis(axis_) {
    if (axis == 0) {
      c0 = std::max(o.south ? f.lo(1) : o.blk.jlo, reach.j0);
      c1 = std::min(o.north ? f.hi(1) : o.blk.jhi, reach.j1);
    } else {
      c0 = std::max(o.west ? f.lo(0) : o.blk.ilo, reach.i0);
      c1 = std::min(o.east ? f.hi(0) : o.blk.ihi, reach.i1);
    }
    k0 = std::max(f.lo(2), reach.k0);
    k1 = std::min(f.hi(2), reach.k1);
  }
  bool empty() const { return c1 < c0 || k1 < k0; }
  std::size_t size() const { return static_cast<std::size_t>(c1 - c0 + 1) * static_cast<std::size_t>(k1 - k0 + 1); }
  // Appends plane x to buf; fills plane x from in and gives back where the
  // next plane's values begin.  Across x a plane is one value of each row,
  // walked by the row stride; across y it is a stretch of each row.
  template <typename Buf>
  void get(int x, Buf& buf) {
    const std::size_t at = buf.size();
    buf.resize(at + size());
    T* out = buf.data() + at;
    for (int k = k0; k <= k1; ++k) {
      const T* p = axis == 0 ? f.at(x, c0, k) : f.at(c0, x, k);
      if (axis == 0)
        for (int c = c0; c <= c1; ++c, p += f.sj()) *out++ = *p;
      else
        out = std::copy(p, p + (c1 - c0 + 1), out);
    }
  }
  const T* put(int x, const T* in) {
    for (int k = k0; k <= k1; ++k) {
      T* p = axis == 0 ? f.at(x, c0, k) : f.at(c0, x, k);
      if (axis == 0)
        for (int c = c0; c <= c1; ++c, p += f.sj()) *p = *in++;
      else {
        std::copy(in, in + (c1 - c0 + 1), p);
        in += c1 - c0 + 1;
      }
    }
    return in;
  }
};

// The rank of the block at index a along axis in this block's row (x) or
// column (y) of blocks.
int along(const LevelCut& o, int axis, int a) {
  return axis == 0 ? o.blk.b * o.split.px + a : a * o.split.px + o.blk.a;
}

}  // namespace

template <typename T>
void wrap_faces(std::initializer_list<Array3<T>*> fields, int axis, int n, const Reach& reach, int level) {
  if (!level_is_cut(level)) return;
  const LevelCut& o = level_cut(level);
  const int m = axis == 0 ? o.split.px : o.split.py;
  const int mine = axis == 0 ? o.blk.a : o.blk.b;
  if (m < 2 || (mine != 0 && mine != m - 1)) return;
  std::vector<WrapPlane<T>> planes;
  for (Array3<T>* f : fields) {
    planes.emplace_back(*f, axis, o, reach);
    if (planes.back().empty()) planes.pop_back();
  }
  if (planes.empty()) return;
  Clock clock(dist_times().wrap, dist_times().wraps);
  // The low end sends its plane 1 and takes plane n into 0; the high end
  // sends plane n and takes plane 1 into n + 1; every field in one message.
  const bool low = mine == 0;
  static Buffer<T> out, in;  // kept from call to call
  out.clear();
  for (WrapPlane<T>& p : planes) p.get(low ? 1 : n, out);
  in.resize(out.size());
#ifdef RIVERLES_MPI
  const int other = along(o, axis, low ? m - 1 : 0);
  {
    Clock wait(dist_times().wait, dist_times().waits);
    MPI_Sendrecv(out.data(), static_cast<int>(out.size()), mpi_type<T>(), other, 2, in.data(),
                 static_cast<int>(in.size()), mpi_type<T>(), other, 2, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
  }
#endif
  const T* at = in.data();
  for (WrapPlane<T>& p : planes) at = p.put(low ? 0 : n + 1, at);
}

template <typename T>
void wrap_faces(Array3<T>& f, int axis, int n, const Reach& reach, int level) {
  wrap_faces<T>({&f}, axis, n, reach, level);
}

template <typename T>
void wrap_copy(Array3<T>& f, int axis, int from, int to, const Reach& reach, int level) {
  if (!level_is_cut(level)) return;
  const LevelCut& o = level_cut(level);
  const int m = axis == 0 ? o.split.px : o.split.py;
  if (m < 2) return;
  const std::vector<int>& lo = axis == 0 ? o.split.ilo : o.split.jlo;
  const std::vector<int>& hi = axis == 0 ? o.split.ihi : o.split.jhi;
  int src = from < lo[0] ? 0 : m - 1;
  for (int a = 0; a < m; ++a)
    if (from >= lo[static_cast<std::size_t>(a)] && from <= hi[static_cast<std::size_t>(a)]) src = a;
  const int dst = to < 1 ? 0 : m - 1;
  const int mine = axis == 0 ? o.blk.a : o.blk.b;
  if ((mine != src && mine != dst) || src == dst) return;
  WrapPlane<T> plane(f, axis, o, reach);
  if (plane.empty()) return;
  Clock clock(dist_times().wrap, dist_times().wraps);
  Buffer<T> buf;
#ifdef RIVERLES_MPI
  if (mine == src) {
    plane.get(from, buf);
    MPI_Send(buf.data(), static_cast<int>(buf.size()), mpi_type<T>(), along(o, axis, dst), 1, MPI_COMM_WORLD);
  } else {
    buf.resize(plane.size());
    MPI_Recv(buf.data(), static_cast<int>(buf.size()), mpi_type<T>(), along(o, axis, src), 1, MPI_COMM_WORLD,
             MPI_STATUS_IGNORE);
    plane.put(to, buf.data());
  }
#else
  (void)to;
#endif
}

void wrap_ghosts(std::initializer_list<Array3<double>*> fields, int axis, int n, bool low, bool high,
                const Reach& reach, int level) {
  if (low && high) {
    wrap_faces(fields, axis, n, reach, level);
    return;
  }
  for (Array3<double>* f : fields) {
    if (low) wrap_copy(*f, axis, n, 0, reach, level);
    if (high) wrap_copy(*f, axis, 1, n + 1, reach, level);
  }
}

void wrap_in_team(std::initializer_list<Array3<double>*> fields, int axis, int n, bool low, bool high,
                  const Reach& reach, int level) {
#pragma omp barrier
#pragma omp master
  wrap_ghosts(fields, axis, n, low, high, reach, level);
#pragma omp barrier
}

template void exchange_block(Array3<double>&, const Block&, int, const Reach&);
template void exchange_block(Array3<int>&, const Block&, int, const Reach&);
template void exchange_block(std::initializer_list<Array3<double>*>, const Block&, int, const Reach&);
template void exchange_block(std::initializer_list<Array3<int>*>, const Block&, int, const Reach&);
template void fill_halos(std::initializer_list<Array3<double>*>, int, const Reach&, int);
template void fill_halos(std::initializer_list<Array3<int>*>, int, const Reach&, int);
template void fill_halo(Array3<double>&, int, const Reach&, int);
template void fill_halo(Array3<int>&, int, const Reach&, int);
template void wrap_copy(Array3<double>&, int, int, int, const Reach&, int);
template void wrap_copy(Array3<int>&, int, int, int, const Reach&, int);
template void wrap_faces(std::initializer_list<Array3<double>*>, int, int, const Reach&, int);
template void wrap_faces(Array3<double>&, int, int, const Reach&, int);
template void wrap_faces(Array3<int>&, int, int, const Reach&, int);

}  // namespace rl
