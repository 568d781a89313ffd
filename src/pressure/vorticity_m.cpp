#include "pressure/vorticity_m.hpp"

#include <cmath>

#include "run/halo_m.hpp"
#include "run/loops.hpp"

namespace riffle::pressure {

namespace {

using CView = ConstView3<double>;
using View = View3<double>;

// ---- pointwise arithmetic ---------------------------------------------------------------------

// The nine components of the velocity gradient at one cell centre.
struct Gradient {
    double ux, uy, uz;
    double vx, vy, vz;
    double wx, wy, wz;
};

// Difference of two four-point averages one cell apart: (0.25 (a0+a1+p0+p1) - 0.25 (a0+a1+m0+m1))
// / h, where a0, a1 are the two faces of this cell and p, m those of the neighbours.
inline double crossdiff(double a0, double a1, double p0, double p1, double m0, double m1,
                        double h) {
    const double plus = 0.25 * (a0 + a1 + p0 + p1);
    const double minus = 0.25 * (a0 + a1 + m0 + m1);
    return (plus - minus) / h;
}

inline Gradient gradient(const CView& u, const CView& v, const CView& w, int i, int j, int k,
                         double dx, double dy, double dz) {
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

inline double vorticitymagnitude(const Gradient& g) {
    const double ox = g.wy - g.vz, oy = g.uz - g.wx, oz = g.vx - g.uy;
    return std::sqrt(ox * ox + oy * oy + oz * oz);
}

inline double qcriterion(const Gradient& g) {
    return -0.5 * (g.ux * g.ux + g.vy * g.vy + g.wz * g.wz + 2.0 * g.vx * g.uy + 2.0 * g.wx * g.uz +
                   2.0 * g.wy * g.vz);
}

// Ghost value of a face of code t; applied even where a factor is 0, so a periodic face is an
// exact copy of the opposite end.
inline double ghost(double t, double adjacent, double opposite) {
    return t * adjacent + (1.0 - std::abs(t)) * opposite;
}

} // namespace

void vorticity(Storage& st) {
    const int imax = st.imax, jmax = st.jmax, kmax = st.kmax;
    const double dx = st.dx, dy = st.dy, dz = st.dz;
    const double tw = st.ibp[west], te = st.ibp[east], ts = st.ibp[south];
    const double tn = st.ibp[north], tb = st.ibp[bottom], tt = st.ibp[top];
    const CView u = st.u.cview(), v = st.v.cview(), w = st.w.cview();
    const View vort = st.vort.view(), qc = st.qc.view();

    loops::forbox({{1, imax}, {1, jmax}, {1, kmax}}, [=](int i, int j, int k) {
        const Gradient g = gradient(u, v, w, i, j, k, dx, dy, dz);
        vort(i, j, k) = vorticitymagnitude(g);
        qc(i, j, k) = qcriterion(g);
    });
    // Ghost passes: each covers the whole layer left by the passes before it.
    loops::forbox({{0, 0}, {0, jmax + 1}, {0, kmax + 1}}, [=](int, int j, int k) {
        vort(0, j, k) = ghost(tw, vort(1, j, k), vort(imax, j, k));
        vort(imax + 1, j, k) = ghost(te, vort(imax, j, k), vort(1, j, k));
        qc(0, j, k) = ghost(tw, qc(1, j, k), qc(imax, j, k));
        qc(imax + 1, j, k) = ghost(te, qc(imax, j, k), qc(1, j, k));
    });
    loops::forbox({{0, imax + 1}, {0, 0}, {0, kmax + 1}}, [=](int i, int, int k) {
        vort(i, 0, k) = ghost(ts, vort(i, 1, k), vort(i, jmax, k));
        vort(i, jmax + 1, k) = ghost(tn, vort(i, jmax, k), vort(i, 1, k));
        qc(i, 0, k) = ghost(ts, qc(i, 1, k), qc(i, jmax, k));
        qc(i, jmax + 1, k) = ghost(tn, qc(i, jmax, k), qc(i, 1, k));
    });
    loops::forbox({{0, imax + 1}, {0, jmax + 1}, {0, 0}}, [=](int i, int j, int) {
        vort(i, j, 0) = ghost(tb, vort(i, j, 1), vort(i, j, kmax));
        vort(i, j, kmax + 1) = ghost(tt, vort(i, j, kmax), vort(i, j, 1));
        qc(i, j, 0) = ghost(tb, qc(i, j, 1), qc(i, j, kmax));
        qc(i, j, kmax + 1) = ghost(tt, qc(i, j, kmax), qc(i, j, 1));
    });
    // Blocks: the halo from the neighbours (the side ghost passes above hold only at box faces).
    if (st.dec.distributed()) {
        exchange(st.dec, st.vort, imax, jmax);
        exchange(st.dec, st.qc, imax, jmax);
    }
}

} // namespace riffle::pressure
