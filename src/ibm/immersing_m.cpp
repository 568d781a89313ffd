// Immersed-boundary forcing. With the lists of forcing points switched on (a run), the routines
// walk the lists (forcinglist_m), each split evenly among the threads. Otherwise they search the
// bed at every call: three loops over the u, v and w forcing points in one parallel region, k
// shared out statically, and the forcing cells' loop of the eddy-viscosity routine. A forcing
// point's wall law reads only fluid points (flag 1), which no loop here writes, so the result does
// not depend on how the points are shared.
#include "ibm/immersing_m.hpp"

#include "ibm/forcinglist_m.hpp"
#include "ibm/pointsearch_m.hpp"

namespace riffle::ibm {

void immersing(Storage& st) {
    if (st.forcing.enabled) {
        forcevelocity(st);
        return;
    }
    const int imax = st.imax, jmax = st.jmax, kmax = st.kmax;
    const auto flagu = st.iflagu.cview(), flagv = st.iflagv.cview(), flagw = st.iflagw.cview();
    const auto u = st.u.view(), v = st.v.view(), w = st.w.view();
    const Storage& cst = st; // the point routines read the shared state only
#pragma omp parallel
    {
        // Static schedule in chunks of one layer: the forcing points gather in the few layers
        // just above the bed, and dealing the layers out in turn shares them among the threads
        // (contiguous blocks of k would give nearly all of them to the first thread). Each
        // work-shared loop ends with its implicit barrier.
#pragma omp for schedule(static, 1)
        for (int k = 1; k <= kmax; ++k)
            for (int j = 1; j <= jmax; ++j)
                for (int i = 1; i <= imax; ++i) // u(0) is a boundary face: not forced here
                    if (flagu(i, j, k) == 0) searchu(cst, i, j, k, u(i, j, k));
#pragma omp for schedule(static, 1)
        for (int k = 1; k <= kmax; ++k)
            for (int j = 1; j <= jmax; ++j) // v(0) is a boundary face: not forced here
                for (int i = 1; i <= imax; ++i)
                    if (flagv(i, j, k) == 0) searchv(cst, i, j, k, v(i, j, k));
#pragma omp for schedule(static, 1)
        for (int k = 1; k <= kmax - 1; ++k) // w(0) and w(kmax) are boundary faces
            for (int j = 1; j <= jmax; ++j)
                for (int i = 1; i <= imax; ++i)
                    if (flagw(i, j, k) == 0) searchw(cst, i, j, k, w(i, j, k));
    }
}

void immersingnut(Storage& st) {
    if (st.forcing.enabled) {
        forceeddy(st);
        return;
    }
    const int imax = st.imax, jmax = st.jmax, kmax = st.kmax;
    const auto iflagp = st.iflagp.cview();
    const auto nut = st.nut.view();
    const Storage& cst = st;
#pragma omp for schedule(static)
    for (int k = 1; k <= kmax; ++k) {
        for (int j = 1; j <= jmax; ++j) {
            for (int i = 1; i <= imax; ++i) {
                if (iflagp(i, j, k) == 0) searchnut(cst, i, j, k, nut(i, j, k));
            }
        }
    }
}

} // namespace riffle::ibm
