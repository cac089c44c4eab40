// Initial state: a uniform flow, optionally with uniform noise, and the
// optional perturbation of the bed's node elevations.
#pragma once

#include <random>

namespace rl {

// The run's one random generator, in its default state: a run repeats its
// noise.  Velocity draws come first, bed draws after them.
std::mt19937_64& random_generator();
// One uniform number in [0, 1) of double precision.
double uniform_draw();

// Gives every field a defined start (velocities, old velocities, pressure,
// multigrid corrections, right-hand sides, eddy viscosity, work arrays, slot
// list) and adds the velocity noise when iperturb is not 0.
// reads: initial, iperturb, amplitude, discharge, ymin, ymax, zmax; writes: p, pmg.phi, u, v, w, uo, vo, wo,
//  rhs*, vort, Q, nut, s11..sabs, nslot, slotflag
void INITFIELDS();

// Adds uniform noise of half-width bamplitude to every node of elev.
// reads: bamplitude, the generator; writes: elev
void PERTURBBED();

}  // namespace rl
