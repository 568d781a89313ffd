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

ListKey keyof(const BedParts& parts) {
    ListKey k;
    k.classification = parts.bed.forcing.classification;
    k.imax = parts.grid.imax;
    k.jmax = parts.grid.jmax;
    k.kmax = parts.grid.kmax;
    k.iIBM = parts.cond.iIBM;
    k.ibed = parts.cond.ibed;
    k.dx = parts.grid.dx;
    k.dy = parts.grid.dy;
    k.dz = parts.grid.dz;
    k.xmin = parts.grid.xmin;
    k.ymin = parts.grid.ymin;
    k.zmin = parts.grid.zmin;
    k.zmax = parts.grid.zmax;
    k.ks = parts.cond.ks;
    return k;
}

bool sameinputs(const BedParts& parts, const ClassificationInputs& in) {
    return in.imax == parts.grid.imax && in.jmax == parts.grid.jmax && in.kmax == parts.grid.kmax &&
           in.dz == parts.grid.dz && in.zmin == parts.grid.zmin && in.ibu == parts.cond.ibu &&
           in.ibv == parts.cond.ibv && in.ibw == parts.cond.ibw && in.ibp == parts.cond.ibp &&
           in.zb.size() == parts.grid.zb.size() &&
           std::memcmp(in.zb.data(), parts.grid.zb.data(), in.zb.size() * sizeof(double)) == 0;
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

void maketrilinear(const BedView& bed, const Foot& f, TrilinearPoint& e) {
    const double z0 = roughnesslength(bed.ks);
    const TrilinearGeometry g = trilineargeometry(bed, f.p, f.foot, z0);
    e.e = g.e;
    e.dp = g.dp;
    e.d = g.d;
    e.lndp = std::log(g.dp / z0);
    e.lnd = std::log(g.d / z0);
    e.su = g.su;
    e.sv = g.sv;
    e.sw = g.sw;
}

void makeidw(const BedView& bed, const Foot& f, IdwPoint& e) {
    const double z0 = roughnesslength(bed.ks);
    const Point3 n = f.p - f.foot;
    e.dp = norm(n);
    e.zero = e.dp <= z0; // no shifting of P in these variants
    if (e.zero) return;
    e.e = divide(n, e.dp);
    e.r = f.p + n;
    e.d = norm(e.r - f.p) + e.dp;
    e.lndp = std::log(e.dp / z0);
    e.lnd = std::log(e.d / z0);
    e.block[0] = idwblock(bed.iflagu, ugrid(bed), e.r);
    e.block[1] = idwblock(bed.iflagv, vgrid(bed), e.r);
    e.block[2] = idwblock(bed.iflagw, wgrid(bed), e.r);
}

void makeeddy(const BedView& bed, const Foot& f, EddyPoint& e) {
    const bool tri = bed.iIBM == 0;
    const EddyImage im = tri ? eddytriimage(bed, f.p, f.foot) : eddyidwimage(f.p, f.foot);
    const Point3 n = f.p - f.foot;
    const double len = norm(n);
    e.ez = len > 0.0 ? n.z / len : 1.0;
    e.zero = im.zero;
    e.dp = im.dp;
    if (im.zero) return;
    e.den = im.den;
    e.s = im.s;
    e.r = im.r;
    if (!tri) e.block = idwblock(bed.iflagp, cgrid(bed), im.r);
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
void build(const BedParts& parts, Site site, PointList& list, const ListKey& key, Make make) {
    std::vector<Entry>& entries = entriesof<Entry>(list);
    list.built = false;
    parts.bed.forcing.wall.built = false; // its faces point into the lists
    list.trilinear.clear();
    list.idw.clear();
    list.eddy.clear();
    list.warnings.clear();
    const Flags flag = site == Site::u   ? parts.bed.iflagu.cview()
                       : site == Site::v ? parts.bed.iflagv.cview()
                       : site == Site::w ? parts.bed.iflagw.cview()
                                         : parts.bed.iflagp.cview();
    const int klast = site == Site::w ? parts.grid.kmax - 1 : parts.grid.kmax;
    for (int k = 1; k <= klast; ++k)
        for (int j = 1; j <= parts.grid.jmax; ++j)
            for (int i = 1; i <= parts.grid.imax; ++i) {
                if (flag(i, j, k) != forcing) continue;
                Entry e;
                e.i = i;
                e.j = j;
                e.k = k;
                entries.push_back(e);
            }
    entries.shrink_to_fit();
    // The searches take very different times: handed out as threads come free.
    const BedView cst(parts); // what the searches read, made once
    const std::vector<Found> found = loops::collectpoints(
        static_cast<long long>(entries.size()), Found{}, [&](Found& acc, long long n) {
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
        });
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

void uselists(const BedParts& parts) {
    parts.bed.forcing.enabled = true;
    parts.bed.forcing.classified = false;
    flagdeter(parts);
}

void noteclassification(const BedParts& parts) {
    ForcingLists& fl = parts.bed.forcing;
    if (fl.classified && sameinputs(parts, fl.inputs)) return;
    ClassificationInputs& in = fl.inputs;
    in.zb.assign(parts.grid.zb.data(), parts.grid.zb.data() + parts.grid.zb.size());
    in.ibu = parts.cond.ibu;
    in.ibv = parts.cond.ibv;
    in.ibw = parts.cond.ibw;
    in.ibp = parts.cond.ibp;
    in.imax = parts.grid.imax;
    in.jmax = parts.grid.jmax;
    in.kmax = parts.grid.kmax;
    in.dz = parts.grid.dz;
    in.zmin = parts.grid.zmin;
    fl.classified = true;
    ++fl.classification;
}

bool flagscurrent(const BedParts& parts) {
    const ForcingLists& fl = parts.bed.forcing;
    return fl.enabled && fl.classified && sameinputs(parts, fl.inputs);
}

void makevelocitylist(const BedParts& parts, int grid) {
    PointList& list = parts.bed.forcing.velocity[static_cast<std::size_t>(grid)];
    const ListKey key = keyof(parts);
    if (list.built && list.key == key) return;
    const auto site = static_cast<Site>(grid);
    if (parts.cond.iIBM == 0) {
        build<TrilinearPoint>(parts, site, list, key, maketrilinear);
    } else {
        build<IdwPoint>(parts, site, list, key, makeidw);
    }
}

void makeeddylist(const BedParts& parts) {
    PointList& list = parts.bed.forcing.eddy;
    const ListKey key = keyof(parts);
    if (!(list.built && list.key == key))
        build<EddyPoint>(parts, Site::centre, list, key, makeeddy);
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
