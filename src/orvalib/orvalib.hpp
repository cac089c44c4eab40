// orvalib: the host's case library, over the CGNS library.
//
// The solver side: open the case, attach, read the 2-D grid, node attributes
// and calculation conditions by key, write the 3-D node grid and a time
// series of results.  Every call reports a status in `ier`: 0 on success,
// non-zero on failure (a missing key, a failed read or write).  Only one case
// is attached at a time; the library keeps its own state.
//
// The case is complete at every instant: the 3-D grid and each result go
// into files of their own in the folder "<case>.results", which the case
// links once they are whole, and the case itself is only ever replaced, by
// the rename of a changed copy "<case>.next".  The case is not held open
// while the solver computes: a flush and the end of a result close it, and
// the next call that needs it reopens it (for reading).  While a
// result is being written, a lock file "<case>.lock" exists.  A host asks the
// run to stop by creating "<case>.cancel".
//
// Layout of the case (bases, zones, node names) and the behaviour above are
// those the host platform and ParaView expect; docs/case-file.md describes
// them for users of the library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orva {

// CGNS open modes (the values of cgnslib.h; include this header before
// cgnslib.h, whose macros of the same names would replace these).
constexpr int CG_MODE_READ = 0;
constexpr int CG_MODE_WRITE = 1;
constexpr int CG_MODE_MODIFY = 2;

// Opens a CGNS file; retries for a few seconds, and waits while another program writes it.
void CG_OPEN_F(const std::string& path, int mode, int& fileid, int& ier);
void CG_CLOSE_F(int fileid, int& ier);

// Attaches the library to an open case and clears the results of any earlier
// run, compacting the file so that re-runs do not grow it.
void CG_ORVA_INIT_F(int fileid, int& ier);

// Selects the 2-D input grid and gives its node counts.
void CG_ORVA_GOTOGRIDCOORD2D_F(int& isize, int& jsize, int& ier);
// Fills isize*jsize node coordinates, i fastest.
void CG_ORVA_GETGRIDCOORD2D_F(double* x, double* y, int& ier);
// Fills a real attribute given at the grid's nodes, i fastest.
void CG_ORVA_READ_GRID_REAL_NODE_F(const std::string& name, double* array, int& ier);

// Calculation conditions by key; a missing key gives ier != 0.
void CG_ORVA_READ_INTEGER_F(const std::string& key, int& value, int& ier);
void CG_ORVA_READ_REAL_F(const std::string& key, double& value, int& ier);
// The value comes back blank padded to 200 characters.
void CG_ORVA_READ_STRING_F(const std::string& key, std::string& value, int& ier);

// Stores the 3-D node grid on which results lie (arrays i fastest); the case
// shows the zone and its grid from then on, before any result.
void CG_ORVA_WRITEGRIDCOORD3D_F(int isize, int jsize, int ksize, const double* x, const double* y,
                                const double* z, int& ier);

// Results: a time starts a new solution; arrays follow on the 3-D nodes.
void CG_ORVA_WRITE_SOL_TIME_F(double time, int& ier);
void CG_ORVA_WRITE_SOL_REAL_F(const std::string& name, const double* array, int& ier);
// The same in slabs of planes k0..k1 (0-based, isize*jsize nodes a plane,
// i fastest), for a writer that never holds a whole 3-D array (not part of
// the host's calls): the grid begins, takes every plane in any order, and
// ends (then it is as CG_ORVA_WRITEGRIDCOORD3D_F leaves it); an array of a
// result is made by its slab from plane 0, which comes first, and takes the
// other slabs after it.
void CG_ORVA_BEGIN_GRIDCOORD3D_F(int isize, int jsize, int ksize, int& ier);
void CG_ORVA_WRITE_GRIDCOORD3D_PLANES_F(int k0, int k1, const double* x, const double* y, const double* z,
                                       int& ier);
void CG_ORVA_END_GRIDCOORD3D_F(int& ier);
void CG_ORVA_WRITE_SOL_REAL_PLANES_F(const std::string& name, int k0, int k1, const double* planes, int& ier);
void ORVA_WRITE_SOL_START_F(const std::string& casepath, int& ier);
void ORVA_WRITE_SOL_END_F(const std::string& casepath, int& ier);
void CG_ORVA_FLUSH_F(const std::string& casepath, int fileid, int& ier);

// 1 when the host asks the run to stop, else 0.
void ORVA_CHECK_CANCEL_F(int& cancel);

// Whether the case holds the calculation condition `key` (not part of the
// host's calls: the solver's optional keys are read only when present).
bool HAS_KEY(const std::string& key);

// A digest of the case's input (its 2-D grid, bed and conditions) as the
// open case holds it; 0 when it cannot be read.  Processes of one run
// compare theirs: a case changed while they opened it is not one input.
std::uint64_t INPUT_DIGEST();

// ---- Guarding a case against a second run (not part of the host's calls) ----

// Takes the run lock of the case (an flock on "<case>.run", released by the
// system when the process ends) and clears what earlier runs left: a stale
// "<case>.lock", a "<case>.cancel" (with a note on standard error), a
// "<case>.next" never made the case, and "<case>.temp" of
// an interrupted compaction (removed, or
// renamed to the case if the case itself is gone).  Returns 1 with a message
// when another run holds the case; 0 otherwise (also when neither the case
// nor its copy exists: the open then reports the missing file).
int CLAIM_CASE(const std::string& path, std::string& message);

// Lets the case go at the end of a run or at a stop: drops a change of the
// case not yet made and a result not ended (the case keeps the results
// complete before), removes the result lock and the run lock.
void RELEASE_CASE();

// Whether storing the case or a result on disk has failed since the case was
// opened (said on standard error when it happened); the failed change makes
// the next change fail too.  Does not wait.
bool STORE_FAILED();

// The path of the open case (empty when none is open).
std::string CASE_PATH();

// Renames a case and its results folder together, the case's links to its
// results rewritten for the new name (the links name the folder).  Refused
// while a run holds the case or when the new names are taken.  0 when done;
// otherwise 1 with `error`, and the case as it was.
int RENAME_CASE(const std::string& from, const std::string& to, std::string& error);

// ---- Case authoring (what a host needs to write a new case) ----

struct Condition {
  enum Kind { Integer, Real, String } kind;
  std::string key;
  int ivalue = 0;
  double rvalue = 0.0;
  std::string svalue;
};

// Writes a complete new case file: the empty results base first, then the
// 2-D grid of ni*nj nodes (i fastest) with its Elevation, and the conditions.
// Returns 0 on success; on failure a message in `error`.
int write_case(const std::string& path, int ni, int nj, const std::vector<double>& x,
               const std::vector<double>& y, const std::vector<double>& elevation,
               const std::vector<Condition>& conditions, std::string& error);

}  // namespace orva
