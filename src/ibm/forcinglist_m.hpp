// Lists of the forcing points of the immersed bed (flag 0), built once from the flags and the
// bed and walked at every call while the flags stay the same.
//
// The bed zb does not move during a run, so the forcing points, their feet on the bed, their image
// points R and whatever of the wall law depends on the geometry and the flags alone come out the
// same at every call. Each list holds, in the order of the loop it replaces (k, j, i ascending;
// u, v and cell centres over k = 1..kmax, w over k = 1..kmax-1):
//   trilinear variants  e, dP, d = |R - P| + dP, ln(dP/z0), ln(d/z0) and the stencils of u, v
//                       and w around the final R (after the outward steps);
//   inverse distance    e, R, dP, d and the logarithms, and per grid the block of R: its corner
//                       and extents, or the fluid point within 1e-6 of R, and the largest
//                       distance rmax and sum of weights of its fluid points;
//   eddy viscosity      dP and dP + |R - P|, and the stencil (A) or R and its block (B).
// A call then evaluates only what depends on the flow, with the same expressions in the same
// order as the point-by-point routines, so the bits are those of the search at every call.
//
// The lists are derived data, never written to a file. They are used only when switched on
// (uselists, at the driver's start-up); then the classification notes whenever its inputs (zb,
// the boundary codes, the vertical grid) differ from those of the flags in use, and a list made
// under other flags or other settings is made again before it is walked. With the switch off the
// routines search the bed at every call.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ibm/points.hpp"

namespace riffle {
struct Storage;
}

namespace riffle::ibm {

struct BedParts; // bedview.hpp

// The inverse-distance block of R on one grid as far as geometry and flags decide it.
struct IdwBlock {
    std::int32_t i = 0, j = 0, k = 0;   // first corner; the point taken when `near`
    std::int8_t ni = 0, nj = 0, nk = 0; // extents, at most 6
    bool near = false;                  // a fluid point within 1e-6 of R gives its own value
    std::uint8_t planes = 0;            // bit n: plane k + n holds a fluid point
    double rmax = 0.0, sumw = 0.0;      // over the fluid points of the block
};

// A velocity forcing point of the trilinear variants (1, 2).
struct TrilinearPoint {
    std::int32_t i = 0, j = 0, k = 0;
    Point3 e;                 // unit normal through P
    double dp = 0.0, d = 0.0; // dP (of the moved P within z0) and |R - P| + dP
    double lndp = 0.0, lnd = 0.0;
    Stencil su{}, sv{}, sw{}; // around R on the u, v and w grids
};

// A velocity forcing point of the inverse-distance variants (3, 4).
struct IdwPoint {
    std::int32_t i = 0, j = 0, k = 0;
    bool zero = false; // dP <= z0: the velocity is set to 0
    Point3 e, r;
    double dp = 0.0, d = 0.0, lndp = 0.0, lnd = 0.0;
    std::array<IdwBlock, 3> block; // u, v, w
};

// A forcing cell centre for the eddy viscosity, nut(P) = nut(R) dP/den.
struct EddyPoint {
    std::int32_t i = 0, j = 0, k = 0;
    bool zero = false; // too close to the bed: nut(P) = 0
    double dp = 0.0, den = 0.0;
    Stencil s{};     // variant A
    Point3 r;        // variant B
    IdwBlock block;  // variant B
    double ez = 0.0; // z component of the unit bed normal through P (the wall-layer model)
};

// A patch projection that did not converge while the foot of entry `entry` was searched.
struct SearchWarning {
    std::int32_t entry;
    double err;
};

// What a list depends on besides its grid's flags.
struct ListKey {
    std::uint64_t classification = 0;
    int imax = 0, jmax = 0, kmax = 0, iIBM = 0, ibed = 0;
    double dx = 0.0, dy = 0.0, dz = 0.0, xmin = 0.0, ymin = 0.0, zmin = 0.0, zmax = 0.0, ks = 0.0;
    bool operator==(const ListKey&) const = default;
};

// The forcing points of one grid; only the vector of the run's variant is filled.
struct PointList {
    bool built = false;
    ListKey key;
    std::vector<TrilinearPoint> trilinear;
    std::vector<IdwPoint> idw;
    std::vector<EddyPoint> eddy;
    std::vector<SearchWarning> warnings;
};

// The inputs of the classification that made the flags in use.
struct ClassificationInputs {
    std::vector<double> zb;
    std::array<int, 7> ibu{}, ibv{}, ibw{}, ibp{};
    int imax = 0, jmax = 0, kmax = 0;
    double dz = 0.0, zmin = 0.0;
};

// What the wall-layer model (wallmodel_m.hpp) keeps beside the lists: for each velocity forcing
// point the friction velocity of the latest pass of the wall law (negative where the law gives
// none: a point within z0 of the bed) and the unit direction of the tangential velocity at its
// image point; for each forcing cell, the velocity forcing points on the faces it owns and
// whether it is the topmost forcing cell of its column. A cell owns its east and north faces and
// both of its w faces: all of them lie in its own block, so a cell's friction velocity is the
// same however the box is divided among processes.
struct WallCell {
    std::array<std::int32_t, 4> faces{}; // u(i), v(j), w(k-1), w(k): entry or -1
    bool top = false;
};
struct WallLists {
    bool built = false;
    // The friction velocities below belong to the velocity as it stands: the time loop says so
    // after the update at the end of a step, since nothing changes the velocity before the update
    // at the start of the next, and withdraws it after that update.
    bool current = false;
    std::vector<WallCell> cells; // one per entry of the eddy list
    std::array<std::vector<double>, 3> ustar;
    std::array<std::vector<Point3>, 3> tdir;
};

struct ForcingLists {
    bool enabled = false;             // off: lists made afresh at every call
    std::uint64_t classification = 0; // advanced whenever the flags may have changed
    bool classified = false;          // `inputs` holds those of the flags in use
    ClassificationInputs inputs;
    std::array<PointList, 3> velocity; // u, v, w
    PointList eddy;                    // cell centres
    WallLists wall;                    // the wall-layer model's, when it is on
};

// Switches the lists on and classifies the points again, so that the flags in use are known to
// come from the current bed. Called once by the driver before the first step.
void uselists(const BedParts& parts);

// Called by the classification after it has rewritten the flags: when its inputs differ from
// those of the flags in use, every list is made again before its next use.
void noteclassification(const BedParts& parts);

// True when the lists are in use and the flags were classified from exactly the inputs (bed,
// boundary codes, vertical grid) that the classification would read now: classifying again would
// rewrite every flag with the value it already holds.
[[nodiscard]] bool flagscurrent(const BedParts& parts);

// Makes the list of velocity forcing points of grid `grid` (0 u, 1 v, 2 w), or of the forcing
// cells, again when it is missing or was made under other flags or settings; a failed search
// stops the run with its routine's message (after the warnings of the entries before it).
void makevelocitylist(const BedParts& parts, int grid);
void makeeddylist(const BedParts& parts);

// Prints the warnings that the searches of a list met, as each use of the list does.
void printwarnings(const PointList& list);

// Bytes held by the lists (entries, warnings, the saved bed).
[[nodiscard]] std::size_t listbytes(const ForcingLists& fl);

} // namespace riffle::ibm
