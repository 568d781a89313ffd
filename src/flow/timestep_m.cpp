#include "flow/timestep_m.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "run/halo_m.hpp"
#include "run/loops.hpp"

namespace riffle::flow {

void timestep(const Geometry& grid, const Conditions& cond, const FlowFields& flow,
              RunClock& clock) {
    const int imax = grid.imax, jmax = grid.jmax, kmax = grid.kmax;
    const double dx = grid.dx, dy = grid.dy, dz = grid.dz, cfl = cond.cfl;
    const double viscous = cond.visc * (1.0 / (dx * dx) + 1.0 / (dy * dy) + 1.0 / (dz * dz));
    const auto u = flow.u.cview();
    const auto v = flow.v.cview();
    const auto w = flow.w.cview();

    // The step never exceeds 1.0 time unit: 1.0 is the start of the minimum. A cell at rest with
    // no viscosity gives cfl/0 = +inf and so never sets the step.
    const double dtmin =
        loops::minbox({{1, imax}, {1, jmax}, {1, kmax}}, 1.0, [=](int i, int j, int k) {
            const double a = std::max(std::abs(u(i - 1, j, k)), std::abs(u(i, j, k))) / dx +
                             viscous +
                             std::max(std::abs(v(i, j - 1, k)), std::abs(v(i, j, k))) / dy +
                             std::max(std::abs(w(i, j, k - 1)), std::abs(w(i, j, k))) / dz;
            return cfl / a;
        });
    clock.dt = allmin(grid.dec, dtmin); // the smallest of every block's
}

} // namespace riffle::flow
