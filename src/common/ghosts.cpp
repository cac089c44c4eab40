#include "common/ghosts.hpp"

namespace rl {

GhostFaces field_faces(int nx, int ny, int nz) {
  const Ownership& o = ownership();
  return level_faces(nx, ny, nz, o.on, o.west, o.east, o.south, o.north, 0);
}

GhostFaces level_faces(int nx, int ny, int nz, bool part, bool west, bool east, bool south, bool north, int level) {
  GhostFaces g;
  g.n[0] = nx;
  g.n[1] = ny;
  g.n[2] = nz;
  g.level = level;
  const Ownership& o = ownership();
  if (part) {
    g.touch[LowX] = west;
    g.touch[HighX] = east;
    g.touch[LowY] = south;
    g.touch[HighY] = north;
    g.cut[0] = o.split_x;
    g.cut[1] = o.split_y;
  }
  return g;
}

LineExtent own_extent(int lo_i, int hi_i, int lo_j, int hi_j, int lo_k, int hi_k) {
  return LineExtent{own_lo_i(lo_i), own_hi_i(hi_i), own_lo_j(lo_j), own_hi_j(hi_j), lo_k, hi_k};
}

template <typename T>
void halo_team(std::initializer_list<Array3<T>*> fields, int w, const Reach& reach, int level) {
  if (!ownership().on) return;
#pragma omp barrier
#pragma omp master
  fill_halos(fields, w, reach, level);
#pragma omp barrier
}

template void halo_team(std::initializer_list<Array3<double>*>, int, const Reach&, int);
template void halo_team(std::initializer_list<Array3<int>*>, int, const Reach&, int);

void wrap_team(std::initializer_list<Array3<double>*> fields, const GhostFaces& g, int axis, bool low, bool high,
               const Reach& reach) {
  wrap_in_team(fields, axis, g.n[axis], low, high, reach, g.level);
}

}  // namespace rl
