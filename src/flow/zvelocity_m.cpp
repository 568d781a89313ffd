#include "flow/zvelocity_m.hpp"

#include <cstdlib>

#include "flow/momentum_k.hpp"
#include "run/loops.hpp"
#include "run/parallel.hpp"

namespace riffle::flow {

void zvelocity(const Geometry& grid, const Conditions& cond, const RunClock& clock,
               FlowFields& flow) {
    const MomentumCoefficients c{grid.dx, grid.dy, grid.dz, cond.visc,
                                 flow.fz + meanpressuregradient(cond.dens)};
    const int imax = grid.imax, jmax = grid.jmax, klast = grid.kmax - std::abs(cond.ibw[top]);
    const double dt = clock.dt;
    const auto uo = flow.uo.cview(), vo = flow.vo.cview(), wo = flow.wo.cview(),
               nut = flow.nut.cview();
    const auto w = flow.w.view(), fw = flow.fw.view(), fwo = flow.fwo.view();
    // Each point is independent: distinct arrays are written and read.
    loops::forbox({{1, imax}, {1, jmax}, {1, klast}}, [=](int i, int j, int k) {
        const double h = rhsw(uo, vo, wo, nut, c, i, j, k);
        w(i, j, k) = abstep(h, fw(i, j, k), fwo(i, j, k), wo(i, j, k), dt);
    });
}

} // namespace riffle::flow
