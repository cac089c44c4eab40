// Names and opening of the run's own files (saved states, Tecplot).
#pragma once

#include <string>

namespace rl {

// Drops the blanks that pad a fixed-length name, on both sides.
std::string strip_blanks(const std::string& s);

// A file that can't be opened has no handling of its own: like any runtime
// file error it ends the process (exit status 2) with a line on stderr.
[[noreturn]] void open_failed(const std::string& name);

}  // namespace rl
