#include "immersed/flagdeter.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <climits>
#include <cstring>
#include <vector>

#include "common/distributed.hpp"
#include "common/ghosts.hpp"
#include "common/parallel.hpp"
#include "driver/fields.hpp"
#include "immersed/immerse.hpp"

namespace rl {

namespace {

// Halo copies across one pair of domain faces.  With a and b the boundary
// words of the low and the high face, as plain integer arithmetic:
//   low  halo = |a|*(near low inner)  + (1-|a|)*(far high inner)
//   high halo = |b|*(near high inner) + (1-|b|)*(far low inner)
// so a word of 0 makes the direction periodic and a word of magnitude 1
// repeats the nearest inner value.  The caller gives the planes: on the
// field's own staggered direction the low halo is -1 and copies 0 / n-1,
// elsewhere it is 0 and copies 1 / n.
struct HaloPlanes {
  int low, nearlow, farhigh;   // low halo plane and its two sources
  int high, nearhigh, farlow;  // high halo plane and its two sources
};

HaloPlanes staggered_planes(int n) { return {-1, 0, n - 1, n + 1, n, 1}; }
HaloPlanes plain_planes(int n) { return {0, 1, n, n + 1, n, 1}; }

// In a run over several processes each halo pass covers the process's
// rows (or columns) and the box's ghost layers at the faces its block
// touches; a face whose far plane another process holds takes the near
// term alone (its weight is 0 unless the face is periodic), and a periodic
// face across a cut copies the far plane from the block at the other end.
bool cut_on(int axis) { return field_faces(imax, jmax, kmax).cut[axis]; }
bool low_here(int axis) { return field_faces(imax, jmax, kmax).touch[2 * axis + 1]; }
bool high_here(int axis) { return field_faces(imax, jmax, kmax).touch[2 * axis + 2]; }

// The copies of a periodic face across a cut, by the main thread once all
// threads are done with the pass (its other faces computed).
void wrap_planes(Array3<int>& f, int axis, const HaloPlanes& q, int wa, int wb, const Reach& reach) {
#pragma omp barrier
#pragma omp master
  {
    if (wa == 0) wrap_copy(f, axis, q.farhigh, q.low, reach);
    if (wb == 0) wrap_copy(f, axis, q.farlow, q.high, reach);
  }
#pragma omp barrier
}

// x halo: for k in klo..khi (shared among threads) and j in jlo..jhi.
void halo_x(Array3<int>& f, const HaloPlanes& q, int a, int b, int jlo, int jhi, int klo, int khi) {
  const int wa = std::abs(a), wb = std::abs(b);
  const bool cut = cut_on(0), lo = low_here(0) && !(cut && wa == 0), hi = high_here(0) && !(cut && wb == 0);
  const int j0 = std::max(jlo, own_lo_j(jlo)), j1 = std::min(jhi, own_hi_j(jhi));
  if (lo || hi) {
#pragma omp for schedule(dynamic, 1)
    for (int k = klo; k <= khi; ++k) {
      for (int j = j0; j <= j1; ++j) {
        int* r = f.row(j, k);
        if (!cut) {
          r[q.low] = wa * r[q.nearlow] + (1 - wa) * r[q.farhigh];
          r[q.high] = wb * r[q.nearhigh] + (1 - wb) * r[q.farlow];
        } else {
          if (lo) r[q.low] = r[q.nearlow];
          if (hi) r[q.high] = r[q.nearhigh];
        }
      }
    }
  }
  if (cut && (wa == 0 || wb == 0)) wrap_planes(f, 0, q, wa, wb, Reach{INT_MIN, INT_MAX, jlo, jhi, klo, khi});
}

// y halo: for k in klo..khi (shared among threads), i in ilo..ihi along rows.
void halo_y(Array3<int>& f, const HaloPlanes& q, int a, int b, int ilo_, int ihi_, int klo, int khi) {
  const int wa = std::abs(a), wb = std::abs(b);
  const std::int64_t sj = f.sj();
  const bool cut = cut_on(1), lo = low_here(1) && !(cut && wa == 0), hi = high_here(1) && !(cut && wb == 0);
  const int ilo = std::max(ilo_, own_lo_i(ilo_)), ihi = std::min(ihi_, own_hi_i(ihi_));
  if (cut) {
    if (lo || hi) {
#pragma omp for schedule(dynamic, 1)
      for (int k = klo; k <= khi; ++k) {
        int* r = f.origin() + k * f.sk();  // row 0, which may lie outside this block
        for (int i = ilo; i <= ihi; ++i) {
          if (lo) r[i + q.low * sj] = r[i + q.nearlow * sj];
          if (hi) r[i + q.high * sj] = r[i + q.nearhigh * sj];
        }
      }
    }
    if (wa == 0 || wb == 0) wrap_planes(f, 1, q, wa, wb, Reach{ilo_, ihi_, INT_MIN, INT_MAX, klo, khi});
    return;
  }
#pragma omp for schedule(dynamic, 1)
  for (int k = klo; k <= khi; ++k) {
    int* r = f.row(0, k) + ilo;
    int* lo = r + q.low * sj;
    const int* nl = r + q.nearlow * sj;
    const int* fh = r + q.farhigh * sj;
    int* hi = r + q.high * sj;
    const int* nh = r + q.nearhigh * sj;
    const int* fl = r + q.farlow * sj;
    const int n = ihi - ilo + 1;
    for (int m = 0; m < n; ++m) lo[m] = wa * nl[m] + (1 - wa) * fh[m];
    for (int m = 0; m < n; ++m) hi[m] = wb * nh[m] + (1 - wb) * fl[m];
  }
}

// z halo: for i in ilo..ihi (shared among threads) and j in jlo..jhi.
void halo_z(Array3<int>& f, const HaloPlanes& q, int a, int b, int ilo_, int ihi_, int jlo_, int jhi_) {
  const int wa = std::abs(a), wb = std::abs(b);
  const std::int64_t sk = f.sk();
  const int ilo = std::max(ilo_, own_lo_i(ilo_)), ihi = std::min(ihi_, own_hi_i(ihi_));
  const int jlo = std::max(jlo_, own_lo_j(jlo_)), jhi = std::min(jhi_, own_hi_j(jhi_));
#pragma omp for schedule(dynamic, 1)
  for (int i = ilo; i <= ihi; ++i) {
    for (int j = jlo; j <= jhi; ++j) {
      int* e = f.at(i, j, 0);
      e[q.low * sk] = wa * e[q.nearlow * sk] + (1 - wa) * e[q.farhigh * sk];
      e[q.high * sk] = wb * e[q.nearhigh * sk] + (1 - wb) * e[q.farlow * sk];
    }
  }
}

// Detection: a fluid position (1) with a solid face neighbour (-1) in the
// same field becomes a forcing point (0).  Only -1 is looked for and only
// 1 turns into 0, so the order of visits does not matter and the pass can
// work in place; a neighbour that has just changed from 1 to 0 reads the
// same as before.
void detect_flags(Array3<int>& f, int ilo_, int ihi_, int jlo_, int jhi_, int klo, int khi) {
  const std::int64_t sj = f.sj(), sk = f.sk();
  // Over several processes: this process's positions of the range.
  const int ilo = std::max(ilo_, own_lo_i(ilo_)), ihi = std::min(ihi_, own_hi_i(ihi_));
  const int jlo = std::max(jlo_, own_lo_j(jlo_)), jhi = std::min(jhi_, own_hi_j(jhi_));
  const int n = ihi - ilo + 1;
#pragma omp for schedule(dynamic, 1)
  for (int k = klo; k <= khi; ++k) {
    for (int j = jlo; j <= jhi; ++j) {
      int* r = f.at(ilo, j, k);
      for (int m = 0; m < n; ++m) {
        const int c = r[m];
        const int solid = (r[m - 1] == -1) | (r[m + 1] == -1) | (r[m - sj] == -1) | (r[m + sj] == -1) |
                          (r[m - sk] == -1) | (r[m + sk] == -1);
        r[m] = c - ((c == 1) & solid);  // 1 -> 0 beside a solid, else unchanged
      }
    }
  }
}

// Classification of one row against the mean of two bed rows (u and v
// positions, on the edge between two columns): -1 strictly below, else 1.
void CLASSMEAN(int* __restrict r, const double* __restrict b, const double* __restrict bn, int ilo, int ihi,
               double z) {
  for (int i = ilo; i <= ihi; ++i) r[i] = (z < (b[i] + bn[i]) * 0.5) ? -1 : 1;
}

// Classification of one row against its own bed column (w and centre
// positions): -1 strictly below, else 1.
void class_column(int* __restrict r, const double* __restrict b, int ilo, int ihi, double z) {
  for (int i = ilo; i <= ihi; ++i) r[i] = (z < b[i]) ? -1 : 1;
}

}  // namespace

// Classifies every position of flagu, flagv, flagw and flagc against the
// bed: -1 strictly below the bed height, 1 at or above it, and 0 for a
// position at or above it with a solid face neighbour.  The u and v
// positions sit on the edge between two bed columns and compare with the
// mean of the two heights; the w and centre positions compare with the
// height of their own column.  Each field: classification, halo copy,
// detection, halo copy again; within a field the directions of the halo
// follow a fixed order, since a later pass covers the corners that an
// earlier one wrote.
namespace {

// What the classification depends on, as of its last run.  The flags follow
// from these alone, and nothing else writes them, so with the same inputs a
// new classification would give the same flags bit for bit.
struct Inputs {
  int I = 0, J = 0, K = 0;
  double z0 = 0, h = 0;
  int words[24] = {};
  std::vector<double> bedcopy;

  void take() {
    I = imax;
    J = jmax;
    K = kmax;
    z0 = zmin;
    h = dz;
    for (int f = 1; f <= 6; ++f) {
      words[f - 1] = ibcu(f);
      words[f + 5] = ibcv(f);
      words[f + 11] = ibcw(f);
      words[f + 17] = ibcp(f);
    }
    bedcopy.assign(bed.data(), bed.data() + bed.size());
  }
  bool same_as_now() const {
    Inputs now;
    now.I = imax;
    now.J = jmax;
    now.K = kmax;
    now.z0 = zmin;
    now.h = dz;
    for (int f = 1; f <= 6; ++f) {
      now.words[f - 1] = ibcu(f);
      now.words[f + 5] = ibcv(f);
      now.words[f + 11] = ibcw(f);
      now.words[f + 17] = ibcp(f);
    }
    return I == now.I && J == now.J && K == now.K && std::memcmp(&z0, &now.z0, sizeof z0) == 0 &&
           std::memcmp(&h, &now.h, sizeof h) == 0 && std::memcmp(words, now.words, sizeof words) == 0 &&
           static_cast<std::int64_t>(bedcopy.size()) == bed.size() &&
           std::memcmp(bedcopy.data(), bed.data(), bedcopy.size() * sizeof(double)) == 0;
  }
};

bool reuse = false;
bool remembered = false;
Inputs last;

}  // namespace

void FLAGREUSE(bool on) {
  reuse = on;
  remembered = false;
  last = Inputs();
}

void FLAGDETER() {
  if (reuse && remembered && last.same_as_now()) return;
  CLASSIFY();
  if (reuse) {
    last.take();
    remembered = true;
  }
}

namespace {
long classifications = 0;
}  // namespace

long classify_generation() { return classifications; }

void CLASSIFY() {
  ++classifications;
  const int I = imax, J = jmax, K = kmax;
  const double z0 = zmin, h = dz;
  const std::int64_t bsj = bed.sj();

  // Over several processes each classifies the positions it holds (its
  // block, the halo and the box's ghost layers at its faces: the bed is whole
  // everywhere), detects its own, and then takes the neighbours' detected
  // positions into its halo.
  const auto ri = [](const Array3<int>& f, int lo, int hi, int& a, int& b) {
    a = std::max(lo, f.lo(0));
    b = std::min(hi, f.hi(0));
  };
  const auto rj = [](const Array3<int>& f, int lo, int hi, int& a, int& b) {
    a = std::max(lo, f.lo(1));
    b = std::min(hi, f.hi(1));
  };
  int ia, ib, ja, jb;

#pragma omp parallel default(shared) private(ia, ib, ja, jb) if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
    // ---- flagu ----
    ri(flagu, 0, I, ia, ib);
    rj(flagu, 0, J + 1, ja, jb);
#pragma omp for schedule(dynamic, 1)
    for (int k = 0; k <= K + 1; ++k) {
      const double z = z0 + (k - 0.5) * h;
      for (int j = ja; j <= jb; ++j) {
        const double* b = bed.at(0, j);
        CLASSMEAN(flagu.row(j, k), b, b + 1, ia, ib, z);
      }
    }
    auto halou = [&] {
      halo_x(flagu, staggered_planes(I), ibcu(LowX), ibcu(HighX), 1, J, 1, K);
      halo_y(flagu, plain_planes(J), ibcu(LowY), ibcu(HighY), 0, I + 1, 0, K + 1);
      halo_z(flagu, plain_planes(K), ibcu(LowZ), ibcu(HighZ), 0, I + 1, 0, J + 1);
    };
    halou();
    detect_flags(flagu, 0, I, 1, J, 1, K);
    halou();

    // ---- flagv ----
    ri(flagv, 0, I + 1, ia, ib);
    rj(flagv, 0, J, ja, jb);
#pragma omp for schedule(dynamic, 1)
    for (int k = 0; k <= K + 1; ++k) {
      const double z = z0 + (k - 0.5) * h;
      for (int j = ja; j <= jb; ++j) {
        const double* b = bed.at(0, j);
        CLASSMEAN(flagv.row(j, k), b, b + bsj, ia, ib, z);
      }
    }
    auto halov = [&] {
      halo_y(flagv, staggered_planes(J), ibcv(LowY), ibcv(HighY), 1, I, 1, K);
      halo_z(flagv, plain_planes(K), ibcv(LowZ), ibcv(HighZ), 0, I + 1, 0, J + 1);
      halo_x(flagv, plain_planes(I), ibcv(LowX), ibcv(HighX), 0, J + 1, 0, K + 1);
    };
    halov();
    detect_flags(flagv, 1, I, 0, J, 1, K);
    halov();

    // ---- flagw ----
    ri(flagw, 0, I + 1, ia, ib);
    rj(flagw, 0, J + 1, ja, jb);
#pragma omp for schedule(dynamic, 1)
    for (int k = 0; k <= K; ++k) {
      const double z = z0 + k * h;
      for (int j = ja; j <= jb; ++j) {
        class_column(flagw.row(j, k), bed.at(0, j), ia, ib, z);
      }
    }
    auto halow = [&] {
      halo_z(flagw, staggered_planes(K), ibcw(LowZ), ibcw(HighZ), 1, I, 1, J);
      halo_x(flagw, plain_planes(I), ibcw(LowX), ibcw(HighX), 0, J + 1, 0, K + 1);
      halo_y(flagw, plain_planes(J), ibcw(LowY), ibcw(HighY), 0, I + 1, 0, K + 1);
    };
    halow();
    detect_flags(flagw, 1, I, 1, J, 0, K);
    halow();

    // ---- flagc ----
    ri(flagc, 0, I + 1, ia, ib);
    rj(flagc, 0, J + 1, ja, jb);
#pragma omp for schedule(dynamic, 1)
    for (int k = 0; k <= K + 1; ++k) {
      const double z = z0 + (k - 0.5) * h;
      for (int j = ja; j <= jb; ++j) {
        class_column(flagc.row(j, k), bed.at(0, j), ia, ib, z);
      }
    }
    auto halop = [&] {
      halo_x(flagc, plain_planes(I), ibcp(LowX), ibcp(HighX), 0, J + 1, 0, K + 1);
      halo_y(flagc, plain_planes(J), ibcp(LowY), ibcp(HighY), 0, I + 1, 0, K + 1);
      halo_z(flagc, plain_planes(K), ibcp(LowZ), ibcp(HighZ), 0, I + 1, 0, J + 1);
    };
    halop();
    detect_flags(flagc, 1, I, 1, J, 1, K);
    halop();

    // The neighbours' detected positions.
    halo_team({&flagu, &flagv, &flagw, &flagc}, kHalo);
  }
}

// Positions that were solid in the previous classification and are forcing
// points now get a wall-law value in the old velocity field, sampled from
// the current field.  A position that became fluid gets nothing.  Nothing
// calls this while the bed cannot move.
void FLAGMOVE() {
  const int I = imax, J = jmax, K = kmax;
#pragma omp parallel for default(shared) schedule(dynamic, 1) if (worth_sharing(cells_of(imax, jmax, kmax)))
  for (int k = 1; k <= K; ++k)
    for (int j = 1; j <= J; ++j)
      for (int i = 1; i <= I; ++i) {
        if (flaguo(i, j, k) == -1 && flagu(i, j, k) == 0) IMMERSEU(i, j, k, uo(i, j, k));
        if (flagvo(i, j, k) == -1 && flagv(i, j, k) == 0) IMMERSEV(i, j, k, vo(i, j, k));
        if (flagwo(i, j, k) == -1 && flagw(i, j, k) == 0) IMMERSEW(i, j, k, wo(i, j, k));
      }
}

}  // namespace rl
