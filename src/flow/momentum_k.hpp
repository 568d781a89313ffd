// The momentum predictors' arithmetic at a point (xvelocity, yvelocity and zvelocity drive it):
// the right-hand side of each component on its staggered point and the Adams-Bashforth update.
#pragma once

#include "run/field3.hpp"
#include "run/loops.hpp"

namespace riffle::flow {

struct MomentumCoefficients {
    double dx, dy, dz, visc;
    double source; // driving acceleration of the component, plus the zero mean pressure gradient
};

// The Adams-Bashforth update: the previous right-hand side moves to fo, the new one to f, and the
// velocity advances from its old level. Both terms use the current dt, also after a change of
// step size.
RIFFLE_HD inline double abstep(double h, double& f, double& fo, double old, double dt) {
    const double hold = f;
    fo = hold;
    f = h;
    return old + (3.0 * h - hold) * (0.5 * dt);
}

// The zero mean pressure gradient over the density, kept as written: with dens = 0 it turns the
// source into NaN instead of hiding the bad density.
RIFFLE_HD inline double meanpressuregradient(double dens) { return -0.0 / dens; }

// Right-hand side at the u point (i,j,k).
RIFFLE_HD inline double rhsu(const ConstView3<double>& u, const ConstView3<double>& v,
                             const ConstView3<double>& w, const ConstView3<double>& nut,
                             const MomentumCoefficients& c, int i, int j, int k) {
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

// Right-hand side at the v point (i,j,k); sums in the x, y, z order of the u predictor.
RIFFLE_HD inline double rhsv(const ConstView3<double>& u, const ConstView3<double>& v,
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

// Right-hand side at the w point (i,j,k); sums in the x, y, z order of the u predictor.
RIFFLE_HD inline double rhsw(const ConstView3<double>& u, const ConstView3<double>& v,
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

} // namespace riffle::flow
