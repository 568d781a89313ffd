// Foot of a forcing point on the bed, and hand-over to the wall law.
//
// The bed is the surface that interpolates zb bilinearly between cell centres: over each patch
// (the rectangle of four neighbouring centres) z = c0 + cx x + cy y + cxy x y. For one forcing
// point the routines below search the nearby patches, the straight edges between neighbouring
// centres and the vertical points below the centres for the nearest bed point (the foot), then
// let the wall law set the value handed in. They are called from parallel loops by many threads at
// once: every working value is local, shared arrays are only read, and only `value` is written.
// When no candidate is found the caller stops the run with the routine's message after a pause.
//
// Points: u at (x(i), yc(j), zc(k)), v at (xc(i), y(j), zc(k)), w at (xc(i), yc(j), zf(k)), cell
// centres at (xc(i), yc(j), zc(k)), with x(i) = xmin + i dx, xc(i) = xmin + (i - 0.5) dx and
// likewise in y and z. zb is read over 0..imax+1, 0..jmax+1.
#pragma once

#include <vector>

#include "ibm/bedview.hpp"
#include "ibm/points.hpp"
#include "run/storage_m.hpp"

namespace riffle::ibm {

// The bilinear bed over one patch, z = c0 + cx x + cy y + cxy x y, through z11 at (x1, y1),
// z21 at (x2, y1), z12 at (x1, y2) and z22 at (x2, y2).
struct Bilinear {
    double c0 = 0.0, cx = 0.0, cy = 0.0, cxy = 0.0;
    [[nodiscard]] RIFFLE_HD double z(double x, double y) const {
        return c0 + cx * x + cy * y + cxy * x * y;
    }
};

[[nodiscard]] RIFFLE_HD inline Bilinear bilinear(double x1, double x2, double y1, double y2,
                                                 double z11, double z21, double z12, double z22) {
    const double den = (x1 - x2) * (y1 - y2);
    Bilinear b;
    b.cxy = (z11 - z21 - z12 + z22) / den;
    b.cx = -(y2 * (z11 - z21) - y1 * (z12 - z22)) / den;
    b.cy = -(x2 * (z11 - z12) - x1 * (z21 - z22)) / den;
    b.c0 = z11 - b.cx * x1 - b.cy * y1 - b.cxy * x1 * y1;
    return b;
}

// Result of the projection of a point onto one patch: the foot (not clipped to the patch), the
// last relative change and the number of passes made (at most patchmaxpasses).
struct PatchFoot {
    Point3 foot;
    double err = 0.0;
    int passes = 0;
};

inline constexpr int patchmaxpasses = 201;

// Nearest point of the patch surface to p, by alternating exact minimisation of the squared
// distance along x (y held) and along y (x held). Converged when the largest relative change of
// x, y, z is <= 1e-8; after patchmaxpasses passes a change <= 1e-4 is still accepted, otherwise a
// warning is written and the centre of the patch is returned (the run goes on).
[[nodiscard]] PatchFoot patchfoot(double x1, double x2, double y1, double y2, double z11,
                                  double z21, double z12, double z22, Point3 p);

// The four grids of forcing points: u, v and w faces and cell centres.
enum class Site : int { u = 0, v = 1, w = 2, centre = 3 };

// Position of point (i, j, k) of a site's grid (see above).
[[nodiscard]] Point3 sitepoint(const BedView& bed, Site s, int i, int j, int k);

// The point p and its foot on the bed; found is false when no candidate lies nearer than the
// depth zmax - zmin.
struct Foot {
    Point3 p, foot;
    bool found;
};

// The search of the routines below without the wall law. A patch projection that does not
// converge appends its relative change to *warnings when that is given, and prints its warning
// at once otherwise.
[[nodiscard]] Foot searchfoot(const BedView& bed, Site s, int i, int j, int k,
                              std::vector<double>* warnings);

// Reports the failed search of a site with its routine's message, pauses and ends the process.
// Called by the host after the loop whose search failed.
[[noreturn]] void searchfailed(Site s);

// The point-by-point path: the search and the wall law at one point, the reference that the
// lists of forcing points (forcinglist_m) reproduce. Each returns false, leaving `value` as it
// is, when the search finds no foot; its caller reports that after its loop (searchfailed).
// u point (x(i), yc(j), zc(k)): sets the u velocity `value` of a forcing point.
bool searchu(const BedView& bed, int i, int j, int k, double& value);
// v point (xc(i), y(j), zc(k)).
bool searchv(const BedView& bed, int i, int j, int k, double& value);
// w point (xc(i), yc(j), zf(k)).
bool searchw(const BedView& bed, int i, int j, int k, double& value);
// Cell centre (xc(i), yc(j), zc(k)): sets the eddy viscosity `value` of a forcing cell.
bool searchnut(const BedView& bed, int i, int j, int k, double& value);

} // namespace riffle::ibm
