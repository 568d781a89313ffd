// Vorticity magnitude and Q criterion of the resolved velocity, two cell-centred diagnostics for
// output (the case file's "Vorticity" and "Coherent", the Tecplot variables vort and Q).
//
// With G the velocity gradient at the cell centre (ux = du/dx, uy = du/dy, ...):
//     vort = |curl u| = sqrt((wy - vz)^2 + (uz - wx)^2 + (vx - uy)^2)
//     qc   = -0.5 (ux^2 + vy^2 + wz^2 + 2 vx uy + 2 wx uz + 2 wy vz)
//          = (|rotation rate|^2 - |strain rate|^2) / 2,  positive inside a vortex core.
// Normal derivatives are the face differences across the cell, e.g. ux = (u(i) - u(i-1)) / dx.
// A cross derivative, e.g. uy, is the difference of two four-face averages one cell apart:
// the mean of u over the faces i-1, i of cells j and j+1, minus the same over cells j and j-1,
// divided by dy (so it is centred on the cell, second order).
//
// Where things sit: u, v, w on their faces (u(i) between cells i and i+1); vort and qc at cell
// centres over (0:imax+1, 0:jmax+1, 0:kmax+1). The interior cells read u over i-1..imax,
// j and k over 0..n+1 (likewise v, w), never the extra ghost layer at index -1. The ghost layer of
// vort and qc is then filled with the pressure codes ibp: ghost = t*(adjacent) + (1-|t|)*(opposite
// end of the line), i-faces first, then j-faces, then k-faces, each pass running over the whole
// layer of the earlier passes, so edges and corners come out filled.
//
// Threads: the interior loop and the three ghost passes are loops of the loop layer, each ending
// before the next begins. Called only when output is due.
#pragma once

#include "run/storage_m.hpp"

namespace riffle::pressure {

void vorticity(const Geometry& grid, const Conditions& cond, FlowFields& flow);

} // namespace riffle::pressure
