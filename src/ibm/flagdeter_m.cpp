// Classification of the staggered points against the bed, and the hand-over of newly emerged
// points to the point search. Every loop shares its outermost index among the threads one at a
// time as they come free, and ends before the next begins, because each fill reads what the loop
// before wrote on other threads.
#include "ibm/flagdeter_m.hpp"

#include <array>
#include <atomic>
#include <cstdlib>

#include "ibm/forcinglist_m.hpp"
#include "ibm/pointsearch_m.hpp"
#include "run/halo_m.hpp"
#include "run/loops.hpp"

namespace riffle::ibm {

namespace {

using Flags = View3<std::int32_t>;

// A point strictly below the bed is solid; one exactly on it is fluid.
inline std::int32_t classify(double height, double bed) { return height < bed ? solid : fluid; }

// Classify loop over the box ri x rj x rk: flag -1 where height(k) < bed(i,j), else 1. The view
// and the bed come by value so that they live in registers: an int store through a view that the
// loop reads from memory could alias the view's own int bounds and stop the vectoriser.
template <class Height, class Bed>
void classifybox(Flags f, Range ri, Range rj, Range rk, Height height, Bed bed) {
    loops::forbox(
        {ri, rj, rk}, [&](int i, int j, int k) { f(i, j, k) = classify(height(k), bed(i, j)); },
        loops::Share::free);
}

// Element (m, a, b) of a flag array, m normal to direction Dir (0 x, 1 y, 2 z) and (a, b) in the
// plane, b the outer of the two.
template <int Dir> inline std::int32_t& at(const Flags& f, int m, int a, int b) {
    if constexpr (Dir == 0) return f(m, a, b);
    if constexpr (Dir == 1) return f(a, m, b);
    return f(a, b, m);
}

// The two ghost layers of one direction and the plane they cover.
struct Fill {
    int dir;         // 0 x, 1 y, 2 z
    int n;           // cells in that direction
    bool face;       // the variable sits on the faces of this direction (layers 0 and n are faces)
    int clow, chigh; // codes of the low and high face
    Range a, b;      // inner and outer plane index; b is divided among the threads
    // Whether the low and the high layer are filled by the rule: not where a neighbour block
    // lies beyond the face (its halo comes from the exchange).
    bool low = true, high = true;
};

template <int Dir> void ghostfill(const Flags& f, const Fill& g) {
    // |code|: a wall's -1 reverses a velocity's sign but must not reverse a flag.
    const int wl = std::abs(g.clow), wh = std::abs(g.chigh);
    const int n = g.n;
    const int lowghost = g.face ? -1 : 0;
    const int lowinner = lowghost + 1;
    const int lowfar = g.face ? n - 1 : n;
    const Range ra = g.a, rb = g.b;
    loops::forplane(
        ra, rb,
        [&](int a, int b) {
            if (g.low) {
                at<Dir>(f, lowghost, a, b) =
                    wl * at<Dir>(f, lowinner, a, b) + (1 - wl) * at<Dir>(f, lowfar, a, b);
            }
            if (g.high) {
                at<Dir>(f, n + 1, a, b) = wh * at<Dir>(f, n, a, b) + (1 - wh) * at<Dir>(f, 1, a, b);
            }
        },
        loops::Share::free);
}

// The three directions in the array's own order.
void fillghosts(const Flags& f, const std::array<Fill, 3>& fills) {
    for (const Fill& g : fills) {
        if (g.dir == 0) ghostfill<0>(f, g);
        if (g.dir == 1) ghostfill<1>(f, g);
        if (g.dir == 2) ghostfill<2>(f, g);
    }
}

// Layers k-1 and k+1 belong to other threads, which may be turning a 1 into a 0 at this moment.
// Relaxed atomic access keeps that well defined; either value fails the test for -1.
inline std::int32_t shared(std::int32_t& f) {
    return std::atomic_ref<std::int32_t>(f).load(std::memory_order_relaxed);
}

// A fluid point with a solid face neighbour becomes a forcing point. Only -1 is looked for and
// only a 1 is changed, so the array can be updated in place in any order.
void markforcing(const Flags& f, Range ri, Range rj, Range rk) {
    loops::forbox(
        {ri, rj, rk},
        [&](int i, int j, int k) {
            if (f(i, j, k) != fluid) return;
            const bool nearbed = f(i - 1, j, k) == solid || f(i + 1, j, k) == solid ||
                                 f(i, j - 1, k) == solid || f(i, j + 1, k) == solid ||
                                 shared(f(i, j, k - 1)) == solid || shared(f(i, j, k + 1)) == solid;
            if (nearbed)
                std::atomic_ref<std::int32_t>(f(i, j, k)).store(forcing, std::memory_order_relaxed);
        },
        loops::Share::free);
}

} // namespace

void flagdeter(const BedParts& parts) {
    // The flags are a function of the bed, the codes and the vertical grid alone; while those
    // are the ones the flags in use were made from, nothing would change.
    if (flagscurrent(parts)) return;
    const int imax = parts.grid.imax, jmax = parts.grid.jmax, kmax = parts.grid.kmax;
    const double dz = parts.grid.dz, zmin = parts.grid.zmin;
    const ConstView2<double> zb = parts.grid.zb.cview();
    const Flags fu = parts.bed.iflagu.view();
    const Flags fv = parts.bed.iflagv.view();
    const Flags fw = parts.bed.iflagw.view();
    const Flags fp = parts.bed.iflagp.view();
    const std::array<int, 7> cu = parts.cond.ibu, cv = parts.cond.ibv, cw = parts.cond.ibw,
                             cp = parts.cond.ibp;

    const Range iall{0, imax + 1}, jall{0, jmax + 1}, kall{0, kmax + 1};
    // Heights of cell centres and of the w faces on top of them.
    const auto centre = [dz, zmin](int k) { return (k - 0.5) * dz + zmin; };
    const auto face = [dz, zmin](int k) { return k * dz + zmin; };
    // The x fill of u covers the interior rows only, so iflagu(-1, ., .) stays unwritten on the
    // edge rows j = 0, jmax+1 and k = 0, kmax+1; the marking of u(0) reads interior rows only.
    std::array<Fill, 3> ufills{
        Fill{0, imax, true, cu[west], cu[east], Range{1, jmax}, Range{1, kmax}},
        Fill{1, jmax, false, cu[south], cu[north], iall, kall},
        Fill{2, kmax, false, cu[bottom], cu[top], iall, jall}};
    std::array<Fill, 3> vfills{Fill{1, jmax, true, cv[south], cv[north], iall, kall},
                               Fill{2, kmax, false, cv[bottom], cv[top], iall, jall},
                               Fill{0, imax, false, cv[west], cv[east], jall, kall}};
    std::array<Fill, 3> wfills{Fill{2, kmax, true, cw[bottom], cw[top], iall, jall},
                               Fill{0, imax, false, cw[west], cw[east], jall, kall},
                               Fill{1, jmax, false, cw[south], cw[north], iall, kall}};
    std::array<Fill, 3> pfills{Fill{0, imax, false, cp[west], cp[east], jall, kall},
                               Fill{1, jmax, false, cp[south], cp[north], iall, kall},
                               Fill{2, kmax, false, cp[bottom], cp[top], iall, jall}};
    // On several ranks the side layers beyond a neighbour block keep their own classification
    // (the bed is known over the whole box) and take the neighbour's marking from the exchange.
    for (std::array<Fill, 3>* fills : {&ufills, &vfills, &wfills, &pfills}) {
        for (Fill& g : *fills) {
            if (g.dir == 2) continue;
            g.low = parts.grid.dec.appliesface(2 * g.dir + 1, g.clow);
            g.high = parts.grid.dec.appliesface(2 * g.dir + 2, g.chigh);
        }
    }

    // The layer beyond the last face of u (of v) is classified too where a neighbour block lies
    // beyond it: the marking of the last face reads it before the exchange.
    const int uplus = ufills[0].high ? 0 : 1, vplus = vfills[0].high ? 0 : 1;
    // Across a periodic face that wraps to another block, that layer is the box's first, whose
    // bed lies at the far end of the (whole-box) bed.
    const int uwrap = uplus == 1 && parts.grid.dec.ownsface(east) ? parts.grid.dec.imaxg : 0;
    const int vwrap = vplus == 1 && parts.grid.dec.ownsface(north) ? parts.grid.dec.jmaxg : 0;

    {
        // u points: x faces at cell-centre height, bed midway between the columns i and i+1.
        // Layers k = 0 and kmax+1 are classified and then overwritten by the z fill (copies of
        // k = 1 and kmax at wall and surface codes), so a bed at zmin makes no forcing points
        // (likewise for v and the cell centres): the bottom boundary condition is the wall there.
        classifybox(fu, Range{0, imax + uplus}, jall, kall, centre,
                    [zb, imax, uwrap](int i, int j) {
                        const int a = i > imax ? i - uwrap : i;
                        return (zb(a, j) + zb(a + 1, j)) * 0.5;
                    });
        fillghosts(fu, ufills);
        markforcing(fu, Range{0, imax}, Range{1, jmax}, Range{1, kmax});
        fillghosts(fu, ufills);

        // v points: y faces at cell-centre height, bed midway between the rows j and j+1.
        classifybox(fv, iall, Range{0, jmax + vplus}, kall, centre,
                    [zb, jmax, vwrap](int i, int j) {
                        const int b = j > jmax ? j - vwrap : j;
                        return (zb(i, b) + zb(i, b + 1)) * 0.5;
                    });
        fillghosts(fv, vfills);
        markforcing(fv, Range{1, imax}, Range{0, jmax}, Range{1, kmax});
        fillghosts(fv, vfills);

        // w points: z faces at face height over the cell-centred bed.
        classifybox(fw, iall, jall, Range{0, kmax}, face, zb);
        fillghosts(fw, wfills);
        markforcing(fw, Range{1, imax}, Range{1, jmax}, Range{0, kmax});
        fillghosts(fw, wfills);

        // Cell centres.
        classifybox(fp, iall, jall, kall, centre, zb);
        fillghosts(fp, pfills);
        markforcing(fp, Range{1, imax}, Range{1, jmax}, Range{1, kmax});
        fillghosts(fp, pfills);
    }
    for (Field3i* f : {&parts.bed.iflagu, &parts.bed.iflagv, &parts.bed.iflagw, &parts.bed.iflagp})
        exchange(parts.grid.dec, *f, imax, jmax);
    if (parts.bed.forcing.enabled) noteclassification(parts);
}

void flagmove(const BedParts& parts) {
    const int imax = parts.grid.imax, jmax = parts.grid.jmax, kmax = parts.grid.kmax;
    const ConstView3<std::int32_t> fu = parts.bed.iflagu.cview(), fuo = parts.bed.iflaguo.cview();
    const ConstView3<std::int32_t> fv = parts.bed.iflagv.cview(), fvo = parts.bed.iflagvo.cview();
    const ConstView3<std::int32_t> fw = parts.bed.iflagw.cview(), fwo = parts.bed.iflagwo.cview();
    const View3<double> uo = parts.flow.uo.view();
    const View3<double> vo = parts.flow.vo.view();
    const View3<double> wo = parts.flow.wo.view();
    const BedView state(parts); // the search reads the current fields and writes only its value
    // A search that finds no foot stops the run after the loop, u before v before w.
    std::atomic<bool> failed[3] = {false, false, false};
    loops::forbox(
        {{1, imax}, {1, jmax}, {1, kmax}},
        [&](int i, int j, int k) {
            if (fuo(i, j, k) == solid && fu(i, j, k) == forcing &&
                !searchu(state, i, j, k, uo(i, j, k)))
                failed[0].store(true, std::memory_order_relaxed);
            if (fvo(i, j, k) == solid && fv(i, j, k) == forcing &&
                !searchv(state, i, j, k, vo(i, j, k)))
                failed[1].store(true, std::memory_order_relaxed);
            if (fwo(i, j, k) == solid && fw(i, j, k) == forcing &&
                !searchw(state, i, j, k, wo(i, j, k)))
                failed[2].store(true, std::memory_order_relaxed);
        },
        loops::Share::free);
    for (int s = 0; s < 3; ++s)
        if (failed[s].load()) searchfailed(static_cast<Site>(s));
}

} // namespace riffle::ibm
