// What the search of the bed and the wall laws read, as views and scalars that a kernel can take
// by value: the grid and this block's place in the box, the bed, the wall law's settings, the
// velocities and eddy viscosity, and the flags of the four grids. Made from the storage by the
// host before a loop; it owns nothing, so it stays valid while the fields are not reallocated.
#pragma once

#include <cstdint>

#include "run/field3.hpp"
#include "run/storage_m.hpp"

namespace riffle::ibm {

// The parts of the storage that the bed's routines read and write: the grid with the bed, the
// conditions (the wall law's settings, the boundary codes), the flow, and the bed's state.
struct BedParts {
    const Geometry& grid;
    const Conditions& cond;
    FlowFields& flow;
    BedState& bed;
    BedParts(const Geometry& g, const Conditions& c, FlowFields& f, BedState& b)
        : grid(g), cond(c), flow(f), bed(b) {}
    // Implicit: a run's storage holds all four.
    BedParts(Storage& st) : grid(st), cond(st), flow(st), bed(st) {}
};

struct BedView {
    int imax = 0, jmax = 0, kmax = 0;
    double dx = 0.0, dy = 0.0, dz = 0.0;
    double xmin = 0.0, ymin = 0.0, zmin = 0.0, zmax = 0.0;
    // The block's offset in the whole box and the whole box's cell counts (on one process the
    // box itself), and the cell-centred range the block's arrays hold in x and y, halos included.
    int i0 = 0, j0 = 0, iw = 0, jw = 0;
    Range heldi{}, heldj{};
    ConstView2<double> zb;
    double ks = 0.0, visc = 0.0; // grain size (mm) and kinematic viscosity
    int iIBM = 0, ibed = 0;      // the wall-law variant
    ConstView3<double> u, v, w, nut;
    ConstView3<std::int32_t> iflagu, iflagv, iflagw, iflagp;

    [[nodiscard]] RIFFLE_HD int ioffset() const { return i0; }
    [[nodiscard]] RIFFLE_HD int joffset() const { return j0; }
    [[nodiscard]] RIFFLE_HD int iwhole() const { return iw; }
    [[nodiscard]] RIFFLE_HD int jwhole() const { return jw; }

    BedView() = default;
    BedView(const Geometry& g, const Conditions& c, const FlowFields& f, const BedState& b)
        : imax(g.imax), jmax(g.jmax), kmax(g.kmax), dx(g.dx), dy(g.dy), dz(g.dz), xmin(g.xmin),
          ymin(g.ymin), zmin(g.zmin), zmax(g.zmax), i0(g.ioffset()), j0(g.joffset()),
          iw(g.iwhole()), jw(g.jwhole()), heldi(f.p.irange()), heldj(f.p.jrange()),
          zb(g.zb.cview()), ks(c.ks), visc(c.visc), iIBM(c.iIBM), ibed(c.ibed), u(f.u.cview()),
          v(f.v.cview()), w(f.w.cview()), nut(f.nut.cview()), iflagu(b.iflagu.cview()),
          iflagv(b.iflagv.cview()), iflagw(b.iflagw.cview()), iflagp(b.iflagp.cview()) {}
    explicit BedView(const BedParts& p) : BedView(p.grid, p.cond, p.flow, p.bed) {}
    explicit BedView(const Storage& st) : BedView(st, st, st, st) {}
};

} // namespace riffle::ibm
