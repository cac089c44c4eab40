// End of a step: carrying the state over, clearing solid positions.
#pragma once

namespace rl {

// reads: u, v, w, flagu, flagv, flagw; writes: uo, vo, wo, flaguo, flagvo, flagwo
void SAVEOLD();
// reads: flagu, flagv, flagw, flagc; writes: u, v, w, nut at solid positions
void ZEROFLAGGED();

// The solid at rest (the optional key SolidRestItm 1).  The predictor
// advances every position, the solid's too, with the driving force, and the
// solid is otherwise cleared only in steps shorter than DTCLEAN: in between
// it keeps what the force and its fluid neighbours gave it and grows, step
// after step, into flows that the projection couples to the water (dry
// banks above the lid, a floodplain under the bed).  At rest, the solid is
// cleared in every step, after the forcing of the predicted field (so the
// projection sees no flow through the solid) and again after the forcing of
// the corrected one (so no step starts with the pressure's push in it).
// With the bed's ledger kept, what is cleared from u and v counts as
// momentum the bed took: the flux from the water into the solid, and the
// pressure's push on it (the form drag of a bed).
void rest_solid_start(bool on);
bool solid_at_rest();
// reads: flagu, flagv, flagw, flagc, forcex, dt; writes: u, v, w, nut at solid positions, the bed's ledger
void rest_solid(bool predicted);

}  // namespace rl
