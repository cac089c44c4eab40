#include "immersed/wallaw.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <tuple>

#include "common/distributed.hpp"
#include "driver/fields.hpp"
#include "immersed/farsample.hpp"

namespace rl {

namespace {

constexpr double kKarman = 0.4;

// Roughness length in the units of the grid; rough is in thousandths.
inline double roughness_length() { return 0.0833333333333333 * rough / 1000.0; }

// Linear interpolation at s between a (at s0) and b (at s1), h the signed
// spacing from s0 to s1: each weight is the distance to the opposite end.
inline double lin(double a, double b, double s, double s0, double s1, double h) {
  return a * ((s1 - s) / h) + b * ((s - s0) / h);
}

// True when all 24 velocity positions of the trilinear stencil of q are fluid;
// a forcing point is as unclean as a solid one.
// A stencil position outside the flag array (an image point held in the
// half cell beyond a wall, or an index from a degenerate grid) is unclean.
bool fluid_at(const Array3<int>& f, int i, int j, int k) {
  return i >= f.lo(0) && i <= f.hi(0) && j >= f.lo(1) && j <= f.hi(1) && k >= f.lo(2) && k <= f.hi(2) &&
         f(i, j, k) == 1;
}

// Over several processes the flags are those of the whole box, so that a
// march takes the same steps whichever process runs it.
bool stencil_clean(const CellOfPoint& c) {
  const int ia[2] = {c.iq - 1, c.iq}, ib[2] = {c.iq, c.iq + c.si};
  const int ja[2] = {c.jq - 1, c.jq}, jb[2] = {c.jq, c.jq + c.sj};
  const int ka[2] = {c.kq - 1, c.kq}, kb[2] = {c.kq, c.kq + c.sk};
  if (far_on()) {
    for (int m = 0; m < 2; ++m)
      for (int l = 0; l < 2; ++l)
        for (int n = 0; n < 2; ++n)
          if (!far_fluid(kFluidU, ia[n], jb[l], kb[m]) || !far_fluid(kFluidV, ib[n], ja[l], kb[m]) ||
              !far_fluid(kFluidW, ib[n], jb[l], ka[m]))
            return false;
    return true;
  }
  for (int m = 0; m < 2; ++m)
    for (int l = 0; l < 2; ++l)
      for (int n = 0; n < 2; ++n) {
        if (!fluid_at(flagu, ia[n], jb[l], kb[m])) return false;
        if (!fluid_at(flagv, ib[n], ja[l], kb[m])) return false;
        if (!fluid_at(flagw, ib[n], jb[l], ka[m])) return false;
      }
  return true;
}

// Whether this process holds the whole trilinear stencil of cell c.
bool tri_held(const CellOfPoint& c) {
  return holds_columns(u, c.iq - 1, c.iq, c.jq, c.jq + c.sj) && holds_columns(v, c.iq, c.iq + c.si, c.jq - 1, c.jq) &&
         holds_columns(w, c.iq, c.iq + c.si, c.jq, c.jq + c.sj);
}

// A sample that another process computes: the image point's cell, from q.
FarRequest far_request(int kind, const CellOfPoint& c, double qx, double qy, double qz) {
  return {kind, c.iq, c.jq, c.kq, c.si, c.sj, c.sk, qx, qy, qz};
}

// Trilinear sample of (u,v,w) at q from its stencil.  u is interpolated along
// x, then y, then z; v along y, x, z; w along z, x, y.  Along a component's
// own direction its two positions lie half a cell either side of the centre.
void trilinear_here(const CellOfPoint& c, double qx, double qy, double qz, double& ux, double& uy, double& uz) {
  const int iq = c.iq, jq = c.jq, kq = c.kq;
  const int i2 = iq + c.si, j2 = jq + c.sj, k2 = kq + c.sk;
  const double hx = c.si * dx, hy = c.sj * dy, hz = c.sk * dz;
  const double xlo = c.xc - dx / 2.0, xhi = c.xc + dx / 2.0, x2 = c.xc + hx;
  const double ylo = c.yc - dy / 2.0, yhi = c.yc + dy / 2.0, y2 = c.yc + hy;
  const double zlo = c.zc - dz / 2.0, zhi = c.zc + dz / 2.0, z2 = c.zc + hz;

  {  // u: x, y, z
    const double a1 = lin(u(iq - 1, jq, kq), u(iq, jq, kq), qx, xlo, xhi, dx);
    const double b1 = lin(u(iq - 1, j2, kq), u(iq, j2, kq), qx, xlo, xhi, dx);
    const double a2 = lin(u(iq - 1, jq, k2), u(iq, jq, k2), qx, xlo, xhi, dx);
    const double b2 = lin(u(iq - 1, j2, k2), u(iq, j2, k2), qx, xlo, xhi, dx);
    const double c1 = lin(a1, b1, qy, c.yc, y2, hy);
    const double c2 = lin(a2, b2, qy, c.yc, y2, hy);
    ux = lin(c1, c2, qz, c.zc, z2, hz);
  }
  {  // v: y, x, z
    const double a1 = lin(v(iq, jq - 1, kq), v(iq, jq, kq), qy, ylo, yhi, dy);
    const double b1 = lin(v(i2, jq - 1, kq), v(i2, jq, kq), qy, ylo, yhi, dy);
    const double a2 = lin(v(iq, jq - 1, k2), v(iq, jq, k2), qy, ylo, yhi, dy);
    const double b2 = lin(v(i2, jq - 1, k2), v(i2, jq, k2), qy, ylo, yhi, dy);
    const double c1 = lin(a1, b1, qx, c.xc, x2, hx);
    const double c2 = lin(a2, b2, qx, c.xc, x2, hx);
    uy = lin(c1, c2, qz, c.zc, z2, hz);
  }
  {  // w: z, x, y
    const double a1 = lin(w(iq, jq, kq - 1), w(iq, jq, kq), qz, zlo, zhi, dz);
    const double b1 = lin(w(i2, jq, kq - 1), w(i2, jq, kq), qz, zlo, zhi, dz);
    const double a2 = lin(w(iq, j2, kq - 1), w(iq, j2, kq), qz, zlo, zhi, dz);
    const double b2 = lin(w(i2, j2, kq - 1), w(i2, j2, kq), qz, zlo, zhi, dz);
    const double c1 = lin(a1, b1, qx, c.xc, x2, hx);
    const double c2 = lin(a2, b2, qx, c.xc, x2, hx);
    uz = lin(c1, c2, qy, c.yc, y2, hy);
  }
}

// Inverse-distance sample of the three components at q, each from its own
// cloud of six positions per direction around q.
void cloud_here(double qx, double qy, double qz, double& ux, double& uy, double& uz) {
  const double ox = (qx - xmin) / dx, oy = (qy - ymin) / dy, oz = (qz - zmin) / dz;
  const int I = cell_index(ox), J = cell_index(oy), K = cell_index(oz);
  const int Ih = cell_index(ox + 0.5), Jh = cell_index(oy + 0.5), Kh = cell_index(oz + 0.5);
  ux = idw_sample(u, flagu, I - 2, Jh - 2, Kh - 2, 0, imax, 0, jmax + 1, 0, kmax + 1, 0.0, 0.5, 0.5, qx, qy, qz);
  uy = idw_sample(v, flagv, Ih - 2, J - 2, Kh - 2, 0, imax + 1, 0, jmax, 0, kmax + 1, 0.5, 0.0, 0.5, qx, qy, qz);
  uz = idw_sample(w, flagw, Ih - 2, Jh - 2, K - 2, 0, imax + 1, 0, jmax + 1, 0, kmax, 0.5, 0.5, 0.0, qx, qy, qz);
}

// The samples as the wall laws take them: from this process's arrays, or,
// over several processes where the stencil or cloud reaches beyond them,
// from the process that owns the image point.
void sample_trilinear(const CellOfPoint& c, double qx, double qy, double qz, double& ux, double& uy, double& uz) {
  if (far_on() && !tri_held(c)) {
    double out[3];
    far_sample(far_request(kFarTri, c, qx, qy, qz), out);
    ux = out[0];
    uy = out[1];
    uz = out[2];
    return;
  }
  trilinear_here(c, qx, qy, qz, ux, uy, uz);
}

void sample_cloud(double qx, double qy, double qz, double& ux, double& uy, double& uz) {
  if (far_on()) {
    const double ox = (qx - xmin) / dx, oy = (qy - ymin) / dy;
    const int I = cell_index(ox), J = cell_index(oy), Ih = cell_index(ox + 0.5), Jh = cell_index(oy + 0.5);
    if (!cloud_held(u, I - 2, Jh - 2, 0, imax, 0, jmax + 1) || !cloud_held(v, Ih - 2, J - 2, 0, imax + 1, 0, jmax) ||
        !cloud_held(w, Ih - 2, Jh - 2, 0, imax + 1, 0, jmax + 1)) {
      double out[3];
      far_sample(far_request(kFarCloud, locate_point(qx, qy, qz), qx, qy, qz), out);
      ux = out[0];
      uy = out[1];
      uz = out[2];
      return;
    }
  }
  cloud_here(qx, qy, qz, ux, uy, uz);
}

// Tangential part of U against the unit normal n: T = U - (n.U) n, Ut = |T|.
inline void tangential(double ux, double uy, double uz, double nx, double ny, double nz, double& tx, double& ty,
                       double& tz, double& ut) {
  const double un = nx * ux + ny * uy + nz * uz;
  tx = ux - un * nx;
  ty = uy - un * ny;
  tz = uz - un * nz;
  ut = std::sqrt(tx * tx + ty * ty + tz * tz);
}

// Still flow at the image point: nothing to impose, t points along x.
inline void still_result(double& upx, double& upy, double& upz, double& grad, double& ustar, double& tx, double& ty,
                         double& tz) {
  upx = 0.0;
  upy = 0.0;
  upz = 0.0;
  grad = 0.0;
  ustar = 0.0;
  tx = 1.0;
  ty = 0.0;
  tz = 0.0;
}

// The log law at p: speed Up = (u*/0.4) ln(dist/z0) along t.
inline void law_at_point(double us, double dist, double z0, double tx, double ty, double tz, double& upx,
                         double& upy, double& upz, double& grad, double& ustar) {
  const double up = (us / kKarman) * std::log(dist / z0);
  upx = up * tx;
  upy = up * ty;
  upz = up * tz;
  grad = (us / kKarman) / dist;
  ustar = us;
}

// Four diagonals of the box: how far out an image point may be moved.
double far_out() {
  const double lx = xmax - xmin, ly = ymax - ymin, lz = zmax - zmin;
  return 4.0 * std::sqrt(lx * lx + ly * ly + lz * lz);
}

// Smooth log law Ut/u* = (1/0.4) ln(yq u*/visc) + 5.1 by Newton's method,
// from the rough-law estimate, until the relative change is at most 1e-8.
// Newton settles in a handful of iterations wherever it settles at all; the
// cap of 10000 only turns an endless oscillation into the last iterate.
double smooth_newton(double us, double ut, double yq) {
  double old;
  int count = 0;
  do {
    if (++count > 10000) break;
    old = us;
    const double e = std::exp((ut / old - 5.1) * 0.4);
    const double f = e - yq * old / visc;
    const double df = -e * 0.4 * ut / (old * old) - yq / visc;
    us = old - f / df;
  } while (std::fabs((us - old) / us) > 1e-8);
  return us;
}

// Three-layer law (sublayer to y+ = 5, buffer layer below 30, log layer from
// 30): 100 Newton iterations, then 100 fixed-point iterations.  Returns true
// with the accepted u* in us; false (us holding the last value) when neither
// stage settles.
bool three_layer(double ut, double yq, double& us) {
  double err = 1.0;
  double nw = us;
  int count = 0;
  for (;;) {
    ++count;
    const double yp = yq * us / visc;
    double f, df;
    if (yp <= 5.0) {
      f = us * us - visc * ut / yq;
      df = 2.0 * us;
    } else if (yp < 30.0) {
      const double e = std::exp((ut / us + 3.05) * 0.2);
      f = e - yp;
      df = -0.2 * ut / (us * us) * e - yq / visc;
    } else {
      const double e = std::exp((ut / us - 5.5) * 0.4);
      f = e - yp;
      df = -0.4 * ut / (us * us) * e - yq / visc;
    }
    nw = us - f / df;
    if (nw != 0.0) err = std::fabs((nw - us) / nw);
    if (count > 100) break;
    us = nw;
    if (err <= 1e-6) return true;
  }
  us = nw;
  if (err <= 1e-6) return true;

  count = 0;
  for (;;) {
    ++count;
    const double yp = yq * us / visc;
    if (yp <= 5.0) {
      nw = std::sqrt(visc * ut / yq);
    } else if (yp < 30.0) {
      const double e = std::exp((ut / us + 3.05) * 0.2);
      nw = e * visc / yq;
    } else {
      const double e = std::exp((ut / us - 5.5) * 0.4);
      nw = e * visc / yq;
    }
    if (count > 100) break;
    const double change = std::fabs((nw - us) / nw);
    us = nw;
    if (change <= 1e-6) return true;
  }
  return false;
}

}  // namespace

TriGeometry tri_geometry(double px, double py, double pz, double fx, double fy, double fz) {
  TriGeometry g;
  const double z0 = roughness_length();
  double ddx = px - fx, ddy = py - fy, ddz = pz - fz;
  double dist = std::sqrt(ddx * ddx + ddy * ddy + ddz * ddz);
  double qx = px + ddx, qy = py + ddy, qz = pz + ddz;
  double nx, ny, nz;
  if (z0 >= dist) {
    // Inside the roughness layer the law means nothing: move p out along the
    // normal of the bed patch under the foot point.  q stays as it was for
    // the first test of the stencil.
    // The plan cell of the foot point; a foot point on a patch beyond the
    // ghost columns is held to the last patch that bed holds.
    const int i0 = std::clamp(cell_index((fx - xmin) / dx + 0.5), 0, imax);
    const int j0 = std::clamp(cell_index((fy - ymin) / dy + 0.5), 0, jmax);
    const double x1 = xmin + (i0 - 0.5) * dx, x2 = x1 + dx;
    const double y1 = ymin + (j0 - 0.5) * dy, y2 = y1 + dy;
    double a, b, c, e;
    BEDPATCHNORMAL(x1, x2, y1, y2, bed(i0, j0), bed(i0 + 1, j0), bed(i0, j0 + 1), bed(i0 + 1, j0 + 1), fx, fy, nx,
                   ny, nz, a, b, c, e);
    px = fx + nx * (z0 + 1e-8);
    py = fy + ny * (z0 + 1e-8);
    pz = fz + nz * (z0 + 1e-8);
    ddx = px - fx;
    ddy = py - fy;
    ddz = pz - fz;
    dist = std::sqrt(ddx * ddx + ddy * ddy + ddz * ddz);
  } else {
    nx = ddx / dist;
    ny = ddy / dist;
    nz = ddz / dist;
  }

  // March the image point outward until its whole stencil is fluid.  d keeps
  // the accumulated offset, so a wrap of q does not disturb the distance.
  // Where no clean stencil is found, the first image point is sampled by
  // inverse distance instead.
  const double q0x = qx, q0y = qy, q0z = qz, d0 = std::sqrt(ddx * ddx + ddy * ddy + ddz * ddz);
  CellOfPoint cell;
  g.fallback = !march_image_point(px, py, pz, nx, ny, nz, 1e-8, ddx, ddy, ddz, qx, qy, qz, stencil_clean, cell);
  double offset = std::sqrt(ddx * ddx + ddy * ddy + ddz * ddz);  // |q - p| along the line
  if (g.fallback) {
    note_march_fallback();
    qx = q0x;
    qy = q0y;
    qz = q0z;
    offset = d0;
  }

  g.px = px;
  g.py = py;
  g.pz = pz;
  g.nx = nx;
  g.ny = ny;
  g.nz = nz;
  g.qx = qx;
  g.qy = qy;
  g.qz = qz;
  g.cell = cell;
  g.dist = dist;
  g.yq = offset + dist;
  g.logq = std::log(g.yq / z0);
  return g;
}

void tri_apply(bool smooth, const TriGeometry& g, double& upx, double& upy, double& upz, double& grad,
               double& ustar, double& tx, double& ty, double& tz) {
  double ux, uy, uz, ut;
  if (g.fallback)
    sample_cloud(g.qx, g.qy, g.qz, ux, uy, uz);
  else
    sample_trilinear(g.cell, g.qx, g.qy, g.qz, ux, uy, uz);
  double ttx, tty, ttz;
  tangential(ux, uy, uz, g.nx, g.ny, g.nz, ttx, tty, ttz, ut);
  if (ut == 0.0) {
    still_result(upx, upy, upz, grad, ustar, tx, ty, tz);
    return;
  }
  tx = ttx / ut;
  ty = tty / ut;
  tz = ttz / ut;

  double us = kKarman * ut / g.logq;
  if (smooth) us = smooth_newton(us, ut, g.yq);
  law_at_point(us, g.dist, roughness_length(), tx, ty, tz, upx, upy, upz, grad, ustar);
}

namespace {

// The trilinear wall law at P: the geometry of its image point, then the law
// from the velocities sampled there; P moves when it lies inside the
// roughness layer.
void wall_trilinear(bool smooth, double& px, double& py, double& pz, double fx, double fy, double fz, double& upx,
                    double& upy, double& upz, double& grad, double& ustar, double& tx, double& ty, double& tz) {
  const TriGeometry g = tri_geometry(px, py, pz, fx, fy, fz);
  px = g.px;
  py = g.py;
  pz = g.pz;
  tri_apply(smooth, g, upx, upy, upz, grad, ustar, tx, ty, tz);
}

// Inverse-distance wall routines: rough law, or three-layer law when `smooth`.
void wall_cloud(bool smooth, double px, double py, double pz, double fx, double fy, double fz, double& upx,
                double& upy, double& upz, double& grad, double& ustar, double& tx, double& ty, double& tz) {
  const double z0 = roughness_length();
  const double ddx = px - fx, ddy = py - fy, ddz = pz - fz;
  const double dist = std::sqrt(ddx * ddx + ddy * ddy + ddz * ddz);
  double qx = px + ddx, qy = py + ddy, qz = pz + ddz;
  if (dist <= z0) {
    upx = 0.0;
    upy = 0.0;
    upz = 0.0;
    grad = 0.0;
    return;
  }
  const double nx = ddx / dist, ny = ddy / dist, nz = ddz / dist;
  const double step = 0.25 * dy;
  double us;
  for (;;) {
    double ux, uy, uz, ut;
    sample_cloud(qx, qy, qz, ux, uy, uz);
    double ttx, tty, ttz;
    tangential(ux, uy, uz, nx, ny, nz, ttx, tty, ttz, ut);
    if (ut < 1e-6) {
      still_result(upx, upy, upz, grad, ustar, tx, ty, tz);
      return;
    }
    tx = ttx / ut;
    ty = tty / ut;
    tz = ttz / ut;
    const double ex = qx - px, ey = qy - py, ez = qz - pz;
    const double yq = std::sqrt(ex * ex + ey * ey + ez * ez) + dist;
    us = kKarman * ut / std::log(yq / z0);
    if (!smooth) break;
    if (three_layer(ut, yq, us)) break;
    // Neither stage settled: sample farther out along the normal.  Where
    // they never settle, the image point would move away for ever: once it
    // is four box diagonals out, the last value stands.
    if (!(yq <= far_out())) break;
    ustar = us;
    qx = qx + step * nx;
    qy = qy + step * ny;
    qz = qz + step * nz;
  }
  law_at_point(us, dist, z0, tx, ty, tz, upx, upy, upz, grad, ustar);
}

}  // namespace

void tri_sample_here(const CellOfPoint& c, double qx, double qy, double qz, double out[3]) {
  trilinear_here(c, qx, qy, qz, out[0], out[1], out[2]);
}

void cloud_sample_here(double qx, double qy, double qz, double out[3]) { cloud_here(qx, qy, qz, out[0], out[1], out[2]); }

bool holds_columns(const Array3<double>& f, int ia, int ib, int ja, int jb) {
  return std::min(ia, ib) >= f.lo(0) && std::max(ia, ib) <= f.hi(0) && std::min(ja, jb) >= f.lo(1) &&
         std::max(ja, jb) <= f.hi(1);
}

bool cloud_held(const Array3<double>& f, int i0, int j0, int ilo, int ihi, int jlo, int jhi) {
  const int a = std::max(i0, ilo), b = std::min(i0 + 5, ihi), c = std::max(j0, jlo), d = std::min(j0 + 5, jhi);
  return a > b || c > d || (a >= f.lo(0) && b <= f.hi(0) && c >= f.lo(1) && d <= f.hi(1));
}

void BEDPATCHNORMAL(double x1, double x2, double y1, double y2, double z1, double z2, double z3, double z4,
                    double x, double y, double& nx, double& ny, double& nz, double& a, double& b, double& c,
                    double& e) {
  const double A = -(x1 - x2) * (y1 - y2);
  e = (z3 - (z1 - z2) - z4) / A;
  b = (y2 * (z1 - z2) - (z3 - z4) * y1) / A;
  c = ((z1 - z3) * x2 - (z2 - z4) * x1) / A;
  a = (-b - e * y1) * x1 + (z1 - c * y1);
  const double gx = b + e * y, gy = c + e * x;
  const double len = std::sqrt(gx * gx + gy * gy + 1.0);
  nx = -gx / len;
  ny = -gy / len;
  nz = 1.0 / len;
}

void WALLROUGHTRI(double& px, double& py, double& pz, double fx, double fy, double fz, double& upx, double& upy,
                  double& upz, double& grad, double& ustar, double& tx, double& ty, double& tz) {
  wall_trilinear(false, px, py, pz, fx, fy, fz, upx, upy, upz, grad, ustar, tx, ty, tz);
}

void WALLSMOOTHTRI(double& px, double& py, double& pz, double fx, double fy, double fz, double& upx, double& upy,
                   double& upz, double& grad, double& ustar, double& tx, double& ty, double& tz) {
  wall_trilinear(true, px, py, pz, fx, fy, fz, upx, upy, upz, grad, ustar, tx, ty, tz);
}

void WALLROUGHIDW(double& px, double& py, double& pz, double fx, double fy, double fz, double& upx, double& upy,
                  double& upz, double& grad, double& ustar, double& tx, double& ty, double& tz) {
  wall_cloud(false, px, py, pz, fx, fy, fz, upx, upy, upz, grad, ustar, tx, ty, tz);
}

void WALLSMOOTHIDW(double& px, double& py, double& pz, double fx, double fy, double fz, double& upx, double& upy,
                   double& upz, double& grad, double& ustar, double& tx, double& ty, double& tz) {
  wall_cloud(true, px, py, pz, fx, fy, fz, upx, upy, upz, grad, ustar, tx, ty, tz);
}

void bring_into_domain(double& qx, double& qy, double& qz, double off) {
  auto one = [off](double& q, double lo, double hi, double h, int wlo, int whi) {
    const double a = std::abs(wlo), b = std::abs(whi);
    if (q <= lo - h / 2.0) q = (q - lo + hi) * (1.0 - a) + (lo - h / 2.0 + off) * a;
    if (q >= hi + h / 2.0) q = (q + lo - hi) * (1.0 - b) + (hi + h / 2.0 - off) * b;
  };
  one(qx, xmin, xmax, dx, ibcu(LowX), ibcu(HighX));
  one(qy, ymin, ymax, dy, ibcv(LowY), ibcv(HighY));
  one(qz, zmin, zmax, dz, ibcw(LowZ), ibcw(HighZ));
}

bool march_image_point(double px, double py, double pz, double nx, double ny, double nz, double off, double& ddx,
                       double& ddy, double& ddz, double& qx, double& qy, double& qz, bool (*clean)(const CellOfPoint&),
                       CellOfPoint& c) {
  bring_into_domain(qx, qy, qz, off);
  c = locate_point(qx, qy, qz);
  const double step = 0.125 * dy;
  const double ratio = far_out() / step;
  const long limit = ratio >= 0.0 && ratio < 1e8 ? static_cast<long>(ratio) + 1 : 0;
  for (long n = 0; !clean(c); ++n) {
    if (n >= limit) return false;
    ddx = ddx + step * nx;
    ddy = ddy + step * ny;
    ddz = ddz + step * nz;
    qx = px + ddx;
    qy = py + ddy;
    qz = pz + ddz;
    bring_into_domain(qx, qy, qz, off);
    c = locate_point(qx, qy, qz);
  }
  return true;
}

int cell_index(double x) {
  constexpr int kFar = -1000000000;
  return x > -1e9 && x < 1e9 ? static_cast<int>(x) : kFar;
}

namespace {

thread_local MarchPosition current_position{'?', 0, 0, 0};
// The positions that fell back, each once (the eddy viscosity at the bed
// marches anew at every call, the velocities once).
std::set<std::tuple<char, int, int, int>> fallen_back;
long reported = 0;
MarchPosition first_fallback{'?', 0, 0, 0};

}  // namespace

void set_march_position(const MarchPosition& p) { current_position = p; }

void note_march_fallback() {
#pragma omp critical(riverles_march_fallback)
  {
    const MarchPosition& p = current_position;
    if (fallen_back.empty()) first_fallback = p;
    fallen_back.insert({p.kind, p.i, p.j, p.k});
  }
}

long report_march_fallbacks() {
  // Over several processes a forcing point in two blocks' reach is found by
  // both: the positions of all go to the first, which counts each once and
  // speaks for the run.
  long fallbacks = static_cast<long>(fallen_back.size());
  MarchPosition first = first_fallback;
  if (dist_size() > 1) {
    std::vector<int> mine, all;
    for (const auto& [kind, i, j, k] : fallen_back) mine.insert(mine.end(), {kind, i, j, k});
    gather_ints(mine, all);
    if (!first_process()) return 0;
    std::set<std::tuple<char, int, int, int>> every;
    for (std::size_t m = 0; m + 3 < all.size(); m += 4)
      every.insert({static_cast<char>(all[m]), all[m + 1], all[m + 2], all[m + 3]});
    fallbacks = static_cast<long>(every.size());
    if (!every.empty()) {
      const auto& [kind, i, j, k] = *every.begin();
      first = MarchPosition{kind, i, j, k};
    }
  }
  if (fallbacks > reported) {
    std::fprintf(stderr,
                 "riverles: warning: the image-point march found no clean stencil at %ld forcing point(s); they "
                 "take the inverse-distance sample at their first image point (first: %c at i=%d j=%d k=%d)\n",
                 fallbacks, first.kind, first.i, first.j, first.k);
    reported = fallbacks;
  }
  return fallbacks;
}

CellOfPoint locate_point(double qx, double qy, double qz) {
  CellOfPoint c;
  c.iq = cell_index((qx - xmin) / dx + 1.0);
  c.jq = cell_index((qy - ymin) / dy + 1.0);
  c.kq = cell_index((qz - zmin) / dz + 1.0);
  c.xc = xmin + (c.iq - 0.5) * dx;
  c.yc = ymin + (c.jq - 0.5) * dy;
  c.zc = zmin + (c.kq - 0.5) * dz;
  c.si = c.xc <= qx ? 1 : -1;
  c.sj = c.yc <= qy ? 1 : -1;
  c.sk = c.zc <= qz ? 1 : -1;
  return c;
}

double idw_sample(const Array3<double>& field, const Array3<int>& flag, int i0, int j0, int k0, int ilo, int ihi,
                  int jlo, int jhi, int klo, int khi, double hx, double hy, double hz, double qx, double qy,
                  double qz) {
  double val[216], dist[216];
  int n = 0;
  double R = 0.0;
  for (int k = k0; k <= k0 + 5; ++k) {
    if (k < klo || k > khi) continue;
    const double z = zmin + (k - hz) * dz;
    for (int j = j0; j <= j0 + 5; ++j) {
      if (j < jlo || j > jhi) continue;
      const double y = ymin + (j - hy) * dy;
      for (int i = i0; i <= i0 + 5; ++i) {
        if (i < ilo || i > ihi) continue;
        if (flag(i, j, k) != 1) continue;
        const double x = xmin + (i - hx) * dx;
        const double s = std::sqrt((x - qx) * (x - qx) + (y - qy) * (y - qy) + (z - qz) * (z - qz));
        val[n] = field(i, j, k);
        dist[n] = s;
        if (s > R) R = s;
        ++n;
      }
    }
  }
  double wsum = 0.0, vsum = 0.0;
  for (int m = 0; m < n; ++m) {
    if (dist[m] < 1e-6) return val[m];
    const double r = (R - dist[m]) / R / dist[m];
    const double wt = r * r;
    wsum = wsum + wt;
    vsum = vsum + val[m] * wt;
  }
  const double sample = vsum / wsum;
  return std::isnan(sample) ? 0.0 : sample;
}

}  // namespace rl
