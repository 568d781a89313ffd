// Velocity correction of the projection step: the pressure accumulates the increment phi
// (level 0 of the multigrid hierarchy) and each face velocity loses the increment's gradient,
//   p += phi,   u -= (dt/dens) d(phi)/dx,   v -= (dt/dens) d(phi)/dy,   w -= (dt/dens) d(phi)/dz.
// Faces 0..n in each component's own direction are corrected, boundary faces included, from the
// ghost values of phi that the last operator application left; no face is skipped for the bed.
#pragma once

#include "run/storage_m.hpp"

namespace riffle::pressure {

void correction(const Geometry& grid, const Conditions& cond, const RunClock& clock,
                const Hierarchy& levels, FlowFields& flow);

} // namespace riffle::pressure
