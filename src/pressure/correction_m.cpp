#include "pressure/correction_m.hpp"

#include "run/parallel.hpp"

namespace riffle::pressure {

void correction(Storage& st) {
    const int imax = st.imax, jmax = st.jmax, kmax = st.kmax;
    const double dx = st.dx, dy = st.dy, dz = st.dz;
    const double factor = st.dt / st.dens;
    const auto phi = st.mg(0).phi.cview();
    const auto p = st.p.view(), u = st.u.view(), v = st.v.view(), w = st.w.view();
    // Each pass shares out i in static blocks; within a block the k-j-i order keeps unit stride.
#pragma omp parallel
    {
        const Block all = staticblock(0, imax + 1);
        for (int k = 0; k <= kmax + 1; ++k)
            for (int j = 0; j <= jmax + 1; ++j)
                for (int i = all.lo; i <= all.hi; ++i) p(i, j, k) = p(i, j, k) + phi(i, j, k);
#pragma omp barrier
        const Block uface = staticblock(0, imax);
        for (int k = 1; k <= kmax; ++k)
            for (int j = 1; j <= jmax; ++j)
                for (int i = uface.lo; i <= uface.hi; ++i)
                    u(i, j, k) = u(i, j, k) - factor * (phi(i + 1, j, k) - phi(i, j, k)) / dx;
        const Block cells = staticblock(1, imax);
        for (int k = 1; k <= kmax; ++k)
            for (int j = 0; j <= jmax; ++j)
                for (int i = cells.lo; i <= cells.hi; ++i)
                    v(i, j, k) = v(i, j, k) - factor * (phi(i, j + 1, k) - phi(i, j, k)) / dy;
        for (int k = 0; k <= kmax; ++k)
            for (int j = 1; j <= jmax; ++j)
                for (int i = cells.lo; i <= cells.hi; ++i)
                    w(i, j, k) = w(i, j, k) - factor * (phi(i, j, k + 1) - phi(i, j, k)) / dz;
    }
}

}  // namespace riffle::pressure
