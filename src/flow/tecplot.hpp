// Tecplot ASCII output of the node fields.
#pragma once

#include <string>

namespace rl {

void WRITETECPLOT(const std::string& outpath, const std::string& outfile, int n);
void WRITETECBED(const std::string& outpath, const std::string& outfile);

}  // namespace rl
