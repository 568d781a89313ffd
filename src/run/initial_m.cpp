#include "run/initial_m.hpp"

#include <algorithm>
#include <cmath>
#include <random>

namespace riffle {

double indexhash(int i, int j, int k) {
    const double c = std::cos(19.0 - i + j / 3.0 + k / 7.0);
    const int m = i + j - k;
    // 30 divided by zero has no value; the disturbance takes r = 0 there.
    const int r = m == 0 ? 0 : 30 % m; // the remainder keeps the sign of 30
    return std::sin(3.0 + c + i / 9.0 + j - k + r);
}

namespace {

// Adds the index-hash disturbance to one velocity component and its old level. The hash takes
// the index in the whole box (gi, gj: the block's offset), so blocks agree with one process.
void disturb(Field3d& now, Field3d& old, int imax, int jmax, int kmax, int gi, int gj,
             double amplitude) {
    for (int k = 0; k <= kmax + 1; ++k) {
        for (int j = 0; j <= jmax + 1; ++j) {
            for (int i = 0; i <= imax + 1; ++i) {
                old(i, j, k) += (indexhash(i + gi, j + gj, k) - 0.5) * 2.0 * amplitude;
                now(i, j, k) = old(i, j, k);
            }
        }
    }
}

} // namespace

void initialfields(Storage& st) {
    // The uniform speed uses zmax as the depth (the bed is taken to lie near z = 0).
    if (int32view(st.iInitial) == 0) {
        st.xInit = st.discharge / (st.ymax - st.ymin) / st.zmax;
        st.yInit = 0.0;
        st.zInit = 0.0;
    }
    // The extra ghost layer of each face array is not part of the state; it starts at zero.
    for (Field3d* a : {&st.u, &st.v, &st.w, &st.uo, &st.vo, &st.wo})
        a->fill(0.0);

    st.p.fill(0.0);
    for (int l = 0; l >= st.lmin; --l)
        st.mg(l).phi.fill(0.0);

    const int imax = st.imax, jmax = st.jmax, kmax = st.kmax;
    for (int k = 0; k <= kmax + 1; ++k) {
        for (int j = 0; j <= jmax + 1; ++j) {
            for (int i = 0; i <= imax + 1; ++i) {
                st.u(i, j, k) = st.uo(i, j, k) = st.xInit;
                st.v(i, j, k) = st.vo(i, j, k) = st.yInit;
                st.w(i, j, k) = st.wo(i, j, k) = st.zInit;
            }
        }
    }
    for (Field3d* a : {&st.fu, &st.fv, &st.fw, &st.fuo, &st.fvo, &st.fwo, &st.nut, &st.vort, &st.qc,
                       &st.s11, &st.s22, &st.s33, &st.s12, &st.s13, &st.s23, &st.sabs}) {
        a->fill(0.0);
    }
    st.npt = 0;
    for (auto& a : st.ptdata)
        std::fill(a.begin(), a.end(), 0.0);
    std::fill(st.ptindex.begin(), st.ptindex.end(), 0);

    // Each component gets the identical disturbance at a given index, u first, then v, then w.
    if (int32view(st.iPerturb) != 0) {
        const int gi = st.ioffset(), gj = st.joffset();
        disturb(st.u, st.uo, imax, jmax, kmax, gi, gj, st.amplitude);
        disturb(st.v, st.vo, imax, jmax, kmax, gi, gj, st.amplitude);
        disturb(st.w, st.wo, imax, jmax, kmax, gi, gj, st.amplitude);
    }
}

void bedroughening(Storage& st, Field2d& elev) {
    std::mt19937_64 generator; // default seed: the bumps repeat from run to run
    // Over the nodes of the whole grid (every rank draws the same sequence).
    for (int j = 0; j <= elev.jrange().hi; ++j) {
        for (int i = 0; i <= elev.irange().hi; ++i) {
            // 53 random bits give a uniform double in [0, 1), the same on every platform.
            const double r = static_cast<double>(generator() >> 11) * 0x1.0p-53;
            elev(i, j) = elev(i, j) + (r - 0.5) * 2.0 * st.BAmplitude;
        }
    }
}

} // namespace riffle
