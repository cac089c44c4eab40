// Domain and grid: the plan from the case's 2-D grid, the height from two
// keys, the 3-D node grid written back to the case, and the bed.
#pragma once

#include <vector>

namespace rl {

// Reads the 2-D node coordinates and Elevation into elev, reads
// zminItm/zmaxItm, sets the corners and cell sizes, fills the 3-D node
// coordinates (over several processes, those of this process's nodes) and
// writes them to the case, a plane at a time.
// reads: the case grid, Elevation, zminItm, zmaxItm; writes: xg3, yg3, zg3, elev, xmin..zmax, dx, dy, dz, the
//  3-D grid of the case
void READGRID();

// The node coordinates of plane k of the 3-D grid, whole, i fastest (from
// the 2-D grid, which every process keeps): for writers of whole planes.
void grid_plane(int k, std::vector<double>& x, std::vector<double>& y, std::vector<double>& z);

// Builds bed from elev: the mean of each cell's four corner nodes, then the
// ghost rows in y and, after them (so the corners follow), the ghost columns
// in x, each by the blend |ibcp| * nearest + (1 - |ibcp|) * opposite.
// reads: elev, ibcp; writes: bed
void BUILDBED();

}  // namespace rl
