// The wall-layer model of the bed ("iWallModelItm" = 1).
//
// The forcing sets the velocity of a forcing point from the wall law, but the momentum the flow
// gives up to the bed crosses the faces between the forcing points and the first fluid points as
// (visc + nut) dU/dn. With U on the log law, U(z) = (u*/kappa) ln(z/z0), the flux across a face
// between wall distances z1 and z2 a spacing h apart is u*^2 (z2 - z1)/h (the wall stress
// projected on the face) exactly when the total viscosity of the face is
//     nu = kappa u* L(z1, z2),   L(z1, z2) = (z2 - z1)/ln(z2/z1)   (the logarithmic mean),
// which is kappa u* z where z1 = z2. The Smagorinsky viscosity with a filter width of the cell
// size is a small fraction of that next to the bed, so without the model the bed takes only part
// of the wall law's stress. With the model on, the forcing cells and the cells of a thin layer
// above them take the viscosity of the wall law from the friction velocity the forcing finds,
// and the Smagorinsky viscosity takes over above that layer.
//
// The friction velocity of each velocity forcing point is that of the run's wall-law variant at
// its image point (the u* that sets the velocity the forcing imposes); a forcing cell centre takes
// the mean u* of the velocity forcing points on its six faces. The bed shear stress under a cell
// column is u*^2 of its topmost forcing cell along the tangential velocity there.
#pragma once

#include <vector>

#include "run/storage_m.hpp"

namespace riffle::ibm {

// The eddy viscosity of the forcing cells and of the wall layer above them, and the bed shear
// stress of every cell column (st.bedshear), from the current velocity. Shared among the threads
// of the team that calls it (every thread of a parallel region, or one thread outside any), in
// place of the forcing cells' interpolation of the plain solver.
void wallnut(Storage& st);

// The bed shear stress at the nodes (0..imax, 0..jmax) of this rank's block, i fastest, in Pa:
// the density times the mean of the four cell columns around the node (st.bedshear, its ghost
// columns included). `tau` is the magnitude, `taux` and `tauy` its x and y components.
struct BedShearNodes {
    std::vector<double> tau, taux, tauy;
};
void bedshearnodes(const Storage& st, BedShearNodes& out);

} // namespace riffle::ibm
