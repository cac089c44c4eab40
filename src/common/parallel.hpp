// Work sharing inside a parallel region.
#pragma once

#include <omp.h>

#include <algorithm>

namespace rl {

// The calling thread's contiguous share b..e of lo..hi, as a static
// schedule without chunk size deals it out (an empty share has e < b).
inline void static_share(int lo, int hi, int& b, int& e) {
  const int n = hi - lo + 1;
  const int nt = omp_get_num_threads(), t = omp_get_thread_num();
  if (n <= 0) {
    b = lo;
    e = lo - 1;
    return;
  }
  const int q = n / nt, r = n % nt;
  b = lo + t * q + std::min(t, r);
  e = b + q + (t < r ? 1 : 0) - 1;
}

}  // namespace rl
