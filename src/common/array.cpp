#include "common/array.hpp"

#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

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

namespace {

// Arrays of 2 MiB and more are mapped from the system directly: its pages
// come zero-filled, so nothing is written at allocation, and the mapping asks
// for huge pages, so that the first touch of a field costs one fault per
// 2 MiB rather than per 4 KiB.  On a large case this is most of the start-up.
constexpr std::size_t kMapBytes = std::size_t{2} << 20;

// Never destroyed: the global fields are freed at exit, after the statics
// of this file could have been.
std::mutex& map_mutex() {
  static std::mutex* m = new std::mutex;
  return *m;
}
std::unordered_map<void*, std::size_t>& mapped() {
  static auto* m = new std::unordered_map<void*, std::size_t>;
  return *m;
}

}  // namespace

void* aligned_zalloc(std::size_t n, std::size_t sz) {
  if (n != 0 && sz > SIZE_MAX / n) return nullptr;
  std::size_t bytes = n * sz;
  if (bytes > SIZE_MAX - 64) return nullptr;
  bytes = (bytes + 63) / 64 * 64;
  if (bytes == 0) bytes = 64;
  if (bytes >= kMapBytes) {
    // Whole huge pages: the start on a 2 MiB boundary and the length rounded
    // up (at most 2 MiB more per array, and only on arrays of 2 MiB or more).
    if (bytes > SIZE_MAX - 2 * kMapBytes) return nullptr;
    const std::size_t len = (bytes + kMapBytes - 1) / kMapBytes * kMapBytes;
    void* raw = ::mmap(nullptr, len + kMapBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) return nullptr;
    const std::uintptr_t a = reinterpret_cast<std::uintptr_t>(raw);
    const std::uintptr_t start = (a + kMapBytes - 1) / kMapBytes * kMapBytes;
    const std::size_t head = start - a;
    if (head > 0) ::munmap(raw, head);
    ::munmap(reinterpret_cast<void*>(start + len), kMapBytes - head);  // the tail: never empty
    void* p = reinterpret_cast<void*>(start);
#ifdef MADV_HUGEPAGE
    ::madvise(p, len, MADV_HUGEPAGE);  // a hint: without huge pages all still works
#endif
    std::lock_guard<std::mutex> lock(map_mutex());
    mapped().emplace(p, len);
    return p;
  }
  void* p = std::aligned_alloc(64, bytes);
  if (p) std::memset(p, 0, bytes);
  return p;
}

void aligned_free(void* p) {
  if (p == nullptr) return;
  {
    std::lock_guard<std::mutex> lock(map_mutex());
    auto it = mapped().find(p);
    if (it != mapped().end()) {
      ::munmap(p, it->second);
      mapped().erase(it);
      return;
    }
  }
  std::free(p);
}

}  // namespace rl::detail
