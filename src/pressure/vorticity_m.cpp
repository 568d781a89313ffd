#include "pressure/vorticity_m.hpp"

#include "pressure/vorticity_k.hpp"
#include "run/faces_k.hpp"

#include <cmath>

#include "run/halo_m.hpp"
#include "run/loops.hpp"

namespace riffle::pressure {

using View = View3<double>;

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
