#include "results/saved.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "common/console.hpp"
#include "common/files.hpp"
#include "driver/fields.hpp"

namespace rl {

void ERRORSTOP(int code) {
  if (code == 1) say("ERROR : Failed to read the parameters ...");
  if (code == 2) say("ERROR : Failed to allocate the arrays ...");
  if (code == 3) say("ERROR : Failed to read the saved results ...");
  wait_operator();
  throw RunStopped{1};
}

namespace {



// Buffered text output: numbers go through to_chars into a large buffer
// that is written out in big blocks.  Reals are written with 17 significant
// digits, which brings every double back bit for bit.
class TextOut {
 public:
  explicit TextOut(const std::string& name) : f_(std::fopen(name.c_str(), "w")), buf_(kSize) {
    if (f_ == nullptr) open_failed(name);
  }
  TextOut(const TextOut&) = delete;
  TextOut& operator=(const TextOut&) = delete;
  ~TextOut() { close(); }

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
    std::fclose(f);
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
    if (n_ > 0) std::fwrite(buf_.data(), 1, n_, f_);
    n_ = 0;
  }

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

std::string saved_file_name(const std::string& outpath, const std::string& outfile) {
  return strip_blanks(outpath) + "/" + strip_blanks(outfile) + ".dat";
}

void WRITESAVED(int nstep, double time, const std::string& outpath, const std::string& outfile) {
  TextOut out(saved_file_name(outpath, outfile));
  const int I = imax, J = jmax, K = kmax;

  // 1: step counter and time.
  out.integer(nstep);
  out.real(time);
  out.end_line();

  // 2: phi of every level, one value a line; the loops run over the whole
  // array, which is its storage order.
  for (int l = lmin; l <= 0; ++l) {
    const Array3<double>& ph = pmg(l).phi;
    const double* d = ph.data();
    for (std::int64_t n = 0; n < ph.size(); ++n) {
      out.real(d[n]);
      out.end_line();
    }
  }

  // 3: the old velocities, old right-hand sides and eddy viscosity.
  for (int k = 0; k <= K + 1; ++k) {
    for (int j = 0; j <= J + 1; ++j) {
      const double* a = uo.at(0, j, k);
      const double* b = vo.at(0, j, k);
      const double* c = wo.at(0, j, k);
      const double* d = rhsuo.at(0, j, k);
      const double* e = rhsvo.at(0, j, k);
      const double* f = rhswo.at(0, j, k);
      const double* g = nut.at(0, j, k);
      for (int i = 0; i <= I + 1; ++i) {
        out.real(a[i]);
        out.real(b[i]);
        out.real(c[i]);
        out.real(d[i]);
        out.real(e[i]);
        out.real(f[i]);
        out.real(g[i]);
        out.end_line();
      }
    }
  }

  // 4: the bed, one value a line.
  for (int j = 0; j <= J + 1; ++j) {
    const double* b = bed.at(0, j);
    for (int i = 0; i <= I + 1; ++i) {
      out.real(b[i]);
      out.end_line();
    }
  }

  // 5 and 6: the used slot entries.
  int count = 0;
  for (int n = 1; n <= nslot; ++n)
    if (slotflag(n) == 1) ++count;
  out.integer(count);
  out.end_line();
  for (int n = 1; n <= nslot; ++n) {
    if (slotflag(n) != 1) continue;
    out.real(slot1(n));
    out.real(slot2(n));
    out.real(slot3(n));
    out.real(slot4(n));
    out.real(slot5(n));
    out.real(slot6(n));
    out.end_line();
  }
  out.close();
}

void READSAVED(const std::string& startfile) {
  // The name is taken as it stands; only the blank padding of a 200-character
  // name is not part of it.
  TokenIn in(startfile.substr(0, startfile.find_last_not_of(' ') + 1));
  const int I = imax, J = jmax, K = kmax;
  auto real = [&](double& x) {
    if (!in.real(x)) ERRORSTOP(3);
  };

  // 1
  if (!in.integer(nstep)) ERRORSTOP(3);
  real(simtime);

  // 2
  for (int l = lmin; l <= 0; ++l) {
    Array3<double>& ph = pmg(l).phi;
    double* d = ph.data();
    for (std::int64_t n = 0; n < ph.size(); ++n) real(d[n]);
  }

  // 3
  for (int k = 0; k <= K + 1; ++k) {
    for (int j = 0; j <= J + 1; ++j) {
      double* a = uo.at(0, j, k);
      double* b = vo.at(0, j, k);
      double* c = wo.at(0, j, k);
      double* d = rhsuo.at(0, j, k);
      double* e = rhsvo.at(0, j, k);
      double* f = rhswo.at(0, j, k);
      double* g = nut.at(0, j, k);
      for (int i = 0; i <= I + 1; ++i) {
        real(a[i]);
        real(b[i]);
        real(c[i]);
        real(d[i]);
        real(e[i]);
        real(f[i]);
        real(g[i]);
      }
    }
  }

  // The step's velocities start as the saved ones, over the whole arrays:
  // layer -1, which the file doesn't hold, is whatever uo, vo, wo hold there.
  std::copy(uo.data(), uo.data() + uo.size(), u.data());
  std::copy(vo.data(), vo.data() + vo.size(), v.data());
  std::copy(wo.data(), wo.data() + wo.size(), w.data());

  // 4: the saved bed replaces the one built from the case grid.
  for (int j = 0; j <= J + 1; ++j) {
    double* b = bed.at(0, j);
    for (int i = 0; i <= I + 1; ++i) real(b[i]);
  }

  // 5 and 6
  if (!in.integer(nslot)) ERRORSTOP(3);
  for (int n = 1; n <= nslot; ++n) {
    fit_slots(n);
    real(slot1(n));
    real(slot2(n));
    real(slot3(n));
    real(slot4(n));
    real(slot5(n));
    real(slot6(n));
    slotflag(n) = 1;
  }
}

}  // namespace rl
