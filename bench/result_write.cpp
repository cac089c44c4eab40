// Cost of one result write through the case library: START, time, the six
// arrays, END, as the solver's loop does it, on a node grid of the given size,
// after a given number of stored results.  Prints one CSV line per mark:
//   nodes,stored,milliseconds (median of the results around the mark)
//   riverles_result_bench NI NJ NK MARK [MARK ...]
#include "orvalib/orvalib.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fprintf(stderr, "usage: riverles_result_bench NI NJ NK MARK [MARK ...]\n");
    return 2;
  }
  const int ni = std::atoi(argv[1]), nj = std::atoi(argv[2]), nk = std::atoi(argv[3]);
  std::vector<int> marks;
  for (int a = 4; a < argc; ++a) marks.push_back(std::atoi(argv[a]));
  const std::string dir = std::filesystem::temp_directory_path() / "riverles-result-bench";
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  const std::string path = dir + "/case.cgn";
  std::vector<double> x(ni * nj), y(ni * nj), e(ni * nj, -1.0);
  for (int j = 0; j < nj; ++j)
    for (int i = 0; i < ni; ++i) x[i + ni * j] = i, y[i + ni * j] = j;
  std::string err;
  if (orva::write_case(path, ni, nj, x, y, e, {}, err)) {
    std::fprintf(stderr, "%s\n", err.c_str());
    return 1;
  }
  int fid, ier;
  orva::CG_OPEN_F(path, orva::CG_MODE_MODIFY, fid, ier);
  orva::CG_ORVA_INIT_F(fid, ier);
  const std::size_t n = static_cast<std::size_t>(ni) * nj * nk;
  std::vector<double> gx(n, 1.0), gy(n, 2.0), gz(n, 3.0), a(n, 0.5);
  orva::CG_ORVA_WRITEGRIDCOORD3D_F(ni, nj, nk, gx.data(), gy.data(), gz.data(), ier);
  const char* names[6] = {"VelocityX", "VelocityY", "VelocityZ", "Pressure", "Vorticity", "Coherent"};
  auto write = [&](double t, bool loop) {
    if (loop) orva::ORVA_WRITE_SOL_START_F(path, ier);
    orva::CG_ORVA_WRITE_SOL_TIME_F(t, ier);
    for (const char* nm : names) orva::CG_ORVA_WRITE_SOL_REAL_F(nm, a.data(), ier);
    if (loop)
      orva::ORVA_WRITE_SOL_END_F(path, ier);
    else
      orva::CG_ORVA_FLUSH_F(path, fid, ier);
    return ier;
  };
  if (write(0.0, false)) return 1;
  int stored = 1;
  for (int mark : marks) {
    std::vector<double> ms;
    while (stored < mark + 5) {
      const auto t0 = std::chrono::steady_clock::now();
      if (write(stored, true)) return 1;
      const double dt = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
      if (stored >= mark - 4) ms.push_back(dt);
      ++stored;
    }
    std::sort(ms.begin(), ms.end());
    std::printf("%d,%d,%.2f\n", ni * nj * nk, mark, ms[ms.size() / 2]);
  }
  orva::CG_CLOSE_F(fid, ier);
  std::filesystem::remove_all(dir);
  return 0;
}
