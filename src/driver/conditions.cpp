#include "driver/conditions.hpp"

#include "common/console.hpp"
#include "driver/fields.hpp"
#include "orvalib/orvalib.hpp"

namespace rl {

void stop_read_error() { stop_run("Error in reading the cgn file ..."); }
void stop_write_error() { stop_run("Error in writing to the cgn file ..."); }

int read_integer(const char* key) {
  int value = 0, ier = 0;
  orva::CG_ORVA_READ_INTEGER_F(key, value, ier);
  if (ier != 0) stop_read_error();
  return value;
}

double read_real(const char* key) {
  double value = 0.0;
  int ier = 0;
  orva::CG_ORVA_READ_REAL_F(key, value, ier);
  if (ier != 0) stop_read_error();
  return value;
}

std::string read_string(const char* key) {
  std::string value;
  int ier = 0;
  orva::CG_ORVA_READ_STRING_F(key, value, ier);
  if (ier != 0) stop_read_error();
  return value;
}

void set_boundary_types(int xbound, int ybound, int zbound) {
  if (xbound == 0) {
    for (int f = 1; f <= 2; ++f) {
      ibcu(f) = 0;
      ibcv(f) = 0;
      ibcw(f) = 0;
      ibcp(f) = 0;
      bcu(f) = 0.0;
      bcv(f) = 0.0;
      bcw(f) = 0.0;
    }
  }
  // Any other x switch assigns nothing: the faces keep their zero types.

  const int ty = ybound == 0 ? 0 : -1;
  const int tyP = ybound == 0 ? 0 : 1;
  for (int f = 3; f <= 4; ++f) {
    ibcu(f) = ty;
    ibcv(f) = ty;
    ibcw(f) = ty;
    ibcp(f) = tyP;
    bcu(f) = 0.0;
    bcv(f) = 0.0;
    bcw(f) = 0.0;
  }

  // Bottom and top: only the tangential velocities at the top depend on the
  // switch (free slip for 0, no slip otherwise).
  ibcu(5) = -1;
  ibcv(5) = -1;
  ibcw(5) = 1;
  ibcp(5) = -1;
  ibcu(6) = zbound == 0 ? 1 : -1;
  ibcv(6) = zbound == 0 ? 1 : -1;
  ibcw(6) = -1;
  ibcp(6) = 1;
  for (int f = 5; f <= 6; ++f) {
    bcu(f) = 0.0;
    bcv(f) = 0.0;
    bcw(f) = 0.0;
  }
}

}  // namespace rl
