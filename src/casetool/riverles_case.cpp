// riverles-case: writes a case file from a plain-text description.
//
//   riverles-case DESCRIPTION CASEFILE
//
// The description names the grid, the bed and any calculation condition
// that differs from its default (docs/case-description.md).  Unlike the
// solver, this tool checks what it is given: any fault is reported as
// "DESCRIPTION:LINE: message" with exit status 1, and no case file is written.
#include <cstdio>
#include <string>
#include <vector>

#include "casetool/case_description.hpp"
#include "orvalib/orvalib.hpp"

int main(int argc, char** argv) {
  if (argc == 4 && std::string(argv[1]) == "rename") {
    std::string error;
    if (orva::RENAME_CASE(argv[2], argv[3], error) != 0) {
      std::fprintf(stderr, "riverles-case: %s\n", error.c_str());
      return 1;
    }
    return 0;
  }
  if (argc != 3) {
    std::fprintf(stderr, "usage: riverles-case DESCRIPTION CASEFILE\n       riverles-case rename CASEFILE NEWNAME\n");
    return 1;
  }
  const std::string desc = argv[1];
  const std::string casefile = argv[2];
  try {
    rlcase::Description d = rlcase::parse_description(desc);
    rlcase::name_outputs_after(d, casefile);
    std::vector<double> x, y, z;
    rlcase::build_grid(d, desc, x, y, z);
    for (const std::string& n : rlcase::shape_bed(d, desc, x, z)) std::fprintf(stderr, "%s\n", n.c_str());
    for (const std::string& w : rlcase::check_case(d, desc, x, y, z)) std::fprintf(stderr, "%s\n", w.c_str());
    for (const std::string& n : rlcase::recommend_keys(d, z)) std::fprintf(stderr, "%s\n", n.c_str());
    std::string error;
    if (orva::write_case(casefile, d.ni, d.nj, x, y, z, d.conditions, error) != 0) {
      std::fprintf(stderr, "riverles-case: %s: %s\n", casefile.c_str(), error.c_str());
      return 1;
    }
  } catch (const rlcase::DescriptionError& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
  return 0;
}
