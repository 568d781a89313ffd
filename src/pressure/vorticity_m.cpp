#include "pressure/vorticity_m.hpp"

#include "pressure/vorticity_k.hpp"
#include "run/faces_k.hpp"

#include <cmath>

#include "run/halo_m.hpp"
#include "run/loops.hpp"

namespace riffle::pressure {

using View = View3<double>;

void vorticity(const Geometry& grid, const Conditions& cond, FlowFields& flow) {
    const int imax = grid.imax, jmax = grid.jmax, kmax = grid.kmax;
    const double dx = grid.dx, dy = grid.dy, dz = grid.dz;
    const double tw = cond.ibp[west], te = cond.ibp[east], ts = cond.ibp[south];
    const double tn = cond.ibp[north], tb = cond.ibp[bottom], tt = cond.ibp[top];
    const CView u = flow.u.cview(), v = flow.v.cview(), w = flow.w.cview();
    const View vort = flow.vort.view(), qc = flow.qc.view();

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
    exchange(grid.dec, flow.vort, imax, jmax);
    exchange(grid.dec, flow.qc, imax, jmax);
}

} // namespace riffle::pressure
