#include "flow/yvelocity_m.hpp"

#include <cstdlib>

#include "flow/momentum_k.hpp"
#include "run/loops.hpp"
#include "run/parallel.hpp"

namespace riffle::flow {

void yvelocity(const Geometry& grid, const Conditions& cond, const RunClock& clock,
               FlowFields& flow) {
    const MomentumCoefficients c{grid.dx, grid.dy, grid.dz, cond.visc,
                                 flow.fy + meanpressuregradient(cond.dens)};
    const int imax = grid.imax, jlast = grid.jmax - std::abs(cond.ibv[north]), kmax = grid.kmax;
    const double dt = clock.dt;
    const auto uo = flow.uo.cview(), vo = flow.vo.cview(), wo = flow.wo.cview(),
               nut = flow.nut.cview();
    const auto v = flow.v.view(), fv = flow.fv.view(), fvo = flow.fvo.view();
    // Each point is independent: distinct arrays are written and read.
    loops::forbox({{1, imax}, {1, jlast}, {1, kmax}}, [=](int i, int j, int k) {
        const double h = rhsv(uo, vo, wo, nut, c, i, j, k);
        v(i, j, k) = abstep(h, fv(i, j, k), fvo(i, j, k), vo(i, j, k), dt);
    });
}

} // namespace riffle::flow
