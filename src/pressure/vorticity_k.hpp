// The velocity gradient at a cell centre from the staggered velocities, and the vorticity
// magnitude and Q criterion formed from it (vorticity_m drives it).
#pragma once

#include <cmath>

#include "run/field3.hpp"
#include "run/loops.hpp"

namespace riffle::pressure {

using CView = ConstView3<double>;

// The nine components of the velocity gradient at one cell centre.
struct Gradient {
    double ux, uy, uz;
    double vx, vy, vz;
    double wx, wy, wz;
};

// Difference of two four-point averages one cell apart: (0.25 (a0+a1+p0+p1) - 0.25 (a0+a1+m0+m1))
// / h, where a0, a1 are the two faces of this cell and p, m those of the neighbours.
RIFFLE_HD inline double crossdiff(double a0, double a1, double p0, double p1, double m0, double m1,
                                  double h) {
    const double plus = 0.25 * (a0 + a1 + p0 + p1);
    const double minus = 0.25 * (a0 + a1 + m0 + m1);
    return (plus - minus) / h;
}

RIFFLE_HD inline Gradient gradient(const CView& u, const CView& v, const CView& w, int i, int j,
                                   int k, double dx, double dy, double dz) {
    Gradient g{};
    g.ux = (u(i, j, k) - u(i - 1, j, k)) / dx;
    g.vy = (v(i, j, k) - v(i, j - 1, k)) / dy;
    g.wz = (w(i, j, k) - w(i, j, k - 1)) / dz;
    g.uy = crossdiff(u(i - 1, j, k), u(i, j, k), u(i - 1, j + 1, k), u(i, j + 1, k),
                     u(i - 1, j - 1, k), u(i, j - 1, k), dy);
    g.uz = crossdiff(u(i - 1, j, k), u(i, j, k), u(i - 1, j, k + 1), u(i, j, k + 1),
                     u(i - 1, j, k - 1), u(i, j, k - 1), dz);
    g.vx = crossdiff(v(i, j - 1, k), v(i, j, k), v(i + 1, j - 1, k), v(i + 1, j, k),
                     v(i - 1, j - 1, k), v(i - 1, j, k), dx);
    g.vz = crossdiff(v(i, j - 1, k), v(i, j, k), v(i, j - 1, k + 1), v(i, j, k + 1),
                     v(i, j - 1, k - 1), v(i, j, k - 1), dz);
    g.wx = crossdiff(w(i, j, k - 1), w(i, j, k), w(i + 1, j, k - 1), w(i + 1, j, k),
                     w(i - 1, j, k - 1), w(i - 1, j, k), dx);
    g.wy = crossdiff(w(i, j, k - 1), w(i, j, k), w(i, j + 1, k - 1), w(i, j + 1, k),
                     w(i, j - 1, k - 1), w(i, j - 1, k), dy);
    return g;
}

RIFFLE_HD inline double vorticitymagnitude(const Gradient& g) {
    const double ox = g.wy - g.vz, oy = g.uz - g.wx, oz = g.vx - g.uy;
    return std::sqrt(ox * ox + oy * oy + oz * oz);
}

RIFFLE_HD inline double qcriterion(const Gradient& g) {
    return -0.5 * (g.ux * g.ux + g.vy * g.vy + g.wz * g.wz + 2.0 * g.vx * g.uy + 2.0 * g.wx * g.uz +
                   2.0 * g.wy * g.vz);
}

} // namespace riffle::pressure
