// Classification of the four staggered grids against the bed surface z = zb(i,j).
//
// Every u, v, w and cell-centre point gets a flag:
//     -1  solid:   the point lies strictly below the bed (height < bed height);
//      1  fluid:   on or above the bed, no solid face neighbour;
//      0  forcing: fluid with at least one of its six face neighbours solid.
// Heights: zc(k) = (k - 0.5) dz + zmin at cell centres (u, v, p), zf(k) = k dz + zmin at w faces.
// Bed heights: u (zb(i,j) + zb(i+1,j)) / 2, v (zb(i,j) + zb(i,j+1)) / 2, w and p zb(i,j).
//
// Per array (order u, v, w, p): classify, fill the ghost layers of the three directions, mark
// the forcing points, fill the ghost layers again. A ghost copies with the weight a = |code|:
//     cell-centred direction:  f(0)  = a f(1) + (1-a) f(n),    f(n+1) = a f(n) + (1-a) f(1)
//     face direction:          f(-1) = a f(0) + (1-a) f(n-1),  f(n+1) = a f(n) + (1-a) f(1)
// so a wall or gradient face (code +-1) copies the adjacent layer and a periodic face (0) the
// layer from the far end. The z fill replaces the classified layers k = 0 and kmax+1 of u, v and
// p with copies of k = 1 and kmax, so a bed at zmin makes no forcing points there (intended).
//
// Writes iflagu over (0:imax+1, 0:jmax+1, 0:kmax+1) and i = -1 for j = 1..jmax, k = 1..kmax;
// iflagv, iflagw and iflagp over their whole ranges. Reads zb over (0:imax+1, 0:jmax+1) and the
// codes ibu, ibv, ibw, ibp. Each fill covers the planes that the velocity boundary fill of the
// same variable covers (0..n+1), so the edges of the extra layer of v (j = -1) and of w (k = -1),
// which is filled first, keep the image from before the marking: no forcing zeros there.
//
// flagmove hands the previous-level velocity of every point that was solid at the previous
// classification (iflaguo/vo/wo) and is a forcing point now to the point search, which replaces
// it by a value from the flow around it. Interior points 1..n only; writes uo, vo, wo there.
#pragma once

#include <cstdint>

#include "ibm/bedview.hpp"
#include "run/storage_m.hpp"

namespace riffle::ibm {

inline constexpr std::int32_t solid = -1;
inline constexpr std::int32_t forcing = 0;
inline constexpr std::int32_t fluid = 1;

// Rewrites iflagu, iflagv, iflagw, iflagp from the current bed zb.
void flagdeter(const BedParts& parts);

// Gives newly emerged forcing points (old flag -1, new flag 0) a previous-level velocity.
void flagmove(const BedParts& parts);

} // namespace riffle::ibm
