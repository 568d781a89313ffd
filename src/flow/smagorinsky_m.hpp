// Smagorinsky subgrid viscosity at the cell centres:
//   nut = (cs * delta)^2 * |S|,   |S| = sqrt(2 Sij Sij),   delta = (dx dy dz)^(1/3),
// with the normal strain rates from the faces of each cell and the shear rates from central
// differences of cell-centred velocities over two cells. No wall damping and no clipping: at
// forcing cells next to the bed the wall-law interpolation replaces the value.
// Reads u, v, w over one ghost layer, iflagp and the pressure codes; writes nut and the strain
// arrays s11, s22, s33, s12, s13, s23, sabs over (0:imax+1, 0:jmax+1, 0:kmax+1), ghosts included.
#pragma once

#include "run/storage_m.hpp"

namespace riffle::flow {

void smagorinsky(const Geometry& grid, const Conditions& cond, FlowFields& flow,
                 BedState& bedstate);

} // namespace riffle::flow
