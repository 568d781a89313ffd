// Lists of forcing points: the build (search, image point, what of the wall law the geometry and
// flags decide). The walks that evaluate the rest at every call are in forcingwalk_m.
//
// The build runs the searches in parallel, logging their warnings by entry instead of printing
// them; each use prints the log in list order, which is what one thread searching point by point
// prints. A failed search prints the warnings of the entries before it and its own, then the
// routine's message, pauses and ends the process, as the first search would.
#include "ibm/forcinglist_m.hpp"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>

#include "ibm/flagdeter_m.hpp"
#include "ibm/pointsearch_m.hpp"
#include "ibm/walllaw_k.hpp"
#include "ibm/walllaw_m.hpp"
#include "run/console_m.hpp"
#include "run/loops.hpp"
#include "run/messages.hpp"
#include "run/storage_m.hpp"

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

void maketrilinear(const BedView& st, const Foot& f, TrilinearPoint& e) {
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

void makeidw(const BedView& st, const Foot& f, IdwPoint& e) {
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
    e.block[0] = idwblock(st.iflagu, ugrid(st), e.r);
    e.block[1] = idwblock(st.iflagv, vgrid(st), e.r);
    e.block[2] = idwblock(st.iflagw, wgrid(st), e.r);
}

void makeeddy(const BedView& st, const Foot& f, EddyPoint& e) {
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
    if (!tri) e.block = idwblock(st.iflagp, cgrid(st), im.r);
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
    const BedView cst(st); // what the searches read, made once
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

void makevelocitylist(Storage& st, int grid) {
    PointList& list = st.forcing.velocity[static_cast<std::size_t>(grid)];
    const ListKey key = keyof(st);
    if (list.built && list.key == key) return;
    const auto site = static_cast<Site>(grid);
    if (st.iIBM == 0) {
        build<TrilinearPoint>(st, site, list, key, maketrilinear);
    } else {
        build<IdwPoint>(st, site, list, key, makeidw);
    }
}

void makeeddylist(Storage& st) {
    PointList& list = st.forcing.eddy;
    const ListKey key = keyof(st);
    if (!(list.built && list.key == key)) build<EddyPoint>(st, Site::centre, list, key, makeeddy);
}

void printwarnings(const PointList& list) {
    for (const SearchWarning& w : list.warnings)
        console::writeline(messages::not_converged, w.err);
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
