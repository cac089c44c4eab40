#include "flow/tecplot.hpp"

#include "driver/fields.hpp"

namespace rl {

void WRITETECPLOT(const std::string&, const std::string&, int) {}
void WRITETECBED(const std::string&, const std::string&) {}

}  // namespace rl
