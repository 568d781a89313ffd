// Time step from the Courant condition, with the molecular viscous number in the same
// denominator:
//     dt = min(1, min over cells of cfl / (|u|max/dx + visc (1/dx^2 + 1/dy^2 + 1/dz^2)
//                                          + |v|max/dy + |w|max/dz))
// where |u|max is the larger magnitude of the two u faces bounding the cell (likewise v, w).
// Reads u, v, w at the faces of cells 1..imax x 1..jmax x 1..kmax; writes dt only.
#pragma once

#include "run/storage_m.hpp"

namespace riffle::flow {

void timestep(const Geometry& grid, const Conditions& cond, const FlowFields& flow,
              RunClock& clock);

} // namespace riffle::flow
