#include "run_helpers.hpp"

#include <cgnslib.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include <atomic>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>

#include "driver/fields.hpp"
#include "driver/mainprogram.hpp"

namespace fs = std::filesystem;

namespace rltest {

std::string temp_dir(const std::string& tag) {
  static std::atomic<int> counter{0};
  fs::path d = fs::temp_directory_path() /
               ("riverles-" + tag + "-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
  fs::remove_all(d);
  fs::create_directories(d);
  return d.string();
}

CaseSpec::CaseSpec() {
  set("kmaxItm", 3);
  set("zminItm", 0.0);
  set("zmaxItm", 0.2);
  set("viscItm", 1e-6);
  set("densItm", 1000.0);
  set("gravityItm", 9.81);
  set("dischargeItm", 0.008);
  set("timetypeItm", 1);
  set("timestepItm", 0.01);
  set("cflItm", 0.3);
  set("xBoundItm", 0);
  set("yBoundItm", 1);
  set("zBoundItm", 0);
  set("InitialItm", 0);
  set("xInitItm", 0.0);
  set("yInitItm", 0.0);
  set("zInitItm", 0.0);
  set("iPerturbItm", 0);
  set("amplitudeItm", 0.0);
  set("iBedPerturbItm", 0);
  set("BAmplitudeItm", 0.0);
  set("starttimeItm", 0.0);
  set("endtimeItm", 0.05);
  set("HotstartItm", 0);
  set("StartfileItm", std::string(""));
  set("TimeInitialItm", 0);
  set("OTimeItm", 0.1);
  set("HotoutItm", 0);
  set("dtHotoutItm", 1.0);
  set("TecplotItm", 0);
  set("dtTecplotItm", 1.0);
  set("outpathItm", std::string("."));
  set("outfileItm", std::string("run"));
  set("BedItm", 0);
  set("SedimentItm", 1.0);
  set("RoughItm", 2.5);
  set("smagorinskyItm", 0.1);
  set("iIBMItm", 0);
  set("iCycleItm", 1);
  set("igammaItm", 1);
  set("ipresItm", 2);
  set("ipostsItm", 2);
  set("kpoismaxItm", 20);
  set("epsItm", 1e-4);
}

CaseSpec& CaseSpec::set(const std::string& key, int v) {
  orva::Condition c{orva::Condition::Integer, key, 0, 0.0, ""};
  c.ivalue = v;
  keys[key] = c;
  return *this;
}
CaseSpec& CaseSpec::set(const std::string& key, double v) {
  orva::Condition c{orva::Condition::Real, key, 0, 0.0, ""};
  c.rvalue = v;
  keys[key] = c;
  return *this;
}
CaseSpec& CaseSpec::set(const std::string& key, const std::string& v) {
  orva::Condition c{orva::Condition::String, key, 0, 0.0, ""};
  c.svalue = v;
  keys[key] = c;
  return *this;
}

void CaseSpec::write(const std::string& path, double (*elevation)(double, double)) const {
  std::vector<double> x(ni * nj), y(ni * nj), e(ni * nj);
  for (int j = 0; j < nj; ++j)
    for (int i = 0; i < ni; ++i) {
      const int n = i + ni * j;
      x[n] = lx * i / (ni - 1);
      y[n] = ly * j / (nj - 1);
      e[n] = elevation ? elevation(x[n], y[n]) : bed;
    }
  std::vector<orva::Condition> conds;
  for (const auto& [k, c] : keys)
    if (!omit.count(k)) conds.push_back(c);
  std::string error;
  if (orva::write_case(path, ni, nj, x, y, e, conds, error) != 0)
    throw std::runtime_error("write_case: " + error);
}

RunResult run_solver(const std::string& dir, const std::vector<std::string>& args, int threads) {
  std::string cmd = "cd '" + dir + "' && OMP_NUM_THREADS=" + std::to_string(threads) + " '" RIVERLES_EXE "'";
  for (const auto& a : args) cmd += " '" + a + "'";
  cmd += " < /dev/null > console.log 2> errors.log";
  RunResult r;
  const int s = std::system(cmd.c_str());
  r.status = WIFEXITED(s) ? WEXITSTATUS(s) : -1;
  r.out = slurp(dir + "/console.log");
  r.err = slurp(dir + "/errors.log");
  return r;
}

RunResult run_then_cancel(const std::string& dir, const std::string& sign, int signal) {
  return run_then(dir, sign, [&](int pid) {
    if (signal != 0) {
      if (pid > 0) ::kill(pid, signal);
    } else {
      std::ofstream(dir + "/case.cgn.cancel") << "stop\n";
    }
  });
}

RunResult run_then(const std::string& dir, const std::string& sign, const std::function<void(int)>& act) {
  std::filesystem::remove(dir + "/status");
  std::filesystem::remove(dir + "/pid");
  const std::string cmd = "cd '" + dir + "' && (OMP_NUM_THREADS=1 '" RIVERLES_EXE
                          "' case.cgn < /dev/null > console.log 2> errors.log & echo $! > pid; wait $!; "
                          "echo $? > status.part; mv status.part status) &";
  RunResult r;
  if (std::system(cmd.c_str()) != 0) return r;
  // The request comes only once the run is at work (one made before would
  // be stale and removed); a checked build starts slowly, and the console,
  // a file, is written in blocks: the sign is a file the run writes.
  const auto done = [&] { return std::filesystem::exists(dir + "/status"); };
  for (int n = 0; n < 6000 && !std::filesystem::exists(dir + "/" + sign) && !done(); ++n) ::usleep(20000);
  std::string pid;
  for (int n = 0; n < 500 && (pid = slurp(dir + "/pid")).empty(); ++n) ::usleep(20000);
  act(pid.empty() ? 0 : std::stoi(pid));
  for (int n = 0; n < 6000 && !done(); ++n) ::usleep(20000);
  if (!done()) {
    // A run that did not stop is not left behind.
    const std::string pid = slurp(dir + "/pid");
    if (!pid.empty()) ::kill(std::stoi(pid), SIGKILL);
    return r;
  }
  const std::string status = slurp(dir + "/status");
  r.status = status.empty() ? -1 : std::stoi(status);
  r.out = slurp(dir + "/console.log");
  r.err = slurp(dir + "/errors.log");
  return r;
}

std::string run_file_in_process(const std::string& casefile, int* status) {
  std::string arg0 = "riverles", arg1 = casefile;
  char* argv[] = {arg0.data(), arg1.data(), nullptr};
  testing::internal::CaptureStdout();
  const int s = rl::RIVERLES(2, argv);
  std::string out = testing::internal::GetCapturedStdout();
  if (status) *status = s;
  return out;
}

std::string run_in_process(const CaseSpec& desc, const std::string& tag, int* status) {
  const std::string file = temp_dir(tag) + "/case.cgn";
  desc.write(file);
  return run_file_in_process(file, status);
}

std::string run_description(const std::string& example, const std::string& extra, const std::string& tag,
                            int* status, std::string* dir) {
  const std::string d = temp_dir(tag);
  if (dir) *dir = d;
  std::ifstream in(std::string(RIVERLES_SOURCE_DIR) + "/examples/" + example);
  std::stringstream text;
  // The run's own files go to its folder unless the extra lines say otherwise.
  text << in.rdbuf() << "\noutpathItm " << d << "\n" << extra << "\n";
  std::ofstream(d + "/case.txt") << text.str();
  const std::string cmd = "'" RIVERLES_CASE_EXE "' '" + d + "/case.txt' '" + d + "/case.cgn'";
  EXPECT_EQ(std::system(cmd.c_str()), 0);
  return run_file_in_process(d + "/case.cgn", status);
}

bool all_finite() {
  for (const rl::Array3<double>* a : {&rl::u, &rl::v, &rl::w, &rl::p, &rl::nut})
    for (std::int64_t n = 0; n < a->size(); ++n)
      if (!std::isfinite(a->data()[n])) return false;
  return true;
}

int count_lines_starting(const std::string& text, const std::string& prefix) {
  int n = 0;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    if (line.rfind(prefix, 0) == 0) ++n;
  return n;
}

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

std::string last_line(const std::string& text) {
  std::istringstream in(text);
  std::string last;
  for (std::string line; std::getline(in, line);)
    if (!line.empty()) last = line;
  return last;
}

int stored_results(const std::string& casefile) {
  int fn = 0;
  if (cg_open(casefile.c_str(), CG_MODE_READ, &fn) != CG_OK) return -1;
  int n = 0;
  char name[33];
  int nbases = 0;
  cg_nbases(fn, &nbases);
  if (nbases >= 1 && cg_biter_read(fn, 1, name, &n) != CG_OK) n = 0;
  int nsols = 0;
  int nzones = 0;
  cg_nzones(fn, 1, &nzones);
  if (nzones >= 1) cg_nsols(fn, 1, 1, &nsols);
  cg_close(fn);
  return n == nsols ? n : -2;
}

}  // namespace rltest

namespace rltest {

int readable_results(const std::string& casefile) {
  int fn = 0, n = 0, nsols = 0;
  if (cg_open(casefile.c_str(), CG_MODE_READ, &fn) != CG_OK) return -2;
  char name[33];
  if (cg_biter_read(fn, 1, name, &n) != CG_OK) n = 0;
  cg_nsols(fn, 1, 1, &nsols);
  cgsize_t size[9];
  int ok = n <= nsols && cg_zone_read(fn, 1, 1, name, size) == CG_OK;
  std::vector<double> a(ok ? static_cast<std::size_t>(size[0] * size[1] * size[2]) : 0);
  const cgsize_t lo[3] = {1, 1, 1}, hi[3] = {size[0], size[1], size[2]};
  for (int sol = 1; ok && sol <= n; ++sol)
    for (const char* f : {"VelocityX", "VelocityY", "VelocityZ", "Pressure", "Vorticity", "Coherent"})
      ok = ok && cg_field_read(fn, 1, 1, sol, f, CGNS_ENUMV(RealDouble), lo, hi, a.data()) == CG_OK;
  cg_close(fn);
  return ok ? n : -1;
}

}  // namespace rltest

namespace rltest {

std::vector<double> grid_heights(const std::string& casefile, long* nodes) {
  std::vector<double> z;
  if (nodes) *nodes = 0;
  int fn = 0;
  if (cg_open(casefile.c_str(), CG_MODE_READ, &fn) != CG_OK) return z;
  char name[33];
  cgsize_t size[9];
  int nzones = 0;
  if (cg_nzones(fn, 1, &nzones) == CG_OK && nzones == 1 && cg_zone_read(fn, 1, 1, name, size) == CG_OK) {
    const cgsize_t lo[3] = {1, 1, 1}, hi[3] = {size[0], size[1], size[2]};
    z.resize(static_cast<std::size_t>(size[0] * size[1] * size[2]));
    if (cg_coord_read(fn, 1, 1, "CoordinateZ", CGNS_ENUMV(RealDouble), lo, hi, z.data()) != CG_OK)
      z.clear();
    else if (nodes)
      *nodes = static_cast<long>(size[0] * size[1] * size[2]);
  }
  cg_close(fn);
  return z;
}

}  // namespace rltest
