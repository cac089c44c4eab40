#include "flow/tecplot.hpp"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "common/console.hpp"
#include "common/distributed.hpp"
#include "common/files.hpp"
#include "driver/fields.hpp"

namespace rl {

namespace {



// Names live in 200-character buffers: a longer one is cut, and the blanks
// at the end of the buffer are no part of the name.
std::string fit_name(std::string s) {
  if (s.size() > 200) s.resize(200);
  const std::size_t e = s.find_last_not_of(' ');
  s.resize(e == std::string::npos ? 0 : e + 1);
  return s;
}

const char* const kTitle = " TITLE = \"3D Navier-Stockes Equations\" ";

// Output in large blocks.
class BlockOut {
 public:
  explicit BlockOut(std::FILE* f) : f_(f), buf_(kSize) {}
  ~BlockOut() { flush(); }
  BlockOut(const BlockOut&) = delete;
  BlockOut& operator=(const BlockOut&) = delete;

  // Room for at least `n` more characters.
  char* room(std::size_t n) {
    if (n_ + n > kSize) flush();
    return buf_.data() + n_;
  }
  void advance(std::size_t n) { n_ += n; }
  void line(const std::string& s) {
    char* p = room(s.size() + 1);
    std::memcpy(p, s.data(), s.size());
    p[s.size()] = '\n';
    advance(s.size() + 1);
  }
  void flush() {
    if (n_ > 0) std::fwrite(buf_.data(), 1, n_, f_);
    n_ = 0;
  }

 private:
  static constexpr std::size_t kSize = std::size_t{1} << 20;
  std::FILE* f_;
  std::vector<char> buf_;
  std::size_t n_ = 0;
};

}  // namespace

std::string tecplot_file_name(const std::string& outpath, const std::string& outfile, int n) {
  return fit_name(strip_blanks(outpath) + "/" + strip_blanks(outfile) + std::to_string(n) + ".plt");
}

int tecplot_field(double x, char* out) {
  constexpr int kWidth = 20;
  char body[32];
  int len = 0;
  if (std::isnan(x)) {
    std::memcpy(body, "NaN", 3);
    len = 3;
  } else if (std::isinf(x)) {
    len = x < 0 ? 9 : 8;
    std::memcpy(body, x < 0 ? "-Infinity" : "Infinity", static_cast<std::size_t>(len));
  } else {
    // Mantissa .dddddddddddddd (14 digits, rounded) times 10 to the e10.
    char digits[14];
    int e10 = 0;
    const double a = std::fabs(x);
    if (a == 0.0) {
      std::memset(digits, '0', sizeof digits);
    } else {
      char t[40];
      const auto r = std::to_chars(t, t + sizeof t, a, std::chars_format::scientific, 13);
      // t holds d.ddddddddddddde[+-]xx
      digits[0] = t[0];
      std::memcpy(digits + 1, t + 2, 13);
      const char* p = t + 16;  // the exponent's sign
      int ex = 0;
      for (const char* c = p + 1; c < r.ptr; ++c) ex = ex * 10 + (*c - '0');
      e10 = (*p == '-' ? -ex : ex) + 1;
    }
    if (std::signbit(x)) body[len++] = '-';
    body[len++] = '.';
    std::memcpy(body + len, digits, sizeof digits);
    len += static_cast<int>(sizeof digits);
    body[len++] = 'E';
    // The exponent as short as it must be for a blank to lead the field:
    // sign and two digits, else sign and its digits, else its digits alone.
    const int room = kWidth - 1 - len;
    const int mag = e10 < 0 ? -e10 : e10;
    const int nd = mag >= 100 ? 3 : mag >= 10 ? 2 : 1;
    int width = nd < 2 ? 2 : nd;  // at least two digits
    bool sign = true;
    if (1 + width > room) width = nd;
    if (1 + width > room && e10 >= 0) sign = false;
    if (sign) body[len++] = e10 < 0 ? '-' : '+';
    for (int d = width - 1, r = mag; d >= 0; --d, r /= 10) body[len + d] = static_cast<char>('0' + r % 10);
    len += width;
  }
  const int pad = len < kWidth ? kWidth - len : 1;
  std::memset(out, ' ', static_cast<std::size_t>(pad));
  std::memcpy(out + pad, body, static_cast<std::size_t>(len));
  return pad + len;
}

namespace {

// The node values u, v, w, vort, Q of plane k over the nodes i0..i1,
// j0..j1, packed quantity after quantity, j, i with i fastest; a node at or
// below the bed (the mean of the four bed cells around it) gets zeros.
void tecplot_plane(int k, int i0, int i1, int j0, int j1, std::vector<double>& vals) {
  const std::size_t n = static_cast<std::size_t>(i1 - i0 + 1) * static_cast<std::size_t>(j1 - j0 + 1);
  vals.assign(5 * n, 0.0);
  if (n == 0) return;
  const double z = static_cast<double>(k) * dz + zmin;
  std::size_t m = 0;
  for (int j = j0; j <= j1; ++j) {
    const double* b0 = bed.at(0, j);
    const double* b1 = bed.at(0, j + 1);
    const double* u00 = u.row(j, k);
    const double* u10 = u.row(j + 1, k);
    const double* u01 = u.row(j, k + 1);
    const double* u11 = u.row(j + 1, k + 1);
    const double* v0 = v.row(j, k);
    const double* v1 = v.row(j, k + 1);
    const double* w0 = w.row(j, k);
    const double* w1 = w.row(j + 1, k);
    const double* r00 = vort.row(j, k);
    const double* r10 = vort.row(j + 1, k);
    const double* r01 = vort.row(j, k + 1);
    const double* r11 = vort.row(j + 1, k + 1);
    const double* q00 = Q.row(j, k);
    const double* q10 = Q.row(j + 1, k);
    const double* q01 = Q.row(j, k + 1);
    const double* q11 = Q.row(j + 1, k + 1);
    for (int i = i0; i <= i1; ++i, ++m) {
      const double B = (b0[i] + b0[i + 1] + b1[i] + b1[i + 1]) * 0.25;
      if (B >= z) continue;
      vals[m] = (u00[i] + u10[i] + u01[i] + u11[i]) * 0.25;
      vals[n + m] = (v0[i] + v0[i + 1] + v1[i] + v1[i + 1]) * 0.25;
      vals[2 * n + m] = (w0[i] + w0[i + 1] + w1[i] + w1[i + 1]) * 0.25;
      vals[3 * n + m] =
          (r00[i] + r00[i + 1] + r10[i] + r10[i + 1] + r01[i] + r01[i + 1] + r11[i] + r11[i + 1]) * 0.125;
      vals[4 * n + m] =
          (q00[i] + q00[i + 1] + q10[i] + q10[i + 1] + q01[i] + q01[i + 1] + q11[i] + q11[i + 1]) * 0.125;
    }
  }
}

}  // namespace

void WRITETECPLOT(const std::string& outpath, const std::string& outfile, int n) {
  // Over several processes each computes the nodes of its block (node i
  // lies between cells i and i + 1, reading one column of the neighbour's),
  // and the first process writes the file a plane k at a time.
  const bool first = first_process();
  std::FILE* f = nullptr;
  std::optional<BlockOut> out;
  if (first) {
    const std::string name = tecplot_file_name(outpath, outfile, n);
    f = std::fopen(name.c_str(), "w");
    if (f == nullptr) open_failed(name);
    std::rewind(f);
    out.emplace(f);
    out->line(kTitle);
    out->line(" VARIABLES = x, y, z, u, v, w, vort, Q ");
    out->line(" ZONE , i=" + std::to_string(imax + 1) + " j= " + std::to_string(jmax + 1) +
              " K= " + std::to_string(kmax + 1) + ", F=POINT");
  }

  const int I = imax, J = jmax, K = kmax;
  const std::size_t nodes = static_cast<std::size_t>(I + 1) * static_cast<std::size_t>(J + 1);
  auto pack = [](const Box& b, std::vector<double>& mine) { tecplot_plane(b.k0, b.i0, b.i1, b.j0, b.j1, mine); };
  write_planes(Box{own_lo_i(0), own_hi_i(I), own_lo_j(0), own_hi_j(J)}, Box{0, I, 0, J}, 0, K, 1, 5, pack,
               [&](int k, int, const std::vector<double>& plane) {
    const double z = static_cast<double>(k) * dz + zmin;
    std::size_t m = 0;
    for (int j = 0; j <= J; ++j) {
      const double y = static_cast<double>(j) * dy + ymin;
      for (int i = 0; i <= I; ++i, ++m) {
        const double x = static_cast<double>(i) * dx + xmin;
        const double vals[8] = {x, y, z, plane[m], plane[nodes + m], plane[2 * nodes + m], plane[3 * nodes + m],
                                plane[4 * nodes + m]};
        char* p = out->room(8 * 32 + 1);
        std::size_t c = 0;
        for (double val : vals) c += static_cast<std::size_t>(tecplot_field(val, p + c));
        p[c++] = '\n';
        out->advance(c);
      }
    }
  });
  if (!first) return;
  out.reset();
  std::fclose(f);
}

void WRITETECBED(int n) {
  std::string name = "c:/temp/tecbedform";
  name += std::to_string(n);
  name += ".plt";
  std::FILE* f = std::fopen(name.c_str(), "w");
  if (f == nullptr) open_failed(name);
  {
    BlockOut out(f);
    out.line(kTitle);
    out.line(" VARIABLES = x, y, z");
    out.line(" ZONE , i=" + std::to_string(imax + 1) + " j= " + std::to_string(jmax + 1) + ", F=POINT");
    for (int j = 0; j <= jmax; ++j) {
      const double y = static_cast<double>(j) * dy + ymin;
      for (int i = 0; i <= imax; ++i) {
        const double x = static_cast<double>(i) * dx + xmin;
        const double B = (bed(i, j) + bed(i + 1, j) + bed(i, j + 1) + bed(i + 1, j + 1)) * 0.25;
        std::string l(1, ' ');
        l += free_real(x);
        l += ' ';
        l += free_real(y);
        l += ' ';
        l += free_real(B);
        out.line(l);
      }
    }
  }
  std::fclose(f);
}

}  // namespace rl
