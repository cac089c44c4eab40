#include "driver/domain.hpp"

#include <cstdlib>

#include "common/distributed.hpp"
#include "driver/conditions.hpp"
#include "driver/fields.hpp"
#include "orvalib/orvalib.hpp"

namespace rl {

void READGRID() {
  int ier = 0;
  // Layer k = 0 of xg3 and yg3 is their first (imax+1)*(jmax+1) elements.
  orva::CG_ORVA_GETGRIDCOORD2D_F(xg3.at(0, 0, 0), yg3.at(0, 0, 0), ier);
  if (ier != 0) stop_read_error();
  orva::CG_ORVA_READ_GRID_REAL_NODE_F("Elevation", elev.at(0, 0), ier);
  if (ier != 0) stop_read_error();

  xmin = xg3(0, 0, 0);
  ymin = yg3(0, 0, 0);
  xmax = xg3(imax, jmax, 0);
  ymax = yg3(imax, jmax, 0);
  zmin = read_real("zminItm");
  zmax = read_real("zmaxItm");

  dx = (xmax - xmin) / imax;
  dy = (ymax - ymin) / jmax;
  dz = (zmax - zmin) / kmax;

  for (int k = 0; k <= kmax; ++k) {
    const double z = k * dz + zmin;
    for (int j = 0; j <= jmax; ++j) {
      for (int i = 0; i <= imax; ++i) {
        xg3(i, j, k) = xg3(i, j, 0);
        yg3(i, j, k) = yg3(i, j, 0);
        zg3(i, j, k) = z;
      }
    }
  }

  // The first process writes the case (over several processes, the others
  // only read it).
  if (dist_rank() != 0) return;
  orva::CG_ORVA_WRITEGRIDCOORD3D_F(imax + 1, jmax + 1, kmax + 1, xg3.data(), yg3.data(), zg3.data(), ier);
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
