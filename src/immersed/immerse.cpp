#include "immersed/immerse.hpp"

#include <omp.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "common/console.hpp"
#include "common/distributed.hpp"
#include "driver/fields.hpp"
#include "flow/openreach.hpp"
#include "immersed/farsample.hpp"
#include "immersed/viscbed.hpp"
#include "immersed/wallaw.hpp"

namespace rl {

namespace {

// State of one search: the forcing point P, the foot point so far and its
// distance.  best starts at the height of the domain, so nothing at that
// distance or beyond is ever accepted; an equal distance never replaces an
// earlier candidate.
struct Search {
  double px, py, pz;
  double X = 0.0, Y = 0.0, Z = 0.0;
  double best;
  bool found = false;

  Search(double x, double y, double z) : px(x), py(y), pz(z), best(zmax - zmin) {}

  bool accept(double x, double y, double z, double d) {
    X = x;
    Y = y;
    Z = z;
    best = d;
    found = true;
    return true;
  }

  // Nearest point of the extended surface of a patch; kept only if it lies
  // on the patch itself, bounds included.
  bool patch(double x1, double x2, double y1, double y2, double z1, double z2, double z3, double z4) {
    double x, y, z;
    BEDPATCHPOINT(x1, x2, y1, y2, z1, z2, z3, z4, px, py, pz, x, y, z);
    const double ex = x - px, ey = y - py, ez = z - pz;
    const double d = std::sqrt(ex * ex + ey * ey + ez * ez);
    const bool inx = std::fmin(x1, x2) <= x && x <= std::fmax(x1, x2);
    const bool iny = std::fmin(y1, y2) <= y && y <= std::fmax(y1, y2);
    if (best > d && inx && iny) return accept(x, y, z, d);
    return false;
  }

  // Nearest point of the segment (s1,z1)-(s2,z2) to (sp,zp), measured in the
  // plane of the segment only.  Returns false when the projection falls
  // outside the segment or the point is not nearer.
  static bool segment(double s1, double s2, double z1, double z2, double sp, double zp, double& s, double& z,
                      double& d) {
    const double ds = s2 - s1, dzz = z2 - z1;
    const double t = -((s1 - sp) * ds + (z1 - zp) * dzz) / (ds * ds + dzz * dzz);
    if (!(t >= 0.0 && t <= 1.0)) return false;
    s = s1 + t * ds;
    z = z1 + t * dzz;
    d = std::sqrt((s - sp) * (s - sp) + (z - zp) * (z - zp));
    return true;
  }

  // Edge along x at the fixed y; the distance leaves out the y difference.
  bool edge_x(double x1, double x2, double yfix, double z1, double z2) {
    double s, z, d;
    if (segment(x1, x2, z1, z2, px, pz, s, z, d) && best > d) return accept(s, yfix, z, d);
    return false;
  }

  // Edge along y at the fixed x; the distance leaves out the x difference.
  bool edge_y(double xfix, double y1, double y2, double z1, double z2) {
    double s, z, d;
    if (segment(y1, y2, z1, z2, py, pz, s, z, d) && best > d) return accept(xfix, s, z, d);
    return false;
  }

  // Column centres, measured in the x-z plane, the y-z plane, or along z.
  bool vertex_xz(double x, double y, double z) {
    const double d = std::sqrt((x - px) * (x - px) + (z - pz) * (z - pz));
    if (best > d) return accept(x, y, z, d);
    return false;
  }
  bool vertex_yz(double x, double y, double z) {
    const double d = std::sqrt((y - py) * (y - py) + (z - pz) * (z - pz));
    if (best > d) return accept(x, y, z, d);
    return false;
  }
  bool vertex_z(double x, double y, double z) {
    const double d = std::fabs(pz - z);
    if (best > d) return accept(x, y, z, d);
    return false;
  }
};

// While a search is being recorded for the cache, the console lines it
// prints are kept with it, so that a reuse prints them again.
thread_local std::vector<std::string>* warning_sink = nullptr;

// A search that found nothing ends the run; inside a parallel region the
// stop must not unwind through it.  The test is on the nesting level, not
// omp_in_parallel(): a region of one thread is not "active", but an
// exception thrown inside it still ends the process with an abort.
[[noreturn]] void search_failed(const char* line) {
  if (omp_get_level() > 0) stop_from_parallel(line);
  stop_run(line);
}

// The four patches, four edges and the column centre around a point that
// stands right above the centre of column (i,j).
void search_column(Search& s, int i, int j) {
  const double xE = s.px + dx, xW = s.px - dx, yN = s.py + dy, yS = s.py - dy;
  s.patch(s.px, xE, s.py, yN, bed(i, j), bed(i + 1, j), bed(i, j + 1), bed(i + 1, j + 1));
  s.patch(s.px, xE, s.py, yS, bed(i, j), bed(i + 1, j), bed(i, j - 1), bed(i + 1, j - 1));
  s.patch(s.px, xW, s.py, yS, bed(i, j), bed(i - 1, j), bed(i, j - 1), bed(i - 1, j - 1));
  s.patch(s.px, xW, s.py, yN, bed(i, j), bed(i - 1, j), bed(i, j + 1), bed(i - 1, j + 1));
  s.edge_x(s.px, xE, s.py, bed(i, j), bed(i + 1, j));
  s.edge_x(s.px, xW, s.py, bed(i, j), bed(i - 1, j));
  s.edge_y(s.px, s.py, yN, bed(i, j), bed(i, j + 1));
  s.edge_y(s.px, s.py, yS, bed(i, j), bed(i, j - 1));
  s.vertex_z(s.px, s.py, bed(i, j));
}

}  // namespace

void BEDPATCHPOINT(double x1, double x2, double y1, double y2, double z1, double z2, double z3, double z4,
                   double px, double py, double pz, double& X, double& Y, double& Z) {
  double nx, ny, nz, a, b, c, e;
  BEDPATCHNORMAL(x1, x2, y1, y2, z1, z2, z3, z4, px, py, nx, ny, nz, a, b, c, e);
  auto rel = [](double val, double old) {
    return val == 0.0 ? std::fabs(val - old) / 1e-8 : std::fabs(val - old) / std::fabs(val);
  };
  double x = px, y = py, z = pz;
  double change;
  int count = 0;
  bool limit = false;
  do {
    const double xo = x, yo = y, zo = z;
    const double zx = b + e * y;
    double g = zx * x + c * y + a - pz;
    x = x - (x - px + g * zx) / (zx * zx + 1.0);
    const double zy = c + e * x;
    g = zx * x + c * y + a - pz;
    y = y - (y - py + g * zy) / (zy * zy + 1.0);
    z = a + c * y + x * (b + e * y);
    change = rel(x, xo);
    const double cy = rel(y, yo), cz = rel(z, zo);
    if (cy > change) change = cy;
    if (cz > change) change = cz;
    ++count;
    if (count > 200) {
      limit = true;
      break;
    }
  } while (change > 1e-8);

  if (limit && change > 0.0001) {
    const std::string line = "Warning : The immersed boundary is not converged yet " + free_real(change);
    if (warning_sink) warning_sink->push_back(line);
    if (!far_repeating()) say(line);
    X = (x1 + x2) / 2.0;
    Y = (y1 + y2) / 2.0;
    Z = (b + e * Y) * X + a + c * Y;
    return;
  }
  X = x;
  Y = y;
  Z = z;
}

namespace {

FootPoint result_of(const Search& s) { return FootPoint{s.px, s.py, s.pz, s.X, s.Y, s.Z, s.best, s.found}; }

// Velocity vector imposed at P with foot point (X,Y,Z), by the wall law that
// iibm and ibed select.  `geometry`, when given, holds (or receives) the
// geometry of the trilinear law for this point, so that a kept point only
// samples the flow.
void impose(const FootPoint& f, double& ux, double& uy, double& uz, TriGeometry* geometry = nullptr,
            bool* geometry_ready = nullptr, double* ustar_out = nullptr) {
  double px = f.px, py = f.py, pz = f.pz;
  double grad, ustar, tx, ty, tz;
  if (iibm == 0) {
    if (geometry) {
      if (!*geometry_ready) {
        *geometry = tri_geometry(px, py, pz, f.X, f.Y, f.Z);
        *geometry_ready = true;
      }
      tri_apply(ibed == 0, *geometry, ux, uy, uz, grad, ustar, tx, ty, tz);
    } else if (ibed != 0) {
      WALLROUGHTRI(px, py, pz, f.X, f.Y, f.Z, ux, uy, uz, grad, ustar, tx, ty, tz);
    } else {
      WALLSMOOTHTRI(px, py, pz, f.X, f.Y, f.Z, ux, uy, uz, grad, ustar, tx, ty, tz);
    }
  } else {
    if (ibed != 0)
      WALLROUGHIDW(px, py, pz, f.X, f.Y, f.Z, ux, uy, uz, grad, ustar, tx, ty, tz);
    else
      WALLSMOOTHIDW(px, py, pz, f.X, f.Y, f.Z, ux, uy, uz, grad, ustar, tx, ty, tz);
  }
  if (ustar_out) *ustar_out = ustar;
}

}  // namespace

FootPoint foot_u(int i, int j, int k) {
  Search s(xmin + i * dx, ymin + (j - 0.5) * dy, zmin + (k - 0.5) * dz);
  const double xL = s.px - dx / 2.0, xR = s.px + dx / 2.0;
  // Second column to the right, wrapped in the periodic box; an open reach
  // has no columns beyond its outlet's ghost.
  const int iw = open_reach() ? std::min(i + 2, imax + 1) : (imax + i + 2) % imax;
  const double yN = s.py + dy, yS = s.py - dy;
  s.patch(xL, xR, s.py, yN, bed(i, j), bed(i + 1, j), bed(i, j + 1), bed(i + 1, j + 1));
  s.patch(xL, xR, s.py, yS, bed(i, j), bed(i + 1, j), bed(i, j - 1), bed(i + 1, j - 1));
  if (s.edge_x(xL, xR, s.py, bed(i, j), bed(i + 1, j)) || s.found) return result_of(s);
  // Second ring: the patches and edges beyond the two columns of P.
  const double xLL = s.px - 1.5 * dx, xRR = s.px + 1.5 * dx;
  s.patch(xL, xLL, s.py, yN, bed(i, j), bed(i - 1, j), bed(i, j + 1), bed(i - 1, j + 1));
  s.patch(xL, xLL, s.py, yS, bed(i, j), bed(i - 1, j), bed(i, j - 1), bed(i - 1, j - 1));
  s.edge_x(xL, xLL, s.py, bed(i, j), bed(i - 1, j));
  s.edge_y(xL, s.py, yS, bed(i, j), bed(i, j - 1));
  s.edge_y(xL, s.py, yN, bed(i, j), bed(i, j + 1));
  s.patch(xR, xRR, s.py, yN, bed(i + 1, j), bed(iw, j), bed(i + 1, j + 1), bed(iw, j + 1));
  s.patch(xR, xRR, s.py, yS, bed(i + 1, j), bed(iw, j), bed(i + 1, j - 1), bed(iw, j - 1));
  s.edge_x(xR, xRR, s.py, bed(i + 1, j), bed(iw, j));
  s.edge_y(xR, s.py, yS, bed(i + 1, j), bed(i + 1, j - 1));
  s.edge_y(xR, s.py, yN, bed(i + 1, j), bed(i + 1, j + 1));
  s.vertex_xz(xL, s.py, bed(i, j));
  s.vertex_xz(xR, s.py, bed(i + 1, j));
  return result_of(s);
}

FootPoint foot_v(int i, int j, int k) {
  Search s(xmin + (i - 0.5) * dx, ymin + j * dy, zmin + (k - 0.5) * dz);
  const double yB = s.py - dy / 2.0, yT = s.py + dy / 2.0;
  const int jw = (jmax + j + 2) % jmax;  // second row to the north, wrapped
  const double xE = s.px + dx, xW = s.px - dx;
  s.patch(s.px, xE, yB, yT, bed(i, j), bed(i + 1, j), bed(i, j + 1), bed(i + 1, j + 1));
  s.patch(s.px, xW, yB, yT, bed(i, j), bed(i - 1, j), bed(i, j + 1), bed(i - 1, j + 1));
  if (s.edge_y(s.px, yB, yT, bed(i, j), bed(i, j + 1)) || s.found) return result_of(s);
  // Second ring.  The south edge and the south vertex are placed with dz.
  const double yBB = s.py - 1.5 * dy, yTT = s.py + 1.5 * dy;
  s.patch(s.px, xE, yB, yBB, bed(i, j), bed(i + 1, j), bed(i, j - 1), bed(i + 1, j - 1));
  s.patch(s.px, xW, yB, yBB, bed(i, j), bed(i - 1, j), bed(i, j - 1), bed(i - 1, j - 1));
  s.edge_y(s.px, yB, s.py - 1.5 * dz, bed(i, j), bed(i, j - 1));
  s.edge_x(s.px, xW, yB, bed(i, j), bed(i - 1, j));
  s.edge_x(s.px, xE, yB, bed(i, j), bed(i + 1, j));
  s.patch(s.px, xE, yT, yTT, bed(i, j + 1), bed(i + 1, j + 1), bed(i, jw), bed(i + 1, jw));
  s.patch(s.px, xW, yT, yTT, bed(i, j + 1), bed(i - 1, j + 1), bed(i, jw), bed(i - 1, jw));
  s.edge_y(s.px, yT, yTT, bed(i, j + 1), bed(i, jw));
  s.edge_x(s.px, xW, yT, bed(i, j + 1), bed(i - 1, j + 1));
  s.edge_x(s.px, xE, yT, bed(i, j + 1), bed(i + 1, j + 1));
  s.vertex_yz(s.px, s.py - dz / 2.0, bed(i, j));
  s.vertex_yz(s.px, yT, bed(i, j + 1));
  return result_of(s);
}

FootPoint foot_w(int i, int j, int k) {
  Search s(xmin + (i - 0.5) * dx, ymin + (j - 0.5) * dy, zmin + k * dz);
  search_column(s, i, j);
  return result_of(s);
}

FootPoint foot_c(int i, int j, int k) {
  Search s(xmin + (i - 0.5) * dx, ymin + (j - 0.5) * dy, zmin + (k - 0.5) * dz);
  search_column(s, i, j);
  return result_of(s);
}

namespace {

// Foot points depend only on the bed, the grid and the position, none of
// which changes during the time loop; the flags, which follow from the bed,
// fix the set of forcing points.  So each search is done once and its
// result, with any console lines it printed, reused in later calls.
struct CachedFoot {
  FootPoint f{};
  std::vector<std::string> warnings;
  bool ready = false;
  TriGeometry tri{};  // geometry of the trilinear wall law, once used
  bool tri_ready = false;
  double ustar = 0.0;  // friction velocity of the last forcing
};

// The slot table is as large as a flag array but written only at the
// forcing points: it comes from the zero-filled field allocation (slot + 1,
// 0 meaning not cached), so that making it costs no pass over memory.
struct SlotFree {
  void operator()(std::int32_t* p) const { detail::aligned_free(p); }
};
// The entries, one per forcing point (tens of MB on a large case), in memory
// of the field allocation too: on huge pages their first touch is cheap.
template <class T>
struct FieldAllocator {
  using value_type = T;
  FieldAllocator() = default;
  template <class U>
  FieldAllocator(const FieldAllocator<U>&) {}
  T* allocate(std::size_t n) {
    void* p = detail::aligned_zalloc(n, sizeof(T));
    if (!p) throw std::bad_alloc();
    return static_cast<T*>(p);
  }
  void deallocate(T* p, std::size_t) { detail::aligned_free(p); }
  template <class U>
  bool operator==(const FieldAllocator<U>&) const {
    return true;
  }
};
struct FootCache {
  std::unique_ptr<std::int32_t, SlotFree> slot;  // by the flag array's linear index
  std::vector<CachedFoot, FieldAllocator<CachedFoot>> entries;
};

enum Kind { KU, KV, KW, KC };
FootCache caches[4];
bool cache_on = false;

// The kept entry of a position, or null when nothing is kept for it.
CachedFoot* entry_of(Kind kind, const Array3<int>& flag, int i, int j, int k) {
  if (!cache_on) return nullptr;
  FootCache& c = caches[kind];
  const std::int32_t s = c.slot.get()[flag.index(i, j, k)] - 1;
  return s < 0 ? nullptr : &c.entries[static_cast<std::size_t>(s)];
}

// The foot point of an entry: searched and kept on first use, with the
// console lines the search printed; printed again on every reuse.
template <typename Search>
FootPoint kept(CachedFoot* e, Search search) {
  if (!e) return search();
  if (e->ready) {
    if (!far_repeating())
      for (const std::string& line : e->warnings) say(line);
    return e->f;
  }
  warning_sink = &e->warnings;
  e->f = search();
  warning_sink = nullptr;
  e->ready = true;
  return e->f;
}

// Forcing of one velocity position: the kept or searched foot point, then
// the wall law; component 0, 1, 2 of the imposed vector goes into value.
template <typename Search>
void force_velocity(Kind kind, const Array3<int>& flag, int i, int j, int k, Search search, const char* failure,
                    int component, double& value) {
  set_march_position({"uvwc"[kind], i, j, k});
  CachedFoot* e = entry_of(kind, flag, i, j, k);
  const FootPoint f = kept(e, search);
  if (!f.found) search_failed(failure);
  double up[3];
  if (e)
    impose(f, up[0], up[1], up[2], &e->tri, &e->tri_ready, &e->ustar);
  else
    impose(f, up[0], up[1], up[2]);
  value = up[component];
}

}  // namespace

void FOOTCACHE(bool on) {
  cache_on = false;
  for (FootCache& c : caches) {
    c.slot.reset();
    c.entries.clear();
    c.entries.shrink_to_fit();
  }
  if (!on) return;
  const Array3<int>* flags[4] = {&flagu, &flagv, &flagw, &flagc};
  for (int n = 0; n < 4; ++n) {
    const Array3<int>& flag = *flags[n];
    FootCache& c = caches[n];
    c.slot.reset(static_cast<std::int32_t*>(detail::aligned_zalloc(static_cast<std::size_t>(flag.size()), sizeof(std::int32_t))));
    if (!c.slot) throw std::bad_alloc();
    std::int32_t* slot = c.slot.get();
    std::int32_t count = 0;
    for (std::int64_t m = 0; m < flag.size(); ++m)
      if (flag.data()[m] == 0) slot[m] = ++count;
    c.entries.resize(static_cast<std::size_t>(count));
  }
  cache_on = true;
}

void IMMERSEU(int i, int j, int k, double& value) {
  force_velocity(KU, flagu, i, j, k, [=] { return foot_u(i, j, k); }, "immrsing u could not find the minimum point", 0,
                 value);
}

void IMMERSEV(int i, int j, int k, double& value) {
  force_velocity(KV, flagv, i, j, k, [=] { return foot_v(i, j, k); }, "immrsing v could not find the minimum point", 1,
                 value);
}

void IMMERSEW(int i, int j, int k, double& value) {
  force_velocity(KW, flagw, i, j, k, [=] { return foot_w(i, j, k); }, "immersing w could not find the minimum point",
                 2, value);
}

void BEDFRICTION(Array2<double>& ustar) {
  // Over several processes, the columns of this process's block.
  for (int j = own_lo_j(1); j <= own_hi_j(jmax); ++j)
    for (int i = own_lo_i(1); i <= own_hi_i(imax); ++i) ustar(i, j) = column_friction_velocity(i, j);
}

bool kept_friction_velocity(int i, int j, double& ustar) {
  ustar = 0.0;
  for (int k = 1; k <= kmax; ++k) {
    if (flagw(i, j, k) != 0) continue;
    const CachedFoot* e = entry_of(KW, flagw, i, j, k);
    if (!e || !e->ready) return false;  // not forced since the feet are kept
    ustar = e->ustar;
    return true;
  }
  return true;
}

double column_friction_velocity(int i, int j) {
  double us;
  kept_friction_velocity(i, j, us);
  return us;
}

void IMMERSEVISC(int i, int j, int k, double& value) {
  set_march_position({'c', i, j, k});
  const FootPoint f = kept(entry_of(KC, flagc, i, j, k), [=] { return foot_c(i, j, k); });
  if (!f.found) search_failed("immrsing visc could not find the minimum point");
  if (iibm != 0)
    VISCIDW(f.px, f.py, f.pz, f.X, f.Y, f.Z, value);
  else
    VISCTRI(f.px, f.py, f.pz, f.X, f.Y, f.Z, value);
}

}  // namespace rl
