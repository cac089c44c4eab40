// The case description of riverles-case: a small plain-text file that names
// the grid, the bed and any calculation condition that differs from its
// default.  docs/case-description.md describes the format for users.
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "orvalib/orvalib.hpp"

namespace rlcase {

// A fault in the description: the message is complete, "DESCRIPTION:LINE: ...".
struct DescriptionError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// One calculation condition with its default, in the order the solver reads them.
struct KeyDefault {
  const char* key;
  orva::Condition::Kind kind;
  const char* value;  // the default as the description would write it
};

// All 44 keys of a case with their defaults (a small laboratory flume), then
// the optional keys of the features beyond them.
const std::vector<KeyDefault>& key_defaults();

enum class BedKind { Flat, Slope, Dunes, Esri, Xyz };

struct Description {
  int ni = 33, nj = 9;                 // grid nodes in x and y
  double lx = 1.0, ly = 0.3;           // plan extents
  double x0 = 0.0, y0 = 0.0;           // origin: the node (0,0)
  BedKind bed = BedKind::Flat;
  std::vector<double> bedpar{0.0};     // parameters of the bed kind
  std::string bedfile;                 // resolved path of an ESRI or xyz file
  bool fill = false;                   // NODATA cells of an ESRI grid take the nearest valid value
  int bedline = 0;                     // line of the bed directive
  std::map<std::string, int> keyline;  // line of each key the description sets
  int detrendline = 0;                 // line of `detrend` (0: none)
  double seam = 0.0;                   // length of the blend across the periodic seam (0: none)
  int seamline = 0;
  int openline = 0;                    // line of `open` (0: a periodic box)
  double openslope = 0.0;              // the slope `open` was given (NaN: fit it)
  std::vector<orva::Condition> conditions;  // all keys not omitted, in catalogue order
};

// Reads and checks a description; throws DescriptionError.
Description parse_description(const std::string& path);

// Node coordinates (i fastest) and the bed elevation at every node; throws
// DescriptionError for a faulty bed file.
void build_grid(const Description& d, const std::string& descpath, std::vector<double>& x,
                std::vector<double>& y, std::vector<double>& z);

// Names the run's side outputs (saved state, statistics, logs, Tecplot) after
// the case file, where the description leaves outfileItm at its default:
// two cases in one folder then keep their own files.
void name_outputs_after(Description& d, const std::string& casefile);

// Reports the bed's mean slope along x and its step at the periodic seam
// (the last node column against the first); with `detrend` removes the
// slope (the least-squares plane's x part, the mean level kept), with
// `seam LENGTH` blends the two ends to their mean over LENGTH each.
// `open` opens the reach (an inflow at the first node column, an outflow at
// the last): the slope it is given (positive where the bed falls along x),
// or else the fitted mean slope, is removed as by `detrend`, and the case
// gets OpenReachItm 1 and SlopeItm, the slope whose gravity then drives the
// flow.
// Returns notes and warnings for standard error.
std::vector<std::string> shape_bed(Description& d, const std::string& descpath, const std::vector<double>& x,
                                   std::vector<double>& z);

// Checks the bed against the box and the data for the mistakes users make
// with real data; throws DescriptionError where the case cannot be right,
// and returns warnings ("DESCRIPTION:LINE: warning: ...") where it may not be.
std::vector<std::string> check_case(const Description& d, const std::string& descpath, const std::vector<double>& x,
                                    const std::vector<double>& y, const std::vector<double>& z);

// Sets the keys whose recommended value depends on the grid and the bed,
// where the description leaves them at their default: WallViscosityItm, the
// layers of the log layer's viscosity, as many as lie within 0.075 of the
// mean water depth (at least 1).  Returns a note for each key set.
std::vector<std::string> recommend_keys(Description& d, const std::vector<double>& z);

}  // namespace rlcase
