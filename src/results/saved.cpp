#include "results/saved.hpp"

#include "common/console.hpp"

namespace rl {

void ERRORSTOP(int code) {
  if (code == 1) say("ERROR : Failed to read the parameters ...");
  if (code == 2) say("ERROR : Failed to allocate the arrays ...");
  if (code == 3) say("ERROR : Failed to read the saved results ...");
  wait_operator();
  throw RunStopped{1};
}

}  // namespace rl

namespace rl {

void WRITESAVED(int, double, const std::string&, const std::string&) {}
void READSAVED(const std::string&) {}

}  // namespace rl
