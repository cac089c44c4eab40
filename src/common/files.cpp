#include "common/files.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "common/distributed.hpp"

namespace rl {

std::string strip_blanks(const std::string& s) {
  const std::size_t b = s.find_first_not_of(' ');
  if (b == std::string::npos) return std::string();
  const std::size_t e = s.find_last_not_of(' ');
  return s.substr(b, e - b + 1);
}

void make_output_folder(const std::string& outpath) {
  const std::string dir = strip_blanks(outpath);
  std::error_code ec;
  if (dir.empty() || std::filesystem::is_directory(dir, ec)) return;
  std::filesystem::create_directories(dir, ec);
  if (ec)
    std::fprintf(stderr, "riverles: warning: cannot make the output folder \"%s\": %s\n", dir.c_str(),
                 ec.message().c_str());
}

void open_failed(const std::string& name) {
  std::fprintf(stderr, "riverles: cannot open file \"%s\": %s\n", name.c_str(), std::strerror(errno));
  std::fflush(stdout);
  // Over several processes the others are waiting for this one: all end.
  if (dist_size() > 1) dist_abort(2);
  std::exit(2);
}

bool put_in_place(const std::string& part, const std::string& name, bool ok) {
  std::error_code ec;
  if (ok) std::filesystem::rename(part, name, ec);
  if (ok && !ec) return true;
  std::filesystem::remove(part, ec);
  return false;
}

}  // namespace rl
