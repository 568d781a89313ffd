#include "flow/zvelocity_m.hpp"

#include <cstdlib>

#include "flow/momentum_k.hpp"
#include "run/loops.hpp"
#include "run/parallel.hpp"

namespace riffle::flow {

void zvelocity(Storage& st) {
    const MomentumCoefficients c{st.dx, st.dy, st.dz, st.visc,
                                 st.fz + meanpressuregradient(st.dens)};
    const int imax = st.imax, jmax = st.jmax, klast = st.kmax - std::abs(st.ibw[top]);
    const double dt = st.dt;
    const auto uo = st.uo.cview(), vo = st.vo.cview(), wo = st.wo.cview(), nut = st.nut.cview();
    const auto w = st.w.view(), fw = st.fw.view(), fwo = st.fwo.view();
    // Each point is independent: distinct arrays are written and read.
    loops::forbox({{1, imax}, {1, jmax}, {1, klast}}, [=](int i, int j, int k) {
        const double h = rhsw(uo, vo, wo, nut, c, i, j, k);
        w(i, j, k) = abstep(h, fw(i, j, k), fwo(i, j, k), wo(i, j, k), dt);
    });
}

} // namespace riffle::flow
