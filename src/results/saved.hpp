// Saved-state files: the state of a run as text, to resume from later.
//
// The file is plain free-format text, one record per line, reals written in
// full double precision so that reading them back restores every bit.  It
// carries no header and no sizes: the reading run must have the same
// imax, jmax, kmax and lmin as the writing one.
//
// Records in file order:
//   1. nstep, time
//   2. phi of every multigrid level lmin..0, k, j, i over 0..n+1, one per line
//   3. uo, vo, wo, rhsuo, rhsvo, rhswo, nut at (i,j,k), k, j, i over 0..max+1
//   4. bed at (i,j), j, i over 0..max+1, one per line
//   5. the number of slot entries that follow
//   6. slot1..slot6 of each used slot entry
#pragma once

#include <string>

namespace rl {

// Writes the state to <outpath>/<outfile>.dat (both stripped of blanks).
// reads: pmg.phi, uo, vo, wo, rhsuo, rhsvo, rhswo, nut, bed, the slot list; writes: the file
void WRITESAVED(int nstep, double time, const std::string& outpath, const std::string& outfile);

// Reads the state from the file named as it stands; u, v, w become uo, vo,
// wo.  Any record that can't be read stops the run with error code 3.
// reads: the file; writes: nstep, simtime, pmg.phi, uo, vo, wo, u, v, w, rhsuo, rhsvo, rhswo, nut, bed,
//  nslot, the slot list
void READSAVED(const std::string& startfile);

// The name WRITESAVED writes to: outpath with its leading and trailing blanks
// removed, "/", outfile likewise, ".dat".
std::string saved_file_name(const std::string& outpath, const std::string& outfile);

// The name of a file kept beside a saved state dat: its ".dat" replaced by
// ext (ext appended where the name has no ".dat").
std::string beside_saved(const std::string& dat, const char* ext);

}  // namespace rl
