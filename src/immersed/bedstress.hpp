// The momentum the walls take from the flow.
//
// Each forcing of a wall replaces a velocity by its wall law's value: the two
// forcings of the bed in a step (at the forcing points of u and v) and the
// side walls' law (u in the first row).  The velocity it removed, times the
// density and the position's volume, is momentum that the wall took from the
// flow in that step.  Summed over a column and divided by the column's plan
// area and the step, it is the stress of the flow on the bed of that column:
// in a steady periodic reach the bed takes what the driving force puts in, so
// its plan mean balances the momentum (dens x driving force x water volume /
// plan area), which the wall law's own estimate of u* does not.
//
// The ledger is kept only when it is switched on (the statistics use it); the
// flow does not read it.
#pragma once

#include "common/array.hpp"

namespace rl {

// Switches the ledger on (allocates it, empty) or off.
void bed_ledger_start(bool on);
bool bed_ledger_on();

// Velocity d removed at face (i, j, k) of u (pass 0) or v (pass 1) by a
// wall's forcing in this step.  Safe to call from several threads.
void bed_take(int pass, int i, int j, double d);

// The stress of the flow on the bed of each of this process's columns over
// the step just done (dens * dz * removed velocity / dt, each face shared
// half and half by the two columns it parts), into tx, ty; the ledger is
// then emptied for the next step.  Every process calls it together.
void bed_stress_of_step(Array2<double>& tx, Array2<double>& ty);

// Empties the ledger (a step that is not sampled).
void bed_ledger_clear();

}  // namespace rl
