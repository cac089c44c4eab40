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

// A file made by hand in the stated record order, with line breaks in
// arbitrary places, lands in the right arrays at the right positions.
TEST(Saved, ReadsRecordsInTheirOrder) {
  set_sizes(3, 2, 2);
  ASSERT_EQ(rl::lmin, -1);
  const int I = 3, J = 2, K = 2;
  std::ostringstream f;
  f << "  42\t 2.5e-1\n";
  long t = 0;  // running token number: the value written
  auto put = [&](int n_on_line) {
    f << static_cast<double>(t);
    ++t;
    f << ((t % n_on_line) == 0 ? "\n" : "  ");
  };
  const long phi1 = t;  // level -1: 3 x 3 x 3
  for (int n = 0; n < 27; ++n) put(5);
  const long phi0 = t;  // level 0: 5 x 4 x 4
  for (int n = 0; n < 80; ++n) put(3);
  const long cells = t;
  for (int n = 0; n < 80 * 7; ++n) put(11);
  const long beds = t;
  for (int n = 0; n < 20; ++n) put(2);
  f << "\n1\n  7.0 8.0\n9.0 1.0D+01 +11.0 -1.2E+01\n";
  const std::string dir = fresh_dir("order");
  write_file(dir + "/hand.dat", f.str());

  const ReadOutcome r = read_with_operator(dir + "/hand.dat");
  ASSERT_FALSE(r.stopped) << r.printed;
  EXPECT_EQ(rl::nstep, 42);
  EXPECT_EQ(rl::simtime, 0.25);
  for (int k = 0; k <= 2; ++k)
    for (int j = 0; j <= 2; ++j)
      for (int i = 0; i <= 2; ++i) ASSERT_EQ(rl::pmg(-1).phi(i, j, k), phi1 + i + 3 * (j + 3 * k));
  for (int k = 0; k <= K + 1; ++k)
    for (int j = 0; j <= J + 1; ++j)
      for (int i = 0; i <= I + 1; ++i) {
        ASSERT_EQ(rl::pmg(0).phi(i, j, k), phi0 + i + 5 * (j + 4 * k));
        const long c = cells + 7 * (i + 5 * (j + 4 * k));
        ASSERT_EQ(rl::uo(i, j, k), c);
        ASSERT_EQ(rl::vo(i, j, k), c + 1);
        ASSERT_EQ(rl::wo(i, j, k), c + 2);
        ASSERT_EQ(rl::rhsuo(i, j, k), c + 3);
        ASSERT_EQ(rl::rhsvo(i, j, k), c + 4);
        ASSERT_EQ(rl::rhswo(i, j, k), c + 5);
        ASSERT_EQ(rl::nut(i, j, k), c + 6);
        ASSERT_EQ(rl::u(i, j, k), c);
        ASSERT_EQ(rl::w(i, j, k), c + 2);
      }
  for (int j = 0; j <= J + 1; ++j)
    for (int i = 0; i <= I + 1; ++i) ASSERT_EQ(rl::bed(i, j), beds + i + 5 * j);
  EXPECT_EQ(rl::nslot, 1);
  EXPECT_EQ(rl::slotflag(1), 1);
  EXPECT_EQ(rl::slot1(1), 7.0);
  EXPECT_EQ(rl::slot4(1), 10.0);
  EXPECT_EQ(rl::slot5(1), 11.0);
  EXPECT_EQ(rl::slot6(1), -12.0);
}

TEST(Saved, SlotListAndCount) {
  const std::string dir = fresh_dir("slots");
  set_sizes(2, 2, 2);
  // A used entry is written after its count and read back.
  rl::slotflag(1) = 1;
  rl::slot1(1) = 0.1;
  rl::slot2(1) = -2.0;
  rl::slot3(1) = 3e-300;
  rl::slot4(1) = 4.0;
  rl::slot5(1) = 5.5;
  rl::slot6(1) = 1.0 / 7.0;
  rl::WRITESAVED(3, 1.5, dir, "one");
  const std::string one = read_file(dir + "/one.dat");
  ASSERT_GT(one.size(), 10u);
  const std::size_t last = one.rfind('\n', one.size() - 2);
  const std::size_t before = one.rfind('\n', last - 1);
  EXPECT_EQ(one.substr(before + 1, last - before - 1), "1");
  set_sizes(2, 2, 2);
  ASSERT_FALSE(read_with_operator(dir + "/one.dat").stopped);
  EXPECT_EQ(rl::nslot, 1);
  EXPECT_EQ(rl::slotflag(1), 1);
  EXPECT_EQ(bits(rl::slot1(1)), bits(0.1));
  EXPECT_EQ(bits(rl::slot3(1)), bits(3e-300));
  EXPECT_EQ(bits(rl::slot6(1)), bits(1.0 / 7.0));

  // An entry whose flag is not 1 is not written: the count is 0.
  rl::slotflag(1) = 2;
  rl::WRITESAVED(3, 1.5, dir, "none");
  const std::string none = read_file(dir + "/none.dat");
  EXPECT_EQ(none.substr(none.size() - 3), "\n0\n");

  // A count of 0 ends the file: whatever follows it is never read.
  write_file(dir + "/tail.dat", none + "this is not a number\n");
  set_sizes(2, 2, 2);
  const ReadOutcome r = read_with_operator(dir + "/tail.dat");
  EXPECT_FALSE(r.stopped) << r.printed;
  EXPECT_EQ(rl::nslot, 0);
  EXPECT_EQ(rl::nstep, 3);

  // More entries than the list was sized for: the list takes them all.
  std::string two = none.substr(0, none.size() - 2) + "2\n1 2 3 4 5 6\n7 8 9 10 11 12\n";
  write_file(dir + "/two.dat", two);
  ASSERT_FALSE(read_with_operator(dir + "/two.dat").stopped);
  EXPECT_EQ(rl::nslot, 2);
  EXPECT_EQ(rl::slot1(2), 7.0);
  EXPECT_EQ(rl::slot6(2), 12.0);
  EXPECT_EQ(rl::slot6(1), 6.0);
  EXPECT_EQ(rl::slotflag(2), 1);
}

TEST(Saved, FileNameDropsBlanks) {
  EXPECT_EQ(rl::saved_file_name("out", "run"), "out/run.dat");
  EXPECT_EQ(rl::saved_file_name("   out   ", "  run  "), "out/run.dat");
  EXPECT_EQ(rl::saved_file_name("out" + std::string(197, ' '), "run" + std::string(197, ' ')), "out/run.dat");
  EXPECT_EQ(rl::saved_file_name("a b", " my run "), "a b/my run.dat");

  // Each save goes to the same name, blanks or not, and overwrites it.
  const std::string dir = fresh_dir("names");
  set_sizes(2, 2, 2);
  rl::WRITESAVED(1, 0.0, dir, "case");
  rl::WRITESAVED(2, 0.0, "  " + dir + "     ", "   case   ");
  std::vector<std::string> files;
  for (const auto& e : fs::directory_iterator(dir)) files.push_back(e.path().filename().string());
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files[0], "case.dat");
  EXPECT_EQ(read_file(dir + "/case.dat").substr(0, 2), "2 ");
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
