#include "common/files.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rl {

std::string strip_blanks(const std::string& s) {
  const std::size_t b = s.find_first_not_of(' ');
  if (b == std::string::npos) return std::string();
  const std::size_t e = s.find_last_not_of(' ');
  return s.substr(b, e - b + 1);
}

void open_failed(const std::string& name) {
  std::fprintf(stderr, "riverles: cannot open file \"%s\": %s\n", name.c_str(), std::strerror(errno));
  std::fflush(stdout);
  std::exit(2);
}

}  // namespace rl
