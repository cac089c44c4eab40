// Names and opening of the run's own files (saved states, Tecplot).
#pragma once

#include <string>

namespace rl {

// Drops the blanks that pad a fixed-length name, on both sides.
std::string strip_blanks(const std::string& s);

// Makes the output folder (blanks stripped) if it is missing, so that a
// missing one does not end a run when its first file is due; a folder that
// cannot be made gets a warning, and the file's own open reports it later.
void make_output_folder(const std::string& outpath);

// A file that can't be opened has no handling of its own: like any runtime
// file error it ends the process (exit status 2) with a line on stderr.
[[noreturn]] void open_failed(const std::string& name);

// A file written beside its place as `part` (name + ".part") and complete
// when `ok`: renamed over `name`, so that a kill or a full disk during the
// write leaves the last complete file; otherwise the part is removed.
// Returns whether the file is now in place.
bool put_in_place(const std::string& part, const std::string& name, bool ok);

}  // namespace rl
