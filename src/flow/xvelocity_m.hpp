// Momentum predictor for u (on x-faces) with central differences and Adams-Bashforth:
//   H = fx - (d/dx)(u u) - (d/dy)(v u) - (d/dz)(w u)
//       + (d/dx)(2 nu du/dx) + (d/dy)(nu (du/dy + dv/dx)) + (d/dz)(nu (du/dz + dw/dx)),
//   u = uo + dt (3 H - Hold) / 2,   nu = visc + nut,
// all from the previous level uo, vo, wo. Reads uo, vo, wo and nut over one ghost layer; writes
// u, fu, fuo at i = 1..imax-|ibu(east)|, j = 1..jmax, k = 1..kmax. The pressure gradient is left
// to the projection.
#pragma once

#include "run/storage_m.hpp"

namespace riffle::flow {

void xvelocity(const Geometry& grid, const Conditions& cond, const RunClock& clock,
               FlowFields& flow);

} // namespace riffle::flow
