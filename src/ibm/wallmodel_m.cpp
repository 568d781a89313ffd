#include "ibm/wallmodel_m.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "ibm/forcinglist_m.hpp"
#include "ibm/forcingwalk_m.hpp"
#include "ibm/walllaw_k.hpp"
#include "run/halo_m.hpp"
#include "run/loops.hpp"

namespace riffle::ibm {

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

// The wall-layer model over the lists: the friction velocity of every velocity forcing point
// from the current flow, then the eddy viscosity of the forcing cells and of the wall layer above
// the topmost one of each column (layercount), and the bed shear stress of each column (the bed
// state's bedshear, interior columns).
void forcewall(const BedParts& parts) {
    ForcingLists& fl = parts.bed.forcing;
    WallLists& wl = fl.wall;
    for (int g = 0; g < 3; ++g)
        makevelocitylist(parts, g);
    makeeddylist(parts);
    printwarnings(fl.eddy);
    const bool rebuilt = !wl.built;
    if (!wl.built) {
        if (parts.cond.iIBM == 0) {
            mapfaces(fl.velocity, fl.eddy.eddy, wl.cells, trilinearof, parts.grid.imax,
                     parts.grid.jmax);
        } else {
            mapfaces(fl.velocity, fl.eddy.eddy, wl.cells, idwof, parts.grid.imax, parts.grid.jmax);
        }
        for (std::size_t g = 0; g < 3; ++g) {
            const PointList& l = fl.velocity[g];
            const std::size_t n = l.trilinear.size() + l.idw.size();
            wl.ustar[g].assign(n, 0.0);
            wl.tdir[g].assign(n, Point3{0.0, 0.0, 0.0});
        }
        wl.built = true;
    }
    if (!parts.bed.bedshear.allocated()) {
        parts.bed.bedshear.allocate(Range{0, parts.grid.imax + 1}, Range{0, parts.grid.jmax + 1},
                                    Range{0, 2});
    }
    parts.bed.bedshear.fill(0.0);
    // The law at every velocity forcing point from the current flow, unless the update before
    // this one found it for the same velocity and lists.
    if (!(wl.current && !rebuilt)) {
        for (int g = 0; g < 3; ++g) {
            const auto gi = static_cast<std::size_t>(g);
            lawvelocity(parts, g, LawOut{wl.ustar[gi].data(), wl.tdir[gi].data()});
        }
    }
    // Each forcing cell writes its own nut, and the topmost one of a column the cells above it
    // and the column's stress: no two entries write the same place.
    const EddyPoint* cells = fl.eddy.eddy.data();
    const View3<double> nut = parts.flow.nut.view();
    const View3<double> shear = parts.bed.bedshear.view();
    const double visc = parts.cond.visc, dz = parts.grid.dz, zmin = parts.grid.zmin,
                 zmax = parts.grid.zmax;
    const ConstView2<double> zb = parts.grid.zb.cview();
    const int kmax = parts.grid.kmax;
    const auto u = parts.flow.u.cview(), v = parts.flow.v.cview(), w = parts.flow.w.cview();
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
        const double bed = zb(e.i, e.j);
        const int layers = layercount(zmax - bed, dz);
        const int last = std::min(kmax, e.k + layers);
        for (int k = e.k + 1; k <= last; ++k) {
            const double z = e.dp + (k - e.k) * dz * e.ez;
            nut(e.i, e.j, k) =
                std::max(nut(e.i, e.j, k), layerviscosity(law.ustar, z, visc, k - e.k, layers));
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
            const double face = zmin + e.k * dz;
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

// Ghost columns of the bed stress by the pressure codes: a copy of the adjacent column at a
// wall, the column at the far end on a periodic face; a face shared with another block takes
// its neighbour's columns from the exchange.
void ghostcolumns(const BedParts& parts) {
    const View3<double> b = parts.bed.bedshear.view();
    const int imax = parts.grid.imax, jmax = parts.grid.jmax;
    for (int dir = 0; dir < 2; ++dir) {
        const int lo = 2 * dir + 1, hi = 2 * dir + 2;
        const double alo = std::abs(parts.cond.ibp[lo]), ahi = std::abs(parts.cond.ibp[hi]);
        const bool low = parts.grid.dec.appliesface(lo, parts.cond.ibp[lo]);
        const bool high = parts.grid.dec.appliesface(hi, parts.cond.ibp[hi]);
        const int n = dir == 0 ? imax : jmax, na = dir == 0 ? jmax : imax;
        for (int c = 0; c < 3; ++c) {
            for (int a = 0; a <= na + 1; ++a) {
                double& g0 = dir == 0 ? b(0, a, c) : b(a, 0, c);
                double& g1 = dir == 0 ? b(n + 1, a, c) : b(a, n + 1, c);
                const double in0 = dir == 0 ? b(1, a, c) : b(a, 1, c);
                const double inn = dir == 0 ? b(n, a, c) : b(a, n, c);
                if (low) g0 = alo * in0 + (1.0 - alo) * inn;
                if (high) g1 = ahi * inn + (1.0 - ahi) * in0;
            }
        }
    }
}

} // namespace

void wallnut(const BedParts& parts) {
    forcewall(parts);
    ghostcolumns(parts);
    exchange(parts.grid.dec, parts.bed.bedshear, parts.grid.imax, parts.grid.jmax);
}

void bedshearnodes(const Geometry& grid, const Conditions& cond, const BedState& bed,
                   BedShearNodes& out) {
    const std::size_t count = static_cast<std::size_t>(grid.imax + 1) * (grid.jmax + 1);
    out.tau.assign(count, 0.0);
    out.taux.assign(count, 0.0);
    out.tauy.assign(count, 0.0);
    if (!bed.bedshear.allocated()) return;
    const auto b = bed.bedshear.cview();
    const double quarter = 0.25 * cond.dens;
    std::size_t at = 0;
    for (int j = 0; j <= grid.jmax; ++j) {
        for (int i = 0; i <= grid.imax; ++i, ++at) {
            // Node (i, j) is the corner shared by the columns i, i+1 and j, j+1.
            const auto mean = [&](int c) {
                return quarter *
                       (b(i, j, c) + b(i + 1, j, c) + b(i, j + 1, c) + b(i + 1, j + 1, c));
            };
            out.tau[at] = mean(0);
            out.taux[at] = mean(1);
            out.tauy[at] = mean(2);
        }
    }
}

} // namespace riffle::ibm
