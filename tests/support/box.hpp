// A box of imax x jmax x kmax cells of dx x dy x dz for unit tests: storage allocated, fluid at
// rest, unit density, every boundary code periodic until the test sets its own.
#pragma once

#include "run/initial_m.hpp"
#include "run/storage_m.hpp"

namespace riffle::testsupport {

inline Storage box(int imax, int jmax, int kmax, double dx, double dy, double dz) {
    Storage st;
    st.imax = imax;
    st.jmax = jmax;
    st.kmax = kmax;
    st.dx = dx;
    st.dy = dy;
    st.dz = dz;
    st.ymax = jmax * dy;
    st.zmax = kmax * dz;
    st.dens = 1.0;
    allocation(st);
    initialfields(st);
    return st;
}

// A 6 x 5 x 8 box of 0.5 x 0.4 x 0.1 cells over a flat bed at height zbed, carrying the uniform
// stream (uu, vv, ww), 1 mm grain, water's viscosity, every point fluid.
inline Storage flatbed(double zbed, double uu, double vv, double ww) {
    Storage st = box(6, 5, 8, 0.5, 0.4, 0.1);
    st.ks = 1.0;
    st.visc = 1.0e-6;
    st.zb.fill(zbed);
    st.u.fill(uu);
    st.v.fill(vv);
    st.w.fill(ww);
    return st;
}

} // namespace riffle::testsupport
