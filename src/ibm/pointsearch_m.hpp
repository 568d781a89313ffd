// Foot of a forcing point on the bed, and hand-over to the wall law.
//
// The bed is the surface that interpolates zb bilinearly between cell centres: over each patch
// (the rectangle of four neighbouring centres) z = c0 + cx x + cy y + cxy x y. For one forcing
// point the routines below search the nearby patches, the straight edges between neighbouring
// centres and the vertical points below the centres for the nearest bed point (the foot), then
// let the wall law set the value handed in. They are called from parallel loops by many threads at
// once: every working value is local, shared arrays are only read, and only `value` is written.
// When no candidate is found the run stops with the routine's message after a pause.
#pragma once

#include "run/storage_m.hpp"

namespace riffle::ibm {

// u point (x(i), yc(j), zc(k)): sets the u velocity `value` of a forcing point.
void searchu(const Storage& st, int i, int j, int k, double& value);
// v point (xc(i), y(j), zc(k)).
void searchv(const Storage& st, int i, int j, int k, double& value);
// w point (xc(i), yc(j), zf(k)).
void searchw(const Storage& st, int i, int j, int k, double& value);
// Cell centre (xc(i), yc(j), zc(k)): sets the eddy viscosity `value` of a forcing cell.
void searchnut(const Storage& st, int i, int j, int k, double& value);

}  // namespace riffle::ibm
