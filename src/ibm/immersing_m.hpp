// Immersed-boundary forcing of the velocity: every forcing point (flag 0) of the u, v and w grids
// gets the velocity of the wall law at its foot on the bed (see pointsearch_m and walllaw_m):
//     u(P) = (u*/kappa) ln(dP/z0) (Vt/Ut)_x   and likewise v, w,
// with u* from the flow at an image point farther from the bed. Solid points (flag -1) and fluid
// points (flag 1) are not touched. Interior points only: u and v over i = 1..imax, j = 1..jmax,
// k = 1..kmax, w over k = 1..kmax-1; the boundary faces u(0), v(0), w(0) and w(kmax) are left to
// the boundary rules even where they are forcing points.
// Reads u, v, w, the flag arrays (ghost layers included) and zb; writes u, v, w at forcing points.
// The values are those of the point-by-point search and wall law (pointsearch_m, walllaw_m),
// from lists of the forcing points (forcinglist_m) made once while the flags stay the same.
#pragma once

#include "ibm/bedview.hpp"
#include "run/storage_m.hpp"

namespace riffle::ibm {

void immersing(const BedParts& parts);

// Eddy viscosity of the forcing cells (flag 0) over i = 1..imax, j = 1..jmax, k = 1..kmax from the
// wall-law interpolation, nut(P) = nut(R) dP/(dP + |R - P|). Reads nut at fluid cells only and
// writes it at forcing cells.
void immersingnut(const BedParts& parts);

} // namespace riffle::ibm
