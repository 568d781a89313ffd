// What the search of the bed and the wall laws read, as views and scalars that a kernel can take
// by value: the grid and this block's place in the box, the bed, the wall law's settings, the
// velocities and eddy viscosity, and the flags of the four grids. Made from the storage by the
// host before a loop; it owns nothing, so it stays valid while the fields are not reallocated.
#pragma once

#include <cstdint>

#include "run/field3.hpp"
#include "run/storage_m.hpp"

namespace riffle::ibm {

struct BedView {
    int imax = 0, jmax = 0, kmax = 0;
    double dx = 0.0, dy = 0.0, dz = 0.0;
    double xmin = 0.0, ymin = 0.0, zmin = 0.0, zmax = 0.0;
    // The block's offset in the whole box and the whole box's cell counts (on one process the
    // box itself), whether the box is divided into blocks, and the cell-centred range the
    // block's arrays hold in x and y.
    int i0 = 0, j0 = 0, iw = 0, jw = 0;
    bool blocks = false;
    Range heldi{}, heldj{};
    ConstView2<double> zb;
    double ks = 0.0, visc = 0.0; // grain size (mm) and kinematic viscosity
    int iIBM = 0, ibed = 0;      // the wall-law variant
    ConstView3<double> u, v, w, nut;
    ConstView3<std::int32_t> iflagu, iflagv, iflagw, iflagp;

    [[nodiscard]] int ioffset() const { return i0; }
    [[nodiscard]] int joffset() const { return j0; }
    [[nodiscard]] int iwhole() const { return iw; }
    [[nodiscard]] int jwhole() const { return jw; }

    BedView() = default;
    // The storage's own bed and flow.
    explicit BedView(const Storage& st)
        : imax(st.imax), jmax(st.jmax), kmax(st.kmax), dx(st.dx), dy(st.dy), dz(st.dz),
          xmin(st.xmin), ymin(st.ymin), zmin(st.zmin), zmax(st.zmax), i0(st.ioffset()),
          j0(st.joffset()), iw(st.iwhole()), jw(st.jwhole()), blocks(st.dec.distributed()),
          heldi(st.p.irange()), heldj(st.p.jrange()), zb(st.zb.cview()), ks(st.ks), visc(st.visc),
          iIBM(st.iIBM), ibed(st.ibed), u(st.u.cview()), v(st.v.cview()), w(st.w.cview()),
          nut(st.nut.cview()), iflagu(st.iflagu.cview()), iflagv(st.iflagv.cview()),
          iflagw(st.iflagw.cview()), iflagp(st.iflagp.cview()) {}
};

} // namespace riffle::ibm
