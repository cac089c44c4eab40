// results_close CASE1 CASE2 TOLERANCE: whether two cases hold the same
// results, each field of each result within TOLERANCE of its largest value
// (a pressure of 1e4 Pa is compared to its own size, not to 1e-6 Pa); the
// results' times are the steps' times, which the launch test compares on
// the consoles.  Prints the first difference and exits 1; exits 0 when
// close.
#include <cgnslib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

struct Results {
  int fn = 0, base = 0;
  cgsize_t size[9] = {};
  int nsols = 0;
};

bool open_results(const char* path, Results& r) {
  if (cg_open(path, CG_MODE_READ, &r.fn) != CG_OK) return false;
  char name[33];
  int nbases = 0, cdim, pdim;
  cg_nbases(r.fn, &nbases);
  for (int b = 1; b <= nbases; ++b)
    if (cg_base_read(r.fn, b, name, &cdim, &pdim) == CG_OK && std::string(name) == "ResultBase") r.base = b;
  if (r.base == 0) return false;
  return cg_zone_read(r.fn, r.base, 1, name, r.size) == CG_OK && cg_nsols(r.fn, r.base, 1, &r.nsols) == CG_OK;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: results_close CASE1 CASE2 TOLERANCE\n");
    return 2;
  }
  const double tol = std::atof(argv[3]);
  Results a, b;
  if (!open_results(argv[1], a) || !open_results(argv[2], b)) {
    std::printf("a case does not open with its results\n");
    return 1;
  }
  if (a.nsols != b.nsols || a.nsols == 0) {
    std::printf("%d results against %d\n", a.nsols, b.nsols);
    return 1;
  }
  const cgsize_t lo[3] = {1, 1, 1}, hi[3] = {a.size[0], a.size[1], a.size[2]};
  std::vector<double> x(static_cast<std::size_t>(a.size[0] * a.size[1] * a.size[2])), y(x.size());
  for (int s = 1; s <= a.nsols; ++s) {
    int nf = 0;
    cg_nfields(a.fn, a.base, 1, s, &nf);
    for (int f = 1; f <= nf; ++f) {
      CGNS_ENUMT(DataType_t) type;
      char field[33];
      cg_field_info(a.fn, a.base, 1, s, f, &type, field);
      if (cg_field_read(a.fn, a.base, 1, s, field, CGNS_ENUMV(RealDouble), lo, hi, x.data()) != CG_OK ||
          cg_field_read(b.fn, b.base, 1, s, field, CGNS_ENUMV(RealDouble), lo, hi, y.data()) != CG_OK) {
        std::printf("result %d: %s does not read in both\n", s, field);
        return 1;
      }
      double big = 1e-300, worst = 0.0;
      for (std::size_t n = 0; n < x.size(); ++n) {
        big = std::max(big, std::abs(x[n]));
        worst = std::max(worst, std::abs(x[n] - y[n]));
      }
      if (!(worst <= tol * big)) {
        std::printf("result %d: %s differs by %.3g of its largest value %.6g\n", s, field, worst / big, big);
        return 1;
      }
    }
  }
  cg_close(a.fn);
  cg_close(b.fn);
  return 0;
}
