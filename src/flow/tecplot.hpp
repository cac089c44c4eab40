// Tecplot ASCII output of the node fields (point format, ".plt").
#pragma once

#include <string>

namespace rl {

// Writes one snapshot of x, y, z, u, v, w, vort, Q on the grid nodes to
// <outpath>/<outfile><n>.plt.  u, v, w, vort and Q are averaged onto the
// nodes here; a node at or under the mean bed height of the four columns
// around it gets zeros.  vort and Q must be current (VORTICITY just before).
// reads: u, v, w, vort, Q, bed, the grid; writes: the file
void WRITETECPLOT(const std::string& outpath, const std::string& outfile, int n);

// Writes the bed surface (x, y and the node bed height) to the fixed path
// c:/temp/tecbedform<n>.plt.  Nothing in a run calls it.
// reads: bed, the grid; writes: the file
void WRITETECBED(int n);

// The name WRITETECPLOT writes to: folder and name stripped of blanks,
// joined by "/", then the number's digits and ".plt", cut at 200 characters.
std::string tecplot_file_name(const std::string& outpath, const std::string& outfile, int n);

// Writes x as one node-line field: exponent form with 14 digits after the
// decimal point, right-adjusted in 20 characters (no digit before the point,
// and an exponent as short as needed so that a blank always leads).  Where
// no 20-character form leaves a leading blank (a negative value below 1e-10
// in size, say) the field grows by what it needs.  Returns the characters
// written; out must hold 32.
int tecplot_field(double x, char* out);

}  // namespace rl
