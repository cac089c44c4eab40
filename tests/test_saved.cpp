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
