// Pointwise pieces of the wall law, shared by the point-by-point variants (walllaw_m.cpp) and
// the walk over the lists of forcing points (forcinglist_m.cpp): grid geometry of the four
// staggered grids, the enclosing stencil and its fluid test, trilinear and inverse-distance
// interpolation, the tangential split, the bed normal and the image point of the trilinear
// variants. Each is a small inline function of its arguments; the variants compose them.
// Reads the fields, flags and zb handed in; writes nothing shared.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "ibm/bedview.hpp"
#include "ibm/points.hpp"
#include "ibm/pointsearch_m.hpp"
#include "ibm/walllaw_m.hpp"
#include "run/storage_m.hpp"

namespace riffle::ibm {

inline constexpr double clamp_margin = 1e-8;    // image point kept this far inside the box
inline constexpr double eddy_margin = 1e-6;     // the same for the eddy-viscosity image point
inline constexpr double shift_margin = 1e-8;    // a point within z0 of the bed moves to z0 + this
inline constexpr double near_point = 1e-6;      // inverse distance: a point this close is taken
inline constexpr double eddy_min_dp = 1e-6;     // forcing cells this close to the bed get nut = 0
inline constexpr double step_trilinear = 0.125; // outward step of R, in units of dy
inline constexpr double step_idw = 0.25;

// ---- vectors --------------------------------------------------------------------------------

RIFFLE_HD inline Point3 operator+(Point3 a, Point3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
RIFFLE_HD inline Point3 operator-(Point3 a, Point3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
RIFFLE_HD inline Point3 operator*(double s, Point3 a) { return {s * a.x, s * a.y, s * a.z}; }
RIFFLE_HD inline double dot(Point3 a, Point3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
RIFFLE_HD inline double norm(Point3 a) { return std::sqrt(dot(a, a)); }
RIFFLE_HD inline Point3 divide(Point3 a, double s) { return {a.x / s, a.y / s, a.z / s}; }
RIFFLE_HD inline double component(Point3 a, Component c) {
    return c == Component::x ? a.x : (c == Component::y ? a.y : a.z);
}

// ---- grid geometry --------------------------------------------------------------------------

// One direction of a staggered grid: index n sits at lo + (n + shift + off) h, off = 0 on faces
// and -0.5 at cell centres, shift the offset of a block of a divided box (0 on one process). The
// indices first..last bound the box's ghost layers, held to the block's own array; zero is the
// box's index 0.
struct Axis {
    double lo, h, off;
    int first, last;
    int shift = 0, zero = 0;
    [[nodiscard]] RIFFLE_HD double pos(int n) const { return lo + ((n + shift) + off) * h; }
    [[nodiscard]] RIFFLE_HD double index(double r) const {
        return (r - lo) / h - off - shift;
    } // fractional
    [[nodiscard]] RIFFLE_HD bool face() const { return off == 0.0; }
};
struct Grid {
    Axis x, y, z;
};

// An axis of n cells (the whole box's count) whose array holds the indices `held` of a block
// shifted by `shift`.
RIFFLE_HD inline Axis faceaxis(double lo, double h, int n, int shift = 0,
                               Range held = {-1, 1 << 30}) {
    return {lo,
            h,
            0.0,
            std::max(-1 - shift, held.lo),
            std::min(n + 1 - shift, held.hi),
            shift,
            std::max(-shift, held.lo)};
}
RIFFLE_HD inline Axis centreaxis(double lo, double h, int n, int shift = 0,
                                 Range held = {0, 1 << 30}) {
    return {lo,
            h,
            -0.5,
            std::max(-shift, held.lo),
            std::min(n + 1 - shift, held.hi),
            shift,
            std::max(-shift, held.lo)};
}

// The x (dir 0) or y (dir 1) axis of a block, or of the whole box on one process.
RIFFLE_HD inline Axis sideaxis(const BedView& bed, int dir, bool face) {
    const double lo = dir == 0 ? bed.xmin : bed.ymin, h = dir == 0 ? bed.dx : bed.dy;
    const int n = dir == 0 ? bed.iwhole() : bed.jwhole(),
              shift = dir == 0 ? bed.ioffset() : bed.joffset();
    const Range held = dir == 0 ? bed.heldi : bed.heldj;
    return face ? faceaxis(lo, h, n, shift, held) : centreaxis(lo, h, n, shift, held);
}

RIFFLE_HD inline Grid ugrid(const BedView& bed) {
    return {sideaxis(bed, 0, true), sideaxis(bed, 1, false),
            centreaxis(bed.zmin, bed.dz, bed.kmax)};
}
RIFFLE_HD inline Grid vgrid(const BedView& bed) {
    return {sideaxis(bed, 0, false), sideaxis(bed, 1, true),
            centreaxis(bed.zmin, bed.dz, bed.kmax)};
}
RIFFLE_HD inline Grid wgrid(const BedView& bed) {
    return {sideaxis(bed, 0, false), sideaxis(bed, 1, false), faceaxis(bed.zmin, bed.dz, bed.kmax)};
}
RIFFLE_HD inline Grid cgrid(const BedView& bed) {
    return {sideaxis(bed, 0, false), sideaxis(bed, 1, false),
            centreaxis(bed.zmin, bed.dz, bed.kmax)};
}

// Brings each coordinate of r back inside the box narrowed by `margin` at each end. The box is
// xmin .. xmin + imax dx (likewise y; the whole box's counts) and zmin .. zmax.
RIFFLE_HD inline Point3 keepinside(Point3 r, const BedView& bed, double margin) {
    const double xhi = bed.xmin + bed.iwhole() * bed.dx, yhi = bed.ymin + bed.jwhole() * bed.dy;
    r.x = std::min(std::max(r.x, bed.xmin + margin), xhi - margin);
    r.y = std::min(std::max(r.y, bed.ymin + margin), yhi - margin);
    r.z = std::min(std::max(r.z, bed.zmin + margin), bed.zmax - margin);
    return r;
}

// ---- trilinear stencil ----------------------------------------------------------------------

// The grid cell that encloses r (a Stencil): lower index n with pos(n) <= r < pos(n+1) in each
// direction, and the weights of the upper points. The lower index is held to first..last-1 so that
// the eight points stay inside the array; a point beyond the outer ghost layer (R stepped out of
// the box) then extrapolates from the outermost cell instead of reading outside the array.
RIFFLE_HD inline int lowerindex(const Axis& ax, double s) {
    const double n = std::floor(std::clamp(s, ax.first - 1.0, ax.last + 1.0));
    return std::clamp(static_cast<int>(n), ax.first, ax.last - 1);
}

RIFFLE_HD inline Stencil enclosing(const Grid& g, Point3 r) {
    const double si = g.x.index(r.x), sj = g.y.index(r.y), sk = g.z.index(r.z);
    const int i = lowerindex(g.x, si), j = lowerindex(g.y, sj), k = lowerindex(g.z, sk);
    return {i, j, k, si - i, sj - j, sk - k};
}

// 1 when all eight points of the stencil are fluid: (flag + 1)/2 in integer division is 1 for
// fluid and 0 for both forcing (0) and solid (-1) points.
RIFFLE_HD inline int fluid8(const ConstView3<std::int32_t>& flag, const Stencil& s) {
    int product = 1;
    for (int dk = 0; dk <= 1; ++dk)
        for (int dj = 0; dj <= 1; ++dj)
            for (int di = 0; di <= 1; ++di)
                product *= (flag(s.i + di, s.j + dj, s.k + dk) + 1) / 2;
    return product;
}

RIFFLE_HD inline double trilinear(const ConstView3<double>& q, const Stencil& s) {
    const int i = s.i, j = s.j, k = s.k;
    const double a = s.a, b = s.b, c = s.c;
    return (1.0 - a) * (1.0 - b) * (1.0 - c) * q(i, j, k) +
           a * (1.0 - b) * (1.0 - c) * q(i + 1, j, k) + (1.0 - a) * b * (1.0 - c) * q(i, j + 1, k) +
           a * b * (1.0 - c) * q(i + 1, j + 1, k) + (1.0 - a) * (1.0 - b) * c * q(i, j, k + 1) +
           a * (1.0 - b) * c * q(i + 1, j, k + 1) + (1.0 - a) * b * c * q(i, j + 1, k + 1) +
           a * b * c * q(i + 1, j + 1, k + 1);
}

// ---- inverse-distance weighting -------------------------------------------------------------

// Index of the block centre: rounded down in a face direction, to nearest in a centre direction.
RIFFLE_HD inline int blockindex(const Axis& ax, double r) {
    const double s = std::clamp(ax.index(r), -1.0e6, 1.0e6); // keeps the int conversion defined
    return static_cast<int>(std::floor(ax.face() ? s : s + 0.5));
}

// The 6 x 6 x 6 block of the inverse-distance interpolation around r: from the block centre -2
// to +3 in each direction, indices 0 up to the outer ghost layer only.
struct BlockRange {
    int ilo, ihi, jlo, jhi, klo, khi;
};
RIFFLE_HD inline BlockRange blockrange(const Grid& g, Point3 r) {
    const int i0 = blockindex(g.x, r.x), j0 = blockindex(g.y, r.y), k0 = blockindex(g.z, r.z);
    return {std::max(i0 - 2, g.x.zero), std::min(i0 + 3, g.x.last), std::max(j0 - 2, g.y.zero),
            std::min(j0 + 3, g.y.last), std::max(k0 - 2, g.z.zero), std::min(k0 + 3, g.z.last)};
}

// Calls visit(i, j, k, d) for the fluid points (flag 1) of the block in order (k, j, i ascending),
// d their distance from r, until visit returns true.
template <class Visit>
RIFFLE_HD inline void eachfluid(const ConstView3<std::int32_t>& flag, const Grid& g, Point3 r,
                                const BlockRange& b, Visit visit) {
    for (int k = b.klo; k <= b.khi; ++k) {
        const double ez = g.z.pos(k) - r.z;
        for (int j = b.jlo; j <= b.jhi; ++j) {
            const double ey = g.y.pos(j) - r.y;
            for (int i = b.ilo; i <= b.ihi; ++i) {
                if (flag(i, j, k) != 1) continue;
                const double ex = g.x.pos(i) - r.x;
                if (visit(i, j, k, std::sqrt(ex * ex + ey * ey + ez * ez))) return;
            }
        }
    }
}

// Weight of a point at distance d when the farthest point gathered is at rmax.
RIFFLE_HD inline double idwweight(double rmax, double d) {
    const double t = (rmax - d) / (rmax * d);
    return t * t;
}

// q at r from the fluid points of the block around r. A point within 1e-6 of r gives its own
// value; otherwise sum(w q)/sum(w) with w = ((rmax - r)/(rmax r))^2, rmax the largest distance
// gathered. With no point gathered (or a single one, whose weight is 0) the quotient is not a
// number and the result is 0.
RIFFLE_HD inline double idw(const ConstView3<double>& q, const ConstView3<std::int32_t>& flag,
                            const Grid& g, Point3 r) {
    constexpr int blockpoints = 216;
    std::array<double, blockpoints> dist; // distances and values of the gathered points
    std::array<double, blockpoints> val;
    int n = 0;
    double rmax = 0.0;
    bool near = false;
    double nearvalue = 0.0;
    eachfluid(flag, g, r, blockrange(g, r), [&](int i, int j, int k, double d) {
        if (d < near_point) {
            near = true;
            nearvalue = q(i, j, k);
            return true;
        }
        dist[n] = d;
        val[n] = q(i, j, k);
        rmax = std::max(rmax, d);
        ++n;
        return false;
    });
    if (near) return nearvalue;
    double sumwq = 0.0, sumw = 0.0;
    for (int m = 0; m < n; ++m) {
        const double wgt = idwweight(rmax, dist[m]);
        sumwq += wgt * val[m];
        sumw += wgt;
    }
    const double result = sumwq / sumw;
    return std::isnan(result) ? 0.0 : result;
}

// ---- pieces of the velocity variants --------------------------------------------------------

// Tangential part of the velocity at the image point.
struct Tangential {
    Point3 vt;
    double ut;
};
RIFFLE_HD inline Tangential tangential(Point3 v, Point3 e) {
    const double vn = dot(v, e);
    const Point3 vt = v - vn * e;
    return {vt, norm(vt)};
}

// P gets the rough-wall profile value along Vt/Ut; returns the wall-normal gradient.
RIFFLE_HD inline double setprofile(double ustar, double dp, double z0, const Tangential& t,
                                   Component c, double& value) {
    const double up = roughprofile(ustar, dp, z0);
    value = up * component(t.vt, c) / t.ut;
    return ustar / kappa / dp;
}

// Unit normal of the bed at the foot f, from the patch of cell centres around f.
RIFFLE_HD inline Point3 bednormal(const BedView& bed, Point3 f) {
    // Truncation as for a non-negative column index; held so the patch stays inside zb. The
    // column is the whole box's; a block holds zb at its own offset (gi, gj).
    const int a = std::clamp(static_cast<int>((f.x - bed.xmin) / bed.dx + 0.5), 0, bed.iwhole());
    const int b = std::clamp(static_cast<int>((f.y - bed.ymin) / bed.dy + 0.5), 0, bed.jwhole());
    const double x1 = bed.xmin + (a - 0.5) * bed.dx, x2 = bed.xmin + (a + 0.5) * bed.dx;
    const double y1 = bed.ymin + (b - 0.5) * bed.dy, y2 = bed.ymin + (b + 0.5) * bed.dy;
    const int ia = a - bed.ioffset(), jb = b - bed.joffset();
    const Bilinear s = bilinear(x1, x2, y1, y2, bed.zb(ia, jb), bed.zb(ia + 1, jb),
                                bed.zb(ia, jb + 1), bed.zb(ia + 1, jb + 1));
    const double zx = s.cx + s.cxy * f.y, zy = s.cy + s.cxy * f.x;
    const double len = std::sqrt(zx * zx + zy * zy + 1.0);
    return {-zx / len, -zy / len, 1.0 / len};
}

// The image point of the trilinear variants, from the geometry and the flags alone: the distance
// dP of the (possibly moved) point from the bed, the unit normal e, the stencils of the u, v and w
// grids around the fluid-enclosed image point R and d = |R - P| + dP.
struct TrilinearGeometry {
    double dp;
    Point3 e;
    Stencil su, sv, sw;
    double d;
};

RIFFLE_HD inline TrilinearGeometry trilineargeometry(const BedView& bed, Point3 p, Point3 f,
                                                     double z0) {
    Point3 n = p - f;
    double dp = norm(n);
    if (dp <= z0) {
        // Within the roughness length the log law has no value: P moves out along the normal.
        p = f + (z0 + shift_margin) * bednormal(bed, f);
        n = p - f;
        dp = norm(n);
    }
    const Point3 e = divide(n, dp);
    // R is brought inside the box once; the outward steps after it are not clamped again.
    Point3 r = keepinside(p + n, bed, clamp_margin);
    const Grid gu = ugrid(bed), gv = vgrid(bed), gw = wgrid(bed);
    const auto fu = bed.iflagu, fv = bed.iflagv, fw = bed.iflagw;
    const double step = step_trilinear * bed.dy; // dy in all three components, deliberately
    Stencil su = enclosing(gu, r), sv = enclosing(gv, r), sw = enclosing(gw, r);
    while (fluid8(fu, su) * fluid8(fv, sv) * fluid8(fw, sw) == 0) {
        r = r + step * e;
        su = enclosing(gu, r);
        sv = enclosing(gv, r);
        sw = enclosing(gw, r);
    }
    return {dp, e, su, sv, sw, norm(r - p) + dp};
}

// The velocity at the image point, split along the bed.
RIFFLE_HD inline Tangential trilineartangential(const BedView& bed, const TrilinearGeometry& g) {
    const Point3 v{trilinear(bed.u, g.su), trilinear(bed.v, g.sv), trilinear(bed.w, g.sw)};
    return tangential(v, g.e);
}

RIFFLE_HD inline Point3 idwvelocity(const BedView& bed, Point3 r) {
    return {idw(bed.u, bed.iflagu, ugrid(bed), r), idw(bed.v, bed.iflagv, vgrid(bed), r),
            idw(bed.w, bed.iflagw, wgrid(bed), r)};
}

// Variants 3 and 4 from the image point r on (walllaw_m.cpp): the image velocity, u* from the law
// of the variant and the value at P; where the three-layer law cannot be solved, R moves out by
// dy/4 along e and the law is tried again.
double idwimage(const BedView& bed, Point3 p, double dp, Point3 e, Point3 r, Component c,
                double& value, bool smooth);

// The image point of a forcing cell centre P for the eddy viscosity, nut(P) = nut(R) dP/den with
// den = dP + |R - P|; `zero` when P lies too close to the bed for the ratio (nut(P) = 0).
struct EddyImage {
    bool zero;
    double dp, den;
    Point3 r;
    Stencil s; // variant A only
};

// Variant A: R = P + n brought inside the box, then stepped out by dy/8 until its stencil holds
// only fluid cells.
RIFFLE_HD inline EddyImage eddytriimage(const BedView& bed, Point3 p, Point3 f) {
    const Point3 n = p - f;
    const double dp = norm(n);
    if (dp < eddy_min_dp) return {true, dp, 0.0, {}, {}};
    const Point3 e = divide(n, dp);
    Point3 r = keepinside(p + n, bed, eddy_margin);
    const Grid g = cgrid(bed);
    const auto flag = bed.iflagp;
    const double step = step_trilinear * bed.dy;
    Stencil s = enclosing(g, r);
    while (fluid8(flag, s) == 0) {
        r = r + step * e;
        s = enclosing(g, r);
    }
    return {false, dp, dp + norm(r - p), r, s};
}

// Variant B: R = P + n as it is.
RIFFLE_HD inline EddyImage eddyidwimage(Point3 p, Point3 f) {
    const Point3 n = p - f;
    const double dp = norm(n);
    if (dp <= eddy_min_dp) return {true, dp, 0.0, {}, {}};
    const Point3 r = p + n; // no outward stepping in this variant
    return {false, dp, dp + norm(r - p), r, {}};
}

} // namespace riffle::ibm
