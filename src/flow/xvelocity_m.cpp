#include "flow/xvelocity_m.hpp"

#include <cstdlib>

#include "flow/momentum_k.hpp"
#include "run/loops.hpp"

namespace riffle::flow {

void xvelocity(Storage& st) {
    const MomentumCoefficients c{st.dx, st.dy, st.dz, st.visc,
                                 st.fx + meanpressuregradient(st.dens)};
    const int ilast = st.imax - std::abs(st.ibu[east]), jmax = st.jmax, kmax = st.kmax;
    const double dt = st.dt;
    const auto uo = st.uo.cview(), vo = st.vo.cview(), wo = st.wo.cview(), nut = st.nut.cview();
    const auto u = st.u.view(), fu = st.fu.view(), fuo = st.fuo.view();
    // Each point is independent: distinct arrays are written and read.
    loops::forbox({{1, ilast}, {1, jmax}, {1, kmax}}, [=](int i, int j, int k) {
        const double h = rhsu(uo, vo, wo, nut, c, i, j, k);
        u(i, j, k) = abstep(h, fu(i, j, k), fuo(i, j, k), uo(i, j, k), dt);
    });
}

} // namespace riffle::flow
