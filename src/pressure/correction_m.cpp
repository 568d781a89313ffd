#include "pressure/correction_m.hpp"

#include "pressure/projection_k.hpp"
#include "run/loops.hpp"

namespace riffle::pressure {

void correction(Storage& st) {
    const int imax = st.imax, jmax = st.jmax, kmax = st.kmax;
    const double dx = st.dx, dy = st.dy, dz = st.dz;
    const double factor = st.dt / st.dens;
    const auto phi = st.mg(0).phi.cview();
    const auto p = st.p.view(), u = st.u.view(), v = st.v.view(), w = st.w.view();
    // Every point is updated from phi alone: p takes the step's pressure, the velocities its
    // gradient.
    loops::forbox({{0, imax + 1}, {0, jmax + 1}, {0, kmax + 1}},
                  [=](int i, int j, int k) { p(i, j, k) = p(i, j, k) + phi(i, j, k); });
    loops::forbox({{0, imax}, {1, jmax}, {1, kmax}}, [=](int i, int j, int k) {
        u(i, j, k) = corrected(u(i, j, k), factor, phi(i + 1, j, k), phi(i, j, k), dx);
    });
    loops::forbox({{1, imax}, {0, jmax}, {1, kmax}}, [=](int i, int j, int k) {
        v(i, j, k) = corrected(v(i, j, k), factor, phi(i, j + 1, k), phi(i, j, k), dy);
    });
    loops::forbox({{1, imax}, {1, jmax}, {0, kmax}}, [=](int i, int j, int k) {
        w(i, j, k) = corrected(w(i, j, k), factor, phi(i, j, k + 1), phi(i, j, k), dz);
    });
}

} // namespace riffle::pressure
