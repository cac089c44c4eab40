// Bounded arrays with Fortran-style index ranges.
//
// Every array carries a lower and an upper bound per dimension; the first
// index (i) runs fastest, then j, then k.  Storage is one contiguous block,
// 64-byte aligned and zero-filled when allocated.  With RIVERLES_BOUNDS_CHECK
// defined (the debug build), every access is checked and an out-of-range
// index aborts with the array's name and the offending index.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

namespace rl {

namespace detail {

[[noreturn]] void bounds_fail(const char* name, int rank, const int* idx, const int* lo, const int* hi);

// Allocates n elements of size sz, 64-byte aligned and zero-filled.
// Returns nullptr on failure or when n*sz overflows.
void* aligned_zalloc(std::size_t n, std::size_t sz);
void aligned_free(void* p);

// Extent hi-lo+1 of a dimension, or -1 if it is negative or too large.
inline std::int64_t extent(int lo, int hi) {
  std::int64_t e = static_cast<std::int64_t>(hi) - static_cast<std::int64_t>(lo) + 1;
  return e < 0 ? -1 : e;
}

}  // namespace detail

template <typename T, int R>
class Array {
  static_assert(R >= 1 && R <= 3, "rank 1 to 3");

 public:
  Array() = default;
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;
  Array(Array&& o) noexcept { swap(o); }
  Array& operator=(Array&& o) noexcept {
    swap(o);
    return *this;
  }
  ~Array() { detail::aligned_free(data_); }

  // Allocates with bounds lo[d]..hi[d]; any earlier storage is released.
  // Returns false on an allocation failure or a size that overflows.
  bool allocate_bounds(const char* name, const int (&lo)[R], const int (&hi)[R]) {
    detail::aligned_free(data_);
    data_ = nullptr;
    name_ = name;
    std::int64_t n = 1;
    for (int d = 0; d < R; ++d) {
      std::int64_t e = detail::extent(lo[d], hi[d]);
      if (e < 0) return false;
      if (e != 0 && n > INT64_MAX / e) return false;
      n *= e;
      lo_[d] = lo[d];
      hi_[d] = hi[d];
    }
    if (n > static_cast<std::int64_t>(SIZE_MAX / sizeof(T))) return false;
    n_ = n;
    sj_ = R > 1 ? detail::extent(lo[0], hi[0]) : 0;
    sk_ = R > 2 ? sj_ * detail::extent(lo[1], hi[1]) : 0;
    off_ = -static_cast<std::int64_t>(lo[0]);
    if (R > 1) off_ -= lo_[R > 1 ? 1 : 0] * sj_;
    if (R > 2) off_ -= lo_[R > 2 ? 2 : 0] * sk_;
    data_ = static_cast<T*>(detail::aligned_zalloc(n_ == 0 ? 1 : static_cast<std::size_t>(n_), sizeof(T)));
    return data_ != nullptr;
  }

  // Convenience forms.
  bool allocate(const char* name, int ilo, int ihi) requires(R == 1) {
    const int lo[1] = {ilo}, hi[1] = {ihi};
    return allocate_bounds(name, lo, hi);
  }
  bool allocate(const char* name, int ilo, int ihi, int jlo, int jhi) requires(R == 2) {
    const int lo[2] = {ilo, jlo}, hi[2] = {ihi, jhi};
    return allocate_bounds(name, lo, hi);
  }
  bool allocate(const char* name, int ilo, int ihi, int jlo, int jhi, int klo, int khi) requires(R == 3) {
    const int lo[3] = {ilo, jlo, klo}, hi[3] = {ihi, jhi, khi};
    return allocate_bounds(name, lo, hi);
  }

  T& operator()(int i) requires(R == 1) { return data_[index(i, 0, 0)]; }
  const T& operator()(int i) const requires(R == 1) { return data_[index(i, 0, 0)]; }
  T& operator()(int i, int j) requires(R == 2) { return data_[index(i, j, 0)]; }
  const T& operator()(int i, int j) const requires(R == 2) { return data_[index(i, j, 0)]; }
  T& operator()(int i, int j, int k) requires(R == 3) { return data_[index(i, j, k)]; }
  const T& operator()(int i, int j, int k) const requires(R == 3) { return data_[index(i, j, k)]; }

  // Linear offset of (i,j,k) from data(); hot loops take it once per row
  // and walk the row with a raw pointer.
  std::int64_t index(int i, int j, int k) const {
#ifdef RIVERLES_BOUNDS_CHECK
    check(i, j, k);
#endif
    std::int64_t o = off_ + i;
    if constexpr (R > 1) o += static_cast<std::int64_t>(j) * sj_;
    if constexpr (R > 2) o += static_cast<std::int64_t>(k) * sk_;
    return o;
  }

  // Pointer to element (i,j,k); unchecked past the element itself, so a
  // loop over a row uses it with offsets inside the row's bounds.
  T* at(int i, int j = 0, int k = 0) { return data_ + index(i, j, k); }
  const T* at(int i, int j = 0, int k = 0) const { return data_ + index(i, j, k); }

  // Row (j, k): a pointer p with p[i] the element (i, j, k), for loops over
  // i inside the array's bounds.  Only j and k are checked (a process of a
  // distributed run holds a part of the i range, so element 0 need not be
  // there).
  T* row(int j, int k = 0) {
#ifdef RIVERLES_BOUNDS_CHECK
    check(lo_[0], j, k);
#endif
    return origin() + static_cast<std::int64_t>(j) * sj_ + static_cast<std::int64_t>(k) * sk_;
  }
  const T* row(int j, int k = 0) const { return const_cast<Array*>(this)->row(j, k); }
  // Where element (0, 0, 0) would lie: the base of the i, j, k offsets.
  T* origin() { return data_ + off_; }
  const T* origin() const { return data_ + off_; }

  T* data() { return data_; }
  const T* data() const { return data_; }
  std::int64_t size() const { return n_; }
  bool allocated() const { return data_ != nullptr; }
  int lo(int d) const { return lo_[d]; }
  int hi(int d) const { return hi_[d]; }
  // Distance in elements between neighbours in j and in k.
  std::int64_t sj() const { return sj_; }
  std::int64_t sk() const { return sk_; }
  const char* name() const { return name_; }
  // Where a field's values sit on the staggered grid: -1 at cell centres
  // (or not a field of the grid), 0, 1 or 2 on the high x, y or z face of
  // each cell.  The ghost layer takes a face field's own direction from it.
  int face_axis() const { return face_axis_; }
  void set_face_axis(int axis) { face_axis_ = axis; }

  void fill(T value) {
    for (std::int64_t n = 0; n < n_; ++n) data_[n] = value;
  }

 private:
  void swap(Array& o) noexcept {
    std::swap(data_, o.data_);
    std::swap(name_, o.name_);
    std::swap(face_axis_, o.face_axis_);
    std::swap(n_, o.n_);
    std::swap(sj_, o.sj_);
    std::swap(sk_, o.sk_);
    std::swap(off_, o.off_);
    for (int d = 0; d < R; ++d) {
      std::swap(lo_[d], o.lo_[d]);
      std::swap(hi_[d], o.hi_[d]);
    }
  }

#ifdef RIVERLES_BOUNDS_CHECK
  void check(int i, int j, int k) const {
    const int idx[3] = {i, j, k};
    bool bad = data_ == nullptr;
    for (int d = 0; d < R; ++d) bad = bad || idx[d] < lo_[d] || idx[d] > hi_[d];
    if (bad) detail::bounds_fail(name_, R, idx, lo_, hi_);
  }
#endif

  T* data_ = nullptr;
  const char* name_ = "(unallocated)";
  int face_axis_ = -1;
  std::int64_t n_ = 0;
  std::int64_t sj_ = 0, sk_ = 0, off_ = 0;
  int lo_[R] = {};
  int hi_[R] = {};
};

// A non-owning view of a 3-D array for stencil loops: v(i, j, k) is the
// array's element (i, j, k), with the array's bounds check in the debug
// build.  In the release build it costs what a raw pointer with hoisted
// strides costs: within a row the (j, k) part of the address is loop
// invariant, so `V(i + 1, j - 1, k)` compiles to the same load as
// `Vrow[i + 1 - sj]`.  Views of different arrays are assumed not to alias
// in the loops that use them (they mark their i loops `ivdep`).
template <typename T>
class Stencil {
 public:
  template <typename A>
  explicit Stencil(A& a) : p_(a.origin()), sj_(a.sj()), sk_(a.sk()) {
#ifdef RIVERLES_BOUNDS_CHECK
    a_ = &a;
#endif
  }
  T& operator()(int i, int j, int k) const {
#ifdef RIVERLES_BOUNDS_CHECK
    a_->index(i, j, k);
#endif
    return p_[i + static_cast<std::int64_t>(j) * sj_ + static_cast<std::int64_t>(k) * sk_];
  }

 private:
  T* p_;  // element (0, 0, 0)
  std::int64_t sj_, sk_;
#ifdef RIVERLES_BOUNDS_CHECK
  const Array<std::remove_const_t<T>, 3>* a_ = nullptr;
#endif
};

template <typename T>
using Array1 = Array<T, 1>;
template <typename T>
using Array2 = Array<T, 2>;
template <typename T>
using Array3 = Array<T, 3>;

// The six faces of the box, in their fixed order.  The numbers are part of
// the formulas (the axis of face f is (f-1)/2, its side f%2).
enum Face : int { LowX = 1, HighX = 2, LowY = 3, HighY = 4, LowZ = 5, HighZ = 6 };

// Boundary types of a face.  The formulas use the type as a number, not only
// as a switch: its magnitude blends the near cell against the far end of a
// row, its sign mirrors.
enum BcType : int { Given = -1, Periodic = 0, Gradient = 1 };

// Six values, one per face of the box, indexed by Face (1..6).
template <typename T>
struct Faces {
  T v[6] = {};
  T& operator()(int f) {
#ifdef RIVERLES_BOUNDS_CHECK
    if (f < 1 || f > 6) {
      const int idx[1] = {f}, lo[1] = {1}, hi[1] = {6};
      detail::bounds_fail("faces", 1, idx, lo, hi);
    }
#endif
    return v[f - 1];
  }
  const T& operator()(int f) const { return const_cast<Faces*>(this)->operator()(f); }
};

}  // namespace rl
