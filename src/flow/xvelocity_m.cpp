#include "flow/xvelocity_m.hpp"

#include <cstdlib>

#include "flow/momentum_k.hpp"
#include "run/loops.hpp"

namespace riffle::flow {

void xvelocity(const Geometry& grid, const Conditions& cond, const RunClock& clock,
               FlowFields& flow) {
    const MomentumCoefficients c{grid.dx, grid.dy, grid.dz, cond.visc,
                                 flow.fx + meanpressuregradient(cond.dens)};
    const int ilast = grid.imax - std::abs(cond.ibu[east]), jmax = grid.jmax, kmax = grid.kmax;
    const double dt = clock.dt;
    const auto uo = flow.uo.cview(), vo = flow.vo.cview(), wo = flow.wo.cview(),
               nut = flow.nut.cview();
    const auto u = flow.u.view(), fu = flow.fu.view(), fuo = flow.fuo.view();
    // Each point is independent: distinct arrays are written and read.
    loops::forbox({{1, ilast}, {1, jmax}, {1, kmax}}, [=](int i, int j, int k) {
        const double h = rhsu(uo, vo, wo, nut, c, i, j, k);
        u(i, j, k) = abstep(h, fu(i, j, k), fuo(i, j, k), uo(i, j, k), dt);
    });
}

} // namespace riffle::flow
