// Turbulent inflow for an open reach: a synthetic-eddy generator over the
// inlet's own cross-section (a first piece of the open reach; nothing calls
// it yet).
//
// The mean velocity follows the rough-bed log law in each column (the
// height above that column's bed, the roughness ks), scaled so that the
// section carries the discharge; the fluctuations come from eddies of one
// size that drift through a box around the inlet plane with the bulk
// velocity, each adding a signed, linearly decaying bump (Jarrin et al.'s
// synthetic eddy method), coloured by the Cholesky factor of the open
// channel's Reynolds stresses (Nezu and Nakagawa's intensities 2.30, 1.63,
// 1.27 u* exp(-z/h) and the shear stress -u*^2 (1 - z/h)).  After the
// fluctuations, a uniform shift over the wet positions makes the section
// carry the discharge exactly, measured as the discharge controller
// measures it (each cell's wet height, dy wide).  Columns of dry bed and
// cells under the bed get 0.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <random>
#include <vector>

namespace rl {

// The inlet as a plane of cells: columns j = 1..nj (y = (j - 0.5) dy),
// layers k = 1..nk from zmin, the bed height at the inlet face of each
// column, the lid at zmin + nk dz.
struct InletSection {
  int nj = 0, nk = 0;
  double dy = 0.0, dz = 0.0, zmin = 0.0;
  std::vector<double> bed;  // [j - 1]
  // Whether the discharge counts cell (j, k) at all, [(k - 1) nj + j - 1]
  // (the controller leaves out faces flagged solid); empty: every cell.
  std::vector<char> counted;
};

class SyntheticInflow {
 public:
  // Sets up the mean profile and the eddies for `discharge` over the
  // section with bed roughness ks (a length); the eddy size is a fifth of
  // the mean depth, but at least 1.5 cells.  The random numbers come from a
  // generator in its default state.
  void start(const InletSection& s, double discharge, double ks);
  // Moves the eddies on by the bulk velocity times dt (those leaving the
  // box come back at its entry with new places and signs).
  void advance(double dt);
  // The velocities at the section's cells, nj x nk each, j fastest: u
  // carrying the discharge exactly, v and w the fluctuations (the mean
  // flow is along x); 0 where a cell is not wet.
  void plane(std::vector<double>& u, std::vector<double>& v, std::vector<double>& w) const;

  // A plane u over the section's cells (nj x nk, j fastest) shifted
  // uniformly over its wet cells so that it carries the discharge exactly.
  void carry_discharge(std::vector<double>& u) const;
  // The mean profile's velocity at cell (j, k) (0 where it is not wet).
  double mean(int j, int k) const {
    return mean_[static_cast<std::size_t>(k - 1) * static_cast<std::size_t>(s_.nj) + (j - 1)];
  }

  // The wet height of cell (j, k) (as the discharge controller counts it)
  // and the friction velocity and bulk velocity of the mean profile.
  double wet_height(int j, int k) const;
  double friction_velocity() const { return ustar_; }
  double bulk_velocity() const { return ubulk_; }
  double eddy_size() const { return sigma_; }

  // The generator's state (eddies and random numbers), so that a restart
  // goes on with the same planes, bit for bit.
  void save(std::ostream& out) const;
  bool load(std::istream& in);

 private:
  double draw();  // uniform in [0, 1)
  void place(std::size_t e, double x);

  InletSection s_;
  double q_ = 0.0, ks_ = 0.0, ustar_ = 0.0, ubulk_ = 0.0, sigma_ = 0.0;
  double y0_ = 0.0, y1_ = 0.0, z0_ = 0.0, z1_ = 0.0, volume_ = 0.0;
  std::vector<double> mean_, a11_, a22_, a31_, a33_;  // per cell
  std::vector<double> ex_, ey_, ez_;                  // eddy centres
  std::vector<signed char> e1_, e2_, e3_;             // eddy signs
  std::mt19937_64 rng_;
};

}  // namespace rl
