// riverles-case, run as the built program: defaults, beds, omitted keys,
// the messages for faulty descriptions, and the two examples.
#include "orvalib/orvalib.hpp"

#include <cgnslib.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

class CaseTool : public ::testing::Test {
 protected:
  void SetUp() override {
    static int counter = 0;
    dir = fs::temp_directory_path() /
          ("riverles_case_" + std::to_string(::getpid()) + "_" + std::to_string(++counter));
    fs::create_directories(dir);
    casefile = (dir / "case.cgn").string();
  }
  void TearDown() override {
    int ier;
    orva::CG_CLOSE_F(1, ier);
    fs::remove_all(dir);
  }

  std::string write_file(const std::string& name, const std::string& text) {
    const std::string p = (dir / name).string();
    std::ofstream(p) << text;
    return p;
  }

  // Runs the tool; gives its exit status and keeps what it printed.
  int run(const std::string& desc) {
    const std::string errfile = (dir / "stderr.txt").string();
    const std::string cmd = std::string("'") + RIVERLES_CASE_EXE + "' '" + desc + "' '" + casefile + "' 2>'" +
                            errfile + "'";
    const int st = std::system(cmd.c_str());
    std::ifstream in(errfile);
    std::stringstream ss;
    ss << in.rdbuf();
    message = ss.str();
    return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  }

  // Opens the written case for reading through the case library.
  void open_case() {
    int fid, ier = 1;
    orva::CG_OPEN_F(casefile, CG_MODE_READ, fid, ier);
    ASSERT_EQ(ier, 0);
  }

  std::vector<double> elevation(int& ni, int& nj) {
    int ier = 1;
    orva::CG_ORVA_GOTOGRIDCOORD2D_F(ni, nj, ier);
    EXPECT_EQ(ier, 0);
    std::vector<double> e(ni * nj), xx(ni * nj), yy(ni * nj);
    orva::CG_ORVA_GETGRIDCOORD2D_F(xx.data(), yy.data(), ier);
    EXPECT_EQ(ier, 0);
    orva::CG_ORVA_READ_GRID_REAL_NODE_F("Elevation", e.data(), ier);
    EXPECT_EQ(ier, 0);
    return e;
  }

  fs::path dir;
  std::string casefile;
  std::string message;
};

}  // namespace

TEST_F(CaseTool, EachBedKindAtNodesAgainstItsClosedForm) {
  // Slope: z = level + sx (x - x0) + sy (y - y0).
  {
    const std::string desc = write_file("s.txt", "nodes 5 3\norigin 1 2\nextent 2 1\nbed slope 0.05 -0.02 0.01\n");
    ASSERT_EQ(run(desc), 0) << message;
    open_case();
    int ni, nj;
    const std::vector<double> e = elevation(ni, nj);
    EXPECT_NEAR(e[0], 0.05, 1e-15);
    EXPECT_NEAR(e[4], 0.05 - 0.02 * 2.0, 1e-15);            // i = 4, x - x0 = 2
    EXPECT_NEAR(e[2 + 5 * 1], 0.05 - 0.02 + 0.005, 1e-15);  // x - x0 = 1, y - y0 = 0.5
    EXPECT_NEAR(e[4 + 5 * 2], 0.05 - 0.04 + 0.01, 1e-15);
    int ier;
    orva::CG_CLOSE_F(1, ier);
  }
  // Dunes: z = base + a sin(2 pi (x - x0) / L + phase), the same across y.
  {
    const std::string desc = write_file("d.txt", "nodes 9 3\nextent 1 0.2\nbed dunes 0.01 0.5 0.3 0.02\n");
    ASSERT_EQ(run(desc), 0) << message;
    open_case();
    int ni, nj;
    const std::vector<double> e = elevation(ni, nj);
    for (int i : {0, 1, 3, 8}) {
      const double x = 0.125 * i;
      const double z = 0.02 + 0.01 * std::sin(2.0 * std::numbers::pi * x / 0.5 + 0.3);
      EXPECT_NEAR(e[i], z, 1e-14) << i;
      EXPECT_NEAR(e[i + 9 * 2], z, 1e-14) << i;
    }
    int ier;
    orva::CG_CLOSE_F(1, ier);
  }
  // ESRI grid: cell centres at x 0.5 1.5 2.5 and y 0.5 (bottom row 4 5 6)
  // and 1.5 (top row 1 2 3); nodes every 0.5 from (0.5, 0.5).
  {
    write_file("bed.asc",
               "ncols 3\nnrows 2\nxllcorner 0.0\nyllcorner 0.0\ncellsize 1.0\nNODATA_value -9999\n"
               "1 2 3\n4 5 6\n");
    const std::string desc =
        write_file("e.txt", "nodes 5 3\norigin 0.5 0.5\nextent 2 1\nbed esri bed.asc\nzminItm 0\nzmaxItm 10\n");
    ASSERT_EQ(run(desc), 0) << message;
    open_case();
    int ni, nj;
    const std::vector<double> e = elevation(ni, nj);
    EXPECT_DOUBLE_EQ(e[0], 4.0);          // on the bottom-left centre
    EXPECT_DOUBLE_EQ(e[4 + 5 * 2], 3.0);  // on the top-right centre
    EXPECT_DOUBLE_EQ(e[1 + 5 * 1], 3.0);  // mean of 4 5 1 2
    EXPECT_DOUBLE_EQ(e[3], 5.5);          // between 5 and 6
    EXPECT_DOUBLE_EQ(e[1 + 5 * 2], 1.5);  // between 1 and 2
    EXPECT_DOUBLE_EQ(e[5 * 1], 2.5);      // between 4 and 1
    int ier;
    orva::CG_CLOSE_F(1, ier);
  }
  // x y z points, inverse distance squared of the nearest four.
  {
    write_file("bed.xyz", "# x y z\n0 0 1\n1 0 2\n0 1 3\n1 1 4\n10 10 100\n");
    const std::string desc = write_file("x.txt", "nodes 3 3\nextent 1 1\nbed xyz bed.xyz\nzminItm 0\nzmaxItm 10\n");
    ASSERT_EQ(run(desc), 0) << message;
    open_case();
    int ni, nj;
    const std::vector<double> e = elevation(ni, nj);
    EXPECT_DOUBLE_EQ(e[0], 1.0);  // a point on the node
    EXPECT_DOUBLE_EQ(e[2], 2.0);
    EXPECT_DOUBLE_EQ(e[8], 4.0);
    EXPECT_DOUBLE_EQ(e[4], 2.5);  // four points at equal distance
    // Node (0.5, 0): the two near points at 0.5, the far two at sqrt(1.25).
    const double wn = 1 / 0.25, wf = 1 / 1.25;
    EXPECT_NEAR(e[1], (wn * (1 + 2) + wf * (3 + 4)) / (2 * wn + 2 * wf), 1e-14);
    int ier;
    orva::CG_CLOSE_F(1, ier);
  }
}

TEST_F(CaseTool, FaultsAreReportedWithTheirLineAndLeaveNoFile) {
  struct Fault {
    std::string text;
    std::string expect;
  };
  const std::vector<Fault> faults = {
      {"nodes 9 5\n# fine so far\nwidthItm 3\n", ":3: unknown key or directive 'widthItm'"},
      {"nodes 9 5\ngrid 9 5\n", ":2: unknown key or directive 'grid'"},
      {"kmaxItm 1.5\n", ":1: kmaxItm must be an integer, not '1.5'"},
      {"\n\nzmaxItm abc\n", ":3: zmaxItm must be a number, not 'abc'"},
      {"nodes 9 5\nbed esri nowhere.asc\n", ":2: missing file"},
      {"nodes 9 5\nbed xyz nowhere.xyz\n", ":2: missing file"},
      {"extent 1 1\nnodes 1 5\n", ":2: the grid needs at least 2 nodes in each direction"},
      {"nodes 9 1\n", ":1: the grid needs at least 2 nodes in each direction"},
      {"omit nosuchItm\n", ":1: unknown key 'nosuchItm'"},
      {"bed waves 1 2\n", ":1: unknown bed kind 'waves'"},
      {"nodes 9\n", ":1: usage: nodes NI NJ"},
  };
  for (const Fault& f : faults) {
    const std::string desc = write_file("bad.txt", f.text);
    EXPECT_EQ(run(desc), 1) << f.text;
    EXPECT_NE(message.find(desc + f.expect), std::string::npos) << "got: " << message;
    EXPECT_FALSE(fs::exists(casefile)) << f.text;
  }
  // A fault inside a bed file is reported at the bed line of the description.
  write_file("short.asc", "ncols 2\nnrows 2\nxllcorner 0\nyllcorner 0\ncellsize 1\n1 2 3\n");
  const std::string desc = write_file("bad.txt", "nodes 3 3\nbed esri short.asc\n");
  EXPECT_EQ(run(desc), 1);
  EXPECT_NE(message.find(desc + ":2: "), std::string::npos) << message;
  EXPECT_FALSE(fs::exists(casefile));
  EXPECT_EQ(run((dir / "none.txt").string()), 1);
  EXPECT_FALSE(fs::exists(casefile));
}

// The mistakes of real data: errors where the case cannot be right (with the
// line to fix), warnings where it may not be (the case is written).
TEST_F(CaseTool, RealDataMistakesAreCaught) {
  // A 3 x 2 DEM of unit cells from (0, 0), the middle of the top row missing.
  write_file("dem.asc",
             "ncols 3\nnrows 2\nxllcorner 0\nyllcorner 0\ncellsize 1\nNODATA_value -9999\n"
             "0.02 -9999 0.03\n0.01 0.02 0.02\n");
  const std::string box = "zminItm -0.01\nzmaxItm 0.1\n";
  struct Case {
    std::string text;
    int status;
    std::string expect;
  };
  const std::vector<Case> cases = {
      {"nodes 4 3\nextent 3.5 1\nbed esri dem.asc\n" + box, 1,
       "dem.asc: the DEM covers x 0 to 3, y 0 to 2, but the grid reaches x 0 to 3.5"},
      {"nodes 3 3\norigin 0.5 0.5\nextent 2 1\nbed esri dem.asc\n" + box, 1,
       "uses a NODATA cell (row 1 from the top, column 2)"},
      {"nodes 3 3\norigin 0.5 0.5\nextent 2 1\nbed esri dem.asc fill\n" + box, 0,
       "dem.asc: 1 NODATA cells filled with the nearest valid value"},
      {"bed flat 0.0\nkmaxItm 3\nzminItm 0.0\n", 1, ":3: zminItm 0 is not below the lowest bed 0"},
      {"bed flat 0.2\nzmaxItm 0.2\n", 1, ":2: the whole bed (0.2 to 0.2) lies at or above zmaxItm 0.2"},
      {"bed flat 312.5\n", 1, "elevations far above the box: check the units"},
      {"origin 352100.5 5802400.25\nbed flat 0.0\nzminItm 0.0\n", 1, "(node 0, 0 at x=352100.5 y=5802400.25)"},
      {"zminItm -0.005\nkmaxItm 4\nbed flat 0.0\n", 0, ":1: warning: zminItm -0.005 is less than a cell"},
      {"nodes 9 5\nbed slope 0.0 0.2\n", 0, ":2: warning: 25 of 45 nodes lie at or above zmaxItm 0.1"},
      {"nodes 9 5\nbed slope 0.0 4.0\nzmaxItm 10\n", 0, "in another unit than the grid"},
      {"bed flat 0.0\nkmaxItm 32\n", 1, ":2: kmaxItm 32 is the exponent of the number of cells in z"},
      {"bed flat 0.0\nkmaxItm 13\n", 0, ":2: warning: kmaxItm 13 gives 2^13 = 8192 cells in z"},
      // The engineering checks: cells against the water, the discharge, probes, disk space.
      {"nodes 5 3\nbed flat 0.0\nkmaxItm 5\n", 0, ":3: warning: plan cells of 0.25 x 0.15 are more than 4 times"},
      {"bed flat 0.0\nkmaxItm 4\n", 0, ":2: warning: the mean water depth 0.1 holds 14.55 layers, fewer than 16"},
      {"bed slope 0.0 0.0 0.32\n", 0, "warning: 33 of 297 wet nodes have less than one layer (0.006875) of water"},
      {"bed flat 0.0\ndischargeItm 60\n", 0, ":2: warning: dischargeItm 60 m3/s is a bulk velocity of 2000 m/s"},
      {"bed flat 0.0\n", 0, ":1: warning: dischargeItm not given: the default 0.006 m3/s is used, a bulk velocity of"},
      {"bed flat 0.0\nProbeFileItm nope.txt\n", 0, ":2: warning: the probe file"},
      {"bed flat 0.0\nProbeFileItm probes.txt\n", 0, "probes.txt:1: probe (0.5, 0.15, -0.005) lies in the bed 0"},
      {"bed flat 0.0\nProbeFileItm probes.txt\n", 0, "probes.txt:2: probe (0.5, 0.15, 0.2) lies above the lid 0.1"},
      {"bed flat 0.0\nendtimeItm 60\nOTimeItm 1\n", 0, "the run will write about 82.1 MB: results 14.8 MB, statistics 67.3 MB"},
  };
  write_file("probes.txt", "0.5 0.15 -0.005\n0.5 0.15 0.2  # above\n0.5 0.15 0.05\n");
  for (const Case& c : cases) {
    const std::string desc = write_file("real.txt", c.text);
    fs::remove(casefile);
    EXPECT_EQ(run(desc), c.status) << c.text << message;
    EXPECT_NE(message.find(c.expect), std::string::npos) << c.text << "got: " << message;
    EXPECT_EQ(fs::exists(casefile), c.status == 0) << c.text;
  }
  // The filled cell took a neighbour's value: the node on it has 0.02 or 0.03.
  const std::string desc = write_file("fill.txt", "nodes 3 2\norigin 0.5 0.5\nextent 2 1\nbed esri dem.asc fill\n" + box);
  ASSERT_EQ(run(desc), 0) << message;
  open_case();
  int ni, nj;
  const std::vector<double> e = elevation(ni, nj);
  EXPECT_TRUE(e[1 + 3] == 0.02 || e[1 + 3] == 0.03) << e[1 + 3];
  int ier;
  orva::CG_CLOSE_F(1, ier);
}

// The model's corrections are written into every case: the solid at rest,
// and the layers of the log layer's viscosity from the grid (0.075 of the
// mean water depth over the layer height, at least one); a value the
// description gives is kept.
TEST_F(CaseTool, CorrectionsAreWrittenWithLayersFromTheGrid) {
  struct Row {
    const char* lines;
    int layers;
  };
  // A depth of 0.1 in a box of 0.12 over layers of 0.12/32 (2), 0.12/8
  // (0.5, at least 1) and 0.12/256 (16); the description's own value.
  const Row rows[] = {{"bed flat 0.0\nzminItm -0.02\nzmaxItm 0.1\nkmaxItm 5\n", 2},
                      {"bed flat 0.0\nzminItm -0.02\nzmaxItm 0.1\nkmaxItm 3\n", 1},
                      {"bed flat 0.0\nzminItm -0.02\nzmaxItm 0.1\nkmaxItm 8\n", 16},
                      {"bed flat 0.0\nzminItm -0.02\nzmaxItm 0.1\nkmaxItm 5\nWallViscosityItm 0\n", 0}};
  for (const Row& r : rows) {
    const std::string desc = write_file("c.txt", std::string("nodes 9 5\nextent 0.8 0.4\n") + r.lines);
    ASSERT_EQ(run(desc), 0) << message;
    open_case();
    int ier = 1, layers = -1, rest = -1;
    orva::CG_ORVA_READ_INTEGER_F("WallViscosityItm", layers, ier);
    EXPECT_EQ(ier, 0);
    orva::CG_ORVA_READ_INTEGER_F("SolidRestItm", rest, ier);
    EXPECT_EQ(ier, 0);
    orva::CG_CLOSE_F(1, ier);
    EXPECT_EQ(layers, r.layers) << r.lines;
    EXPECT_EQ(rest, 1);
    EXPECT_EQ(message.find("WallViscosityItm") != std::string::npos, r.layers != 0) << message;
  }
}

// A reach that falls along x: riverles-case reports its mean slope and the
// step where its ends meet at the periodic seam, and warns; `detrend`
// removes the slope (the ends then meet), `seam L` blends the ends of a bed
// that does not repeat to their mean over L, nodes farther in untouched.
TEST_F(CaseTool, SlopeAndSeamAreReportedAndRemoved) {
  const std::string box = "nodes 33 9\nzminItm -0.05\nkmaxItm 4\n";
  // Layers of 0.0094: a quarter of one is the threshold of the warnings.
  ASSERT_EQ(run(write_file("s.txt", box + "bed slope 0.0 -0.005\n")), 0) << message;
  EXPECT_NE(message.find("the bed's mean slope along x is -0.005 (a fall of 0.005"), std::string::npos) << message;
  EXPECT_NE(message.find("s.txt:4: warning: the bed steps by -0.005 at the periodic seam (y=0), more than a quarter "
                         "of a layer: the flow meets a step there every pass; the reach falls 0.005 along x (mean "
                         "slope -0.005) and the periodic box has none: add `detrend`"),
            std::string::npos)
      << message;
  ASSERT_EQ(run(write_file("s.txt", box + "bed slope 0.0 -0.002\n")), 0) << message;
  EXPECT_EQ(message.find("warning: the bed steps"), std::string::npos) << message;

  ASSERT_EQ(run(write_file("d.txt", box + "bed slope 0.0 -0.002 0.001\ndetrend\n")), 0) << message;
  EXPECT_NE(message.find("d.txt:5: detrend: removed the mean slope -0.002"), std::string::npos) << message;
  EXPECT_EQ(message.find("warning: the bed steps"), std::string::npos) << message;
  open_case();
  int ni, nj, ier;
  std::vector<double> e = elevation(ni, nj);
  orva::CG_CLOSE_F(1, ier);
  double mean = 0.0;
  for (int j = 0; j < nj; ++j) {
    for (int i = 0; i < ni; ++i) mean += e[j * ni + i];
    EXPECT_NEAR(e[j * ni + ni - 1], e[j * ni], 1e-15) << j;  // flat along x: the cross slope stays
    EXPECT_NEAR(e[j * ni] - e[0], 0.001 * 0.3 * j / (nj - 1), 1e-15) << j;
  }
  EXPECT_NEAR(mean / (ni * nj), -0.001 + 0.00015, 1e-15);  // the mean level kept

  // An open reach takes out the slope it is given (a fall of 0.003 of the
  // 0.005) and says so in its keys; no seam is spoken of.
  ASSERT_EQ(run(write_file("o.txt", box + "bed slope 0.0 -0.005\nopen 0.003\n")), 0) << message;
  EXPECT_NE(message.find("o.txt:5: open: an inflow at x=0 carrying dischargeItm and an outflow at x=1; removed the "
                         "given slope -0.003"),
            std::string::npos)
      << message;
  EXPECT_EQ(message.find("seam"), std::string::npos) << message;
  open_case();
  e = elevation(ni, nj);
  int opened = 0;
  double slope = 0.0;
  orva::CG_ORVA_READ_INTEGER_F("OpenReachItm", opened, ier);
  orva::CG_ORVA_READ_REAL_F("SlopeItm", slope, ier);
  orva::CG_CLOSE_F(1, ier);
  EXPECT_EQ(opened, 1);
  EXPECT_EQ(slope, 0.003);
  EXPECT_NEAR(e[ni - 1] - e[0], -0.002, 1e-15);

  // Dunes of 0.3 on a 1 m reach: a step of 0.0173 at the seam; blended over
  // 0.2 the ends meet, the middle keeps the sine.
  ASSERT_EQ(run(write_file("u.txt", box + "bed dunes 0.02 0.3 0 0\nseam 0.2\n")), 0) << message;
  EXPECT_NE(message.find("u.txt:5: seam: both ends blended to their mean over 0.2 (the step was 0.01732; now 0)"),
            std::string::npos)
      << message;
  open_case();
  e = elevation(ni, nj);
  orva::CG_CLOSE_F(1, ier);
  for (int j = 0; j < nj; ++j) {
    EXPECT_NEAR(e[j * ni + ni - 1], e[j * ni], 1e-15);
    EXPECT_NEAR(e[j * ni], 0.5 * 0.02 * std::sin(2.0 * std::numbers::pi / 0.3), 1e-15);
    for (int i = 7; i <= 25; ++i)  // x from 0.21875 to 0.78125
      EXPECT_EQ(e[j * ni + i], 0.02 * std::sin(2.0 * std::numbers::pi * (i / 32.0) / 0.3)) << i;
  }
}
