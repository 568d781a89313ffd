// Momentum predictor for v (on y-faces), the y counterpart of xvelocity:
//   H = fy - (d/dx)(u v) - (d/dy)(v v) - (d/dz)(w v)
//       + (d/dx)(nu (dv/dx + du/dy)) + (d/dy)(2 nu dv/dy) + (d/dz)(nu (dv/dz + dw/dy)),
//   v = vo + dt (3 H - Hold) / 2.
// Writes v, fv, fvo at i = 1..imax, j = 1..jmax-|ibv(north)|, k = 1..kmax.
#pragma once

#include "run/storage_m.hpp"

namespace riffle::flow {

void yvelocity(const Geometry& grid, const Conditions& cond, const RunClock& clock,
               FlowFields& flow);

} // namespace riffle::flow
