// Tecplot output: file names, the field format, header, node order, node
// averages and bed blanking on a tiny case, the bed file, and an outside
// reader (ParaView's Tecplot reader) reading what we write.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "driver/fields.hpp"
#include "flow/tecplot.hpp"

namespace fs = std::filesystem;

namespace {

std::string fresh_dir(const std::string& name) {
  const fs::path d = fs::path(testing::TempDir()) / ("riverles_tecplot_" + name);
  fs::remove_all(d);
  fs::create_directories(d);
  return d.string();
}


std::string field(double x) {
  char buf[40];
  const int n = rl::tecplot_field(x, buf);
  return std::string(buf, static_cast<std::size_t>(n));
}

// The tiny case: 2 x 1 x 2 cells, so 3 x 2 x 3 nodes.  Linear fields make
// every node average a value we can write down: a face or cell value
// a*i + b*j + c*k averaged over two neighbours in a direction is that
// formula at the half index.
struct Expected {
  double x, y, z, u, v, w, vort, q;
};

double cq = 1.0;  // scale of Q

void set_tiny_case(double qscale) {
  rl::imax = 2;
  rl::jmax = 1;
  rl::kmax = 2;
  rl::LEVELCOUNT();
  rl::ALLOCFIELDS();
  rl::dx = 0.5;
  rl::dy = 0.25;
  rl::dz = 0.5;
  rl::xmin = 1.0;
  rl::ymin = -1.0;
  rl::zmin = 0.0;
  cq = qscale;
  for (int k = 0; k <= 3; ++k)
    for (int j = 0; j <= 2; ++j)
      for (int i = 0; i <= 3; ++i) {
        rl::u(i, j, k) = 3.0 * i + 5.0 * j + 7.0 * k - 20.0;
        rl::v(i, j, k) = -2.0 * i + 9.0 * j + 4.0 * k + 0.125;
        rl::w(i, j, k) = 6.0 * i - 3.0 * j + 11.0 * k;
        rl::vort(i, j, k) = i + 2.0 * j + 4.0 * k;
        rl::Q(i, j, k) = qscale * (i - 8.0 * j + 0.5 * k);
      }
  // Bed columns by i: -1, 0, 1, 1.  Node means by i: -0.5, 0.5, 1.0; the
  // node heights are 0, 0.5, 1.0.
  const double c[4] = {-1.0, 0.0, 1.0, 1.0};
  for (int j = 0; j <= 2; ++j)
    for (int i = 0; i <= 3; ++i) rl::bed(i, j) = c[i];
}

Expected expected_at(int i, int j, int k) {
  Expected e{};
  e.x = 1.0 + 0.5 * i;
  e.y = -1.0 + 0.25 * j;
  e.z = 0.5 * k;
  const double B[3] = {-0.5, 0.5, 1.0};
  if (B[i] >= e.z) return e;  // under the bed, or exactly at it
  e.u = 3.0 * i + 5.0 * (j + 0.5) + 7.0 * (k + 0.5) - 20.0;
  e.v = -2.0 * (i + 0.5) + 9.0 * j + 4.0 * (k + 0.5) + 0.125;
  e.w = 6.0 * (i + 0.5) - 3.0 * (j + 0.5) + 11.0 * k;
  e.vort = (i + 0.5) + 2.0 * (j + 0.5) + 4.0 * (k + 0.5);
  e.q = cq * ((i + 0.5) - 8.0 * (j + 0.5) + 0.5 * (k + 0.5));
  return e;
}

bool close_to(double got, double want, double rel) {
  return std::fabs(got - want) <= rel * std::fabs(want) + 1e-300;
}

}  // namespace

TEST(Tecplot, FieldFormat) {
  EXPECT_EQ(field(1.0), " .10000000000000E+01");
  EXPECT_EQ(field(0.0), " .00000000000000E+00");
  EXPECT_EQ(field(123456.789), " .12345678900000E+06");
  EXPECT_EQ(field(2.0 / 3.0), " .66666666666667E+00");
  EXPECT_EQ(field(0.999999999999999), " .10000000000000E+01");  // rounds up a decade
  EXPECT_EQ(field(3.0e-5), " .30000000000000E-04");
  EXPECT_EQ(field(1.0e99), " .10000000000000E100");
  // A negative value takes the sign's room from the exponent, so that a
  // blank still separates it from the field before.
  EXPECT_EQ(field(-1.5), " -.15000000000000E+1");
  EXPECT_EQ(field(-2.5e-5), " -.25000000000000E-4");
  EXPECT_EQ(field(-0.0), " -.00000000000000E+0");
  EXPECT_EQ(field(-1.0e20), " -.10000000000000E21");
  // No 20-character form keeps a blank in front: the field grows by one.
  EXPECT_EQ(field(-1.2e-12), " -.12000000000000E-11");
  EXPECT_EQ(field(1.0e-120), " .10000000000000E-119");

  // Every field: blanks, then an optional sign, a point, 14 digits and an
  // exponent; 20 characters wide whenever that leaves a leading blank; and
  // it reads back as the value to 14 significant digits.
  const std::regex form(R"( +-?\.\d{14}E[-+]?\d{1,3})");
  for (double x : {1.0, -1.0, 0.1, -0.1, 7.25e-3, -7.25e-3, 1e-9, -1e-9, 5e-10, -5e-10, 9.87654321e5, -9.87654321e5,
                   3.14159265358979, 1e300, -1e300, 2.2e-308, -2.2e-308}) {
    const std::string s = field(x);
    EXPECT_TRUE(std::regex_match(s, form)) << s;
    EXPECT_TRUE(close_to(std::strtod(s.c_str(), nullptr), x, 6e-15)) << s;
    if (std::fabs(x) >= 1e-10 && std::fabs(x) < 1e100) {
      EXPECT_EQ(s.size(), 20u) << s;
    }
    EXPECT_EQ(s[0], ' ');
  }
}

// ParaView's Tecplot reader takes the file and finds the same grid and
// values.  Q is scaled down so that its negative values need the widened
// field.
TEST(Tecplot, ParaViewReadsTheFile) {
  std::string pv;
  for (const char* c : {"/usr/bin/pvpython", "/usr/local/bin/pvpython"})
    if (fs::exists(c)) pv = c;
  if (pv.empty()) GTEST_SKIP() << "pvpython (ParaView's Python) is not installed: the outside-reader check is skipped";

  set_tiny_case(1e-11);
  const std::string dir = fresh_dir("paraview");
  rl::WRITETECPLOT(dir, "pv", 5);
  {
    std::ofstream py(dir + "/read.py");
    // ParaView's Tecplot reader is the class behind its TecplotReader
    // source; taking it straight from ParaView's modules starts faster than
    // paraview.simple.
    py << "import sys\n"
          "from vtkmodules.vtkIOGeometry import vtkTecplotReader\n"
          "r = vtkTecplotReader()\n"
          "r.SetFileName(sys.argv[1])\n"
          "r.Update()\n"
          "b = r.GetOutput().GetBlock(0)\n"
          "dims = [0, 0, 0]\n"
          "b.GetDimensions(dims)\n"
          "print('DIMS', *dims)\n"
          "for n in range(b.GetNumberOfPoints()):\n"
          "  print('P', *[repr(c) for c in b.GetPoint(n)])\n"
          "pd = b.GetPointData()\n"
          "for a in range(pd.GetNumberOfArrays()):\n"
          "  arr = pd.GetArray(a)\n"
          "  print('A', arr.GetName().lower(), *[repr(arr.GetValue(n)) for n in range(arr.GetNumberOfTuples())])\n";
  }
  const std::string run = pv + " " + dir + "/read.py " + dir + "/pv5.plt 2>" + dir + "/err.txt";
  auto capture = [](const std::string& cmd) {
    std::string out;
    if (FILE* p = popen(cmd.c_str(), "r")) {
      char buf[4096];
      std::size_t n;
      while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
      pclose(p);
    }
    return out;
  };
  std::string out = capture("timeout 120 " + run);
  if (out.find("DIMS") == std::string::npos && fs::exists("/usr/bin/xvfb-run"))
    out = capture("timeout 120 xvfb-run -a " + run);
  ASSERT_NE(out.find("DIMS"), std::string::npos) << "pvpython printed: " << out;

  std::istringstream s(out);
  std::string line;
  std::vector<std::vector<double>> points;
  std::map<std::string, std::vector<double>> arrays;
  int dims[3] = {0, 0, 0};
  while (std::getline(s, line)) {
    std::istringstream ls(line);
    std::string tag;
    ls >> tag;
    if (tag == "DIMS") {
      ls >> dims[0] >> dims[1] >> dims[2];
    } else if (tag == "P") {
      std::vector<double> p(3);
      ls >> p[0] >> p[1] >> p[2];
      points.push_back(p);
    } else if (tag == "A") {
      std::string name;
      ls >> name;
      double x;
      while (ls >> x) arrays[name].push_back(x);
    }
  }
  EXPECT_EQ(dims[0], 3);
  EXPECT_EQ(dims[1], 2);
  EXPECT_EQ(dims[2], 3);
  ASSERT_EQ(points.size(), 18u);
  for (const char* a : {"u", "v", "w", "vort", "q"}) ASSERT_EQ(arrays[a].size(), 18u) << a;
  std::size_t n = 0;
  for (int k = 0; k <= 2; ++k)
    for (int j = 0; j <= 1; ++j)
      for (int i = 0; i <= 2; ++i, ++n) {
        const Expected e = expected_at(i, j, k);
        // The reader keeps single precision.
        EXPECT_TRUE(close_to(points[n][0], e.x, 1e-6)) << n;
        EXPECT_TRUE(close_to(points[n][1], e.y, 1e-6)) << n;
        EXPECT_TRUE(close_to(points[n][2], e.z, 1e-6)) << n;
        EXPECT_TRUE(close_to(arrays["u"][n], e.u, 1e-6)) << n;
        EXPECT_TRUE(close_to(arrays["v"][n], e.v, 1e-6)) << n;
        EXPECT_TRUE(close_to(arrays["w"][n], e.w, 1e-6)) << n;
        EXPECT_TRUE(close_to(arrays["vort"][n], e.vort, 1e-6)) << n;
        EXPECT_TRUE(close_to(arrays["q"][n], e.q, 1e-6)) << n << " " << arrays["q"][n] << " " << e.q;
      }
}
