#include "driver/conditions.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "common/console.hpp"
#include "common/files.hpp"
#include "driver/fields.hpp"
#include "orvalib/orvalib.hpp"

namespace rl {

void stop_read_error() { stop_run("Error in reading the cgn file ..."); }

namespace {

// The design's read error, after a line on standard error naming the key
// and whether it is missing or of another type.
[[noreturn]] void stop_key_error(const char* key, const char* type) {
  if (orva::HAS_KEY(key))
    std::fprintf(stderr, "riverles: the case's key %s cannot be read as %s\n", key, type);
  else
    std::fprintf(stderr, "riverles: the case has no key %s (riverles-case writes every key; see docs/case-file.md)\n",
                 key);
  stop_read_error();
  throw RunStopped{1};  // not reached: the stop throws
}

}  // namespace
// Why a write to the case or its results failed, on standard error: the
// folder or the case not writable (and the system's reason), or the disk
// full, or else the library's refusal.
void explain_case_write(const std::string& path, const std::string& what) {
  if (path.empty()) return;
  std::filesystem::path folder = std::filesystem::path(path).parent_path();
  if (folder.empty()) folder = ".";
  std::error_code ec;
  const auto space = std::filesystem::space(folder, ec);
  std::string why;
  if (::access(path.c_str(), F_OK) != 0 && errno == ENOENT && ::access(folder.c_str(), F_OK) == 0)
    why = "the case was moved or deleted during the run; the results written before stay in " + path +
          ".results (keep that folder beside the case, under its name)";
  else if (::access(folder.c_str(), W_OK) != 0)
    why = folder.string() + " cannot be written: " + std::strerror(errno);
  else if (::access(path.c_str(), F_OK) == 0 && ::access(path.c_str(), W_OK) != 0)
    why = path + " cannot be written: " + std::strerror(errno);
  else if (const std::string results = path + ".results";
           ::access(results.c_str(), F_OK) == 0 && ::access(results.c_str(), W_OK) != 0)
    why = results + " cannot be written: " + std::strerror(errno);
  else if (!ec && space.available < (std::uintmax_t{1} << 20))
    why = "the disk is full (" + std::to_string(space.available) + " bytes free in " + folder.string() + ")";
  else
    why = "the CGNS library refused the write";
  std::fprintf(stderr, "riverles: cannot %s %s: %s\n", what.c_str(), path.c_str(), why.c_str());
}

void stop_write_error() {
  explain_case_write(orva::CASE_PATH(), "write the results (those written before stay) of");
  stop_run("Error in writing to the cgn file ...");
}

int read_integer(const char* key) {
  int value = 0, ier = 0;
  orva::CG_ORVA_READ_INTEGER_F(key, value, ier);
  if (ier != 0) stop_key_error(key, "an integer");
  return value;
}

double read_real(const char* key) {
  double value = 0.0;
  int ier = 0;
  orva::CG_ORVA_READ_REAL_F(key, value, ier);
  if (ier != 0) stop_key_error(key, "a real number");
  return value;
}

std::string read_string(const char* key) {
  std::string value;
  int ier = 0;
  orva::CG_ORVA_READ_STRING_F(key, value, ier);
  if (ier != 0) stop_key_error(key, "a string");
  return value;
}

int optional_integer(const char* key, int fallback) {
  return orva::HAS_KEY(key) ? read_integer(key) : fallback;
}

double optional_real(const char* key, double fallback) {
  return orva::HAS_KEY(key) ? read_real(key) : fallback;
}

std::string optional_string(const char* key, const std::string& fallback) {
  return orva::HAS_KEY(key) ? strip_blanks(read_string(key)) : fallback;
}

void set_boundary_types(int xbound, int ybound, int zbound) {
  // Types of one face for the three velocities and the pressure; every
  // value is 0.0 (the case has no key for a non-zero one).
  auto face = [](Face f, int tu, int tv, int tw, int tp) {
    ibcu(f) = tu;
    ibcv(f) = tv;
    ibcw(f) = tw;
    ibcp(f) = tp;
    bcu(f) = 0.0;
    bcv(f) = 0.0;
    bcw(f) = 0.0;
  };
  // x faces: periodic; any other x switch assigns nothing, and the faces
  // keep their zero (periodic) types all the same.
  if (xbound == 0) {
    face(LowX, Periodic, Periodic, Periodic, Periodic);
    face(HighX, Periodic, Periodic, Periodic, Periodic);
  }
  // y faces: periodic, or side walls (given velocities, pressure gradient).
  const int ty = ybound == 0 ? Periodic : Given;
  const int tyP = ybound == 0 ? Periodic : Gradient;
  face(LowY, ty, ty, ty, tyP);
  face(HighY, ty, ty, ty, tyP);
  // Bottom and top: only the tangential velocities at the top depend on the
  // switch (free slip for 0, no slip otherwise).
  face(LowZ, Given, Given, Gradient, Given);
  const int top = zbound == 0 ? Gradient : Given;
  face(HighZ, top, top, Given, Gradient);
}

}  // namespace rl
