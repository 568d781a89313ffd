// Boundary conditions of the staggered velocity components and of the pressure on the six faces
// of the box, from one algebraic rule per face driven by its code c (0 periodic, -1 prescribed
// value, 1 prescribed gradient) and value val:
//   tangential component, ghost half a cell outside the face:
//       ghost = c * inner + (1 - |c|) * opposite interior + B,
//       B = 2 val (c = -1), -/+ h val (c = 1)
//   normal component, on the face itself or one layer beyond:
//       c = 0: periodic copy;  c = -1: face value = val;  c = 1: mirrored layer with slope val.
// After the six faces, the outer ghost layer of the component's own direction (index -1, and
// n+1 behind a prescribed-value face) is extrapolated or copied. Faces run in a fixed order per
// component and each covers the whole plane 0..n+1 of the other two directions, so edges and
// corners take the value of the face applied last.
#pragma once

#include "run/storage_m.hpp"

namespace riffle::flow {

// u: faces west, east, south, north, bottom, top
void boundaryu(const Geometry& grid, const Conditions& cond, FlowFields& flow);
// v: faces south, north, bottom, top, west, east
void boundaryv(const Geometry& grid, const Conditions& cond, FlowFields& flow);
// w: faces bottom, top, west, east, south, north
void boundaryw(const Geometry& grid, const Conditions& cond, FlowFields& flow);

// Pressure ghosts by the same rule without a value term (the time loop does not call it; the
// pressure solver keeps its own ghost rule).
void boundaryp(const Geometry& grid, const Conditions& cond, FlowFields& flow);

} // namespace riffle::flow
