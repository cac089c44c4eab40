// An open reach: the low x face an inflow and the high x face an outflow,
// instead of the periodic box (the case's OpenReachItm 1).
//
// The inflow carries the case's discharge at every step, with turbulence
// from the synthetic-eddy generator over the inlet's own cross-section; the
// outflow is convective (eddies leave at the bulk velocity of the outlet's
// wet section) and its flux is balanced against the inflow's before each
// projection, so that what leaves the box equals what enters.  Gravity's
// component along the tilted reach (SlopeItm, the mean bed slope that was
// taken out of the bed) drives the flow in place of the discharge
// controller.  Without the key nothing here runs and x stays periodic.
#pragma once

#include <string>

namespace rl {

// Whether the case opens the reach.
bool open_reach();
// Reads OpenReachItm (and with it SlopeItm) and, for an open reach, gives
// the x faces their types: a given gradient for every velocity and the
// pressure, so that the boundary routines leave the face velocities u(0)
// and u(imax) to the open faces and the correction does not move them;
// and the box's bottom closed.
// After the boundary table.
void open_reach_types();
// The generator over the inlet's section, the outlet's wet area; on a
// restart the generator's state saved beside startfile (empty: a fresh
// start).  After the flags and the roughness are known.
void open_reach_start(const std::string& startfile);

// The mean slope of the reach (tangent of the frame's tilt).
double reach_slope();

// A step's new face values: the inflow plane (the generator moved on by dt)
// into u(0) and the tangential ghosts of the inlet, the convective outflow
// from the velocities of the previous step into the fluid faces u(imax) and
// the tangential ghosts of the outlet.  After the predictors.
void open_faces_predict();
// The outflow's flux made equal to the inflow's: a uniform shift over the
// outlet's fluid faces.  After the forcing, before the projection.
void balance_outflow();
// The open faces' values put back after a pass of the boundaries (which
// give the faces a zero gradient) or the correction: by the main thread.
void open_faces_apply();

// The pressure correction's level: with a given gradient on every face the
// pressure equation fixes the correction up to a constant, which the
// relaxation order (threads, processes) would choose; its mean over the box
// is made 0.  After the pressure solve.
void level_pressure();

// The discharge through the outlet (face imax) as the controller measures
// it at the inlet, from the velocity u; every process takes part.
double outlet_discharge();

// The generator's state beside the saved state, so that a restart goes on
// with the same inflow.
void save_inflow_state(const std::string& outpath, const std::string& outfile);

}  // namespace rl
