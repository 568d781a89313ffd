#include "flow/yvelocity_m.hpp"

#include <cstdlib>

#include "flow/momentum_k.hpp"
#include "run/loops.hpp"
#include "run/parallel.hpp"

namespace riffle::flow {

void yvelocity(Storage& st) {
    const MomentumCoefficients c{st.dx, st.dy, st.dz, st.visc,
                                 st.fy + meanpressuregradient(st.dens)};
    const int imax = st.imax, jlast = st.jmax - std::abs(st.ibv[north]), kmax = st.kmax;
    const double dt = st.dt;
    const auto uo = st.uo.cview(), vo = st.vo.cview(), wo = st.wo.cview(), nut = st.nut.cview();
    const auto v = st.v.view(), fv = st.fv.view(), fvo = st.fvo.view();
    // Each point is independent: distinct arrays are written and read.
    loops::forbox({{1, imax}, {1, jlast}, {1, kmax}}, [=](int i, int j, int k) {
        const double h = rhsv(uo, vo, wo, nut, c, i, j, k);
        v(i, j, k) = abstep(h, fv(i, j, k), fvo(i, j, k), vo(i, j, k), dt);
    });
}

} // namespace riffle::flow
