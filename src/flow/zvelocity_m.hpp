// Momentum predictor for w (on z-faces), the z counterpart of xvelocity:
//   H = fz - (d/dx)(u w) - (d/dy)(v w) - (d/dz)(w w)
//       + (d/dx)(nu (dw/dx + du/dz)) + (d/dy)(nu (dw/dy + dv/dz)) + (d/dz)(2 nu dw/dz),
//   w = wo + dt (3 H - Hold) / 2.
// Gravity enters only through fz. Writes w, fw, fwo at i = 1..imax, j = 1..jmax,
// k = 1..kmax-|ibw(top)|.
#pragma once

#include "run/storage_m.hpp"

namespace riffle::flow {

void zvelocity(const Geometry& grid, const Conditions& cond, const RunClock& clock,
               FlowFields& flow);

} // namespace riffle::flow
