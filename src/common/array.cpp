#include "common/array.hpp"

#include <cstdio>
#include <cstdlib>

namespace rl::detail {

void bounds_fail(const char* name, int rank, const int* idx, const int* lo, const int* hi) {
  std::fprintf(stderr, "array bounds violation: %s(", name);
  for (int d = 0; d < rank; ++d) std::fprintf(stderr, "%s%d", d ? "," : "", idx[d]);
  std::fprintf(stderr, ") outside (");
  for (int d = 0; d < rank; ++d) std::fprintf(stderr, "%s%d:%d", d ? "," : "", lo[d], hi[d]);
  std::fprintf(stderr, ")\n");
  std::fflush(stderr);
  std::abort();
}

void* aligned_zalloc(std::size_t n, std::size_t sz) {
  if (n != 0 && sz > SIZE_MAX / n) return nullptr;
  std::size_t bytes = n * sz;
  bytes = (bytes + 63) / 64 * 64;
  if (bytes == 0) bytes = 64;
  void* p = std::aligned_alloc(64, bytes);
  if (p) std::memset(p, 0, bytes);
  return p;
}

void aligned_free(void* p) { std::free(p); }

}  // namespace rl::detail
