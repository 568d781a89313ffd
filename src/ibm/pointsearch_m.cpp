// Search for the foot of a forcing point on the bilinear bed, then hand-over to the wall law.
//
// Candidates, each taken when its distance is strictly less than the best so far (start: the
// depth zmax - zmin), so that of equal distances the first tried is kept:
//   patch    the projection onto the bilinear surface of a patch (patchfoot), accepted only when
//            the foot lies inside the patch, bounds included (x1 <= xf <= x2, y1 <= yf <= y2);
//   edge     the perpendicular foot on the straight segment between two neighbouring cell-centre
//            bed points in a vertical plane, t = -((x1 - px) Dx + (z1 - pz) Dz)/(Dx^2 + Dz^2) in
//            [0, 1], distance measured in that plane;
//   vertical the bed point at a cell centre, distance measured in the vertical plane.
// The u routine tries the two patches between centres i and i+1 and the edge joining them; a
// taken edge ends the search. Only when nothing is found it goes on to the patches and edge on
// the west side, those on the east side, then the vertical points at centres i and i+1. The v
// routine is the same with x and y exchanged. The w and eddy-viscosity routines try the four
// patches around column (i, j), the four edges to its neighbours and the vertical point below.
// Patch bounds are formed from the point's own coordinate (x(i) -/+ dx/2 and so on), so the
// inclusive bound test sees exactly the numbers the projection was given.
//
// Reads zb (0..imax+1, 0..jmax+1) and the grid scalars; the wall law reads the fields. Writes
// only the value handed in. A failed search prints its message, pauses and ends the process.
#include "ibm/pointsearch_m.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "ibm/walllaw_m.hpp"
#include "run/console_m.hpp"
#include "run/messages.hpp"

namespace riffle::ibm {

namespace {

using messages::failed_u;
using messages::failed_v;
using messages::failed_visc;
using messages::failed_w;
using messages::not_converged;

inline constexpr double fine_tol = 1e-8;     // projection converged
inline constexpr double coarse_tol = 1e-4;   // still accepted after the last pass
inline constexpr double zero_divisor = 1e-8; // relative change of a coordinate that became 0.0

inline double relchange(double next, double prev) {
    return (next - prev) / (next == 0.0 ? zero_divisor : next);
}

// Where the warning of a patch projection that does not converge goes: printed at once, or
// appended to a log (the relative change) when one is given.
struct Warnings {
    std::vector<double>* log;
    void report(double err) const {
        if (log) {
            log->push_back(err);
        } else {
            console::writeline(not_converged, err);
        }
    }
};

// patchfoot without its warning: `warn` tells whether it is due.
PatchFoot projectpatch(double x1, double x2, double y1, double y2, double z11, double z21,
                       double z12, double z22, Point3 p, bool& warn) {
    const Bilinear s = bilinear(x1, x2, y1, y2, z11, z21, z12, z22);
    double x = p.x, y = p.y, z = p.z;
    double xn = x, yn = y, zn = z, err = 0.0;
    int n = 0;
    warn = false;
    for (;;) {
        ++n;
        const double zx = s.cx + s.cxy * y; // slope along x with y held
        xn = x - ((x - p.x) + (s.z(x, y) - p.z) * zx) / (zx * zx + 1.0);
        const double zy = s.cy + s.cxy * xn; // slope along y at the new x
        yn = y - ((y - p.y) + (s.z(xn, y) - p.z) * zy) / (zy * zy + 1.0);
        zn = s.z(xn, yn);
        err = std::fmax(std::fabs(relchange(xn, x)),
                        std::fmax(std::fabs(relchange(yn, y)), std::fabs(relchange(zn, z))));
        if (n >= patchmaxpasses) break; // the last pass is not held to the fine tolerance
        x = xn;
        y = yn;
        z = zn;
        if (err <= fine_tol) return {{xn, yn, zn}, err, n};
    }
    if (err <= coarse_tol) return {{xn, yn, zn}, err, n};
    warn = true;
    const double xc = (x1 + x2) / 2.0, yc = (y1 + y2) / 2.0;
    return {{xc, yc, s.z(xc, yc)}, err, n};
}

// The best candidate so far.
struct Best {
    double dmin;
    Point3 foot;
    bool found = false;
};

inline void take(Best& b, double d, Point3 foot) {
    b.dmin = d;
    b.foot = foot;
    b.found = true;
}

inline void trypatch(Warnings wn, Best& b, Point3 p, double x1, double x2, double y1, double y2,
                     double z11, double z21, double z12, double z22) {
    bool warn = false;
    const PatchFoot pf = projectpatch(x1, x2, y1, y2, z11, z21, z12, z22, p, warn);
    if (warn) wn.report(pf.err);
    const Point3 f = pf.foot;
    const double ex = p.x - f.x, ey = p.y - f.y, ez = p.z - f.z;
    const double d = std::sqrt(ex * ex + ey * ey + ez * ez);
    if (d < b.dmin && x1 <= f.x && f.x <= x2 && y1 <= f.y && f.y <= y2) take(b, d, f);
}

// Perpendicular foot on the segment from (s1, z1) to (s1 + ds, z2) of a vertical plane, for the
// point (ps, pz) of that plane: the distance, and the foot's coordinates, when the foot lies on
// the segment and beats the best so far; nothing otherwise.
struct EdgeFoot {
    bool taken;
    double d, s, z;
};
inline EdgeFoot edgefoot(const Best& b, double ps, double pz, double s1, double z1, double ds,
                         double z2) {
    const double dz = z2 - z1;
    const double t = -((s1 - ps) * ds + (z1 - pz) * dz) / (ds * ds + dz * dz);
    if (!(t >= 0.0 && t <= 1.0)) return {false, 0.0, 0.0, 0.0};
    const double sf = s1 + t * ds, zf = z1 + t * dz;
    const double d = std::sqrt((ps - sf) * (ps - sf) + (pz - zf) * (pz - zf));
    return {d < b.dmin, d, sf, zf};
}

// Segment from (x1, z1) to (x1 + dxe, z2) in the vertical plane y = yplane.
inline bool tryedgex(Best& b, Point3 p, double x1, double z1, double dxe, double z2,
                     double yplane) {
    const EdgeFoot e = edgefoot(b, p.x, p.z, x1, z1, dxe, z2);
    if (e.taken) take(b, e.d, {e.s, yplane, e.z});
    return e.taken;
}

// Segment from (y1, z1) to (y1 + dye, z2) in the vertical plane x = xplane.
inline bool tryedgey(Best& b, Point3 p, double y1, double z1, double dye, double z2,
                     double xplane) {
    const EdgeFoot e = edgefoot(b, p.y, p.z, y1, z1, dye, z2);
    if (e.taken) take(b, e.d, {xplane, e.s, e.z});
    return e.taken;
}

// Bed point (xf, p.y, zf) beside or below p, distance in the plane y = p.y.
inline void tryverticalx(Best& b, Point3 p, double xf, double zf) {
    const double d = std::sqrt((p.x - xf) * (p.x - xf) + (p.z - zf) * (p.z - zf));
    if (d < b.dmin) take(b, d, {xf, p.y, zf});
}

// Bed point (p.x, yf, zf), distance in the plane x = p.x.
inline void tryverticaly(Best& b, Point3 p, double yf, double zf) {
    const double d = std::sqrt((p.y - yf) * (p.y - yf) + (p.z - zf) * (p.z - zf));
    if (d < b.dmin) take(b, d, {p.x, yf, zf});
}

// Foot of a point at the cell-centre column (i, j) (w faces and cell centres): four patches,
// four edges, the vertical point.
inline Best searchcolumn(Warnings wn, const BedView& bed, int i, int j, Point3 p) {
    const double dx = bed.dx, dy = bed.dy;
    const auto& zb = bed.zb;
    Best b{bed.zmax - bed.zmin, {}, false};
    trypatch(wn, b, p, p.x, p.x + dx, p.y, p.y + dy, zb(i, j), zb(i + 1, j), zb(i, j + 1),
             zb(i + 1, j + 1));
    trypatch(wn, b, p, p.x, p.x + dx, p.y - dy, p.y, zb(i, j - 1), zb(i + 1, j - 1), zb(i, j),
             zb(i + 1, j));
    trypatch(wn, b, p, p.x - dx, p.x, p.y, p.y + dy, zb(i - 1, j), zb(i, j), zb(i - 1, j + 1),
             zb(i, j + 1));
    trypatch(wn, b, p, p.x - dx, p.x, p.y - dy, p.y, zb(i - 1, j - 1), zb(i, j - 1), zb(i - 1, j),
             zb(i, j));
    tryedgex(b, p, p.x, zb(i, j), dx, zb(i + 1, j), p.y);
    tryedgex(b, p, p.x, zb(i, j), -dx, zb(i - 1, j), p.y);
    tryedgey(b, p, p.y, zb(i, j), dy, zb(i, j + 1), p.x);
    tryedgey(b, p, p.y, zb(i, j), -dy, zb(i, j - 1), p.x);
    tryverticalx(b, p, p.x, zb(i, j));
    return b;
}

// u point (x(i), yc(j), zc(k)): the two patches and the edge between centres i and i+1 first.
Best searchuface(Warnings wn, const BedView& bed, int i, int j, Point3 p) {
    const double dx = bed.dx, dy = bed.dy;
    const auto& zb = bed.zb;
    const double xw = p.x - dx / 2.0, xe = p.x + dx / 2.0; // centres i and i+1
    Best b{bed.zmax - bed.zmin, {}, false};
    trypatch(wn, b, p, xw, xe, p.y, p.y + dy, zb(i, j), zb(i + 1, j), zb(i, j + 1),
             zb(i + 1, j + 1));
    trypatch(wn, b, p, xw, xe, p.y - dy, p.y, zb(i, j - 1), zb(i + 1, j - 1), zb(i, j),
             zb(i + 1, j));
    // A taken edge between the two centres ends the search.
    if (!tryedgex(b, p, xw, zb(i, j), dx, zb(i + 1, j), p.y) && !b.found) {
        const double xww = p.x - 1.5 * dx, xee = p.x + 1.5 * dx;
        trypatch(wn, b, p, xww, xw, p.y, p.y + dy, zb(i - 1, j), zb(i, j), zb(i - 1, j + 1),
                 zb(i, j + 1));
        trypatch(wn, b, p, xww, xw, p.y - dy, p.y, zb(i - 1, j - 1), zb(i, j - 1), zb(i - 1, j),
                 zb(i, j));
        tryedgex(b, p, xww, zb(i - 1, j), dx, zb(i, j), p.y);
        // The far column is wrapped periodically; for i = imax-2 this is the ghost column 0 (the
        // whole box's columns: a block reads the bed of the whole box).
        const int ie = (bed.iwhole() + 2 + (i + bed.ioffset())) % bed.iwhole() - bed.ioffset();
        trypatch(wn, b, p, xe, xee, p.y, p.y + dy, zb(i + 1, j), zb(ie, j), zb(i + 1, j + 1),
                 zb(ie, j + 1));
        trypatch(wn, b, p, xe, xee, p.y - dy, p.y, zb(i + 1, j - 1), zb(ie, j - 1), zb(i + 1, j),
                 zb(ie, j));
        tryedgex(b, p, xe, zb(i + 1, j), dx, zb(ie, j), p.y);
        tryverticalx(b, p, xw, zb(i, j));
        tryverticalx(b, p, xe, zb(i + 1, j));
    }
    return b;
}

// v point (xc(i), y(j), zc(k)): the same with x and y exchanged.
Best searchvface(Warnings wn, const BedView& bed, int i, int j, Point3 p) {
    const double dx = bed.dx, dy = bed.dy;
    const auto& zb = bed.zb;
    const double ys = p.y - dy / 2.0, yn = p.y + dy / 2.0; // centres j and j+1
    Best b{bed.zmax - bed.zmin, {}, false};
    trypatch(wn, b, p, p.x, p.x + dx, ys, yn, zb(i, j), zb(i + 1, j), zb(i, j + 1),
             zb(i + 1, j + 1));
    trypatch(wn, b, p, p.x - dx, p.x, ys, yn, zb(i - 1, j), zb(i, j), zb(i - 1, j + 1),
             zb(i, j + 1));
    if (!tryedgey(b, p, ys, zb(i, j), dy, zb(i, j + 1), p.x) && !b.found) {
        const double yss = p.y - 1.5 * dy, ynn = p.y + 1.5 * dy;
        trypatch(wn, b, p, p.x, p.x + dx, yss, ys, zb(i, j - 1), zb(i + 1, j - 1), zb(i, j),
                 zb(i + 1, j));
        trypatch(wn, b, p, p.x - dx, p.x, yss, ys, zb(i - 1, j - 1), zb(i, j - 1), zb(i - 1, j),
                 zb(i, j));
        tryedgey(b, p, yss, zb(i, j - 1), dy, zb(i, j), p.x);
        // The far row is wrapped periodically; for j = jmax-2 this is the ghost row 0.
        const int jn = (bed.jwhole() + 2 + (j + bed.joffset())) % bed.jwhole() - bed.joffset();
        trypatch(wn, b, p, p.x, p.x + dx, yn, ynn, zb(i, j + 1), zb(i + 1, j + 1), zb(i, jn),
                 zb(i + 1, jn));
        trypatch(wn, b, p, p.x - dx, p.x, yn, ynn, zb(i - 1, j + 1), zb(i, j + 1), zb(i - 1, jn),
                 zb(i, jn));
        tryedgey(b, p, yn, zb(i, j + 1), dy, zb(i, jn), p.x);
        tryverticaly(b, p, ys, zb(i, j));
        tryverticaly(b, p, yn, zb(i, j + 1));
    }
    return b;
}

} // namespace

PatchFoot patchfoot(double x1, double x2, double y1, double y2, double z11, double z21, double z12,
                    double z22, Point3 p) {
    bool warn = false;
    const PatchFoot r = projectpatch(x1, x2, y1, y2, z11, z21, z12, z22, p, warn);
    if (warn) console::writeline(not_converged, r.err);
    return r;
}

Point3 sitepoint(const BedView& bed, Site s, int ib, int jb, int k) {
    // A block's points sit where the whole box's of the same index do.
    const int i = ib + bed.ioffset(), j = jb + bed.joffset();
    switch (s) {
    case Site::u:
        return {bed.xmin + i * bed.dx, bed.ymin + (j - 0.5) * bed.dy,
                bed.zmin + (k - 0.5) * bed.dz};
    case Site::v:
        return {bed.xmin + (i - 0.5) * bed.dx, bed.ymin + j * bed.dy,
                bed.zmin + (k - 0.5) * bed.dz};
    case Site::w:
        return {bed.xmin + (i - 0.5) * bed.dx, bed.ymin + (j - 0.5) * bed.dy,
                bed.zmin + k * bed.dz};
    case Site::centre:
    default:
        return {bed.xmin + (i - 0.5) * bed.dx, bed.ymin + (j - 0.5) * bed.dy,
                bed.zmin + (k - 0.5) * bed.dz};
    }
}

Foot searchfoot(const BedView& bed, Site s, int i, int j, int k, std::vector<double>* warnings) {
    const Warnings wn{warnings};
    const Point3 p = sitepoint(bed, s, i, j, k);
    const Best b = s == Site::u   ? searchuface(wn, bed, i, j, p)
                   : s == Site::v ? searchvface(wn, bed, i, j, p)
                                  : searchcolumn(wn, bed, i, j, p);
    return {p, b.foot, b.found};
}

void searchfailed(Site s) {
    const char* message = s == Site::u   ? failed_u
                          : s == Site::v ? failed_v
                          : s == Site::w ? failed_w
                                         : failed_visc;
    console::writeline(message);
    console::pause();
    std::fflush(stdout);
    std::_Exit(EXIT_FAILURE);
}

namespace {

// A velocity point of grid s (u, v or w), its component the one of the same number (x, y, z).
bool searchvelocity(const BedView& bed, Site s, int i, int j, int k, double& value) {
    const Foot f = searchfoot(bed, s, i, j, k, nullptr);
    if (f.found) wallvelocity(bed, f.p, f.foot, static_cast<Component>(s), value);
    return f.found;
}

} // namespace

bool searchu(const BedView& bed, int i, int j, int k, double& value) {
    return searchvelocity(bed, Site::u, i, j, k, value);
}

bool searchv(const BedView& bed, int i, int j, int k, double& value) {
    return searchvelocity(bed, Site::v, i, j, k, value);
}

bool searchw(const BedView& bed, int i, int j, int k, double& value) {
    return searchvelocity(bed, Site::w, i, j, k, value);
}

bool searchnut(const BedView& bed, int i, int j, int k, double& value) {
    const Foot f = searchfoot(bed, Site::centre, i, j, k, nullptr);
    if (f.found) walleddy(bed, f.p, f.foot, value);
    return f.found;
}

} // namespace riffle::ibm
