// orvalib: the case library over the CGNS library's low-level node layer
// (cgio).  Everything after the case has been written works on nodes by
// path, so that opening the file never walks the whole tree: appending a
// result costs the same however many results the file already holds.
#include "orvalib/orvalib.hpp"

#include <cgns_io.h>
#include <cgnslib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace orva {

namespace {

constexpr int kStringLength = 200;  // length of a string condition handed back
constexpr int kPointerLength = 32;  // length of a name in FlowSolutionPointers
constexpr double kOpenRetrySeconds = 5.0;
// How long a run waits for a file that another program holds open: long
// enough to look at a result in a viewer, short enough that a forgotten
// viewer does not stall a run for good.
constexpr double kHeldWaitSeconds = 600.0;

// The library's one attached case.
struct State {
  std::string path;       // file name, trailing blanks removed
  int mode = CG_MODE_MODIFY;
  int cgio = -1;          // open cgio handle, -1 while the file is closed
  bool opened = false;    // CG_OPEN_F has run and CG_CLOSE_F has not
  // Selected 2-D grid.
  int ni2 = 0, nj2 = 0;
  // 3-D grid of the results, once written in this run.
  int ni3 = 0, nj3 = 0, nk3 = 0;
  // Results of this run: one time per solution started.
  std::vector<double> times;
  bool pending = false;   // the last solution is not yet declared in the iterative data
  bool in_result = false; // between result start and end (the lock file exists)
  double sol_id = 0.0;    // node of the current solution while the file stays open
  bool have_sol_id = false;
  std::string lockpath;
};

State st;

std::string trim(const std::string& s) {
  std::size_t e = s.find_last_not_of(' ');
  if (e == std::string::npos) return std::string();
  return s.substr(0, e + 1);
}

// A node name as the file stores it: at most 32 characters, no '/'.
bool valid_name(const std::string& name) {
  return !name.empty() && name.size() <= CGIO_MAX_NAME_LENGTH &&
         name.find('/') == std::string::npos;
}

// Whether another process holds the file open (HDF5 locks a file it opens
// with flock): our own exclusive lock, tried and let go at once, fails.
bool held_by_another(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY);
  if (fd < 0) return false;
  const bool held = ::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  ::close(fd);
  return held;
}

// Opens `path` with the cgio layer.  A failed open is retried for a few
// seconds; while another program (a viewer looking at a result) holds the
// file open, the wait goes on for up to kHeldWaitSeconds, with one note on
// standard error once it has lasted a few seconds.
int open_with_retry(const std::string& path, int cgio_mode, int& handle) {
  using clock = std::chrono::steady_clock;
  const auto start = clock::now();
  bool noted = false;
  for (;;) {
    int h = -1;
    if (cgio_open_file(path.c_str(), cgio_mode, cgio_mode == CGIO_MODE_WRITE ? CGIO_FILE_HDF5 : CGIO_FILE_NONE,
                       &h) == CGIO_ERR_NONE) {
      if (noted) std::fprintf(stderr, "riverles: %s is free again; the run goes on\n", path.c_str());
      handle = h;
      return 0;
    }
    // Only a file that exists can be held by another process.
    if (cgio_mode != CGIO_MODE_WRITE && !std::filesystem::exists(path)) return 1;
    const double waited = std::chrono::duration<double>(clock::now() - start).count();
    const bool held = held_by_another(path);
    if (waited >= (held ? kHeldWaitSeconds : kOpenRetrySeconds)) return 1;
    if (held && !noted && waited >= kOpenRetrySeconds) {
      std::fprintf(stderr,
                   "riverles: %s is held open by another program (a viewer?); waiting for it to let go "
                   "(at most %.0f minutes)\n",
                   path.c_str(), kHeldWaitSeconds / 60.0);
      noted = true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

// Makes sure the attached case is open, reopening it lazily after a flush
// or the end of a result.
int ensure_open() {
  if (st.cgio >= 0) return 0;
  if (!st.opened || st.path.empty()) return 1;
  const int m = st.mode == CG_MODE_READ ? CGIO_MODE_READ : CGIO_MODE_MODIFY;
  return open_with_retry(st.path, m, st.cgio);
}

void close_file() {
  if (st.cgio >= 0) {
    cgio_close_file(st.cgio);
    st.cgio = -1;
  }
  st.have_sol_id = false;
}

int root(double& id) { return cgio_get_root_id(st.cgio, &id) == CGIO_ERR_NONE ? 0 : 1; }

// Node id of an absolute path; 0 when found.
int node(const std::string& path, double& id) {
  double r;
  if (root(r)) return 1;
  return cgio_get_node_id(st.cgio, r, path.c_str(), &id) == CGIO_ERR_NONE ? 0 : 1;
}

bool exists(const std::string& path) {
  double id;
  return node(path, id) == 0;
}

// Deletes the node at `parent`/`name` if there is one; true when it did.
bool remove_child(const std::string& parent, const std::string& name) {
  double pid, id;
  if (node(parent, pid)) return false;
  if (cgio_get_node_id(st.cgio, pid, name.c_str(), &id) != CGIO_ERR_NONE) return false;
  return cgio_delete_node(st.cgio, pid, id) == CGIO_ERR_NONE;
}

// A name, label or data type as the cgio calls read it: they copy a whole
// fixed-size field (33 characters for names and labels), whatever the
// string's own length, so short strings are handed over in a zero-filled
// buffer of that size.
struct Field33 {
  char c[CGIO_MAX_NAME_LENGTH + 1] = {};
  explicit Field33(const std::string& s) { std::strncpy(c, s.c_str(), CGIO_MAX_NAME_LENGTH); }
};

// Writes the child `name` of `pid` with the given label and data, replacing
// the data of an existing node of that name.
int put(double pid, const std::string& name_, const char* label_, const char* type_, int ndims,
        const cgsize_t* dims, const void* data, double* out = nullptr) {
  const Field33 nm(name_), lb(label_), tp(type_);
  const char *name = nm.c, *label = lb.c, *type = tp.c;
  double id;
  if (cgio_get_node_id(st.cgio, pid, name, &id) == CGIO_ERR_NONE) {
    if (cgio_set_label(st.cgio, id, label) != CGIO_ERR_NONE) return 1;
    if (ndims > 0) {
      if (cgio_set_dimensions(st.cgio, id, type, ndims, dims) != CGIO_ERR_NONE) return 1;
      if (cgio_write_all_data(st.cgio, id, data) != CGIO_ERR_NONE) return 1;
    }
  } else {
    if (cgio_create_node(st.cgio, pid, name, &id) != CGIO_ERR_NONE) return 1;
    if (cgio_set_label(st.cgio, id, label) != CGIO_ERR_NONE) return 1;
    if (ndims > 0) {
      if (cgio_set_dimensions(st.cgio, id, type, ndims, dims) != CGIO_ERR_NONE) return 1;
      if (cgio_write_all_data(st.cgio, id, data) != CGIO_ERR_NONE) return 1;
    }
  }
  if (out) *out = id;
  return 0;
}

int put_string(double pid, const std::string& name, const char* label, const std::string& s,
               double* out = nullptr) {
  cgsize_t n = static_cast<cgsize_t>(s.size());
  return put(pid, name, label, "C1", 1, &n, s.data(), out);
}

// Number of values and data type of a node.
int shape(double id, char type[CGIO_MAX_DATATYPE_LENGTH + 1], long& count) {
  int nd = 0;
  cgsize_t dims[CGIO_MAX_DIMENSIONS];
  if (cgio_get_data_type(st.cgio, id, type) != CGIO_ERR_NONE) return 1;
  if (cgio_get_dimensions(st.cgio, id, &nd, dims) != CGIO_ERR_NONE) return 1;
  count = nd > 0 ? 1 : 0;
  for (int d = 0; d < nd; ++d) count *= dims[d];
  return 0;
}

// Reads `count` reals from a numeric node into `out`, converting to R8.
int read_reals(const std::string& path, double* out, long expected) {
  if (ensure_open()) return 1;
  double id;
  char type[CGIO_MAX_DATATYPE_LENGTH + 1] = {};
  long count = 0;
  if (node(path, id) || shape(id, type, count)) return 1;
  if (count != expected) return 1;
  if (std::strcmp(type, "R8") && std::strcmp(type, "R4") && std::strcmp(type, "I4") &&
      std::strcmp(type, "I8"))
    return 1;
  return cgio_read_all_data_type(st.cgio, id, "R8", out) == CGIO_ERR_NONE ? 0 : 1;
}

std::string solution_name(std::size_t n) { return "FlowSolution" + std::to_string(n); }

// Declares all solutions written so far: the iterative data of the results
// base and zone, and the copy of the times in the input base, so that the
// step count, the times and the pointers always agree.
//
// A kill may come at any instant, and the CGNS library refuses a file whose
// arrays disagree with the step count.  So every new array is first written
// whole as a draft beside the old one, under a label the library does not
// read, and the change is then made one node at a time, each change flushed
// before the next: the zone's pointers leave, the arrays of the base leave,
// the step count changes (a count with no arrays is valid), the new arrays
// come in and the pointers come back.  At every instant the file declares
// the old or the new number of results, each of them complete.  Every change
// is among a few nodes (never among the solutions of the zone), so it costs
// the same however many results are stored.
constexpr const char* kDraftLabel = "RiverlesDraft_t";

int flush_now() { return cgio_flush_to_disk(st.cgio) == CGIO_ERR_NONE ? 0 : 1; }

// parent/name.draft becomes parent/name with its real label.
int promote(const std::string& parent, const std::string& name, const char* label) {
  double pid, id;
  if (node(parent, pid)) return 1;
  const Field33 nm(name), lb(label);
  if (cgio_get_node_id(st.cgio, pid, (name + ".draft").c_str(), &id) != CGIO_ERR_NONE) return 1;
  if (cgio_set_name(st.cgio, pid, id, nm.c) != CGIO_ERR_NONE || flush_now()) return 1;
  if (cgio_set_label(st.cgio, id, lb.c) != CGIO_ERR_NONE || flush_now()) return 1;
  return 0;
}

// Removes parent/name, flushed.
int retire(const std::string& parent, const std::string& name) {
  remove_child(parent, name);
  return flush_now();
}

// The step count of a BaseIterativeData node, made if missing.
int set_steps(double base, int steps, double& id) {
  const cgsize_t one = 1;
  return put(base, "BaseIterativeData", "BaseIterativeData_t", "I4", 1, &one, &steps, &id) || flush_now();
}

int declare_solutions() {
  if (!st.pending) return 0;
  if (ensure_open()) return 1;
  const cgsize_t n = static_cast<cgsize_t>(st.times.size());
  std::vector<int> iters(st.times.size());
  for (std::size_t s = 0; s < iters.size(); ++s) iters[s] = static_cast<int>(s + 1);
  std::string pointers(static_cast<std::size_t>(n) * kPointerLength, ' ');
  for (std::size_t s = 0; s < st.times.size(); ++s) {
    const std::string name = solution_name(s + 1);
    pointers.replace(s * kPointerLength, name.size(), name);
  }
  const int steps = static_cast<int>(n);
  const std::string rbi = "/ResultBase/BaseIterativeData", ibi = "/InputBase/BaseIterativeData";
  const std::string zi = "/ResultBase/Zone1/ZoneIterativeData";
  double rb, ib, zone, bid, zid, iid;
  if (node("/ResultBase", rb) || node("/InputBase", ib) || node("/ResultBase/Zone1", zone)) return 1;
  // The containers: an empty ZoneIterativeData and a BaseIterativeData with
  // no arrays are valid with any step count.
  if (node(zi, zid) && put(zone, "ZoneIterativeData", "ZoneIterativeData_t", "MT", 0, nullptr, nullptr, &zid))
    return 1;
  if (node(rbi, bid) && set_steps(rb, steps, bid)) return 1;
  if (node(ibi, iid) && set_steps(ib, steps, iid)) return 1;
  // The drafts, whole.
  const cgsize_t pdims[2] = {kPointerLength, n};
  if (put(bid, "TimeValues.draft", kDraftLabel, "R8", 1, &n, st.times.data())) return 1;
  if (put(bid, "IterationValues.draft", kDraftLabel, "I4", 1, &n, iters.data())) return 1;
  if (put(zid, "FlowSolutionPointers.draft", kDraftLabel, "C1", 2, pdims, pointers.data())) return 1;
  if (put(iid, "TimeValues.draft", kDraftLabel, "R8", 1, &n, st.times.data())) return 1;
  if (flush_now()) return 1;
  // One node at a time.
  if (retire(zi, "FlowSolutionPointers") || retire(rbi, "TimeValues") || retire(rbi, "IterationValues")) return 1;
  if (set_steps(rb, steps, bid)) return 1;
  if (promote(rbi, "TimeValues", "DataArray_t") || promote(rbi, "IterationValues", "DataArray_t")) return 1;
  if (promote(zi, "FlowSolutionPointers", "DataArray_t")) return 1;
  if (retire(ibi, "TimeValues") || set_steps(ib, steps, iid) || promote(ibi, "TimeValues", "DataArray_t")) return 1;
  st.pending = false;
  return 0;
}

// Leaves everything written complete on disk and closes the file.
int finish_and_close() {
  int ier = 0;
  if (st.cgio >= 0 || st.pending) ier = declare_solutions();
  close_file();
  return ier;
}

// The data class node that both bases carry.
int put_dataclass(double pid) {
  return put_string(pid, "DataClass", "DataClass_t", "NormalizedByUnknownDimensional");
}

// The run lock of the attached case (CLAIM_CASE), -1 when none is held.
int run_lock_fd = -1;
std::string run_lock_path;

}  // namespace

int CLAIM_CASE(const std::string& path_, std::string& message) {
  const std::string path = trim(path_);
  const std::string temp = path + ".temp";
  std::error_code ec;
  if (!std::filesystem::exists(path, ec) && !std::filesystem::exists(temp, ec)) return 0;
  // The run lock: an flock on CASEFILE.run, which the system drops when the
  // process ends, however it ends.
  const std::string lockname = path + ".run";
  const int fd = ::open(lockname.c_str(), O_RDWR | O_CREAT, 0644);
  if (fd < 0) return 0;  // a folder we cannot write to: nothing to guard
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    ::close(fd);
    message = "another run is working on " + path + " (it holds " + lockname +
              "); two runs on one case would overwrite each other's results, so this one does not start";
    return 1;
  }
  // The process id, for a person who wonders who holds the case; nothing
  // reads it, so a failed write does not matter.
  const std::string pid = std::to_string(::getpid()) + "\n";
  [[maybe_unused]] const bool noted = ::ftruncate(fd, 0) == 0 && ::write(fd, pid.data(), pid.size()) > 0;
  run_lock_fd = fd;
  run_lock_path = lockname;
  // No other run is at work, so what earlier runs left is stale: a result
  // lock of a run killed while writing, and the copy of an interrupted
  // compaction, which is complete when the case itself is gone (the kill
  // came between the removal of the case and the renaming of the copy).
  std::filesystem::remove(path + ".lock", ec);
  if (std::filesystem::exists(temp, ec)) {
    if (std::filesystem::exists(path, ec))
      std::filesystem::remove(temp, ec);
    else
      std::filesystem::rename(temp, path, ec);
  }
  return 0;
}

void RELEASE_CASE() {
  if (st.in_result && !st.lockpath.empty()) std::remove(st.lockpath.c_str());
  st.in_result = false;
  if (run_lock_fd >= 0) {
    std::remove(run_lock_path.c_str());
    ::close(run_lock_fd);
    run_lock_fd = -1;
  }
}

void CG_OPEN_F(const std::string& path, int mode, int& fileid, int& ier) {
  fileid = 0;
  ier = 1;
  if (st.opened) {
    int dummy;
    CG_CLOSE_F(1, dummy);
  }
  const std::string p = trim(path);
  if (p.empty()) return;
  int m;
  switch (mode) {
    case CG_MODE_READ: m = CGIO_MODE_READ; break;
    case CG_MODE_WRITE: m = CGIO_MODE_WRITE; break;
    case CG_MODE_MODIFY: m = CGIO_MODE_MODIFY; break;
    default: return;
  }
  int h;
  if (open_with_retry(p, m, h)) return;
  st = State();
  st.path = p;
  st.mode = mode == CG_MODE_READ ? CG_MODE_READ : CG_MODE_MODIFY;
  st.cgio = h;
  st.opened = true;
  fileid = 1;
  ier = 0;
}

void CG_CLOSE_F(int, int& ier) {
  ier = 0;
  if (!st.opened) return;
  ier = finish_and_close();
  if (st.in_result && !st.lockpath.empty()) std::remove(st.lockpath.c_str());
  st = State();
}

void CG_ORVA_INIT_F(int, int& ier) {
  ier = 1;
  if (ensure_open()) return;
  double rid;
  if (root(rid)) return;
  // A case whose author left out the results base gets one here.
  double rb;
  if (node("/ResultBase", rb)) {
    const int dims[2] = {3, 3};
    const cgsize_t n = 2;
    if (put(rid, "ResultBase", "CGNSBase_t", "I4", 1, &n, dims, &rb)) return;
  }
  bool deleted = false;
  deleted |= remove_child("/ResultBase", "Zone1");
  deleted |= remove_child("/ResultBase", "BaseIterativeData");
  deleted |= remove_child("/InputBase", "BaseIterativeData");
  if (node("/ResultBase", rb)) return;
  if (!exists("/ResultBase/DataClass") && put_dataclass(rb)) return;
  if (!exists("/ResultBase/SimulationType") &&
      put_string(rb, "SimulationType", "SimulationType_t", "TimeAccurate"))
    return;
  if (deleted) {
    // HDF5 keeps the space of deleted nodes: write a compacted copy over
    // the file (this closes our handle), then open it again.
    if (cgio_compress_file(st.cgio, st.path.c_str()) != CGIO_ERR_NONE) {
      st.cgio = -1;
      return;
    }
    st.cgio = -1;
    if (ensure_open()) return;
  }
  st.ni3 = st.nj3 = st.nk3 = 0;
  st.times.clear();
  st.pending = false;
  st.have_sol_id = false;
  ier = 0;
}

void CG_ORVA_GOTOGRIDCOORD2D_F(int& isize, int& jsize, int& ier) {
  isize = jsize = 0;
  ier = 1;
  if (ensure_open()) return;
  double id;
  char type[CGIO_MAX_DATATYPE_LENGTH + 1] = {};
  long count = 0;
  if (node("/InputBase/Zone1", id) || shape(id, type, count) || count != 6) return;
  int size[6];
  if (cgio_read_all_data_type(st.cgio, id, "I4", size) != CGIO_ERR_NONE) return;
  st.ni2 = size[0];
  st.nj2 = size[1];
  isize = st.ni2;
  jsize = st.nj2;
  ier = 0;
}

void CG_ORVA_GETGRIDCOORD2D_F(double* x, double* y, int& ier) {
  ier = 1;
  if (st.ni2 <= 0) {
    int a, b;
    CG_ORVA_GOTOGRIDCOORD2D_F(a, b, ier);
    if (ier) return;
    ier = 1;
  }
  const long n = static_cast<long>(st.ni2) * st.nj2;
  if (read_reals("/InputBase/Zone1/GridCoordinates/CoordinateX", x, n)) return;
  if (read_reals("/InputBase/Zone1/GridCoordinates/CoordinateY", y, n)) return;
  ier = 0;
}

void CG_ORVA_READ_GRID_REAL_NODE_F(const std::string& name, double* array, int& ier) {
  ier = 1;
  const std::string nm = trim(name);
  if (!valid_name(nm)) return;
  if (st.ni2 <= 0) {
    int a, b;
    CG_ORVA_GOTOGRIDCOORD2D_F(a, b, ier);
    if (ier) return;
    ier = 1;
  }
  const long n = static_cast<long>(st.ni2) * st.nj2;
  if (read_reals("/InputBase/Zone1/NodeAttributes/" + nm, array, n)) return;
  ier = 0;
}

namespace {

// Finds a condition node; gives its type and value count.
int condition(const std::string& key, double& id, char type[CGIO_MAX_DATATYPE_LENGTH + 1],
              long& count) {
  const std::string k = trim(key);
  if (!valid_name(k)) return 1;
  if (ensure_open()) return 1;
  if (node("/InputBase/CalculationConditions/" + k, id)) return 1;
  return shape(id, type, count);
}

}  // namespace

void CG_ORVA_READ_INTEGER_F(const std::string& key, int& value, int& ier) {
  ier = 1;
  double id;
  char type[CGIO_MAX_DATATYPE_LENGTH + 1] = {};
  long count = 0;
  if (condition(key, id, type, count) || count != 1) return;
  if (std::strcmp(type, "I4") && std::strcmp(type, "I8")) return;
  int v;
  if (cgio_read_all_data_type(st.cgio, id, "I4", &v) != CGIO_ERR_NONE) return;
  value = v;
  ier = 0;
}

void CG_ORVA_READ_REAL_F(const std::string& key, double& value, int& ier) {
  ier = 1;
  double id;
  char type[CGIO_MAX_DATATYPE_LENGTH + 1] = {};
  long count = 0;
  if (condition(key, id, type, count) || count != 1) return;
  if (std::strcmp(type, "R8") && std::strcmp(type, "R4") && std::strcmp(type, "I4") &&
      std::strcmp(type, "I8"))
    return;
  double v;
  if (cgio_read_all_data_type(st.cgio, id, "R8", &v) != CGIO_ERR_NONE) return;
  value = v;
  ier = 0;
}

void CG_ORVA_READ_STRING_F(const std::string& key, std::string& value, int& ier) {
  ier = 1;
  double id;
  char type[CGIO_MAX_DATATYPE_LENGTH + 1] = {};
  long count = 0;
  if (condition(key, id, type, count) || std::strcmp(type, "C1")) return;
  std::string buf(static_cast<std::size_t>(count), '\0');
  if (count > 0 && cgio_read_all_data(st.cgio, id, buf.data()) != CGIO_ERR_NONE) return;
  // The text ends at the first NUL (an empty string is stored as one NUL).
  const std::size_t end = buf.find('\0');
  if (end != std::string::npos) buf.resize(end);
  if (buf.size() > static_cast<std::size_t>(kStringLength)) buf.resize(kStringLength);
  buf.resize(kStringLength, ' ');
  value = buf;
  ier = 0;
}

void CG_ORVA_WRITEGRIDCOORD3D_F(int isize, int jsize, int ksize, const double* x, const double* y,
                                const double* z, int& ier) {
  ier = 1;
  if (isize < 2 || jsize < 2 || ksize < 2) return;
  if (ensure_open()) return;
  double rb;
  if (node("/ResultBase", rb)) return;
  // A second grid replaces the zone and with it any results on it.
  if (remove_child("/ResultBase", "Zone1")) remove_child("/ResultBase", "BaseIterativeData");
  st.times.clear();
  st.pending = false;
  st.have_sol_id = false;
  const int size[9] = {isize, jsize, ksize, isize - 1, jsize - 1, ksize - 1, 0, 0, 0};
  const cgsize_t zdims[2] = {3, 3};
  double zone, gc;
  if (put(rb, "Zone1", "Zone_t", "I4", 2, zdims, size, &zone)) return;
  if (put_string(zone, "ZoneType", "ZoneType_t", "Structured")) return;
  if (put(zone, "GridCoordinates", "GridCoordinates_t", "MT", 0, nullptr, nullptr, &gc)) return;
  const cgsize_t dims[3] = {isize, jsize, ksize};
  if (put(gc, "CoordinateX", "DataArray_t", "R8", 3, dims, x)) return;
  if (put(gc, "CoordinateY", "DataArray_t", "R8", 3, dims, y)) return;
  if (put(gc, "CoordinateZ", "DataArray_t", "R8", 3, dims, z)) return;
  st.ni3 = isize;
  st.nj3 = jsize;
  st.nk3 = ksize;
  ier = 0;
}

void CG_ORVA_WRITE_SOL_TIME_F(double time, int& ier) {
  ier = 1;
  if (st.ni3 <= 0) return;
  if (ensure_open()) return;
  // Solutions are declared at the end of a result, a flush or a close: no
  // other program can read the file while it is open here.
  double zone, sol;
  if (node("/ResultBase/Zone1", zone)) return;
  const std::string name = solution_name(st.times.size() + 1);
  if (put(zone, name, "FlowSolution_t", "MT", 0, nullptr, nullptr, &sol)) return;
  st.sol_id = sol;
  st.have_sol_id = true;
  st.times.push_back(time);
  st.pending = true;
  ier = 0;
}

void CG_ORVA_WRITE_SOL_REAL_F(const std::string& name, const double* array, int& ier) {
  ier = 1;
  const std::string nm = trim(name);
  if (!valid_name(nm) || st.times.empty()) return;
  if (ensure_open()) return;
  // The solution's node: known from its start while the file stayed open,
  // else looked up by path.
  double sol = st.sol_id;
  if (!st.have_sol_id) {
    if (node("/ResultBase/Zone1/" + solution_name(st.times.size()), sol)) return;
    st.sol_id = sol;
    st.have_sol_id = true;
  }
  const cgsize_t dims[3] = {st.ni3, st.nj3, st.nk3};
  if (put(sol, nm, "DataArray_t", "R8", 3, dims, array)) return;
  ier = 0;
}

void ORVA_WRITE_SOL_START_F(const std::string& casepath, int& ier) {
  ier = 1;
  const std::string p = trim(casepath);
  if (p.empty()) return;
  st.lockpath = p + ".lock";
  {
    std::ofstream lock(st.lockpath);
    if (!lock) return;
  }
  st.in_result = true;
  if (ensure_open()) return;
  ier = 0;
}

void ORVA_WRITE_SOL_END_F(const std::string& casepath, int& ier) {
  ier = finish_and_close();
  const std::string p = trim(casepath);
  const std::string lock = p.empty() ? st.lockpath : p + ".lock";
  if (!lock.empty()) std::remove(lock.c_str());
  st.in_result = false;
}

void CG_ORVA_FLUSH_F(const std::string&, int, int& ier) { ier = finish_and_close(); }

void ORVA_CHECK_CANCEL_F(int& cancel) {
  cancel = 0;
  if (st.path.empty()) return;
  std::error_code ec;
  if (std::filesystem::exists(st.path + ".cancel", ec)) cancel = 1;
}

// ---- Case authoring ----

int write_case(const std::string& path, int ni, int nj, const std::vector<double>& x,
               const std::vector<double>& y, const std::vector<double>& elevation,
               const std::vector<Condition>& conditions, std::string& error) {
  const std::size_t n = static_cast<std::size_t>(ni) * static_cast<std::size_t>(nj);
  if (ni < 2 || nj < 2) {
    error = "the grid needs at least 2 nodes in each direction";
    return 1;
  }
  if (x.size() != n || y.size() != n || elevation.size() != n) {
    error = "coordinate or elevation arrays do not match the node counts";
    return 1;
  }
  for (const Condition& c : conditions) {
    if (!valid_name(c.key)) {
      error = "invalid key name '" + c.key + "'";
      return 1;
    }
  }
  int fn = 0;
  if (cg_open(path.c_str(), CG_MODE_WRITE, &fn) != CG_OK) {
    error = std::string("cannot create the case file: ") + cg_get_error();
    return 1;
  }
  auto fail = [&](const char* what) {
    error = std::string(what) + ": " + cg_get_error();
    cg_close(fn);
    std::remove(path.c_str());
    return 1;
  };
  int rb, ib, z, g, s, f, cx;
  // The results base comes first: viewers take their time steps from it.
  if (cg_base_write(fn, "ResultBase", 3, 3, &rb) != CG_OK) return fail("ResultBase");
  if (cg_goto(fn, rb, "end") != CG_OK || cg_dataclass_write(CGNS_ENUMV(NormalizedByUnknownDimensional)) != CG_OK)
    return fail("ResultBase DataClass");
  if (cg_simulation_type_write(fn, rb, CGNS_ENUMV(TimeAccurate)) != CG_OK) return fail("SimulationType");
  if (cg_base_write(fn, "InputBase", 2, 2, &ib) != CG_OK) return fail("InputBase");
  if (cg_goto(fn, ib, "end") != CG_OK || cg_dataclass_write(CGNS_ENUMV(NormalizedByUnknownDimensional)) != CG_OK)
    return fail("InputBase DataClass");
  cgsize_t size[6] = {ni, nj, ni - 1, nj - 1, 0, 0};
  if (cg_zone_write(fn, ib, "Zone1", size, CGNS_ENUMV(Structured), &z) != CG_OK) return fail("Zone1");
  if (cg_grid_write(fn, ib, z, "GridCoordinates", &g) != CG_OK) return fail("GridCoordinates");
  if (cg_coord_write(fn, ib, z, CGNS_ENUMV(RealDouble), "CoordinateX", x.data(), &cx) != CG_OK)
    return fail("CoordinateX");
  if (cg_coord_write(fn, ib, z, CGNS_ENUMV(RealDouble), "CoordinateY", y.data(), &cx) != CG_OK)
    return fail("CoordinateY");
  if (cg_sol_write(fn, ib, z, "NodeAttributes", CGNS_ENUMV(Vertex), &s) != CG_OK) return fail("NodeAttributes");
  if (cg_field_write(fn, ib, z, s, CGNS_ENUMV(RealDouble), "Elevation", elevation.data(), &f) != CG_OK)
    return fail("Elevation");
  if (cg_goto(fn, ib, "end") != CG_OK || cg_user_data_write("CalculationConditions") != CG_OK)
    return fail("CalculationConditions");
  if (cg_gopath(fn, "/InputBase/CalculationConditions") != CG_OK) return fail("CalculationConditions");
  for (const Condition& c : conditions) {
    cgsize_t len = 1;
    int rc = CG_OK;
    switch (c.kind) {
      case Condition::Integer:
        rc = cg_array_write(c.key.c_str(), CGNS_ENUMV(Integer), 1, &len, &c.ivalue);
        break;
      case Condition::Real:
        rc = cg_array_write(c.key.c_str(), CGNS_ENUMV(RealDouble), 1, &len, &c.rvalue);
        break;
      case Condition::String: {
        // No terminating NUL; an empty string is stored as one NUL, since a
        // zero-length array is not allowed.
        const char nul = '\0';
        len = c.svalue.empty() ? 1 : static_cast<cgsize_t>(c.svalue.size());
        rc = cg_array_write(c.key.c_str(), CGNS_ENUMV(Character), 1, &len,
                            c.svalue.empty() ? &nul : c.svalue.data());
        break;
      }
    }
    if (rc != CG_OK) return fail(c.key.c_str());
  }
  if (cg_close(fn) != CG_OK) {
    error = std::string("closing the case file: ") + cg_get_error();
    std::remove(path.c_str());
    return 1;
  }
  return 0;
}

}  // namespace orva
