// Lists of forcing points: the build (search, image point, what of the wall law the geometry and
// flags decide) and the walks that evaluate the rest at every call, each list split evenly among
// the threads. A forcing point's value reads only fluid points (flag 1), which no walk writes, so
// the values do not depend on how the points are shared.
//
// The build runs the searches in parallel, logging their warnings by entry instead of printing
// them; each use prints the log in list order, which is what one thread searching point by point
// prints. A failed search prints the warnings of the entries before it and its own, then the
// routine's message, pauses and ends the process, as the first search would.
#include "ibm/forcinglist_m.hpp"

#include <omp.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "ibm/flagdeter_m.hpp"
#include "ibm/pointsearch_m.hpp"
#include "ibm/walllaw_k.hpp"
#include "ibm/walllaw_m.hpp"
#include "ibm/wallmodel_m.hpp"
#include "run/console_m.hpp"
#include "run/loops.hpp"
#include "run/messages.hpp"
#include "run/parallel.hpp"
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

ListKey keyof(const Storage& st) {
    ListKey k;
    k.classification = st.forcing.classification;
    k.imax = st.imax;
    k.jmax = st.jmax;
    k.kmax = st.kmax;
    k.iIBM = st.iIBM;
    k.ibed = st.ibed;
    k.dx = st.dx;
    k.dy = st.dy;
    k.dz = st.dz;
    k.xmin = st.xmin;
    k.ymin = st.ymin;
    k.zmin = st.zmin;
    k.zmax = st.zmax;
    k.ks = st.ks;
    return k;
}

bool sameinputs(const Storage& st, const ClassificationInputs& in) {
    return in.imax == st.imax && in.jmax == st.jmax && in.kmax == st.kmax && in.dz == st.dz &&
           in.zmin == st.zmin && in.ibu == st.ibu && in.ibv == st.ibv && in.ibw == st.ibw &&
           in.ibp == st.ibp && in.zb.size() == st.zb.size() &&
           std::memcmp(in.zb.data(), st.zb.data(), in.zb.size() * sizeof(double)) == 0;
}

// ---- building ---------------------------------------------------------------------------------

// The block of R on one grid: the gathering pass of the inverse-distance interpolation (idw in
// walllaw_k.hpp) without the values, and the sum of the weights in the same order.
IdwBlock idwblock(const Flags& flag, const Grid& g, Point3 r) {
    std::array<double, 216> dist;
    const BlockRange range = blockrange(g, r);
    IdwBlock b;
    b.i = range.ilo;
    b.j = range.jlo;
    b.k = range.klo;
    b.ni = static_cast<std::int8_t>(std::max(range.ihi - range.ilo + 1, 0));
    b.nj = static_cast<std::int8_t>(std::max(range.jhi - range.jlo + 1, 0));
    b.nk = static_cast<std::int8_t>(std::max(range.khi - range.klo + 1, 0));
    int n = 0;
    double rmax = 0.0;
    eachfluid(flag, g, r, range, [&](int i, int j, int k, double d) {
        if (d < near_point) {
            b.near = true;
            b.i = i;
            b.j = j;
            b.k = k;
            return true;
        }
        dist[n] = d;
        rmax = std::max(rmax, d);
        ++n;
        b.planes = static_cast<std::uint8_t>(b.planes | 1u << (k - range.klo));
        return false;
    });
    if (b.near) return b;
    double sumw = 0.0;
    for (int m = 0; m < n; ++m)
        sumw += idwweight(rmax, dist[m]);
    b.rmax = rmax;
    b.sumw = sumw;
    return b;
}

void maketrilinear(const Storage& st, const Foot& f, TrilinearPoint& e) {
    const double z0 = roughnesslength(st.ks);
    const TrilinearGeometry g = trilineargeometry(st, f.p, f.foot, z0);
    e.e = g.e;
    e.dp = g.dp;
    e.d = g.d;
    e.lndp = std::log(g.dp / z0);
    e.lnd = std::log(g.d / z0);
    e.su = g.su;
    e.sv = g.sv;
    e.sw = g.sw;
}

void makeidw(const Storage& st, const Foot& f, IdwPoint& e) {
    const double z0 = roughnesslength(st.ks);
    const Point3 n = f.p - f.foot;
    e.dp = norm(n);
    e.zero = e.dp <= z0; // no shifting of P in these variants
    if (e.zero) return;
    e.e = divide(n, e.dp);
    e.r = f.p + n;
    e.d = norm(e.r - f.p) + e.dp;
    e.lndp = std::log(e.dp / z0);
    e.lnd = std::log(e.d / z0);
    e.block[0] = idwblock(st.iflagu.cview(), ugrid(st), e.r);
    e.block[1] = idwblock(st.iflagv.cview(), vgrid(st), e.r);
    e.block[2] = idwblock(st.iflagw.cview(), wgrid(st), e.r);
}

void makeeddy(const Storage& st, const Foot& f, EddyPoint& e) {
    const bool tri = st.iIBM == 0;
    const EddyImage im = tri ? eddytriimage(st, f.p, f.foot) : eddyidwimage(f.p, f.foot);
    const Point3 n = f.p - f.foot;
    const double len = norm(n);
    e.ez = len > 0.0 ? n.z / len : 1.0;
    e.zero = im.zero;
    e.dp = im.dp;
    if (im.zero) return;
    e.den = im.den;
    e.s = im.s;
    e.r = im.r;
    if (!tri) e.block = idwblock(st.iflagp.cview(), cgrid(st), im.r);
}

template <class Entry> std::vector<Entry>& entriesof(PointList& list);
template <> std::vector<TrilinearPoint>& entriesof(PointList& list) { return list.trilinear; }
template <> std::vector<IdwPoint>& entriesof(PointList& list) { return list.idw; }
template <> std::vector<EddyPoint>& entriesof(PointList& list) { return list.eddy; }

// What the searches of one thread found while a list was made: the warnings of its entries, in
// the order it met them, and the first entry whose search failed.
struct Found {
    std::vector<SearchWarning> warnings;
    std::int32_t failed = INT_MAX;
    std::vector<double> search; // the warnings of one search
};

// Makes `list` again from the flags of its site, with entries of type Entry filled by make.
template <class Entry, class Make>
void build(Storage& st, Site site, PointList& list, const ListKey& key, Make make) {
    std::vector<Entry>& entries = entriesof<Entry>(list);
    list.built = false;
    st.forcing.wall.built = false; // its faces point into the lists
    list.trilinear.clear();
    list.idw.clear();
    list.eddy.clear();
    list.warnings.clear();
    const Flags flag = site == Site::u   ? st.iflagu.cview()
                       : site == Site::v ? st.iflagv.cview()
                       : site == Site::w ? st.iflagw.cview()
                                         : st.iflagp.cview();
    const int klast = site == Site::w ? st.kmax - 1 : st.kmax;
    for (int k = 1; k <= klast; ++k)
        for (int j = 1; j <= st.jmax; ++j)
            for (int i = 1; i <= st.imax; ++i) {
                if (flag(i, j, k) != forcing) continue;
                Entry e;
                e.i = i;
                e.j = j;
                e.k = k;
                entries.push_back(e);
            }
    entries.shrink_to_fit();
    // The searches take very different times: handed out as threads come free.
    const Storage& cst = st;
    const std::vector<Found> found = loops::collectpoints(
        static_cast<long long>(entries.size()), Found{},
        [&](Found& acc, long long n) {
            const auto m = static_cast<std::int32_t>(n);
            Entry& e = entries[static_cast<std::size_t>(m)];
            acc.search.clear();
            const Foot f = searchfoot(cst, site, e.i, e.j, e.k, &acc.search);
            for (double err : acc.search)
                acc.warnings.push_back({m, err});
            if (!f.found) {
                acc.failed = std::min(acc.failed, m);
                return;
            }
            make(cst, f, e);
        },
        loops::Share::free);
    std::int32_t failed = INT_MAX;
    for (const Found& t : found) {
        list.warnings.insert(list.warnings.end(), t.warnings.begin(), t.warnings.end());
        failed = std::min(failed, t.failed);
    }
    // Each entry's warnings stay in the order its search met them.
    std::stable_sort(
        list.warnings.begin(), list.warnings.end(),
        [](const SearchWarning& a, const SearchWarning& b) { return a.entry < b.entry; });
    if (failed != INT_MAX) {
        for (const SearchWarning& w : list.warnings)
            if (w.entry <= failed) console::writeline(messages::not_converged, w.err);
        searchfailed(site);
    }
    list.key = key;
    list.built = true;
}

// The warnings the searches of a list printed, once per use.
void printwarnings(const PointList& list) {
    for (const SearchWarning& w : list.warnings)
        console::writeline(messages::not_converged, w.err);
}

// ---- walking ----------------------------------------------------------------------------------

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
    explicit Flow(const Storage& st)
        : u(st.u.cview()), v(st.v.cview()), w(st.w.cview()), nut(st.nut.cview()),
          fu(st.iflagu.cview()), fv(st.iflagv.cview()), fw(st.iflagw.cview()),
          fp(st.iflagp.cview()), gu(ugrid(st)), gv(vgrid(st)), gw(wgrid(st)), gc(cgrid(st)),
          visc(st.visc) {}
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
inline double fartherout(const Storage& st, const IdwPoint& e, Component c) {
    const double step = step_idw * st.dy;
    double value = 0.0;
    idwimage(st, sitepoint(st, static_cast<Site>(c), e.i, e.j, e.k), e.dp, e.e, e.r + step * e.e, c,
             value, true);
    return value;
}

// Where a walk of the wall-layer model puts the friction velocity and the unit tangential
// direction of each entry instead of writing the velocity.
struct LawOut {
    double* ustar;
    Point3* tdir;
};

// The velocity forcing of one grid (Law = false), or the law alone (Law = true: u* and the
// tangential direction of each entry into `out`, the velocity left as it is). Each thread takes
// the share of the list a static schedule would give it, in groups of entries whose friction-
// velocity laws are solved side by side: the image velocity and its tangential part for each
// entry, the laws of the group, the values. A thread goes on without waiting for the others.
template <bool Law = false, class Entry, class Image>
void walkgroups(const Storage& st, const std::vector<Entry>& list, const View3<double>& q,
                Component c, Image image, LawOut out = {nullptr, nullptr}) {
    constexpr int group = maxsolves;
    const bool smooth = st.ibed == 0, trilinearlaw = st.iIBM == 0;
    const double visc = st.visc;
    const Entry* entries = list.data();
    loops::forgroups(static_cast<int>(list.size()), group, [&](int m0, int count) {
        Tangential t[group];
        double value[group], start[group], ut[group], d[group], ustar[group];
        bool converged[group];
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
            converged[nlaw] = true;
            ++nlaw;
        }
        if (!smooth) {
            std::copy(start, start + nlaw, ustar);
        } else if (trilinearlaw) {
            // Friction velocity from the smooth-wall law at R, velocity at P from the rough-wall
            // law: the pairing is deliberate.
            smoothustars(nlaw, start, ut, d, visc, ustar);
        } else {
            threelayerustars(nlaw, start, ut, d, visc, ustar, converged);
        }
        if constexpr (Law) {
            for (int l = 0; l < nlaw; ++l) {
                const int n = law[l];
                const Entry& e = entries[m0 + n];
                double us = ustar[l];
                if constexpr (std::is_same_v<Entry, IdwPoint>) {
                    // Where the three-layer law has no solution at R the forcing takes it farther
                    // out; its gradient (u*/kappa)/dP gives that u*.
                    if (!converged[l]) {
                        double value1 = 0.0;
                        us = idwimage(st, sitepoint(st, static_cast<Site>(c), e.i, e.j, e.k), e.dp,
                                      e.e, e.r + step_idw * st.dy * e.e, c, value1, true) *
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
            value[n] = roughprofileln(ustar[l], e.lndp) * component(t[n].vt, c) / t[n].ut;
            if constexpr (std::is_same_v<Entry, IdwPoint>) {
                if (!converged[l]) value[n] = fartherout(st, e, c);
            }
        }
        for (int n = 0; n < count; ++n) {
            const Entry& e = entries[m0 + n];
            q(e.i, e.j, e.k) = value[n];
        }
    });
}

template <bool Law = false>
void walkvelocity(Storage& st, int grid, LawOut out = {nullptr, nullptr}) {
    const PointList& list = st.forcing.velocity[static_cast<std::size_t>(grid)];
    const Flow fl(st);
    const auto c = static_cast<Component>(grid);
    const View3<double> q = grid == 0 ? st.u.view() : grid == 1 ? st.v.view() : st.w.view();
    if (st.iIBM == 0) {
        walkgroups<Law>(
            st, list.trilinear, q, c,
            [&fl](const TrilinearPoint& e, Tangential& t) {
                const Point3 v{trilinear(fl.u, e.su), trilinear(fl.v, e.sv), trilinear(fl.w, e.sw)};
                t = tangential(v, e.e);
                return true;
            },
            out);
    } else {
        walkgroups<Law>(
            st, list.idw, q, c,
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
void walkeddy(Storage& st) {
    const PointList& list = st.forcing.eddy;
    const Flow fl(st);
    const View3<double> nut = st.nut.view();
    const EddyPoint* entries = list.eddy.data();
    const int size = static_cast<int>(list.eddy.size());
    if (st.iIBM == 0) {
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

void uselists(Storage& st) {
    st.forcing.enabled = true;
    st.forcing.classified = false;
    flagdeter(st);
}

void noteclassification(Storage& st) {
    ForcingLists& fl = st.forcing;
    if (fl.classified && sameinputs(st, fl.inputs)) return;
    ClassificationInputs& in = fl.inputs;
    in.zb.assign(st.zb.data(), st.zb.data() + st.zb.size());
    in.ibu = st.ibu;
    in.ibv = st.ibv;
    in.ibw = st.ibw;
    in.ibp = st.ibp;
    in.imax = st.imax;
    in.jmax = st.jmax;
    in.kmax = st.kmax;
    in.dz = st.dz;
    in.zmin = st.zmin;
    fl.classified = true;
    ++fl.classification;
}

bool flagscurrent(const Storage& st) {
    const ForcingLists& fl = st.forcing;
    return fl.enabled && fl.classified && sameinputs(st, fl.inputs);
}

// The three grids one after the other: the walk of one writes its component at its forcing
// points, which the others never read (they read fluid points only).
void forcevelocity(Storage& st) {
    const ListKey key = keyof(st);
    for (int grid = 0; grid < 3; ++grid) {
        PointList& list = st.forcing.velocity[static_cast<std::size_t>(grid)];
        if (!(list.built && list.key == key)) {
            const auto site = static_cast<Site>(grid);
            if (st.iIBM == 0) {
                build<TrilinearPoint>(st, site, list, key, maketrilinear);
            } else {
                build<IdwPoint>(st, site, list, key, makeidw);
            }
        }
        printwarnings(list);
        walkvelocity(st, grid);
    }
}

void forceeddy(Storage& st) {
    PointList& list = st.forcing.eddy;
    const ListKey key = keyof(st);
    if (!(list.built && list.key == key)) build<EddyPoint>(st, Site::centre, list, key, makeeddy);
    printwarnings(list);
    walkeddy(st);
}

namespace {

// The entry of point (i, j, k) in a list ordered by k, j, i; -1 when it is not a forcing point.
template <class Entry> std::int32_t entryat(const std::vector<Entry>& list, int i, int j, int k) {
    const auto before = [](const Entry& e, const std::array<int, 3>& key) {
        return std::array<int, 3>{e.k, e.j, e.i} < key;
    };
    const std::array<int, 3> key{k, j, i};
    const auto it = std::lower_bound(list.begin(), list.end(), key, before);
    if (it == list.end() || it->i != i || it->j != j || it->k != k) return -1;
    return static_cast<std::int32_t>(it - list.begin());
}

template <class Entry>
void mapfaces(const std::array<PointList, 3>& velocity, const std::vector<EddyPoint>& cells,
              std::vector<WallCell>& out, const std::vector<Entry>& (*of)(const PointList&),
              int imax, int jmax) {
    // The topmost forcing cell of each column.
    std::vector<int> topk(static_cast<std::size_t>(imax + 2) * (jmax + 2), -1);
    const auto col = [imax](int i, int j) {
        return static_cast<std::size_t>(j) * (imax + 2) + static_cast<std::size_t>(i);
    };
    for (const EddyPoint& e : cells)
        topk[col(e.i, e.j)] = std::max(topk[col(e.i, e.j)], e.k);
    out.resize(cells.size());
    for (std::size_t m = 0; m < cells.size(); ++m) {
        const EddyPoint& e = cells[m];
        WallCell& w = out[m];
        w.faces = {entryat(of(velocity[0]), e.i, e.j, e.k), entryat(of(velocity[1]), e.i, e.j, e.k),
                   entryat(of(velocity[2]), e.i, e.j, e.k - 1),
                   entryat(of(velocity[2]), e.i, e.j, e.k)};
        w.top = topk[col(e.i, e.j)] == e.k;
    }
}

const std::vector<TrilinearPoint>& trilinearof(const PointList& l) { return l.trilinear; }
const std::vector<IdwPoint>& idwof(const PointList& l) { return l.idw; }

// What the law gives a forcing cell.
struct CellLaw {
    double ustar = 0.0; // mean u*
    double tau = 0.0;   // mean u*^2
    Point3 stress;      // mean u*^2 along the tangential direction
};

// The friction velocity and bed stress of a forcing cell from the velocity forcing points on the
// faces it owns that have a law. The topmost forcing cell of a column leaves out its lower w face
// where another face has a law: that point lies below the cell centre, where the image point
// comes so close to the bed that ln(d/z0) is small and u* several times that of its neighbours,
// while the faces at and above the centre bound the first fluid cell whose stress the cell sets.
inline CellLaw celllaw(const WallCell& c, const WallLists& wl) {
    constexpr std::array<std::size_t, 4> grid{0, 1, 2, 2}; // the list of each face
    constexpr std::size_t lower = 2;                       // w(k-1)
    const auto law = [&](std::size_t f) {
        const std::int32_t m = c.faces[f];
        return m < 0 ? -1.0 : wl.ustar[grid[f]][static_cast<std::size_t>(m)];
    };
    bool others = false;
    for (std::size_t f = 0; f < c.faces.size(); ++f)
        others = others || (f != lower && law(f) >= 0.0);
    CellLaw out;
    int n = 0;
    for (std::size_t f = 0; f < c.faces.size(); ++f) {
        const double us = law(f);
        if (us < 0.0) continue; // no forcing point, or within z0 of the bed: no law
        if (f == lower && c.top && others) continue;
        const std::int32_t m = c.faces[f];
        out.ustar += us;
        out.tau += us * us;
        out.stress = out.stress + (us * us) * wl.tdir[grid[f]][static_cast<std::size_t>(m)];
        ++n;
    }
    if (n == 0) return out;
    const double inv = 1.0 / n;
    out.ustar *= inv;
    out.tau *= inv;
    out.stress = inv * out.stress;
    return out;
}

// The velocity at the centre of cell (i, j, k): the mean of its two faces in each direction.
inline Point3 centrevelocity(const ConstView3<double>& u, const ConstView3<double>& v,
                             const ConstView3<double>& w, int i, int j, int k) {
    return {0.5 * (u(i - 1, j, k) + u(i, j, k)), 0.5 * (v(i, j - 1, k) + v(i, j, k)),
            0.5 * (w(i, j, k - 1) + w(i, j, k))};
}

} // namespace

void forcewall(Storage& st, int layers) {
    ForcingLists& fl = st.forcing;
    WallLists& wl = fl.wall;
    const ListKey key = keyof(st);
    for (int g = 0; g < 3; ++g) {
        PointList& list = fl.velocity[static_cast<std::size_t>(g)];
        if (list.built && list.key == key) continue;
        if (st.iIBM == 0) {
            build<TrilinearPoint>(st, static_cast<Site>(g), list, key, maketrilinear);
        } else {
            build<IdwPoint>(st, static_cast<Site>(g), list, key, makeidw);
        }
    }
    if (!(fl.eddy.built && fl.eddy.key == key))
        build<EddyPoint>(st, Site::centre, fl.eddy, key, makeeddy);
    printwarnings(fl.eddy);
    const bool rebuilt = !wl.built;
    if (!wl.built) {
        if (st.iIBM == 0) {
            mapfaces(fl.velocity, fl.eddy.eddy, wl.cells, trilinearof, st.imax, st.jmax);
        } else {
            mapfaces(fl.velocity, fl.eddy.eddy, wl.cells, idwof, st.imax, st.jmax);
        }
        for (std::size_t g = 0; g < 3; ++g) {
            const PointList& l = fl.velocity[g];
            const std::size_t n = l.trilinear.size() + l.idw.size();
            wl.ustar[g].assign(n, 0.0);
            wl.tdir[g].assign(n, Point3{0.0, 0.0, 0.0});
        }
        wl.built = true;
    }
    if (!st.bedshear.allocated()) {
        st.bedshear.allocate(Range{0, st.imax + 1}, Range{0, st.jmax + 1}, Range{0, 2});
    }
    st.bedshear.fill(0.0);
    // The law at every velocity forcing point from the current flow, unless the update before
    // this one found it for the same velocity and lists.
    if (!(wl.current && !rebuilt)) {
        for (int g = 0; g < 3; ++g) {
            const auto gi = static_cast<std::size_t>(g);
            walkvelocity<true>(st, g, LawOut{wl.ustar[gi].data(), wl.tdir[gi].data()});
        }
    }
    // Each forcing cell writes its own nut, and the topmost one of a column the cells above it
    // and the column's stress: no two entries write the same place.
    const EddyPoint* cells = fl.eddy.eddy.data();
    const View3<double> nut = st.nut.view();
    const View3<double> shear = st.bedshear.view();
    const double visc = st.visc, dz = st.dz, zmin = st.zmin, zmax = st.zmax;
    const Field2d& zb = st.zb;
    const int kmax = st.kmax;
    const auto u = st.u.cview(), v = st.v.cview(), w = st.w.cview();
    loops::forgroups(static_cast<int>(fl.eddy.eddy.size()), 1, [&](int m, int) {
        const EddyPoint& e = cells[m];
        const WallCell& c = wl.cells[static_cast<std::size_t>(m)];
        const CellLaw law = celllaw(c, wl);
        if (!c.top) {
            nut(e.i, e.j, e.k) = std::max(0.0, kappa * law.ustar * e.dp - visc);
            return;
        }
        // The wall layer above: its share of kappa u* z where that exceeds the Smagorinsky
        // viscosity.
        const int last = std::min(kmax, e.k + layers);
        for (int k = e.k + 1; k <= last; ++k) {
            const double z = e.dp + (k - e.k) * dz * e.ez;
            nut(e.i, e.j, k) =
                std::max(nut(e.i, e.j, k), layerviscosity(law.ustar, z, visc, k - e.k));
        }
        // The forcing cell: the face between it and the cell above, which the momentum stencils
        // give the mean of the two, carries the wall law's stress. Where the forcing cell lies so
        // close to the bed that the cell above holds more than the face may have, the cell above
        // gives way: the bed stress comes first.
        if (e.k + 1 <= kmax) {
            double du = 0.0;
            if (law.tau > 0.0) {
                const Point3 dir = divide(law.stress, std::sqrt(dot(law.stress, law.stress)));
                du = dot(centrevelocity(u, v, w, e.i, e.j, e.k + 1) -
                             centrevelocity(u, v, w, e.i, e.j, e.k),
                         dir);
            }
            // The face carries the stress of its height in the column's depth.
            const double bed = zb(e.i, e.j), face = zmin + e.k * dz;
            const double tau = law.tau * stressshare(face - bed, zmax - bed);
            const double room =
                std::max(0.0, 2.0 * (facetotal(law.ustar, tau, e.dp, dz * e.ez, du) - visc));
            double& above = nut(e.i, e.j, e.k + 1);
            above = std::min(above, room);
            nut(e.i, e.j, e.k) = room - above;
        } else {
            nut(e.i, e.j, e.k) = std::max(0.0, kappa * law.ustar * e.dp - visc);
        }
        shear(e.i, e.j, 0) = law.tau;
        shear(e.i, e.j, 1) = law.stress.x;
        shear(e.i, e.j, 2) = law.stress.y;
    });
}

std::size_t listbytes(const ForcingLists& fl) {
    std::size_t bytes = fl.inputs.zb.capacity() * sizeof(double);
    auto add = [&bytes](const PointList& l) {
        bytes += l.trilinear.capacity() * sizeof(TrilinearPoint) +
                 l.idw.capacity() * sizeof(IdwPoint) + l.eddy.capacity() * sizeof(EddyPoint) +
                 l.warnings.capacity() * sizeof(SearchWarning);
    };
    for (const PointList& l : fl.velocity)
        add(l);
    add(fl.eddy);
    return bytes;
}

} // namespace riffle::ibm
