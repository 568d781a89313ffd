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

}  // namespace riffle::testsupport
