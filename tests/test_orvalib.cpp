// The case library: keys, the 2-D grid, results as another program reads
// them, re-runs, the lock and cancel files, and the cost of an append.
// orvalib.hpp names the CGNS open modes itself: include it before cgnslib.h,
// whose macros of the same names and values would otherwise replace them.
#include "orvalib/orvalib.hpp"

#include <cgns_io.h>
#include <cgnslib.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace orva;

namespace {

const char* const kNames[6] = {"VelocityX", "VelocityY", "VelocityZ", "Pressure", "Vorticity", "Coherent"};

class Orvalib : public ::testing::Test {
 protected:
  void SetUp() override {
    static int counter = 0;
    dir = fs::temp_directory_path() /
          ("orvalib_" + std::to_string(::getpid()) + "_" + std::to_string(++counter));
    fs::create_directories(dir);
    path = (dir / "case.cgn").string();
  }
  void TearDown() override {
    int ier;
    CG_CLOSE_F(1, ier);
    fs::remove_all(dir);
  }

  // A case of ni x nj nodes: x = 0.1 i, y = 0.05 j, Elevation = i + 100 j.
  void make_case(int ni, int nj, const std::vector<Condition>& conds) {
    std::vector<double> x(ni * nj), y(ni * nj), e(ni * nj);
    for (int j = 0; j < nj; ++j)
      for (int i = 0; i < ni; ++i) {
        x[i + ni * j] = 0.1 * i;
        y[i + ni * j] = 0.05 * j;
        e[i + ni * j] = i + 100.0 * j;
      }
    std::string err;
    ASSERT_EQ(write_case(path, ni, nj, x, y, e, conds, err), 0) << err;
  }

  void open_attach() {
    int fid = 0, ier = 1;
    CG_OPEN_F(path, CG_MODE_MODIFY, fid, ier);
    ASSERT_EQ(ier, 0);
    CG_ORVA_INIT_F(fid, ier);
    ASSERT_EQ(ier, 0);
  }

  // The 3-D grid of ni x nj x nk nodes, with z = 0.02 k.
  void write_grid3(int ni, int nj, int nk) {
    n3 = ni * nj * nk;
    std::vector<double> x(n3), y(n3), z(n3);
    for (int k = 0; k < nk; ++k)
      for (int j = 0; j < nj; ++j)
        for (int i = 0; i < ni; ++i) {
          const int n = i + ni * (j + nj * k);
          x[n] = 0.1 * i;
          y[n] = 0.05 * j;
          z[n] = 0.02 * k;
        }
    int ier = 1;
    CG_ORVA_WRITEGRIDCOORD3D_F(ni, nj, nk, x.data(), y.data(), z.data(), ier);
    ASSERT_EQ(ier, 0);
  }

  // Solution s (1-based), array a (0-based), node n holds 1000 s + 100 a + n.
  static double value(int s, int a, int n) { return 1000.0 * s + 100.0 * a + n; }

  void write_arrays(int s) {
    std::vector<double> f(n3);
    for (int a = 0; a < 6; ++a) {
      for (int n = 0; n < n3; ++n) f[n] = value(s, a, n);
      int ier = 1;
      CG_ORVA_WRITE_SOL_REAL_F(kNames[a], f.data(), ier);
      ASSERT_EQ(ier, 0);
    }
  }

  // The first result as the solver writes it: no brackets, then a flush.
  void first_result(double t) {
    int ier = 1;
    CG_ORVA_WRITE_SOL_TIME_F(t, ier);
    ASSERT_EQ(ier, 0);
    write_arrays(1);
    CG_ORVA_FLUSH_F(path, 1, ier);
    ASSERT_EQ(ier, 0);
  }

  // A result inside the time loop: start, time, six arrays, end.
  void loop_result(int s, double t) {
    int ier = 1;
    ORVA_WRITE_SOL_START_F(path, ier);
    ASSERT_EQ(ier, 0);
    CG_ORVA_WRITE_SOL_TIME_F(t, ier);
    ASSERT_EQ(ier, 0);
    write_arrays(s);
    ORVA_WRITE_SOL_END_F(path, ier);
    ASSERT_EQ(ier, 0);
  }

  fs::path dir;
  std::string path;
  int n3 = 0;
};

Condition ikey(const char* key, int v) {
  Condition c;
  c.kind = Condition::Integer;
  c.key = key;
  c.ivalue = v;
  return c;
}
Condition rkey(const char* key, double v) {
  Condition c;
  c.kind = Condition::Real;
  c.key = key;
  c.rvalue = v;
  return c;
}
Condition skey(const char* key, const std::string& v) {
  Condition c;
  c.kind = Condition::String;
  c.key = key;
  c.svalue = v;
  return c;
}

std::string padded(const std::string& s) { return s + std::string(200 - s.size(), ' '); }

// Step count and times of a base as the mid-level library reads them; -1 if
// the base has no iterative data.
int base_times(int fn, int b, std::vector<double>& times) {
  char name[33];
  int n = 0;
  times.clear();
  if (cg_biter_read(fn, b, name, &n) != CG_OK) return -1;
  if (cg_goto(fn, b, "BaseIterativeData_t", 1, "end") != CG_OK) return -1;
  int na = 0;
  cg_narrays(&na);
  for (int a = 1; a <= na; ++a) {
    char an[33];
    CGNS_ENUMT(DataType_t) type;
    int nd;
    cgsize_t dims[12];
    cg_array_info(a, an, &type, &nd, dims);
    if (std::string(an) == "TimeValues") {
      times.resize(dims[0]);
      cg_array_read_as(a, CGNS_ENUMV(RealDouble), times.data());
    }
  }
  return n;
}

}  // namespace

TEST_F(Orvalib, ResultsReadBackThroughTheMidLevelLibrary) {
  const int ni = 4, nj = 3, nk = 5;
  make_case(ni, nj, {ikey("kmaxItm", 2)});
  open_attach();
  write_grid3(ni, nj, nk);
  first_result(0.0);

  // After the flush another program reads one complete result.
  {
    int fn;
    ASSERT_EQ(cg_open(path.c_str(), CG_MODE_READ, &fn), CG_OK);
    std::vector<double> t;
    EXPECT_EQ(base_times(fn, 1, t), 1);
    EXPECT_EQ(t, std::vector<double>{0.0});
    int nsols = 0;
    cg_nsols(fn, 1, 1, &nsols);
    EXPECT_EQ(nsols, 1);
    cg_close(fn);
  }
  int iv = 0, ier = 1;
  CG_ORVA_READ_INTEGER_F("kmaxItm", iv, ier);  // keys still read after a flush
  EXPECT_EQ(ier, 0);
  EXPECT_EQ(iv, 2);
  loop_result(2, 0.1);
  loop_result(3, 0.25);
  CG_CLOSE_F(1, ier);
  EXPECT_EQ(ier, 0);

  int fn;
  ASSERT_EQ(cg_open(path.c_str(), CG_MODE_READ, &fn), CG_OK);
  int nbases = 0;
  cg_nbases(fn, &nbases);
  ASSERT_EQ(nbases, 2);
  char bname[33];
  int cdim, pdim;
  cg_base_read(fn, 1, bname, &cdim, &pdim);
  EXPECT_STREQ(bname, "ResultBase");
  EXPECT_EQ(cdim, 3);
  cg_base_read(fn, 2, bname, &cdim, &pdim);
  EXPECT_STREQ(bname, "InputBase");
  EXPECT_EQ(cdim, 2);
  CGNS_ENUMT(SimulationType_t) simtype;
  cg_simulation_type_read(fn, 1, &simtype);
  EXPECT_EQ(simtype, CGNS_ENUMV(TimeAccurate));

  // Times of the results and their copy in the input base.
  std::vector<double> t;
  EXPECT_EQ(base_times(fn, 1, t), 3);
  EXPECT_EQ(t, (std::vector<double>{0.0, 0.1, 0.25}));
  EXPECT_EQ(base_times(fn, 2, t), 3);
  EXPECT_EQ(t, (std::vector<double>{0.0, 0.1, 0.25}));

  // The zone and its grid.
  char zname[33];
  cgsize_t size[9];
  ASSERT_EQ(cg_zone_read(fn, 1, 1, zname, size), CG_OK);
  EXPECT_STREQ(zname, "Zone1");
  EXPECT_EQ(size[0], ni);
  EXPECT_EQ(size[1], nj);
  EXPECT_EQ(size[2], nk);
  EXPECT_EQ(size[3], ni - 1);
  EXPECT_EQ(size[5], nk - 1);
  cgsize_t lo[3] = {1, 1, 1}, hi[3] = {ni, nj, nk};
  std::vector<double> buf(ni * nj * nk);
  ASSERT_EQ(cg_coord_read(fn, 1, 1, "CoordinateZ", CGNS_ENUMV(RealDouble), lo, hi, buf.data()), CG_OK);
  EXPECT_DOUBLE_EQ(buf[ni * nj * 3], 0.06);  // k = 3
  EXPECT_DOUBLE_EQ(buf[ni * nj * 3 - 1], 0.04);

  // Solutions: names, location, and every array value.
  int nsols = 0;
  cg_nsols(fn, 1, 1, &nsols);
  ASSERT_EQ(nsols, 3);
  for (int s = 1; s <= 3; ++s) {
    char sname[33];
    CGNS_ENUMT(GridLocation_t) loc;
    ASSERT_EQ(cg_sol_info(fn, 1, 1, s, sname, &loc), CG_OK);
    EXPECT_EQ(std::string(sname), "FlowSolution" + std::to_string(s));
    EXPECT_EQ(loc, CGNS_ENUMV(Vertex));
    int nf = 0;
    cg_nfields(fn, 1, 1, s, &nf);
    EXPECT_EQ(nf, 6);
    for (int a = 0; a < 6; ++a) {
      ASSERT_EQ(cg_field_read(fn, 1, 1, s, kNames[a], CGNS_ENUMV(RealDouble), lo, hi, buf.data()), CG_OK);
      bool same = true;
      for (int n = 0; n < ni * nj * nk; ++n) same = same && buf[n] == value(s, a, n);
      EXPECT_TRUE(same) << "solution " << s << " " << kNames[a];
    }
  }
  // The pointers name the solutions in order, blank padded to 32.
  char iname[33];
  ASSERT_EQ(cg_ziter_read(fn, 1, 1, iname), CG_OK);
  ASSERT_EQ(cg_goto(fn, 1, "Zone_t", 1, "ZoneIterativeData_t", 1, "end"), CG_OK);
  char aname[33];
  CGNS_ENUMT(DataType_t) type;
  int nd;
  cgsize_t dims[12];
  ASSERT_EQ(cg_array_info(1, aname, &type, &nd, dims), CG_OK);
  EXPECT_STREQ(aname, "FlowSolutionPointers");
  ASSERT_EQ(nd, 2);
  EXPECT_EQ(dims[0], 32);
  EXPECT_EQ(dims[1], 3);
  std::string ptrs(96, '\0');
  cg_array_read(1, ptrs.data());
  EXPECT_EQ(ptrs.substr(32, 32), "FlowSolution2" + std::string(19, ' '));
  EXPECT_EQ(ptrs.substr(64, 13), "FlowSolution3");
  cg_close(fn);
}

TEST_F(Orvalib, LockFileOnlyWhileAResultIsOpenAndCancelFile) {
  make_case(3, 3, {});
  open_attach();
  write_grid3(3, 3, 3);
  const std::string lock = path + ".lock";
  first_result(0.0);
  EXPECT_FALSE(fs::exists(lock));  // the first result has no brackets
  // The solver hands the case path blank padded.
  const std::string casepath = padded(path);
  int ier = 1;
  ORVA_WRITE_SOL_START_F(casepath, ier);
  ASSERT_EQ(ier, 0);
  EXPECT_TRUE(fs::exists(lock));
  CG_ORVA_WRITE_SOL_TIME_F(0.5, ier);
  write_arrays(2);
  EXPECT_TRUE(fs::exists(lock));
  ORVA_WRITE_SOL_END_F(casepath, ier);
  ASSERT_EQ(ier, 0);
  EXPECT_FALSE(fs::exists(lock));

  int cancel = -1;
  ORVA_CHECK_CANCEL_F(cancel);
  EXPECT_EQ(cancel, 0);
  std::ofstream(path + ".cancel").put('\n');
  ORVA_CHECK_CANCEL_F(cancel);
  EXPECT_EQ(cancel, 1);
  fs::remove(path + ".cancel");
  ORVA_CHECK_CANCEL_F(cancel);
  EXPECT_EQ(cancel, 0);

  // Writing without a grid or a time fails.
  CG_CLOSE_F(1, ier);
  open_attach();
  std::vector<double> f(27, 0.0);
  CG_ORVA_WRITE_SOL_TIME_F(0.0, ier);
  EXPECT_NE(ier, 0);
  write_grid3(3, 3, 3);
  CG_ORVA_WRITE_SOL_REAL_F("VelocityX", f.data(), ier);
  EXPECT_NE(ier, 0);
}

TEST_F(Orvalib, AfterARunTheOutsideCheckerFindsNothingAtLevelsOneAndTwo) {
  const char* checker = "/usr/bin/cgnscheck";
  if (!fs::exists(checker)) GTEST_SKIP() << "cgnscheck is not installed";
  make_case(9, 5, {ikey("kmaxItm", 3), rkey("zmaxItm", 0.1), skey("outpathItm", "."), skey("StartfileItm", "")});
  open_attach();
  write_grid3(9, 5, 9);
  first_result(0.0);
  loop_result(2, 0.1);
  loop_result(3, 0.2);
  int ier;
  CG_CLOSE_F(1, ier);
  const std::string out = (dir / "check.txt").string();
  for (const char* level : {"-w1", "-w2"}) {
    const std::string cmd = std::string(checker) + " " + level + " '" + path + "' >'" + out + "' 2>&1";
    EXPECT_EQ(std::system(cmd.c_str()), 0) << level;
    std::ifstream in(out);
    std::string line, all;
    int flagged = 0;
    while (std::getline(in, line)) {
      all += line + "\n";
      if (line.find("WARNING") != std::string::npos || line.find("ERROR") != std::string::npos) ++flagged;
    }
    EXPECT_EQ(flagged, 0) << level << "\n" << all;
    EXPECT_NE(all.find("(0 shown)"), std::string::npos) << level << "\n" << all;
  }
}

// A viewer holding the case file open: the open waits until it lets go.
TEST_F(Orvalib, OpenWaitsWhileAnotherProcessHoldsTheFile) {
  make_case(3, 3, {ikey("kmaxItm", 1)});
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // Another process: hold the file open for a while, then let go.
    int h = -1;
    const char ok = cgio_open_file(path.c_str(), CGIO_MODE_MODIFY, CGIO_FILE_NONE, &h) == CGIO_ERR_NONE ? 1 : 0;
    if (::write(ready[1], &ok, 1) != 1) ::_exit(2);
    ::sleep(7);  // longer than the few seconds a plain failed open is retried
    if (ok) cgio_close_file(h);
    ::_exit(0);
  }
  char ok = 0;
  ASSERT_EQ(::read(ready[0], &ok, 1), 1);
  ::close(ready[0]);
  ::close(ready[1]);
  ASSERT_EQ(ok, 1);
  const auto t0 = std::chrono::steady_clock::now();
  int fid = 0, ier = 1;
  CG_OPEN_F(path, CG_MODE_MODIFY, fid, ier);
  const double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(ier, 0);
  EXPECT_GT(waited, 6.5);  // it waited for the other process to let go
  int iv = 0;
  CG_ORVA_READ_INTEGER_F("kmaxItm", iv, ier);
  EXPECT_EQ(ier, 0);
  EXPECT_EQ(iv, 1);
}
