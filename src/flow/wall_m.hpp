// Rough-wall log law at the side walls: the first row of cells next to a wall takes the velocity
// that a logarithmic profile through the second row gives there.
//     z0 = ks / 12 / 1000 (ks in mm),  u* = kappa U2 / ln(y2/z0),  U1 = (u*/kappa) ln(y1/z0),
//     y1 = dy/2 (first row),  y2 = 2 dy (a fixed ratio, not the second row's centre at 1.5 dy),
// applied along the direction of the second-row velocity, so each component becomes
//     q1 = (q2/U2) (U2 kappa / ln(y2/z0) / kappa) ln(y1/z0)   (= q2 ln(y1/z0) / ln(y2/z0)),
// and 0 where the second-row speed U2 is below 1e-8.
//
// walls (south wall): u(i,1,k) from u(i,2,k) and w averaged to the u point in row 2;
//                     w(i,1,k) from u averaged to the w point in row 2 and v(i,2,k).
// walln (north wall): u(i,jmax,k) and w(i,jmax,k) likewise from row jmax-1, with w(i,jmax-1,k)
//                     as the second component of the w part.
// Reads rows 2 (jmax-1) of u over i = 0..imax, k = 1..kmax+1, of w over i = 1..imax+1,
// k = 0..kmax, and of v (walls only) over i, k = 1..n; writes u and w at i = 1..imax,
// k = 1..kmax of row 1 (jmax) only. Ghost layers are left to the boundary routines.
#pragma once

#include "run/storage_m.hpp"

namespace riffle::flow {

// The south wall, row j = 1, and the north wall, row j = jmax.
void walls(const Geometry& grid, const Conditions& cond, FlowFields& flow);
void walln(const Geometry& grid, const Conditions& cond, FlowFields& flow);

} // namespace riffle::flow
