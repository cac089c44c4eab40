#include "flow/inflow.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <istream>
#include <ostream>
#include <string>

namespace rl {

namespace {

constexpr double kKappa = 0.41;
// Nezu and Nakagawa's intensities over u*: streamwise, spanwise, vertical.
constexpr double kDu = 2.30, kDv = 1.63, kDw = 1.27;

// The eddy's shape along one direction: sqrt(3/2) (1 - |r|) inside |r| < 1,
// whose square integrates to 1 over r.
inline double bump(double r) {
  const double a = std::abs(r);
  return a < 1.0 ? 1.224744871391589 * (1.0 - a) : 0.0;
}

}  // namespace

double SyntheticInflow::draw() { return static_cast<double>(rng_() >> 11) * 0x1.0p-53; }

double SyntheticInflow::wet_height(int j, int k) const {
  if (!s_.counted.empty() &&
      !s_.counted[static_cast<std::size_t>(k - 1) * static_cast<std::size_t>(s_.nj) + (j - 1)])
    return 0.0;
  const double h = std::min(s_.zmin - s_.bed[static_cast<std::size_t>(j - 1)] + k * s_.dz, s_.dz);
  return h > 0.0 ? h : 0.0;
}

void SyntheticInflow::place(std::size_t e, double x) {
  ex_[e] = x;
  ey_[e] = y0_ + (y1_ - y0_) * draw();
  ez_[e] = z0_ + (z1_ - z0_) * draw();
  e1_[e] = draw() < 0.5 ? -1 : 1;
  e2_[e] = draw() < 0.5 ? -1 : 1;
  e3_[e] = draw() < 0.5 ? -1 : 1;
}

void SyntheticInflow::start(const InletSection& s, double discharge, double ks) {
  s_ = s;
  q_ = discharge;
  ks_ = ks;
  rng_ = std::mt19937_64();
  const std::size_t n = static_cast<std::size_t>(s.nj) * static_cast<std::size_t>(s.nk);
  mean_.assign(n, 0.0);
  a11_.assign(n, 0.0);
  a22_.assign(n, 0.0);
  a31_.assign(n, 0.0);
  a33_.assign(n, 0.0);
  const double top = s.zmin + s.nk * s.dz;
  // The log law's shape (u* = 1) and what it carries.
  double flux = 0.0, area = 0.0, lowest = top;
  std::vector<double> height(n, 0.0);
  for (int k = 1; k <= s.nk; ++k)
    for (int j = 1; j <= s.nj; ++j) {
      const double h = wet_height(j, k);
      if (h <= 0.0) continue;
      const std::size_t c = static_cast<std::size_t>(k - 1) * static_cast<std::size_t>(s.nj) + (j - 1);
      const double z = (s.zmin + k * s.dz - s.bed[static_cast<std::size_t>(j - 1)]) - 0.5 * h;
      height[c] = z;
      mean_[c] = std::max(0.0, std::log(30.0 * z / ks) / kKappa);
      flux += mean_[c] * s.dy * h;
      area += s.dy * h;
    }
  for (double b : s.bed) lowest = std::min(lowest, b);
  ustar_ = flux > 0.0 ? discharge / flux : 0.0;
  ubulk_ = area > 0.0 ? discharge / area : 0.0;
  for (std::size_t c = 0; c < n; ++c) {
    mean_[c] *= ustar_;
    if (height[c] <= 0.0) continue;
    const double depth = top - s.bed[c % static_cast<std::size_t>(s.nj)];
    const double xi = std::clamp(height[c] / depth, 0.0, 1.0), e = std::exp(-xi);
    const double ruu = (kDu * ustar_ * e) * (kDu * ustar_ * e), rvv = (kDv * ustar_ * e) * (kDv * ustar_ * e);
    const double rww = (kDw * ustar_ * e) * (kDw * ustar_ * e), ruw = -ustar_ * ustar_ * (1.0 - xi);
    a11_[c] = std::sqrt(ruu);
    a22_[c] = std::sqrt(rvv);
    a31_[c] = a11_[c] > 0.0 ? ruw / a11_[c] : 0.0;
    a33_[c] = std::sqrt(std::max(rww - a31_[c] * a31_[c], 0.0));
  }
  // The eddies: a box of the section's width and wet height, one eddy size
  // beyond each side, and as many eddies as eddy volumes fill it.
  const double width = s.nj * s.dy, mean_depth = width > 0.0 ? area / width : 0.0;
  sigma_ = std::max(0.2 * mean_depth, 1.5 * std::max(s.dy, s.dz));
  y0_ = -sigma_;
  y1_ = width + sigma_;
  z0_ = std::max(lowest, s.zmin) - sigma_;
  z1_ = top + sigma_;
  volume_ = 2.0 * sigma_ * (y1_ - y0_) * (z1_ - z0_);
  const std::size_t count =
      area > 0.0 ? std::max<std::size_t>(1, static_cast<std::size_t>(std::lround(volume_ / (sigma_ * sigma_ * sigma_))))
                 : 0;
  ex_.assign(count, 0.0);
  ey_.assign(count, 0.0);
  ez_.assign(count, 0.0);
  e1_.assign(count, 1);
  e2_.assign(count, 1);
  e3_.assign(count, 1);
  for (std::size_t e = 0; e < count; ++e) place(e, -sigma_ + 2.0 * sigma_ * draw());
}

void SyntheticInflow::advance(double dt) {
  const double step = ubulk_ * dt;
  for (std::size_t e = 0; e < ex_.size(); ++e) {
    const double x = ex_[e] + step;
    if (x > sigma_)
      place(e, x - 2.0 * sigma_ * std::ceil((x - sigma_) / (2.0 * sigma_)));
    else
      ex_[e] = x;
  }
}

void SyntheticInflow::plane(std::vector<double>& u, std::vector<double>& v, std::vector<double>& w) const {
  const int nj = s_.nj, nk = s_.nk;
  const std::size_t n = static_cast<std::size_t>(nj) * static_cast<std::size_t>(nk);
  std::vector<double> s1(n, 0.0), s2(n, 0.0), s3(n, 0.0);
  // Each eddy adds its bump to the cells within its reach.
  const double amp = ex_.empty() ? 0.0 : std::sqrt(volume_ / (sigma_ * sigma_ * sigma_) / ex_.size());
  for (std::size_t e = 0; e < ex_.size(); ++e) {
    const double fx = bump(ex_[e] / sigma_);
    if (fx == 0.0) continue;
    const int j0 = std::max(1, static_cast<int>(std::floor((ey_[e] - sigma_) / s_.dy + 0.5)));
    const int j1 = std::min(nj, static_cast<int>(std::ceil((ey_[e] + sigma_) / s_.dy + 0.5)));
    const int k0 = std::max(1, static_cast<int>(std::floor((ez_[e] - sigma_ - s_.zmin) / s_.dz + 0.5)));
    const int k1 = std::min(nk, static_cast<int>(std::ceil((ez_[e] + sigma_ - s_.zmin) / s_.dz + 0.5)));
    for (int k = k0; k <= k1; ++k) {
      const double fz = bump((s_.zmin + (k - 0.5) * s_.dz - ez_[e]) / sigma_);
      if (fz == 0.0) continue;
      for (int j = j0; j <= j1; ++j) {
        const double f = amp * fx * fz * bump(((j - 0.5) * s_.dy - ey_[e]) / sigma_);
        const std::size_t c = static_cast<std::size_t>(k - 1) * static_cast<std::size_t>(nj) + (j - 1);
        s1[c] += e1_[e] * f;
        s2[c] += e2_[e] * f;
        s3[c] += e3_[e] * f;
      }
    }
  }
  u.assign(n, 0.0);
  v.assign(n, 0.0);
  w.assign(n, 0.0);
  for (int k = 1; k <= nk; ++k)
    for (int j = 1; j <= nj; ++j) {
      if (wet_height(j, k) <= 0.0) continue;
      const std::size_t c = static_cast<std::size_t>(k - 1) * static_cast<std::size_t>(nj) + (j - 1);
      u[c] = mean_[c] + a11_[c] * s1[c];
      v[c] = a22_[c] * s2[c];
      w[c] = a31_[c] * s1[c] + a33_[c] * s3[c];
    }
  carry_discharge(u);
}

void SyntheticInflow::carry_discharge(std::vector<double>& u) const {
  const int nj = s_.nj, nk = s_.nk;
  double flux = 0.0, area = 0.0;
  for (int k = 1; k <= nk; ++k)
    for (int j = 1; j <= nj; ++j) {
      const double h = wet_height(j, k);
      if (h <= 0.0) continue;
      flux += u[static_cast<std::size_t>(k - 1) * static_cast<std::size_t>(nj) + (j - 1)] * s_.dy * h;
      area += s_.dy * h;
    }
  if (area <= 0.0) return;
  const double shift = (q_ - flux) / area;
  for (int k = 1; k <= nk; ++k)
    for (int j = 1; j <= nj; ++j)
      if (wet_height(j, k) > 0.0) u[static_cast<std::size_t>(k - 1) * static_cast<std::size_t>(nj) + (j - 1)] += shift;
}

void SyntheticInflow::save(std::ostream& out) const {
  out << ex_.size() << '\n' << std::hexfloat;
  for (std::size_t e = 0; e < ex_.size(); ++e)
    out << ex_[e] << ' ' << ey_[e] << ' ' << ez_[e] << ' ' << int{e1_[e]} << ' ' << int{e2_[e]} << ' '
        << int{e3_[e]} << '\n';
  out << std::defaultfloat << rng_ << '\n';
}

bool SyntheticInflow::load(std::istream& in) {
  std::size_t count = 0;
  if (!(in >> count) || count != ex_.size()) return false;
  for (std::size_t e = 0; e < count; ++e) {
    std::string x, y, z;
    int a = 0, b = 0, c = 0;
    if (!(in >> x >> y >> z >> a >> b >> c)) return false;
    ex_[e] = std::strtod(x.c_str(), nullptr);
    ey_[e] = std::strtod(y.c_str(), nullptr);
    ez_[e] = std::strtod(z.c_str(), nullptr);
    e1_[e] = static_cast<signed char>(a);
    e2_[e] = static_cast<signed char>(b);
    e3_[e] = static_cast<signed char>(c);
  }
  return static_cast<bool>(in >> rng_);
}

}  // namespace rl
