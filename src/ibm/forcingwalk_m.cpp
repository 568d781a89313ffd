// The walks of the lists of forcing points (forcinglist_m): at every call, what of the wall law
// depends on the flow. Each list is split evenly among the threads; a forcing point's value reads
// only fluid points (flag 1), which no walk writes, so the values do not depend on how the points
// are shared.
#include "ibm/forcingwalk_m.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "ibm/forcinglist_m.hpp"
#include "ibm/pointsearch_m.hpp"
#include "ibm/walllaw_k.hpp"
#include "ibm/walllaw_m.hpp"
#include "run/loops.hpp"
#include "run/storage_m.hpp"

// Run-time choice of the widest vectors for the inverse-distance weights (GCC on x86-64).
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
#define RIFFLE_IDW_CLONES __attribute__((target_clones("avx512f", "avx2", "default")))
#else
#define RIFFLE_IDW_CLONES
#endif

namespace riffle::ibm {

namespace {

using Flags = ConstView3<std::int32_t>;

// q at R from a block: a single pass over its fluid points with rmax and the sum of the weights
// known, each weight and each product formed as the point-by-point interpolation forms them and
// summed in the same order.
inline double idwvalue(const ConstView3<double>& q, const Flags& flag, const Grid& g, Point3 r,
                       const IdwBlock& b) {
    if (b.near) return q(b.i, b.j, b.k);
    const BlockRange range{b.i, b.i + b.ni - 1, b.j, b.j + b.nj - 1, b.k, b.k + b.nk - 1};
    double sumwq = 0.0;
    eachfluid(flag, g, r, range, [&](int i, int j, int k, double d) {
        sumwq += idwweight(b.rmax, d) * q(i, j, k);
        return false;
    });
    const double result = sumwq / b.sumw;
    return std::isnan(result) ? 0.0 : result;
}

// Blocks are summed as cubes of 6 x 6 x 6 points, the size of every block away from the ends of
// the arrays; a block cut there is the part of its cube that the cube's masks let through.
inline constexpr int side = 6, plane = side * side, blockpoints = plane * side;

// One term of the weighted sum: w q at a fluid point of the block, +0 elsewhere. Adding +0
// leaves the sum as it is (a sum that starts at +0 is never -0), so the sum over the cube equals
// the sum over the fluid points of the block, in the same order. `keep` is all ones for a lane
// inside the block; the choice is made on the bits, so that it never becomes a branch.
inline double term(std::int64_t flag, std::uint64_t keep, double w, double q) {
    keep &= std::uint64_t{0} - static_cast<std::uint64_t>(flag == 1);
    return std::bit_cast<double>(std::bit_cast<std::uint64_t>(w * q) & keep);
}

// A block as a cube read in place: the window's first corner in the fields and its position in
// the grid, the rows inside the block (the others give no terms), and the lanes of a row inside
// it. A block cut at the high end of i is read from a window moved back into the array.
struct Cube {
    const double* q;
    const std::int32_t* f;
    std::ptrdiff_t sj, sk;
    int i0, j0, k0, nj;
    std::uint64_t keep[side];
};

// The terms of one cube, plane after plane of those holding fluid points: n of them (36 a plane).
struct Terms {
    alignas(64) double t[blockpoints];
    int n;
};

// The terms w q of the planes of a cube that hold fluid points, with the weights
// w = ((rmax - d)/(rmax d))^2 and d = sqrt(ex^2 + ey^2 + ez^2) summed in that order, as the
// point-by-point pass forms them. Every point of such a plane gets a weight, fluid or not: 36 at
// a time in vector registers. The versions for wider vectors give the same bits (no contraction
// into fused multiply-adds in this file); the widest the processor has is taken at run time.
RIFFLE_IDW_CLONES void cubeterms(const Grid& g, Point3 r, const Cube& cube, double rmax,
                                 unsigned planes, Terms& out) {
    double ex2[side], ey2[side], ez2[side];
    for (int n = 0; n < side; ++n) {
        const double ex = g.x.pos(cube.i0 + n) - r.x;
        const double ey = g.y.pos(cube.j0 + n) - r.y;
        const double ez = g.z.pos(cube.k0 + n) - r.z;
        ex2[n] = ex * ex;
        ey2[n] = ey * ey;
        ez2[n] = ez * ez;
    }
    double exy[plane];
    for (int jj = 0; jj < side; ++jj)
        for (int ii = 0; ii < side; ++ii)
            exy[jj * side + ii] = ex2[ii] + ey2[jj];
    std::uint64_t keep[plane];
    for (int m = 0; m < plane; ++m)
        keep[m] = cube.keep[m % side];
    int n = 0;
    for (int kk = 0; kk < side; ++kk) {
        if (!(planes >> kk & 1u)) continue;
        // The plane's values and flags side by side; rows outside the block have no fluid.
        double qp[plane];
        std::int32_t fp[plane];
        for (int jj = 0; jj < side; ++jj) {
            const bool inside = jj < cube.nj;
            const std::ptrdiff_t at = jj * cube.sj + kk * cube.sk;
            for (int ii = 0; ii < side; ++ii) {
                qp[jj * side + ii] = inside ? cube.q[at + ii] : 0.0;
                fp[jj * side + ii] = inside ? cube.f[at + ii] : 0;
            }
        }
        double* __restrict t = out.t + n;
        const double ezz = ez2[kk];
        for (int m = 0; m < plane; ++m) {
            t[m] = term(fp[m], keep[m], idwweight(rmax, std::sqrt(exy[m] + ezz)), qp[m]);
        }
        n += plane;
    }
    out.n = n;
}

// The cube of block b; false when the array is too short in i for a window of 6 points.
inline bool blockcube(const ConstView3<double>& q, const Flags& flag, const IdwBlock& b,
                      Cube& cube) {
    const Range ri = q.irange();
    int i0 = b.i;
    if (i0 + side - 1 > ri.hi) i0 = ri.hi - (side - 1);
    if (i0 < ri.lo) return false;
    // One set of strides for both: the flags share the layout of their variable.
    if (flag.irange().lo != ri.lo || flag.irange().hi != ri.hi ||
        flag.jrange().lo != q.jrange().lo || flag.jrange().hi != q.jrange().hi)
        return false;
    const auto sj = static_cast<std::ptrdiff_t>(ri.extent());
    const auto sk = sj * static_cast<std::ptrdiff_t>(q.jrange().extent());
    cube = {&q(i0, b.j, b.k), &flag(i0, b.j, b.k), sj, sk, i0, b.j, b.k, b.nj, {}};
    for (int ii = 0; ii < side; ++ii) {
        const bool inside = i0 + ii >= b.i && i0 + ii < b.i + b.ni;
        cube.keep[ii] = inside ? ~std::uint64_t{0} : 0;
    }
    return true;
}

// The terms of block b at R: none for a block that takes a point as it is or has no fluid point.
inline bool blockterms(const ConstView3<double>& q, const Flags& flag, const Grid& g, Point3 r,
                       const IdwBlock& b, Terms& out) {
    out.n = 0;
    if (b.near || b.planes == 0) return true;
    Cube cube;
    if (!blockcube(q, flag, b, cube)) return false;
    cubeterms(g, r, cube, b.rmax, b.planes, out);
    return true;
}

// The sums of the terms of N cubes side by side: N independent chains of additions, each in the
// order of its own block (a shorter one continued with zeros).
template <int N> inline void sumterms(Terms* const* t, double* s) {
    int n = 0;
    for (int c = 0; c < N; ++c)
        n = std::max(n, t[c]->n);
    for (int c = 0; c < N; ++c)
        std::fill(t[c]->t + t[c]->n, t[c]->t + n, 0.0);
    double acc[N];
    for (int c = 0; c < N; ++c)
        acc[c] = 0.0;
    for (int m = 0; m < n; ++m)
        for (int c = 0; c < N; ++c)
            acc[c] += t[c]->t[m];
    for (int c = 0; c < N; ++c)
        s[c] = acc[c];
}

inline double quotient(double sumwq, double sumw) {
    const double result = sumwq / sumw;
    return std::isnan(result) ? 0.0 : result;
}

// The fields and grids a walk reads.
struct Flow {
    ConstView3<double> u, v, w, nut;
    Flags fu, fv, fw, fp;
    Grid gu, gv, gw, gc;
    double visc;
    explicit Flow(const BedView& bed)
        : u(bed.u), v(bed.v), w(bed.w), nut(bed.nut), fu(bed.iflagu), fv(bed.iflagv),
          fw(bed.iflagw), fp(bed.iflagp), gu(ugrid(bed)), gv(vgrid(bed)), gw(wgrid(bed)),
          gc(cgrid(bed)), visc(bed.visc) {}
};

// The velocity at the image point of an entry: the three blocks summed side by side.
inline Point3 idwvelocityat(const Flow& fl, const IdwPoint& e) {
    const ConstView3<double> q[3] = {fl.u, fl.v, fl.w};
    const Flags flag[3] = {fl.fu, fl.fv, fl.fw};
    const Grid* g[3] = {&fl.gu, &fl.gv, &fl.gw};
    Terms terms[3];
    bool cubes = true;
    for (int c = 0; c < 3; ++c)
        cubes = cubes && blockterms(q[c], flag[c], *g[c], e.r, e.block[c], terms[c]);
    if (!cubes) { // arrays too short for the cubes
        return {idwvalue(fl.u, fl.fu, fl.gu, e.r, e.block[0]),
                idwvalue(fl.v, fl.fv, fl.gv, e.r, e.block[1]),
                idwvalue(fl.w, fl.fw, fl.gw, e.r, e.block[2])};
    }
    Terms* const t[3] = {&terms[0], &terms[1], &terms[2]};
    double s[3];
    sumterms<3>(t, s);
    double vc[3];
    for (int c = 0; c < 3; ++c) {
        const IdwBlock& b = e.block[c];
        vc[c] = b.near ? q[c](b.i, b.j, b.k) : quotient(s[c], b.sumw);
    }
    return {vc[0], vc[1], vc[2]};
}

// Variant 3 where the three-layer law has no solution at R: R moves out and the law is tried
// again, as the point-by-point routine goes on from there.
inline double fartherout(const BedView& bed, const IdwPoint& e, Component c) {
    const double step = step_idw * bed.dy;
    double value = 0.0;
    idwimage(bed, sitepoint(bed, static_cast<Site>(c), e.i, e.j, e.k), e.dp, e.e, e.r + step * e.e,
             c, value, true);
    return value;
}

// The velocity forcing of one grid (Law = false), or the law alone (Law = true: u* and the
// tangential direction of each entry into `out`, the velocity left as it is). Each thread takes
// the share of the list a static schedule would give it, in groups of entries whose friction-
// velocity laws are solved side by side: the image velocity and its tangential part for each
// entry, the laws of the group, the values.
template <bool Law = false, class Entry, class Image>
void walkgroups(const BedView& bed, const std::vector<Entry>& list, const View3<double>& q,
                Component c, Image image, LawOut out = {nullptr, nullptr}) {
    constexpr int group = maxsolves;
    const bool smooth = bed.ibed == 0, trilinearlaw = bed.iIBM == 0;
    const double visc = bed.visc;
    const Entry* entries = list.data();
    loops::forgroups(static_cast<int>(list.size()), group, [&](int m0, int count) {
        Tangential t[group];
        double value[group], start[group], ut[group], d[group];
        UstarSolve solved[group];
        int law[group], nlaw = 0;
        for (int n = 0; n < count; ++n) {
            const Entry& e = entries[m0 + n];
            value[n] = 0.0;
            if constexpr (Law) {
                const bool imaged = image(e, t[n]);
                out.ustar[m0 + n] = imaged ? 0.0 : -1.0; // -1: no law within z0 of the bed
                out.tdir[m0 + n] = Point3{0.0, 0.0, 0.0};
                if (!imaged || t[n].ut == 0.0) continue;
            } else {
                if (!image(e, t[n]) || t[n].ut == 0.0) continue; // no tangential flow: 0
            }
            law[nlaw] = n;
            start[nlaw] = roughustarln(t[n].ut, e.lnd);
            ut[nlaw] = t[n].ut;
            d[nlaw] = e.d;
            solved[nlaw] = {start[nlaw], 0, true}; // the rough wall's u* is the start itself
            ++nlaw;
        }
        if (smooth && trilinearlaw) {
            // Friction velocity from the smooth-wall law at R, velocity at P from the rough-wall
            // law: the pairing is deliberate.
            smoothustars(nlaw, start, ut, d, visc, solved);
        } else if (smooth) {
            threelayerustars(nlaw, start, ut, d, visc, solved);
        }
        if constexpr (Law) {
            for (int l = 0; l < nlaw; ++l) {
                const int n = law[l];
                const Entry& e = entries[m0 + n];
                double us = solved[l].ustar;
                if constexpr (std::is_same_v<Entry, IdwPoint>) {
                    // Where the three-layer law has no solution at R the forcing takes it farther
                    // out; its gradient (u*/kappa)/dP gives that u*.
                    if (!solved[l].converged) {
                        double value1 = 0.0;
                        us = idwimage(bed, sitepoint(bed, static_cast<Site>(c), e.i, e.j, e.k),
                                      e.dp, e.e, e.r + step_idw * bed.dy * e.e, c, value1, true) *
                             kappa * e.dp;
                    }
                }
                out.ustar[m0 + n] = us;
                out.tdir[m0 + n] = divide(t[n].vt, t[n].ut);
            }
            return;
        }
        for (int l = 0; l < nlaw; ++l) {
            const int n = law[l];
            const Entry& e = entries[m0 + n];
            value[n] = roughprofileln(solved[l].ustar, e.lndp) * component(t[n].vt, c) / t[n].ut;
            if constexpr (std::is_same_v<Entry, IdwPoint>) {
                if (!solved[l].converged) value[n] = fartherout(bed, e, c);
            }
        }
        for (int n = 0; n < count; ++n) {
            const Entry& e = entries[m0 + n];
            q(e.i, e.j, e.k) = value[n];
        }
    });
}

template <bool Law = false>
void walkvelocity(const BedParts& parts, int grid, LawOut out = {nullptr, nullptr}) {
    const PointList& list = parts.bed.forcing.velocity[static_cast<std::size_t>(grid)];
    const BedView bed(parts);
    const Flow fl(bed);
    const auto c = static_cast<Component>(grid);
    const View3<double> q = grid == 0   ? parts.flow.u.view()
                            : grid == 1 ? parts.flow.v.view()
                                        : parts.flow.w.view();
    if (parts.cond.iIBM == 0) {
        walkgroups<Law>(
            bed, list.trilinear, q, c,
            [&fl](const TrilinearPoint& e, Tangential& t) {
                const Point3 v{trilinear(fl.u, e.su), trilinear(fl.v, e.sv), trilinear(fl.w, e.sw)};
                t = tangential(v, e.e);
                return true;
            },
            out);
    } else {
        walkgroups<Law>(
            bed, list.idw, q, c,
            [&fl](const IdwPoint& e, Tangential& t) {
                if (e.zero) return false; // within z0 of the bed: 0
                t = tangential(idwvelocityat(fl, e), e.e);
                return true;
            },
            out);
    }
}

// The eddy viscosity of the forcing cells. Variant B sums the blocks of three entries side by
// side.
void walkeddy(const BedParts& parts) {
    const PointList& list = parts.bed.forcing.eddy;
    const Flow fl{BedView(parts)};
    const View3<double> nut = parts.flow.nut.view();
    const EddyPoint* entries = list.eddy.data();
    const int size = static_cast<int>(list.eddy.size());
    if (parts.cond.iIBM == 0) {
        loops::forgroups(size, 1, [&](int m, int) {
            const EddyPoint& e = entries[m];
            nut(e.i, e.j, e.k) = e.zero ? 0.0 : trilinear(fl.nut, e.s) * e.dp / e.den;
        });
        return;
    }
    constexpr int group = 3;
    loops::forgroups(size, group, [&](int m0, int count) {
        Terms terms[group];
        Terms* t[group];
        bool cube[group];
        for (int n = 0; n < group; ++n) {
            t[n] = &terms[n];
            terms[n].n = 0;
            cube[n] = true;
            if (n >= count || entries[m0 + n].zero) continue;
            const EddyPoint& e = entries[m0 + n];
            cube[n] = blockterms(fl.nut, fl.fp, fl.gc, e.r, e.block, terms[n]);
        }
        double sum[group];
        sumterms<group>(t, sum);
        for (int n = 0; n < count; ++n) {
            const EddyPoint& e = entries[m0 + n];
            const IdwBlock& b = e.block;
            double value = 0.0;
            if (!e.zero) {
                const double atr = !cube[n] ? idwvalue(fl.nut, fl.fp, fl.gc, e.r, b)
                                   : b.near ? fl.nut(b.i, b.j, b.k)
                                            : quotient(sum[n], b.sumw);
                value = atr * e.dp / e.den;
            }
            nut(e.i, e.j, e.k) = value;
        }
    });
}

} // namespace

// The three grids one after the other: the walk of one writes its component at its forcing
// points, which the others never read (they read fluid points only).
void forcevelocity(const BedParts& parts) {
    for (int grid = 0; grid < 3; ++grid) {
        makevelocitylist(parts, grid);
        printwarnings(parts.bed.forcing.velocity[static_cast<std::size_t>(grid)]);
        walkvelocity(parts, grid);
    }
}

void forceeddy(const BedParts& parts) {
    makeeddylist(parts);
    printwarnings(parts.bed.forcing.eddy);
    walkeddy(parts);
}

void lawvelocity(const BedParts& parts, int grid, LawOut out) {
    walkvelocity<true>(parts, grid, out);
}

} // namespace riffle::ibm
