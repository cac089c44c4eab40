#include "driver/domain.hpp"

#include <algorithm>
#include <cstdlib>

#include "common/distributed.hpp"
#include "driver/conditions.hpp"
#include "driver/fields.hpp"
#include "orvalib/orvalib.hpp"

namespace rl {

namespace {

// The case's 2-D node coordinates, i fastest.
std::vector<double> plan_x, plan_y;

std::size_t plan_at(int i, int j) {
  return static_cast<std::size_t>(j) * static_cast<std::size_t>(imax + 1) + static_cast<std::size_t>(i);
}

}  // namespace

void grid_plane(int k, std::vector<double>& x, std::vector<double>& y, std::vector<double>& z) {
  x = plan_x;
  y = plan_y;
  z.assign(plan_x.size(), k * dz + zmin);
}

void READGRID() {
  int ier = 0;
  const std::size_t n = static_cast<std::size_t>(imax + 1) * static_cast<std::size_t>(jmax + 1);
  plan_x.assign(n, 0.0);
  plan_y.assign(n, 0.0);
  orva::CG_ORVA_GETGRIDCOORD2D_F(plan_x.data(), plan_y.data(), ier);
  if (ier != 0) stop_read_error();
  orva::CG_ORVA_READ_GRID_REAL_NODE_F("Elevation", elev.at(0, 0), ier);
  if (ier != 0) stop_read_error();

  xmin = plan_x[plan_at(0, 0)];
  ymin = plan_y[plan_at(0, 0)];
  xmax = plan_x[plan_at(imax, jmax)];
  ymax = plan_y[plan_at(imax, jmax)];
  zmin = read_real("zminItm");
  zmax = read_real("zmaxItm");

  dx = (xmax - xmin) / imax;
  dy = (ymax - ymin) / jmax;
  dz = (zmax - zmin) / kmax;

  for (int k = 0; k <= kmax; ++k) {
    const double z = k * dz + zmin;
    for (int j = xg3.lo(1); j <= xg3.hi(1); ++j) {
      for (int i = xg3.lo(0); i <= xg3.hi(0); ++i) {
        xg3(i, j, k) = plan_x[plan_at(i, j)];
        yg3(i, j, k) = plan_y[plan_at(i, j)];
        zg3(i, j, k) = z;
      }
    }
  }

  // The first process writes the case (over several processes, the others
  // only read it), a slab of planes at a time; a process alone, straight
  // from its node arrays.
  if (!first_process()) return;
  orva::CG_ORVA_BEGIN_GRIDCOORD3D_F(imax + 1, jmax + 1, kmax + 1, ier);
  const int planes = slab_planes(static_cast<long long>(n));
  std::vector<double> x, y, z;
  const double* all = whole_planes(xg3, imax, jmax);
  if (all && ier == 0) orva::CG_ORVA_WRITE_GRIDCOORD3D_PLANES_F(0, kmax, all, yg3.data(), zg3.data(), ier);
  for (int k0 = 0; !all && k0 <= kmax && ier == 0; k0 += planes) {
    const int k1 = std::min(kmax, k0 + planes - 1);
    x.clear();
    y.clear();
    z.clear();
    for (int k = k0; k <= k1; ++k) {
      x.insert(x.end(), plan_x.begin(), plan_x.end());
      y.insert(y.end(), plan_y.begin(), plan_y.end());
      z.insert(z.end(), n, k * dz + zmin);
    }
    orva::CG_ORVA_WRITE_GRIDCOORD3D_PLANES_F(k0, k1, x.data(), y.data(), z.data(), ier);
  }
  if (ier == 0) orva::CG_ORVA_END_GRIDCOORD3D_F(ier);
  if (ier != 0) stop_write_error();
}

void BUILDBED() {
  for (int j = 1; j <= jmax; ++j)
    for (int i = 1; i <= imax; ++i)
      bed(i, j) = 0.25 * (elev(i - 1, j - 1) + elev(i, j - 1) + elev(i, j) + elev(i - 1, j));

  const double a3 = std::abs(ibcp(LowY)), b4 = std::abs(ibcp(HighY));
  for (int i = 0; i <= imax + 1; ++i) {
    bed(i, 0) = a3 * bed(i, 1) + (1.0 - a3) * bed(i, jmax);
    bed(i, jmax + 1) = b4 * bed(i, jmax) + (1.0 - b4) * bed(i, 1);
  }
  const double a1 = std::abs(ibcp(LowX)), b2 = std::abs(ibcp(HighX));
  for (int j = 0; j <= jmax + 1; ++j) {
    bed(0, j) = a1 * bed(1, j) + (1.0 - a1) * bed(imax, j);
    bed(imax + 1, j) = b2 * bed(imax, j) + (1.0 - b2) * bed(1, j);
  }
}

}  // namespace rl
