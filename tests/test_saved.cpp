// Saved-state files: bit-exact round trip, record order, the slot list,
// file names and the stop on a file that can't be read.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "common/console.hpp"
#include "driver/fields.hpp"
#include "results/saved.hpp"

namespace fs = std::filesystem;

namespace {

std::uint64_t bits(double x) {
  std::uint64_t b;
  std::memcpy(&b, &x, sizeof b);
  return b;
}

// A fresh empty folder for one test.
std::string fresh_dir(const std::string& name) {
  const fs::path d = fs::path(testing::TempDir()) / ("riverles_saved_" + name);
  fs::remove_all(d);
  fs::create_directories(d);
  return d.string();
}

void set_sizes(int I, int J, int K) {
  rl::imax = I;
  rl::jmax = J;
  rl::kmax = K;
  rl::LEVELCOUNT();
  rl::ALLOCFIELDS();
}

// Doubles from random bit patterns (every exponent, both signs, subnormals
// and infinities; no NaN, whose payload text can't carry).
struct BitSource {
  std::uint64_t s = 0x9E3779B97F4A7C15ull;
  double next() {
    for (;;) {
      s += 0x9E3779B97F4A7C15ull;
      std::uint64_t z = s;
      z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
      z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
      z ^= z >> 31;
      double x;
      std::memcpy(&x, &z, sizeof x);
      if (x == x) return x;
    }
  }
};

void fill(rl::Array3<double>& a, BitSource& g) {
  for (std::int64_t n = 0; n < a.size(); ++n) a.data()[n] = g.next();
}

std::vector<std::uint64_t> snapshot(const rl::Array3<double>& a) {
  std::vector<std::uint64_t> s(static_cast<std::size_t>(a.size()));
  for (std::int64_t n = 0; n < a.size(); ++n) s[static_cast<std::size_t>(n)] = bits(a.data()[n]);
  return s;
}

std::string read_file(const std::string& name) {
  std::ifstream f(name, std::ios::binary);
  std::stringstream s;
  s << f.rdbuf();
  return s.str();
}

void write_file(const std::string& name, const std::string& text) {
  std::ofstream f(name, std::ios::binary | std::ios::trunc);
  f << text;
}

// Runs READSAVED with an operator who presses Enter; returns what it printed
// and whether the run was stopped.
struct ReadOutcome {
  bool stopped = false;
  std::string printed;
};
ReadOutcome read_with_operator(const std::string& name) {
  std::istringstream enter("\n");
  std::streambuf* old = std::cin.rdbuf(enter.rdbuf());
  ReadOutcome r;
  testing::internal::CaptureStdout();
  try {
    rl::READSAVED(name);
  } catch (const rl::RunStopped&) {
    r.stopped = true;
  }
  r.printed = testing::internal::GetCapturedStdout();
  std::cin.rdbuf(old);
  return r;
}

// s with n characters at `at` replaced by `with`.
std::string splice(const std::string& s, std::size_t at, std::size_t n, const char* with) {
  std::string r;
  r.append(s, 0, at);
  r.append(with);
  r.append(s, at + n, std::string::npos);
  return r;
}

const char* const kReadFailure = "ERROR : Failed to read the saved results ...\n";

}  // namespace

TEST(Saved, RoundTripRestoresEveryBit) {
  set_sizes(5, 4, 4);
  ASSERT_EQ(rl::lmin, -2);
  BitSource g;
  for (int l = rl::lmin; l <= 0; ++l) fill(rl::pmg(l).phi, g);
  for (rl::Array3<double>* a : {&rl::uo, &rl::vo, &rl::wo, &rl::rhsuo, &rl::rhsvo, &rl::rhswo, &rl::nut}) fill(*a, g);
  for (std::int64_t n = 0; n < rl::bed.size(); ++n) rl::bed.data()[n] = g.next();
  // A few values that text formats like to get wrong.
  rl::uo(0, 0, 0) = -0.0;
  rl::uo(1, 0, 0) = 4.9406564584124654e-324;
  rl::uo(2, 0, 0) = 0.1;
  rl::uo(3, 0, 0) = 1.0 / 3.0;
  rl::uo(4, 0, 0) = -1.7976931348623157e308;
  rl::nut(6, 5, 5) = -std::numeric_limits<double>::infinity();
  const double t = 2.0 / 3.0 * 1e-7;

  std::vector<std::vector<std::uint64_t>> phis;
  for (int l = rl::lmin; l <= 0; ++l) phis.push_back(snapshot(rl::pmg(l).phi));
  std::vector<std::vector<std::uint64_t>> cell;
  for (rl::Array3<double>* a : {&rl::uo, &rl::vo, &rl::wo, &rl::rhsuo, &rl::rhsvo, &rl::rhswo, &rl::nut})
    cell.push_back(snapshot(*a));
  std::vector<std::uint64_t> bed0;
  for (std::int64_t n = 0; n < rl::bed.size(); ++n) bed0.push_back(bits(rl::bed.data()[n]));

  const std::string dir = fresh_dir("roundtrip");
  rl::WRITESAVED(17, t, dir, "state");
  const std::string name = dir + "/state.dat";
  ASSERT_TRUE(fs::exists(name));

  // The layout: one record a line, phi and bed one value a line, seven
  // values a line for the cell group, the count of 0 last.
  {
    std::istringstream f(read_file(name));
    std::vector<int> per_line;
    std::string line;
    while (std::getline(f, line)) {
      std::istringstream ls(line);
      std::string tok;
      int n = 0;
      while (ls >> tok) ++n;
      per_line.push_back(n);
    }
    const int nphi = 7 * 6 * 6 + 4 * 4 * 4 + 3 * 3 * 3;  // levels 0, -1, -2
    const int ncell = 7 * 6 * 6, nbed = 7 * 6;
    ASSERT_EQ(per_line.size(), static_cast<std::size_t>(1 + nphi + ncell + nbed + 1));
    EXPECT_EQ(per_line[0], 2);
    for (int n = 1; n <= nphi; ++n) ASSERT_EQ(per_line[n], 1) << "line " << n;
    for (int n = 1 + nphi; n < 1 + nphi + ncell; ++n) ASSERT_EQ(per_line[n], 7) << "line " << n;
    for (int n = 1 + nphi + ncell; n < 1 + nphi + ncell + nbed; ++n) ASSERT_EQ(per_line[n], 1) << "line " << n;
    EXPECT_EQ(per_line.back(), 1);
    EXPECT_EQ(read_file(name).substr(read_file(name).size() - 2), "0\n");
  }

  // Read back into a fresh store.  Layer -1 of the old velocities is not in
  // the file: what uo, vo, wo hold there must reach u, v, w.
  set_sizes(5, 4, 4);
  for (int k = 0; k <= 5; ++k)
    for (int j = 0; j <= 5; ++j) {
      rl::uo(-1, j, k) = 1000.0 + j + 10.0 * k;
      rl::vo(j, -1, k) = 2000.0 + j + 10.0 * k;
      rl::wo(j, k, -1) = 3000.0 + j + 10.0 * k;
    }
  rl::u.fill(99.0);
  rl::v.fill(99.0);
  rl::w.fill(99.0);
  rl::p.fill(5.0);
  rl::nstep = 0;
  rl::simtime = 0.0;
  const ReadOutcome r = read_with_operator(name);
  ASSERT_FALSE(r.stopped) << r.printed;
  EXPECT_EQ(r.printed, "");

  EXPECT_EQ(rl::nstep, 17);
  EXPECT_EQ(bits(rl::simtime), bits(t));
  for (int l = rl::lmin; l <= 0; ++l) EXPECT_EQ(snapshot(rl::pmg(l).phi), phis[static_cast<std::size_t>(l - rl::lmin)]);
  // Every written position of the cell group (i, j, k = 0..max+1).
  const rl::Array3<double>* arrs[7] = {&rl::uo, &rl::vo, &rl::wo, &rl::rhsuo, &rl::rhsvo, &rl::rhswo, &rl::nut};
  for (int a = 0; a < 7; ++a)
    for (int k = 0; k <= 5; ++k)
      for (int j = 0; j <= 5; ++j)
        for (int i = 0; i <= 6; ++i)
          ASSERT_EQ(bits((*arrs[a])(i, j, k)), cell[a][static_cast<std::size_t>(arrs[a]->index(i, j, k))])
              << "array " << a << " at " << i << "," << j << "," << k;
  for (std::int64_t n = 0; n < rl::bed.size(); ++n) ASSERT_EQ(bits(rl::bed.data()[n]), bed0[static_cast<std::size_t>(n)]);
  EXPECT_EQ(rl::uo(-1, 2, 3), 1032.0);
  // u, v, w equal uo, vo, wo over their whole range, layer -1 included.
  for (std::int64_t n = 0; n < rl::u.size(); ++n) ASSERT_EQ(bits(rl::u.data()[n]), bits(rl::uo.data()[n]));
  for (std::int64_t n = 0; n < rl::v.size(); ++n) ASSERT_EQ(bits(rl::v.data()[n]), bits(rl::vo.data()[n]));
  for (std::int64_t n = 0; n < rl::w.size(); ++n) ASSERT_EQ(bits(rl::w.data()[n]), bits(rl::wo.data()[n]));
  EXPECT_EQ(rl::u(-1, 4, 1), 1014.0);
  EXPECT_EQ(rl::v(3, -1, 0), 2003.0);
  EXPECT_EQ(rl::w(5, 5, -1), 3055.0);
  // Not in the file: pressure stays as it was.
  EXPECT_EQ(rl::p(2, 2, 2), 5.0);
  EXPECT_EQ(rl::nslot, 0);
}

TEST(Saved, UnreadableFileStopsWithCode3) {
  const std::string dir = fresh_dir("bad");
  set_sizes(2, 2, 2);
  rl::slotflag(1) = 1;
  rl::slot6(1) = 6.25;
  rl::WRITESAVED(5, 0.5, dir, "good");
  const std::string good = read_file(dir + "/good.dat");
  ASSERT_EQ(good.substr(good.size() - 6), " 6.25\n");

  auto expect_stop = [&](const std::string& text, const char* what) {
    write_file(dir + "/bad.dat", text);
    set_sizes(2, 2, 2);
    const ReadOutcome r = read_with_operator(dir + "/bad.dat");
    EXPECT_TRUE(r.stopped) << what;
    EXPECT_EQ(r.printed, kReadFailure) << what;
  };
  // One number too few: the last slot value is missing.
  expect_stop(good.substr(0, good.size() - 6) + "\n", "last number missing");
  // Cut before the count.
  const std::size_t count_at = good.rfind("\n1\n");
  ASSERT_NE(count_at, std::string::npos);
  expect_stop(good.substr(0, count_at + 1), "count missing");
  expect_stop("", "empty file");
  expect_stop("5\n", "time missing");
  // Text where a number is due, in each kind of record.
  expect_stop(splice(good, 0, 1, "x"), "text for nstep");
  expect_stop(splice(good, 0, 1, "5.5"), "real for nstep");
  // Line 100 lies in the cell group (phi takes lines 2 to 92: 27 + 64 values).
  std::size_t at = 0;
  for (int n = 0; n < 99; ++n) at = good.find('\n', at) + 1;
  expect_stop(splice(good, at, 1, "a"), "text in the cell group");
  expect_stop(splice(good, good.find(' ', at), 0, "x"), "a number followed by text");
  expect_stop(splice(good, count_at + 1, 1, "one"), "text for the count");
  expect_stop(splice(good, good.size() - 5, 4, "1e999"), "a real out of range");
}

TEST(SavedDeathTest, MissingFileEndsTheProcess) {
  set_sizes(2, 2, 2);
  EXPECT_EXIT(rl::READSAVED(fresh_dir("missing") + "/nothing.dat"), testing::ExitedWithCode(2), "nothing.dat");
}
