#include "immersed/farsample.hpp"

#include <omp.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <vector>

#include "common/distributed.hpp"
#include "driver/fields.hpp"
#include "immersed/flagdeter.hpp"
#include "immersed/viscbed.hpp"
#include "immersed/wallaw.hpp"

namespace rl {

namespace {

// The table of fluid positions of the whole box: i -1..imax+1, j -1..jmax+1,
// k -1..kmax+1 (the union of the four flag arrays), one byte of FluidBit
// a position.
struct FluidTable {
  std::vector<unsigned char> bits;
  int ni = 0, nj = 0, nk = 0;
  long generation = -1;
  int blk_ilo = 0, blk_jlo = 0;
  std::size_t at(int i, int j, int k) const {
    return (static_cast<std::size_t>(k + 1) * static_cast<std::size_t>(nj + 3) + static_cast<std::size_t>(j + 1)) *
               static_cast<std::size_t>(ni + 3) +
           static_cast<std::size_t>(i + 1);
  }
};
FluidTable table;

// The columns of the box whose positions a block gives to the table: its
// own, and the box's ghost layers at the faces it touches.
void contribution(const Block& b, const PlanSplit& s, int& i0, int& i1, int& j0, int& j1) {
  i0 = b.a == 0 ? -1 : b.ilo;
  i1 = b.a == s.px - 1 ? imax + 1 : b.ihi;
  j0 = b.b == 0 ? -1 : b.jlo;
  j1 = b.b == s.py - 1 ? jmax + 1 : b.jhi;
}

inline bool holds(const Array3<int>& f, int i, int j, int k) {
  return i >= f.lo(0) && i <= f.hi(0) && j >= f.lo(1) && j <= f.hi(1) && k >= f.lo(2) && k <= f.hi(2);
}

// A request as the numbers that travel, and back.
constexpr int kRequestSize = 10;
std::array<double, kRequestSize> packed(const FarRequest& r) {
  return {static_cast<double>(r.kind), static_cast<double>(r.iq), static_cast<double>(r.jq),
          static_cast<double>(r.kq),   static_cast<double>(r.si), static_cast<double>(r.sj),
          static_cast<double>(r.sk),   r.qx,                      r.qy,
          r.qz};
}
FarRequest unpacked(const double* v) {
  return {static_cast<int>(v[0]), static_cast<int>(v[1]), static_cast<int>(v[2]), static_cast<int>(v[3]),
          static_cast<int>(v[4]), static_cast<int>(v[5]), static_cast<int>(v[6]), v[7],
          v[8],                   v[9]};
}
// The key of a request: its numbers bit for bit.
using Key = std::array<std::uint64_t, kRequestSize>;
Key key_of(const FarRequest& r) {
  const std::array<double, kRequestSize> p = packed(r);
  Key k;
  std::memcpy(k.data(), p.data(), sizeof(k));
  return k;
}

// The answers of this call, the requests of each thread since the last
// round, and the points that waited.
std::map<Key, std::array<double, 3>> answers;
std::vector<std::vector<FarRequest>> asked;
std::vector<std::vector<FarPoint>> waiting;
thread_local bool point_waits = false;
bool repeating = false;

void size_thread_lists() {
  const std::size_t n = static_cast<std::size_t>(std::max(1, omp_get_max_threads()));
  if (asked.size() < n) asked.resize(n);
  if (waiting.size() < n) waiting.resize(n);
}
std::size_t thread_slot() { return static_cast<std::size_t>(omp_get_thread_num()); }

// The process whose arrays hold the whole sample of an image point in cell
// (iq, jq): the owner of that column (a ghost layer belongs to the block at
// its face, a cell beyond it to the nearest).
int sample_owner(const FarRequest& r) {
  return owner_of(std::clamp(r.iq, 0, imax + 1), std::clamp(r.jq, 0, jmax + 1));
}

void answer(const FarRequest& r, double out[3]) {
  CellOfPoint c;
  c.iq = r.iq;
  c.jq = r.jq;
  c.kq = r.kq;
  c.si = r.si;
  c.sj = r.sj;
  c.sk = r.sk;
  c.xc = xmin + (c.iq - 0.5) * dx;
  c.yc = ymin + (c.jq - 0.5) * dy;
  c.zc = zmin + (c.kq - 0.5) * dz;
  out[0] = out[1] = out[2] = 0.0;
  switch (r.kind) {
    case kFarTri: tri_sample_here(c, r.qx, r.qy, r.qz, out); break;
    case kFarCloud: cloud_sample_here(r.qx, r.qy, r.qz, out); break;
    case kFarNutTri: out[0] = nut_tri_here(c, r.qx, r.qy, r.qz); break;
    default: out[0] = nut_cloud_here(r.qx, r.qy, r.qz); break;
  }
}

// Makes the table of fluid positions of the whole box current: gathered
// from every process when the classification has changed since the last
// call.  Every process calls it together.
void far_flags() {
  const Ownership& o = ownership();
  if (table.generation == classify_generation() && table.ni == imax && table.nj == jmax && table.nk == kmax &&
      table.blk_ilo == o.blk.ilo && table.blk_jlo == o.blk.jlo)
    return;
  table.generation = classify_generation();
  table.ni = imax;
  table.nj = jmax;
  table.nk = kmax;
  table.blk_ilo = o.blk.ilo;
  table.blk_jlo = o.blk.jlo;

  const Array3<int>* flags[4] = {&flagu, &flagv, &flagw, &flagc};
  const unsigned char bit[4] = {kFluidU, kFluidV, kFluidW, kFluidC};
  int i0, i1, j0, j1;
  contribution(o.blk, o.split, i0, i1, j0, j1);
  std::vector<unsigned char> mine;
  mine.reserve(static_cast<std::size_t>(i1 - i0 + 1) * static_cast<std::size_t>(j1 - j0 + 1) *
               static_cast<std::size_t>(kmax + 3));
  for (int k = -1; k <= kmax + 1; ++k)
    for (int j = j0; j <= j1; ++j)
      for (int i = i0; i <= i1; ++i) {
        unsigned char b = 0;
        for (int n = 0; n < 4; ++n)
          if (holds(*flags[n], i, j, k) && (*flags[n])(i, j, k) == 1) b |= bit[n];
        mine.push_back(b);
      }
  std::vector<unsigned char> all;
  allgather_bytes(mine, all);

  table.bits.assign(static_cast<std::size_t>(imax + 3) * static_cast<std::size_t>(jmax + 3) *
                        static_cast<std::size_t>(kmax + 3),
                    0);
  std::size_t m = 0;
  for (int r = 0; r < dist_size(); ++r) {
    contribution(block_of(o.split, r), o.split, i0, i1, j0, j1);
    for (int k = -1; k <= kmax + 1; ++k)
      for (int j = j0; j <= j1; ++j)
        for (int i = i0; i <= i1; ++i) table.bits[table.at(i, j, k)] = all[m++];
  }
}

// One round: the waiting points of this process into `again`, and the
// answers to every process's requests; false when no process has a point
// waiting.
bool far_round(std::vector<FarPoint>& again) {
  again.clear();
  for (auto& w : waiting) {
    again.insert(again.end(), w.begin(), w.end());
    w.clear();
  }
  if (dist_max(again.empty() ? 0.0 : 1.0) == 0.0) return false;

  // The requests to each owner, each once.
  std::vector<std::vector<double>> to(static_cast<std::size_t>(dist_size())), from;
  std::set<Key> sent;
  for (auto& list : asked) {
    for (const FarRequest& r : list)
      if (sent.insert(key_of(r)).second) {
        const std::array<double, kRequestSize> p = packed(r);
        auto& dest = to[static_cast<std::size_t>(sample_owner(r))];
        dest.insert(dest.end(), p.begin(), p.end());
      }
    list.clear();
  }
  send_each(to, from);

  // The answers to the other processes' requests, in their order.
  std::vector<std::vector<double>> replies(from.size()), back;
  for (std::size_t r = 0; r < from.size(); ++r)
    for (std::size_t m = 0; m + kRequestSize <= from[r].size(); m += kRequestSize) {
      double out[3];
      answer(unpacked(&from[r][m]), out);
      replies[r].insert(replies[r].end(), out, out + 3);
    }
  send_each(replies, back);

  for (std::size_t r = 0; r < to.size(); ++r)
    for (std::size_t m = 0, n = 0; m + kRequestSize <= to[r].size(); m += kRequestSize, n += 3) {
      const FarRequest q = unpacked(&to[r][m]);
      answers[key_of(q)] = {back[r][n], back[r][n + 1], back[r][n + 2]};
    }
  return true;
}

}  // namespace

bool far_on() { return ownership().on; }

bool far_fluid(unsigned char bit, int i, int j, int k) {
  if (i < -1 || i > imax + 1 || j < -1 || j > jmax + 1 || k < -1 || k > kmax + 1) return false;
  return (table.bits[table.at(i, j, k)] & bit) != 0;
}

bool far_sample(const FarRequest& r, double out[3]) {
  const auto a = answers.find(key_of(r));
  if (a != answers.end()) {
    out[0] = a->second[0];
    out[1] = a->second[1];
    out[2] = a->second[2];
    return true;
  }
  // Outside a forcing that holds rounds (no list for this thread) the
  // sample stays zero.
  if (thread_slot() < asked.size()) asked[thread_slot()].push_back(r);
  point_waits = true;
  out[0] = out[1] = out[2] = 0.0;
  return false;
}

void far_start() {
  far_flags();
  answers.clear();
  size_thread_lists();
  for (auto& a : asked) a.clear();
  for (auto& w : waiting) w.clear();
}

void far_begin_point() { point_waits = false; }

bool far_repeating() { return repeating; }

bool far_defer(int pass, int i, int j, int k) {
  if (!point_waits) return false;
  if (thread_slot() < waiting.size()) waiting[thread_slot()].push_back({pass, i, j, k});
  return true;
}

void far_rounds(const std::function<void(const FarPoint&)>& again) {
  std::vector<FarPoint> points;
  while (far_round(points)) {
    repeating = true;
    for (const FarPoint& p : points) again(p);
    repeating = false;
  }
}

}  // namespace rl
