#include "common/haloledger.hpp"

#ifdef RIVERLES_BOUNDS_CHECK

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <unordered_map>

#include "common/distributed.hpp"

namespace rl {

namespace {

std::mutex ledger_mutex;
// Arrays absent from the ledger have not been written since the start: the
// start values fill their halos too.
std::unordered_map<const void*, int>& ledger() {
  static std::unordered_map<const void*, int> l;
  return l;
}

void abort_on_fault(const std::string& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  std::abort();
}
HaloFault fault_handler = abort_on_fault;

}  // namespace

void halo_filled(const void* f, int depth) {
  std::lock_guard<std::mutex> g(ledger_mutex);
  ledger()[f] = depth;
}

void halo_wrote(const void* f) {
  std::lock_guard<std::mutex> g(ledger_mutex);
  ledger()[f] = 0;
}

void halo_read(const void* f, const char* name, int depth, const char* who) {
  if (!level_is_cut(0)) return;  // no neighbours: no halo
  int have;
  {
    std::lock_guard<std::mutex> g(ledger_mutex);
    const auto at = ledger().find(f);
    if (at == ledger().end()) return;
    have = at->second;
  }
  if (have >= depth) return;
  fault_handler("riverles (checked build): stale halo: " + std::string(who) + " reads " + name + " " +
                std::to_string(depth) + " column(s) deep, but its halo is current to " + std::to_string(have) +
                " since its last change (an exchange is missing before " + who + ")");
}

void halo_forget_all() {
  std::lock_guard<std::mutex> g(ledger_mutex);
  ledger().clear();
}

void set_halo_fault(HaloFault fault) { fault_handler = fault ? fault : abort_on_fault; }

}  // namespace rl

#endif
