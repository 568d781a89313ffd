#include "pressure/correction_m.hpp"

#include "pressure/projection_k.hpp"
#include "run/loops.hpp"

namespace riffle::pressure {

void correction(const Geometry& grid, const Conditions& cond, const RunClock& clock,
                const Hierarchy& levels, FlowFields& flow) {
    const int imax = grid.imax, jmax = grid.jmax, kmax = grid.kmax;
    const double dx = grid.dx, dy = grid.dy, dz = grid.dz;
    const double factor = clock.dt / cond.dens;
    const auto phi = levels.mg(0).phi.cview();
    const auto p = flow.p.view(), u = flow.u.view(), v = flow.v.view(), w = flow.w.view();
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
