#include "flow/zvelocity_m.hpp"

#include <cstdlib>

#include "flow/momentum.hpp"
#include "run/loops.hpp"
#include "run/parallel.hpp"

namespace riffle::flow {

namespace {

// Right-hand side at the w point (i,j,k); sums in the x, y, z order of the u predictor.
inline double rhsw(const ConstView3<double>& u, const ConstView3<double>& v,
                   const ConstView3<double>& w, const ConstView3<double>& nut,
                   const MomentumCoefficients& c, int i, int j, int k) {
    const double cx = ((u(i, j, k) + u(i, j, k + 1)) * (w(i, j, k) + w(i + 1, j, k)) -
                       (u(i - 1, j, k) + u(i - 1, j, k + 1)) * (w(i, j, k) + w(i - 1, j, k))) *
                      0.5 * 0.5 / c.dx;
    const double cy = ((v(i, j, k) + v(i, j, k + 1)) * (w(i, j, k) + w(i, j + 1, k)) -
                       (v(i, j - 1, k) + v(i, j - 1, k + 1)) * (w(i, j, k) + w(i, j - 1, k))) *
                      0.5 * 0.5 / c.dy;
    const double wt = 0.5 * (w(i, j, k) + w(i, j, k + 1));
    const double wb = 0.5 * (w(i, j, k) + w(i, j, k - 1));
    const double cz = (wt * wt - wb * wb) / c.dz;

    const double ne =
        c.visc + 0.25 * (nut(i, j, k) + nut(i, j, k + 1) + nut(i + 1, j, k) + nut(i + 1, j, k + 1));
    const double nw =
        c.visc + 0.25 * (nut(i, j, k) + nut(i, j, k + 1) + nut(i - 1, j, k) + nut(i - 1, j, k + 1));
    const double nn =
        c.visc + 0.25 * (nut(i, j, k) + nut(i, j, k + 1) + nut(i, j + 1, k) + nut(i, j + 1, k + 1));
    const double ns =
        c.visc + 0.25 * (nut(i, j, k) + nut(i, j, k + 1) + nut(i, j - 1, k) + nut(i, j - 1, k + 1));
    const double ddx =
        (ne * ((w(i + 1, j, k) - w(i, j, k)) / c.dx + (u(i, j, k + 1) - u(i, j, k)) / c.dz) -
         nw * ((w(i, j, k) - w(i - 1, j, k)) / c.dx +
               (u(i - 1, j, k + 1) - u(i - 1, j, k)) / c.dz)) /
        c.dx;
    const double ddy =
        (nn * ((w(i, j + 1, k) - w(i, j, k)) / c.dy + (v(i, j, k + 1) - v(i, j, k)) / c.dz) -
         ns * ((w(i, j, k) - w(i, j - 1, k)) / c.dy +
               (v(i, j - 1, k + 1) - v(i, j - 1, k)) / c.dz)) /
        c.dy;
    const double ddz = ((nut(i, j, k + 1) + c.visc) * 2.0 * (w(i, j, k + 1) - w(i, j, k)) / c.dz -
                        (nut(i, j, k) + c.visc) * 2.0 * (w(i, j, k) - w(i, j, k - 1)) / c.dz) /
                       c.dz;
    return ((c.source - cx - cy) - cz + ddx) + ddy + ddz;
}

} // namespace

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
