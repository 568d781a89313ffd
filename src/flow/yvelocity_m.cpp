#include "flow/yvelocity_m.hpp"

#include <cstdlib>

#include "flow/momentum.hpp"
#include "run/loops.hpp"
#include "run/parallel.hpp"

namespace riffle::flow {

namespace {

// Right-hand side at the v point (i,j,k); sums in the x, y, z order of the u predictor.
inline double rhsv(const ConstView3<double>& u, const ConstView3<double>& v,
                   const ConstView3<double>& w, const ConstView3<double>& nut,
                   const MomentumCoefficients& c, int i, int j, int k) {
    const double cx = ((u(i, j, k) + u(i, j + 1, k)) * (v(i, j, k) + v(i + 1, j, k)) -
                       (u(i - 1, j, k) + u(i - 1, j + 1, k)) * (v(i, j, k) + v(i - 1, j, k))) *
                      0.5 * 0.5 / c.dx;
    const double vn = 0.5 * (v(i, j, k) + v(i, j + 1, k));
    const double vs = 0.5 * (v(i, j, k) + v(i, j - 1, k));
    const double cy = (vn * vn - vs * vs) / c.dy;
    const double cz = ((w(i, j, k) + w(i, j + 1, k)) * (v(i, j, k) + v(i, j, k + 1)) -
                       (w(i, j, k - 1) + w(i, j + 1, k - 1)) * (v(i, j, k) + v(i, j, k - 1))) *
                      0.5 * 0.5 / c.dz;

    const double ne =
        c.visc + 0.25 * (nut(i, j, k) + nut(i, j + 1, k) + nut(i + 1, j, k) + nut(i + 1, j + 1, k));
    const double nw =
        c.visc + 0.25 * (nut(i, j, k) + nut(i, j + 1, k) + nut(i - 1, j, k) + nut(i - 1, j + 1, k));
    const double nt =
        c.visc + 0.25 * (nut(i, j, k) + nut(i, j + 1, k) + nut(i, j, k + 1) + nut(i, j + 1, k + 1));
    const double nb =
        c.visc + 0.25 * (nut(i, j, k) + nut(i, j + 1, k) + nut(i, j, k - 1) + nut(i, j + 1, k - 1));
    const double ddx =
        (ne * ((v(i + 1, j, k) - v(i, j, k)) / c.dx + (u(i, j + 1, k) - u(i, j, k)) / c.dy) -
         nw * ((v(i, j, k) - v(i - 1, j, k)) / c.dx +
               (u(i - 1, j + 1, k) - u(i - 1, j, k)) / c.dy)) /
        c.dx;
    const double ddy = ((nut(i, j + 1, k) + c.visc) * 2.0 * (v(i, j + 1, k) - v(i, j, k)) / c.dy -
                        (nut(i, j, k) + c.visc) * 2.0 * (v(i, j, k) - v(i, j - 1, k)) / c.dy) /
                       c.dy;
    const double ddz =
        (nt * ((v(i, j, k + 1) - v(i, j, k)) / c.dz + (w(i, j + 1, k) - w(i, j, k)) / c.dy) -
         nb * ((v(i, j, k) - v(i, j, k - 1)) / c.dz +
               (w(i, j + 1, k - 1) - w(i, j, k - 1)) / c.dy)) /
        c.dz;
    return ((c.source - cx - cy) - cz + ddx) + ddy + ddz;
}

} // namespace

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
