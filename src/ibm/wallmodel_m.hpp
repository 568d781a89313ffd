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
// above them take the viscosity of the wall law from the friction velocity the forcing finds
// (the first face the stress of its height in the linear profile of open-channel flow,
// stressshare), and the Smagorinsky viscosity takes over above that layer.
//
// The friction velocity of each velocity forcing point is that of the run's wall-law variant at
// its image point (the u* that sets the velocity the forcing imposes); a forcing cell centre takes
// the mean u* of the velocity forcing points on the faces it owns, u(i), v(j), w(k-1) and w(k),
// which lie in its own block however the box is divided. The bed shear stress under a cell
// column is u*^2 of its topmost forcing cell along the tangential velocity there.
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include "ibm/bedview.hpp"
#include "run/storage_m.hpp"

namespace riffle::ibm {

// Cells above the topmost forcing cell of a column that take the wall layer's viscosity where it
// exceeds the Smagorinsky value: as many as fill a fifth of the column's depth, and never fewer
// than wall_layers. On the coarse flat bed (15 cells over the depth, three layers) one layer left
// the bulk velocity 9 % above the log law's for the stress the bed takes: the first cells resolve
// too little of the eddies that carry the stress there. A layer of three cells on the grid twice
// as fine, half as thick, left it 11 % above (a log-layer mismatch at the layer's top, where the
// viscosity has fallen to the Smagorinsky value and the resolved stress has not yet taken over);
// a layer of a fixed share of the depth keeps the viscosity's profile the same on both grids.
inline constexpr int wall_layers = 3;
inline constexpr double wall_layer_depth = 0.2;

// The number of wall-layer cells of a column of depth D with cells dz high.
[[nodiscard]] inline int layercount(double depth, double dz) {
    const double n = std::round(wall_layer_depth * depth / dz);
    return n > wall_layers ? static_cast<int>(std::min(n, 1e6)) : wall_layers;
}

// The logarithmic mean (z2 - z1)/ln(z2/z1) of two wall distances; z1 where they are equal.
[[nodiscard]] inline double logmean(double z1, double z2) {
    const double r = z2 / z1;
    if (std::fabs(r - 1.0) < 1e-6) return 0.5 * (z1 + z2); // the limit, without 0/0
    return (z2 - z1) / std::log(r);
}

// The eddy viscosity of cell n = 1..layers above the topmost forcing cell, at wall distance z:
// a share of the total viscosity kappa u* z with which the log law carries u*^2, less the
// molecular one (it may be negative: the caller takes the larger of it and the Smagorinsky
// value). The share is all of it over the lowest 1/wall_layers of the layer and falls linearly
// with n/layers to 1/wall_layers in its last cell (of three cells 1, 2/3, 1/3; of six 1, 1, 5/6,
// 2/3, 1/2, 1/3), so that the viscosity falls towards the Smagorinsky value over the layer
// instead of at its top, where the resolved stress cannot take over at once, and has the same
// profile over the layer's depth on every grid. On the coarse flat bed (20 s, statistics over the
// last 10 s) the full kappa u* z in all three cells left the u* of the log-law fit 7.5 % below
// that of the momentum balance and the total shear stress 40 % of u*^2 above 1 - z/D at the top
// of the layer; the taper brings them to 4.9 % and 18 %. The parabolic kappa u* z (1 - z/D) of
// open-channel flow was tried too, and left the two u* 11 % apart. A share of (layers + 1 - n) /
// layers, falling to 1/layers, gave the six cells of the fine flat bed a sixth less of kappa u* z
// than the coarse grid's three at the same height: there U_b/u* came out 16.2 (log law 15.2),
// with this share 15.9, the u* of the log-law fit and of the momentum balance 2.1 % and 1.5 %
// apart (18 s, statistics over the last 6 s). On three cells the two shares are the same bit for
// bit: the share is one correctly rounded quotient of two whole numbers, (12 - 3n)/9 = (4 - n)/3.
[[nodiscard]] inline double layerviscosity(double ustar, double z, double visc, int n, int layers) {
    const double share =
        std::min(1.0, static_cast<double>((wall_layers + 1) * layers - wall_layers * n) /
                          (wall_layers * layers));
    return share * 0.4 * ustar * z - visc;
}

// The largest total viscosity of the face above a forcing cell, in units of the log law's
// kappa u* L(z1, z2): where the flow above hardly differs from that of the forcing point, the
// face cannot carry u*^2 with any sensible viscosity.
inline constexpr double face_cap = 4.0;

// The total viscosity of the face between a forcing cell at wall distance z1 and the cell above
// it at z2 = z1 + h (h the wall-normal part of their spacing) that carries the wall stress tau
// (= u*^2) across it, the tangential velocity there differing by du: tau h/du, which is the log
// law's kappa u* L(z1, z2) where the two velocities lie on the log law of this u*; at most
// face_cap times that.
[[nodiscard]] inline double facetotal(double ustar, double tau, double z1, double h, double du) {
    const double loglaw = 0.4 * ustar * logmean(z1, z1 + h);
    const double most = face_cap * loglaw;
    return du > 0.0 ? std::min(most, tau * h / du) : most;
}

// The share of the bed's stress that crosses a face h above the bed in a flow of depth D: the
// total shear stress of uniform open-channel flow falls linearly, u*^2 (1 - h/D). The first face
// lies a cell above the bed: the driving force on the flow below it is taken out by the forcing
// and never crosses the face, so a face that carried the full u*^2 would leave the bed taking
// u*^2 + f h in all, and the wall law's u* short of the momentum balance's by h/(2D).
[[nodiscard]] inline double stressshare(double h, double depth) {
    if (!(depth > 0.0)) return 1.0;
    return std::clamp(1.0 - h / depth, 0.0, 1.0);
}

// The eddy viscosity of the forcing cells and of the wall layer above them, and the bed shear
// stress of every cell column (st.bedshear), from the current velocity, in place of the forcing
// cells' interpolation of the plain solver.
void wallnut(const BedParts& parts);

// The bed shear stress at the nodes (0..imax, 0..jmax) of this rank's block, i fastest, in Pa:
// the density times the mean of the four cell columns around the node (st.bedshear, its ghost
// columns included). `tau` is the magnitude, `taux` and `tauy` its x and y components.
struct BedShearNodes {
    std::vector<double> tau, taux, tauy;
};
void bedshearnodes(const Geometry& grid, const Conditions& cond, const BedState& bed,
                   BedShearNodes& out);

} // namespace riffle::ibm
