#include "results/saved.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "common/console.hpp"
#include "common/distributed.hpp"
#include "common/files.hpp"
#include "driver/fields.hpp"

namespace rl {

namespace {



// Buffered text output: numbers go through to_chars into a large buffer
// that is written out in big blocks.  Reals are written with 17 significant
// digits, which brings every double back bit for bit.
class TextOut {
 public:
  // Written beside the file as name.part and put in its place by commit(),
  // so that a kill or a full disk during the write leaves the last complete
  // file, not a torn one.
  explicit TextOut(const std::string& name)
      : name_(name), part_(name + ".part"), f_(std::fopen(part_.c_str(), "w")), buf_(kSize) {
    if (f_ == nullptr) open_failed(name);
  }
  TextOut(const TextOut&) = delete;
  TextOut& operator=(const TextOut&) = delete;
  ~TextOut() {
    close();
    if (!committed_) {
      std::error_code ec;
      std::filesystem::remove(part_, ec);
    }
  }

  void real(double x) {
    start_value();
    const auto r = std::to_chars(buf_.data() + n_, buf_.data() + n_ + kRoom, x, std::chars_format::general, 17);
    n_ = static_cast<std::size_t>(r.ptr - buf_.data());
  }
  void integer(int x) {
    start_value();
    const auto r = std::to_chars(buf_.data() + n_, buf_.data() + n_ + kRoom, x);
    n_ = static_cast<std::size_t>(r.ptr - buf_.data());
  }
  void end_line() {
    buf_[n_++] = '\n';
    first_ = true;
  }
  void close() {
    if (f_ == nullptr) return;
    flush();
    std::FILE* f = f_;
    f_ = nullptr;
    if (std::fclose(f) != 0) ok_ = false;
  }
  // Closes the file and puts it in place of the last; false (the last kept,
  // the part removed) when any write failed.
  bool commit() {
    close();
    committed_ = put_in_place(part_, name_, ok_);
    return committed_;
  }

 private:
  static constexpr std::size_t kSize = std::size_t{1} << 20;
  static constexpr std::size_t kRoom = 40;  // more than any one number takes

  void start_value() {
    if (n_ + kRoom + 2 > kSize) flush();
    if (!first_) buf_[n_++] = ' ';
    first_ = false;
  }
  void flush() {
    if (n_ > 0 && std::fwrite(buf_.data(), 1, n_, f_) != n_) ok_ = false;
    n_ = 0;
  }

  std::string name_, part_;
  bool ok_ = true, committed_ = false;
  std::FILE* f_;
  std::vector<char> buf_;
  std::size_t n_ = 0;
  bool first_ = true;
};

// Buffered token input: numbers separated by blanks, tabs or line ends,
// where a line break has no meaning of its own.
class TokenIn {
 public:
  explicit TokenIn(const std::string& name) : f_(std::fopen(name.c_str(), "r")), buf_(kSize) {
    if (f_ == nullptr) open_failed(name);
  }
  TokenIn(const TokenIn&) = delete;
  TokenIn& operator=(const TokenIn&) = delete;
  ~TokenIn() {
    if (f_ != nullptr) std::fclose(f_);
  }

  // The next token as [b, e); false at the end of the file (or for a token
  // longer than the buffer, which can't be a number).
  bool next(const char*& b, const char*& e) {
    for (;;) {
      while (pos_ < end_ && blank(buf_[pos_])) ++pos_;
      if (pos_ < end_) break;
      if (eof_) return false;
      refill();
    }
    std::size_t q = pos_;
    for (;;) {
      while (q < end_ && !blank(buf_[q])) ++q;
      if (q < end_ || eof_) break;
      if (pos_ == 0 && end_ == buf_.size()) return false;
      const std::size_t done = q - pos_;
      refill();
      q = done;
    }
    b = buf_.data() + pos_;
    e = buf_.data() + q;
    pos_ = q;
    return true;
  }

  bool real(double& x) {
    const char *b, *e;
    return next(b, e) && parse_real(b, e, x);
  }
  bool integer(int& x) {
    const char *b, *e;
    if (!next(b, e)) return false;
    if (e - b > 1 && *b == '+' && b[1] != '-' && b[1] != '+') ++b;
    const auto r = std::from_chars(b, e, x);
    return r.ec == std::errc() && r.ptr == e;
  }

 private:
  static constexpr std::size_t kSize = std::size_t{1} << 20;

  static bool blank(char c) {
    return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '\f' || c == '\v';
  }

  // A real in decimal form; a leading plus sign and a Fortran-style D
  // exponent are taken as well.
  static bool parse_real(const char* b, const char* e, double& x) {
    if (e - b > 1 && *b == '+' && b[1] != '-' && b[1] != '+') ++b;
    auto r = std::from_chars(b, e, x, std::chars_format::general);
    if (r.ec != std::errc()) return false;
    if (r.ptr == e) return true;
    if ((*r.ptr != 'd' && *r.ptr != 'D') || e - b >= 64) return false;
    char t[64];
    std::size_t n = 0;
    for (const char* c = b; c != e; ++c) t[n++] = (*c == 'd' || *c == 'D') ? 'e' : *c;
    r = std::from_chars(t, t + n, x, std::chars_format::general);
    return r.ec == std::errc() && r.ptr == t + n;
  }

  // Moves the unread part to the front and fills the rest of the buffer.
  void refill() {
    const std::size_t keep = end_ - pos_;
    if (pos_ > 0 && keep > 0) std::memmove(buf_.data(), buf_.data() + pos_, keep);
    pos_ = 0;
    end_ = keep;
    const std::size_t want = buf_.size() - end_;
    const std::size_t got = std::fread(buf_.data() + end_, 1, want, f_);
    end_ += got;
    if (got < want) eof_ = true;
  }

  std::FILE* f_;
  std::vector<char> buf_;
  std::size_t pos_ = 0, end_ = 0;
  bool eof_ = false;
};

// The slot list is sized for one entry at allocation; a saved file that
// holds more entries gets the list enlarged as its entries are read (in
// doubling steps), rather than written past its end.  Growing on the
// entries themselves, not on the count, means that a file which announces
// more entries than it holds ends in the read error, not in an attempt to
// take memory for entries that never come.  A failed allocation stops the
// run with the allocation error.
void fit_slots(int n) {
  if (n <= slotflag.hi(0)) return;
  const int cap = std::max(n, slotflag.hi(0) > INT32_MAX / 2 ? INT32_MAX : 2 * slotflag.hi(0));
  auto grow = [cap](auto& a, const char* name) {
    std::remove_reference_t<decltype(a)> b;
    if (!b.allocate(name, 1, cap)) ERRORSTOP(2);
    for (int m = 1; m <= a.hi(0); ++m) b(m) = a(m);
    a = std::move(b);
  };
  grow(slot1, "slot1");
  grow(slot2, "slot2");
  grow(slot3, "slot3");
  grow(slot4, "slot4");
  grow(slot5, "slot5");
  grow(slot6, "slot6");
  grow(slotflag, "slotflag");
}

}  // namespace

std::string beside_saved(const std::string& dat, const char* ext) {
  return (dat.size() > 4 && dat.ends_with(".dat") ? dat.substr(0, dat.size() - 4) : dat) + ext;
}

std::string saved_file_name(const std::string& outpath, const std::string& outfile) {
  return strip_blanks(outpath) + "/" + strip_blanks(outfile) + ".dat";
}

namespace {

// Over several processes the file is the same as from one: the first
// process writes and reads it, a plane k at a time, the others give it
// their part of each plane or take theirs from it.

// The part of plane k of a level's phi (0..n+1 along x and y) that this
// process gives: its block, with the box's ghost layers where it touches a
// face; a level held whole by every process is given by the first alone.
Box owned_phi_plane(int l, int k) {
  const MGLEVEL& g = pmg(l);
  Box b{0, g.nx + 1, 0, g.ny + 1, k, k};
  if (l == 0) {
    b = {own_lo_i(0), own_hi_i(g.nx + 1), own_lo_j(0), own_hi_j(g.ny + 1), k, k};
  } else if (level_cut_here(l)) {
    const LevelCut& c = level_cut(l);
    b = {c.west ? 0 : c.blk.ilo, c.east ? g.nx + 1 : c.blk.ihi, c.south ? 0 : c.blk.jlo,
         c.north ? g.ny + 1 : c.blk.jhi, k, k};
  } else if (!first_process()) {
    b = Box();
  }
  return b;
}

// The part of plane k that this process holds of a field (its block and
// halo, or the whole plane).
template <typename A>
Box held_plane(const A& a, int k) {
  return {a.lo(0), a.hi(0), a.lo(1), a.hi(1), k, k};
}

}  // namespace

void WRITESAVED(int nstep, double time, const std::string& outpath, const std::string& outfile) {
  const bool first = first_process();
  std::optional<TextOut> out;
  if (first) out.emplace(saved_file_name(outpath, outfile));
  const int I = imax, J = jmax, K = kmax;

  // 1: step counter and time.
  if (first) {
    out->integer(nstep);
    out->real(time);
    out->end_line();
  }

  // 2: phi of every level, one value a line, in its storage order (k, j, i
  // over 0..n+1).
  for (int l = lmin; l <= 0; ++l) {
    const MGLEVEL& g = pmg(l);
    write_planes(
        owned_phi_plane(l, 0), Box{0, g.nx + 1, 0, g.ny + 1}, 0, g.nz + 1, 1, 1,
        [&](const Box& b, std::vector<double>& mine) { pack_box({&g.phi}, b, mine); },
        [&](int, int, const std::vector<double>& plane) {
          for (double x : plane) {
            out->real(x);
            out->end_line();
          }
        });
  }

  // 3: the old velocities, old right-hand sides and eddy viscosity, the
  // seven values of a cell on a line.
  const std::size_t n = static_cast<std::size_t>(I + 2) * static_cast<std::size_t>(J + 2);
  write_planes(
      Box{own_lo_i(0), own_hi_i(I + 1), own_lo_j(0), own_hi_j(J + 1)}, Box{0, I + 1, 0, J + 1}, 0, K + 1, 1, 7,
      [](const Box& b, std::vector<double>& mine) { pack_box({&uo, &vo, &wo, &rhsuo, &rhsvo, &rhswo, &nut}, b, mine); },
      [&](int, int, const std::vector<double>& plane) {
        for (std::size_t m = 0; m < n; ++m) {
          for (std::size_t q = 0; q < 7; ++q) out->real(plane[q * n + m]);
          out->end_line();
        }
      });
  if (!first) return;

  // 4: the bed, one value a line.
  for (int j = 0; j <= J + 1; ++j) {
    const double* b = bed.at(0, j);
    for (int i = 0; i <= I + 1; ++i) {
      out->real(b[i]);
      out->end_line();
    }
  }

  // 5 and 6: the used slot entries.
  int count = 0;
  for (int m = 1; m <= nslot; ++m)
    if (slotflag(m) == 1) ++count;
  out->integer(count);
  out->end_line();
  for (int m = 1; m <= nslot; ++m) {
    if (slotflag(m) != 1) continue;
    out->real(slot1(m));
    out->real(slot2(m));
    out->real(slot3(m));
    out->real(slot4(m));
    out->real(slot5(m));
    out->real(slot6(m));
    out->end_line();
  }
  if (!out->commit())
    std::fprintf(stderr, "riverles: warning: cannot write the saved state %s (disk full?); the last one is kept\n",
                 saved_file_name(outpath, outfile).c_str());
}

void READSAVED(const std::string& startfile) {
  // The name is taken as it stands; only the blank padding of a 200-character
  // name is not part of it.
  const bool first = first_process();
  std::optional<TokenIn> in;
  if (first) in.emplace(startfile.substr(0, startfile.find_last_not_of(' ') + 1));
  const int I = imax, J = jmax, K = kmax;
  auto real = [&](double& x) {
    if (!in->real(x)) ERRORSTOP(3);
  };

  // 1
  if (first) {
    if (!in->integer(nstep)) ERRORSTOP(3);
    real(simtime);
  }
  dist_bcast(&nstep, 1);
  dist_bcast(&simtime, 1);

  // 2
  for (int l = lmin; l <= 0; ++l) {
    MGLEVEL& g = pmg(l);
    read_planes(
        held_plane(g.phi, 0), Box{0, g.nx + 1, 0, g.ny + 1}, 0, g.nz + 1, 1,
        [&](int, std::vector<double>& plane) {
          for (double& x : plane) real(x);
          return true;
        },
        [&](const Box& part, const std::vector<double>& mine) { unpack_box({&g.phi}, part, mine); });
  }

  // 3
  const std::size_t n = static_cast<std::size_t>(I + 2) * static_cast<std::size_t>(J + 2);
  read_planes(
      held_plane(nut, 0), Box{0, I + 1, 0, J + 1}, 0, K + 1, 7,
      [&](int, std::vector<double>& plane) {
        for (std::size_t m = 0; m < n; ++m)
          for (std::size_t q = 0; q < 7; ++q) real(plane[q * n + m]);
        return true;
      },
      [](const Box& part, const std::vector<double>& mine) {
        unpack_box({&uo, &vo, &wo, &rhsuo, &rhsvo, &rhswo, &nut}, part, mine);
      });

  // The step's velocities start as the saved ones, over the whole arrays:
  // layer -1, which the file doesn't hold, is whatever uo, vo, wo hold there.
  std::copy(uo.data(), uo.data() + uo.size(), u.data());
  std::copy(vo.data(), vo.data() + vo.size(), v.data());
  std::copy(wo.data(), wo.data() + wo.size(), w.data());

  // 4: the saved bed replaces the one built from the case grid.
  if (first)
    for (int j = 0; j <= J + 1; ++j) {
      double* b = bed.at(0, j);
      for (int i = 0; i <= I + 1; ++i) real(b[i]);
    }
  dist_bcast(bed.data(), static_cast<int>(bed.size()));

  // 5 and 6
  if (first) {
    if (!in->integer(nslot)) ERRORSTOP(3);
    for (int m = 1; m <= nslot; ++m) {
      fit_slots(m);
      real(slot1(m));
      real(slot2(m));
      real(slot3(m));
      real(slot4(m));
      real(slot5(m));
      real(slot6(m));
      slotflag(m) = 1;
    }
  }
  if (dist_size() > 1) {
    dist_bcast(&nslot, 1);
    Array1<double>* const slots[6] = {&slot1, &slot2, &slot3, &slot4, &slot5, &slot6};
    std::vector<double> e(6 * static_cast<std::size_t>(std::max(nslot, 0)));
    for (int m = 1; m <= nslot && first; ++m)
      for (std::size_t q = 0; q < 6; ++q) e[6 * static_cast<std::size_t>(m - 1) + q] = (*slots[q])(m);
    dist_bcast(e.data(), static_cast<int>(e.size()));
    for (int m = 1; m <= nslot && !first; ++m) {
      fit_slots(m);
      for (std::size_t q = 0; q < 6; ++q) (*slots[q])(m) = e[6 * static_cast<std::size_t>(m - 1) + q];
      slotflag(m) = 1;
    }
  }
}

}  // namespace rl
