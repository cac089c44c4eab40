// Saved-state files: the state of a run as text, to resume from later.
#pragma once

#include <string>

namespace rl {

// Prints the message of a code (1 parameters, 2 allocation, 3 saved results;
// any other code prints nothing), waits for the operator and stops the run.
[[noreturn]] void ERRORSTOP(int code);

void WRITESAVED(int nstep, double time, const std::string& outpath, const std::string& outfile);
void READSAVED(const std::string& startfile);

}  // namespace rl
