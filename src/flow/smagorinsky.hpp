// Eddy viscosity by the plain Smagorinsky model.
//
// nut = |S| * c * c at every cell centre, c = cbrt(dx*dy*dz) * smagorinsky,
// from the current u, v, w; no damping, no clipping.  Forcing cells at the
// bed (flagc 0) then take the value of IMMERSEVISC.  The ghost layers of
// nut and of the strain rates s11..s23 follow the face types ibcp: periodic
// copy for 0, zero gradient for -1; for +1 the strain rates still copy but
// nut takes the negated inner value, so it vanishes on the face.
#pragma once

namespace rl {

// reads: u, v, w, flagc, dx, dy, dz, smagorinsky, ibcp (and, at forcing cells, bed and nut through
//  IMMERSEVISC); writes: nut, s11..s23, sabs
void SMAGORINSKY();

}  // namespace rl
