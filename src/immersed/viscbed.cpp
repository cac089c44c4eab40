#include "immersed/viscbed.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include <cmath>

#include "common/distributed.hpp"
#include "common/files.hpp"
#include "driver/fields.hpp"
#include "results/saved.hpp"
#include "immersed/farsample.hpp"
#include "immersed/immerse.hpp"
#include "immersed/wallaw.hpp"

namespace rl {

namespace {

// Linear interpolation at s between a (at s0) and b (at s1 = s0 + h).
inline double lin(double a, double b, double s, double s0, double s1, double h) {
  return a * ((s1 - s) / h) + b * ((s - s0) / h);
}

// All eight centres fluid; a centre outside flagc is unclean.  Over
// several processes the flags are those of the whole box.
bool centres_clean(const CellOfPoint& c) {
  const int is[2] = {c.iq, c.iq + c.si}, js[2] = {c.jq, c.jq + c.sj}, ks[2] = {c.kq, c.kq + c.sk};
  const bool far = far_on();
  for (int m = 0; m < 2; ++m)
    for (int l = 0; l < 2; ++l)
      for (int n = 0; n < 2; ++n) {
        const int i = is[n], j = js[l], k = ks[m];
        if (i < 0 || i > imax + 1 || j < 0 || j > jmax + 1 || k < 0 || k > kmax + 1) return false;
        if (far ? !far_fluid(kFluidC, i, j, k) : flagc(i, j, k) != 1) return false;
      }
  return true;
}

// The cloud of nut around q starts at (Ih - 2, Jh - 2).
void cloud_start(double qx, double qy, int& i0, int& j0) {
  i0 = cell_index((qx - xmin) / dx + 0.5) - 2;
  j0 = cell_index((qy - ymin) / dy + 0.5) - 2;
}

// nut at q as the laws take it: from this process's arrays, or from the
// owner of the image point where the centres lie beyond them.
double nut_tri(const CellOfPoint& c, double qx, double qy, double qz) {
  if (far_on()) {
    if (!holds_columns(nut, c.iq, c.iq + c.si, c.jq, c.jq + c.sj)) {
      double out[3];
      far_sample({kFarNutTri, c.iq, c.jq, c.kq, c.si, c.sj, c.sk, qx, qy, qz}, out);
      return out[0];
    }
  }
  return nut_tri_here(c, qx, qy, qz);
}

double nut_cloud(double qx, double qy, double qz) {
  if (far_on()) {
    int i0, j0;
    cloud_start(qx, qy, i0, j0);
    if (!cloud_held(nut, i0, j0, 0, imax + 1, 0, jmax + 1)) {
      const CellOfPoint c = locate_point(qx, qy, qz);
      double out[3];
      far_sample({kFarNutCloud, c.iq, c.jq, c.kq, c.si, c.sj, c.sk, qx, qy, qz}, out);
      return out[0];
    }
  }
  return nut_cloud_here(qx, qy, qz);
}

}  // namespace

void VISCTRI(double px, double py, double pz, double fx, double fy, double fz, double& result) {
  double ddx = px - fx, ddy = py - fy, ddz = pz - fz;
  const double dist = std::sqrt(ddx * ddx + ddy * ddy + ddz * ddz);
  if (dist < 1e-6) {
    result = 0.0;
    return;
  }
  double qx = px + ddx, qy = py + ddy, qz = pz + ddz;
  CellOfPoint c;
  if (!march_image_point(px, py, pz, ddx / dist, ddy / dist, ddz / dist, 1e-6, ddx, ddy, ddz, qx, qy, qz,
                         centres_clean, c)) {
    // No clean stencil along the normal: the inverse-distance sample at the
    // first image point.
    note_march_fallback();
    VISCIDW(px, py, pz, fx, fy, fz, result);
    return;
  }

  const double N = nut_tri(c, qx, qy, qz);
  const double off = std::sqrt(ddx * ddx + ddy * ddy + ddz * ddz);
  result = N * dist / (dist + off);
}

void VISCIDW(double px, double py, double pz, double fx, double fy, double fz, double& result) {
  const double ddx = px - fx, ddy = py - fy, ddz = pz - fz;
  const double dist = std::sqrt(ddx * ddx + ddy * ddy + ddz * ddz);
  if (dist <= 1e-6) {
    result = 0.0;
    return;
  }
  const double qx = px + ddx, qy = py + ddy, qz = pz + ddz;
  const double S = nut_cloud(qx, qy, qz);
  const double ex = qx - px, ey = qy - py, ez = qz - pz;
  result = S * dist / (dist + std::sqrt(ex * ex + ey * ey + ez * ez));
}

double nut_tri_here(const CellOfPoint& c, double qx, double qy, double qz) {
  // Along x, then y, then z, with the signed spacings.
  const int i2 = c.iq + c.si, j2 = c.jq + c.sj, k2 = c.kq + c.sk;
  const double hx = c.si * dx, hy = c.sj * dy, hz = c.sk * dz;
  const double x2 = c.xc + hx, y2 = c.yc + hy, z2 = c.zc + hz;
  const double a11 = lin(nut(c.iq, c.jq, c.kq), nut(i2, c.jq, c.kq), qx, c.xc, x2, hx);
  const double a21 = lin(nut(c.iq, j2, c.kq), nut(i2, j2, c.kq), qx, c.xc, x2, hx);
  const double a12 = lin(nut(c.iq, c.jq, k2), nut(i2, c.jq, k2), qx, c.xc, x2, hx);
  const double a22 = lin(nut(c.iq, j2, k2), nut(i2, j2, k2), qx, c.xc, x2, hx);
  const double b1 = lin(a11, a21, qy, c.yc, y2, hy);
  const double b2 = lin(a12, a22, qy, c.yc, y2, hy);
  return lin(b1, b2, qz, c.zc, z2, hz);
}

double nut_cloud_here(double qx, double qy, double qz) {
  const int Ih = cell_index((qx - xmin) / dx + 0.5);
  const int Jh = cell_index((qy - ymin) / dy + 0.5);
  const int Kh = cell_index((qz - zmin) / dz + 0.5);
  return idw_sample(nut, flagc, Ih - 2, Jh - 2, Kh - 2, 0, imax + 1, 0, jmax + 1, 0, kmax + 1, 0.5, 0.5, 0.5, qx, qy,
                    qz);
}

namespace {
int log_layers = 0;
// The friction velocities of a saved state, columns 1..imax x 1..jmax, i
// fastest; empty when the run does not continue one.
std::vector<double> resumed;

constexpr char kWallMagic[8] = {'R', 'L', 'W', 'A', 'L', 'L', 'U', '1'};

std::string wall_name(const std::string& dat) {
  return beside_saved(dat, ".wallus");
}
}  // namespace

void wall_viscosity_start(int layers) {
  log_layers = layers > 0 ? layers : 0;
  resumed.clear();
}

void save_wall_friction(const std::string& outpath, const std::string& outfile) {
  if (log_layers == 0) return;
  const Box mine{own_lo_i(1), own_hi_i(imax), own_lo_j(1), own_hi_j(jmax), 0, 0};
  std::vector<double> vals, whole;
  for (int j = mine.j0; j <= mine.j1; ++j)
    for (int i = mine.i0; i <= mine.i1; ++i) vals.push_back(column_friction_velocity(i, j));
  gather_to_first(mine, vals, 1, Box{1, imax, 1, jmax, 0, 0}, whole);
  if (!first_process()) return;
  const std::string name = wall_name(saved_file_name(outpath, outfile)), part = name + ".part";
  std::FILE* f = std::fopen(part.c_str(), "wb");
  const int dims[2] = {imax, jmax};
  bool ok = f && std::fwrite(kWallMagic, 1, 8, f) == 8 && std::fwrite(dims, sizeof dims, 1, f) == 1 &&
            std::fwrite(whole.data(), sizeof(double), whole.size(), f) == whole.size();
  if (f) ok = std::fclose(f) == 0 && ok;
  if (!put_in_place(part, name, ok)) std::fprintf(stderr, "riverles: warning: cannot write %s\n", name.c_str());
}

void resume_wall_friction(const std::string& startfile) {
  if (log_layers == 0) return;
  const std::string name = wall_name(strip_blanks(startfile));
  std::vector<double> cols(static_cast<std::size_t>(imax) * static_cast<std::size_t>(jmax));
  int ok = 0;
  if (first_process()) {
    std::FILE* f = std::fopen(name.c_str(), "rb");
    char magic[8];
    int dims[2];
    ok = f && std::fread(magic, 1, 8, f) == 8 && std::memcmp(magic, kWallMagic, 8) == 0 &&
         std::fread(dims, sizeof dims, 1, f) == 1 && dims[0] == imax && dims[1] == jmax &&
         std::fread(cols.data(), sizeof(double), cols.size(), f) == cols.size();
    if (f) std::fclose(f);
    if (!ok)
      std::fprintf(stderr,
                   "riverles: note: no friction velocities of the saved state (%s): the first step's eddy "
                   "viscosity at the bed waits for the first forcing\n",
                   name.c_str());
  }
  dist_bcast(&ok, 1);
  if (!ok) return;
  dist_bcast(cols.data(), static_cast<int>(cols.size()));
  resumed = std::move(cols);
}
int wall_viscosity_layers() { return log_layers; }

void wall_viscosity_row(int j, int i0, int i1) {
  if (log_layers == 0 || j < 1 || j > jmax) return;
  const int K = kmax;
  for (int i = std::max(i0, 1); i <= std::min(i1, imax); ++i) {
    // Before the first forcing of a run that continues a saved state, the
    // friction velocities kept with it.
    double us;
    if (!kept_friction_velocity(i, j, us) && !resumed.empty())
      us = resumed[static_cast<std::size_t>(j - 1) * static_cast<std::size_t>(imax) + static_cast<std::size_t>(i - 1)];
    if (!(us > 0.0)) continue;
    // The highest forcing cell of the column; the cells up to n above it.
    int top = 0;
    for (int k = 1; k <= K; ++k)
      if (flagc(i, j, k) == 0) top = k;
    if (top == 0) continue;
    const int last = std::min(K, top + log_layers);
    // A smooth bed's law has its log layer from 30 wall units up; below,
    // the viscous and buffer layers are the resolved flow's own.
    const double smooth_from = ibed == 0 ? 30.0 * visc / us : 0.0;
    for (int k = 1; k <= last; ++k) {
      const int f = flagc(i, j, k);
      if (f == -1 || (f == 1 && k < top)) continue;
      const double d = zmin + (static_cast<double>(k) - 0.5) * dz - bed(i, j);
      if (d < smooth_from) continue;
      const double mixing = 0.41 * us * (d > 0.0 ? d : 0.0);
      if (mixing > nut(i, j, k)) nut(i, j, k) = mixing;
    }
  }
}

}  // namespace rl
