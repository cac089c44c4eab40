// Parsing and checking of a case description, and the bed it describes.
#include "casetool/case_description.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iomanip>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <numbers>
#include <sstream>

namespace rlcase {

namespace {

using Kind = orva::Condition::Kind;

std::string where(const std::string& file, int line) {
  return file + ":" + std::to_string(line) + ": ";
}

[[noreturn]] void fail(const std::string& file, int line, const std::string& msg) {
  throw DescriptionError(where(file, line) + msg);
}

// Splits a line into blank-separated tokens; a double-quoted token may hold
// blanks (and "" is the empty string); a token starting with '#' ends the line.
std::vector<std::string> tokenize(const std::string& line, const std::string& file, int lineno) {
  std::vector<std::string> out;
  std::size_t i = 0;
  const std::size_t n = line.size();
  while (i < n) {
    while (i < n && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')) ++i;
    if (i >= n || line[i] == '#') break;
    if (line[i] == '"') {
      const std::size_t close = line.find('"', i + 1);
      if (close == std::string::npos) fail(file, lineno, "unterminated quoted string");
      out.push_back(line.substr(i + 1, close - i - 1));
      i = close + 1;
      if (i < n && line[i] != ' ' && line[i] != '\t' && line[i] != '\r')
        fail(file, lineno, "a blank must follow a quoted string");
    } else {
      std::size_t e = i;
      while (e < n && line[e] != ' ' && line[e] != '\t' && line[e] != '\r') ++e;
      out.push_back(line.substr(i, e - i));
      i = e;
    }
  }
  return out;
}

bool to_int(const std::string& s, int& v) {
  const char* b = s.data();
  const char* e = b + s.size();
  if (b != e && *b == '+') ++b;
  auto r = std::from_chars(b, e, v);
  return !s.empty() && r.ec == std::errc() && r.ptr == e;
}

bool to_real(const std::string& s, double& v) {
  const char* b = s.data();
  const char* e = b + s.size();
  if (b != e && *b == '+') ++b;
  auto r = std::from_chars(b, e, v);
  return !s.empty() && r.ec == std::errc() && r.ptr == e && std::isfinite(v);
}

int need_int(const std::string& s, const std::string& what, const std::string& file, int line) {
  int v;
  if (!to_int(s, v)) fail(file, line, what + " must be an integer, not '" + s + "'");
  return v;
}

double need_real(const std::string& s, const std::string& what, const std::string& file, int line) {
  double v;
  if (!to_real(s, v)) fail(file, line, what + " must be a number, not '" + s + "'");
  return v;
}

void need_count(const std::vector<std::string>& t, std::size_t lo, std::size_t hi, const std::string& usage,
                const std::string& file, int line) {
  if (t.size() < lo || t.size() > hi) fail(file, line, "usage: " + usage);
}

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// ---- Bed files ----

// An ESRI ASCII grid, interpolated bilinearly between cell centres; nodes
// beyond the outer centres take the value of the nearest edge.
void bed_esri(const Description& d, const std::string& desc, const std::vector<double>& x,
              const std::vector<double>& y, std::vector<double>& z) {
  const int line = d.bedline;
  std::ifstream in(d.bedfile);
  if (!in) fail(desc, line, "cannot open '" + d.bedfile + "'");
  const std::string tag = d.bedfile + ": ";
  int ncols = 0, nrows = 0;
  double xll = 0, yll = 0, cs = 0, nodata = 0;
  bool xcorner = true, ycorner = true, have_nodata = false;
  bool hx = false, hy = false, hc = false;
  std::string word;
  // Header: keyword-value pairs up to the first number.
  for (;;) {
    std::streampos pos = in.tellg();
    if (!(in >> word)) fail(desc, line, tag + "ends inside its header");
    double probe;
    if (to_real(word, probe)) {
      in.seekg(pos);
      break;
    }
    std::string val;
    if (!(in >> val)) fail(desc, line, tag + "header entry '" + word + "' has no value");
    const std::string k = lower(word);
    if (k == "ncols") ncols = need_int(val, tag + "ncols", desc, line);
    else if (k == "nrows") nrows = need_int(val, tag + "nrows", desc, line);
    else if (k == "xllcorner" || k == "xllcenter") {
      xll = need_real(val, tag + k, desc, line);
      xcorner = k == "xllcorner";
      hx = true;
    } else if (k == "yllcorner" || k == "yllcenter") {
      yll = need_real(val, tag + k, desc, line);
      ycorner = k == "yllcorner";
      hy = true;
    } else if (k == "cellsize") {
      cs = need_real(val, tag + "cellsize", desc, line);
      hc = true;
    } else if (k == "nodata_value") {
      nodata = need_real(val, tag + "NODATA_value", desc, line);
      have_nodata = true;
    } else {
      fail(desc, line, tag + "unknown header entry '" + word + "'");
    }
  }
  if (ncols < 1 || nrows < 1 || !hx || !hy || !hc || !(cs > 0))
    fail(desc, line, tag + "header needs ncols, nrows, xllcorner, yllcorner and a positive cellsize");
  std::vector<double> v(static_cast<std::size_t>(ncols) * nrows);
  for (double& a : v) {
    if (!(in >> word)) fail(desc, line, tag + "has fewer values than ncols*nrows");
    a = need_real(word, tag + "value", desc, line);
  }
  if (in >> word) fail(desc, line, tag + "has more values than ncols*nrows");
  // Centre of column 0 and of the bottom row.
  const double xc0 = xll + (xcorner ? 0.5 * cs : 0.0);
  const double yc0 = yll + (ycorner ? 0.5 * cs : 0.0);
  // The grid must lie on the DEM: nodes up to its outer cell edges (beyond
  // the outer centres the DEM is extended flat), none beyond.
  {
    const double ex0 = xc0 - 0.5 * cs, ex1 = xc0 + (ncols - 0.5) * cs;
    const double ey0 = yc0 - 0.5 * cs, ey1 = yc0 + (nrows - 0.5) * cs;
    const auto [xa, xb] = std::minmax_element(x.begin(), x.end());
    const auto [ya, yb] = std::minmax_element(y.begin(), y.end());
    const double tol = 1e-9 * cs;
    if (*xa < ex0 - tol || *xb > ex1 + tol || *ya < ey0 - tol || *yb > ey1 + tol) {
      std::ostringstream m;
      m << tag << "the DEM covers x " << ex0 << " to " << ex1 << ", y " << ey0 << " to " << ey1
        << ", but the grid reaches x " << *xa << " to " << *xb << ", y " << *ya << " to " << *yb
        << ": the grid must lie on the DEM (check 'origin' and 'extent', and the DEM's corner and cell size)";
      fail(desc, line, m.str());
    }
  }
  // NODATA cells: with 'fill', each takes the value of the nearest valid
  // cell (in steps between neighbouring cells, the first found in file order).
  if (have_nodata && d.fill) {
    std::vector<int> from(v.size(), -1);
    std::vector<std::size_t> queue;
    for (std::size_t q = 0; q < v.size(); ++q)
      if (v[q] != nodata) {
        from[q] = static_cast<int>(q);
        queue.push_back(q);
      }
    if (queue.empty()) fail(desc, line, tag + "holds no valid value to fill its NODATA cells from");
    std::size_t filled = 0;
    for (std::size_t head = 0; head < queue.size(); ++head) {
      const std::size_t q = queue[head];
      const int r = static_cast<int>(q / ncols), c = static_cast<int>(q % ncols);
      const int nb[4][2] = {{r - 1, c}, {r + 1, c}, {r, c - 1}, {r, c + 1}};
      for (const auto& [rr, cc] : nb) {
        if (rr < 0 || rr >= nrows || cc < 0 || cc >= ncols) continue;
        const std::size_t t = static_cast<std::size_t>(rr) * ncols + cc;
        if (from[t] >= 0) continue;
        from[t] = from[q];
        queue.push_back(t);
        ++filled;
      }
    }
    for (std::size_t q = 0; q < v.size(); ++q) v[q] = v[static_cast<std::size_t>(from[q])];
    if (filled > 0)
      std::fprintf(stderr, "%s%s%zu NODATA cells filled with the nearest valid value\n", where(desc, line).c_str(),
                   ("warning: " + tag).c_str(), filled);
  }
  // Value at column c, row r counted from the bottom (the file starts at the top).
  auto at = [&](int c, int r) { return v[static_cast<std::size_t>(nrows - 1 - r) * ncols + c]; };
  for (std::size_t n = 0; n < z.size(); ++n) {
    const double fx = std::clamp((x[n] - xc0) / cs, 0.0, static_cast<double>(ncols - 1));
    const double fy = std::clamp((y[n] - yc0) / cs, 0.0, static_cast<double>(nrows - 1));
    const int c0 = std::min(static_cast<int>(std::floor(fx)), ncols - 1);
    const int r0 = std::min(static_cast<int>(std::floor(fy)), nrows - 1);
    const int c1 = std::min(c0 + 1, ncols - 1);
    const int r1 = std::min(r0 + 1, nrows - 1);
    const double tx = fx - c0, ty = fy - r0;
    const double w[4] = {(1 - tx) * (1 - ty), tx * (1 - ty), (1 - tx) * ty, tx * ty};
    const int cols[4] = {c0, c1, c0, c1}, rows[4] = {r0, r0, r1, r1};
    double s = 0.0;
    for (int q = 0; q < 4; ++q) {
      if (w[q] == 0.0) continue;
      const double a = at(cols[q], rows[q]);
      if (have_nodata && a == nodata) {
        std::ostringstream m;
        m << tag << "the node (" << n % d.ni << ", " << n / d.ni << ") at x=" << x[n] << " y=" << y[n]
          << " uses a NODATA cell (row " << nrows - rows[q] << " from the top, column " << cols[q] + 1
          << "): fix the DEM, or write 'bed esri FILE fill' to give such cells the nearest valid value";
        fail(desc, line, m.str());
      }
      s += w[q] * a;
    }
    z[n] = s;
  }
}

// Scattered "x y z" points, interpolated by inverse distance squared from
// the (up to) four nearest points; a point on a node gives its value.
void bed_xyz(const Description& d, const std::string& desc, const std::vector<double>& x,
             const std::vector<double>& y, std::vector<double>& z) {
  const int line = d.bedline;
  std::ifstream in(d.bedfile);
  if (!in) fail(desc, line, "cannot open '" + d.bedfile + "'");
  struct P {
    double x, y, z;
  };
  std::vector<P> pts;
  std::string text;
  int fl = 0;
  while (std::getline(in, text)) {
    ++fl;
    const std::vector<std::string> t = tokenize(text, d.bedfile, fl);
    if (t.empty()) continue;
    const std::string tag = d.bedfile + ":" + std::to_string(fl) + ": ";
    if (t.size() != 3) fail(desc, line, tag + "a point needs three numbers x y z");
    pts.push_back({need_real(t[0], tag + "x", desc, line), need_real(t[1], tag + "y", desc, line),
                   need_real(t[2], tag + "z", desc, line)});
  }
  if (pts.empty()) fail(desc, line, d.bedfile + ": holds no points");
  // Inverse distance does not extrapolate: a grid reaching well beyond the
  // points gets the values of the outermost points there.
  {
    double px0 = pts[0].x, px1 = px0, py0 = pts[0].y, py1 = py0;
    for (const P& p : pts) {
      px0 = std::min(px0, p.x), px1 = std::max(px1, p.x);
      py0 = std::min(py0, p.y), py1 = std::max(py1, p.y);
    }
    const auto [xa, xb] = std::minmax_element(x.begin(), x.end());
    const auto [ya, yb] = std::minmax_element(y.begin(), y.end());
    const double mx = 0.05 * (*xb - *xa), my = 0.05 * (*yb - *ya);
    if (*xa < px0 - mx || *xb > px1 + mx || *ya < py0 - my || *yb > py1 + my) {
      std::ostringstream m;
      m << where(desc, line) << "warning: " << d.bedfile << ": the points cover x " << px0 << " to " << px1 << ", y "
        << py0 << " to " << py1 << ", but the grid reaches x " << *xa << " to " << *xb << ", y " << *ya << " to "
        << *yb << ": beyond the points the bed is not measured";
      std::fprintf(stderr, "%s\n", m.str().c_str());
    }
  }
  const std::size_t k = std::min<std::size_t>(4, pts.size());
  std::vector<std::pair<double, std::size_t>> dist(pts.size());
  for (std::size_t n = 0; n < z.size(); ++n) {
    for (std::size_t p = 0; p < pts.size(); ++p) {
      const double ex = pts[p].x - x[n], ey = pts[p].y - y[n];
      dist[p] = {ex * ex + ey * ey, p};
    }
    std::partial_sort(dist.begin(), dist.begin() + static_cast<std::ptrdiff_t>(k), dist.end());
    if (dist[0].first <= 1e-24) {
      z[n] = pts[dist[0].second].z;
      continue;
    }
    double sw = 0.0, sz = 0.0;
    for (std::size_t q = 0; q < k; ++q) {
      const double w = 1.0 / dist[q].first;
      sw += w;
      sz += w * pts[dist[q].second].z;
    }
    z[n] = sz / sw;
  }
}

}  // namespace

const std::vector<KeyDefault>& key_defaults() {
  static const std::vector<KeyDefault> keys = {
      {"kmaxItm", Kind::Integer, "4"},
      {"zminItm", Kind::Real, "-0.01"},
      {"zmaxItm", Kind::Real, "0.1"},
      {"viscItm", Kind::Real, "1.0e-6"},
      {"densItm", Kind::Real, "1000.0"},
      {"gravityItm", Kind::Real, "9.81"},
      {"dischargeItm", Kind::Real, "0.006"},
      {"timetypeItm", Kind::Integer, "0"},
      {"timestepItm", Kind::Real, "0.001"},
      {"cflItm", Kind::Real, "0.3"},
      {"xBoundItm", Kind::Integer, "0"},
      {"yBoundItm", Kind::Integer, "1"},
      {"zBoundItm", Kind::Integer, "0"},
      {"InitialItm", Kind::Integer, "0"},
      {"xInitItm", Kind::Real, "0.2"},
      {"yInitItm", Kind::Real, "0.0"},
      {"zInitItm", Kind::Real, "0.0"},
      {"iPerturbItm", Kind::Integer, "1"},
      {"amplitudeItm", Kind::Real, "0.02"},
      {"iBedPerturbItm", Kind::Integer, "0"},
      {"BAmplitudeItm", Kind::Real, "0.0"},
      {"starttimeItm", Kind::Real, "0.0"},
      {"endtimeItm", Kind::Real, "1.0"},
      {"HotstartItm", Kind::Integer, "0"},
      {"StartfileItm", Kind::String, ""},
      {"TimeInitialItm", Kind::Integer, "0"},
      {"OTimeItm", Kind::Real, "0.1"},
      {"HotoutItm", Kind::Integer, "0"},
      {"dtHotoutItm", Kind::Real, "1.0"},
      {"TecplotItm", Kind::Integer, "0"},
      {"dtTecplotItm", Kind::Real, "0.1"},
      {"outpathItm", Kind::String, "."},
      {"outfileItm", Kind::String, "riverles"},
      {"BedItm", Kind::Integer, "1"},
      {"SedimentItm", Kind::Real, "1.0"},
      {"RoughItm", Kind::Real, "2.5"},
      {"smagorinskyItm", Kind::Real, "0.1"},
      {"iIBMItm", Kind::Integer, "0"},
      {"iCycleItm", Kind::Integer, "1"},
      {"igammaItm", Kind::Integer, "1"},
      {"ipresItm", Kind::Integer, "2"},
      {"ipostsItm", Kind::Integer, "2"},
      {"kpoismaxItm", Kind::Integer, "20"},
      {"epsItm", Kind::Real, "1.0e-4"},
      // Beyond the 44: what a run reports about itself (read only when present).
      {"MonitorItm", Kind::Integer, "1"},
      {"VelocityLimitItm", Kind::Real, "10.0"},
      {"StopNonFiniteItm", Kind::Integer, "1"},
      {"StopFailedItm", Kind::Integer, "1"},
      {"ProbeFileItm", Kind::String, ""},
      {"ProgressItm", Kind::Integer, "1"},
      {"StatisticsItm", Kind::Integer, "1"},
      {"StatsStartItm", Kind::Real, "0.5"},
      {"dtStatsItm", Kind::Real, "0.5"},
      {"CancelOutputItm", Kind::Integer, "1"},
      {"SkipPausesItm", Kind::Integer, "0"},
      {"SolidRestItm", Kind::Integer, "1"},
      {"WallViscosityItm", Kind::Integer, "2"},
      // An open reach's inflow (read only with OpenReachItm, which `open`
      // writes with SlopeItm): recycled turbulence, from 8 mean depths
      // behind the inlet unless the description says where.
      {"InflowTurbulenceItm", Kind::Integer, "2"},
      {"RecycleDistanceItm", Kind::Real, "0.0"},
  };
  return keys;
}

Description parse_description(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw DescriptionError(path + ": cannot open the description");
  Description d;
  const auto& keys = key_defaults();
  // Start from the defaults; `omitted` marks keys left out of the case.
  std::vector<orva::Condition> conds;
  std::vector<bool> omitted(keys.size(), false);
  for (const KeyDefault& k : keys) {
    orva::Condition c;
    c.kind = k.kind;
    c.key = k.key;
    if (k.kind == Kind::Integer) to_int(k.value, c.ivalue);
    else if (k.kind == Kind::Real) to_real(k.value, c.rvalue);
    else c.svalue = k.value;
    conds.push_back(c);
  }
  auto find_key = [&](const std::string& name) -> int {
    for (std::size_t q = 0; q < keys.size(); ++q)
      if (name == keys[q].key) return static_cast<int>(q);
    return -1;
  };
  const std::filesystem::path base = std::filesystem::path(path).parent_path();

  std::string text;
  int ln = 0;
  while (std::getline(in, text)) {
    ++ln;
    const std::vector<std::string> t = tokenize(text, path, ln);
    if (t.empty()) continue;
    const std::string& w = t[0];
    if (w == "nodes") {
      need_count(t, 3, 3, "nodes NI NJ", path, ln);
      d.ni = need_int(t[1], "NI", path, ln);
      d.nj = need_int(t[2], "NJ", path, ln);
      if (d.ni < 2 || d.nj < 2) fail(path, ln, "the grid needs at least 2 nodes in each direction");
    } else if (w == "extent") {
      need_count(t, 3, 3, "extent LENGTH WIDTH", path, ln);
      d.lx = need_real(t[1], "LENGTH", path, ln);
      d.ly = need_real(t[2], "WIDTH", path, ln);
      if (!(d.lx > 0) || !(d.ly > 0)) fail(path, ln, "the extents must be positive");
    } else if (w == "origin") {
      need_count(t, 3, 3, "origin X0 Y0", path, ln);
      d.x0 = need_real(t[1], "X0", path, ln);
      d.y0 = need_real(t[2], "Y0", path, ln);
    } else if (w == "bed") {
      if (t.size() < 2) fail(path, ln, "usage: bed flat|slope|dunes|esri|xyz ...");
      const std::string& kind = t[1];
      d.bedline = ln;
      d.bedfile.clear();
      d.bedpar.clear();
      if (kind == "flat") {
        need_count(t, 3, 3, "bed flat LEVEL", path, ln);
        d.bed = BedKind::Flat;
        d.bedpar = {need_real(t[2], "LEVEL", path, ln)};
      } else if (kind == "slope") {
        need_count(t, 4, 5, "bed slope LEVEL SLOPEX [SLOPEY]", path, ln);
        d.bed = BedKind::Slope;
        d.bedpar = {need_real(t[2], "LEVEL", path, ln), need_real(t[3], "SLOPEX", path, ln),
                    t.size() > 4 ? need_real(t[4], "SLOPEY", path, ln) : 0.0};
      } else if (kind == "dunes") {
        need_count(t, 6, 6, "bed dunes AMPLITUDE WAVELENGTH PHASE BASE", path, ln);
        d.bed = BedKind::Dunes;
        d.bedpar = {need_real(t[2], "AMPLITUDE", path, ln), need_real(t[3], "WAVELENGTH", path, ln),
                    need_real(t[4], "PHASE", path, ln), need_real(t[5], "BASE", path, ln)};
        if (!(d.bedpar[1] > 0)) fail(path, ln, "the dune wavelength must be positive");
      } else if (kind == "esri" || kind == "xyz") {
        if (kind == "esri")
          need_count(t, 3, 4, "bed esri FILE [fill]", path, ln);
        else
          need_count(t, 3, 3, "bed xyz FILE", path, ln);
        if (t.size() == 4 && t[3] != "fill") fail(path, ln, "usage: bed esri FILE [fill]");
        d.fill = t.size() == 4;
        d.bed = kind == "esri" ? BedKind::Esri : BedKind::Xyz;
        std::filesystem::path f(t[2]);
        if (f.is_relative()) f = base / f;
        d.bedfile = f.string();
        std::error_code ec;
        if (!std::filesystem::is_regular_file(f, ec)) fail(path, ln, "missing file '" + d.bedfile + "'");
      } else {
        fail(path, ln, "unknown bed kind '" + kind + "' (flat, slope, dunes, esri or xyz)");
      }
    } else if (w == "detrend") {
      need_count(t, 1, 1, "detrend", path, ln);
      d.detrendline = ln;
    } else if (w == "open") {
      need_count(t, 1, 2, "open [SLOPE]", path, ln);
      d.openline = ln;
      d.openslope = t.size() == 2 ? need_real(t[1], "SLOPE", path, ln) : std::nan("");
    } else if (w == "seam") {
      need_count(t, 2, 2, "seam LENGTH", path, ln);
      d.seam = need_real(t[1], "LENGTH", path, ln);
      d.seamline = ln;
      if (!(d.seam > 0) || d.seam > 0.5 * d.lx)
        fail(path, ln, "the seam's blending length must be positive and at most half the reach's length");
    } else if (w == "omit") {
      need_count(t, 2, 2, "omit KEY", path, ln);
      const int q = find_key(t[1]);
      if (q < 0) fail(path, ln, "unknown key '" + t[1] + "'");
      omitted[static_cast<std::size_t>(q)] = true;
    } else {
      const int q = find_key(w);
      if (q < 0) fail(path, ln, "unknown key or directive '" + w + "'");
      need_count(t, 2, 2, w + " VALUE", path, ln);
      orva::Condition& c = conds[static_cast<std::size_t>(q)];
      if (c.kind == Kind::Integer) c.ivalue = need_int(t[1], w, path, ln);
      else if (c.kind == Kind::Real) c.rvalue = need_real(t[1], w, path, ln);
      else c.svalue = t[1];
      omitted[static_cast<std::size_t>(q)] = false;
      d.keyline[w] = ln;
    }
  }
  // The recycling distance is written only where the description gives it
  // (the solver's default follows the inlet's depth).
  if (!d.keyline.count("RecycleDistanceItm")) omitted[static_cast<std::size_t>(find_key("RecycleDistanceItm"))] = true;
  for (std::size_t q = 0; q < conds.size(); ++q)
    if (!omitted[q]) d.conditions.push_back(conds[q]);
  return d;
}

void build_grid(const Description& d, const std::string& descpath, std::vector<double>& x,
                std::vector<double>& y, std::vector<double>& z) {
  const std::size_t n = static_cast<std::size_t>(d.ni) * static_cast<std::size_t>(d.nj);
  x.assign(n, 0.0);
  y.assign(n, 0.0);
  z.assign(n, 0.0);
  const double dx = d.lx / (d.ni - 1), dy = d.ly / (d.nj - 1);
  for (int j = 0; j < d.nj; ++j)
    for (int i = 0; i < d.ni; ++i) {
      const std::size_t m = static_cast<std::size_t>(j) * d.ni + i;
      x[m] = d.x0 + i * dx;
      y[m] = d.y0 + j * dy;
    }
  switch (d.bed) {
    case BedKind::Flat:
      std::fill(z.begin(), z.end(), d.bedpar[0]);
      break;
    case BedKind::Slope:
      for (std::size_t m = 0; m < n; ++m)
        z[m] = d.bedpar[0] + d.bedpar[1] * (x[m] - d.x0) + d.bedpar[2] * (y[m] - d.y0);
      break;
    case BedKind::Dunes: {
      const double a = d.bedpar[0], L = d.bedpar[1], ph = d.bedpar[2], b = d.bedpar[3];
      for (std::size_t m = 0; m < n; ++m)
        z[m] = b + a * std::sin(2.0 * std::numbers::pi * (x[m] - d.x0) / L + ph);
      break;
    }
    case BedKind::Esri:
      bed_esri(d, descpath, x, y, z);
      break;
    case BedKind::Xyz:
      bed_xyz(d, descpath, x, y, z);
      break;
  }
}

namespace {

// The value of a real or integer key of the case, and the line that set it
// (the bed line when the key keeps its default); false when it is omitted.
bool key_value(const Description& d, const std::string& key, double& value, int& line) {
  for (const orva::Condition& c : d.conditions)
    if (c.key == key) {
      value = c.kind == Kind::Integer ? c.ivalue : c.rvalue;
      const auto it = d.keyline.find(key);
      line = it != d.keyline.end() ? it->second : d.bedline;
      return true;
    }
  return false;
}

}  // namespace

namespace {

// The largest step between the last node column and the first, and its row.
double seam_step(const Description& d, const std::vector<double>& z, int& jat) {
  double step = 0.0;
  jat = 0;
  for (int j = 0; j < d.nj; ++j) {
    const std::size_t r = static_cast<std::size_t>(j) * d.ni;
    const double s = z[r + d.ni - 1] - z[r];
    if (std::fabs(s) > std::fabs(step)) step = s, jat = j;
  }
  return std::fabs(step) < 1e-12 ? 0.0 : step;
}

}  // namespace

void name_outputs_after(Description& d, const std::string& casefile) {
  if (d.keyline.count("outfileItm")) return;
  std::string stem = std::filesystem::path(casefile).stem().string();
  if (stem.empty()) return;
  for (orva::Condition& c : d.conditions)
    if (c.key == "outfileItm") c.svalue = stem;
}

std::vector<std::string> shape_bed(Description& d, const std::string& desc, const std::vector<double>& x,
                                   std::vector<double>& z) {
  std::vector<std::string> out;
  if (z.empty() || d.ni < 2) return out;
  const double dz = [&] {
    double zmin, zmax, kexp;
    int l;
    if (!key_value(d, "zminItm", zmin, l) || !key_value(d, "zmaxItm", zmax, l) || !key_value(d, "kmaxItm", kexp, l) ||
        kexp < 0 || kexp > 30)
      return 0.0;
    return (zmax - zmin) / std::ldexp(1.0, static_cast<int>(kexp));
  }();
  // The mean slope along x: the least-squares plane's x part.
  const double n = static_cast<double>(z.size());
  double xm = 0.0, zm = 0.0;
  for (std::size_t m = 0; m < z.size(); ++m) xm += x[m], zm += z[m];
  xm /= n;
  zm /= n;
  double sxx = 0.0, sxz = 0.0;
  for (std::size_t m = 0; m < z.size(); ++m) {
    sxx += (x[m] - xm) * (x[m] - xm);
    sxz += (x[m] - xm) * (z[m] - zm);
  }
  double slope = sxx > 0.0 ? sxz / sxx : 0.0;
  if (std::fabs(slope * d.lx) < 1e-12) slope = 0.0;
  int jat = 0;
  const double step = seam_step(d, z, jat);
  std::ostringstream m;
  m << std::setprecision(4) << "riverles-case: the bed's mean slope along x is " << slope << " (a fall of "
    << 0.0 - slope * d.lx << " over the reach's " << d.lx << ")";
  if (d.openline == 0)
    m << "; its step at the periodic seam (the last node column against the first) is " << step << " at y="
      << std::setprecision(12) << d.y0 + jat * d.ly / (d.nj - 1);
  out.push_back(m.str());
  if (d.openline > 0) {
    // The slope given, or the fitted one: a short reach's pools and riffles
    // can tilt the fit far from the valley's slope.
    const bool given = !std::isnan(d.openslope);
    const double removed = given ? -d.openslope : slope;
    for (std::size_t m2 = 0; m2 < z.size(); ++m2) z[m2] -= removed * (x[m2] - xm);
    // The slope along the reach, positive where the bed falls downstream.
    const double fall = removed == 0.0 ? 0.0 : -removed;
    for (const char* key : {"OpenReachItm", "SlopeItm"}) {
      orva::Condition c;
      c.key = key;
      c.kind = key[0] == 'O' ? Kind::Integer : Kind::Real;
      c.ivalue = 1;
      c.rvalue = fall;
      d.conditions.push_back(c);
    }
    // The pressure equation of an open reach has a given gradient on every
    // face and converges more slowly from a start at rest: on the example
    // reach the defaults (20 cycles, 1e-4) left cells of the first column
    // beyond the divergence limit (a pause each) in the first steps; 100
    // cycles and 5e-5 none, at 2 cycles a step once the flow has started.
    for (orva::Condition& c : d.conditions) {
      if (c.key == "kpoismaxItm" && !d.keyline.count(c.key)) c.ivalue = 100;
      if (c.key == "epsItm" && !d.keyline.count(c.key)) c.rvalue = 5e-5;
    }
    std::ostringstream r;
    r << std::setprecision(4) << desc << ":" << d.openline << ": open: an inflow at x=" << d.x0
      << " carrying dischargeItm and an outflow at x=" << d.x0 + d.lx << "; removed the " << (given ? "given" : "mean")
      << " slope " << removed << " (the lid now parallel to the " << (given ? "valley" : "mean bed")
      << "); gravity along the tilted reach drives the flow (SlopeItm " << fall << "); the pressure solve "
      << "allowed 100 cycles to 5e-5 (kpoismaxItm, epsItm) where the description leaves them";
    out.push_back(r.str());
    if (d.seamline > 0 || d.detrendline > 0)
      out.push_back(desc + ":" + std::to_string(d.seamline > 0 ? d.seamline : d.detrendline) +
                    ": warning: an open reach has no seam: `seam` and `detrend` are not needed and left out");
    return out;
  }
  if (d.detrendline > 0) {
    for (std::size_t m2 = 0; m2 < z.size(); ++m2) z[m2] -= slope * (x[m2] - xm);
    std::ostringstream r;
    r << std::setprecision(4) << desc << ":" << d.detrendline << ": detrend: removed the mean slope " << slope
      << " (the mean level kept); the discharge drives the flow (dischargeItm), the monitor's slope column is "
         "the equivalent slope to set against the survey's";
    out.push_back(r.str());
  }
  if (d.seamline > 0) {
    const double L = d.seam, x1 = d.x0 + d.lx, raw = seam_step(d, z, jat);
    const double before = std::fabs(raw) < 1e-12 ? 0.0 : raw;
    for (int j = 0; j < d.nj; ++j) {
      const std::size_t r = static_cast<std::size_t>(j) * d.ni;
      const double half = 0.5 * (z[r + d.ni - 1] - z[r]);
      for (int i = 0; i < d.ni; ++i) {
        const double s0 = x[r + i] - d.x0, s1 = x1 - x[r + i];
        if (s0 < L) z[r + i] += half * 0.5 * (1.0 + std::cos(std::numbers::pi * s0 / L));
        if (s1 < L) z[r + i] -= half * 0.5 * (1.0 + std::cos(std::numbers::pi * s1 / L));
      }
    }
    std::ostringstream r;
    r << std::setprecision(4) << desc << ":" << d.seamline << ": seam: both ends blended to their mean over " << L
      << " (the step was " << before << (d.detrendline > 0 ? " once detrended" : "") << "; now "
      << seam_step(d, z, jat) << ")";
    out.push_back(r.str());
  } else {
    const double now = seam_step(d, z, jat);
    if (std::fabs(now) > std::max(0.25 * dz, 1e-12)) {
      // A reach that falls along x steps down where its ends meet.
      const bool fall = d.detrendline == 0 && std::fabs(slope * d.lx) > 0.5 * std::fabs(now);
      std::ostringstream w;
      w << std::setprecision(4) << desc << ":" << d.bedline << ": warning: the bed steps by " << now
        << " at the periodic seam (y=" << std::setprecision(12) << d.y0 + jat * d.ly / (d.nj - 1)
        << std::setprecision(4) << "), more than a quarter of a layer: the flow meets a step there every pass; "
        << (fall ? "the reach falls " : "") ;
      if (fall)
        w << 0.0 - slope * d.lx << " along x (mean slope " << slope
          << ") and the periodic box has none: add `detrend`, and `seam LENGTH` (a few water depths) for what stays";
      else
        w << "add `seam LENGTH` to blend the ends (a few water depths)";
      out.push_back(w.str());
    }
  }
  return out;
}

namespace {

std::string string_key(const Description& d, const std::string& key) {
  for (const orva::Condition& c : d.conditions)
    if (c.key == key) return c.svalue;
  return "";
}

// The bed at a point: bilinear between the four nodes around it.
double bed_at(const Description& d, const std::vector<double>& z, double px, double py) {
  const double fx = std::clamp((px - d.x0) / (d.lx / (d.ni - 1)), 0.0, d.ni - 1.0);
  const double fy = std::clamp((py - d.y0) / (d.ly / (d.nj - 1)), 0.0, d.nj - 1.0);
  const int i = std::min(static_cast<int>(fx), d.ni - 2), j = std::min(static_cast<int>(fy), d.nj - 2);
  const double a = fx - i, b = fy - j;
  auto Z = [&](int ii, int jj) { return z[static_cast<std::size_t>(jj) * d.ni + ii]; };
  return (1 - a) * (1 - b) * Z(i, j) + a * (1 - b) * Z(i + 1, j) + (1 - a) * b * Z(i, j + 1) + a * b * Z(i + 1, j + 1);
}

// What the run will write, from the grid and the output keys: results in
// the case (6 double fields of the 3-D nodes each), statistics files (11
// fields and 3 coordinates), the saved state (text, 7 values a cell, with
// its accumulators), Tecplot files (text); a warning when it is more than
// the case folder's free space.
void disk_estimate(const Description& d, const std::string& desc, std::vector<std::string>& out) {
  double kexp, endtime, otime, stats, start, dtstats, hot, tec, dttec;
  int l;
  if (!key_value(d, "kmaxItm", kexp, l) || kexp < 0 || kexp > 30 || !key_value(d, "endtimeItm", endtime, l) ||
      !key_value(d, "OTimeItm", otime, l))
    return;
  const double cells = (d.ni - 1.0) * (d.nj - 1.0) * std::ldexp(1.0, static_cast<int>(kexp));
  const double nodes = d.ni * d.nj * (std::ldexp(1.0, static_cast<int>(kexp)) + 1.0);
  auto count = [&](double from, double every) { return every > 0 ? std::floor((endtime - from) / every) : 0.0; };
  const double results = (1.0 + count(0.0, otime)) * nodes * 6 * 8;
  double statistics = 0, saved = 0, tecplot = 0;
  if (key_value(d, "StatisticsItm", stats, l) && stats == 1) {
    if (!key_value(d, "StatsStartItm", start, l)) start = 0;
    if (!key_value(d, "dtStatsItm", dtstats, l)) dtstats = otime;
    statistics = std::max(0.0, count(start, dtstats)) * nodes * 14 * 8;
  }
  if (key_value(d, "HotoutItm", hot, l) && hot == 1) saved = cells * (7 * 24 + 14 * 8);
  if (key_value(d, "TecplotItm", tec, l) && tec == 1 && key_value(d, "dtTecplotItm", dttec, l))
    tecplot = count(0.0, dttec) * nodes * 10 * 16;
  const double total = results + statistics + saved + tecplot;
  auto size = [](double b) {
    std::ostringstream m;
    m << std::setprecision(3) << (b >= 1e9 ? b / 1e9 : b / 1e6) << (b >= 1e9 ? " GB" : " MB");
    return m.str();
  };
  std::ostringstream m;
  m << "riverles-case: the run will write about " << size(total) << ": results " << size(results);
  if (statistics > 0) m << ", statistics " << size(statistics);
  if (saved > 0) m << ", the saved state " << size(saved);
  if (tecplot > 0) m << ", Tecplot " << size(tecplot);
  out.push_back(m.str());
  std::error_code ec;
  std::filesystem::path dir = std::filesystem::absolute(std::filesystem::path(desc), ec).parent_path();
  const std::filesystem::space_info sp = std::filesystem::space(dir, ec);
  if (!ec && static_cast<double>(sp.available) < total)
    out.push_back(desc + ":" + std::to_string(d.bedline) + ": warning: the run will write about " + size(total) +
                  " but " + size(static_cast<double>(sp.available)) +
                  " are free here: fewer results (OTimeItm, dtStatsItm) or another disk");
}

// The mistakes of the engineering kind: the grid's cells against the
// water, the discharge against the section, the probes, the disk space.
void engineering_checks(const Description& d, const std::string& desc, const std::vector<double>& x,
                        const std::vector<double>& y, const std::vector<double>& z, std::vector<std::string>& out) {
  double zmin, zmax, kexp;
  int lmin, lmax, lk;
  if (!key_value(d, "zminItm", zmin, lmin) || !key_value(d, "zmaxItm", zmax, lmax) ||
      !key_value(d, "kmaxItm", kexp, lk) || kexp < 0 || kexp > 30)
    return;
  auto warn = [&](int line, const std::string& text) {
    out.push_back(desc + ":" + std::to_string(line) + ": warning: " + text);
  };
  const double dz = (zmax - zmin) / std::ldexp(1.0, static_cast<int>(kexp));
  const double dx = d.lx / (d.ni - 1), dy = d.ly / (d.nj - 1);
  double depth = 0.0;
  std::size_t wet = 0, shallow = 0;
  for (double e : z)
    if (e < zmax) {
      depth += zmax - e;
      ++wet;
      if (zmax - e < dz) ++shallow;
    }
  if (wet == 0) return;
  depth /= static_cast<double>(wet);
  std::ostringstream m;
  m << std::setprecision(4);
  if (std::max(dx, dy) > 4.0 * dz) {
    m << "plan cells of " << dx << " x " << dy << " are more than 4 times the layer height " << dz
      << ": the eddies the grid resolves are flattened; refine the plan grid (nodes) or coarsen the layers";
    warn(lk, m.str());
    m.str("");
  }
  if (depth < 16.0 * dz) {
    m << "the mean water depth " << depth << " holds " << depth / dz
      << " layers, fewer than 16: too few for the velocity profile and the turbulence; raise kmaxItm or lower "
         "zminItm towards the bed";
    warn(lk, m.str());
    m.str("");
  }
  if (shallow > 0) {
    m << shallow << " of " << wet << " wet nodes have less than one layer (" << dz
      << ") of water: the flow there is not resolved (the wall law alone)";
    warn(lmax, m.str());
    m.str("");
  }
  // The discharge against the section at the inflow (the first node column).
  double area = 0.0;
  for (int j = 0; j < d.nj; ++j) {
    const double h = zmax - z[static_cast<std::size_t>(j) * d.ni];
    if (h > 0) area += h * ((j == 0 || j == d.nj - 1) ? 0.5 * dy : dy);
  }
  double q;
  int lq;
  if (area > 0 && key_value(d, "dischargeItm", q, lq)) {
    const double bulk = std::fabs(q) / area;
    if (!d.keyline.count("dischargeItm")) {
      m << "dischargeItm not given: the default " << q << " m3/s is used, a bulk velocity of " << bulk
        << " m/s over the inflow section of " << area << " m2; give the reach's discharge";
      warn(d.bedline, m.str());
      m.str("");
    } else if (bulk > 5.0 || bulk < 0.01) {
      m << "dischargeItm " << q << " m3/s is a bulk velocity of " << bulk << " m/s over the inflow section of " << area
        << " m2: " << (bulk > 5.0 ? "faster than rivers flow (a discharge in litres per second?)"
                                  : "hardly a flow (a discharge in another unit?)");
      warn(lq, m.str());
      m.str("");
    }
  }
  // Probes: the file, and points in the bed or above the lid.
  const std::string probes = string_key(d, "ProbeFileItm");
  if (!probes.empty()) {
    const int lp = d.keyline.count("ProbeFileItm") ? d.keyline.at("ProbeFileItm") : 0;
    std::filesystem::path f(probes);
    if (f.is_relative()) f = std::filesystem::path(desc).parent_path() / f;
    std::ifstream in(f);
    if (!in) {
      warn(lp, "the probe file '" + f.string() + "' does not exist (the solver looks for '" + probes +
                   "' from the folder it runs in)");
    } else {
      std::string line;
      for (int n = 1; std::getline(in, line); ++n) {
        std::istringstream ss(line.substr(0, line.find('#')));
        double px, py, pz;
        if (!(ss >> px >> py >> pz)) continue;
        const double b = bed_at(d, z, px, py);
        if (pz <= b || pz >= zmax) {
          m << f.filename().string() << ":" << n << ": probe (" << std::setprecision(12) << px << ", " << py << ", "
            << pz << std::setprecision(4) << ") lies " << (pz >= zmax ? "above the lid " : "in the bed ")
            << (pz >= zmax ? zmax : b) << ": it samples no water";
          warn(lp, m.str());
          m.str("");
        }
      }
    }
  }
  disk_estimate(d, desc, out);
  (void)x;
  (void)y;
}

}  // namespace

std::vector<std::string> check_case(const Description& d, const std::string& desc, const std::vector<double>& x,
                                    const std::vector<double>& y, const std::vector<double>& z) {
  std::vector<std::string> warnings;
  double zmin, zmax, kexp;
  int lmin, lmax, lk;
  // kmaxItm is the exponent of the cell count in z, easily taken for the
  // count itself.
  if (key_value(d, "kmaxItm", kexp, lk)) {
    if (kexp < 0 || kexp > 30) {
      std::ostringstream e;
      e << "kmaxItm " << kexp << " is the exponent of the number of cells in z (2 to that power): it gives no "
        << "cells; use 0 to 30 (kmaxItm 5 gives 32 cells)";
      fail(desc, lk, e.str());
    }
    if (kexp > 12) {
      std::ostringstream w;
      w << "kmaxItm " << kexp << " gives 2^" << kexp << " = " << std::ldexp(1.0, static_cast<int>(kexp))
        << " cells in z: it is the exponent of the count, not the count";
      warnings.push_back(desc + ":" + std::to_string(lk) + ": warning: " + w.str());
    }
  }
  if (!key_value(d, "zminItm", zmin, lmin) || !key_value(d, "zmaxItm", zmax, lmax) || z.empty()) return warnings;
  const auto [lo, hi] = std::minmax_element(z.begin(), z.end());
  const std::size_t nlo = static_cast<std::size_t>(lo - z.begin());
  auto at = [&](std::size_t n) {
    std::ostringstream m;
    m << std::setprecision(12) << "(node " << n % d.ni << ", " << n / d.ni << " at x=" << x[n] << " y=" << y[n] << ")";
    return m.str();
  };
  std::ostringstream m;
  const double height = zmax - zmin;
  if (!(height > 0)) {
    m << "zmaxItm " << zmax << " is not above zminItm " << zmin << ": the box has no height";
    fail(desc, lmax, m.str());
  }
  const std::size_t dry = static_cast<std::size_t>(std::count_if(z.begin(), z.end(), [&](double e) { return e >= zmax; }));
  if (dry == z.size()) {
    m << "the whole bed (" << *lo << " to " << *hi << ") lies at or above zmaxItm " << zmax
      << ": there is no water in the box";
    if (*lo > zmax + 10.0 * height)
      m << "; elevations far above the box: check the units (a DEM in millimetres or feet against a box in metres), "
           "or they are absolute (above a datum): set zminItm and zmaxItm around the bed";
    fail(desc, lmax, m.str());
  }
  if (zmin >= *lo) {
    m << "zminItm " << zmin << " is not below the lowest bed " << *lo << " " << at(nlo)
      << ": the box bottom lets water through wherever it is not under the bed; set zminItm a cell or more below "
         "the lowest bed";
    fail(desc, lmin, m.str());
  }
  auto warn = [&](int line, const std::string& text) { warnings.push_back(desc + ":" + std::to_string(line) + ": warning: " + text); };
  if (key_value(d, "kmaxItm", kexp, lk) && kexp >= 0 && kexp < 31) {
    const double dz = height / std::ldexp(1.0, static_cast<int>(kexp));
    if (zmin > *lo - dz) {
      std::ostringstream w;
      w << "zminItm " << zmin << " is less than a cell (" << dz << ") below the lowest bed " << *lo << " " << at(nlo)
        << ": the bed search near the bottom may fail there";
      warn(lmin, w.str());
    }
  }
  if (dry > 0) {
    std::ostringstream w;
    w << dry << " of " << z.size() << " nodes lie at or above zmaxItm " << zmax
      << ": dry columns (banks above the water surface) are solid to the lid";
    warn(lmax, w.str());
  }
  engineering_checks(d, desc, x, y, z, warnings);
  const double relief = *hi - *lo, reach = std::max(d.lx, d.ly);
  if (relief > 10.0 * height || relief > reach) {
    std::ostringstream w;
    w << "the bed relief " << relief << " is " << (relief > reach ? "larger than the reach" : "more than ten box heights")
      << " (plan " << d.lx << " x " << d.ly << ", box height " << height
      << "): are the elevations in another unit than the grid (millimetres against metres)?";
    warn(d.bedline, w.str());
  }
  return warnings;
}

std::vector<std::string> recommend_keys(Description& d, const std::vector<double>& z) {
  std::vector<std::string> notes;
  double zmin, zmax, kexp;
  int l;
  if (d.keyline.count("WallViscosityItm") || !key_value(d, "zminItm", zmin, l) || !key_value(d, "zmaxItm", zmax, l) ||
      !key_value(d, "kmaxItm", kexp, l) || kexp < 0 || kexp > 30 || !(zmax > zmin))
    return notes;
  double depth = 0.0;
  std::size_t wet = 0;
  for (double e : z)
    if (e < zmax) {
      depth += zmax - e;
      ++wet;
    }
  if (wet == 0) return notes;
  depth /= static_cast<double>(wet);
  const double dz = (zmax - zmin) / std::ldexp(1.0, static_cast<int>(kexp));
  // Measured on the rough channel: one layer at 13 cells over the depth and
  // two at 27 put the mean profile on the log law (B 8.1 and 8.6 for 8.5).
  const int layers = std::max(1, static_cast<int>(std::lround(0.075 * depth / dz)));
  for (orva::Condition& c : d.conditions)
    if (c.key == "WallViscosityItm") {
      c.ivalue = layers;
      std::ostringstream m;
      m << "riverles-case: WallViscosityItm " << layers << ": the log layer's eddy viscosity over the first " << layers
        << (layers == 1 ? " cell" : " cells") << " above the bed (0.075 of the mean depth " << depth
        << " over layers of " << dz << ")";
      notes.push_back(m.str());
    }
  return notes;
}

}  // namespace rlcase
