// orvalib: the case library over the CGNS library's low-level node layer
// (cgio).  Everything after the case has been written works on nodes by
// path, so that opening the file never walks the whole tree.
#include "orvalib/orvalib.hpp"

#include <cgns_io.h>
#include <cgnslib.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <deque>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace orva {

namespace {

constexpr int kStringLength = 200;  // length of a string condition handed back
constexpr int kPointerLength = 32;  // length of a name in FlowSolutionPointers
constexpr double kOpenRetrySeconds = 5.0;
// How long a run waits for a file that another program writes (holds open
// for writing): long enough for a person to finish a change, short enough
// that a forgotten program does not stall a run for good.  Programs that
// only read the case (viewers) never make a run wait.
constexpr double kHeldWaitSeconds = 600.0;
// The case is compacted when it has grown by more than this beyond twice its
// size after the last compaction (each declaration of the results leaves the
// space of the previous one behind).
constexpr std::uintmax_t kCompactSlack = 1u << 20;

// What tells one version of a file from another: a rename puts another
// inode at the path, a rewrite in place changes the size or the time.
struct FileMark {
  bool there = false;
  dev_t dev = 0;
  ino_t ino = 0;
  off_t size = 0;
  long long mtime_ns = 0;
  bool operator==(const FileMark&) const = default;
};

FileMark mark_of(const std::string& path) {
  struct stat sb;
  FileMark m;
  if (::stat(path.c_str(), &sb) != 0) return m;
  m.there = true;
  m.dev = sb.st_dev;
  m.ino = sb.st_ino;
  m.size = sb.st_size;
  m.mtime_ns = static_cast<long long>(sb.st_mtim.tv_sec) * 1000000000LL + sb.st_mtim.tv_nsec;
  return m;
}

// The library's one attached case.
//
// How a run stores its results, so that a kill at any instant loses nothing
// that was complete: the bulk data (the 3-D grid and each result) goes into
// files of its own in the folder "<case>.results", each written whole and
// closed before anything refers to it; the case itself is never changed in
// place: changes are made on a copy, "<case>.next", which then replaces the
// case by a rename.  The case links (a standard CGNS feature, followed by the
// CGNS library and by viewers) to the grid and to the results.  So at every
// instant the case is a complete file, the old one or the new one, and every
// result it declares lies in a complete file.
struct State {
  std::string path;       // file name, trailing blanks removed
  int mode = CG_MODE_MODIFY;
  int cgio = -1;          // open handle: the case (read only) or, while editing, "<case>.next"
  bool editing = false;   // cgio is "<case>.next", open for changes
  bool opened = false;    // CG_OPEN_F has run and CG_CLOSE_F has not
  // Selected 2-D grid.
  int ni2 = 0, nj2 = 0;
  // 3-D grid of the results, once written in this run.
  int ni3 = 0, nj3 = 0, nk3 = 0;
  // Results of this run: one time per result started.
  std::vector<double> times;
  std::vector<char> lost;    // per result: its file went with a deleted results folder
  bool relink = false;       // the case must stop declaring lost results
  std::size_t complete = 0;  // results whose files are written whole
  std::size_t declared = 0;  // results the case links and declares
  int res = -1;              // open handle of the result file being written
  double res_sol = 0.0;      // its solution node
  std::uintmax_t compact_size = 0;
  // The 3-D grid written a plane at a time: its file and coordinate nodes.
  int grid = -1;
  double grid_xyz[3] = {0.0, 0.0, 0.0};
  int grid_ni = 0, grid_nj = 0, grid_nk = 0;
  // The grid's file, held open once written: a results folder deleted
  // during the run gets it back from here.  And the folder as it was made
  // (device and inode), to tell a deleted or replaced folder.
  int grid_fd = -1;
  dev_t folder_dev = 0;
  ino_t folder_ino = 0;
  bool in_result = false;    // between result start and end (the lock file exists)
  FileMark edit_base;        // the case as it was when copied for the change under way
  FileMark own;              // the case as the run last left it (opened, or renamed into place)
  // A change by another program said once per case (between results; while
  // a result was stored, said by the background job).
  bool told_changed = false, told_edited = false;
  std::string lockpath;
};

State st;

void forget_results() {
  st.times.clear();
  st.lost.clear();
  st.relink = false;
  st.complete = st.declared = 0;
}


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

// A name, label or data type as the cgio calls read it: they copy a whole
// fixed-size field (33 characters for names and labels), whatever the
// string's own length, so short strings are handed over in a zero-filled
// buffer of that size.
struct Field33 {
  char c[CGIO_MAX_NAME_LENGTH + 1] = {};
  explicit Field33(const std::string& s) { std::strncpy(c, s.c_str(), CGIO_MAX_NAME_LENGTH); }
};

std::string solution_name(std::size_t n) { return "FlowSolution" + std::to_string(n); }
std::string next_path() { return st.path + ".next"; }
std::string side_dir() { return st.path + ".results"; }
std::string side_file(const std::string& file) { return side_dir() + "/" + file; }
// A side file as the case's links name it: relative to the case's folder, so
// that the case and its folder can be moved together.
std::string side_link(const std::string& file) {
  return std::filesystem::path(st.path).filename().string() + ".results/" + file;
}
std::string solution_file(std::size_t n) { return solution_name(n) + ".cgns"; }
constexpr const char* kGridFile = "Grid.cgns";

// Forces a file, or the entries of a folder, to disk.  A kill does not need
// it (the system keeps what a process wrote); a power cut does.
bool sync_path(const std::string& p, bool folder = false) {
  const int fd = ::open(p.c_str(), O_RDONLY | (folder ? O_DIRECTORY : 0));
  if (fd < 0) return false;
  const bool ok = ::fsync(fd) == 0;
  const int e = errno;
  ::close(fd);
  errno = e;
  return ok;
}

// A background job's failure, said at once with the path and the system's
// reason (the run itself stops at its next change of the case).
bool job_failed(const char* what, const std::string& path) {
  std::fprintf(stderr, "riverles: cannot %s %s: %s\n", what, path.c_str(), std::strerror(errno));
  return false;
}

// The durable end of a change: forcing finished files to disk, the rename of
// the next version over the case and the removal of a result lock, run in
// order by one background thread, so that a run goes on computing while the
// disk catches up (a forced write takes tens of milliseconds).  Only system
// calls on paths run there, never the CGNS library.  The order is what makes
// a power cut safe: a file is on disk before the case that links it is
// renamed into place, and a result's lock goes only once the case declares
// the result.  A job that fails makes every later wait report the failure.
class Durability {
 public:
  static Durability& get() {
    static Durability* d = new Durability();  // never destroyed: no join at exit
    return *d;
  }
  void push(std::function<bool()> job, bool renames) {
    std::lock_guard<std::mutex> g(m_);
    if (!worker_.joinable()) {
      worker_ = std::thread([this] { work(); });
      std::atexit([] { get().wait_all(); });
    }
    jobs_.push_back({std::move(job), renames});
    if (renames) ++renames_;
    cv_.notify_all();
  }
  // Until every job queued so far has run; false when one failed.
  bool wait_all() {
    std::unique_lock<std::mutex> g(m_);
    cv_.wait(g, [this] { return jobs_.empty() && !busy_; });
    return !failed_;
  }
  // Until the case on disk is the latest version (no rename pending).
  bool wait_case() {
    std::unique_lock<std::mutex> g(m_);
    cv_.wait(g, [this] { return renames_ == 0; });
    return !failed_;
  }
  // Whether a job has failed, without waiting.
  bool failed() {
    std::lock_guard<std::mutex> g(m_);
    return failed_;
  }
  // Forgets an earlier failure (a new case is attached).
  void reset() {
    wait_all();
    std::lock_guard<std::mutex> g(m_);
    failed_ = false;
  }

 private:
  struct Job {
    std::function<bool()> run;
    bool renames;
  };
  void work() {
    std::unique_lock<std::mutex> g(m_);
    for (;;) {
      cv_.wait(g, [this] { return !jobs_.empty(); });
      Job job = std::move(jobs_.front());
      jobs_.pop_front();
      busy_ = true;
      g.unlock();
      const bool ok = job.run();
      g.lock();
      busy_ = false;
      if (!ok) failed_ = true;
      if (job.renames) --renames_;
      cv_.notify_all();
    }
  }
  std::mutex m_;
  std::condition_variable cv_;
  std::deque<Job> jobs_;
  std::thread worker_;
  int renames_ = 0;
  bool busy_ = false, failed_ = false;
};

std::string case_folder() {
  const std::string f = std::filesystem::path(st.path).parent_path().string();
  return f.empty() ? "." : f;
}

// Whether another process writes the file: HDF5 locks a file it opens for
// writing with an exclusive flock, which a shared lock of ours, tried and
// let go at once, runs into.  Readers hold shared locks and do not count.
bool written_by_another(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY);
  if (fd < 0) return false;
  const bool held = ::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  ::close(fd);
  return held;
}

// Opens `path` with the cgio layer.  A failed open is retried for a few
// seconds; while another program writes the file, the wait goes on for up
// to kHeldWaitSeconds, with one note on standard error once it has lasted a
// few seconds.
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
    std::error_code ec;
    if (cgio_mode != CGIO_MODE_WRITE && !std::filesystem::exists(path, ec)) return 1;
    if (std::filesystem::is_directory(path, ec)) return 1;  // no wait makes a folder a file
    const double waited = std::chrono::duration<double>(clock::now() - start).count();
    const bool held = written_by_another(path);
    if (waited >= (held ? kHeldWaitSeconds : kOpenRetrySeconds)) return 1;
    if (held && !noted && waited >= kOpenRetrySeconds) {
      std::fprintf(stderr,
                   "riverles: %s is held open for writing by another program; waiting for it to let go "
                   "(at most %.0f minutes)\n",
                   path.c_str(), kHeldWaitSeconds / 60.0);
      noted = true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

// Makes sure the case (or its next version while editing) is open; the case
// itself is only ever opened for reading, and lazily after the end of a
// result or a flush closed it.
int ensure_open() {
  if (st.cgio >= 0) return 0;
  if (!st.opened || st.path.empty()) return 1;
  return open_with_retry(st.path, CGIO_MODE_READ, st.cgio);
}

void close_file() {
  if (st.cgio >= 0) {
    cgio_close_file(st.cgio);
    st.cgio = -1;
  }
  st.editing = false;
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
  if (cgio_get_node_id(st.cgio, pid, Field33(name).c, &id) != CGIO_ERR_NONE) return false;
  return cgio_delete_node(st.cgio, pid, id) == CGIO_ERR_NONE;
}

// Writes the child `name` of `pid` in the file `h` with the given label and
// data, replacing the data of an existing node of that name.
int put(int h, double pid, const std::string& name_, const char* label_, const char* type_, int ndims,
        const cgsize_t* dims, const void* data, double* out = nullptr) {
  const Field33 name(name_), label(label_), type(type_);
  double id;
  if (cgio_get_node_id(h, pid, name.c, &id) != CGIO_ERR_NONE &&
      cgio_create_node(h, pid, name.c, &id) != CGIO_ERR_NONE)
    return 1;
  if (cgio_set_label(h, id, label.c) != CGIO_ERR_NONE) return 1;
  if (ndims > 0) {
    if (cgio_set_dimensions(h, id, type.c, ndims, dims) != CGIO_ERR_NONE) return 1;
    // Without data the node is shaped for writes of parts to come.
    if (data && cgio_write_all_data(h, id, data) != CGIO_ERR_NONE) return 1;
  }
  if (out) *out = id;
  return 0;
}

// Writes planes k0..k1 (0-based, along the last of three dimensions
// ni x nj x nk) of a node of reals whose dimensions are set.
int put_planes(int h, double id, cgsize_t ni, cgsize_t nj, int k0, int k1, const double* planes) {
  const cgsize_t s0[3] = {1, 1, k0 + 1}, s1[3] = {ni, nj, k1 + 1}, one[3] = {1, 1, 1};
  const cgsize_t n[1] = {ni * nj * (k1 - k0 + 1)}, m0[1] = {1}, m1s[1] = {1};
  return cgio_write_data(h, id, s0, s1, one, 1, n, m0, n, m1s, planes) != CGIO_ERR_NONE;
}

int put_string(double pid, const std::string& name, const char* label, const std::string& s,
               double* out = nullptr) {
  cgsize_t n = static_cast<cgsize_t>(s.size());
  return put(st.cgio, pid, name, label, "C1", 1, &n, s.data(), out);
}

// A link `name` under `pid` to the node /`target` of a side file.
int put_link(double pid, const std::string& name, const std::string& file, const std::string& target) {
  double id;
  const std::string in_file = "/" + target;
  return cgio_create_link(st.cgio, pid, Field33(name).c, side_link(file).c_str(), in_file.c_str(), &id) ==
                 CGIO_ERR_NONE
             ? 0
             : 1;
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

// Starts a change of the case: the case is copied to "<case>.next" (while
// our read handle keeps writers out), which is then opened for changes.
int begin_edit() {
  if (st.editing) return 0;
  if (!Durability::get().wait_case()) return 1;
  if (st.mode == CG_MODE_READ || ensure_open()) return 1;
  st.edit_base = mark_of(st.path);
  if (st.own.there && st.edit_base.there && !(st.edit_base == st.own) && !st.told_changed) {
    st.told_changed = true;
    std::fprintf(stderr, "riverles: the case %s was changed by another program during the run; the run keeps "
                         "that version (its conditions take effect at the next run) and declares its results in "
                         "it (said once)\n", st.path.c_str());
  }
  std::error_code ec;
  std::filesystem::copy_file(st.path, next_path(), std::filesystem::copy_options::overwrite_existing, ec);
  close_file();
  if (ec) {
    // A full disk or a folder made read-only: nothing half-written stays.
    std::fprintf(stderr, "riverles: cannot copy the case to %s for a change: %s\n", next_path().c_str(),
                 ec.message().c_str());
    std::remove(next_path().c_str());
    return 1;
  }
  if (cgio_open_file(next_path().c_str(), CGIO_MODE_MODIFY, CGIO_FILE_NONE, &st.cgio) != CGIO_ERR_NONE) {
    st.cgio = -1;
    return 1;
  }
  st.editing = true;
  return 0;
}

// Writes a compacted copy of `file` over it (HDF5 never reuses the space of
// deleted nodes once a file is closed).
int compact(const std::string& file) {
  int h;
  if (cgio_open_file(file.c_str(), CGIO_MODE_MODIFY, CGIO_FILE_NONE, &h) != CGIO_ERR_NONE) return 1;
  if (cgio_compress_file(h, file.c_str()) != CGIO_ERR_NONE) return 1;  // closes h
  std::error_code ec;
  st.compact_size = std::filesystem::file_size(file, ec);
  return ec ? 1 : 0;
}

// Ends a change: "<case>.next" is closed, compacted if deleted space has
// piled up, forced to disk and renamed over the case.
int commit() {
  if (!st.editing) return 0;
  const std::string next = next_path();
  const bool closed = cgio_close_file(st.cgio) == CGIO_ERR_NONE;
  st.cgio = -1;
  st.editing = false;
  std::error_code ec;
  const std::uintmax_t size = std::filesystem::file_size(next, ec);
  if (!closed || ec || (size > 2 * st.compact_size + kCompactSlack && compact(next))) {
    std::fprintf(stderr, "riverles: cannot finish the change of the case in %s (a full disk?); the case keeps its "
                         "last complete version\n", next.c_str());
    std::remove(next.c_str());
    return 1;
  }
  // The case keeps its read handle on the version it opened, which holds
  // the same conditions; the next change waits for the rename.
  // Another program may have changed the case since it was copied (a host
  // or riverles-case rewriting it): that version is kept beside the case,
  // not lost under the run's.
  Durability::get().push(
      [next, path = st.path, folder = case_folder(), base = st.edit_base] {
        if (!sync_path(next)) return job_failed("force to disk", next);
        const FileMark now = mark_of(path);
        if (base.there && !now.there) {
          // Moved or deleted while the result was stored: not made again
          // behind the user's back; the run stops at its next change.
          std::remove(next.c_str());
          std::fprintf(stderr, "riverles: the case %s was moved or deleted during the run\n", path.c_str());
          return false;
        }
        if (now.there && !(now == base)) {
          const std::string kept = path + ".edited";
          // st.told_edited: the main thread waits for this job before it
          // lets the case go.
          if (std::rename(path.c_str(), kept.c_str()) == 0 && !st.told_edited) {
            st.told_edited = true;
            std::fprintf(stderr, "riverles: the case %s was changed by another program while the run stored a "
                                 "result; that version is kept as %s and the run's version, which declares its "
                                 "results, replaces it (said once)\n", path.c_str(), kept.c_str());
          }
        }
        if (std::rename(next.c_str(), path.c_str()) != 0) return job_failed("replace the case by", next);
        st.own = mark_of(path);  // read by the main thread only after waiting for this job
        sync_path(folder, true);
        return true;
      },
      true);
  return 0;
}

// Closes the result file being written and forces it to disk: from then on
// it is complete and may be linked.
int finish_result() {
  if (st.res < 0) return 0;
  const bool closed = cgio_close_file(st.res) == CGIO_ERR_NONE;
  st.res = -1;
  if (!closed) return 1;
  Durability::get().push(
      [file = side_file(solution_file(st.times.size()))] {
        // A file gone with its folder is a lost result, which the run's
        // check of the folder says and takes out of the case, not a failure.
        return sync_path(file) || errno == ENOENT || job_failed("force to disk the result file", file);
      },
      false);
  st.complete = st.times.size();
  return 0;
}

// Declares the complete results in the case being edited: the iterative data
// of the results base and zone, and the copy of the times in the input base.
// Results lost with a deleted results folder are left out (a run without
// such a loss declares results 1..count in order).
int declare(std::size_t count) {
  std::vector<int> iters;
  std::vector<double> times;
  for (std::size_t s = 0; s < count; ++s)
    if (!st.lost[s]) {
      iters.push_back(static_cast<int>(s + 1));
      times.push_back(st.times[s]);
    }
  const std::size_t kept = iters.size();
  if (kept == 0) {
    remove_child("/ResultBase", "BaseIterativeData");
    remove_child("/ResultBase/Zone1", "ZoneIterativeData");
    remove_child("/InputBase", "BaseIterativeData");
    return 0;
  }
  const cgsize_t n = static_cast<cgsize_t>(kept);
  const int steps = static_cast<int>(kept);
  std::string pointers(kept * kPointerLength, ' ');
  for (std::size_t s = 0; s < kept; ++s) {
    const std::string name = solution_name(static_cast<std::size_t>(iters[s]));
    pointers.replace(s * kPointerLength, name.size(), name);
  }
  const cgsize_t one = 1, pdims[2] = {kPointerLength, n};
  const int h = st.cgio;
  double rb, ib, zone, bid, zid, iid;
  if (node("/ResultBase", rb) || node("/InputBase", ib) || node("/ResultBase/Zone1", zone)) return 1;
  if (put(h, rb, "BaseIterativeData", "BaseIterativeData_t", "I4", 1, &one, &steps, &bid) ||
      put(h, bid, "TimeValues", "DataArray_t", "R8", 1, &n, times.data()) ||
      put(h, bid, "IterationValues", "DataArray_t", "I4", 1, &n, iters.data()))
    return 1;
  if (put(h, zone, "ZoneIterativeData", "ZoneIterativeData_t", "MT", 0, nullptr, nullptr, &zid) ||
      put(h, zid, "FlowSolutionPointers", "DataArray_t", "C1", 2, pdims, pointers.data()))
    return 1;
  if (put(h, ib, "BaseIterativeData", "BaseIterativeData_t", "I4", 1, &one, &steps, &iid) ||
      put(h, iid, "TimeValues", "DataArray_t", "R8", 1, &n, times.data()))
    return 1;
  return 0;
}

// The results folder as the run made it, or else: deleted or replaced
// during the run (by a user cleaning up, a script), the folder is made
// again with the grid's file (from the handle the run holds on it), the
// results whose files went with it are lost and the case stops declaring
// them, so that it still opens, and the run goes on.  Said at once.
void check_side_folder() {
  if (st.grid_fd < 0) return;
  struct stat sb;
  const std::string grid = side_file(kGridFile);
  if (::stat(side_dir().c_str(), &sb) == 0 && sb.st_dev == st.folder_dev && sb.st_ino == st.folder_ino &&
      ::access(grid.c_str(), F_OK) == 0)
    return;
  std::size_t gone = 0;
  double first = 0.0, last = 0.0;
  for (std::size_t s = 0; s < st.complete; ++s) {
    if (st.lost[s] || ::access(side_file(solution_file(s + 1)).c_str(), F_OK) == 0) continue;
    st.lost[s] = 1;
    if (gone++ == 0) first = st.times[s];
    last = st.times[s];
  }
  st.relink = st.relink || gone > 0;
  std::error_code ec;
  std::filesystem::create_directories(side_dir(), ec);
  bool restored = false;
  if (::access(grid.c_str(), F_OK) != 0) {
    const std::string part = grid + ".part";
    const int out = ::open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (out >= 0) {
      char buf[1 << 16];
      off_t at = 0;
      ssize_t got;
      bool ok = true;
      while (ok && (got = ::pread(st.grid_fd, buf, sizeof buf, at)) > 0) {
        ok = ::write(out, buf, static_cast<std::size_t>(got)) == got;
        at += got;
      }
      ok = ok && got == 0 && ::fsync(out) == 0;
      ::close(out);
      restored = ok && std::rename(part.c_str(), grid.c_str()) == 0;
      if (!restored) std::remove(part.c_str());
    }
  }
  if (::stat(side_dir().c_str(), &sb) == 0) {
    st.folder_dev = sb.st_dev;
    st.folder_ino = sb.st_ino;
  }
  std::fprintf(stderr, "riverles: the results folder %s was deleted or replaced during the run", side_dir().c_str());
  if (gone > 0)
    std::fprintf(stderr, ": %zu results (times %.9g to %.9g) went with it and the case no longer declares them",
                 gone, first, last);
  std::fprintf(stderr, "; %s; the run goes on with its next result\n",
               restored ? "the grid's file is written again" : "the grid's file is there");
}

int put_dataclass(double pid);

// The results base, made when the case's author left it out.
int put_result_base(double& rb) {
  double rid;
  if (root(rid)) return 1;
  if (node("/ResultBase", rb) == 0) return 0;
  const int dims[2] = {3, 3};
  const cgsize_t n = 2;
  return put(st.cgio, rid, "ResultBase", "CGNSBase_t", "I4", 1, &n, dims, &rb);
}

// What the results base says of its results, where it does not yet.
int put_result_marks(double rb) {
  if (!exists("/ResultBase/DataClass") && put_dataclass(rb)) return 1;
  if (!exists("/ResultBase/SimulationType") && put_string(rb, "SimulationType", "SimulationType_t", "TimeAccurate"))
    return 1;
  return 0;
}

// The zone of the results, linking the grid's file.
int put_zone(int ni, int nj, int nk) {
  double rb, zone;
  if (node("/ResultBase", rb)) return 1;
  const int size[9] = {ni, nj, nk, ni - 1, nj - 1, nk - 1, 0, 0, 0};
  const cgsize_t zdims[2] = {3, 3};
  if (put(st.cgio, rb, "Zone1", "Zone_t", "I4", 2, zdims, size, &zone)) return 1;
  if (put_string(zone, "ZoneType", "ZoneType_t", "Structured")) return 1;
  return put_link(zone, "GridCoordinates", kGridFile, "GridCoordinates");
}

// Makes everything written whole part of the case in one replacement: the
// pending changes, a link to each complete result and their declaration.
int publish() {
  if (finish_result()) return 1;
  check_side_folder();
  if (!st.editing && st.declared == st.complete && !st.relink) return 0;
  if (st.declared < st.complete || st.relink) {
    if (begin_edit()) return 1;
    // A case rewritten by another program during the run (riverles-case
    // making it anew) has lost the results zone: it is made again and
    // every result declared in it.
    if (!exists("/ResultBase/Zone1")) {
      double rb;
      if (put_result_base(rb) || put_result_marks(rb) || put_zone(st.ni3, st.nj3, st.nk3)) return 1;
      st.declared = 0;
    }
    double zone;
    if (node("/ResultBase/Zone1", zone)) return 1;
    for (std::size_t s = 0; s < st.complete; ++s)
      if (st.lost[s]) remove_child("/ResultBase/Zone1", solution_name(s + 1));
    for (std::size_t s = st.declared; s < st.complete; ++s) {
      if (st.lost[s]) continue;
      remove_child("/ResultBase/Zone1", solution_name(s + 1));
      if (put_link(zone, solution_name(s + 1), solution_file(s + 1), solution_name(s + 1))) return 1;
    }
    if (declare(st.complete)) return 1;
  }
  if (commit()) return 1;
  st.declared = st.complete;
  st.relink = false;
  return 0;
}

// Leaves everything written complete in the case and closes the file.
int finish_and_close() {
  const int ier = publish();
  close_file();
  return ier;
}

// Removes the results of a run from the case being edited: the zone of the
// results and the iterative data of both bases.  True when there were any.
bool clear_results() {
  bool deleted = false;
  deleted |= remove_child("/ResultBase", "Zone1");
  deleted |= remove_child("/ResultBase", "BaseIterativeData");
  deleted |= remove_child("/InputBase", "BaseIterativeData");
  forget_results();
  return deleted;
}

// Drops a change not yet made part of the case, and a result file not ended.
void abandon() {
  if (st.res >= 0) cgio_close_file(st.res);
  st.res = -1;
  if (st.grid >= 0) cgio_close_file(st.grid);
  st.grid = -1;
  if (st.editing) {
    close_file();
    std::remove(next_path().c_str());
  }
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
  Durability::get().reset();
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
  // lock of a run killed while writing, a next version of the case that was
  // never made the case (and its compaction copy), and the copy of a
  // compaction of the case itself, which is complete when the case is gone
  // (a kill between the removal of the case and the renaming of the copy).
  std::filesystem::remove(path + ".lock", ec);
  // A cancel request asks a run at work to stop; one present before this run
  // starts was left from an earlier run (the host asks this run only once it
  // runs) and would end this one after its first step, replacing the case's
  // results with that step's.
  const std::string cancel = path + ".cancel";
  if (std::filesystem::exists(cancel, ec)) {
    std::filesystem::remove(cancel, ec);
    std::fprintf(stderr,
                 "riverles: removed %s, a cancel request left from an earlier run; this run goes on (create the "
                 "file again to stop it)\n",
                 cancel.c_str());
  }
  std::filesystem::remove(path + ".next", ec);
  std::filesystem::remove(path + ".next.temp", ec);
  if (std::filesystem::exists(temp, ec)) {
    if (std::filesystem::exists(path, ec))
      std::filesystem::remove(temp, ec);
    else
      std::filesystem::rename(temp, path, ec);
  }
  return 0;
}

bool STORE_FAILED() { return Durability::get().failed(); }

std::string CASE_PATH() { return st.opened ? st.path : std::string(); }

void RELEASE_CASE() {
  // What is on its way to disk gets there while the run still holds the case.
  Durability::get().wait_all();
  abandon();
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
  Durability::get().reset();
  const std::string p = trim(path);
  if (p.empty() || (mode != CG_MODE_READ && mode != CG_MODE_WRITE && mode != CG_MODE_MODIFY)) return;
  int h;
  if (mode == CG_MODE_WRITE) {
    // A new empty file, then changed like any other.
    if (open_with_retry(p, CGIO_MODE_WRITE, h)) return;
    cgio_close_file(h);
  }
  if (open_with_retry(p, CGIO_MODE_READ, h)) return;
  st = State();
  st.path = p;
  st.mode = mode == CG_MODE_READ ? CG_MODE_READ : CG_MODE_MODIFY;
  st.cgio = h;
  st.opened = true;
  st.own = mark_of(p);
  fileid = 1;
  ier = 0;
}

void CG_CLOSE_F(int, int& ier) {
  ier = 0;
  if (!st.opened) return;
  ier = finish_and_close();
  if (!Durability::get().wait_all()) ier = 1;
  abandon();
  if (st.in_result && !st.lockpath.empty()) std::remove(st.lockpath.c_str());
  if (st.grid_fd >= 0) ::close(st.grid_fd);
  st = State();
}

void CG_ORVA_INIT_F(int, int& ier) {
  ier = 1;
  if (st.mode == CG_MODE_READ || ensure_open()) return;
  abandon();
  const bool has_results = exists("/ResultBase/Zone1") || exists("/ResultBase/BaseIterativeData") ||
                           exists("/InputBase/BaseIterativeData");
  const bool complete = exists("/ResultBase") && exists("/ResultBase/DataClass") &&
                        exists("/ResultBase/SimulationType");
  st.ni3 = st.nj3 = st.nk3 = 0;
  forget_results();
  if (has_results || !complete) {
    if (begin_edit()) return;
    double rb;
    if (put_result_base(rb)) return;
    const bool deleted = clear_results();
    if (put_result_marks(rb)) return;
    if (deleted) {
      // HDF5 keeps the space of deleted nodes: compact the next version
      // before it becomes the case, so that re-runs do not grow the file.
      cgio_close_file(st.cgio);
      st.cgio = -1;
      st.editing = false;
      if (compact(next_path())) return;
      if (cgio_open_file(next_path().c_str(), CGIO_MODE_MODIFY, CGIO_FILE_NONE, &st.cgio) != CGIO_ERR_NONE) {
        st.cgio = -1;
        return;
      }
      st.editing = true;
    }
    if (commit()) return;
  }
  std::error_code ec;
  st.compact_size = std::filesystem::file_size(st.path, ec);
  // The files of earlier results, now that the case no longer links them:
  // only the files this library writes there (anything else, and a file
  // that merely bears the folder's name, stays), then the folder if empty.
  if (std::filesystem::is_directory(side_dir(), ec)) {
    for (const auto& e : std::filesystem::directory_iterator(side_dir(), ec)) {
      const std::string name = e.path().filename().string();
      const bool ours = name == kGridFile || (name.starts_with("FlowSolution") && name.ends_with(".cgns") &&
                                              name.size() > 17 &&
                                              name.find_first_not_of("0123456789", 12) == name.size() - 5);
      if (ours && e.is_regular_file(ec)) std::filesystem::remove(e.path(), ec);
    }
    std::filesystem::remove(side_dir(), ec);  // fails, harmlessly, when something else is left
  } else if (std::filesystem::exists(side_dir(), ec)) {
    std::fprintf(stderr, "riverles: %s is not this case's results folder (it is a file): it is left as it is, and "
                         "the results cannot be written until it is moved away\n", side_dir().c_str());
  }
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

namespace {

// FNV-1a over bytes, continued from `h`.
std::uint64_t fnv(std::uint64_t h, const void* data, std::size_t n) {
  const auto* b = static_cast<const unsigned char*>(data);
  for (std::size_t i = 0; i < n; ++i) h = (h ^ b[i]) * 0x100000001b3ull;
  return h;
}

// Folds a node's name, label, type, shape and data, then its children's by
// name, into `h`.  The copy of the result times is left out:
// it changes with every result and is not input.
int digest_node(double id, std::uint64_t& h) {
  char name[CGIO_MAX_NAME_LENGTH + 1] = {}, label[CGIO_MAX_LABEL_LENGTH + 1] = {};
  char type[CGIO_MAX_DATATYPE_LENGTH + 1] = {};
  if (cgio_get_name(st.cgio, id, name) != CGIO_ERR_NONE || cgio_get_label(st.cgio, id, label) != CGIO_ERR_NONE)
    return 1;
  if (std::strcmp(name, "BaseIterativeData") == 0) return 0;
  int nd = 0;
  cgsize_t dims[CGIO_MAX_DIMENSIONS] = {};
  if (cgio_get_data_type(st.cgio, id, type) != CGIO_ERR_NONE ||
      cgio_get_dimensions(st.cgio, id, &nd, dims) != CGIO_ERR_NONE)
    return 1;
  h = fnv(h, name, sizeof name);
  h = fnv(h, label, sizeof label);
  h = fnv(h, type, sizeof type);
  h = fnv(h, dims, sizeof(cgsize_t) * static_cast<std::size_t>(nd));
  std::size_t size = 0;
  if (nd > 0 && std::strcmp(type, "MT") != 0) {
    cglong_t count = 0;
    const int bytes = cgio_compute_data_size(type, nd, dims, &count);  // of one value
    size = static_cast<std::size_t>(count) * static_cast<std::size_t>(bytes);
  }
  if (size > 0) {
    std::vector<unsigned char> data(size);
    if (cgio_read_all_data_type(st.cgio, id, type, data.data()) != CGIO_ERR_NONE) return 1;
    h = fnv(h, data.data(), size);
  }
  int n = 0;
  if (cgio_number_children(st.cgio, id, &n) != CGIO_ERR_NONE) return 1;
  if (n == 0) return 0;
  std::vector<double> kids(static_cast<std::size_t>(n));
  int got = 0;
  if (cgio_children_ids(st.cgio, id, 1, n, &got, kids.data()) != CGIO_ERR_NONE) return 1;
  // By name: a compacted copy of the case may store its children in
  // another order.
  std::vector<std::pair<std::string, double>> named;
  for (int c = 0; c < got; ++c) {
    char kid[CGIO_MAX_NAME_LENGTH + 1] = {};
    if (cgio_get_name(st.cgio, kids[static_cast<std::size_t>(c)], kid) != CGIO_ERR_NONE) return 1;
    named.emplace_back(kid, kids[static_cast<std::size_t>(c)]);
  }
  std::sort(named.begin(), named.end());
  for (const auto& k : named)
    if (digest_node(k.second, h)) return 1;
  return 0;
}

}  // namespace

std::uint64_t INPUT_DIGEST() {
  double id;
  std::uint64_t h = 0xcbf29ce484222325ull;
  if (ensure_open() || node("/InputBase", id) || digest_node(id, h)) return 0;
  return h;
}

bool HAS_KEY(const std::string& key) {
  double id;
  char type[CGIO_MAX_DATATYPE_LENGTH + 1] = {};
  long count = 0;
  return condition(key, id, type, count) == 0;
}

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

void CG_ORVA_BEGIN_GRIDCOORD3D_F(int isize, int jsize, int ksize, int& ier) {
  ier = 1;
  if (isize < 2 || jsize < 2 || ksize < 2 || st.mode == CG_MODE_READ) return;
  if (ensure_open() || !exists("/ResultBase")) return;
  // A second grid replaces the zone and with it any results on it; the case
  // stops linking the old grid before its file is written anew.
  if (finish_result()) return;
  if (exists("/ResultBase/Zone1")) {
    if (begin_edit()) return;
    clear_results();
    if (commit()) return;
  }
  forget_results();
  st.ni3 = st.nj3 = st.nk3 = 0;
  // The grid in a side file of its own, its three coordinates shaped for
  // the planes to come.
  std::error_code ec;
  std::filesystem::create_directories(side_dir(), ec);
  const std::string file = side_file(kGridFile);
  int h;
  double r, gc;
  if (cgio_open_file(file.c_str(), CGIO_MODE_WRITE, CGIO_FILE_HDF5, &h) != CGIO_ERR_NONE) return;
  const cgsize_t dims[3] = {isize, jsize, ksize};
  const bool made = cgio_get_root_id(h, &r) == CGIO_ERR_NONE &&
                    !put(h, r, "GridCoordinates", "GridCoordinates_t", "MT", 0, nullptr, nullptr, &gc) &&
                    !put(h, gc, "CoordinateX", "DataArray_t", "R8", 3, dims, nullptr, &st.grid_xyz[0]) &&
                    !put(h, gc, "CoordinateY", "DataArray_t", "R8", 3, dims, nullptr, &st.grid_xyz[1]) &&
                    !put(h, gc, "CoordinateZ", "DataArray_t", "R8", 3, dims, nullptr, &st.grid_xyz[2]);
  if (!made) {
    cgio_close_file(h);
    return;
  }
  st.grid = h;
  st.grid_ni = isize;
  st.grid_nj = jsize;
  st.grid_nk = ksize;
  ier = 0;
}

void CG_ORVA_WRITE_GRIDCOORD3D_PLANES_F(int k0, int k1, const double* x, const double* y, const double* z,
                                       int& ier) {
  ier = 1;
  if (st.grid < 0 || k0 < 0 || k1 < k0 || k1 >= st.grid_nk) return;
  const double* xyz[3] = {x, y, z};
  for (int c = 0; c < 3; ++c)
    if (put_planes(st.grid, st.grid_xyz[c], st.grid_ni, st.grid_nj, k0, k1, xyz[c])) return;
  ier = 0;
}

void CG_ORVA_END_GRIDCOORD3D_F(int& ier) {
  ier = 1;
  if (st.grid < 0) return;
  const bool closed = cgio_close_file(st.grid) == CGIO_ERR_NONE;
  st.grid = -1;
  if (!closed) return;
  const std::string file = side_file(kGridFile);
  Durability::get().push(
      [file] { return sync_path(file) || errno == ENOENT || job_failed("force to disk the grid file", file); },
      false);
  if (st.grid_fd >= 0) ::close(st.grid_fd);
  st.grid_fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat sb;
  if (::stat(side_dir().c_str(), &sb) == 0) {
    st.folder_dev = sb.st_dev;
    st.folder_ino = sb.st_ino;
  }
  // The zone, linking it, made part of the case at once: a run that stops
  // before its first result (a saved state that cannot be read, a solver
  // key missing) leaves a case that shows the grid it wrote.
  if (begin_edit()) return;
  if (put_zone(st.grid_ni, st.grid_nj, st.grid_nk)) return;
  if (commit()) return;
  st.ni3 = st.grid_ni;
  st.nj3 = st.grid_nj;
  st.nk3 = st.grid_nk;
  ier = 0;
}

void CG_ORVA_WRITEGRIDCOORD3D_F(int isize, int jsize, int ksize, const double* x, const double* y,
                                const double* z, int& ier) {
  CG_ORVA_BEGIN_GRIDCOORD3D_F(isize, jsize, ksize, ier);
  if (ier == 0) CG_ORVA_WRITE_GRIDCOORD3D_PLANES_F(0, ksize - 1, x, y, z, ier);
  if (ier == 0) {
    CG_ORVA_END_GRIDCOORD3D_F(ier);
  } else if (st.grid >= 0) {
    cgio_close_file(st.grid);
    st.grid = -1;
  }
}

void CG_ORVA_WRITE_SOL_TIME_F(double time, int& ier) {
  ier = 1;
  if (st.ni3 <= 0 || st.mode == CG_MODE_READ) return;
  // A result that was not ended is complete as far as it got.
  if (finish_result()) return;
  // The new result goes into a side file of its own; the case links it once
  // the file is whole (at the end of the result, a flush or the close).
  check_side_folder();
  const std::size_t n = st.times.size() + 1;
  const std::string file = side_file(solution_file(n));
  std::error_code ec;
  std::filesystem::create_directories(side_dir(), ec);
  int h;
  double r, sol;
  if (cgio_open_file(file.c_str(), CGIO_MODE_WRITE, CGIO_FILE_HDF5, &h) != CGIO_ERR_NONE) return;
  if (cgio_get_root_id(h, &r) != CGIO_ERR_NONE ||
      put(h, r, solution_name(n), "FlowSolution_t", "MT", 0, nullptr, nullptr, &sol)) {
    cgio_close_file(h);
    std::remove(file.c_str());
    return;
  }
  st.res = h;
  st.res_sol = sol;
  st.times.push_back(time);
  st.lost.push_back(0);
  ier = 0;
}

void CG_ORVA_WRITE_SOL_REAL_F(const std::string& name, const double* array, int& ier) {
  ier = 1;
  const std::string nm = trim(name);
  if (!valid_name(nm) || st.res < 0) return;
  const cgsize_t dims[3] = {st.ni3, st.nj3, st.nk3};
  if (put(st.res, st.res_sol, nm, "DataArray_t", "R8", 3, dims, array)) return;
  ier = 0;
}

void CG_ORVA_WRITE_SOL_REAL_PLANES_F(const std::string& name, int k0, int k1, const double* planes, int& ier) {
  ier = 1;
  const std::string nm = trim(name);
  if (!valid_name(nm) || st.res < 0 || k0 < 0 || k1 < k0 || k1 >= st.nk3) return;
  double id;
  if (k0 == 0) {
    const cgsize_t dims[3] = {st.ni3, st.nj3, st.nk3};
    if (put(st.res, st.res_sol, nm, "DataArray_t", "R8", 3, dims, nullptr, &id)) return;
  } else {
    const Field33 n(nm);
    if (cgio_get_node_id(st.res, st.res_sol, n.c, &id) != CGIO_ERR_NONE) return;
  }
  if (put_planes(st.res, id, st.ni3, st.nj3, k0, k1, planes)) return;
  ier = 0;
}

void ORVA_WRITE_SOL_START_F(const std::string& casepath, int& ier) {
  ier = 1;
  const std::string p = trim(casepath);
  if (p.empty()) return;
  // The lock of the result before goes once the case declares that result.
  if (!Durability::get().wait_all()) return;
  st.lockpath = p + ".lock";
  {
    std::ofstream lock(st.lockpath);
    if (!lock) return;
  }
  st.in_result = true;
  ier = 0;
}

void ORVA_WRITE_SOL_END_F(const std::string& casepath, int& ier) {
  ier = finish_and_close();
  const std::string p = trim(casepath);
  const std::string lock = p.empty() ? st.lockpath : p + ".lock";
  // The lock tells the host that the result is not yet part of the case: it
  // goes after the case that declares the result has replaced the old one.
  if (!lock.empty())
    Durability::get().push(
        [lock] {
          std::remove(lock.c_str());
          return true;
        },
        false);
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

namespace orva {

int RENAME_CASE(const std::string& from, const std::string& to, std::string& error) {
  namespace fs = std::filesystem;
  std::error_code ec;
  const std::string from_dir = from + ".results", to_dir = to + ".results", next = to + ".next";
  if (!fs::is_regular_file(from, ec)) return error = from + " is not a case file", 1;
  if (fs::exists(to, ec) || fs::exists(to_dir, ec)) return error = to + " or " + to_dir + " exists already", 1;
  std::string busy;
  if (CLAIM_CASE(from, busy) != 0) return error = busy, 1;
  RELEASE_CASE();
  // The links name the folder by the case's file name, relative to the
  // case's folder: the copy's links are written anew for the new name.
  const std::string old_prefix = fs::path(from).filename().string() + ".results/";
  const std::string new_prefix = fs::path(to).filename().string() + ".results/";
  fs::copy_file(from, next, fs::copy_options::overwrite_existing, ec);
  if (ec) return error = "cannot copy " + from + " to " + next + ": " + ec.message(), 1;
  int h = -1;
  if (cgio_open_file(next.c_str(), CGIO_MODE_MODIFY, CGIO_FILE_NONE, &h) != CGIO_ERR_NONE) {
    fs::remove(next, ec);
    return error = next + " does not open as a case", 1;
  }
  bool ok = true;
  double root, zone;
  if (cgio_get_root_id(h, &root) == CGIO_ERR_NONE &&
      cgio_get_node_id(h, root, "/ResultBase/Zone1", &zone) == CGIO_ERR_NONE) {
    int n = 0;
    cgio_number_children(h, zone, &n);
    std::vector<double> kids(static_cast<std::size_t>(n));
    int got = 0;
    if (n > 0) cgio_children_ids(h, zone, 1, n, &got, kids.data());
    for (int c = 0; c < got && ok; ++c) {
      int flen = 0, nlen = 0;
      if (cgio_is_link(h, kids[static_cast<std::size_t>(c)], &flen) != CGIO_ERR_NONE || flen <= 0) continue;
      char name[CGIO_MAX_NAME_LENGTH + 1] = {};
      cgio_link_size(h, kids[static_cast<std::size_t>(c)], &flen, &nlen);
      std::string file(static_cast<std::size_t>(flen) + 1, '\0'), target(static_cast<std::size_t>(nlen) + 1, '\0');
      ok = cgio_get_name(h, kids[static_cast<std::size_t>(c)], name) == CGIO_ERR_NONE &&
           cgio_get_link(h, kids[static_cast<std::size_t>(c)], file.data(), target.data()) == CGIO_ERR_NONE;
      file.resize(std::strlen(file.c_str()));
      target.resize(std::strlen(target.c_str()));
      if (!ok || !file.starts_with(old_prefix)) continue;
      double id;
      const std::string renamed = new_prefix + file.substr(old_prefix.size());
      ok = cgio_delete_node(h, zone, kids[static_cast<std::size_t>(c)]) == CGIO_ERR_NONE &&
           cgio_create_link(h, zone, name, renamed.c_str(), target.c_str(), &id) == CGIO_ERR_NONE;
    }
  }
  ok = cgio_close_file(h) == CGIO_ERR_NONE && ok;
  if (!ok) {
    fs::remove(next, ec);
    return error = "cannot rewrite the links of " + next, 1;
  }
  // The folder first, then the case: a case never names a folder that is
  // not there under its name for longer than these two renames.
  if (fs::exists(from_dir, ec)) {
    fs::rename(from_dir, to_dir, ec);
    if (ec) {
      fs::remove(next, ec);
      return error = "cannot rename " + from_dir + " to " + to_dir + ": " + ec.message(), 1;
    }
  }
  fs::rename(next, to, ec);
  if (ec) return error = "cannot rename " + next + " to " + to + ": " + ec.message(), 1;
  fs::remove(from, ec);
  fs::remove(from + ".run", ec);
  return 0;
}

}  // namespace orva
