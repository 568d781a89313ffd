// The forcing of the immersed bed from the lists of forcing points (forcinglist_m), made first
// where they are missing or were made under other flags.
#pragma once

#include "ibm/bedview.hpp"
#include "ibm/points.hpp"
#include "run/storage_m.hpp"

namespace riffle::ibm {

// The velocity forcing from the lists (u, v, w in turn), after the warnings of each list's
// searches.
void forcevelocity(const BedParts& parts);

// The eddy viscosity of the forcing cells from their list.
void forceeddy(const BedParts& parts);

// Where the wall-layer model takes the friction velocity and the unit tangential direction of
// each entry of a velocity list instead of its velocity.
struct LawOut {
    double* ustar;
    Point3* tdir;
};

// The law alone at every entry of the list of grid `grid` (0 u, 1 v, 2 w) from the current flow,
// into `out` (u* < 0 where the law gives none: a point within z0 of the bed); the velocity is
// left as it is. The list must be made (makevelocitylist).
void lawvelocity(const BedParts& parts, int grid, LawOut out);

} // namespace riffle::ibm
