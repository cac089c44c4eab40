// Bit-for-bit regression of whole runs with one thread against small stored
// references: the console of each run and checksums of everything it wrote
// (saved state, Tecplot files, every result array, times and iteration
// numbers of the case file).  Together the cases pass every wall treatment,
// both side conditions, a W cycle, odd plan counts, the perturbations, the
// output files and a restart.  Speed-ups and clean-ups must not change a bit.
//
// To remake the references after a deliberate change of results:
//   RIVERLES_UPDATE_REFERENCE=1 ./riverles_tests --gtest_filter='Regression.*'
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "run_helpers.hpp"
// After the case library, whose names the CGNS macros would replace.
#include <cgnslib.h>

namespace {

struct RefCase {
  const char* name;
  const char* example;
  const char* extra;
  const char* restart = nullptr;  // a second run in the same folder, from the first one's state
};

const RefCase kCases[] = {
    {"dune-rough-tri", "dune-bed.txt",
     "endtimeItm 0.2\nOTimeItm 0.05\nHotoutItm 1\ndtHotoutItm 0.2\noutfileItm state\n"},
    {"dune-smooth-tri", "dune-bed.txt",
     "endtimeItm 0.1\nOTimeItm 0.05\nBedItm 0\nHotoutItm 1\ndtHotoutItm 0.1\noutfileItm state\n"},
    {"dune-rough-idw", "dune-bed.txt",
     "endtimeItm 0.1\nOTimeItm 0.05\niIBMItm 1\nBedItm 2\nRoughItm 5.0\nHotoutItm 1\ndtHotoutItm 0.1\n"
     "outfileItm state\n"},
    {"dune-smooth-idw", "dune-bed.txt",
     "endtimeItm 0.1\nOTimeItm 0.05\niIBMItm 1\nBedItm 0\nHotoutItm 1\ndtHotoutItm 0.1\noutfileItm state\n"},
    {"flat-periodic-w-odd", "flat-channel.txt",
     "nodes 31 7\nyBoundItm 0\nzBoundItm 1\niCycleItm 2\nigammaItm 2\nipresItm 1\nipostsItm 3\n"
     "timetypeItm 1\ntimestepItm 0.005\nendtimeItm 0.1\nOTimeItm 0.025\nInitialItm 1\nxInitItm 0.15\n"
     "yInitItm 0.01\nzInitItm 0.0\niBedPerturbItm 1\nBAmplitudeItm 0.002\nTecplotItm 1\ndtTecplotItm 0.05\n"
     "HotoutItm 1\ndtHotoutItm 0.1\noutfileItm state\nsmagorinskyItm 0.15\n"},
    {"dune-restart-at-zero", "dune-bed.txt",
     "endtimeItm 0.08\nOTimeItm 0.04\nHotoutItm 1\ndtHotoutItm 0.08\noutfileItm first\n",
     "endtimeItm 0.06\nOTimeItm 0.04\nHotstartItm 1\nStartfileItm first.dat\nTimeInitialItm 0\n"
     "starttimeItm 5.0\nHotoutItm 1\ndtHotoutItm 0.06\noutfileItm state\n"},
};

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// FNV-1a, 64 bits.
std::uint64_t fnv(const void* data, std::size_t n, std::uint64_t h = 1469598103934665603ull) {
  const unsigned char* p = static_cast<const unsigned char*>(data);
  for (std::size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
  return h;
}

std::string hex(std::uint64_t h) {
  char b[20];
  std::snprintf(b, sizeof b, "%016llx", static_cast<unsigned long long>(h));
  return b;
}

// Checksums of what a run left in its folder: the files it wrote and every
// array of the case file's results, read back with the CGNS library.
std::string checksums(const std::string& dir) {
  std::ostringstream s;
  std::vector<std::string> files;
  for (const auto& e : std::filesystem::directory_iterator(dir)) {
    const std::string n = e.path().filename().string();
    if (n.ends_with(".dat") || n.ends_with(".plt")) files.push_back(n);
  }
  std::sort(files.begin(), files.end());
  for (const std::string& n : files) {
    const std::string t = slurp(dir + "/" + n);
    s << n << " " << hex(fnv(t.data(), t.size())) << "\n";
  }

  int fn = 0, nsols = 0;
  if (cg_open((dir + "/case.cgn").c_str(), CG_MODE_READ, &fn) != CG_OK) return s.str() + "case file unreadable\n";
  cgsize_t size[9];
  char name[33];
  cg_zone_read(fn, 1, 1, name, size);
  const cgsize_t lo[3] = {1, 1, 1}, hi[3] = {size[0], size[1], size[2]};
  std::vector<double> a(static_cast<std::size_t>(size[0] * size[1] * size[2]));
  cg_nsols(fn, 1, 1, &nsols);
  s << "results " << nsols << "\n";
  for (const char* field : {"VelocityX", "VelocityY", "VelocityZ", "Pressure", "Vorticity", "Coherent"}) {
    std::uint64_t h = fnv(nullptr, 0);
    for (int sol = 1; sol <= nsols; ++sol) {
      if (cg_field_read(fn, 1, 1, sol, field, CGNS_ENUMV(RealDouble), lo, hi, a.data()) != CG_OK) a.assign(a.size(), -1);
      h = fnv(a.data(), a.size() * sizeof(double), h);
    }
    s << field << " " << hex(h) << "\n";
  }
  // Times and iteration numbers of the series.
  int n = 0;
  if (cg_biter_read(fn, 1, name, &n) == CG_OK && cg_goto(fn, 1, "BaseIterativeData_t", 1, "end") == CG_OK) {
    std::vector<double> t(static_cast<std::size_t>(n));
    std::vector<int> it(static_cast<std::size_t>(n));
    cg_array_read_as(1, CGNS_ENUMV(RealDouble), t.data());
    cg_array_read_as(2, CGNS_ENUMV(Integer), it.data());
    s << "TimeValues " << hex(fnv(t.data(), t.size() * sizeof(double))) << "\nIterationValues";
    for (int v : it) s << " " << v;
    s << "\n";
  }
  cg_close(fn);
  return s.str();
}

// The first line where two texts differ, for the failure message.
std::string first_difference(const std::string& a, const std::string& b) {
  std::istringstream ia(a), ib(b);
  std::string la, lb;
  for (int n = 1;; ++n) {
    const bool ga = static_cast<bool>(std::getline(ia, la)), gb = static_cast<bool>(std::getline(ib, lb));
    if (!ga && !gb) return "none";
    if (!ga || !gb || la != lb) return "line " + std::to_string(n) + ": '" + la + "' vs reference '" + lb + "'";
  }
}

// Writes the description of an example with extra lines and makes its case:
// a case as the design has it, without the corrections that riverles-case
// switches on by default.
void make_case(const std::string& dir, const RefCase& c, const char* extra) {
  const std::string src = RIVERLES_SOURCE_DIR;
  std::ofstream(dir + "/case.txt") << slurp(src + "/examples/" + c.example) << "\noutpathItm .\nSolidRestItm 0\nWallViscosityItm 0\n"
                                   << extra;
  const std::string cmd = "'" RIVERLES_CASE_EXE "' '" + dir + "/case.txt' '" + dir + "/case.cgn'";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
}

}  // namespace

TEST(Regression, WholeRunsBitForBitWithOneThread) {
  const std::string ref = std::string(RIVERLES_SOURCE_DIR) + "/tests/reference/";
  const bool update = std::getenv("RIVERLES_UPDATE_REFERENCE") != nullptr;
  for (const RefCase& c : kCases) {
    SCOPED_TRACE(c.name);
    const std::string dir = rltest::temp_dir(std::string("regression-") + c.name);
    make_case(dir, c, c.extra);
    auto run = rltest::run_solver(dir, {"case.cgn"}, 1);
    ASSERT_EQ(run.status, 0) << run.out;
    if (c.restart) {
      make_case(dir, c, c.restart);
      run = rltest::run_solver(dir, {"case.cgn"}, 1);
      ASSERT_EQ(run.status, 0) << run.out;
    }
    const std::string sums = checksums(dir);
    const std::string base = ref + c.name;
    if (update) {
      std::ofstream(base + ".console") << run.out;
      std::ofstream(base + ".sums") << sums;
      continue;
    }
    const std::string console = slurp(base + ".console"), sums_ref = slurp(base + ".sums");
    EXPECT_TRUE(run.out == console) << first_difference(run.out, console);
    EXPECT_TRUE(sums == sums_ref) << first_difference(sums, sums_ref);
  }
}
