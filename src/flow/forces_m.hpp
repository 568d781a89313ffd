// Body accelerations of the momentum equations, set once per step:
//     Q  = sum over j = 1..jmax, k = 1..kmax with iflagu(0,j,k) != -1 of uo(0,j,k) dy hk,
//     hk = min(zmin + k dz - (zb(0,j) + zb(1,j)) / 2, dz),
//     fx = (discharge - Q) * 100,   fy = 0,   fz = -gravity.
// Q is the previous-step flow rate through the west face (u points i = 0); hk is the height of
// cell k above the bed under that face, capped at one cell. fx is a proportional controller that
// drives the flow rate toward the target discharge; fz is gravity, pointing down in z.
// Reads uo and iflagu on the face i = 0 (no ghost layers) and zb at i = 0, 1; writes fx, fy, fz.
#pragma once

#include "run/storage_m.hpp"

namespace riffle::flow {

void forces(const Geometry& grid, const Conditions& cond, const BedState& bedstate,
            FlowFields& flow);

} // namespace riffle::flow
