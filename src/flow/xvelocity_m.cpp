#include "flow/xvelocity_m.hpp"

#include <cstdlib>

#include "flow/momentum.hpp"
#include "run/loops.hpp"

namespace riffle::flow {

namespace {

using Coefficients = MomentumCoefficients;

// Right-hand side at the u point (i,j,k).
inline double rhsu(const ConstView3<double>& u, const ConstView3<double>& v,
                   const ConstView3<double>& w, const ConstView3<double>& nut,
                   const Coefficients& c, int i, int j, int k) {
    const double ue = 0.5 * (u(i, j, k) + u(i + 1, j, k));
    const double uw = 0.5 * (u(i, j, k) + u(i - 1, j, k));
    const double cx = (ue * ue - uw * uw) / c.dx;
    const double cy = ((v(i, j, k) + v(i + 1, j, k)) * (u(i, j, k) + u(i, j + 1, k)) -
                       (v(i, j - 1, k) + v(i + 1, j - 1, k)) * (u(i, j, k) + u(i, j - 1, k))) *
                      0.5 * 0.5 / c.dy;
    const double cz = ((w(i, j, k) + w(i + 1, j, k)) * (u(i, j, k) + u(i, j, k + 1)) -
                       (w(i, j, k - 1) + w(i + 1, j, k - 1)) * (u(i, j, k) + u(i, j, k - 1))) *
                      0.5 * 0.5 / c.dz;

    // Normal stress with the viscosities of the two cells the u point lies between.
    const double ddx = ((nut(i + 1, j, k) + c.visc) * 2.0 * (u(i + 1, j, k) - u(i, j, k)) / c.dx -
                        (nut(i, j, k) + c.visc) * 2.0 * (u(i, j, k) - u(i - 1, j, k)) / c.dx) /
                       c.dx;
    // Shear stresses with the four-cell average viscosity at each edge.
    const double nn =
        c.visc + 0.25 * (nut(i, j, k) + nut(i + 1, j, k) + nut(i, j + 1, k) + nut(i + 1, j + 1, k));
    const double ns =
        c.visc + 0.25 * (nut(i, j, k) + nut(i + 1, j, k) + nut(i, j - 1, k) + nut(i + 1, j - 1, k));
    const double nt =
        c.visc + 0.25 * (nut(i, j, k) + nut(i + 1, j, k) + nut(i, j, k + 1) + nut(i + 1, j, k + 1));
    const double nb =
        c.visc + 0.25 * (nut(i, j, k) + nut(i + 1, j, k) + nut(i, j, k - 1) + nut(i + 1, j, k - 1));
    const double ddy =
        (nn * ((u(i, j + 1, k) - u(i, j, k)) / c.dy + (v(i + 1, j, k) - v(i, j, k)) / c.dx) -
         ns * ((u(i, j, k) - u(i, j - 1, k)) / c.dy +
               (v(i + 1, j - 1, k) - v(i, j - 1, k)) / c.dx)) /
        c.dy;
    const double ddz =
        (nt * ((u(i, j, k + 1) - u(i, j, k)) / c.dz + (w(i + 1, j, k) - w(i, j, k)) / c.dx) -
         nb * ((u(i, j, k) - u(i, j, k - 1)) / c.dz +
               (w(i + 1, j, k - 1) - w(i, j, k - 1)) / c.dx)) /
        c.dz;
    return ((c.source - cx - cy) - cz + ddx) + ddy + ddz;
}

} // namespace

void xvelocity(Storage& st) {
    const Coefficients c{st.dx, st.dy, st.dz, st.visc, st.fx + meanpressuregradient(st.dens)};
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
